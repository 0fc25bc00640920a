#pragma once

// The rows of typed containers. A container is a movable class with
//
//     template <typename T> void Set(const Entry& entry, T value);    // adds the entry or changes its value
//     template <typename T> uint64_t Read(const Entry& entry) const;  // Digest() of the value
//     uint64_t Walk() const;                                          // sum of the Digest() of all keys
//     Container Copy() const;
//
// where T is int32_t, double or const char*. Without Walk() it is compared in copying alone.

#include "bench.h"

#include <array>
#include <memory>
#include <utility>
#include <variant>

namespace bench {

enum class EntryType { INT32, DOUBLE, TEXT };

struct Entry {
    std::string mKey;
    EntryType mType;
    size_t mIndex;  // in AllEntries(), for keys that a container wants in a form of its own
};

// Keys of the kind that media programs use, in no order; about a third of them too long for the short form of a
// std::string, which ends at 15.
inline const std::vector<Entry>& AllEntries()
{
    constexpr uint64_t COUNT = 10'000;
    constexpr std::array<const char*, 10> SUBJECTS{
        "audio", "video", "subtitle",         "track", "decoder-output", "cover",
        "disc",  "frame", "container-format", "stream"};
    constexpr std::array<const char*, 10> VALUES{"rate", "width", "height", "title",     "mime",
                                                 "time", "delay", "level",  "peak-gain", "profile"};
    static const std::vector<Entry> entries = [&] {
        std::vector<Entry> result;
        for (uint64_t i = 0; i < COUNT; ++i) {
            const uint64_t number = (i * 3'719 + 5'077) % COUNT;
            const std::string key = std::string(SUBJECTS[number / 10 % 10]) + '-' + VALUES[number % 10];
            result.push_back({number < 100 ? key : key + '-' + std::to_string(number / 100),
                              std::array{EntryType::INT32, EntryType::TEXT, EntryType::DOUBLE}[i % 3], i});
        }
        return result;
    }();
    return entries;
}

// What an alternative to a typed container holds; texts are copies.
using Value = std::variant<int32_t, double, std::string>;

// A number that depends on the value: it proves that the right one was read.
template <typename T>
uint64_t Digest(T value)
{
    return static_cast<uint64_t>(value);
}
inline uint64_t Digest(const char* value) { return static_cast<uint64_t>(value[0]); }
inline uint64_t Digest(const std::string& value) { return Digest(value.c_str()); }

// Type under which a Value holds a T.
template <typename T>
using Stored = std::conditional_t<std::is_same_v<T, const char*>, std::string, T>;

// Values differ from round to round, and are the first again after two.
template <typename Visitor>
void VisitValue(const Entry& entry, uint64_t round, Visitor visit)
{
    constexpr std::array<const char*, 2> TEXTS{"audio/mpeg; version=4", "video/raw"};
    const auto number = static_cast<int32_t>(entry.mIndex * 16 + round % 2);
    switch (entry.mType) {
        case EntryType::INT32: visit(number); break;
        case EntryType::DOUBLE: visit(number + 0.5); break;
        case EntryType::TEXT: visit(TEXTS[round % TEXTS.size()]); break;
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
        VisitValue(entry, 0, [&](auto value) { sum += container.template Read<decltype(value)>(entry); });
    }
    return sum;
}

// A Value in a map, or shared by it.
template <typename T>
void Put(Value& stored, T value)
{
    stored = value;
}
template <typename T>
void Put(std::shared_ptr<Value>& stored, T value)
{
    stored ? void(*stored = value) : void(stored = std::make_shared<Value>(value));
}
inline const Value& Get(const Value& stored) { return stored; }
inline const Value& Get(const std::shared_ptr<Value>& stored) { return *stored; }

// A container that is a map from text to Value, or to a shared one.
template <typename Map>
class BareMap {
public:
    template <typename T>
    void Set(const Entry& entry, T value)
    {
        Put(mMap[entry.mKey.c_str()], value);
    }
    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto position = mMap.find(entry.mKey.c_str());
        return position != mMap.end() ? Digest(std::get<Stored<T>>(Get(position->second))) : 0;
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        for (const auto& [key, value] : mMap) {
            benchmark::DoNotOptimize(Get(value).index());
            sum += Digest(key);
        }
        return sum;
    }
    BareMap Copy() const { return *this; }

protected:
    Map mMap;
};

