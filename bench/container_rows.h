#pragma once

// The rows of typed containers. A container is a movable class with
//
//     void Set(const Entry& entry, T value);         // adds the entry or changes its value
//     void Get(const Entry& entry, T& value) const;  // of a text, the first character is read
//     void Walk(Visit visit) const;                  // visit(type of the value, first character of the key)
//     Container Copy() const;
//
// for T int32_t, double and const char*. Without Walk() only its copying is compared.

#include "bench.h"

#include <array>
#include <memory>
#include <variant>

namespace bench {

struct Entry {
    std::string mKey;
    size_t mIndex;  // in AllEntries(), for keys that a container wants in a form of its own
};

// Keys of the kind that media programs use, shuffled; about a third of them too long for the short form of a
// std::string, which ends at 15 characters.
inline const std::vector<Entry>& AllEntries()
{
    constexpr uint64_t COUNT = 10'000;
    static const std::vector<Entry> entries = [&] {
        const std::array subjects{"audio", "video", "subtitle",         "track", "decoder-output", "cover",
                                  "disc",  "frame", "container-format", "stream"};
        const std::array values{"rate", "width", "height", "title",     "mime",
                                "time", "delay", "level",  "peak-gain", "profile"};
        std::vector<Entry> result;
        for (uint64_t i = 0; i < COUNT; ++i) {
            const uint64_t number = (i * 3'719 + 5'077) % COUNT;
            const std::string key = std::string(subjects[number / 10 % 10]) + '-' + values[number % 10];
            result.push_back({number < 100 ? key : key + '-' + std::to_string(number / 100), i});
        }
        return result;
    }();
    return entries;
}

// What an alternative to a typed container holds; texts are copies.
using Value = std::variant<int32_t, double, std::string>;

// A number that depends on the value: it proves that the right value was read.
inline uint64_t Digest(int32_t value) { return static_cast<uint64_t>(value); }
inline uint64_t Digest(double value) { return static_cast<uint64_t>(value); }
inline uint64_t Digest(const char* value) { return static_cast<uint64_t>(value[0]); }

// Values differ from round to round, and are the first again after two.
template <typename Visitor>
void VisitValue(const Entry& entry, uint64_t round, Visitor visit)
{
    const auto number = static_cast<int32_t>(entry.mIndex * 16 + round % 2);
    switch (entry.mIndex % 3) {
        case 0: visit(number); break;
        case 1: visit(round % 2 == 0 ? "audio/mpeg; version=4" : "video/raw"); break;
        default: visit(number + 0.5); break;
    }
}

template <typename Container>
void SetAll(Container& container, const std::vector<Entry>& entries, uint64_t round)
{
    for (const Entry& entry : entries) {
        VisitValue(entry, round, [&](auto value) { container.Set(entry, value); });
    }
}

template <typename Container>
uint64_t ReadAll(const Container& container, const std::vector<Entry>& entries)
{
    uint64_t sum = 0;
    for (const Entry& entry : entries) {
        VisitValue(entry, 0, [&](auto value) {
            value = {};
            container.Get(entry, value);
            sum += Digest(value);
        });
    }
    return sum;
}

inline const Value& ValueOf(const Value& stored) { return stored; }
inline const Value& ValueOf(const std::shared_ptr<Value>& stored) { return *stored; }
inline Value& ValueOf(Value& stored) { return stored; }
inline Value& ValueOf(std::shared_ptr<Value>& stored)
{
    return *(stored ? stored : stored = std::make_shared<Value>());
}

// A container that is a map from text to Value, or to a shared one.
template <typename Map>
struct BareMap {
    template <typename T>
    void Set(const Entry& entry, T value)
    {
        ValueOf(mMap[entry.mKey.c_str()]) = value;
    }
    void Get(const Entry& entry, int32_t& value) const { value = std::get<int32_t>(Find(entry)); }
    void Get(const Entry& entry, double& value) const { value = std::get<double>(Find(entry)); }
    void Get(const Entry& entry, const char*& value) const { value = std::get<std::string>(Find(entry)).c_str(); }
    template <typename Visit>
    void Walk(Visit visit) const
    {
        for (const auto& [key, value] : mMap) {
            visit(ValueOf(value).index(), key[0]);
        }
    }
    BareMap Copy() const { return *this; }

