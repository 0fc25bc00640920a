#include "model.h"

#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "support.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>

using namespace osal;

namespace {

// The bytes of a plain value, a text, a block, or the number of an object. None stands for a text or block that is
// not there, and for the types that have no value.
using Image = std::optional<std::string>;

template <typename T>
std::string ImageOf(const T& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

template <typename T>
T ValueOf(const std::string& image)
{
    T value{};
    memcpy(&value, image.data(), std::min(image.size(), sizeof(value)));
    return value;
}

// For people: what is not a number is written as it is, as far as it can be.
std::string Show(const std::string& image)
{
    std::ostringstream out;
    out << '"' << std::hex;
    for (const char byte : image) {
        byte >= ' ' && byte <= '~' ? out << byte : out << "\\x" << (byte & 0xFF);
    }
    out << '"';
    return out.str();
}
std::string Show(const Image& image) { return image ? Show(*image) : "nothing"; }

template <typename T>
std::string Show(T number)
{
    return std::to_string(number);
}
std::string Show(const LogLines& lines)
{
    std::ostringstream out;
    for (const LogLine& line : lines) {
        out << "\n    " << line;
    }
    return out.str();
}

template <typename... Arguments>
std::string Format(const char* format, Arguments... arguments)
{
    std::array<char, 512> text{};
    snprintf(text.data(), text.size(), format, arguments...);
    return text.data();
}

struct Object : MediaMeta::MetaBase, MediaRefBase {};

const std::array<std::shared_ptr<Object>, 3> OBJECTS{nullptr, std::make_shared<Object>(),
                                                     std::make_shared<Object>()};

template <typename T>
std::string ImageOf(const std::shared_ptr<T>& object)
{
    return std::to_string(std::find(OBJECTS.begin(), OBJECTS.end(), object) - OBJECTS.begin());
}

const std::shared_ptr<Object>& ObjectOf(const std::string& image)
{
    return OBJECTS[static_cast<size_t>(image[0] - '0')];
}

// --- What is known of each type

using Dump = std::function<std::string(const std::string& image)>;

struct Type {
    MetaType type;
    const char* name;
    size_t sizeBytes;  // of a plain value
    std::string parcel;  // the elements of its way: of '4' or '8' bytes, a float 'w'idened to 8, a 't'ext
    Dump dump;  // none for the types that are neither merged nor dumped
    // `apart` chooses the form with separate arguments where there is one.
    std::function<bool(MediaMeta&, const char* key, const std::string& image, bool apart)> set;
    // Makes `image` of the outputs, which begin as Untouched().
    std::function<bool(const MediaMeta&, const char* key, Image& image, bool apart)> get;
};

template <typename T, typename Get>
bool GetPlain(Image& image, Get get)
{
    T value{};
    memset(&value, 0x55, sizeof(value));
    const bool found = get(value);
    image = ImageOf(value);
    return found;
}

template <typename T>
Type Number(MetaType type, const char* name, bool (MediaMeta::*setter)(const char*, T),
            bool (MediaMeta::*getter)(const char*, T&) const, const char* parcel = "", Dump dump = {})
{
    return {type,
            name,
            sizeof(T),
            parcel,
            std::move(dump),
            [=](MediaMeta& meta, const char* key, const std::string& image, bool /*apart*/) {
                return (meta.*setter)(key, ValueOf<T>(image));
            },
            [=](const MediaMeta& meta, const char* key, Image& image, bool /*apart*/) {
                return GetPlain<T>(image, [&](T& value) { return (meta.*getter)(key, value); });
            }};
}

// One to four integers.
Dump ShowsInts(const char* format)
{
    return [format](const std::string& image) {
        const auto value = ValueOf<MediaMeta::Rect>(image);
        return Format(format, value.a, value.b, value.c, value.d);
    };
}

template <typename T, typename Shown = T>
Dump Shows(const char* format)
{
    return [format](const std::string& image) { return Format(format, static_cast<Shown>(ValueOf<T>(image))); };
}

// Whether a null stands for the text, which has no form with separate arguments.
bool IsNullText(MetaType type, const std::string& image, bool apart)
{
    return type == META_TYPE_STRING && apart && image.size() < 3;
}

constexpr const char* UNTOUCHED = "untouched";

using Meta = MediaMeta;

const std::array<Type, 16> TYPES{
    Number(META_TYPE_INT8, "int8", &Meta::SetInt8, &Meta::GetInt8),
    Number(META_TYPE_INT16, "int16", &Meta::SetInt16, &Meta::GetInt16),
    Number(META_TYPE_INT32, "int32", &Meta::SetInt32, &Meta::GetInt32, "4", ShowsInts("int32_t:%d")),
    Number(META_TYPE_INT64, "int64", &Meta::SetInt64, &Meta::GetInt64, "8", Shows<int64_t>("int64_t:%ld")),
    Number(META_TYPE_UINT8, "uint8", &Meta::SetUint8, &Meta::GetUint8),
    Number(META_TYPE_UINT16, "uint16", &Meta::SetUint16, &Meta::GetUint16),
    Number(META_TYPE_UINT32, "uint32", &Meta::SetUint32, &Meta::GetUint32),
    Number(META_TYPE_UINT64, "uint64", &Meta::SetUint64, &Meta::GetUint64),
    Number(META_TYPE_FLOAT, "float", &Meta::SetFloat, &Meta::GetFloat, "w", Shows<float, double>("float:%f")),
    Number(META_TYPE_DOUBLE, "double", &Meta::SetDouble, &Meta::GetDouble, "8", Shows<double>("double:%f")),
    Number(META_TYPE_POINTER, "pointer", &Meta::SetPointer, &Meta::GetPointer, "8", Shows<void*>("pointer:%p")),
    Type{META_TYPE_STRING, "string", 0, "t", [](const std::string& image) { return "string:" + image; },
         [](Meta& meta, const char* key, const std::string& image, bool apart) {
             return meta.SetString(key, IsNullText(META_TYPE_STRING, image, apart) ? nullptr : image.c_str());
         },
         [](const Meta& meta, const char* key, Image& image, bool /*apart*/) {
             const char* text = UNTOUCHED;
             const bool found = meta.GetString(key, text);
             image = text != nullptr ? Image(text) : std::nullopt;
             return found;
         }},
    Type{META_TYPE_BYTE_BUFFER, "block", 0, "",
         [](const std::string& image) { return Format("bytebuffer(ADDRESS, %zu)", image.size()); },
         [](Meta& meta, const char* key, std::string image, bool apart) {
             auto* data = reinterpret_cast<uint8_t*>(image.data());
             return apart ? meta.SetByteBuffer(key, data, image.size())
                          : meta.SetByteBuffer(key, Meta::ByteBuffer{image.size(), data});
         },
         [](const Meta& meta, const char* key, Image& image, bool apart) {
             std::string untouched = UNTOUCHED;
             Meta::ByteBuffer block{untouched.size(), reinterpret_cast<uint8_t*>(untouched.data())};
             auto sizeBytes = static_cast<int32_t>(block.size);
             const bool found =
                 apart ? meta.GetByteBuffer(key, block.data, sizeBytes) : meta.GetByteBuffer(key, block);
             const size_t size = apart ? static_cast<size_t>(sizeBytes) : block.size;
             image = block.data != nullptr ? Image({reinterpret_cast<char*>(block.data), size}) : std::nullopt;
             return found;
         }},
    Type{META_TYPE_FRACTION, "fraction", sizeof(Meta::Fraction), "44", ShowsInts("fraction:(%d/%d)"),
         [](Meta& meta, const char* key, const std::string& image, bool apart) {
             const auto value = ValueOf<Meta::Fraction>(image);
             return apart ? meta.SetFraction(key, value.num, value.den) : meta.SetFraction(key, value);
         },
         [](const Meta& meta, const char* key, Image& image, bool apart) {
             return GetPlain<Meta::Fraction>(image, [&](Meta::Fraction& value) {
                 return apart ? meta.GetFraction(key, value.num, value.den) : meta.GetFraction(key, value);
             });
         }},
    Type{META_TYPE_RECT, "rect", sizeof(Meta::Rect), "4444", ShowsInts("rect:(%d, %d, %d, %d)"),
         [](Meta& meta, const char* key, const std::string& image, bool apart) {
             const auto value = ValueOf<Meta::Rect>(image);
             return apart ? meta.SetRect(key, value.a, value.b, value.c, value.d) : meta.SetRect(key, value);
         },
         [](const Meta& meta, const char* key, Image& image, bool apart) {
             return GetPlain<Meta::Rect>(image, [&](Meta::Rect& value) {
                 return apart ? meta.GetRect(key, value.a, value.b, value.c, value.d) : meta.GetRect(key, value);
             });
         }},
    Type{META_TYPE_OBJECT, "object", 0, "",
         [](const std::string& image) {
             const MediaMeta::MetaBase* object = ObjectOf(image).get();
             return Format("object:%p", static_cast<const void*>(object));
         },
         [](Meta& meta, const char* key, const std::string& image, bool /*apart*/) {
             return meta.SetObject(key, ObjectOf(image));
         },
         [](const Meta& meta, const char* key, Image& image, bool /*apart*/) {
             std::shared_ptr<Meta::MetaBase> object = OBJECTS[1];
             const bool found = meta.GetObject(key, object);
             image = ImageOf(object);
             return found;
         }},
};

// For a type that there is not, a row without anything.
const Type& TypeOf(int32_t number)
{
    static const Type none{};
    const auto found =
        std::find_if(TYPES.begin(), TYPES.end(), [=](const Type& type) { return type.type == number; });
    return found != TYPES.end() ? *found : none;
}

Image Untouched(const Type& type)
{
    return type.type == META_TYPE_OBJECT ? "1"
           : type.sizeBytes > 0          ? std::string(type.sizeBytes, 0x55)
                                         : UNTOUCHED;
}

// --- The model

struct ModelItem {
    int32_t type;
    Image image;
};

using ModelMeta = std::map<std::string, std::shared_ptr<ModelItem>>;

struct ModelParcel {
    std::string fixed;
    size_t capacity = MEDIA_PARAM_CAPACITY;
    size_t readPos = 0;
    std::vector<std::string> strings;
    size_t stringIndex = 0;
    std::vector<std::string> refs;
    size_t refIndex = 0;
};

Image ReadNext(const std::vector<std::string>& texts, size_t& index)
{
    return index < texts.size() ? Image(texts[index++]) : std::nullopt;
}

class Model {
public:
    LogLines log;

    void Error(const std::string& text, const char* tag = "MediaMeta")
    {
        log.push_back({ANDROID_LOG_ERROR, tag, text});
    }

    void Debug(const std::string& text) { log.push_back({ANDROID_LOG_DEBUG, "MediaMeta", text}); }

    bool Set(ModelMeta& meta, const char* key, int32_t type, const Image& image)
    {
        if (type == META_TYPE_BYTE_BUFFER && (key == nullptr || !image || image->empty())) {
            Error(Format("name %s, data %s, size %zu", key != nullptr ? "ADDRESS" : "(nil)",
                         image ? "ADDRESS" : "(nil)", image ? image->size() : 0));
            return false;
        }
        if (key == nullptr || !image ||
            (type == META_TYPE_FRACTION && ValueOf<MediaMeta::Fraction>(*image).den == 0)) {
            return false;
        }
        auto& item = meta[key];
        if (!item) {
            item = std::make_shared<ModelItem>(ModelItem{type, image});
            return true;
        }
        if (item->type != type) {
            return false;
        }
        item->image = image;
        return true;
    }

    std::optional<ModelMeta> Copy(const ModelMeta& meta)
    {
        ModelMeta copy;
        for (const auto& [key, item] : meta) {
            if (item->type != META_TYPE_STRING && item->type != META_TYPE_BYTE_BUFFER) {
                copy[key] = item;
            } else if (!Set(copy, key.c_str(), item->type, item->image)) {
                Error("Copy: copy " + key + " failed");
                return std::nullopt;
            }
        }
        return copy;
    }

    bool Merge(ModelMeta& meta, const ModelMeta& other)
    {
        for (const auto& [key, item] : other) {
            if (!TypeOf(item->type).dump) {
                Error("Merge: Should not be here mType: " + std::to_string(item->type));
            } else if (!Set(meta, key.c_str(), item->type, item->image)) {
                Error("Merge: Merge " + key + " failed");
                return false;
            }
        }
        return true;
    }

    void Dump(const ModelMeta& meta)
    {
        Debug("######## MediaMeta dump debug");
        for (const auto& [key, item] : meta) {
            const Type& type = TypeOf(item->type);
            const char* const none = item->type == META_TYPE_STRING ? "string:(null)" : "bytebuffer((nil), 0)";
            if (item->type == META_TYPE_NONE) {
                Debug("empty item");
            } else if (!type.dump) {
                Error("Dump: Unknown item: " + std::to_string(item->type));
            } else {
                Debug("(" + key + ", " + (item->image ? type.dump(*item->image) : none) + ")");
            }
        }
    }

    int32_t WriteFixed(ModelParcel& parcel, const std::string& image)
    {
        if (parcel.fixed.size() + image.size() > parcel.capacity) {
            Error("WriteFixed failed: ERR_NO_MORE.", "MediaParam");
            return ERR_NO_MORE;
        }
        parcel.fixed += image;
        return 0;
    }

    Image ReadFixed(ModelParcel& parcel, size_t size)
    {
        if (parcel.fixed.size() - parcel.readPos < size) {
            Error("ReadFixed failed: ERR_NO_MORE.", "MediaParam");
            return std::nullopt;
        }
        parcel.readPos += size;
        return parcel.fixed.substr(parcel.readPos - size, size);
    }

    // Zero where there is none.
    template <typename T>
    T Read(ModelParcel& parcel)
    {
        return ValueOf<T>(ReadFixed(parcel, sizeof(T)).value_or(""));
    }

    bool WriteMeta(const ModelMeta& meta, ModelParcel& parcel)
    {
        bool carried = true;
        WriteFixed(parcel, ImageOf(static_cast<int32_t>(meta.size())));
        for (const auto& [key, item] : meta) {
            WriteFixed(parcel, ImageOf(item->type));
            parcel.strings.push_back(key);
            carried = CheckWay("Write", "WriteToMediaParam", item->type) && carried;
            size_t position = 0;
            for (const char element : TypeOf(item->type).parcel) {
                if (element == 't') {
                    parcel.strings.push_back(item->image.value_or(""));
                } else if (element == 'w') {
                    WriteFixed(parcel, ImageOf(static_cast<double>(ValueOf<float>(*item->image))));
                } else {
                    const auto size = static_cast<size_t>(element - '0');
                    WriteFixed(parcel, item->image->substr(position, size));
                    position += size;
                }
            }
        }
        return carried;
    }

    bool ReadMeta(ModelMeta& meta, ModelParcel& parcel)
    {
        bool complete = true;
        const auto count = Read<int32_t>(parcel);
        for (int32_t i = 0; i < count; ++i) {
            const auto number = Read<int32_t>(parcel);
            const Image key = ReadNext(parcel.strings, parcel.stringIndex);
            if (!key) {
                continue;
            }
            const Type& type = TypeOf(number);
            complete = CheckWay("Read", "ReadFromMediaParam", number) && complete;
            std::string image;
            for (const char element : type.parcel) {
                if (element == 'w') {
                    image = ImageOf(static_cast<float>(Read<double>(parcel)));
                } else if (element != 't') {
                    const auto size = static_cast<size_t>(element - '0');
                    image += ReadFixed(parcel, size).value_or(std::string(size, '\0'));
                }
            }
            auto& item = meta[*key] = std::make_shared<ModelItem>(ModelItem{number, std::nullopt});
            if (number == META_TYPE_STRING) {
                item->image = ReadNext(parcel.strings, parcel.stringIndex);
                complete = complete && item->image;
            } else if (number == META_TYPE_OBJECT) {
                item->image = "0";
            } else if (type.sizeBytes > 0) {
                image.resize(type.sizeBytes);
                item->image = image;
            }
        }
        return complete;
    }

    void CopyParcel(ModelParcel& parcel, const ModelParcel& other)
    {
        if (other.capacity == 0) {
            Error("Copy:Copy failed, invalid size: 0.", "MediaParam");
            parcel = ModelParcel();
            parcel.capacity = 0;
            return;
        }
        parcel = other;
        parcel.readPos = parcel.stringIndex = parcel.refIndex = 0;
    }

private:
    bool CheckWay(const std::string& way, const std::string& operation, int32_t number)
    {
        if (!TypeOf(number).parcel.empty()) {
            return true;
        }
        if (number == META_TYPE_BYTE_BUFFER || number == META_TYPE_OBJECT) {
            const char* const what = number == META_TYPE_OBJECT ? "Object" : "ByteBuffer";
            Error("MediaParam doesn't support " + way + what + " method");
        } else {
            Error(operation + ": Should not be here mType: " + std::to_string(number));
        }
        return false;
    }
};

// --- What a parcel carries

struct Fixed {
    const char* name;
    size_t sizeBytes;
    std::function<int32_t(MediaParam&, const std::string& image)> write;
    // Into a place, or as the result: then it answers 0.
    std::function<int32_t(const MediaParam&, std::string& image, bool isPlace)> read;
};

template <typename T, typename Written>
Fixed FixedOf(const char* name, int32_t (MediaParam::*write)(Written), T (MediaParam::*read)() const,
              int32_t (MediaParam::*readTo)(T*) const)
{
    return {name, sizeof(T),
            [=](MediaParam& parcel, const std::string& image) { return (parcel.*write)(ValueOf<T>(image)); },
            [=](const MediaParam& parcel, std::string& image, bool isPlace) {
                T value = ValueOf<T>(image);
                const int32_t result = isPlace ? (parcel.*readTo)(&value) : 0;
                image = ImageOf(isPlace ? value : (parcel.*read)());
                return result + (isPlace && (parcel.*readTo)(nullptr) != ERR_NO_MORE ? 100 : 0);
            }};
}

using Param = MediaParam;

const std::array<Fixed, 5> FIXED{
    FixedOf<int32_t>("int32", &Param::WriteInt32, &Param::ReadInt32, &Param::ReadInt32),
    FixedOf<int64_t>("int64", &Param::WriteInt64, &Param::ReadInt64, &Param::ReadInt64),
    FixedOf<float>("float", &Param::WriteFloat, &Param::ReadFloat, &Param::ReadFloat),
    FixedOf<double>("double", &Param::WriteDouble, &Param::ReadDouble, &Param::ReadDouble),
    FixedOf<uint8_t*>("pointer", &Param::WriteRawPointer, &Param::ReadRawPointer, &Param::ReadRawPointer)};

// --- The run of both

class Choices {
public:
    explicit Choices(const uint8_t* data) : mData(data), mEnd(data + STEP_BYTES) {}

    // 0 to limit - 1; 0 when they are used up.
    size_t Below(size_t limit) { return mData == mEnd ? 0 : *mData++ % limit; }
    std::string Bytes(size_t size)
    {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(Below(256));
        }
        return bytes;
    }

private:
    const uint8_t* mData;
    const uint8_t* mEnd;
};

std::string RandomImage(const Type& type, Choices& choices)
{
    switch (type.type) {
        case META_TYPE_STRING: return choices.Bytes(choices.Below(24)).c_str();
        case META_TYPE_BYTE_BUFFER: return choices.Bytes(choices.Below(24));
        case META_TYPE_OBJECT: return std::to_string(choices.Below(OBJECTS.size()));
        case META_TYPE_FRACTION: return choices.Bytes(4) + ImageOf(static_cast<int32_t>(choices.Below(3)) - 1);
        case META_TYPE_FLOAT:
            // Numbers alone: widening a signalling NaN changes its bits.
            return ImageOf(static_cast<float>(choices.Below(256)) / 8);
        default: return choices.Bytes(type.sizeBytes);
    }
}

// The model cannot know where the library puts a block.
LogLines WithoutAddresses(LogLines lines)
{
    for (LogLine& line : lines) {
        for (const std::string before : {"name ", "data ", "bytebuffer("}) {
            const size_t begin = line.text.find(before + "0x");
            if (begin != std::string::npos) {
                const size_t end = line.text.find_first_of(",)", begin);
                line.text.replace(begin, end - begin, before + "ADDRESS");
            }
        }
    }
    return lines;
}

class Run {
public:
    std::string steps;  // what was done so far, for people

