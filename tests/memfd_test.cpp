#include "osal/memfd.h"
#include "support.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

LogLine Error(const std::string& text) { return {ANDROID_LOG_ERROR, "Memoryfd", text}; }

class Region {
public:
    explicit Region(unsigned long size) : mFd(osal::MemfdCreateRegion("region", size)) { EXPECT_GE(mFd, 1); }
    ~Region() { close(mFd); }
    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;
    operator int() const { return mFd; }

private:
    int mFd;
};

}  // namespace

TEST(Memfd, CreatesSealableRegionsThatSurviveExec)
{
    const LogCapture log;
    const Region region(4096);
    EXPECT_TRUE(osal::MemfdIsValid(region));
    EXPECT_EQ(4096, osal::MemfdGetRegionSize(region));
    EXPECT_EQ(0, fcntl(region, F_GETFD));
    EXPECT_EQ(0, fcntl(region, F_GET_SEALS) & F_SEAL_SEAL);
    EXPECT_EQ(LogLines{}, log.Lines());
}

TEST(Memfd, RefusesBadNamesAndSizesAndLeavesNothingOpen)
{
    const size_t openBefore = OpenDescriptors();
    const std::string tooLong(250, 'n');
    const LogCapture log;
    EXPECT_EQ(-1, osal::MemfdCreateRegion("", 4096));
    EXPECT_EQ(-1, osal::MemfdCreateRegion("n", 0));
    EXPECT_EQ(-1, osal::MemfdCreateRegion(tooLong, 4096));
    EXPECT_EQ(-1, osal::MemfdCreateRegion("n", ULONG_MAX));
    EXPECT_EQ((LogLines{Error("Is memfd name:   empty or size: 4096 less than zero?"),
                        Error("Is memfd name: n  empty or size: 0 less than zero?"),
                        Error("MemfdCreateRegion(" + tooLong + ", 4096) failed: 22."),
                        Error("ftruncate(n, -1) failed for memfd creation: 22.")}),
              log.Lines());
    EXPECT_EQ(openBefore, OpenDescriptors());
}

TEST(Memfd, TellsRegionsFromOtherDescriptors)
{
    const Region region(4096);
    const int kept = dup(0);
    const int keptOutput = dup(1);
    ASSERT_EQ(1, dup2(region, 1));  // which does
    EXPECT_TRUE(osal::MemfdIsValid(1));
    EXPECT_EQ(1, dup2(keptOutput, 1));
    ASSERT_EQ(0, dup2(region, 0));  // which never counts as one
    const int regular = open("/proc/self/exe", O_RDONLY);
    const int closed = dup(regular);
    close(closed);
    LogLines expected;
    const LogCapture log;
    for (const int fd : {0, -1, closed, regular}) {
        EXPECT_FALSE(osal::MemfdIsValid(fd));
        EXPECT_EQ(-1, osal::MemfdGetRegionSize(fd));
        EXPECT_EQ(-1, osal::MemfdSetProtRegion(fd, PROT_READ));
        EXPECT_EQ(-1, osal::MemfdSetProtRegion(fd, PROT_READ | PROT_WRITE));
        EXPECT_EQ(-1, osal::MemfdSetProtRegion(fd, 0));
        expected.insert(expected.end(), 4, Error("Invalid memfd: " + std::to_string(fd)));
    }
    EXPECT_EQ(expected, log.Lines());
    // Nor is one handed out there, and no descriptor is left behind.
    close(0);
    const size_t openBefore = OpenDescriptors();
    const int moved = osal::MemfdCreateRegion("region", 1);
    EXPECT_GE(moved, 1);
    EXPECT_EQ(openBefore + 1, OpenDescriptors());
    EXPECT_EQ(1, osal::MemfdGetRegionSize(moved));
    EXPECT_EQ(0, dup2(kept, 0));
    for (const int fd : {moved, regular, kept, keptOutput}) {
        close(fd);
    }
}

TEST(Memfd, WriteProtectsForGood)
{
    const Region region(4096);
    const int sealsBefore = fcntl(region, F_GET_SEALS);
    const LogCapture log;
    EXPECT_EQ(-1, osal::MemfdSetProtRegion(region, 0));
    EXPECT_EQ(-1, osal::MemfdSetProtRegion(region, -1));
    EXPECT_EQ(LogLines{}, log.Lines());
    EXPECT_EQ(0, osal::MemfdSetProtRegion(region, PROT_READ | PROT_WRITE));
    const LogLines skipped{{ANDROID_LOG_DEBUG, "Memoryfd", "Only proceed if the fd needs to be write-protected."}};
    EXPECT_EQ(skipped, log.Lines());
    EXPECT_EQ(sealsBefore, fcntl(region, F_GET_SEALS));
    for (const int prot : {PROT_READ, PROT_READ | PROT_EXEC, PROT_READ | PROT_WRITE}) {
        EXPECT_EQ(0, osal::MemfdSetProtRegion(region, prot));
        EXPECT_EQ(sealsBefore | 0x10, fcntl(region, F_GET_SEALS));  // against future writes, and no other
    }
}

TEST(Memfd, GivesNoWrongSize)
{
    const Region largest(INT_MAX);
    EXPECT_EQ(INT_MAX, osal::MemfdGetRegionSize(largest));
    for (const unsigned long size : {1UL << 31, (1UL << 32) + 4096}) {
        const Region region(size);
        const LogCapture log;
        EXPECT_EQ(-1, osal::MemfdGetRegionSize(region));
        EXPECT_EQ(LogLines{Error("MemfdGetRegionSize(" + std::to_string(region) + "): size " +
                                 std::to_string(size) + " is more than an int holds.")},
                  log.Lines());
    }
}
