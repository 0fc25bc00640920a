#include "osal/memfd.h"
#include "support.h"
#include "system.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

std::string Error(const std::string& text) { return "E Memoryfd: " + text; }

}  // namespace

TEST(Memfd, RefusesBadNamesAndSizesAndLeavesNothingOpen)
{
    const int lowestFree = dup(2);
    close(lowestFree);
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
    EXPECT_EQ(lowestFree, dup(2));
    close(lowestFree);
}

TEST(Memfd, TellsRegionsFromOtherDescriptors)
{
    const int kept[] = {dup(0), dup(1)};
    close(0);
    const LogCapture log;
    FailCall("fcntl", EMFILE);
    EXPECT_EQ(-1, osal::MemfdCreateRegion("n", 1));  // 0 is free, and cannot be duplicated
    FailCall(nullptr);
    close(1);
    const int lowest = osal::MemfdCreateRegion("region", 1);  // a region is never descriptor 0
    const bool isLowestValid = osal::MemfdIsValid(lowest) && fcntl(lowest, F_GETFD) == 0;
    const bool isZeroOpen = fcntl(0, F_GETFD) != -1;
    dup2(lowest, 0);
    dup2(kept[1], 1);
    EXPECT_EQ(1, lowest);
    EXPECT_TRUE(isLowestValid && !isZeroOpen);
    const int regular = open("/proc/self/exe", O_RDONLY);
    LogLines expected{Error("MemfdCreateRegion(n, 1) failed: 24.")};
    for (const int fd : {0, -1, /*closed*/ 12345, regular}) {
        EXPECT_FALSE(osal::MemfdIsValid(fd));
        EXPECT_EQ(-1, osal::MemfdGetRegionSize(fd));
        EXPECT_EQ(-1, osal::MemfdSetProtRegion(fd, -1));  // logs nothing
        EXPECT_EQ(-1, osal::MemfdSetProtRegion(fd, PROT_READ | PROT_WRITE));
        expected.insert(expected.end(), 3, Error("Invalid memfd: " + std::to_string(fd)));
    }
    EXPECT_EQ(expected, log.Lines());
    dup2(kept[0], 0);
    for (const int fd : {kept[0], kept[1], regular}) {
        close(fd);
    }
}

TEST(Memfd, CreatesRegionsThatSurviveExecAndCanBeWriteProtectedForGood)
{
    const LogCapture log;
    const int region = osal::MemfdCreateRegion("region", 5000);
    EXPECT_TRUE(osal::MemfdGetRegionSize(region) == 5000 && lseek(region, 0, SEEK_CUR) == 0);
    EXPECT_EQ(0, fcntl(region, F_GETFD));
    EXPECT_EQ("/memfd:region (deleted)", std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(region)));
    const int sealsBefore = fcntl(region, F_GET_SEALS);
    EXPECT_EQ(-1, osal::MemfdSetProtRegion(region, 0));
    EXPECT_EQ(0, osal::MemfdSetProtRegion(region, PROT_WRITE));
    EXPECT_EQ(sealsBefore, fcntl(region, F_GET_SEALS));
    for (const int prot : {PROT_READ | PROT_EXEC, PROT_READ, PROT_READ | PROT_WRITE}) {
        EXPECT_EQ(0, osal::MemfdSetProtRegion(region, prot));
        EXPECT_EQ(sealsBefore | 0x10, fcntl(region, F_GET_SEALS));  // F_SEAL_FUTURE_WRITE, and no other
    }
    EXPECT_EQ(LogLines(2, "D Memoryfd: Only proceed if the fd needs to be write-protected."), log.Lines());
    EXPECT_TRUE(fcntl(region, F_ADD_SEALS, F_SEAL_SEAL) == 0 && osal::MemfdIsValid(region));
    close(region);
}

TEST(Memfd, GivesNoWrongSize)
{
    const int region = osal::MemfdCreateRegion("region", INT_MAX + 1UL);
    const LogCapture log;
    EXPECT_EQ(-1, osal::MemfdGetRegionSize(region));
    EXPECT_EQ(LogLines{Error("MemfdGetRegionSize(" + std::to_string(region) +
                             "): size 2147483648 is more than an int holds.")},
              log.Lines());
    EXPECT_EQ(0, ftruncate(region, INT_MAX));
    EXPECT_EQ(INT_MAX, osal::MemfdGetRegionSize(region));
    close(region);
}
