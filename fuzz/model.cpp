#include "model.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <stdexcept>

using namespace osal;

namespace {

using Texts = std::vector<std::string>;

class Choices {
public:
    Choices(const uint8_t* data, size_t size) : mData(data), mEnd(data + size) {}

    bool AtEnd() const { return mData == mEnd; }
    // 0 to limit - 1.
    size_t Below(size_t limit) { return AtEnd() ? 0 : *mData++ % limit; }
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

template <typename T>
std::string Image(const T& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

template <typename T>
T Value(const std::string& image)
{
    T value{};
    memcpy(&value, image.data(), std::min(image.size(), sizeof(value)));
    return value;
}

struct Object : MediaMeta::MetaBase, MediaRefBase {};

const std::array<std::shared_ptr<Object>, 3> OBJECTS{nullptr, std::make_shared<Object>(),
                                                     std::make_shared<Object>()};

template <typename T>
std::string ObjectImage(const T& object)
{
    const auto found = std::find(OBJECTS.begin(), OBJECTS.end(), object);
    return std::to_string(found - OBJECTS.begin());
}

const std::shared_ptr<Object>& ObjectOf(const std::string& image)
{
    return OBJECTS[static_cast<size_t>(image[0] - '0')];
}

// --- The model

// A value is an image: the bytes of a plain value, a text, a block, the number of an object. None stands for a
// text or block that is not there, and for the types that have no value.
struct ModelItem {
    int32_t type;
    std::optional<std::string> image;
};

using ModelMeta = std::map<std::string, std::shared_ptr<ModelItem>>;

struct ModelParcel {
    std::string fixed;
    size_t capacity = MEDIA_PARAM_CAPACITY;
    size_t readPos = 0;
    Texts strings;
    size_t stringIndex = 0;
    Texts refs;
    size_t refIndex = 0;
};

size_t PlainSize(int32_t type)
{
    constexpr std::array<size_t, 17> sizes{0, 1, 2, 4, 8, 1, 2, 4, 8, 4, 8, 8, 0, 0, 8, 16, 0};
    return type >= 0 && type <= 16 ? sizes[static_cast<size_t>(type)] : 0;
}

bool IsFractionRefused(int32_t type, const std::optional<std::string>& image)
{
    return type == META_TYPE_FRACTION && Value<MediaMeta::Fraction>(*image).den == 0;
}

class Model {
public:
    Texts log;

    bool Set(ModelMeta& meta, const std::string& key, int32_t type, const std::optional<std::string>& image)
    {
        if (type == META_TYPE_BYTE_BUFFER && (!image || image->empty())) {
            log.emplace_back("name ...");
            return false;
        }
        if (!image || IsFractionRefused(type, image)) {
            return false;
        }
        const auto entry = meta.find(key);
        if (entry == meta.end()) {
            meta[key] = std::make_shared<ModelItem>(ModelItem{type, image});
            return true;
        }
        if (entry->second->type != type) {
            return false;
        }
        entry->second->image = image;
        return true;
    }

    std::optional<ModelMeta> Copy(const ModelMeta& meta)
    {
        ModelMeta copy;
        for (const auto& [key, item] : meta) {
            const bool isOwned = item->type == META_TYPE_STRING || item->type == META_TYPE_BYTE_BUFFER;
            if (!isOwned) {
                copy[key] = item;
            } else if (!Set(copy, key, item->type, item->image)) {
                log.push_back("Copy: copy " + key + " failed");
                return std::nullopt;
            }
        }
        return copy;
    }

    bool Merge(ModelMeta& meta, const ModelMeta& other)
    {
        for (const auto& [key, item] : other) {
            const int32_t type = item->type;
            if (type == META_TYPE_INT32 || type == META_TYPE_INT64 ||
                (type >= META_TYPE_FLOAT && type <= META_TYPE_OBJECT)) {
                if (!Set(meta, key, type, item->image)) {
                    log.push_back("Merge: Merge " + key + " failed");
                    return false;
                }
            } else {
                log.push_back("Merge: Should not be here mType: " + std::to_string(type));
            }
        }
        return true;
    }

    int32_t WriteFixed(ModelParcel& parcel, const std::string& image)
    {
        if (parcel.fixed.size() + image.size() > parcel.capacity) {
            log.emplace_back("WriteFixed failed: ERR_NO_MORE.");
            return ERR_NO_MORE;
        }
        parcel.fixed += image;
        return 0;
    }

    std::optional<std::string> ReadFixed(ModelParcel& parcel, size_t size)
    {
        if (parcel.fixed.size() - parcel.readPos < size) {
            log.emplace_back("ReadFixed failed: ERR_NO_MORE.");
            return std::nullopt;
        }
        parcel.readPos += size;
        return parcel.fixed.substr(parcel.readPos - size, size);
    }

    template <typename T>
    T Read(ModelParcel& parcel)
    {
        return Value<T>(ReadFixed(parcel, sizeof(T)).value_or(""));
    }

    static std::optional<std::string> ReadNext(const Texts& texts, size_t& index)
    {
        return index < texts.size() ? std::optional<std::string>(texts[index++]) : std::nullopt;
    }

    bool WriteMeta(const ModelMeta& meta, ModelParcel& parcel)
    {
        bool carried = true;
        WriteFixed(parcel, Image(static_cast<int32_t>(meta.size())));
        for (const auto& [key, item] : meta) {
            WriteFixed(parcel, Image(item->type));
            parcel.strings.push_back(key);
            switch (item->type) {
                case META_TYPE_INT32:
                case META_TYPE_INT64:
                case META_TYPE_POINTER:
                case META_TYPE_DOUBLE:
                    WriteFixed(parcel, *item->image);
                    break;
                case META_TYPE_FLOAT:
                    WriteFixed(parcel, Image(static_cast<double>(Value<float>(*item->image))));
                    break;
                case META_TYPE_STRING:
                    parcel.strings.push_back(item->image.value_or(""));
                    break;
                case META_TYPE_FRACTION:
                case META_TYPE_RECT:
                    for (size_t i = 0; i < item->image->size(); i += 4) {
                        WriteFixed(parcel, item->image->substr(i, 4));
                    }
                    break;
                default:
                    Refuse("Write", item->type);
                    carried = false;
                    break;
            }
        }
        return carried;
    }

    bool ReadMeta(ModelMeta& meta, ModelParcel& parcel)
    {
        bool complete = true;
        const auto count = Read<int32_t>(parcel);
        for (int32_t i = 0; i < count; ++i) {
            const auto type = Read<int32_t>(parcel);
            const auto key = ReadNext(parcel.strings, parcel.stringIndex);
            if (!key) {
                continue;
            }
            std::optional<std::string> image;
            switch (type) {
                case META_TYPE_INT32:
                case META_TYPE_INT64:
                case META_TYPE_POINTER:
                case META_TYPE_DOUBLE:
                    image = ReadFixed(parcel, PlainSize(type)).value_or(std::string(PlainSize(type), '\0'));
                    break;
                case META_TYPE_FLOAT:
                    image = Image(static_cast<float>(Read<double>(parcel)));
                    break;
                case META_TYPE_STRING:
                    image = ReadNext(parcel.strings, parcel.stringIndex);
                    complete = complete && image;
                    break;
                case META_TYPE_FRACTION:
                case META_TYPE_RECT:
                    image = "";
                    while (image->size() < PlainSize(type)) {
                        *image += Image(Read<int32_t>(parcel));
                    }
                    break;
                default:
                    Refuse("Read", type);
                    complete = false;
                    if (type == META_TYPE_OBJECT) {
                        image = "0";
                    } else if (PlainSize(type) > 0) {
                        image = std::string(PlainSize(type), '\0');
                    }
                    break;
            }
            meta[*key] = std::make_shared<ModelItem>(ModelItem{type, image});
        }
        return complete;
    }

    void CopyParcel(ModelParcel& parcel, const ModelParcel& other)
    {
        if (&parcel == &other) {
            return;
        }
        if (other.capacity == 0) {
            log.emplace_back("Copy:Copy failed, invalid size: 0.");
            parcel = ModelParcel();
            parcel.capacity = 0;
            return;
        }
        parcel = other;
        parcel.readPos = parcel.stringIndex = parcel.refIndex = 0;
    }

private:
    void Refuse(const std::string& way, int32_t type)
    {
        if (type == META_TYPE_BYTE_BUFFER || type == META_TYPE_OBJECT) {
            const char* const what = type == META_TYPE_OBJECT ? "Object" : "ByteBuffer";
            log.push_back("MediaParam doesn't support " + way + what + " method");
        } else {
            const char* const name = way == "Read" ? "ReadFromMediaParam" : "WriteToMediaParam";
            log.push_back(name + std::string(": Should not be here mType: ") + std::to_string(type));
        }
    }
};

// --- The real ones, under the terms of the model

struct Rule {
    int32_t type;
    std::function<bool(MediaMeta&, const char* key, const std::string& image)> set;
    std::function<bool(const MediaMeta&, const char* key, std::optional<std::string>& image)> get;
};

template <typename T>
Rule PlainRule(int32_t type, bool (MediaMeta::*setter)(const char*, T),
               bool (MediaMeta::*getter)(const char*, T&) const)
{
    return {type,
            [=](MediaMeta& meta, const char* key, const std::string& image) {
                return (meta.*setter)(key, Value<T>(image));
            },
            [=](const MediaMeta& meta, const char* key, std::optional<std::string>& image) {
                T value{};
                if (!(meta.*getter)(key, value)) {
                    return false;
                }
                image = Image(value);
                return true;
            }};
}

const std::array<Rule, 16> RULES{
    PlainRule<int8_t>(META_TYPE_INT8, &MediaMeta::SetInt8, &MediaMeta::GetInt8),
    PlainRule<int16_t>(META_TYPE_INT16, &MediaMeta::SetInt16, &MediaMeta::GetInt16),
    PlainRule<int32_t>(META_TYPE_INT32, &MediaMeta::SetInt32, &MediaMeta::GetInt32),
    PlainRule<int64_t>(META_TYPE_INT64, &MediaMeta::SetInt64, &MediaMeta::GetInt64),
    PlainRule<uint8_t>(META_TYPE_UINT8, &MediaMeta::SetUint8, &MediaMeta::GetUint8),
    PlainRule<uint16_t>(META_TYPE_UINT16, &MediaMeta::SetUint16, &MediaMeta::GetUint16),
    PlainRule<uint32_t>(META_TYPE_UINT32, &MediaMeta::SetUint32, &MediaMeta::GetUint32),
    PlainRule<uint64_t>(META_TYPE_UINT64, &MediaMeta::SetUint64, &MediaMeta::GetUint64),
    PlainRule<float>(META_TYPE_FLOAT, &MediaMeta::SetFloat, &MediaMeta::GetFloat),
    PlainRule<double>(META_TYPE_DOUBLE, &MediaMeta::SetDouble, &MediaMeta::GetDouble),
    PlainRule<void*>(META_TYPE_POINTER, &MediaMeta::SetPointer, &MediaMeta::GetPointer),
    PlainRule<MediaMeta::Fraction>(META_TYPE_FRACTION, &MediaMeta::SetFraction, &MediaMeta::GetFraction),
    PlainRule<MediaMeta::Rect>(META_TYPE_RECT, &MediaMeta::SetRect, &MediaMeta::GetRect),
    Rule{META_TYPE_STRING,
         [](MediaMeta& meta, const char* key, const std::string& image) {
             return meta.SetString(key, image.c_str());
         },
         [](const MediaMeta& meta, const char* key, std::optional<std::string>& image) {
             const char* text = nullptr;
             const bool found = meta.GetString(key, text);
             image = text != nullptr ? std::optional<std::string>(text) : std::nullopt;
             return found;
         }},
    Rule{META_TYPE_BYTE_BUFFER,
         [](MediaMeta& meta, const char* key, std::string image) {
             return meta.SetByteBuffer(key, reinterpret_cast<uint8_t*>(image.data()), image.size());
         },
         [](const MediaMeta& meta, const char* key, std::optional<std::string>& image) {
             MediaMeta::ByteBuffer block{};
             const bool found = meta.GetByteBuffer(key, block);
             image = block.data != nullptr
                         ? std::optional<std::string>({reinterpret_cast<char*>(block.data), block.size})
                         : std::nullopt;
             return found;
         }},
    Rule{META_TYPE_OBJECT,
         [](MediaMeta& meta, const char* key, const std::string& image) {
             return meta.SetObject(key, ObjectOf(image));
         },
         [](const MediaMeta& meta, const char* key, std::optional<std::string>& image) {
             std::shared_ptr<MediaMeta::MetaBase> object;
             const bool found = meta.GetObject(key, object);
             image = ObjectImage(object);
             return found;
         }},
};

std::string RandomImage(int32_t type, Choices& choices)
{
    switch (type) {
        case META_TYPE_STRING: {
            const std::string text = choices.Bytes(choices.Below(24));
            return text.c_str();
        }
        case META_TYPE_BYTE_BUFFER:
            return choices.Bytes(choices.Below(24));
        case META_TYPE_OBJECT:
            return std::to_string(choices.Below(OBJECTS.size()));
        case META_TYPE_FRACTION:
            return choices.Bytes(4) + Image(static_cast<int32_t>(choices.Below(3)) - 1);
        case META_TYPE_FLOAT:
        case META_TYPE_DOUBLE: {
            // Numbers alone: widening a signalling NaN changes its bits.
            const auto number = static_cast<float>(choices.Below(256)) / 8;
            return type == META_TYPE_FLOAT ? Image(number) : Image(static_cast<double>(number));
        }
        default:
            return choices.Bytes(PlainSize(type));
    }
}

class Run {
public:
    Run(const uint8_t* data, size_t size) : mChoices(data, size) {}

    bool IsOver() const { return mChoices.AtEnd(); }
    Texts& ExpectedLog() { return mModel.log; }

    void Step()
    {
        const size_t one = mChoices.Below(2);
        const size_t other = mChoices.Below(2);
        MediaMeta& meta = *mMetas[one];
        ModelMeta& modelMeta = mModelMetas[one];
        MediaParam& parcel = mParcels[one];
        ModelParcel& modelParcel = mModelParcels[one];
        const std::string key = KEYS[mChoices.Below(KEYS.size())];
        const Rule& rule = RULES[mChoices.Below(RULES.size())];
        switch (mChoices.Below(12)) {
            case 0:
            case 1:
            case 2: {
                const std::string image = RandomImage(rule.type, mChoices);
                Expect(mModel.Set(modelMeta, key, rule.type, image), rule.set(meta, key.c_str(), image), "set");
                break;
            }
            case 3: {
                const auto entry = modelMeta.find(key);
                const bool isExpected = entry != modelMeta.end() && entry->second->type == rule.type;
                std::optional<std::string> image;
                Expect(isExpected, rule.get(meta, key.c_str(), image), "get");
                Expect(entry != modelMeta.end(), meta.ContainsKey(key.c_str()), "contains");
                break;
            }
            case 4: {
                auto modelCopy = mModel.Copy(modelMeta);
                auto copy = meta.Copy();
                Expect(modelCopy.has_value(), copy != nullptr, "copy");
                if (copy) {
                    mMetas[other] = copy;
                    mModelMetas[other] = std::move(*modelCopy);
                }
                break;
            }
            case 5:
                Expect(mModel.Merge(modelMeta, mModelMetas[other]), meta.Merge(mMetas[other]), "merge");
                break;
            case 6:
                if (mChoices.Below(4) == 0) {
                    meta.Destroy();
                    modelMeta.clear();
                }
                break;
            case 7:
                Expect(mModel.WriteMeta(modelMeta, modelParcel), meta.WriteToMediaParam(&parcel), "write");
                break;
            case 8:
                if (PeekCount(modelParcel) < 1000) {  // a larger count is taken at its word, which takes its time
                    Expect(mModel.ReadMeta(modelMeta, modelParcel), meta.ReadFromMediaParam(&parcel), "read");
                }
                break;
            case 9:
                WriteParcel(parcel, modelParcel);
                break;
            case 10:
                ReadParcel(parcel, modelParcel);
                break;
            default:
                CopyParcel(parcel, modelParcel, mParcels[other], mModelParcels[other]);
                break;
        }
    }

    void Compare()
    {
        for (size_t i = 0; i < mMetas.size(); ++i) {
            auto it = mMetas[i]->Begin();
            for (const auto& [key, item] : mModelMetas[i]) {
                Expect(true, it != mMetas[i]->End(), "entry");
                Expect(key, it.Key(), "key");
                Expect(item->type, static_cast<int32_t>(it.Value()->mType), "type");
                std::optional<std::string> image;
                const auto rule =
                    std::find_if(RULES.begin(), RULES.end(),
                                 [type = item->type](const Rule& candidate) { return candidate.type == type; });
                Expect(rule != RULES.end(), rule != RULES.end() && rule->get(*mMetas[i], key.c_str(), image),
                       "found");
                Expect(item->image, image, "value");
                ++it;
            }
            Expect(true, it == mMetas[i]->End(), "end");
        }
    }

private:
    static inline const Texts KEYS{"",    "a", "ab", "B", "width", "a key that is longer than the short ones",
                                   "\xff"};

    template <typename T>
    static void Expect(const T& expected, const T& actual, const char* what)
    {
        if (!(expected == actual)) {
            throw std::runtime_error(std::string(what) + " differs");
        }
    }

    static int32_t PeekCount(const ModelParcel& parcel)
    {
        return parcel.fixed.size() - parcel.readPos < 4 ? 0
                                                        : Value<int32_t>(parcel.fixed.substr(parcel.readPos, 4));
    }

    void WriteParcel(MediaParam& parcel, ModelParcel& model)
    {
        switch (mChoices.Below(8)) {
            case 0: {  // what reads as a count or a type, right or wrong
                constexpr std::array<int32_t, 8> numbers{0, 1, 3, 12, 13, 17, -1, INT32_MIN};
                const int32_t number = numbers[mChoices.Below(numbers.size())];
                Expect(mModel.WriteFixed(model, Image(number)), parcel.WriteInt32(number), "WriteInt32");
                break;
            }
            case 1: {
                const auto number = Value<int64_t>(mChoices.Bytes(8));
                Expect(mModel.WriteFixed(model, Image(number)), parcel.WriteInt64(number), "WriteInt64");
                break;
            }
            case 2:
                Expect(mModel.WriteFixed(model, Image(1.5F)), parcel.WriteFloat(1.5F), "WriteFloat");
                break;
            case 3:
                Expect(mModel.WriteFixed(model, Image(0.1)), parcel.WriteDouble(0.1), "WriteDouble");
                break;
            case 4: {
                const auto* pointer = Value<const uint8_t*>(mChoices.Bytes(8));
                Expect(mModel.WriteFixed(model, Image(pointer)), parcel.WriteRawPointer(pointer),
                       "WriteRawPointer");
                break;
            }
            case 5: {
                const std::string text = RandomImage(META_TYPE_STRING, mChoices);
                model.strings.push_back(text);
                Expect(0, parcel.WriteString(text.c_str()), "WriteString");
                break;
            }
            case 6: {
                const std::string object = RandomImage(META_TYPE_OBJECT, mChoices);
                model.refs.push_back(object);
                Expect(0, parcel.WritePointer(ObjectOf(object)), "WritePointer");
                break;
            }
            default:  // up to its limit
                for (size_t i = mChoices.Below(256) * 20; i > 0; --i) {
                    Expect(mModel.WriteFixed(model, Image(int64_t{0})), parcel.WriteInt64(0), "WriteInt64");
                }
                break;
        }
    }

    void ReadParcel(MediaParam& parcel, ModelParcel& model)
    {
        switch (mChoices.Below(8)) {
            case 0:
                Expect(mModel.Read<int32_t>(model), parcel.ReadInt32(), "ReadInt32");
                break;
            case 1:
                Expect(mModel.Read<int64_t>(model), parcel.ReadInt64(), "ReadInt64");
                break;
            case 2:
                Expect(Image(mModel.Read<float>(model)), Image(parcel.ReadFloat()), "ReadFloat");
                break;
            case 3:
                Expect(Image(mModel.Read<double>(model)), Image(parcel.ReadDouble()), "ReadDouble");
                break;
            case 4:
                Expect(mModel.Read<uint8_t*>(model), parcel.ReadRawPointer(), "ReadRawPointer");
                break;
            case 5: {
                int64_t out = 77;
                const auto expected = mModel.ReadFixed(model, sizeof(out));
                Expect(expected ? 0 : ERR_NO_MORE, parcel.ReadInt64(&out), "ReadInt64(out)");
                Expect(expected ? Value<int64_t>(*expected) : 77, out, "out");
                break;
            }
            case 6: {
                const auto expected = Model::ReadNext(model.strings, model.stringIndex);
                const char* text = parcel.ReadString();
                Expect(expected.has_value(), text != nullptr, "ReadString");
                Expect(expected.value_or(""), std::string(text != nullptr ? text : ""), "string");
                break;
            }
            default:
                Expect(Model::ReadNext(model.refs, model.refIndex).value_or("0"),
                       ObjectImage(parcel.ReadPointer()), "ReadPointer");
                break;
        }
    }

    void CopyParcel(MediaParam& parcel, ModelParcel& model, const MediaParam& other, const ModelParcel& modelOther)
    {
        switch (mChoices.Below(6)) {
            case 0:
                parcel = MediaParam();
                model = ModelParcel();
                break;
            case 1:
                parcel = MediaParam(nullptr);
                mModel.log.emplace_back("Copy: Target pointer can not be nullptr");
                model = ModelParcel();
                model.capacity = 0;
                mModel.log.emplace_back("Copy:Copy failed, invalid size: 0.");
                break;
            default:
                parcel.Copy(&other);
                mModel.CopyParcel(model, modelOther);
                break;
        }
    }

    Choices mChoices;
    Model mModel;
    std::array<std::shared_ptr<MediaMeta>, 2> mMetas{MediaMeta::Create(), MediaMeta::Create()};
    std::array<ModelMeta, 2> mModelMetas;
    std::array<MediaParam, 2> mParcels;
    std::array<ModelParcel, 2> mModelParcels;
};

}  // namespace

std::string RunModel(const uint8_t* data, size_t size, const std::function<std::vector<std::string>()>& takeLog)
{
    Run run(data, size);
    takeLog();
    for (int step = 0; !run.IsOver(); ++step) {
        try {
            run.Step();
            run.Compare();
        } catch (const std::runtime_error& difference) {
            return "step " + std::to_string(step) + ": " + difference.what();
        }
        Texts log = takeLog();
        for (std::string& line : log) {
            if (line.compare(0, 5, "name ") == 0) {
                line = "name ...";  // the rest of it is addresses
            }
        }
        if (log != run.ExpectedLog()) {
            return "step " + std::to_string(step) + ": log lines differ";
        }
        run.ExpectedLog().clear();
    }
    return {};
}
