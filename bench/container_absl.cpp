#include "container_shapes.h"

#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>

namespace bench {

namespace {

class HashMap : public VariantMap<absl::flat_hash_map<std::string, Value>> {
public:
    static constexpr const char* NAME = "absl_flat_hash_map";

    HashMap Copy() const { return *this; }
};

class BtreeMap : public VariantMap<absl::btree_map<std::string, Value>> {
public:
    static constexpr const char* NAME = "absl_btree_map";

    BtreeMap Copy() const { return *this; }
};

const bool REGISTERED = Version("Abseil", {ABSL_LTS_RELEASE_VERSION, ABSL_LTS_RELEASE_PATCH_LEVEL}) &&
                        RegisterContainer<HashMap>() && RegisterContainer<BtreeMap>();

}  // namespace

}  // namespace bench
