#pragma once

// The rows of the container benchmarks, once for all containers. A container is adapted by a movable class with
//
//     static constexpr const char* NAME;
//     template <typename T> void Set(const Entry& entry, T value);    // adds the entry or changes its value
//     template <typename T> uint64_t Read(const Entry& entry) const;  // Digest() of the value
//     uint64_t Walk() const;                                          // sum of the Digest() of all keys
//     Container Copy() const;
//
// where T is int32_t, int64_t, double, const char* or Fraction.

#include "bench_util.h"
#include "osal/media_meta.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace bench {

using Fraction = osal::MediaMeta::Fraction;

// What an alternative to a typed container holds; texts are copies.
using Value = std::variant<int32_t, int64_t, double, std::string, Fraction>;

enum class EntryType { INT32, INT64, DOUBLE, TEXT, FRACTION };

struct Entry {
    const char* mKey;
    EntryType mType;
    size_t mIndex;  // in AllEntries(), for keys that a container wants in a form of its own
};

// Keys as media programs use them, in no order; a third of them, and of the first 16, too long for the short
// form of a std::string, which ends at 15.
inline const std::vector<Entry>& AllEntries()
{
    struct Key {
        const char* mKey;
        EntryType mType;
    };
    constexpr std::array<Key, 128> KEYS{{
        {"mime", EntryType::TEXT},
        {"width", EntryType::INT32},
        {"frame-rate", EntryType::DOUBLE},
        {"duration-us", EntryType::INT64},
        {"i-frame-interval", EntryType::INT32},
        {"title", EntryType::TEXT},
        {"sample-rate", EntryType::INT32},
        {"pixel-aspect-ratio", EntryType::FRACTION},
        {"height", EntryType::INT32},
        {"language", EntryType::TEXT},
        {"presentation-time-us", EntryType::INT64},
        {"channel-count", EntryType::INT32},
        {"container-format", EntryType::TEXT},
        {"playback-speed", EntryType::DOUBLE},
        {"rotation-degrees", EntryType::INT32},
        {"artist", EntryType::TEXT},
        {"gapless", EntryType::INT32},
        {"mood", EntryType::TEXT},
        {"decode-time-us", EntryType::INT64},
        {"playback-volume-db", EntryType::DOUBLE},
        {"loudness-range", EntryType::DOUBLE},
        {"genre", EntryType::TEXT},
        {"encoder-delay", EntryType::INT32},
        {"stream-station", EntryType::TEXT},
        {"preroll-us", EntryType::INT64},
        {"color-range", EntryType::INT32},
        {"stride", EntryType::INT32},
        {"cover-art-mime", EntryType::TEXT},
        {"luminance-min", EntryType::DOUBLE},
        {"first-timestamp-us", EntryType::INT64},
        {"gop-size", EntryType::INT32},
        {"recording-location", EntryType::TEXT},
        {"original-file-name", EntryType::TEXT},
        {"disc-number", EntryType::TEXT},
        {"priority", EntryType::INT32},
        {"thumbnail-width", EntryType::INT32},
        {"subtitle-language", EntryType::TEXT},
        {"album-artist", EntryType::TEXT},
        {"slice-height", EntryType::INT32},
        {"integrated-loudness", EntryType::DOUBLE},
        {"average-bitrate", EntryType::INT32},
        {"encoder-padding", EntryType::INT32},
        {"compilation", EntryType::TEXT},
        {"grade", EntryType::TEXT},
        {"intra-refresh-period", EntryType::INT32},
        {"content-identifier", EntryType::TEXT},
        {"spatial-layer-count", EntryType::INT32},
        {"pcm-encoding", EntryType::INT32},
        {"stream-title", EntryType::TEXT},
        {"encoding-quality", EntryType::INT32},
        {"handler-name", EntryType::TEXT},
        {"temporal-layers", EntryType::INT32},
        {"location", EntryType::TEXT},
        {"audio-session-id", EntryType::INT32},
        {"channel-mask", EntryType::INT32},
        {"buffer-size-bytes", EntryType::INT32},
        {"seek-position-us", EntryType::INT64},
        {"year", EntryType::TEXT},
        {"edit-rate", EntryType::FRACTION},
        {"sample-aspect-ratio", EntryType::FRACTION},
        {"screenplay-writer", EntryType::TEXT},
        {"color-standard", EntryType::INT32},
        {"edit-list-offset-us", EntryType::INT64},
        {"crop-right", EntryType::INT32},
        {"timecode-rate", EntryType::FRACTION},
        {"author", EntryType::TEXT},
        {"thumbnail-time-us", EntryType::INT64},
        {"thumbnail-height", EntryType::INT32},
        {"frames-rendered", EntryType::INT64},
        {"color-sample-format", EntryType::INT32},
        {"tile-rows", EntryType::INT32},
        {"codec-tag", EntryType::TEXT},
        {"bytes-written", EntryType::INT64},
        {"sub-sample-position", EntryType::INT32},
        {"time-base", EntryType::FRACTION},
        {"color-transfer-function", EntryType::INT32},
        {"max-bitrate", EntryType::INT32},
        {"software-version", EntryType::TEXT},
        {"creation-time-us", EntryType::INT64},
        {"replay-gain-track", EntryType::DOUBLE},
        {"repeat-frame-after-us", EntryType::INT64},
        {"reference-frames", EntryType::INT32},
        {"album", EntryType::TEXT},
        {"track-number", EntryType::TEXT},
        {"publisher", EntryType::TEXT},
        {"track-count", EntryType::INT32},
        {"last-timestamp-us", EntryType::INT64},
        {"peak-amplitude", EntryType::DOUBLE},
        {"start-time-us", EntryType::INT64},
        {"data-offset-bytes", EntryType::INT64},
        {"luminance-max", EntryType::DOUBLE},
        {"frame-rate-exact", EntryType::FRACTION},
        {"encoder-name", EntryType::TEXT},
        {"profile", EntryType::INT32},
        {"tile-columns", EntryType::INT32},
        {"file-size-bytes", EntryType::INT64},
        {"target-bitrate-bps", EntryType::INT32},
        {"display-width", EntryType::INT32},
        {"complexity", EntryType::INT32},
        {"copyright", EntryType::TEXT},
        {"device-manufacturer", EntryType::TEXT},
        {"source-url", EntryType::TEXT},
        {"replay-gain-album", EntryType::DOUBLE},
        {"audio-clock-ratio", EntryType::FRACTION},
        {"crop-bottom", EntryType::INT32},
        {"description", EntryType::TEXT},
        {"track-id", EntryType::INT32},
        {"composer", EntryType::TEXT},
        {"device-model", EntryType::TEXT},
        {"executive-producer", EntryType::TEXT},
        {"max-input-size", EntryType::INT32},
        {"lyricist", EntryType::TEXT},
        {"crop-left", EntryType::INT32},
        {"balance", EntryType::DOUBLE},
        {"subtitle-encoding", EntryType::TEXT},
        {"display-aspect-ratio", EntryType::FRACTION},
        {"operating-rate", EntryType::DOUBLE},
        {"frames-dropped", EntryType::INT64},
        {"audio-block-align", EntryType::INT32},
        {"buffer-count", EntryType::INT32},
        {"capture-rate", EntryType::INT32},
        {"comment", EntryType::TEXT},
        {"level", EntryType::INT32},
        {"frames-decoded", EntryType::INT64},
        {"stream-length-bytes", EntryType::INT64},
        {"codec-name", EntryType::TEXT},
        {"display-height", EntryType::INT32},
        {"crop-top", EntryType::INT32},
    }};
    static const std::vector<Entry> entries = [&] {
        std::vector<Entry> result;
        for (const Key& key : KEYS) {
            result.push_back({key.mKey, key.mType, result.size()});
        }
        return result;
    }();
    return entries;
}

