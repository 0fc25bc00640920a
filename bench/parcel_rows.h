#pragma once

// The rows of parcels. A parcel is a copyable class with
//
//     void Write(int64_t value);
//     int64_t Read();  // in the order of writing
//     Parcel Copy();   // reads from the start

#include "bench.h"

#include <vector>

namespace bench {

constexpr uint64_t VALUES = 2'000;

template <typename Parcel>
uint64_t ReadAll(Parcel& parcel)
{
    uint64_t sum = 0;
    for (uint64_t i = 0; i < VALUES; ++i) {
        sum += static_cast<uint64_t>(parcel.Read());
    }
    return sum;
}

// Times the writing of all values, the copying of the parcel and the reading, of which `row` is one.
template <typename Parcel>
void ParcelRow(benchmark::State& state, char row)
{
    ItemTimer timer(state);
    for (auto _ : state) {
        Parcel parcel;
        // The compiler must assume that others know it: it can neither foresee nor omit what is in it.
        Parcel* const known = &parcel;
        benchmark::DoNotOptimize(known);
        const uint64_t beginNs = NowNs();
        for (uint64_t i = 0; i < VALUES; ++i) {
            parcel.Write(static_cast<int64_t>(i));
        }
        benchmark::ClobberMemory();
        const uint64_t writtenNs = NowNs();
        Parcel copy = parcel.Copy();
        benchmark::ClobberMemory();
        const uint64_t copiedNs = NowNs();
        const uint64_t sum = ReadAll(parcel);
        const uint64_t readNs = NowNs();
        if (sum != VALUES * (VALUES - 1) / 2 || ReadAll(copy) != sum) {
            state.SkipWithError("wrong values");
            break;
        }
        const uint64_t tookNs = row == 'w'   ? writtenNs - beginNs
                                : row == 'c' ? copiedNs - writtenNs
                                             : readNs - copiedNs;
        timer.Add(tookNs, row == 'c' ? 1 : VALUES);
    }
}

template <typename Parcel>
void AddParcelRows(const char* subject)
{
    Register("parcel/write", subject, "a value", [](auto& state) { ParcelRow<Parcel>(state, 'w'); });
    Register("parcel/read", subject, "a value", [](auto& state) { ParcelRow<Parcel>(state, 'r'); });
    Register("parcel/copy", subject, "2,000 values", [](auto& state) { ParcelRow<Parcel>(state, 'c'); });
}

}  // namespace bench
