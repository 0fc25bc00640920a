#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "support.h"

#include <cstring>
#include <gtest/gtest.h>

using osal::MediaMeta;
using osal::MediaParam;
using MetaItem = MediaMeta::MetaItem;

namespace {

constexpr const char* TAG = "MediaMeta";

LogLine Error(const std::string& text)
{
    return {ANDROID_LOG_ERROR, TAG, text};
}

std::vector<std::string> Keys(const MediaMeta& meta)
{
    std::vector<std::string> keys;
    for (auto it = meta.Begin(); it != meta.End(); ++it) {
        keys.push_back(it.Key());
    }
    return keys;
}

std::shared_ptr<MetaItem> ItemOf(const MediaMeta& meta, const std::string& key)
{
    auto it = meta.Begin();
    while (it != meta.End() && it.Key() != key) {
        ++it;
    }
    return it.Value();
}

uint8_t gBytes[] = {1, 2, 3, 0, 255};
const auto gObject = std::make_shared<MediaMeta::MetaBase>();

// An entry of each type under "k" and its number.
void FillWithEachType(MediaMeta& meta)
{
    EXPECT_TRUE(
        meta.SetInt8("k01", INT8_MIN) && meta.SetInt16("k02", INT16_MIN) && meta.SetInt32("k03", INT32_MAX) &&
        meta.SetInt64("k04", INT64_MAX) && meta.SetUint8("k05", UINT8_MAX) && meta.SetUint16("k06", UINT16_MAX) &&
        meta.SetUint32("k07", UINT32_MAX) && meta.SetUint64("k08", UINT64_MAX) && meta.SetFloat("k09", 1.5F) &&
        meta.SetDouble("k10", -0.25) && meta.SetPointer("k11", gBytes) && meta.SetString("k12", "text") &&
        meta.SetByteBuffer("k13", gBytes, 5) && meta.SetFraction("k14", 6, -4) &&
        meta.SetRect("k15", -1, INT32_MIN, 3, 0) && meta.SetObject("k16", gObject));
}

}  // namespace