    void Step(const uint8_t* data)
    {
        Choices choices(data);
        const LogCapture log;
        mModel.log.clear();
        Operate(choices);
        Expect("log", WithoutAddresses(mModel.log), WithoutAddresses(log.Lines()));
        for (size_t i = 0; i < mMetas.size(); ++i) {
            Compare(*mMetas[i], mModelMetas[i]);
        }
    }

private:
    static inline const std::array<const char*, 8> KEYS{
        nullptr, "", "a", "ab", "B", "width", "a key that is longer than the short ones", "\xff"};

    template <typename T>
    static void Expect(const std::string& what, const T& expected, const T& actual)
    {
        if (!(expected == actual)) {
            throw std::runtime_error(what + " differs: expected " + Show(expected) + ", actual " + Show(actual));
        }
    }

    void Say(const std::string& what) { steps += (what[0] == ' ' ? "" : "  ") + what + "\n"; }

    static void Compare(const MediaMeta& meta, const ModelMeta& model)
    {
        auto it = meta.Begin();
        for (const auto& [key, item] : model) {
            Expect("entry", true, it != meta.End());
            Expect("key", key, it.Key());
            Expect("type of " + Show(key), item->type, static_cast<int32_t>(it.Value()->mType));
            const Type& type = TypeOf(item->type);
            if (type.get) {
                Image image;
                Expect("presence of " + Show(key), true, type.get(meta, key.c_str(), image, false));
                Expect(std::string(type.name) + " of " + Show(key), item->image, image);
            }
            ++it;
        }
        Expect("end", true, it == meta.End());
        Expect("key at the end", std::string(), it.Key());
    }

