// Identity, sharing, lifetimes and addresses, which the model does not have. It has all other behaviour.

#include "osal/media_meta.h"

#include "osal/media_param.h"
#include "support.h"

#include <gtest/gtest.h>
#include <thread>
#include <type_traits>

using osal::MediaMeta;
using osal::MediaParam;
using osal::MediaRefBase;
using MetaItem = MediaMeta::MetaItem;

static_assert(osal::MEDIA_PARAM_CAPACITY == 32768 && osal::ERR_NO_MORE == -1);
static_assert(!std::is_nothrow_move_constructible_v<MediaParam>, "a parcel is copied, never moved from");

namespace {

std::string Address(const void* address) { return testing::PrintToString(address); }

uint8_t gBytes[] = {1, 2, 3, 0, 255};

}  // namespace

TEST(MediaMeta, KeepsAnEqualStringAndCopiesADifferentOne)
{
    MediaMeta meta;
    std::string source = "x-text";
    EXPECT_TRUE(meta.SetString("s", source.c_str()));
    source[0] = 'y';
    const auto item = meta.Begin().Value();
    const char* first = nullptr;
    EXPECT_TRUE(meta.GetString("s", first));
    EXPECT_STREQ("x-text", first);
    EXPECT_TRUE(meta.SetString("s", "x-text"));
    EXPECT_EQ(first, item->mValue.stringValue);
    EXPECT_TRUE(meta.SetString("s", first + 2));  // a part of the entry's own string
    EXPECT_STREQ("text", item->mValue.stringValue);
    EXPECT_EQ(item, meta.Begin().Value());
}

TEST(MediaMeta, CopiesBytesIntoANewBlockAndLogsBadArguments)
{
    MediaMeta meta;
    const char* const key = "b";
    ASSERT_TRUE(meta.SetByteBuffer(key, gBytes, sizeof(gBytes)));
    MediaMeta::ByteBuffer& own = meta.Begin().Value()->mValue.byteBufferValue;
    const uint8_t* const before = own.data;
    EXPECT_TRUE(meta.SetByteBuffer(key, own));  // the entry's own block
    EXPECT_NE(before, own.data);
    EXPECT_EQ(255, own.data[4]);

    const LogCapture log;
    meta.Dump();
    EXPECT_FALSE(meta.SetByteBuffer(key, gBytes, 0));
    EXPECT_FALSE(meta.SetByteBuffer(key, nullptr, 4));
    EXPECT_EQ("D MediaMeta: (b, bytebuffer(" + Address(own.data) + ", 5))", log.Lines()[1]);
    EXPECT_EQ("E MediaMeta: name " + Address(key) + ", data " + Address(gBytes) + ", size 0", log.Lines()[2]);
    EXPECT_EQ("E MediaMeta: name " + Address(key) + ", data (nil), size 4", log.Lines()[3]);

    own.size = (1ULL << 32) + 3;
    uint8_t* data = nullptr;
    int32_t size = 0;
    EXPECT_TRUE(meta.GetByteBuffer(key, data, size));
    EXPECT_TRUE(size == 3 && data == own.data);
}

TEST(MediaMeta, LetsObjectsCallBackWhenTheyAreReleased)
{
    struct CallsBack : MediaMeta::MetaBase {
        explicit CallsBack(MediaMeta& owner) : meta(owner) {}
        ~CallsBack() override
        {
            std::shared_ptr<MediaMeta::MetaBase> object;
            meta.GetObject("o", object);
            EXPECT_EQ(meta.ContainsKey("o"), meta.Begin() != meta.End());
            meta.Destroy();
            meta.SetInt32("last words", 1);
        }
        MediaMeta& meta;
    };
    for (const bool isDestroyed : {true, false}) {
        MediaMeta meta;
        EXPECT_TRUE(meta.SetObject("o", std::make_shared<CallsBack>(meta)));
        isDestroyed ? meta.Destroy() : static_cast<void>(meta.SetObject("o", nullptr));
        EXPECT_EQ("last words", meta.Begin().Key());
        EXPECT_FALSE(meta.ContainsKey("o"));
        meta.Destroy();
        EXPECT_TRUE(meta.SetObject("o", std::make_shared<CallsBack>(meta)));
    }  // and while the container is destroyed
}

TEST(MediaMeta, DestroysItemsThatCreateDidNotMake)
{
    EXPECT_EQ(osal::META_TYPE_NONE, MetaItem::Create()->mType);
    MetaItem::Destroy(nullptr);
    MetaItem::Destroy(new MetaItem);  // the leak check notices what is not deleted
}

TEST(MediaMeta, MayBeReadByTwoThreads)
{
    MediaMeta meta;
    EXPECT_TRUE(meta.SetString("s", "text"));
    const auto read = [&] {
        const char* text = nullptr;
        EXPECT_TRUE(meta.GetString("s", text));
    };
    std::thread other(read);
    read();
    other.join();
}

TEST(MediaMeta, IteratorsKeepTheirPlaceAndStayAtTheEnd)
{
    MediaMeta meta;
    meta.SetInt32("m", 1);
    auto it = meta.Begin();
    meta.SetInt32("a", 2);
    EXPECT_EQ("m", it.Key());
    it = meta.Begin();
    EXPECT_EQ("a", (*it).Key());
    const auto next = it++;
    EXPECT_TRUE(next == it && !(next != it) && next != meta.Begin());
    EXPECT_EQ("m", next.Key());
    EXPECT_EQ(1, next.Value()->mValue.int32Value);
    MediaMeta other;
    other.SetInt32("only", 3);
    it = other.Begin();  // with its end
    EXPECT_EQ("only", it.Key());
    for (int i = 0; i < 3; ++i, it++) {
        ++it;
        EXPECT_EQ(other.End(), it);
        EXPECT_EQ("", it.Key());
        EXPECT_EQ(nullptr, it.Value());
    }
}

TEST(MediaParam, LetsGoOfObjectsFromLastToFirstAndMayBeCalledMeanwhile)
{
    struct Ref : MediaRefBase {
        Ref(MediaParam& owner, std::vector<int>& list, int which) : param(owner), released(list), number(which) {}
        ~Ref() override
        {
            released.push_back(number);
            param.WriteString("last words");
            param.WriteInt32(1);
            param.ReadString();
            param.ReadPointer();
        }
        MediaParam& param;
        std::vector<int>& released;
        int number;
    };
    const MediaParam storeless(nullptr);
    const MediaParam empty(MediaParam{});
    for (const MediaParam* over : {&empty, &storeless, static_cast<const MediaParam*>(nullptr)}) {
        std::vector<int> released;
        {
            MediaParam param;
            for (int i = 0; i < 3; ++i) {
                param.WritePointer(std::make_shared<Ref>(param, released, i));
            }
            param.Copy(over);
            EXPECT_EQ(over != nullptr ? 3U : 0U, released.size());
            EXPECT_EQ(nullptr, param.ReadString());
            const auto next = std::make_shared<MediaRefBase>();
            param.WritePointer(next);
            EXPECT_TRUE(over == nullptr ||
                        (param.ReadPointer() == next && next.use_count() == 3));  // the parcel has one
        }
        EXPECT_EQ((std::vector<int>{2, 1, 0}), released);
    }
}
