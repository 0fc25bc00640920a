#pragma once

// The rows of the parcel benchmarks, once for all parcels. A parcel is adapted by a copyable class with
//
//     static constexpr const char* NAME;
//     void Write(int32_t value);                            // and of int64_t and const char*
//     int32_t ReadInt32();                                  // and ReadInt64(); in the order of writing
//     uint64_t ReadTextSize();
//     Parcel Copy();                                        // reads from the start

#include "bench_util.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace bench {

constexpr uint64_t VALUES = 1'000;  // pairs of an int32 and an int64
constexpr uint64_t TEXTS = 200;

template <typename Parcel>
void WriteValues(Parcel& parcel)
{
    for (uint64_t i = 0; i < VALUES; ++i) {
        parcel.Write(static_cast<int32_t>(i));
        parcel.Write(static_cast<int64_t>(i));
    }
}

template <typename Parcel>
uint64_t ReadValues(Parcel& parcel)
{
    uint64_t sum = 0;
    for (uint64_t i = 0; i < VALUES; ++i) {
        sum += static_cast<uint64_t>(parcel.ReadInt32());
        sum += static_cast<uint64_t>(parcel.ReadInt64());
    }
    return sum;
}

constexpr uint64_t VALUES_SUM = VALUES * (VALUES - 1);

// Half of them too long for the short form of a std::string.
inline const std::vector<std::string>& Texts()
{
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> result;
        for (uint64_t i = 0; i < TEXTS; ++i) {
            result.push_back((i % 2 == 0 ? "text " : "one of the longer texts ") + std::to_string(i));
        }
        return result;
    }();
    return texts;
}

template <typename Parcel>
void WriteTexts(Parcel& parcel)
{
    for (const std::string& text : Texts()) {
        parcel.Write(text.c_str());
    }
}

// Times `work` on a parcel of its own in each iteration, which `prepare` fills first; false from `work` is a
// wrong result.
template <typename Parcel, typename Prepare, typename Work>
void TimeParcel(benchmark::State& state, uint64_t items, Prepare prepare, Work work)
{
    ItemTimer timer(state);
    for (auto _ : state) {
        Parcel parcel;
        prepare(parcel);
        // Known to others, as far as the compiler can tell: it can neither foresee nor leave out what is in it.
        Parcel* const known = &parcel;
        benchmark::DoNotOptimize(known);
        benchmark::ClobberMemory();
        const uint64_t beginNs = NowNs();
        const bool isRight = work(parcel);
        timer.Add(NowNs() - beginNs, items);
        if (!isRight) {
            state.SkipWithError("wrong values");
            break;
        }
    }
    timer.Report();
}

template <typename Parcel>
void ParcelWrite(benchmark::State& state)
{
    TimeParcel<Parcel>(
        state, 2 * VALUES, [](Parcel&) {},
        [](Parcel& parcel) {
            WriteValues(parcel);
            benchmark::ClobberMemory();
            return true;
        });
}

template <typename Parcel>
void ParcelRead(benchmark::State& state)
{
    TimeParcel<Parcel>(state, 2 * VALUES, WriteValues<Parcel>,
                       [](Parcel& parcel) { return ReadValues(parcel) == VALUES_SUM; });
}

template <typename Parcel>
void ParcelTexts(benchmark::State& state)
{
    uint64_t expected = 0;
    for (const std::string& text : Texts()) {
        expected += text.size();
    }
    TimeParcel<Parcel>(
        state, TEXTS, [](Parcel&) {},
        [expected](Parcel& parcel) {
            WriteTexts(parcel);
            uint64_t sum = 0;
            for (uint64_t i = 0; i < TEXTS; ++i) {
                sum += parcel.ReadTextSize();
            }
            return sum == expected;
        });
}

// Of a parcel with all the values; "ns" is per parcel.
template <typename Parcel>
void ParcelCopy(benchmark::State& state)
{
    ItemTimer timer(state);
    Parcel parcel;
    WriteValues(parcel);
    for (auto _ : state) {
        const uint64_t beginNs = NowNs();
        Parcel copy = parcel.Copy();
        timer.Add(NowNs() - beginNs, 1);
        if (ReadValues(copy) != VALUES_SUM) {
            state.SkipWithError("wrong values");
            break;
        }
    }
    timer.Report();
}

// The result is there to initialise a constant with.
template <typename Parcel>
bool RegisterParcel()
{
    Register("parcel/write", Parcel::NAME, ParcelWrite<Parcel>);
    Register("parcel/read", Parcel::NAME, ParcelRead<Parcel>);
    Register("parcel/texts", Parcel::NAME, ParcelTexts<Parcel>);
    Register("parcel/copy", Parcel::NAME, ParcelCopy<Parcel>);
    return true;
}

}  // namespace bench