    void Operate(Choices& choices)
    {
        const size_t one = choices.Below(2);
        const size_t other = choices.Below(2);
        MediaMeta& meta = *mMetas[one];
        ModelMeta& model = mModelMetas[one];
        ModelParcel& modelParcel = mModelParcels[one];
        const char* const key = KEYS[choices.Below(KEYS.size())];
        const Type& type = TYPES[choices.Below(TYPES.size())];
        const bool apart = choices.Below(2) == 1;
        const size_t operation = choices.Below(14);
        const std::string typeAndKey = std::string(type.name) + (apart ? " (apart) " : " ") +
                                       Show(key != nullptr ? Image(key) : std::nullopt);
        const std::string fromOther = key != nullptr ? Show(other) : "null";
        if (operation <= 10) {
            steps += "  container " + Show(one) + ":";
        }
        if (operation <= 2) {
            Image image = RandomImage(type, choices);
            Say(" set " + typeAndKey + " = " + Show(image));
            const bool result = type.set(meta, key, *image, apart);
            if (IsNullText(type.type, *image, apart)) {
                image.reset();
            }
            Expect("result", mModel.Set(model, key, type.type, image), result);
        } else if (operation <= 4) {
            Say(" get " + typeAndKey);
            const auto entry = key != nullptr ? model.find(key) : model.end();
            const bool isFound = entry != model.end() && entry->second->type == type.type;
            Image image;
            Expect("result", isFound, type.get(meta, key, image, apart));
            Expect("output", isFound ? entry->second->image : Untouched(type), image);
            Expect("ContainsKey()", entry != model.end(), meta.ContainsKey(key));
        } else if (operation == 5) {
            Say(" copy to " + Show(other));
            auto modelCopy = mModel.Copy(model);
            auto copy = meta.Copy();
            Expect("result", modelCopy.has_value(), copy != nullptr);
            if (copy) {
                mMetas[other] = copy;
                mModelMetas[other] = std::move(*modelCopy);
            }
        } else if (operation == 6) {
            Say(" merge " + fromOther);
            Expect("result", key != nullptr && mModel.Merge(model, mModelMetas[other]),
                   meta.Merge(key != nullptr ? mMetas[other] : nullptr));
        } else if (operation == 7) {
            const bool isDestroyed = choices.Below(4) == 0;
            Say(isDestroyed ? " destroy" : " dump");
            if (isDestroyed) {
                meta.Destroy();
                model.clear();
            } else {
                meta.Dump();
                mModel.Dump(model);
            }
        } else if (operation == 8) {
            Say(" write to parcel " + fromOther);
            Expect("result", key != nullptr && mModel.WriteMeta(model, mModelParcels[other]),
                   meta.WriteToMediaParam(key != nullptr ? &mParcels[other] : nullptr));
        } else if (operation <= 10) {
            Say(" read from parcel " + fromOther);
            if (key == nullptr || PeekCount(mModelParcels[other]) < 100) {  // a count is taken at its word
                Expect("result", key != nullptr && mModel.ReadMeta(model, mModelParcels[other]),
                       meta.ReadFromMediaParam(key != nullptr ? &mParcels[other] : nullptr));
            }
        } else if (operation == 11) {
            WriteParcel(choices, mParcels[one], modelParcel);
        } else if (operation == 12) {
            ReadParcel(choices, mParcels[one], modelParcel, apart);
        } else {
            CopyParcel(choices, one, other);
        }
    }

