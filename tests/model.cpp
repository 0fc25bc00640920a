#include "model.h"

#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "support.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>

using namespace osal;
using testing::PrintToString;
using Meta = MediaMeta;
using Param = MediaParam;

namespace {

// --- Values

// The bytes of a number, a structure, a string or a buffer; for an object, its place in OBJECTS as a digit. None
// stands for a string or a buffer that is missing, and for types without a value.
using Image = std::optional<std::string>;

using BasePtr = std::shared_ptr<Meta::MetaBase>;

struct Object : Meta::MetaBase, MediaRefBase {};

const std::array OBJECTS{std::shared_ptr<Object>(), std::make_shared<Object>(), std::make_shared<Object>()};

template <typename T>
Image ImageOf(const T& value)
{
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}
template <typename T>
Image ImageOf(const std::shared_ptr<T>& object)
{
    return std::to_string(std::find(OBJECTS.begin(), OBJECTS.end(), object) - OBJECTS.begin());
}
Image ImageOf(const char* string) { return string ? Image(string) : std::nullopt; }
Image ImageOf(Meta::ByteBuffer buffer)
{
    return buffer.data ? Image({reinterpret_cast<char*>(buffer.data), buffer.size}) : std::nullopt;
}

// Zero or null for none. Strings and buffers point into the image.
template <typename T>
T ValueOf(const Image& image)
{
    T value{};
    if constexpr (std::is_same_v<T, const char*>) {
        value = image ? image->c_str() : nullptr;
    } else if constexpr (std::is_same_v<T, Meta::ByteBuffer>) {
        value = image ? T{image->size(), reinterpret_cast<uint8_t*>(const_cast<char*>(image->data()))} : T{};
    } else if constexpr (std::is_convertible_v<std::shared_ptr<Object>, T>) {
        value = OBJECTS.at(std::stoul(*image));
    } else if (image) {
        memcpy(&value, image->data(), std::min(image->size(), sizeof(value)));
    }
    return value;
}

// With a single value: as Dump() writes it.
template <typename... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 512> text{};
    snprintf(text.data(), text.size(), format, values...);
    return text.data();
}
std::string Format(const char* format, const char* s) { return Format<const char*>(format, s ? s : "(null)"); }
std::string Format(const char* format, Meta::ByteBuffer b)
{
    return Format(format, b.data ? "0x" : "(nil)", b.size);
}
std::string Format(const char* format, Meta::Fraction f) { return Format(format, f.num, f.den); }
std::string Format(const char* format, Meta::Rect r) { return Format(format, r.a, r.b, r.c, r.d); }
std::string Format(const char* format, const BasePtr& object) { return Format<void*>(format, object.get()); }

// --- What is known of each type

struct Type {
    MetaType type;
    const char* name;
    Image zero;  // what an entry holds that came from a parcel without its value
    size_t elements;  // in a parcel; 0 for types that are not carried
    const char* format;  // of the dump; null for types that are neither merged nor dumped
    std::function<std::string(const Image& image)> dump;
    // `apart` chooses the form with separate arguments, if there is one.
    std::function<bool(Meta&, const char* key, const Image& image, bool apart)> set;
    // `image` is what the outputs hold before the call, and after it.
    std::function<bool(const Meta&, const char* key, Image& image, bool apart)> get;
};

template <typename T, typename Argument>
Type Row(MetaType type, const char* name, bool (Meta::*set)(const char*, Argument),
         bool (Meta::*get)(const char*, T&) const, size_t elements = 0, const char* format = nullptr,
         bool (*setApart)(Meta&, const char*, T) = nullptr,
         bool (*getApart)(const Meta&, const char*, T&) = nullptr)
{
    Type row{type, name, ImageOf(T{}), elements, format, {}, {}, {}};
    row.dump = [=](const Image& image) { return Format(format, ValueOf<T>(image)); };
    row.set = [=](Meta& meta, const char* key, const Image& image, bool apart) {
        const T value = ValueOf<T>(image);
        return apart && setApart ? setApart(meta, key, value) : (meta.*set)(key, value);
    };
    row.get = [=](const Meta& meta, const char* key, Image& image, bool apart) {
        T value = ValueOf<T>(image);
        const bool found = apart && getApart ? getApart(meta, key, value) : (meta.*get)(key, value);
        image = ImageOf(value);
        return found;
    };
    return row;
}

