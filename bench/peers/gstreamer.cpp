#include "../peer.h"

#include <gst/gst.h>

namespace bench {

struct Structure {
    void Set(const Entry& entry, int32_t value) { SetTyped(entry, G_TYPE_INT, value); }
    void Set(const Entry& entry, double value) { SetTyped(entry, G_TYPE_DOUBLE, value); }
    void Set(const Entry& entry, const char* value) { SetTyped(entry, G_TYPE_STRING, value); }
    template <typename T>
    void SetTyped(const Entry& entry, GType type, T value)
    {
        gst_structure_set(Raw(), Key(entry), type, value, nullptr);
    }
    void Get(const Entry& entry, int32_t& value) const { gst_structure_get_int(Raw(), Key(entry), &value); }
    void Get(const Entry& entry, double& value) const { gst_structure_get_double(Raw(), Key(entry), &value); }
    void Get(const Entry& entry, const char*& value) const { value = gst_structure_get_string(Raw(), Key(entry)); }
    template <typename Visit>
    void Walk(Visit visit) const
    {
        const auto visitField = [](GQuark key, const GValue* value, gpointer data) -> gboolean {
            (*static_cast<Visit*>(data))(G_VALUE_TYPE(value), g_quark_to_string(key)[0]);
            return TRUE;
        };
        gst_structure_foreach(Raw(), visitField, &visit);
    }
    Structure Copy() const { return {decltype(mOwn)(gst_structure_copy(Raw()), gst_structure_free)}; }

    static const char* Key(const Entry& entry) { return entry.mKey.c_str(); }
    GstStructure* Raw() const { return mOwn.get(); }

    std::unique_ptr<GstStructure, decltype(&gst_structure_free)> mOwn{gst_structure_new_empty("media"),
                                                                      gst_structure_free};
};

const std::string VERSION = Dotted(GST_VERSION_MAJOR, GST_VERSION_MINOR, GST_VERSION_MICRO);
const bool REGISTERED = Add<Structure>("GstStructure", Kind::PEER, "GStreamer " + VERSION);

}  // namespace bench