    static int32_t PeekCount(const ModelParcel& parcel)
    {
        return parcel.fixed.size() - parcel.readPos < 4 ? 0
                                                        : ValueOf<int32_t>(parcel.fixed.substr(parcel.readPos, 4));
    }

    void WriteParcel(Choices& choices, MediaParam& parcel, ModelParcel& model)
    {
        constexpr std::array<int32_t, 8> numbers{0, 1, 3, 12, 13, 17, -1, INT32_MIN};
        const size_t kind = choices.Below(FIXED.size() + 3);
        if (kind < FIXED.size()) {
            const Fixed& fixed = FIXED[kind];
            // As an int32, what reads as a count or a type, right or wrong.
            const std::string image = kind == 0 ? ImageOf(numbers[choices.Below(numbers.size())])
                                                : choices.Bytes(fixed.sizeBytes - 1) + "@";
            const size_t times = choices.Below(16) == 0 ? 2000 : 1;  // up to its limit
            Say(std::string("write ") + fixed.name + " " + Show(image) + " times " + Show(times));
            for (size_t i = 0; i < times; ++i) {
                Expect("result", mModel.WriteFixed(model, image), fixed.write(parcel, image));
            }
        } else if (kind == FIXED.size()) {
            const std::string text = choices.Bytes(choices.Below(24)).c_str();
            Say("write string " + Show(text));
            model.strings.push_back(text);
            Expect("result", 0, parcel.WriteString(text.c_str()));
            Expect("result for null", -1, parcel.WriteString(nullptr));
        } else {
            const std::string object = std::to_string(choices.Below(OBJECTS.size()));
            Say("write object " + object);
            model.refs.push_back(object);
            Expect("result", 0, parcel.WritePointer(ObjectOf(object)));
        }
    }