// What a row works on.
template <typename Container>
struct Work {
    std::vector<Entry> mEntries;
    std::vector<Container> mContainers;
    std::vector<Container> mCopies;

    void Fill(uint64_t containers)
    {
        mCopies.clear();
        if (containers == 1 && !mContainers.empty()) {
            return;  // the steps leave it as it was
        }
        mContainers.clear();
        for (uint64_t i = 0; i < containers; ++i) {
            mContainers.emplace_back();
            SetAll(mContainers.back(), mEntries, 0);
        }
    }
    bool IsRight() const
    {
        uint64_t expected = 0;
        for (const Entry& entry : mEntries) {
            VisitValue(entry, 0, [&](auto value) { expected += Digest(value); });
        }
        const auto& containers = mCopies.empty() ? mContainers : mCopies;
        return containers.empty() || ReadAll(containers.back(), mEntries) == expected;
    }
};

// Times rounds of `step`, each of which goes through all entries of one container: a clock reading would count for
// something beside 16 entries. `filled` says how many containers are filled before; ALL is one for each round.
constexpr uint64_t ALL = UINT64_MAX;

template <typename Container, typename Step>
void TimeRounds(benchmark::State& state, uint64_t filled, Step step)
{
    Work<Container> work{{AllEntries().begin(), AllEntries().begin() + state.range(0)}, {}, {}};
    const uint64_t rounds = std::max<uint64_t>(512 / work.mEntries.size(), 1) * 2;
    work.mContainers.reserve(rounds);
    work.mCopies.reserve(rounds);
    ItemTimer timer(state);
    for (auto _ : state) {
        const uint64_t fillNs = NowNs();
        work.Fill(std::min(filled, rounds));
        state.SetIterationTime(1e-9 * static_cast<double>(NowNs() - fillNs));  // of the iteration, not of "ns"
        const double beginBytes = InUseBytes();
        const uint64_t beginNs = NowNs();
        for (uint64_t round = 1; round <= rounds; ++round) {
            step(work, round);
        }
        timer.Add(NowNs() - beginNs, rounds * work.mEntries.size());
        if (filled == 0) {
            state.counters["bytes"] =
                (InUseBytes() - beginBytes) / static_cast<double>(rounds * work.mEntries.size());
        }
        if (!work.IsRight()) {
            state.SkipWithError("wrong values");
            break;
        }
    }
}

template <typename T>
using WalkOf = decltype(std::declval<T&>().Walk());

// Registers the rows that a Container can do.
template <typename Container>
void AddContainerRows(const char* subject)
{
    const auto add = [subject](const char* row, uint64_t filled, auto step) {
        auto* const added = Register(row, subject, "an entry", [filled, step](benchmark::State& state) {
            TimeRounds<Container>(state, filled, step);
        });
        added->ArgName("entries")->ArgsProduct({{4, 16, 128, 1'000, 10'000}});
    };
    add("container/copy", 1, [](auto& work, uint64_t) { work.mCopies.push_back(work.mContainers[0].Copy()); });
    if constexpr (CAN<WalkOf, Container>) {
        add("container/build", 0, [](auto& work, uint64_t) {
            work.mContainers.emplace_back();
            SetAll(work.mContainers.back(), work.mEntries, 0);
        });
        add("container/read", 1,
            [](auto& work, uint64_t) { benchmark::DoNotOptimize(ReadAll(work.mContainers[0], work.mEntries)); });
        add("container/update", 1,
            [](auto& work, uint64_t round) { SetAll(work.mContainers[0], work.mEntries, round); });
        add("container/walk", 1, [](auto& work, uint64_t) {
            benchmark::DoNotOptimize(work.mContainers[0].Walk());
            benchmark::ClobberMemory();
        });
        add("container/release", ALL, [](auto& work, uint64_t) { work.mContainers.pop_back(); });
    }
}

}  // namespace bench
