#include "../peer.h"

#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>

namespace bench {

const std::string VERSION =
    "Abseil " + std::to_string(ABSL_LTS_RELEASE_VERSION) + '.' + std::to_string(ABSL_LTS_RELEASE_PATCH_LEVEL);
const bool REGISTERED =
    Add<BareMap<absl::flat_hash_map<std::string, Value>>>("absl::flat_hash_map", Kind::PEER, VERSION) &&
    Add<BareMap<absl::btree_map<std::string, Value>>>("absl::btree_map", Kind::PEER, VERSION);

}  // namespace bench
