#pragma once

// What each file of peers/ registers its classes with.

#include "container_rows.h"
#include "parcel_rows.h"
#include "queue_rows.h"

namespace bench {

// A library that users could take instead, or the least that the same takes: plain code, a bare call.
enum class Kind { PEER, BOUND };

inline std::string Dotted(int major, int minor, int patch)
{
    return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch);
}

BENCH_OPERATION(SetOf, Set(Entry(), 0));
BENCH_OPERATION(WriteOf, Write(int64_t{0}));
BENCH_OPERATION(StartAndStopOf, StartAndStop());

// Registers the rows that a T can do, be it a queue, a container, a parcel or a thread.
template <typename T>
void AddRows(const char* name)
{
    AddQueueRows<T>(name);
    if constexpr (CAN<SetOf, T>) {
        AddContainerRows<T>(name);
    }
    if constexpr (CAN<WriteOf, T>) {
        AddParcelRows<T>(name);
    }
    if constexpr (CAN<StartAndStopOf, T>) {
        Register("thread/start_stop", name, "a thread", [](benchmark::State& state) {
            T thread;
            ItemTimer timer(state);
            for (auto _ : state) {
                const uint64_t beginNs = NowNs();
                thread.StartAndStop();
                timer.Add(NowNs() - beginNs, 1);
            }
        });
    }
}

// The classes of one subject, under the name that the report shows. The result initialises a constant.
template <typename... Classes>
bool Add(const char* name, Kind kind, const std::string& version = "")
{
    benchmark::AddCustomContext(std::string("subject ") + name,
                                (kind == Kind::PEER ? "peer " : "bound ") + version);
    (AddRows<Classes>(name), ...);
    return true;
}

}  // namespace bench