// In the order of MetaType.
const std::array<Type, 17> TYPES{
    Type{},  // META_TYPE_NONE
    Row(META_TYPE_INT8, "int8", &Meta::SetInt8, &Meta::GetInt8),
    Row(META_TYPE_INT16, "int16", &Meta::SetInt16, &Meta::GetInt16),
    Row(META_TYPE_INT32, "int32", &Meta::SetInt32, &Meta::GetInt32, 1, "int32_t:%d"),
    Row(META_TYPE_INT64, "int64", &Meta::SetInt64, &Meta::GetInt64, 1, "int64_t:%ld"),
    Row(META_TYPE_UINT8, "uint8", &Meta::SetUint8, &Meta::GetUint8),
    Row(META_TYPE_UINT16, "uint16", &Meta::SetUint16, &Meta::GetUint16),
    Row(META_TYPE_UINT32, "uint32", &Meta::SetUint32, &Meta::GetUint32),
    Row(META_TYPE_UINT64, "uint64", &Meta::SetUint64, &Meta::GetUint64),
    Row(META_TYPE_FLOAT, "float", &Meta::SetFloat, &Meta::GetFloat, 1, "float:%f"),
    Row(META_TYPE_DOUBLE, "double", &Meta::SetDouble, &Meta::GetDouble, 1, "double:%f"),
    Row(META_TYPE_POINTER, "pointer", &Meta::SetPointer, &Meta::GetPointer, 1, "pointer:%p"),
    Row(META_TYPE_STRING, "string", &Meta::SetString, &Meta::GetString, 1, "string:%s"),
    Row<Meta::ByteBuffer, Meta::ByteBuffer>(
        META_TYPE_BYTE_BUFFER, "ByteBuffer", &Meta::SetByteBuffer, &Meta::GetByteBuffer, 0, "bytebuffer(%s, %zu)",
        [](auto& meta, auto key, auto value) { return meta.SetByteBuffer(key, value.data, value.size); },
        [](auto& meta, auto key, auto& value) {
            auto size = static_cast<int32_t>(value.size);
            const bool found = meta.GetByteBuffer(key, value.data, size);
            value.size = static_cast<size_t>(size);
            return found;
        }),
    Row<Meta::Fraction, Meta::Fraction>(
        META_TYPE_FRACTION, "fraction", &Meta::SetFraction, &Meta::GetFraction, 2, "fraction:(%d/%d)",
        [](auto& meta, auto key, auto value) { return meta.SetFraction(key, value.num, value.den); },
        [](auto& meta, auto key, auto& value) { return meta.GetFraction(key, value.num, value.den); }),
    Row<Meta::Rect, Meta::Rect>(
        META_TYPE_RECT, "rect", &Meta::SetRect, &Meta::GetRect, 4, "rect:(%d, %d, %d, %d)",
        [](auto& meta, auto key, auto rect) { return meta.SetRect(key, rect.a, rect.b, rect.c, rect.d); },
        [](auto& meta, auto key, auto& rect) { return meta.GetRect(key, rect.a, rect.b, rect.c, rect.d); }),
    Row(META_TYPE_OBJECT, "Object", &Meta::SetObject, &Meta::GetObject, 0, "object:%p"),
};

// For an unknown type, the row without anything.
const Type& TypeOf(int32_t type)
{
    const auto row = static_cast<size_t>(type);
    return TYPES[row < TYPES.size() ? row : 0];
}

// --- The model

