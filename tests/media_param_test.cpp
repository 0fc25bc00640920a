#include "osal/media_param.h"
#include "support.h"

#include <cstring>
#include <gtest/gtest.h>

using osal::ERR_NO_MORE;
using osal::MediaParam;
using osal::MediaRefBase;

namespace {

LogLine Error(const char* text)
{
    return {ANDROID_LOG_ERROR, "MediaParam", text};
}

const LogLine WRITE_FAILED = Error("WriteFixed failed: ERR_NO_MORE.");
const LogLine READ_FAILED = Error("ReadFixed failed: ERR_NO_MORE.");

// A parcel as a failed copy leaves it.
void ExpectNoStore(MediaParam& param)
{
    const LogCapture log;
    EXPECT_EQ(ERR_NO_MORE, param.WriteInt32(1));
    EXPECT_EQ(0, param.ReadInt64());
    EXPECT_EQ((LogLines{WRITE_FAILED, READ_FAILED}), log.Lines());
    EXPECT_EQ(nullptr, param.ReadString());
    EXPECT_EQ(nullptr, param.ReadPointer());
    EXPECT_EQ(0, param.WriteString("still takes strings"));
}

}  // namespace

TEST(MediaParamFixed, FillsItsStoreToTheLastByte)
{
    const LogCapture log;
    MediaParam narrow;
    int32_t written = 0;
    while (narrow.WriteInt32(written) == 0) {
        ++written;
    }
    EXPECT_EQ(8192, written);
    for (int32_t i = 0; i < written; ++i) {
        ASSERT_EQ(i, narrow.ReadInt32());
    }
    MediaParam wide;
    for (written = 0; written < 4095; ++written) {
        ASSERT_EQ(0, wide.WriteInt64(written));
    }
    EXPECT_EQ(0, wide.WriteInt32(1));
    EXPECT_EQ(ERR_NO_MORE, wide.WriteDouble(1));
    EXPECT_EQ(0, wide.WriteFloat(1));
    EXPECT_EQ((LogLines{WRITE_FAILED, WRITE_FAILED}), log.Lines());
}

TEST(MediaParamFixed, ReadsIntoPlacesAndLeavesThemAloneOnFailure)
{
    uint8_t byte = 0;
    MediaParam param;
    param.WriteInt32(INT32_MIN);
    param.WriteInt64(INT64_MIN);
    param.WriteFloat(-1.5F);
    param.WriteDouble(0.1);
    param.WriteRawPointer(&byte);
    int32_t int32 = 0;
    int64_t int64 = 0;
    float single = 0;
    double wide = 0;
    uint8_t* pointer = nullptr;
    const LogCapture log;
    for (const int32_t expected : {0, ERR_NO_MORE}) {
        EXPECT_EQ(expected, param.ReadInt32(&int32));
        EXPECT_EQ(expected, param.ReadInt64(&int64));
        EXPECT_EQ(expected, param.ReadFloat(&single));
        EXPECT_EQ(expected, param.ReadDouble(&wide));
        EXPECT_EQ(expected, param.ReadRawPointer(&pointer));
        EXPECT_TRUE(int32 == INT32_MIN && int64 == INT64_MIN && single == -1.5F && wide == 0.1 &&
                    pointer == &byte);
    }
    EXPECT_EQ(LogLines(5, READ_FAILED), log.Lines());
    EXPECT_EQ(ERR_NO_MORE, param.ReadInt32(nullptr));
    EXPECT_EQ(-1, param.WriteString(nullptr));
    EXPECT_EQ(nullptr, param.ReadString());
}

// What copies hold is compared with a model elsewhere.
TEST(MediaParamCopy, SharesObjectsAndSparesItself)
{
    auto ref = std::make_shared<MediaRefBase>();
    const std::weak_ptr<MediaRefBase> watch = ref;
    MediaParam source;
    source.WriteInt32(1);
    source.WriteInt32(2);
    source.WritePointer(ref);
    ref.reset();
    EXPECT_EQ(1, source.ReadInt32());
    MediaParam copy(source);
    source = *&source;  // neither contents nor positions change
    EXPECT_EQ(2, source.ReadInt32());
    EXPECT_EQ(1, copy.ReadInt32());
    source = MediaParam();
    EXPECT_EQ(watch.lock(), copy.ReadPointer());
    copy = MediaParam();
    EXPECT_TRUE(watch.expired());
}

TEST(MediaParamCopy, FailsIntoAParcelThatFailsCleanly)
{
    const LogCapture log;
    MediaParam storeless(nullptr);
    EXPECT_EQ(LogLines{Error("Copy: Target pointer can not be nullptr")}, log.Lines());
    ExpectNoStore(storeless);

    MediaParam param;
    param.WriteInt32(5);
    param.WriteString("s");
    param.Copy(nullptr);
    EXPECT_EQ(5, param.ReadInt32());
    param.WritePointer(std::make_shared<MediaRefBase>());
    const LogCapture copyLog;
    param = storeless;
    EXPECT_EQ(LogLines{Error("Copy:Copy failed, invalid size: 0.")}, copyLog.Lines());
    ExpectNoStore(param);
    param = MediaParam();
    EXPECT_EQ(0, param.WriteInt32(1));

    // A source whose store is gone, as no operation leaves it: the store is the first field.
    MediaParam broken;
    void* store = nullptr;
    memcpy(&store, static_cast<void*>(&broken), sizeof(store));
    memset(static_cast<void*>(&broken), 0, sizeof(store));
    const LogCapture brokenLog;
    param.Copy(&broken);
    EXPECT_EQ(LogLines{Error("Copy: memcpy failed.")}, brokenLog.Lines());
    memcpy(static_cast<void*>(&broken), &store, sizeof(store));
    ExpectNoStore(param);
}

TEST(MediaParamLifetime, LetsGoOfObjectsFromLastToFirst)
{
    struct Ref : MediaRefBase {
        Ref(std::vector<int>& list, int which) : released(list), number(which) {}
        ~Ref() override { released.push_back(number); }
        std::vector<int>& released;
        int number;
    };
    std::vector<int> released;
    {
        MediaParam param;
        for (int i = 0; i < 3; ++i) {
            param.WritePointer(std::make_shared<Ref>(released, i));
        }
    }
    EXPECT_EQ((std::vector<int>{2, 1, 0}), released);
}
