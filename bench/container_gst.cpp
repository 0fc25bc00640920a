#include "container_shapes.h"

#include <gst/gst.h>

namespace bench {

namespace {

class Structure {
public:
    static constexpr const char* NAME = "gst_structure";

    Structure() : Structure(New()) {}

    void Set(const Entry& entry, int32_t value) { Set(entry, G_TYPE_INT, value); }
    void Set(const Entry& entry, int64_t value) { Set(entry, G_TYPE_INT64, value); }
    void Set(const Entry& entry, double value) { Set(entry, G_TYPE_DOUBLE, value); }
    void Set(const Entry& entry, const char* value) { Set(entry, G_TYPE_STRING, value); }
    void Set(const Entry& entry, Fraction value) { Set(entry, GST_TYPE_FRACTION, value.num, value.den); }

    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        T value{};
        return Get(entry.mKey, value) ? Digest(value) : 0;
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        gst_structure_foreach(
            mStructure.get(),
            [](GQuark key, const GValue* value, gpointer data) -> gboolean {
                benchmark::DoNotOptimize(G_VALUE_TYPE(value));
                *static_cast<uint64_t*>(data) += Digest(g_quark_to_string(key));
                return TRUE;
            },
            &sum);
        return sum;
    }
    Structure Copy() const { return Structure(gst_structure_copy(mStructure.get())); }

private:
    struct Free {
        void operator()(GstStructure* structure) const { gst_structure_free(structure); }
    };

    explicit Structure(GstStructure* structure) : mStructure(structure) {}

    static GstStructure* New()
    {
        // For the type of fractions; it needs no plug-ins.
        static const bool ready = [] {
            setenv("GST_REGISTRY_DISABLE", "yes", 1);
            gst_init(nullptr, nullptr);
            return true;
        }();
        benchmark::DoNotOptimize(ready);
        return gst_structure_new_empty("media");
    }

    template <typename... Values>
    void Set(const Entry& entry, GType type, Values... values)
    {
        gst_structure_set(mStructure.get(), entry.mKey, type, values..., nullptr);
    }

    bool Get(const char* key, int32_t& value) const
    {
        return gst_structure_get_int(mStructure.get(), key, &value);
    }
    bool Get(const char* key, int64_t& value) const
    {
        gint64 number = 0;
        const bool found = gst_structure_get_int64(mStructure.get(), key, &number);
        value = number;
        return found;
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
    bool Get(const char* key, Fraction& value) const
    {
        return gst_structure_get_fraction(mStructure.get(), key, &value.num, &value.den);
    }

    std::unique_ptr<GstStructure, Free> mStructure;
};

const bool REGISTERED = Version("GStreamer", {GST_VERSION_MAJOR, GST_VERSION_MINOR, GST_VERSION_MICRO}) &&
                        RegisterContainer<Structure>();

}  // namespace

}  // namespace bench
