#include "../peer.h"

#include <list>

namespace bench {

// A map from due time to list, the structure in which the queue keeps its messages, but without thread and lock.
struct MapOfLists {
    void Insert(Task* task, uint64_t dueNs) { mPending.try_emplace(dueNs).first->second.emplace_back(task, 0); }
    void Remove(Task* task)
    {
        for (auto position = mPending.begin(); position != mPending.end();) {
            position->second.remove_if([task](const auto& message) { return message.first == task; });
            position = position->second.empty() ? mPending.erase(position) : std::next(position);
        }
    }

    std::map<uint64_t, std::list<std::pair<Task*, int32_t>>> mPending;
};

// Copies share the values, as those of the library do, except for texts.
using SharedMap = BareMap<std::map<std::string, std::shared_ptr<Value>>>;

// Each copy has texts of its own, too; nothing else is different.
struct OwnTextsMap : SharedMap {
    OwnTextsMap Copy() const
    {
        OwnTextsMap copy(*this);
        for (auto& [key, value] : copy.mMap) {
            if (std::holds_alternative<std::string>(*value)) {
                value = std::make_shared<Value>(*value);
            }
        }
        return copy;
    }
    void Walk(...) const = delete;
};

const bool REGISTERED = Add<MapOfLists>("map of lists", Kind::BOUND) &&
                        Add<SharedMap>("map of shared_ptr", Kind::BOUND) &&
                        Add<OwnTextsMap>("map of shared_ptr, texts copied", Kind::BOUND) &&
                        Add<BareMap<std::map<std::string, Value>>>("map of variant", Kind::BOUND);

}  // namespace bench
