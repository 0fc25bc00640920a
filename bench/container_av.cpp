#include "container_shapes.h"

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/dict.h>
}

namespace bench {

namespace {

// It holds texts only: numbers are written and read as such.
class Dictionary {
public:
    static constexpr const char* NAME = "av_dictionary";

    void Set(const Entry& entry, int64_t value) { av_dict_set_int(&mDict.mPtr, entry.mKey, value, 0); }
    void Set(const Entry& entry, int32_t value) { Set(entry, int64_t{value}); }
    void Set(const Entry& entry, const char* value) { av_dict_set(&mDict.mPtr, entry.mKey, value, 0); }
    void Set(const Entry& entry, double value)
    {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%.17g", value);
        Set(entry, text.data());
    }
    void Set(const Entry& entry, Fraction value)
    {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%d/%d", value.num, value.den);
        Set(entry, text.data());
    }

    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const AVDictionaryEntry* const found = av_dict_get(mDict.mPtr, entry.mKey, nullptr, AV_DICT_MATCH_CASE);
        if (found == nullptr) {
            return 0;
        }
        if constexpr (std::is_same_v<T, const char*>) {
            return Digest(static_cast<const char*>(found->value));
        } else if constexpr (std::is_same_v<T, double>) {
            return Digest(std::strtod(found->value, nullptr));
        } else if constexpr (std::is_same_v<T, Fraction>) {
            char* slash = nullptr;
            const long num = std::strtol(found->value, &slash, 10);
            return Digest(
                Fraction{static_cast<int32_t>(num), static_cast<int32_t>(std::strtol(slash + 1, nullptr, 10))});
        } else {
            return Digest(static_cast<T>(std::strtoll(found->value, nullptr, 10)));
        }
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        const AVDictionaryEntry* entry = nullptr;
        while ((entry = av_dict_get(mDict.mPtr, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
            benchmark::DoNotOptimize(entry->value);
            sum += Digest(static_cast<const char*>(entry->key));
        }
        return sum;
    }
    Dictionary Copy() const
    {
        Dictionary copy;
        av_dict_copy(&copy.mDict.mPtr, mDict.mPtr, 0);
        return copy;
    }

private:
    struct Owner {
        Owner() = default;
        Owner(Owner&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)) {}
        ~Owner() { av_dict_free(&mPtr); }

        AVDictionary* mPtr = nullptr;
    };

    Owner mDict;
};

const bool REGISTERED = Version("FFmpeg", av_version_info()) && RegisterContainer<Dictionary>();

}  // namespace

}  // namespace bench