struct ModelItem {
    int32_t type;
    Image image;
};

using ModelMeta = std::map<std::string, std::shared_ptr<ModelItem>>;  // copies share items

struct ModelSequence {
    std::vector<Image> written;
    size_t readCount = 0;

    int32_t Write(const Image& image)
    {
        written.push_back(image);
        return 0;
    }
    Image Read() { return readCount < written.size() ? written[readCount++] : std::nullopt; }
};

struct ModelParam {
    size_t capacity = MEDIA_PARAM_CAPACITY;
    std::string fixed;
    size_t readPos = 0;
    ModelSequence strings;
    ModelSequence objects;
};

// What the library should have logged in this step.
LogLines modelLog;

bool Set(ModelMeta& meta, const char* key, int32_t type, const Image& image)
{
    const bool isMissing = !image || (type == META_TYPE_BYTE_BUFFER && image->empty());
    if (type == META_TYPE_BYTE_BUFFER && (key == nullptr || isMissing)) {
        modelLog.push_back(Format("E MediaMeta: name %s, data %s, size %zu", key ? "0x" : "(nil)",
                                  image ? "0x" : "(nil)", image ? image->size() : 0));
    }
    if (key == nullptr || isMissing || (type == META_TYPE_FRACTION && ValueOf<Meta::Fraction>(image).den == 0)) {
        return false;
    }
    const auto item = meta.try_emplace(key, std::make_shared<ModelItem>(ModelItem{type, image})).first->second;
    const bool isSameType = item->type == type;
    item->image = isSameType ? image : item->image;
    return isSameType;
}

std::optional<ModelMeta> Copy(const ModelMeta& meta)
{
    ModelMeta copy;
    for (const auto& [key, item] : meta) {
        if (item->type != META_TYPE_STRING && item->type != META_TYPE_BYTE_BUFFER) {
            copy[key] = item;
        } else if (!Set(copy, key.c_str(), item->type, item->image)) {
            modelLog.push_back("E MediaMeta: Copy: copy " + key + " failed");
            return std::nullopt;
        }
    }
    return copy;
}

bool Merge(ModelMeta& meta, const ModelMeta& other)
{
    for (const auto& [key, item] : other) {
        if (!TypeOf(item->type).format) {
            modelLog.push_back("E MediaMeta: Merge: Should not be here mType: " + std::to_string(item->type));
        } else if (!Set(meta, key.c_str(), item->type, item->image)) {
            modelLog.push_back("E MediaMeta: Merge: Merge " + key + " failed");
            return false;
        }
    }
    return true;
}

void Dump(const ModelMeta& meta)
{
    modelLog.push_back("D MediaMeta: ######## MediaMeta dump debug");
    for (const auto& [key, item] : meta) {
        const Type& type = TypeOf(item->type);
        if (item->type == META_TYPE_NONE) {
            modelLog.push_back("D MediaMeta: empty item");
        } else if (!type.format) {
            modelLog.push_back("E MediaMeta: Dump: Unknown item: " + std::to_string(item->type));
        } else {
            modelLog.push_back("D MediaMeta: (" + key + ", " + type.dump(item->image) + ")");
        }
    }
}

int32_t WriteFixed(ModelParam& param, const Image& image)
{
    if (param.fixed.size() + image->size() > param.capacity) {
        modelLog.push_back("E MediaParam: WriteFixed failed: ERR_NO_MORE.");
        return ERR_NO_MORE;
    }
    param.fixed += *image;
    return 0;
}

Image ReadFixed(ModelParam& param, size_t sizeBytes)
{
    if (param.fixed.size() - param.readPos < sizeBytes) {
        modelLog.push_back("E MediaParam: ReadFixed failed: ERR_NO_MORE.");
        return std::nullopt;
    }
    param.readPos += sizeBytes;
    return param.fixed.substr(param.readPos - sizeBytes, sizeBytes);
}

