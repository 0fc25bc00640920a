// Built without the thread sanitizer, which must not see how threads hand on their turn: what the library itself
// does not order would look ordered. So nothing here is shared with other sources but through the calls.

#include "system.h"

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

namespace {

// The next definition of a function that is defined below.
template <auto* FUNCTION>
auto* Real(const char* name)
{
    static decltype(FUNCTION) real = nullptr;
    if (__atomic_load_n(&real, __ATOMIC_RELAXED) == nullptr) {
        __atomic_store_n(&real, reinterpret_cast<decltype(FUNCTION)>(dlsym(RTLD_NEXT, name)), __ATOMIC_RELAXED);
    }
    return real;
}

#define REAL(function) Real<&function>(#function)

const char* failingCall = nullptr;
int failure = 0;

// The failure of `call`, 0 if it is to succeed.
int FailureOf(const char* call) { return failingCall != nullptr && strcmp(call, failingCall) == 0 ? failure : 0; }

int Failed(int error)
{
    errno = error;
    return -1;
}

constexpr int MAX_THREADS = 64;
constexpr uint64_t START_NS = 1'000'000'000'000'000;
constexpr uint64_t NEVER = UINT64_MAX;

struct SimulatedThread {
    enum State { FREE, RUNNABLE, YIELDING, AT_LOCK, AT_CONDITION, AT_JOIN, ENDED } state;
    const void* object;  // the lock, condition or thread that is waited for
    uint64_t deadlineNs;
    bool isTimedOut;
    bool isDetached;
    pthread_t handle;
    uint32_t hasTurn;
    void* (*body)(void*);
    void* arg;
};

// Touched by the thread that has the turn alone.
SimulatedThread threads[MAX_THREADS];
uint64_t nowNs = 0;
int64_t wallOffsetNs = 0;
unsigned int firstSeed = 0;
uint64_t randomState = 0;
int waits = 0;
Simulation::Scheduling lastScheduling{};
pthread_key_t endKey;

// The calling thread's number, -1 outside of a simulation.
thread_local int self = -1;

unsigned int Random(unsigned int limit)
{
    randomState = randomState * 6364136223846793005 + 1442695040888963407;
    return static_cast<unsigned int>(randomState >> 33) % limit;
}

void GiveTurn(int thread)
{
    __atomic_store_n(&threads[thread].hasTurn, 1U, __ATOMIC_RELEASE);
    REAL(syscall)(SYS_futex, &threads[thread].hasTurn, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// Ends the program where each thread waits, which a debugger shows.
[[noreturn]] void ReportAndEnd()
{
    constexpr const char* NAMES[] = {"", "", "", "a lock", "a condition", "the end of another thread"};
    fprintf(stderr, "simulation, seed %u: nothing is left to end a wait\n", firstSeed);
    for (const SimulatedThread& thread : threads) {
        if (thread.state != SimulatedThread::FREE && thread.state != SimulatedThread::ENDED) {
            fprintf(stderr, "thread %d waits for %s, %p\n", static_cast<int>(&thread - threads),
                    NAMES[thread.state], thread.object);
        }
    }
    abort();
}

void TakeTurn(int thread)
{
    const int callerErrno = errno;
    while (__atomic_load_n(&threads[thread].hasTurn, __ATOMIC_ACQUIRE) == 0) {
        REAL(syscall)(SYS_futex, &threads[thread].hasTurn, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }
    threads[thread].hasTurn = 0;
    errno = callerErrno;
}

void Wake(SimulatedThread& thread, bool isTimedOut)
{
    thread.state = SimulatedThread::RUNNABLE;
    thread.isTimedOut = isTimedOut;
    thread.deadlineNs = NEVER;
}

// Wakes those whose deadline is `timeNs` or before.
void WakeDue(uint64_t timeNs)
{
    for (SimulatedThread& thread : threads) {
        if (thread.deadlineNs <= timeNs && thread.deadlineNs != NEVER) {
            nowNs = thread.deadlineNs > nowNs ? thread.deadlineNs : nowNs;
            Wake(thread, true);
        }
    }
}

uint64_t EarliestDeadlineNs()
{
    uint64_t earliestNs = NEVER;
    for (const SimulatedThread& thread : threads) {
        earliestNs = thread.deadlineNs < earliestNs ? thread.deadlineNs : earliestNs;
    }
    return earliestNs;
}

// One of the threads in `state`, -1 if there is none.
int ChooseAmong(int state)
{
    int found[MAX_THREADS];
    unsigned int count = 0;
    const int first = threads[self].state == SimulatedThread::RUNNABLE ? self : self + 1;
    for (int i = 0; i < MAX_THREADS; ++i) {
        const int candidate = (first + i) % MAX_THREADS;
        if (threads[candidate].state == state) {
            found[count++] = candidate;
        }
    }
    return count == 0 ? -1 : found[randomState != 0 ? Random(count) : 0];
}

// Chooses who runs next.
int Choose()
{
    WakeDue(nowNs);
    if (randomState != 0 && firstSeed % 2 == 0 && Random(16) == 0) {  // a wake-up for no reason
        const int sleeper = ChooseAmong(SimulatedThread::AT_CONDITION);
        if (sleeper != -1) {
            Wake(threads[sleeper], false);
        }
    }
    int next = ChooseAmong(SimulatedThread::RUNNABLE);
    if (next == -1) {
        next = ChooseAmong(SimulatedThread::YIELDING);
    }
    if (next == -1) {
        WakeDue(EarliestDeadlineNs());
        next = ChooseAmong(SimulatedThread::RUNNABLE);
    }
    if (next == -1) {
        ReportAndEnd();
    }
    return next;
}

void Switch()
{
    const int next = Choose();
    if (next != self) {
        const int thread = self;
        GiveTurn(next);
        TakeTurn(thread);
    }
    threads[self].state = SimulatedThread::RUNNABLE;
}

void WaitFor(SimulatedThread::State state, const void* object)
{
    threads[self].state = state;
    threads[self].object = object;
    Switch();
}

// Wakes one, or all, of those that wait for `object`.
void WakeAt(int state, const void* object, bool all)
{
    const unsigned int start = randomState != 0 ? Random(MAX_THREADS) : 0;
    for (unsigned int i = 0; i < MAX_THREADS; ++i) {
        SimulatedThread& thread = threads[(start + i) % MAX_THREADS];
        if (thread.state == state && thread.object == object) {
            Wake(thread, false);
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
        WaitFor(SimulatedThread::AT_LOCK, mutex);
    }
    return result;
}

int Unlock(pthread_mutex_t* mutex)
{
    const int result = REAL(pthread_mutex_unlock)(mutex);
    WakeAt(SimulatedThread::AT_LOCK, mutex, true);
    return result;
}

int WaitForCondition(pthread_cond_t* cond, pthread_mutex_t* mutex, uint64_t deadlineNs)
{
    ++waits;
    threads[self].deadlineNs = deadlineNs;
    threads[self].isTimedOut = false;
    Unlock(mutex);
    WaitFor(SimulatedThread::AT_CONDITION, cond);
    const bool isTimedOut = threads[self].isTimedOut;
    Lock(mutex);
    return isTimedOut ? ETIMEDOUT : 0;
}

int Notify(pthread_cond_t* cond, bool all)
{
    Switch();
    static_cast<void>(*reinterpret_cast<volatile char*>(cond));  // for the address sanitizer: it has to be alive
    WakeAt(SimulatedThread::AT_CONDITION, cond, all);
    return 0;
}

// A deadline that lies before the start of time is one that has come.
uint64_t DeadlineNs(const timespec* time, clockid_t clock)
{
    const int64_t ns = time->tv_sec * 1'000'000'000 + time->tv_nsec - (clock == CLOCK_REALTIME ? wallOffsetNs : 0);
    return ns < 0 ? 0 : static_cast<uint64_t>(ns);
}

int Sleep(const timespec* duration)
{
    const uint64_t deadlineNs = nowNs + DeadlineNs(duration, CLOCK_MONOTONIC);
    while (nowNs < deadlineNs) {
        threads[self].deadlineNs = deadlineNs;
        WaitFor(SimulatedThread::AT_CONDITION, nullptr);
    }
    return 0;
}

SimulatedThread* FindThread(pthread_t handle)
{
    for (SimulatedThread& thread : threads) {
        if (self != -1 && thread.state != SimulatedThread::FREE && pthread_equal(thread.handle, handle) != 0) {
            return &thread;
        }
    }
    return nullptr;
}

// Behind the destructors of the thread's own objects.
void EndThread(void* /*unused*/)
{
    SimulatedThread& thread = threads[self];
    thread.state = thread.isDetached ? SimulatedThread::FREE : SimulatedThread::ENDED;
    WakeAt(SimulatedThread::AT_JOIN, &thread, true);
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
    static const int keyResult = pthread_key_create(&endKey, EndThread);
    if (keyResult != 0) {
        abort();
    }
    for (SimulatedThread& thread : threads) {
        thread.state = SimulatedThread::FREE;
        thread.deadlineNs = NEVER;
    }
    threads[0].state = SimulatedThread::RUNNABLE;
    threads[0].handle = pthread_self();
    nowNs = START_NS;
    wallOffsetNs = static_cast<int64_t>(START_NS);
    firstSeed = seed;
    randomState = seed * 0x9E3779B97F4A7C15ULL;
    waits = 0;
    self = 0;
}

Simulation::~Simulation()
{
    LetOthersRun();
    for (int i = 1; i < MAX_THREADS; ++i) {
        if (threads[i].state != SimulatedThread::FREE) {
            fprintf(stderr, "simulation, seed %u: a thread is left at the end\n", firstSeed);
            abort();
        }
    }
    self = -1;
}

uint64_t Simulation::NowNs() { return nowNs; }

void Simulation::LetOthersRun() { WaitFor(SimulatedThread::YIELDING, nullptr); }

void Simulation::MoveWallClock(int64_t byNs) { wallOffsetNs += byNs; }

int Simulation::Waits() { return waits; }

Simulation::Scheduling Simulation::LastScheduling() { return lastScheduling; }

// What the simulation does in the place of a call of one of its threads.
#define SIMULATE(function, parameters, arguments, simulated) \
    int function parameters { return self == -1 ? REAL(function) arguments : (simulated); }

// What a failing call answers.
#define MAY_FAIL(function, parameters, arguments, failed)        \
    int function parameters noexcept                             \
    {                                                            \
        const int error = FailureOf(#function);                  \
        return error != 0 ? (failed) : REAL(function) arguments; \
    }

extern "C" {

// clang-format off
SIMULATE(pthread_mutex_lock, (pthread_mutex_t* mutex) noexcept, (mutex), (Switch(), Lock(mutex)))
SIMULATE(pthread_mutex_unlock, (pthread_mutex_t* mutex) noexcept, (mutex), Unlock(mutex))
SIMULATE(pthread_cond_wait, (pthread_cond_t* cond, pthread_mutex_t* mutex), (cond, mutex), WaitForCondition(cond, mutex, NEVER))
SIMULATE(pthread_cond_timedwait, (pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* deadline),
         (cond, mutex, deadline), WaitForCondition(cond, mutex, DeadlineNs(deadline, CLOCK_REALTIME)))
SIMULATE(pthread_cond_clockwait, (pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock, const timespec* deadline),
         (cond, mutex, clock, deadline), WaitForCondition(cond, mutex, DeadlineNs(deadline, clock)))
SIMULATE(nanosleep, (const timespec* duration, timespec* rest), (duration, rest), Sleep(duration))
SIMULATE(pthread_cond_signal, (pthread_cond_t* cond) noexcept, (cond), Notify(cond, false))
SIMULATE(pthread_cond_broadcast, (pthread_cond_t* cond) noexcept, (cond), Notify(cond, true))

MAY_FAIL(ftruncate, (int fd, off_t size), (fd, size), Failed(error))
MAY_FAIL(fstat, (int fd, struct stat* status), (fd, status), Failed(error))
MAY_FAIL(pthread_getschedparam, (pthread_t thread, int* policy, sched_param* param), (thread, policy, param), error)
// clang-format on

int pthread_setschedparam(pthread_t thread, int policy, const sched_param* param) noexcept
{
    if (const int error = FailureOf("pthread_setschedparam"); error != 0) {
        return error;
    }
    lastScheduling = {thread, policy, param->sched_priority};
    return self != -1 ? 0 : REAL(pthread_setschedparam)(thread, policy, param);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* arg) noexcept
{
    if (const int error = FailureOf("pthread_create"); error != 0) {
        return error;
    }
    if (self == -1) {
        return REAL(pthread_create)(thread, attributes, body, arg);
    }
    SimulatedThread* created = threads;
    while (created->state != SimulatedThread::FREE) {
        ++created;
    }
    created->body = body;
    created->arg = arg;
    created->hasTurn = 0;
    created->isDetached = false;
    const int result = REAL(pthread_create)(thread, attributes, RunThread, created);
    if (result == 0) {
        created->handle = *thread;
        created->state = SimulatedThread::RUNNABLE;
        Switch();
    }
    return result;
}

int pthread_join(pthread_t handle, void** result)
{
    if (SimulatedThread* thread = FindThread(handle)) {
        if (thread->state != SimulatedThread::ENDED) {
            WaitFor(SimulatedThread::AT_JOIN, thread);
        }
        thread->state = SimulatedThread::FREE;
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

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (const int error = FailureOf("clock_gettime"); error != 0) {
        return Failed(error);
    }
    if (self == -1 || (clock != CLOCK_MONOTONIC && clock != CLOCK_REALTIME)) {
        return REAL(clock_gettime)(clock, time);
    }
    const uint64_t ns = nowNs + static_cast<uint64_t>(clock == CLOCK_REALTIME ? wallOffsetNs : 0);
    time->tv_sec = static_cast<time_t>(ns / 1'000'000'000);
    time->tv_nsec = static_cast<long>(ns % 1'000'000'000);
    return 0;
}

// Six arguments are read, however few there are; whatever the others hold, the system does not look at it.
__attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept
{
    va_list args;
    va_start(args, number);
    const long a = va_arg(args, long), b = va_arg(args, long), c = va_arg(args, long), d = va_arg(args, long),
               e = va_arg(args, long), f = va_arg(args, long);
    va_end(args);
    const int error = number == SYS_memfd_create ? FailureOf("memfd_create") : 0;
    return error != 0 ? Failed(error) : REAL(syscall)(number, a, b, c, d, e, f);
}

int fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    const long arg = va_arg(args, long);
    va_end(args);
    const int error = FailureOf(command == F_ADD_SEALS   ? "fcntl add"
                                : command == F_GET_SEALS ? "fcntl get"
                                : command == F_DUPFD     ? "fcntl dup"
                                                         : "");
    return error != 0 ? Failed(error) : REAL(fcntl)(fd, command, arg);
}

}  // extern "C"