// That types exclude each other, and what the operations do to values, is compared with a model elsewhere.
TEST(MediaMetaTypes, RefuseOthersAndLeaveOutputsAlone)
{
    const LogCapture log;
    MediaMeta meta;
    FillWithEachType(meta);
    const auto item = ItemOf(meta, "k03");
    EXPECT_TRUE(meta.SetInt32("k03", 7));
    EXPECT_FALSE(meta.SetInt64("k03", 8) || meta.SetUint32("k03", 8) || meta.SetInt32("k07", 8));
    EXPECT_EQ(item, ItemOf(meta, "k03"));
    EXPECT_EQ(7, item->mValue.int32Value);
    int32_t number = 5;
    double real = 5;
    const char* text = "untouched";
    std::shared_ptr<MediaMeta::MetaBase> object = gObject;
    MediaMeta::ByteBuffer block{5, gBytes};
    for (const char* key : {"k04", "no such key", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(meta.GetInt32(key, number) || meta.GetDouble(key, real) || meta.GetString(key, text) ||
                     meta.GetObject(key, object) || meta.GetByteBuffer(key, block) ||
                     meta.GetFraction(key, number, number) || meta.GetRect(key, number, number, number, number));
    }
    EXPECT_TRUE(number == 5 && real == 5 && object == gObject && block.size == 5 && block.data == gBytes);
    EXPECT_STREQ("untouched", text);
    EXPECT_FALSE(meta.SetInt32(nullptr, 1) || meta.SetString(nullptr, "x") || meta.SetObject(nullptr, gObject) ||
                 meta.SetFraction(nullptr, 1, 1) || meta.SetPointer(nullptr, nullptr));
    EXPECT_FALSE(meta.Merge(nullptr) || meta.WriteToMediaParam(nullptr) || meta.ReadFromMediaParam(nullptr));
    EXPECT_EQ(16U, Keys(meta).size());
    EXPECT_EQ(LogLines{}, log.Lines());
}

TEST(MediaMetaTypes, SeparateArgumentsMeanTheSameAsStructures)
{
    MediaMeta meta;
    EXPECT_FALSE(meta.SetFraction("f", 1, 0));
    EXPECT_FALSE(meta.SetFraction("f", MediaMeta::Fraction{1, 0}));
    EXPECT_FALSE(meta.ContainsKey("f"));
    EXPECT_TRUE(meta.SetFraction("f", 3, -4));
    EXPECT_TRUE(meta.SetRect("r", 1, 2, 3, 4));
    EXPECT_TRUE(meta.SetByteBuffer("b", gBytes, sizeof(gBytes)));
    // One variable for several outputs keeps what is written last.
    int32_t value = 0;
    EXPECT_TRUE(meta.GetFraction("f", value, value));
    EXPECT_EQ(-4, value);
    EXPECT_TRUE(meta.GetRect("r", value, value, value, value));
    EXPECT_EQ(4, value);
    EXPECT_FALSE(meta.GetFraction("r", value, value));
    EXPECT_FALSE(meta.GetRect("f", value, value, value, value));

    int32_t a = 0, b = 0, c = 0, d = 0;
    EXPECT_TRUE(meta.GetFraction("f", a, b));
    EXPECT_TRUE(a == 3 && b == -4);
    EXPECT_TRUE(meta.GetRect("r", a, b, c, d));
    EXPECT_TRUE(a == 1 && b == 2 && c == 3 && d == 4);

    uint8_t* data = nullptr;
    EXPECT_FALSE(meta.GetByteBuffer("r", data, value));
    EXPECT_TRUE(meta.GetByteBuffer("b", data, value));
    EXPECT_EQ(5, value);
    EXPECT_EQ(0, memcmp(data, gBytes, 5));
    ItemOf(meta, "b")->mValue.byteBufferValue.size = (1ULL << 32) + 3;
    MediaMeta::ByteBuffer whole{};
    EXPECT_TRUE(meta.GetByteBuffer("b", data, value) && meta.GetByteBuffer("b", whole));
    EXPECT_EQ(3, value);
    EXPECT_EQ((1ULL << 32) + 3, whole.size);
}

TEST(MediaMetaText, KeepsAnEqualTextAndCopiesADifferentOne)
{
    MediaMeta meta;
    std::string source = "x-text";
    EXPECT_TRUE(meta.SetString("s", source.c_str()));
    source[0] = 'y';
    const char* first = nullptr;
    EXPECT_TRUE(meta.GetString("s", first));
    EXPECT_STREQ("x-text", first);
    EXPECT_TRUE(meta.SetString("s", "x-text"));
    const char* again = nullptr;
    EXPECT_TRUE(meta.GetString("s", again));
    EXPECT_EQ(first, again);
    EXPECT_FALSE(meta.SetString("s", nullptr));
    EXPECT_FALSE(meta.SetString("other", nullptr));
    EXPECT_TRUE(meta.SetString("s", again + 2));  // a part of the entry's own text
    EXPECT_TRUE(meta.GetString("s", again));
    EXPECT_STREQ("text", again);
}

TEST(MediaMetaBytes, AreCopiedIntoAFreshBlockAndBadArgumentsLogged)
{
    MediaMeta meta;
    ASSERT_TRUE(meta.SetByteBuffer("b", gBytes, sizeof(gBytes)));
    MediaMeta::ByteBuffer own{};
    ASSERT_TRUE(meta.GetByteBuffer("b", own));
    const uint8_t* const before = own.data;
    EXPECT_TRUE(meta.SetByteBuffer("b", own));  // the entry's own block
    ASSERT_TRUE(meta.GetByteBuffer("b", own));
    EXPECT_NE(before, own.data);
    EXPECT_EQ(0, memcmp(own.data, gBytes, sizeof(gBytes)));

    const LogCapture log;
    const char* const key = "b";
    EXPECT_FALSE(meta.SetByteBuffer(key, gBytes, 0));
    EXPECT_FALSE(meta.SetByteBuffer(key, nullptr, 4));
    EXPECT_FALSE(meta.SetByteBuffer(nullptr, gBytes, 4));
    EXPECT_TRUE(meta.SetInt32("i", 1));
    EXPECT_FALSE(meta.SetByteBuffer("i", gBytes, 4));
    const auto line = [](const void* name, const void* data, int size) {
        char text[100];
        snprintf(text, sizeof(text), "name %p, data %p, size %d", name, data, size);
        return Error(text);
    };
    EXPECT_EQ((LogLines{line(key, gBytes, 0), line(key, nullptr, 4), line(nullptr, gBytes, 4)}), log.Lines());
}

TEST(MediaMetaObjects, LiveAsLongAsTheyAreShared)
{
    auto first = std::make_shared<MediaMeta::MetaBase>();
    auto second = std::make_shared<MediaMeta::MetaBase>();
    const std::weak_ptr<MediaMeta::MetaBase> watchFirst = first;
    const std::weak_ptr<MediaMeta::MetaBase> watchSecond = second;
    MediaMeta meta;
    EXPECT_TRUE(meta.SetObject("o", first));
    first.reset();
    EXPECT_FALSE(watchFirst.expired());
    EXPECT_TRUE(meta.SetObject("o", second));
    EXPECT_TRUE(watchFirst.expired());
    second.reset();
    std::shared_ptr<MediaMeta::MetaBase> out = std::make_shared<MediaMeta::MetaBase>();
    EXPECT_TRUE(meta.GetObject("o", out));
    EXPECT_EQ(watchSecond.lock(), out);
    meta.Destroy();
    EXPECT_FALSE(watchSecond.expired());
    out.reset();
    EXPECT_TRUE(watchSecond.expired());
}

TEST(MediaMetaObjects, MayCallBackWhenTheyAreReleased)
{
    struct CallsBack : MediaMeta::MetaBase {
        explicit CallsBack(MediaMeta& owner) : meta(owner) {}
        ~CallsBack() override
        {
            std::shared_ptr<MediaMeta::MetaBase> object;
            meta.GetObject("o", object);
            meta.Destroy();
            meta.SetInt32("last words", 1);
        }
        MediaMeta& meta;
    };
    MediaMeta meta;
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(meta.SetObject("o", std::make_shared<CallsBack>(meta)));
        i == 0 ? meta.Destroy() : static_cast<void>(meta.SetObject("o", nullptr));
        EXPECT_EQ(std::vector<std::string>{"last words"}, Keys(meta));
    }
}