bool CheckCarried(const std::string& verb, const std::string& operation, int32_t type)
{
    const Type& row = TypeOf(type);
    if (row.elements == 0) {
        const bool isOwner = type == META_TYPE_BYTE_BUFFER || type == META_TYPE_OBJECT;
        modelLog.push_back("E MediaMeta: " +
                           (isOwner ? "MediaParam doesn't support " + verb + row.name + " method"
                                    : operation + ": Should not be here mType: " + std::to_string(type)));
    }
    return row.elements > 0;
}

bool WriteMeta(const ModelMeta& meta, ModelParam& param)
{
    bool isCarried = true;
    WriteFixed(param, ImageOf(static_cast<int32_t>(meta.size())));
    for (const auto& [key, item] : meta) {
        WriteFixed(param, ImageOf(item->type));
        param.strings.Write(key);
        isCarried = CheckCarried("Write", "WriteToMediaParam", item->type) && isCarried;
        const Type& type = TypeOf(item->type);
        if (type.type == META_TYPE_STRING) {
            param.strings.Write(item->image.value_or(""));
        } else if (type.type == META_TYPE_FLOAT) {
            WriteFixed(param, ImageOf(double{ValueOf<float>(item->image)}));
        } else {
            for (size_t i = 0; i < type.elements; ++i) {
                const size_t sizeBytes = type.zero->size() / type.elements;
                WriteFixed(param, item->image->substr(i * sizeBytes, sizeBytes));
            }
        }
    }
    return isCarried;
}

Image ReadEntry(ModelParam& param, const Type& type)
{
    if (type.type == META_TYPE_STRING) {
        return param.strings.Read();
    }
    if (type.type == META_TYPE_FLOAT) {
        return ImageOf(static_cast<float>(ValueOf<double>(ReadFixed(param, sizeof(double)))));
    }
    Image image = type.zero;
    for (size_t i = 0; i < type.elements; ++i) {
        const size_t sizeBytes = type.zero->size() / type.elements;
        if (const Image element = ReadFixed(param, sizeBytes)) {
            image->replace(i * sizeBytes, sizeBytes, *element);
        }
    }
    return image;
}

bool ReadMeta(ModelMeta& meta, ModelParam& param)
{
    bool isComplete = true;
    const auto count = ValueOf<int32_t>(ReadFixed(param, sizeof(int32_t)));
    for (int32_t i = 0; i < count; ++i) {
        const auto type = ValueOf<int32_t>(ReadFixed(param, sizeof(int32_t)));
        if (const Image key = param.strings.Read()) {
            const Image image = ReadEntry(param, TypeOf(type));
            isComplete = CheckCarried("Read", "ReadFromMediaParam", type) && image && isComplete;
            meta[*key] = std::make_shared<ModelItem>(ModelItem{type, image});
        }
    }
    return isComplete;
}

void Copy(ModelParam& param, const ModelParam* other)
{
    if (other == nullptr) {
        modelLog.push_back("E MediaParam: Copy: Target pointer can not be nullptr");
    } else if (other != &param) {
        if (other->capacity == 0) {
            modelLog.push_back("E MediaParam: Copy:Copy failed, invalid size: 0.");
        }
        param = other->capacity == 0 ? ModelParam{0, {}, 0, {}, {}} : *other;
        param.readPos = param.strings.readCount = param.objects.readCount = 0;
    }
}

// --- The run of both

struct Choices {
    const uint8_t* next;
    const uint8_t* end;

    // 0 to limit - 1; 0 when they are used up.
    size_t Below(size_t limit) { return next == end ? 0 : *next++ % limit; }

    std::string Bytes(size_t size)
    {
        std::string bytes(size, '\0');
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(Below(256)); });
        return bytes;
    }
};

