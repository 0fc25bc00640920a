#include "container_shapes.h"

#include <nlohmann/json.hpp>

namespace bench {

namespace {

class JsonObject {
public:
    static constexpr const char* NAME = "nlohmann_json";

    template <typename T>
    void Set(const Entry& entry, T value)
    {
        if constexpr (std::is_same_v<T, Fraction>) {
            mJson[entry.mKey] = {value.num, value.den};
        } else {
            mJson[entry.mKey] = value;
        }
    }
    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto position = mJson.find(entry.mKey);
        if (position == mJson.end()) {
            return 0;
        }
        if constexpr (std::is_same_v<T, Fraction>) {
            return Digest(
                Fraction{position->at(0).template get<int32_t>(), position->at(1).template get<int32_t>()});
        } else if constexpr (std::is_same_v<T, const char*>) {
            return Digest(position->template get_ref<const std::string&>());
        } else {
            return Digest(position->template get<T>());
        }
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        for (auto it = mJson.begin(); it != mJson.end(); ++it) {
            benchmark::DoNotOptimize(it->type());
            sum += Digest(it.key());
        }
        return sum;
    }
    JsonObject Copy() const { return *this; }

private:
    nlohmann::json mJson = nlohmann::json::object();
};

const bool REGISTERED = Version("nlohmann-json", nlohmann::json::meta()["version"]["string"].get<std::string>()) &&
                        RegisterContainer<JsonObject>();

}  // namespace

}  // namespace bench
