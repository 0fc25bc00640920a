// Built without the thread sanitizer, which must not see how threads pass the turn: it would take the order of the
// simulation for an order that the library makes. So other sources share nothing with this one except the calls.

#include "system.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

// The definition of a function that is replaced below.
#define REAL(function) reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

namespace {

const char* failingCall = nullptr;
int failure = 0;

// The error of `call`, or 0 if the call is to succeed.
int FailureOf(const char* call) { return failingCall != nullptr && strcmp(call, failingCall) == 0 ? failure : 0; }

constexpr int MAX_THREADS = 16;
constexpr uint64_t START_NS = 1'000'000'000'000'000;
constexpr int64_t SUSPENDED_NS = 5'000'000'000;
constexpr uint64_t NEVER = UINT64_MAX;

enum State { FREE, RUNNABLE, YIELDING, AT_LOCK, AT_CONDITION, AT_JOIN, ENDED };

struct SimulatedThread {
    State state;
    const void* object;  // the lock, condition or thread that the thread waits for
    uint64_t deadlineNs;
    bool isDetached;
    pthread_t handle;
    uint32_t hasTurn;
    void* (*body)(void*);
    void* arg;
};

// Used only by the thread that has the turn.
SimulatedThread threads[MAX_THREADS];
uint64_t nowNs = 0;
int64_t wallOffsetNs = 0;
unsigned int firstSeed = 0;
uint64_t randomState = 0;
int waits = 0;
Simulation::Scheduling lastScheduling{};
pthread_key_t endKey;

// The number of the calling thread, -1 outside a simulation.
thread_local int self = -1;

unsigned int Random(unsigned int limit)
{
    randomState = randomState * 6364136223846793005 + 1442695040888963407;
    return static_cast<unsigned int>(randomState >> 33) % limit;
}

void GiveTurn(int thread)
{
    __atomic_store_n(&threads[thread].hasTurn, 1U, __ATOMIC_RELEASE);
    syscall(SYS_futex, &threads[thread].hasTurn, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void TakeTurn(int thread)
{
    const int callerErrno = errno;
    while (__atomic_load_n(&threads[thread].hasTurn, __ATOMIC_ACQUIRE) == 0) {
        syscall(SYS_futex, &threads[thread].hasTurn, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }
    threads[thread].hasTurn = 0;
    errno = callerErrno;
}

// Ends the program while each thread is where it waits, so that a debugger shows it.
[[noreturn]] void Fail(const char* what)
{
    constexpr const char* NAMES[] = {"", "", "", "a lock", "a condition", "the end of another thread"};
    fprintf(stderr, "simulation, seed %u: %s\n", firstSeed, what);
    for (int i = 0; i < MAX_THREADS; ++i) {
        if (threads[i].state > YIELDING && threads[i].state < ENDED) {
            fprintf(stderr, "thread %d waits for %s, %p\n", i, NAMES[threads[i].state], threads[i].object);
        }
    }
    abort();
}

void Wake(SimulatedThread& thread)
{
    thread.state = RUNNABLE;
    thread.deadlineNs = NEVER;
}

// One of the threads in `state`, preferably the caller or the next one; -1 if there is none.
int ChooseAmong(State state)
{
    int found[MAX_THREADS];
    unsigned int count = 0;
    const int first = threads[self].state == RUNNABLE ? self : self + 1;
    for (int i = first; i < first + MAX_THREADS; ++i) {
        if (threads[i % MAX_THREADS].state == state) {
            found[count++] = i % MAX_THREADS;
        }
    }
    // With each third seed, threads rarely lose their turn, so one thread may do much between two steps of
    // another.
    const bool isRandom = randomState != 0 && (firstSeed % 3 != 0 || Random(8) == 0);
    return count == 0 ? -1 : found[isRandom ? Random(count) : 0];
}

// The thread that runs next. If none can run, time passes.
int Choose()
{
    for (;;) {
        uint64_t earliestNs = NEVER;
        for (SimulatedThread& thread : threads) {
            // Even seeds bring spurious wake-ups.
            const bool isWoken =
                thread.state == AT_CONDITION && firstSeed > 0 && firstSeed % 2 == 0 && Random(64) == 0;
            if (isWoken || thread.deadlineNs <= nowNs) {
                Wake(thread);
            }
            earliestNs = std::min(earliestNs, thread.deadlineNs);
        }
        const int runnable = ChooseAmong(RUNNABLE);
        const int next = runnable != -1 ? runnable : ChooseAmong(YIELDING);
        if (next != -1) {
            return next;
        }
        if (earliestNs == NEVER) {
            Fail("deadlock: all threads wait, and nothing can wake one");
        }
        nowNs = earliestNs;
    }
}

// Lets another thread run if it is its turn; always, if the caller waits.
void Switch(State state = RUNNABLE, const void* object = nullptr)
{
    const int thread = self;
    threads[thread].state = state;
    threads[thread].object = object;
    const int next = Choose();
    if (next != thread) {
        GiveTurn(next);
        TakeTurn(thread);
    }
    threads[thread].state = RUNNABLE;
}

// Wakes one, or all, of the threads that wait for `object`.
void WakeAt(State state, const void* object, bool all)
{
    const unsigned int start = randomState != 0 ? Random(MAX_THREADS) : 0;
    for (unsigned int i = start; i < start + MAX_THREADS; ++i) {
        SimulatedThread& thread = threads[i % MAX_THREADS];
        if (thread.state == state && thread.object == object) {
            Wake(thread);
            if (!all) {
                return;
            }
        }
    }
}

int Lock(pthread_mutex_t* mutex)
{
    int result = 0;
    while ((result = pthread_mutex_trylock(mutex)) == EBUSY) {
        Switch(AT_LOCK, mutex);
    }
    return result;
}

void Unlock(pthread_mutex_t* mutex)
{
    REAL(pthread_mutex_unlock)(mutex);
    WakeAt(AT_LOCK, mutex, true);
}

int WaitForCondition(pthread_cond_t* cond, pthread_mutex_t* mutex, uint64_t deadlineNs)
{
    Switch();  // a notification without the lock comes too early here and is lost
    ++waits;
    threads[self].deadlineNs = deadlineNs;
    Unlock(mutex);
    Switch(AT_CONDITION, cond);
    Lock(mutex);
    return nowNs < deadlineNs ? 0 : ETIMEDOUT;
}

int Notify(pthread_cond_t* cond, bool all)
{
    Switch();
    // No thread of a simulation waits in glibc, so a condition keeps the zeros that it begins with.
    if (*reinterpret_cast<char*>(cond) != 0) {
        Fail("the memory of a notified condition has been freed");
    }
    WakeAt(AT_CONDITION, cond, all);
    return 0;
}

uint64_t DeadlineNs(const timespec* time, clockid_t clock)
{
    if (clock != CLOCK_MONOTONIC) {
        Fail("a wait on a clock that can be set");
    }
    if (time->tv_sec < 0) {
        Fail("a wait until a negative time");
    }
    return static_cast<uint64_t>(time->tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time->tv_nsec);
}

int Sleep(const timespec* duration)
{
    const uint64_t deadlineNs = nowNs + DeadlineNs(duration, CLOCK_MONOTONIC);
    while (nowNs < deadlineNs) {
        threads[self].deadlineNs = deadlineNs;
        Switch(AT_CONDITION);
    }
    return 0;
}

SimulatedThread* FindThread(pthread_t handle)
{
    for (SimulatedThread& thread : threads) {
        if (self != -1 && thread.state != FREE && pthread_equal(thread.handle, handle) != 0) {
            return &thread;
        }
    }
    return nullptr;
}

// After the destructors of the thread's own objects.
void EndThread(void* /*unused*/)
{
    SimulatedThread& thread = threads[self];
    thread.state = thread.isDetached ? FREE : ENDED;
    WakeAt(AT_JOIN, &thread, true);
    const int next = Choose();
    self = -1;
    GiveTurn(next);
}

void* RunThread(void* arg)
{
    const int number = static_cast<int>(static_cast<SimulatedThread*>(arg) - threads);
    pthread_setspecific(endKey, arg);
    TakeTurn(number);
    self = number;
    return threads[number].body(threads[number].arg);
}

}  // namespace

void FailCall(const char* call, int error)
{
    failingCall = call;
    failure = error;
}

Simulation::Simulation(unsigned int seed)
{
    [[maybe_unused]] static const int created = pthread_key_create(&endKey, EndThread);  // once for all
    for (SimulatedThread& thread : threads) {
        thread = {};
        thread.deadlineNs = NEVER;
    }
    threads[0].state = RUNNABLE;
    nowNs = START_NS;
    wallOffsetNs = 1'700'000'000'000'000'000;  // about the present day
    firstSeed = seed;
    randomState = seed * 0x9E3779B97F4A7C15ULL;
    waits = 0;
    self = 0;
}

Simulation::~Simulation()
{
    LetOthersRun();
    for (int i = 1; i < MAX_THREADS; ++i) {
        if (threads[i].state != FREE) {
            Fail("a thread is left at the end");
        }
    }
    self = -1;
}

uint64_t Simulation::NowNs() { return nowNs; }

void Simulation::LetOthersRun() { Switch(YIELDING); }

void Simulation::MoveWallClock(int64_t byNs) { wallOffsetNs += byNs; }

int Simulation::Waits() { return waits; }

Simulation::Scheduling Simulation::LastScheduling() { return lastScheduling; }

// A call that the simulation replaces for its threads.
#define SIMULATE(function, parameters, arguments, simulated) \
    int function parameters { return self == -1 ? REAL(function) arguments : (simulated); }

extern "C" {

// clang-format off
SIMULATE(pthread_mutex_lock, (pthread_mutex_t* mutex) noexcept, (mutex), (Switch(), Lock(mutex)))
SIMULATE(pthread_mutex_unlock, (pthread_mutex_t* mutex) noexcept, (mutex), (Unlock(mutex), Switch(), 0))
SIMULATE(pthread_cond_wait, (pthread_cond_t* cond, pthread_mutex_t* mutex), (cond, mutex), WaitForCondition(cond, mutex, NEVER))
SIMULATE(pthread_cond_timedwait, (pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* deadline),
         (cond, mutex, deadline), WaitForCondition(cond, mutex, DeadlineNs(deadline, CLOCK_REALTIME)))
SIMULATE(pthread_cond_clockwait, (pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock, const timespec* deadline),
         (cond, mutex, clock, deadline), WaitForCondition(cond, mutex, DeadlineNs(deadline, clock)))
SIMULATE(nanosleep, (const timespec* duration, timespec* rest), (duration, rest), Sleep(duration))
SIMULATE(pthread_cond_signal, (pthread_cond_t* cond) noexcept, (cond), Notify(cond, false))
SIMULATE(pthread_cond_broadcast, (pthread_cond_t* cond) noexcept, (cond), Notify(cond, true))
// clang-format on

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (self == -1 || (clock != CLOCK_MONOTONIC && clock != CLOCK_REALTIME && clock != CLOCK_BOOTTIME)) {
        return REAL(clock_gettime)(clock, time);
    }
    const int64_t offsetNs = clock == CLOCK_REALTIME ? wallOffsetNs : clock == CLOCK_BOOTTIME ? SUSPENDED_NS : 0;
    const uint64_t ns = nowNs + static_cast<uint64_t>(offsetNs);
    *time = {static_cast<time_t>(ns / 1'000'000'000), static_cast<long>(ns % 1'000'000'000)};
    return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* arg) noexcept
{
    if (const int error = FailureOf("pthread_create"); error != 0) {
        return error;
    }
    if (self == -1) {
        return REAL(pthread_create)(thread, attributes, body, arg);
    }
    SimulatedThread* created = threads + 1;
    while (created->state != FREE) {
        ++created;
    }
    *created = {FREE, nullptr, NEVER, false, {}, 0, body, arg};
    const int result = REAL(pthread_create)(thread, attributes, RunThread, created);
    if (result == 0) {
        created->handle = *thread;
        created->state = RUNNABLE;
        Switch();
    }
    return result;
}

int pthread_join(pthread_t handle, void** result)
{
    if (SimulatedThread* thread = FindThread(handle)) {
        if (thread->state != ENDED) {
            Switch(AT_JOIN, thread);
        }
        thread->state = FREE;
    }
    return REAL(pthread_join)(handle, result);
}

int pthread_detach(pthread_t handle) noexcept
{
    if (SimulatedThread* thread = FindThread(handle)) {
        thread->isDetached = true;
    }
    return REAL(pthread_detach)(handle);
}

// Never the policy that is to be set: SetThreadPriority() may not keep what it reads.
int pthread_getschedparam(pthread_t /*thread*/, int* policy, sched_param* param) noexcept
{
    *policy = SCHED_OTHER;
    *param = {50};
    return FailureOf("pthread_getschedparam");
}

int pthread_setschedparam(pthread_t thread, int policy, const sched_param* param) noexcept
{
    lastScheduling = {thread, policy, param->sched_priority};
    const int error = FailureOf("pthread_setschedparam");
    return error != 0 || self != -1 ? error : REAL(pthread_setschedparam)(thread, policy, param);
}

int fstat(int fd, struct stat* status) noexcept
{
    const int error = FailureOf("fstat");
    return error != 0 ? (errno = error, -1) : REAL(fstat)(fd, status);
}

int fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    const long arg = va_arg(args, long);
    va_end(args);
    const int error = command == F_ADD_SEALS || command == F_DUPFD ? FailureOf("fcntl") : 0;
    return error != 0 ? (errno = error, -1) : REAL(fcntl)(fd, command, arg);
}

}  // extern "C"