Image RandomImage(const Type& type, Choices& choices, bool mayBeNull = false)
{
    switch (type.type) {
        case META_TYPE_STRING: {
            const std::string text = choices.Bytes(choices.Below(4) * 8).c_str();  // often empty
            return mayBeNull && text.size() < 3 ? std::nullopt : Image(text);
        }
        case META_TYPE_BYTE_BUFFER: return choices.Bytes(choices.Below(24));
        case META_TYPE_OBJECT: return ImageOf(OBJECTS[choices.Below(OBJECTS.size())]);
        case META_TYPE_FRACTION: return choices.Bytes(4) + *ImageOf(static_cast<int32_t>(choices.Below(3)) - 1);
        // Numbers alone: widening a signalling NaN changes its bits.
        case META_TYPE_FLOAT: return ImageOf(static_cast<float>(choices.Below(256)) / 8);
        // 0.0, -0.0, or what no float holds.
        case META_TYPE_DOUBLE:
            return ImageOf((choices.Below(2) == 0 ? -0.1 : 0.1) * static_cast<double>(choices.Below(3)));
        default: return choices.Bytes(type.zero->size());
    }
}

// The model cannot know the addresses of keys and buffers inside a container: "0x" stands for them.
LogLines WithoutAddresses(LogLines lines)
{
    for (std::string& line : lines) {
        for (const char* const before : {"name 0x", "data 0x", "bytebuffer(0x"}) {
            if (const size_t begin = line.find(before); begin != std::string::npos) {
                line.replace(begin, line.find_first_of(",)", begin) - begin, before);
            }
        }
    }
    return lines;
}

struct Side {
    std::shared_ptr<Meta> meta = Meta::Create();
    ModelMeta modelMeta;
    Param param;
    ModelParam modelParam;
};

template <typename T>
void Expect(const std::string& what, const T& expected, const T& actual)
{
    if (!(expected == actual)) {
        throw std::runtime_error(what + " differs: expected " + PrintToString(expected) + ", actual " +
                                 PrintToString(actual));
    }
}

std::string NameOf(const char* key) { return key ? PrintToString(std::string(key)) : "null"; }

// `image` is what the outputs hold before the call.
void CompareGet(const Side& side, const char* key, const Type& type, Image image, bool apart)
{
    const auto entry = key ? side.modelMeta.find(key) : side.modelMeta.end();
    const bool hasKey = entry != side.modelMeta.end();
    const bool isFound = hasKey && entry->second->type == type.type;
    const Image expected = isFound ? entry->second->image : image;
    const std::string what = std::string(type.name) + " of " + NameOf(key);
    Expect("presence of " + what, isFound, type.get(*side.meta, key, image, apart));
    Expect(what, expected, image);
    Expect("ContainsKey()", hasKey, side.meta->ContainsKey(key));
}

void Compare(const Side& side)
{
    auto it = side.meta->Begin();
    for (const auto& [key, item] : side.modelMeta) {
        Expect("end", true, it != side.meta->End());
        Expect("key", key, it.Key());
        Expect("type of " + PrintToString(key), item->type, int32_t{it.Value()->mType});
        if (const Type& type = TypeOf(item->type); type.get) {
            // Before the call, the outputs hold "2": neither zero nor an empty object.
            CompareGet(side, key.c_str(), type, "2", /*apart=*/false);
        }
        ++it;
    }
    Expect("end", true, it == side.meta->End());
}

struct Run {
    std::array<Side, 2> sides;
    Choices choices{};
    std::ostringstream steps;  // what was done so far, for people

    void Step(const uint8_t* data)
    {
        choices = {data, data + STEP_BYTES};
        const LogCapture log;
        modelLog.clear();
        Operate();
        Expect("log", WithoutAddresses(modelLog), WithoutAddresses(log.Lines()));
        Compare(sides[0]);
        Compare(sides[1]);
    }

