// The library's container, and the bounds: bare maps of the standard library.

#include "container_shapes.h"

namespace bench {

namespace {

class OsalContainer {
public:
    static constexpr const char* NAME = "osal";

    OsalContainer() : OsalContainer(osal::MediaMeta::Create()) {}

    void Set(const Entry& entry, int32_t value) { mMeta->SetInt32(entry.mKey, value); }
    void Set(const Entry& entry, int64_t value) { mMeta->SetInt64(entry.mKey, value); }
    void Set(const Entry& entry, double value) { mMeta->SetDouble(entry.mKey, value); }
    void Set(const Entry& entry, const char* value) { mMeta->SetString(entry.mKey, value); }
    void Set(const Entry& entry, Fraction value) { mMeta->SetFraction(entry.mKey, value); }

    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        T value{};
        return Get(entry.mKey, value) ? Digest(value) : 0;
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        const auto end = mMeta->End();
        for (auto it = mMeta->Begin(); it != end; ++it) {
            benchmark::DoNotOptimize(it.Value()->mType);
            sum += Digest(it.Key());
        }
        return sum;
    }
    OsalContainer Copy() const { return OsalContainer(mMeta->Copy()); }

private:
    explicit OsalContainer(std::shared_ptr<osal::MediaMeta> meta) : mMeta(std::move(meta)) {}

    bool Get(const char* key, int32_t& value) const { return mMeta->GetInt32(key, value); }
    bool Get(const char* key, int64_t& value) const { return mMeta->GetInt64(key, value); }
    bool Get(const char* key, double& value) const { return mMeta->GetDouble(key, value); }
    bool Get(const char* key, const char*& value) const { return mMeta->GetString(key, value); }
    bool Get(const char* key, Fraction& value) const { return mMeta->GetFraction(key, value); }

    std::shared_ptr<osal::MediaMeta> mMeta;
};

// Copies share the values, as the library's do but for texts.
class SharedMap {
public:
    static constexpr const char* NAME = "map_shared_ptr";

    template <typename T>
    void Set(const Entry& entry, T value)
    {
        std::shared_ptr<Value>& stored = mMap[entry.mKey];
        if (stored) {
            *stored = value;
        } else {
            stored = std::make_shared<Value>(value);
        }
    }
    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto position = mMap.find(entry.mKey);
        const auto* const value =
            position != mMap.end() ? std::get_if<Stored<T>>(position->second.get()) : nullptr;
        return value != nullptr ? Digest(*value) : 0;
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        for (const auto& [key, value] : mMap) {
            benchmark::DoNotOptimize(value->index());
            sum += Digest(key);
        }
        return sum;
    }
    SharedMap Copy() const { return *this; }

protected:
    std::map<std::string, std::shared_ptr<Value>> mMap;
};

// Each copy has texts of its own, too.
class OwnTextsMap : public SharedMap {
public:
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
};

class StdMap : public VariantMap<std::map<std::string, Value>> {
public:
    static constexpr const char* NAME = "map_variant";

    StdMap Copy() const { return *this; }
};

const bool REGISTERED = [] {
    RegisterSizes("container/copy", "map_own_texts", Copy<OwnTextsMap>);
    return RegisterContainer<OsalContainer>() && RegisterContainer<SharedMap>() && RegisterContainer<StdMap>();
}();

}  // namespace

}  // namespace bench
