#include "container_shapes.h"

#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>

namespace bench {

namespace {

template <typename Map>
class AbslMap {
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

protected:
    Map mMap;
};

class HashMap : public AbslMap<absl::flat_hash_map<std::string, Value>> {
public:
    static constexpr const char* NAME = "absl_flat_hash_map";

    HashMap Copy() const { return *this; }
};

class BtreeMap : public AbslMap<absl::btree_map<std::string, Value>> {
public:
    static constexpr const char* NAME = "absl_btree_map";

    BtreeMap Copy() const { return *this; }
};

const bool REGISTERED = Version("Abseil", {ABSL_LTS_RELEASE_VERSION, ABSL_LTS_RELEASE_PATCH_LEVEL}) &&
                        RegisterContainer<HashMap>() && RegisterContainer<BtreeMap>();

}  // namespace

}  // namespace bench
