#pragma once

// Calls of the system whose place the test programs take, for the library too: each can be made to fail, and a
// simulation decides which thread runs and what time it is.

#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>

// Makes `call` fail with `error` until the next FailCall(); null ends it. Calls with several commands are named
// "fcntl add", "fcntl get" and "fcntl dup".
void FailCall(const char* call, int error = 0);

// While an object of it lives, one thread runs at a time, and the clocks stand still while any can: time jumps to
// the next deadline when all threads wait. So what is due in an hour runs at once, and at exactly its due time.
// A wait that nothing is left to end fails at once: the program ends and says what each thread waits for.
//
// Made and destroyed on the test's thread, when no other thread of the test exists. No priority is really set.
class Simulation {
public:
    // A thread runs until it waits, or, with a seed, any that can run goes on at each lock, wait, notification,
    // creation and end of a thread; even seeds bring wake-ups for no reason, too. The same seed gives the same
    // order.
    explicit Simulation(unsigned int seed = 0);
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    static uint64_t NowNs();
    // Returns when each of the other threads waits for something, before time moves.
    static void LetOthersRun();
    // Moves the wall clock, which otherwise runs with the monotonic one.
    static void MoveWallClock(int64_t byNs);
    // How many waits for a condition have begun so far.
    static int Waits();

    struct Scheduling {
        pthread_t thread;
        int policy;
        int priority;
    };
    // What pthread_setschedparam() was asked for last.
    static Scheduling LastScheduling();
};

// Runs `body` in `count` simulations of different order, until one fails. OSAL_TEST_SEED=n repeats the one of seed
// n.
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
