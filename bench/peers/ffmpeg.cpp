#include "../peer.h"

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/dict.h>
}

namespace bench {

// It holds texts only: numbers are written and read as such.
class Dictionary {
public:
    Dictionary() = default;
    Dictionary(Dictionary&& other) noexcept : mDict(std::exchange(other.mDict, nullptr)) {}
    ~Dictionary() { av_dict_free(&mDict); }

    void Set(const Entry& entry, int32_t value) { av_dict_set_int(&mDict, entry.mKey.c_str(), value, 0); }
    void Set(const Entry& entry, const char* value) { av_dict_set(&mDict, entry.mKey.c_str(), value, 0); }
    void Set(const Entry& entry, double value)
    {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%.17g", value);
        Set(entry, text.data());
    }
    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto* const found = av_dict_get(mDict, entry.mKey.c_str(), nullptr, AV_DICT_MATCH_CASE);
        if (found == nullptr) {
            return 0;
        }
        if constexpr (std::is_same_v<T, const char*>) {
            return Digest(static_cast<const char*>(found->value));
        } else if constexpr (std::is_same_v<T, double>) {
            return Digest(std::strtod(found->value, nullptr));
        } else {
            return Digest(std::strtol(found->value, nullptr, 10));
        }
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        const AVDictionaryEntry* entry = nullptr;
        while ((entry = av_dict_get(mDict, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
            benchmark::DoNotOptimize(entry->value);
            sum += Digest(static_cast<const char*>(entry->key));
        }
        return sum;
    }
    Dictionary Copy() const
    {
        Dictionary copy;
        av_dict_copy(&copy.mDict, mDict, 0);
        return copy;
    }

private:
    AVDictionary* mDict = nullptr;
};

const bool REGISTERED = Add<Dictionary>("AVDictionary", Kind::PEER, std::string("FFmpeg ") + av_version_info());

}  // namespace bench