    void Operate()
    {
        static constexpr std::array<const char*, 8> keys{
            nullptr, "", "a", "ab", "B", "width", "a key that is longer than the short ones", "\xff"};
        // "write" and "read" transfer the container, "put" and "take" one value.
        static constexpr std::array<const char*, 14> operations{"set",  "set",   "set",  "get",   "get",
                                                                "copy", "merge", "dump", "write", "read",
                                                                "read", "put",   "take", "assign"};
        const size_t here = choices.Below(sides.size());
        const size_t there = choices.Below(sides.size());
        Side& side = sides[here];
        auto& [meta, model, param, modelParam] = side;
        Side& other = sides[there];
        const size_t keyNumber = choices.Below(keys.size());
        const char* const key = keys[keyNumber];
        const bool isNull = key == nullptr;  // then the other container or parcel is null too
        // Often the type that belongs to the key, so that entries are set more than once.
        const Type& type =
            TYPES[choices.Below(2) == 0 ? TYPES.size() - 1 - keyNumber : 1 + choices.Below(TYPES.size() - 1)];
        const bool apart = choices.Below(2) == 1;
        const std::string operation = operations[choices.Below(operations.size())];
        // No operation uses all of these.
        steps << "  " << operation << ": here " << here << ", other " << there << ", key " << NameOf(key) << ", "
              << type.name << (apart ? ", apart\n" : "\n");
        if (operation == "set") {
            const Image image = RandomImage(type, choices, /*mayBeNull=*/apart);
            steps << "    " << PrintToString(image) << '\n';
            Expect("result", Set(model, key, type.type, image), type.set(*meta, key, image, apart));
        } else if (operation == "get") {
            CompareGet(side, key, type, RandomImage(type, choices), apart);
        } else if (operation == "copy") {
            const auto modelCopy = Copy(model);
            const auto copy = meta->Copy();
            Expect("result", modelCopy.has_value(), copy != nullptr);
            if (copy) {
                other.meta = copy;
                other.modelMeta = *modelCopy;
            }
        } else if (operation == "merge") {
            Expect("result", !isNull && Merge(model, other.modelMeta), meta->Merge(isNull ? nullptr : other.meta));
        } else if (operation == "dump" && choices.Below(4) == 0) {
            steps << "    not dumped but destroyed\n";
            meta->Destroy();
            model.clear();
        } else if (operation == "dump") {
            meta->Dump();
            Dump(model);
        } else if (operation == "write") {
            Expect("result", !isNull && WriteMeta(model, other.modelParam),
                   meta->WriteToMediaParam(isNull ? nullptr : &other.param));
        } else if (operation == "read") {
            const auto count = ValueOf<int32_t>(other.modelParam.fixed.substr(other.modelParam.readPos, 4));
            if (isNull || count < 100) {  // a count is taken at its word
                Expect("result", !isNull && ReadMeta(model, other.modelParam),
                       meta->ReadFromMediaParam(isNull ? nullptr : &other.param));
            }
        } else if (operation == "put") {
            Transfer(side, WRITE);
        } else if (operation == "take") {
            Transfer(side, apart ? READ_TO_OUTPUT : READ);
        } else {
            Assign(side, other);
        }
    }

    enum Direction { WRITE, READ, READ_TO_OUTPUT };

    void Transfer(Side& side, Direction direction)
    {
        using P = Param;
        constexpr std::array kinds{"int32", "int64", "float", "double", "pointer", "string", "object", "object"};
        const size_t kind = choices.Below(direction == WRITE ? 8 : 7);
        steps << "    " << kinds.at(kind) << (direction == READ_TO_OUTPUT ? " to an output\n" : "\n");
        switch (kind) {
            case 0: return Transfer(side, direction, &P::WriteInt32, &P::ReadInt32, &P::ReadInt32);
            case 1: return Transfer(side, direction, &P::WriteInt64, &P::ReadInt64, &P::ReadInt64);
            case 2: return Transfer(side, direction, &P::WriteFloat, &P::ReadFloat, &P::ReadFloat);
            case 3: return Transfer(side, direction, &P::WriteDouble, &P::ReadDouble, &P::ReadDouble);
            case 4: return Transfer(side, direction, &P::WriteRawPointer, &P::ReadRawPointer, &P::ReadRawPointer);
            case 5: return Transfer(side, direction, &P::WriteString, &P::ReadString);
            default: return Transfer(side, direction, &P::WritePointer, &P::ReadPointer);
        }
    }

