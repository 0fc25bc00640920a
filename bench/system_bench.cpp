// Threads, clocks and memory files beside the bare calls for the same.

#include "bench_util.h"

#include "osal/memfd.h"
#include "osal/thread.h"
#include "osal/utils.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace bench {

namespace {

// Times `work`, done `times` times in each iteration.
template <typename Work>
void Time(benchmark::State& state, uint64_t times, Work work)
{
    ItemTimer timer(state);
    for (auto _ : state) {
        const uint64_t beginNs = NowNs();
        for (uint64_t i = 0; i < times; ++i) {
            work();
        }
        timer.Add(NowNs() - beginNs, times);
    }
    timer.Report();
}

class Once : public osal::Thread {
public:
    ~Once() override { Stop(); }

private:
    bool Run() override { return false; }
};

constexpr const char* THREAD_NAME = "bench-worker";

void OsalStartStop(benchmark::State& state)
{
    Once thread;
    Time(state, 1, [&] {
        if (thread.Start(THREAD_NAME, osal::Thread::PRIORITY_DEFAULT) != 0) {
            state.SkipWithError("no thread");
        }
        thread.Stop();
    });
}

void StdStartStop(benchmark::State& state)
{
    Time(state, 1, [] {
        std::thread thread([] {
            prctl(PR_SET_NAME, THREAD_NAME, 0, 0, 0);
            sched_param param{};
            param.sched_priority = osal::Thread::PRIORITY_DEFAULT;
            pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
        });
        thread.join();
    });
}

constexpr uint64_t CLOCK_READINGS = 1'000;

void OsalClock(benchmark::State& state)
{
    Time(state, CLOCK_READINGS, [] { benchmark::DoNotOptimize(osal::GetTimeUsBoot()); });
}

void RawClock(benchmark::State& state)
{
    Time(state, CLOCK_READINGS, [] {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(now);
    });
}

constexpr const char* REGION_NAME = "bench-region";
constexpr int REGION_BYTES = 4'096;

void OsalMemfd(benchmark::State& state)
{
    Time(state, 1, [&] {
        const int fd = osal::MemfdCreateRegion(REGION_NAME, REGION_BYTES);
        if (osal::MemfdSetProtRegion(fd, PROT_READ) != 0 || osal::MemfdGetRegionSize(fd) != REGION_BYTES) {
            state.SkipWithError("no sealed region");
        }
        close(fd);
    });
}

void RawMemfd(benchmark::State& state)
{
    Time(state, 1, [&] {
        const int fd = memfd_create(REGION_NAME, MFD_ALLOW_SEALING);
        struct stat status {};
        if (ftruncate(fd, REGION_BYTES) != 0 || fcntl(fd, F_ADD_SEALS, F_SEAL_FUTURE_WRITE) != 0 ||
            fstat(fd, &status) != 0 || status.st_size != REGION_BYTES) {
            state.SkipWithError("no sealed region");
        }
        close(fd);
    });
}

const bool REGISTERED = [] {
    Register("thread/start_stop", "osal", OsalStartStop);
    Register("thread/start_stop", "std_thread", StdStartStop);
    Register("clock/boot_us", "osal", OsalClock);
    Register("clock/boot_us", "clock_gettime", RawClock);
    Register("memfd/create_seal_size_close", "osal", OsalMemfd);
    Register("memfd/create_seal_size_close", "raw_calls", RawMemfd);
    return true;
}();

}  // namespace

}  // namespace bench