TEST(MediaMetaDestroy, EmptiesForAnyNewUseAndSparesItemsHeldElsewhere)
{
    auto meta = MediaMeta::Create();
    meta->Destroy();
    EXPECT_TRUE(meta->SetString("a", "text"));
    EXPECT_TRUE(meta->SetInt32("b", 1));
    EXPECT_NE(meta->Begin(), meta->End());
    const auto held = meta->Begin().Value();
    meta->Destroy();
    meta->Destroy();
    EXPECT_EQ(meta->Begin(), meta->End());
    EXPECT_FALSE(meta->ContainsKey("a"));
    EXPECT_TRUE(meta->SetDouble("a", 0.5));
    EXPECT_EQ("a", meta->Begin().Key());
    meta.reset();
    EXPECT_STREQ("text", held->mValue.stringValue);
    MetaItem::Destroy(nullptr);
}

TEST(MediaMetaIteration, WalksInKeyOrderAndStaysPutAtTheEnd)
{
    MediaMeta meta;
    EXPECT_EQ(meta.Begin(), meta.End());
    meta.SetInt32("m", 1);
    auto it = meta.Begin();
    EXPECT_EQ(it, meta.Begin());
    meta.SetInt32("a", 2);
    EXPECT_EQ("m", it.Key());
    it = meta.Begin();
    EXPECT_EQ("a", it.Key());
    EXPECT_EQ("a", (*it).Key());
    const auto next = it++;
    EXPECT_TRUE(next == it && !(next != it));
    EXPECT_EQ("m", next.Key());
    EXPECT_EQ(1, next.Value()->mValue.int32Value);
    for (int i = 0; i < 3; ++i, it++) {
        ++it;
        EXPECT_EQ(meta.End(), it);
        EXPECT_EQ("", it.Key());
        EXPECT_EQ(nullptr, it.Value());
    }
}