    const Value& Find(const Entry& entry) const { return ValueOf(mMap.find(entry.mKey.c_str())->second); }

    Map mMap;
};

// What the steps of a row work on.
template <typename Container>
struct Work {
    std::vector<Entry> mEntries;
    std::vector<Container> mFilled;

    void AddFilled()
    {
        mFilled.emplace_back();
        SetAll(mFilled.back(), mEntries, 0);
    }
};

// Times rounds of `step`, each of which goes through all entries of one container: a single round with 16 entries
// would be too short for the clock. `filled` is the number of containers that are filled before; ALL is one for
// each round.
constexpr uint64_t ALL = UINT64_MAX;

template <typename Container, typename Step>
void TimeRounds(benchmark::State& state, uint64_t filled, Step step)
{
    Work<Container> work{{AllEntries().begin(), AllEntries().begin() + state.range(0)}, {}};
    const uint64_t rounds = std::max<uint64_t>(512 / work.mEntries.size(), 1) * 2;
    const uint64_t items = rounds * work.mEntries.size();
    work.mFilled.reserve(rounds + 1);
    uint64_t expected = 0;
    for (const Entry& entry : work.mEntries) {
        VisitValue(entry, 0, [&](auto value) { expected += Digest(value); });
    }
    ItemTimer timer(state);
    for (auto _ : state) {
        const uint64_t fillNs = NowNs();
        work.mFilled.resize(std::min(work.mFilled.size(), filled));
        while (work.mFilled.size() < std::min(filled, rounds)) {
            work.AddFilled();
        }
        timer.Spend(NowNs() - fillNs);
        const double beginBytes = InUseBytes();
        const uint64_t beginNs = NowNs();
        for (uint64_t round = 1; round <= rounds; ++round) {
            step(work, round);
        }
        timer.Add(NowNs() - beginNs, items);
        if (filled == 0) {
            state.counters["bytes"] = (InUseBytes() - beginBytes) / static_cast<double>(items);
        }
        if (!work.mFilled.empty() && ReadAll(work.mFilled.back(), work.mEntries) != expected) {
            state.SkipWithError("wrong values");
            break;
        }
    }
}

BENCH_OPERATION(WalkOf, Walk(static_cast<void (*)(int, char)>(nullptr)));

// Registers the rows that a Container can do.
template <typename Container>
void AddContainerRows(const char* subject)
{
    const auto add = [subject](const char* row, uint64_t filled, auto step) {
        const auto time = [=](auto& state) { TimeRounds<Container>(state, filled, step); };
        Register(row, subject, "an entry", time)->ArgName("entries")->ArgsProduct({{4, 16, 128, 1'000, 10'000}});
    };
    add("container/copy", 1, [](auto& work, uint64_t) { work.mFilled.push_back(work.mFilled[0].Copy()); });
    if constexpr (CAN<WalkOf, Container>) {
        add("container/build", 0, [](auto& work, uint64_t) { work.AddFilled(); });
        add("container/read", 1,
            [](auto& work, uint64_t) { benchmark::DoNotOptimize(ReadAll(work.mFilled[0], work.mEntries)); });
        add("container/update", 1,
            [](auto& work, uint64_t round) { SetAll(work.mFilled[0], work.mEntries, round); });
        add("container/walk", 1, [](auto& work, uint64_t) {
            work.mFilled[0].Walk([](auto... read) { (benchmark::DoNotOptimize(read), ...); });
        });
        add("container/release", ALL, [](auto& work, uint64_t) { work.mFilled.pop_back(); });
    }
}

}  // namespace bench