    template <typename T, typename Argument>
    void Transfer(Side& side, Direction direction, int32_t (Param::*write)(Argument), T (Param::*read)() const,
                  int32_t (Param::*readTo)(T*) const = nullptr)
    {
        auto& [meta, modelMeta, param, model] = side;
        constexpr bool isString = std::is_same_v<T, const char*>;
        const bool isFixed = readTo != nullptr;
        ModelSequence& sequence = isString ? model.strings : model.objects;
        if (direction == WRITE) {
            // As an int32, what reads as a count or a type, right or wrong.
            constexpr std::array<int32_t, 8> numbers{0, 1, 3, 12, 13, 17, -1, INT32_MIN};
            const Image image = std::is_same_v<T, int32_t> ? ImageOf(numbers[choices.Below(numbers.size())])
                                : isFixed
                                    ? choices.Bytes(sizeof(T) - 1) + "@"
                                    : RandomImage(TypeOf(isString ? META_TYPE_STRING : META_TYPE_OBJECT), choices);
            const size_t times = choices.Below(16) == 0 ? 4200 : 1;  // past the capacity, with 8 bytes each
            steps << "    " << PrintToString(image) << " times " << times << '\n';
            for (size_t i = 0; i < times; ++i) {
                Expect("result", isFixed ? WriteFixed(model, image) : sequence.Write(image),
                       (param.*write)(ValueOf<T>(image)));
            }
            Expect("result for a null string", -1, param.WriteString(nullptr));
            return;
        }
        const Image next = isFixed ? ReadFixed(model, sizeof(T)) : sequence.Read();
        if (!isFixed || direction == READ) {
            Expect("result", next ? next : ImageOf(T{}), ImageOf((param.*read)()));
            return;
        }
        auto output = ValueOf<T>("untouched");
        const Image before = ImageOf(output);
        Expect("result", next ? 0 : ERR_NO_MORE, (param.*readTo)(&output));
        Expect("output", next ? next : before, ImageOf(output));
        Expect("result for null", ERR_NO_MORE, (param.*readTo)(nullptr));
    }

    void Assign(Side& side, const Side& other)
    {
        constexpr std::array sources{"a new one, with an entry without its string", "null", "one without capacity",
                                     "the other", "the other"};
        const size_t source = choices.Below(sources.size());
        steps << "    " << sources[source] << '\n';
        if (source == 1) {
            side.param.Copy(nullptr);
            Copy(side.modelParam, nullptr);
        } else if (source == 2) {
            side.param = Param(nullptr);
            ModelParam empty{/*capacity=*/0, {}, 0, {}, {}};
            Copy(empty, nullptr);
            Copy(side.modelParam, &empty);
        } else {
            Side fresh;
            for (const int32_t number : {1, int32_t{META_TYPE_STRING}}) {
                fresh.param.WriteInt32(number);
                WriteFixed(fresh.modelParam, ImageOf(number));
            }
            fresh.param.WriteString("a");
            fresh.modelParam.strings.Write("a");
            const Side& from = source == 0 ? fresh : other;
            side.param = from.param;
            Copy(side.modelParam, &from.modelParam);
        }
        Transfer(side, READ, &Param::WritePointer, &Param::ReadPointer);  // the first one again
    }
};

}  // namespace

std::string RunModel(const uint8_t* data, size_t size)
{
    Run run;
    try {
        for (; size >= STEP_BYTES; data += STEP_BYTES, size -= STEP_BYTES) {
            run.Step(data);
        }
    } catch (const std::exception& error) {  // a difference, or what the library has thrown
        return run.steps.str() + error.what();
    }
    return {};
}