TEST(MediaMetaDump, WritesALineForEachType)
{
    MediaMeta meta;
    FillWithEachType(meta);
    MediaParam param;  // the way to entries without a value and of unknown types
    for (const int32_t value : {3, 0, 17, 12}) {
        param.WriteInt32(value);
    }
    for (const char* key : {"k00", "k17", "k99"}) {
        param.WriteString(key);
    }
    EXPECT_FALSE(meta.ReadFromMediaParam(&param));

    const LogCapture log;
    meta.Dump();
    const auto debug = [](const std::string& text) { return LogLine{ANDROID_LOG_DEBUG, TAG, text}; };
    const auto address = [](const void* pointer) {
        char text[32];
        snprintf(text, sizeof(text), "%p", pointer);
        return std::string(text);
    };
    const auto* block = ItemOf(meta, "k13")->mValue.byteBufferValue.data;
    EXPECT_EQ((LogLines{debug("######## MediaMeta dump debug"),
                        debug("empty item"),
                        Error("Dump: Unknown item: 1"),
                        Error("Dump: Unknown item: 2"),
                        debug("(k03, int32_t:2147483647)"),
                        debug("(k04, int64_t:9223372036854775807)"),
                        Error("Dump: Unknown item: 5"),
                        Error("Dump: Unknown item: 6"),
                        Error("Dump: Unknown item: 7"),
                        Error("Dump: Unknown item: 8"),
                        debug("(k09, float:1.500000)"),
                        debug("(k10, double:-0.250000)"),
                        debug("(k11, pointer:" + address(gBytes) + ")"),
                        debug("(k12, string:text)"),
                        debug("(k13, bytebuffer(" + address(block) + ", 5))"),
                        debug("(k14, fraction:(6/-4))"),
                        debug("(k15, rect:(-1, -2147483648, 3, 0))"),
                        debug("(k16, object:" + address(gObject.get()) + ")"),
                        Error("Dump: Unknown item: 17"),
                        debug("(k99, string:(null))")}),
              log.Lines());
}

TEST(MediaMetaParcel, CarriesTheSequenceThatReadersRelyOn)
{
    MediaMeta meta;
    MediaParam empty;
    EXPECT_TRUE(meta.WriteToMediaParam(&empty));
    EXPECT_TRUE(meta.ReadFromMediaParam(&empty));
    meta.SetInt32("a", 5);
    meta.SetString("b", "x");
    meta.SetFloat("c", 1.5F);
    MediaParam param;
    EXPECT_TRUE(meta.WriteToMediaParam(&param));
    for (const int32_t expected : {3, 3, 5, 12, 9}) {
        EXPECT_EQ(expected, param.ReadInt32());
    }
    EXPECT_EQ(1.5, param.ReadDouble());
    int32_t rest = 0;
    EXPECT_EQ(osal::ERR_NO_MORE, param.ReadInt32(&rest));
    for (const char* expected : {"a", "b", "x", "c"}) {
        EXPECT_STREQ(expected, param.ReadString());
    }
    EXPECT_EQ(nullptr, param.ReadString());

    MediaMeta reader;
    reader.SetString("a", "of another type");
    reader.SetInt8("stays", 1);
    const MediaParam again(param);
    const LogCapture log;
    EXPECT_TRUE(reader.ReadFromMediaParam(&again));
    EXPECT_EQ(LogLines{}, log.Lines());
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "stays"}), Keys(reader));
    int32_t number = 0;
    EXPECT_TRUE(reader.GetInt32("a", number));
    EXPECT_EQ(5, number);
    EXPECT_NE(ItemOf(meta, "a"), ItemOf(reader, "a"));
}

TEST(MediaMetaParcel, SurvivesWhatIsMissing)
{
    MediaParam param;
    for (const int32_t value : {5, 14, 1, 0, 12}) {  // a fraction 1/0, a text without its text, three more
        param.WriteInt32(value);
    }
    param.WriteString("fraction");
    param.WriteString("text");
    auto meta = MediaMeta::Create();
    const LogCapture log;
    EXPECT_FALSE(meta->ReadFromMediaParam(&param));
    EXPECT_EQ(3U, log.Lines("MediaParam").size());
    EXPECT_EQ(LogLines{}, log.Lines(TAG));
    MediaMeta::Fraction fraction{};
    EXPECT_TRUE(meta->GetFraction("fraction", fraction) && fraction.num == 1 && fraction.den == 0);
    const char* text = "untouched";
    EXPECT_TRUE(meta->GetString("text", text));
    EXPECT_EQ(nullptr, text);

    EXPECT_TRUE(meta->SetString("text", "set at last"));
    EXPECT_TRUE(meta->GetString("text", text));
    EXPECT_STREQ("set at last", text);
}