    void ReadParcel(Choices& choices, const MediaParam& parcel, ModelParcel& model, bool isPlace)
    {
        const size_t kind = choices.Below(FIXED.size() + 2);
        if (kind < FIXED.size()) {
            const Fixed& fixed = FIXED[kind];
            Say(std::string("read ") + fixed.name + (isPlace ? " into a place" : ""));
            const Image expected = mModel.ReadFixed(model, fixed.sizeBytes);
            std::string image = std::string(UNTOUCHED).substr(0, fixed.sizeBytes);
            const std::string otherwise = isPlace ? image : std::string(fixed.sizeBytes, '\0');
            Expect("result", expected || !isPlace ? 0 : ERR_NO_MORE, fixed.read(parcel, image, isPlace));
            Expect("output", expected.value_or(otherwise), image);
        } else if (kind == FIXED.size()) {
            Say("read string");
            const char* text = parcel.ReadString();
            Expect("result", ReadNext(model.strings, model.stringIndex),
                   text != nullptr ? Image(text) : std::nullopt);
        } else {
            Say("read object");
            Expect("result", ReadNext(model.refs, model.refIndex).value_or("0"), ImageOf(parcel.ReadPointer()));
        }
    }

    void CopyParcel(Choices& choices, size_t one, size_t other)
    {
        const size_t from = choices.Below(5);
        constexpr std::array<const char*, 3> NAMES{"a new one", "null", "one without a store"};
        Say("copy over parcel " + Show(one) + ": " + (from < 3 ? NAMES[from] : "parcel " + Show(other)));
        if (from == 0) {
            mParcels[one] = MediaParam();
            mModelParcels[one] = ModelParcel();
        } else if (from == 1) {
            mParcels[one].Copy(nullptr);
            mModel.Error("Copy: Target pointer can not be nullptr", "MediaParam");
        } else if (from == 2) {
            mModel.Error("Copy: Target pointer can not be nullptr", "MediaParam");
            ModelParcel storeless;
            storeless.capacity = 0;
            mModel.CopyParcel(mModelParcels[one], storeless);
            mParcels[one] = MediaParam(nullptr);
        } else {
            mParcels[one].Copy(&mParcels[other]);
            if (one != other) {
                mModel.CopyParcel(mModelParcels[one], mModelParcels[other]);
            }
        }
    }

    Model mModel;
    std::array<std::shared_ptr<MediaMeta>, 2> mMetas{MediaMeta::Create(), MediaMeta::Create()};
    std::array<ModelMeta, 2> mModelMetas;
    std::array<MediaParam, 2> mParcels;
    std::array<ModelParcel, 2> mModelParcels;
};

}  // namespace

std::string RunModel(const uint8_t* data, size_t size)
{
    Run run;
    try {
        for (; size >= STEP_BYTES; data += STEP_BYTES, size -= STEP_BYTES) {
            run.Step(data);
        }
    } catch (const std::runtime_error& difference) {
        return run.steps + difference.what();
    }
    return {};
}
