#pragma once

// What bionic has and the C library that stands in for it has not.

#include <pthread.h>

extern "C" int pthread_cond_timedwait_monotonic_np(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                                   const timespec* deadline);