// A number that depends on the value: it proves that the right one was read.
inline uint64_t Digest(int32_t value) { return static_cast<uint64_t>(value); }
inline uint64_t Digest(int64_t value) { return static_cast<uint64_t>(value); }
inline uint64_t Digest(double value) { return static_cast<uint64_t>(value); }
inline uint64_t Digest(const char* value) { return static_cast<uint64_t>(value[0]); }
inline uint64_t Digest(const std::string& value) { return Digest(value.c_str()); }
inline uint64_t Digest(Fraction value)
{
    return static_cast<uint64_t>(value.num) + static_cast<uint64_t>(value.den);
}

template <typename T>
T StoredAs(T value)
{
    return value;
}
inline std::string StoredAs(const char* value) { return value; }
// Type under which a Value holds a T.
template <typename T>
using Stored = decltype(StoredAs(std::declval<T>()));

// Values differ from round to round.
template <typename Visitor>
void VisitValue(const Entry& entry, uint64_t round, Visitor visit)
{
    constexpr std::array<const char*, 2> TEXTS{"audio/mpeg; version=4", "video/raw"};
    const auto number = static_cast<int32_t>(entry.mIndex * 16 + round % 16);
    switch (entry.mType) {
        case EntryType::INT32: visit(number); break;
        case EntryType::INT64: visit(int64_t{number} * 1'000'000); break;
        case EntryType::DOUBLE: visit(number + 0.5); break;
        case EntryType::TEXT: visit(TEXTS[round % TEXTS.size()]); break;
        case EntryType::FRACTION: visit(Fraction{number, 1}); break;
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

// All of a container over a map from text to Value, but its name and Copy().
template <typename Map>
class VariantMap {
public:
    template <typename T>
    void Set(const Entry& entry, T value)
    {
        mMap[entry.mKey] = value;
    }
    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto position = mMap.find(entry.mKey);
        const auto* const value = position != mMap.end() ? std::get_if<Stored<T>>(&position->second) : nullptr;
        return value != nullptr ? Digest(*value) : 0;
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        for (const auto& [key, value] : mMap) {
            benchmark::DoNotOptimize(value.index());
            sum += Digest(key);
        }
        return sum;
    }

private:
    Map mMap;
};

inline std::vector<Entry> Entries(const benchmark::State& state)
{
    const std::vector<Entry>& all = AllEntries();
    return {all.begin(), all.begin() + state.range(0)};
}

// An iteration does its work this often: a clock reading would count for something beside 16 entries.
constexpr uint64_t ROUNDS = 64;

template <typename Container>
std::vector<Container> BuildAll(const std::vector<Entry>& entries)
{
    std::vector<Container> containers(ROUNDS);
    for (Container& container : containers) {
        SetAll(container, entries, 0);
    }
    return containers;
}

// Times `work`, which goes through all entries ROUNDS times.
template <typename Work>
void TimeRounds(ItemTimer& timer, const std::vector<Entry>& entries, Work work)
{
    const uint64_t beginNs = NowNs();
    work();
    timer.Add(NowNs() - beginNs, ROUNDS * entries.size());
}

template <typename Container>
void Build(benchmark::State& state)
{
    const std::vector<Entry> entries = Entries(state);
    ItemTimer timer(state);
    for (auto _ : state) {
        std::vector<Container> containers;
        TimeRounds(timer, entries, [&] { containers = BuildAll<Container>(entries); });
    }
    timer.Report();
}

// Has `work` time itself on a container with all entries, once in each iteration; false from it is a wrong result.
template <typename Container, typename Work>
void TimeFilled(benchmark::State& state, Work work)
{
    const std::vector<Entry> entries = Entries(state);
    ItemTimer timer(state);
    Container container;
    SetAll(container, entries, 0);
    for (auto _ : state) {
        if (!work(container, entries, timer)) {
            state.SkipWithError("wrong values");
            break;
        }
    }
    timer.Report();
}

template <typename Container>
void Read(benchmark::State& state)
{
    TimeFilled<Container>(state, [](Container& container, const auto& entries, ItemTimer& timer) {
        uint64_t sum = 0;
        TimeRounds(timer, entries, [&] {
            for (uint64_t round = 0; round < ROUNDS; ++round) {
                sum += ReadAll(container, entries);
            }
        });
        uint64_t expected = 0;
        for (const Entry& entry : entries) {
            VisitValue(entry, 0, [&](auto value) { expected += Digest(value); });
        }
        return sum == ROUNDS * expected;
    });
}

template <typename Container>
void Update(benchmark::State& state)
{
    TimeFilled<Container>(state, [](Container& container, const auto& entries, ItemTimer& timer) {
        const uint64_t before = ReadAll(container, entries);
        TimeRounds(timer, entries, [&] {
            for (uint64_t round = 1; round <= ROUNDS; ++round) {
                SetAll(container, entries, round);
            }
        });
        return ReadAll(container, entries) == before;  // ROUNDS is a multiple of the period of the values
    });
}

template <typename Container>
void Copy(benchmark::State& state)
{
    TimeFilled<Container>(state, [](Container& container, const auto& entries, ItemTimer& timer) {
        std::vector<Container> copies;
        copies.reserve(ROUNDS);
        TimeRounds(timer, entries, [&] {
            for (uint64_t round = 0; round < ROUNDS; ++round) {
                copies.push_back(container.Copy());
            }
        });
        return ReadAll(copies.back(), entries) == ReadAll(container, entries);
    });
}

template <typename Container>
void Walk(benchmark::State& state)
{
    TimeFilled<Container>(state, [](Container& container, const auto& entries, ItemTimer& timer) {
        uint64_t sum = 0;
        TimeRounds(timer, entries, [&] {
            for (uint64_t round = 0; round < ROUNDS; ++round) {
                sum += container.Walk();
                benchmark::ClobberMemory();
            }
        });
        uint64_t expected = 0;
        for (const Entry& entry : entries) {
            expected += Digest(entry.mKey);
        }
        return sum == ROUNDS * expected;
    });
}

template <typename Container>
void Release(benchmark::State& state)
{
    const std::vector<Entry> entries = Entries(state);
    ItemTimer timer(state);
    for (auto _ : state) {
        std::vector<Container> containers = BuildAll<Container>(entries);
        TimeRounds(timer, entries, [&] { containers.clear(); });
    }
    timer.Report();
}

// "bytes" per entry, with its share of the container itself.
template <typename Container>
void EntryMemory(benchmark::State& state)
{
    const std::vector<Entry> entries = Entries(state);
    double bytes = 0;
    for (auto _ : state) {
        const uint64_t beginNs = NowNs();
        const uint64_t beginBytes = InUseBytes();
        const std::vector<Container> containers = BuildAll<Container>(entries);
        bytes = static_cast<double>(InUseBytes() - beginBytes);
        state.SetIterationTime(1e-9 * static_cast<double>(NowNs() - beginNs));
    }
    state.counters["bytes"] = bytes / static_cast<double>(ROUNDS * entries.size());
}

inline benchmark::internal::Benchmark* RegisterSizes(const char* row, const char* subject,
                                                     void (*function)(benchmark::State&))
{
    return Register(row, subject, function)->ArgName("entries")->Arg(16)->Arg(128);
}

// The result is there to initialise a constant with.
template <typename Container>
bool RegisterContainer()
{
    const auto add = [](const char* row, void (*function)(benchmark::State&)) {
        return RegisterSizes(row, Container::NAME, function);
    };
    add("container/build", Build<Container>);
    add("container/read", Read<Container>);
    add("container/update", Update<Container>);
    add("container/copy", Copy<Container>);
    add("container/walk", Walk<Container>);
    add("container/release", Release<Container>);
    add("container/memory", EntryMemory<Container>)->Iterations(1);
    return true;
}

}  // namespace bench
