#include "../peer.h"

#include <nlohmann/json.hpp>

namespace bench {

class JsonObject {
public:
    template <typename T>
    void Set(const Entry& entry, T value)
    {
        mJson[entry.mKey.c_str()] = value;
    }
    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto position = mJson.find(entry.mKey.c_str());
        if (position == mJson.end()) {
            return 0;
        }
        return Digest(position->template get_ref<const Held<T>&>());
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
    template <typename T>
    using Held = std::conditional_t<std::is_same_v<T, int32_t>, nlohmann::json::number_integer_t, Stored<T>>;

    nlohmann::json mJson = nlohmann::json::object();
};

const bool REGISTERED =
    Add<JsonObject>("nlohmann::json", Kind::PEER,
                    "nlohmann-json " + nlohmann::json::meta()["version"]["string"].get<std::string>());

}  // namespace bench
