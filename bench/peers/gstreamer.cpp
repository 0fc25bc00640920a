#include "../peer.h"

#include <gst/gst.h>

namespace bench {

class Structure {
public:
    explicit Structure(GstStructure* structure = gst_structure_new_empty("media")) : mStructure(structure) {}

    void Set(const Entry& entry, int32_t value) { Set(entry, G_TYPE_INT, value); }
    void Set(const Entry& entry, double value) { Set(entry, G_TYPE_DOUBLE, value); }
    void Set(const Entry& entry, const char* value) { Set(entry, G_TYPE_STRING, value); }

    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        T value{};
        return Get(entry.mKey.c_str(), value) ? Digest(value) : 0;
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        const auto add = [](GQuark key, const GValue* value, gpointer data) -> gboolean {
            benchmark::DoNotOptimize(G_VALUE_TYPE(value));
            *static_cast<uint64_t*>(data) += Digest(g_quark_to_string(key));
            return TRUE;
        };
        gst_structure_foreach(mStructure.get(), add, &sum);
        return sum;
    }
    Structure Copy() const { return Structure(gst_structure_copy(mStructure.get())); }

private:
    struct Free {
        void operator()(GstStructure* structure) const { gst_structure_free(structure); }
    };

    template <typename T>
    void Set(const Entry& entry, GType type, T value)
    {
        gst_structure_set(mStructure.get(), entry.mKey.c_str(), type, value, nullptr);
    }
    bool Get(const char* key, int32_t& value) const
    {
        return gst_structure_get_int(mStructure.get(), key, &value);
    }
    bool Get(const char* key, double& value) const
    {
        return gst_structure_get_double(mStructure.get(), key, &value);
    }
    bool Get(const char* key, const char*& value) const
    {
        value = gst_structure_get_string(mStructure.get(), key);
        return value != nullptr;
    }

    std::unique_ptr<GstStructure, Free> mStructure;
};

const bool REGISTERED = Add<Structure>(
    "GstStructure", Kind::PEER, "GStreamer " + Dotted({GST_VERSION_MAJOR, GST_VERSION_MINOR, GST_VERSION_MICRO}));

}  // namespace bench
