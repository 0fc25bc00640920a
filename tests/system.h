#pragma once

// Replacements for calls of the system, which the test programs and the library use: calls can be made to fail,
// and a simulation decides which thread runs and what time it is.

#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>

// Makes `call` fail with `error` until the next FailCall(); null ends this. "fcntl" fails only when it adds a
// seal or duplicates a descriptor.
void FailCall(const char* call, int error = 0);

// While such an object exists, only one thread runs at a time. The clocks stand still while any thread can run;
// when all threads wait, time jumps to the next deadline. So a message that is due in an hour runs at once, and
// exactly at its due time. At a deadlock, the program ends at once and says what each thread waits for. It also
// ends at a wait on the wall clock, at the use of a condition that has been freed, and if a thread is left at the
// end.
//
// Created and destroyed on the thread of the test, when the test has no other thread. No priority is really set,
// and the scheduling that a thread seems to have is invented. CLOCK_BOOTTIME is 5 s ahead of the monotonic clock.
class Simulation {
public:
    // Without a seed, a thread runs until it waits. With a seed, any thread that can run continues at each lock,
    // wait, notification, creation and end of a thread, and even seeds also bring spurious wake-ups. The
    // same seed gives the same order.
    explicit Simulation(unsigned int seed = 0);
    ~Simulation();

    static uint64_t NowNs();
    // Returns when all other threads wait, before time moves.
    static void LetOthersRun();
    // Sets the wall clock forward or back. Otherwise it runs with the monotonic clock.
    static void MoveWallClock(int64_t byNs);
    // How many waits for a condition have begun so far.
    static int Waits();

    struct Scheduling {
        pthread_t thread;
        int policy;
        int priority;
    };
    // The arguments of the last pthread_setschedparam().
    static Scheduling LastScheduling();
};

// Runs `body` in `count` simulations of different order, until one fails. OSAL_TEST_SEED=n repeats the simulation
// with seed n.
template <typename Body>
void ForEachSeed(unsigned int count, Body body)
{
    const char* const one = getenv("OSAL_TEST_SEED");
    const auto first = one != nullptr ? static_cast<unsigned int>(strtoul(one, nullptr, 10)) : 1U;
    for (unsigned int seed = first; seed < first + (one != nullptr ? 1 : count); ++seed) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, "OSAL_TEST_SEED=" + std::to_string(seed));
        const Simulation simulation(seed);
        body(seed);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}
