// Plays sound to a second process, 20 ms after 20 ms, each part at its presentation time:
//
//   file or pipe -> description (MediaMeta) -> parcel (MediaParam) -> player -> one message a slot (MsgQueue)
//        |                                                              |
//        +-----> samples in slots of a memory-file region --------> sink process -> WAV file
//
// The region is sealed while the pipeline has it mapped: the pipeline goes on writing, and nobody else can.
// Samples do not change. The output appears complete or not at all, also when an interrupt ends the two processes.

#include "input.h"
#include "sink.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <error.h>
#include <fcntl.h>
#include <getopt.h>
#include <map>
#include <memory>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <osal/memfd.h>
#include <osal/msg_queue.h>
#include <osal/utils.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr int SLOTS = 50;  // of 20 ms: a second

struct Options {
    std::string input = OSAL_SAMPLE_WAV;
    std::string output;
    double speed = 1.0;  // 0: as fast as it can
};

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error(what); }

Options ParseOptions(int argc, char** argv)
{
    const option longOptions[] = {
        {"help", 0, nullptr, 'h'}, {"speed", 1, nullptr, 's'}, {"out", 1, nullptr, 'o'}, {nullptr, 0, nullptr, 0}};
    const char* const usage =
        "usage: media_pipeline [FILE | -] [--speed N] [--out FILE.wav]\n"
        "  -          play standard input\n"
        "  --speed N  N times as fast, 0.001 to 1000000; 0: as fast as it can\n"
        "  --out      where the sink keeps the samples\n";
    Options options;
    for (int c = 0; (c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
        if (c == 'h') {
            exit(fputs(usage, stdout) >= 0 && fflush(stdout) == 0 ? 0 : 1);
        } else if (c == 'o') {
            options.output = optarg;
        } else if (c == 's') {
            char* end = nullptr;
            options.speed = strtod(optarg, &end);
            if (end == optarg || *end != '\0' ||
                (options.speed != 0 && !(options.speed >= 1e-3 && options.speed <= 1e6))) {
                error(2, 0, "--speed must be 0, or 0.001 to 1000000");
            }
        } else {
            exit(2);  // getopt_long() has said why
        }
    }
    if (argc - optind > 1) {
        error(2, 0, "there is one input, or none");
    }
    if (optind < argc) {
        options.input = strcmp(argv[optind], "-") == 0 ? "/dev/stdin" : argv[optind];
    }
    return options;
}

// Slots in shared memory that only this process can write to. As a MetaBase the region can stand in a container,
// as a MediaRefBase a parcel can carry it.
class SlotRegion : public osal::MediaMeta::MetaBase, public osal::MediaRefBase {
public:
    explicit SlotRegion(size_t slotBytes)
        : mSizeBytes(SLOTS * slotBytes),
          mFd(osal::MemfdCreateRegion("slots", mSizeBytes)),
          mSlots(mmap(nullptr, mSizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, mFd, 0))
    {
        // The sink, which is a fork, does not inherit the mapping. The size is sealed too, or the region could
        // shrink under a mapping.
        if (mSlots == MAP_FAILED || madvise(mSlots, mSizeBytes, MADV_DONTFORK) != 0 ||
            osal::MemfdGetRegionSize(mFd) < 0 || osal::MemfdSetProtRegion(mFd, PROT_READ) != 0 ||
            fcntl(mFd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
            Fail("no region for a second of this input");
        }
    }
    ~SlotRegion() override
    {
        munmap(mSlots, mSizeBytes);
        close(mFd);
    }

    int Fd() const { return mFd; }
    void* Slot(size_t number) const { return static_cast<char*>(mSlots) + number * (mSizeBytes / SLOTS); }

private:
    size_t mSizeBytes;
    int mFd;
    void* mSlots;
};

int SlotFrames(const Input& input) { return std::max(1, input.Info().samplerate / SLOTS); }

// The properties of the stream, which a parcel carries.
std::shared_ptr<osal::MediaMeta> Describe(const Input& input)
{
    auto meta = osal::MediaMeta::Create();
    meta->SetString("format", input.FormatName().c_str());
    meta->SetInt32("channels", input.Info().channels);
    meta->SetInt32("sample-rate", input.Info().samplerate);
    meta->SetInt32("slot-frames", SlotFrames(input));
    meta->SetInt64("frames", input.Frames());
    return meta;
}

// Rebuilds the description from a parcel and releases one slot after another to the sink. It is the handler of its
// own messages: each releases the slot that is due, fills the next one and queues itself for it.
class Player : public osal::MsgHandlerBase {
public:
    Player(const osal::MediaParam& parcel, Input& input, Sink& sink, double speed)
        : mInput(input), mSink(sink), mSpeed(speed)
    {
        const auto meta = osal::MediaMeta::Create();
        if (!meta->ReadFromMediaParam(&parcel) || !meta->GetInt32("sample-rate", mFramesPerSecond) ||
            !meta->GetInt32("slot-frames", mSlotFrames) || !meta->GetInt64("frames", mTotalFrames) ||
            !(mRegion = std::dynamic_pointer_cast<SlotRegion>(parcel.ReadPointer()))) {
            Fail("the parcel is not complete");
        }
    }

    void Start()
    {
        if (mQueue.Start("player", osal::Thread::PRIORITY_DEFAULT) != 0) {
            Fail("no thread to play on");
        }
        mQueue.QueueMsg(this, 0);
    }

    double TotalSeconds() const { return Seconds(mTotalFrames); }  // 0 if it is not known
    double DoneSeconds() const { return Seconds(mDoneFrames); }
    // After Wait():
    const std::string& Error() const { return mError; }
    int64_t DoneFrames() const { return mDoneFrames; }
    int64_t SentSlots() const { return mSentSlots; }
    const std::map<int64_t, int64_t>& SlotsBelowUs() const { return mSlotsBelowUs; }  // of lateness

private:
    void HandleMsg(int32_t& /*arg*/) override
    {
        if (mFrames > 0 && !ReleaseSlot()) {
            return;  // whoever waits for the sink knows more
        }
        mFrames = 0;
        try {
            mFrames = static_cast<uint32_t>(mInput.Read(mRegion->Slot(Slot()), mSlotFrames));
        } catch (const std::exception& failure) {
            mError = failure.what();
        }
        if (mFrames == 0) {
            mSink.End(mError.empty());
            NotifyFinished();
            return;
        }
        const int64_t nowUs = osal::GetTimeUsBoot();
        // Due times count from the start, so that lateness does not add up.
        mStartUs = mDoneFrames == 0 ? nowUs : mStartUs;
        mDueUs = mSpeed > 0 ? mStartUs + static_cast<int64_t>(DoneSeconds() * 1e6 / mSpeed) : nowUs;
        mQueue.QueueMsg(this, static_cast<uint64_t>(std::max<int64_t>(0, mDueUs - nowUs)) * 1'000);
    }

    // Returns false when the sink is gone, otherwise when there is a slot to fill.
    bool ReleaseSlot()
    {
        int64_t limitUs = 16;
        while (osal::GetTimeUsBoot() - mDueUs >= limitUs) {
            limitUs *= 2;
        }
        ++mSlotsBelowUs[limitUs];
        mDoneFrames += mFrames;
        // Once all slots were in use, the next one is free when the sink has confirmed it.
        return mSink.SendSlot(Slot(), mFrames) && (++mSentSlots < SLOTS || mSink.WaitForSlot());
    }

    uint32_t Slot() const { return static_cast<uint32_t>(mSentSlots % SLOTS); }
    double Seconds(int64_t frames) const { return static_cast<double>(frames) / mFramesPerSecond; }

    Input& mInput;
    Sink& mSink;
    const double mSpeed;
    std::shared_ptr<SlotRegion> mRegion;
    int32_t mFramesPerSecond = 0;
    int32_t mSlotFrames = 0;
    int64_t mTotalFrames = 0;
    uint32_t mFrames = 0;  // in the slot
    int64_t mSentSlots = 0;
    std::string mError;
    int64_t mStartUs = 0;
    int64_t mDueUs = 0;
    std::atomic<int64_t> mDoneFrames{0};  // read by the progress bar
    std::map<int64_t, int64_t> mSlotsBelowUs;
    osal::MsgQueue mQueue;  // last, so that its worker ends before what it uses
};

void DrawProgress(const Player& player)
{
    const double total = player.TotalSeconds();
    std::string bar(total > 0 ? 40 : 0, '-');
    std::fill_n(bar.begin(), total > 0 ? std::min(40, static_cast<int>(40 * player.DoneSeconds() / total)) : 0,
                '#');
    fprintf(stderr, total > 0 ? "[%s] %.1f / %.1f s\r" : "%s%.1f s\r", bar.c_str(), player.DoneSeconds(), total);
}

void Run(const Options& options)
{
    Input input(options.input);
    const size_t slotBytes = static_cast<size_t>(SlotFrames(input)) * input.FrameBytes();
    const auto region = std::make_shared<SlotRegion>(slotBytes);
    Sink sink(options.output, input, region->Fd(), slotBytes);

    const auto description = Describe(input);
    osal::MediaParam parcel;
    if (!description->WriteToMediaParam(&parcel)) {
        Fail("the description is not carried");
    }
    parcel.WritePointer(region);
    description->SetObject("region", region);  // parcels carry no objects as values
    description->Dump();

    Player player(parcel, input, sink, options.speed);
    player.Start();
    const bool isTerminal = isatty(STDERR_FILENO) != 0;
    while (!sink.WaitForEnd(isTerminal ? 100 : -1)) {
        DrawProgress(player);
    }
    player.Wait();
    if (!player.Error().empty()) {
        Fail(player.Error());
    }
    printf("played %s: %.2f s, %s, %d Hz, %d channel(s)\n", options.input.c_str(), player.DoneSeconds(),
           input.FormatName().c_str(), input.Info().samplerate, input.Info().channels);
    printf("  %" PRId64 " frames -> %s\n", player.DoneFrames(),
           options.output.empty() ? "not kept" : options.output.c_str());
    printf("  region write-protected: the sink's writable mapping was refused (%s)\n",
           strerror(sink.WritableMapErrno()));
    for (const auto& [limitUs, slots] : player.SlotsBelowUs()) {
        const std::string bar(static_cast<size_t>((slots * 50 - 1) / player.SentSlots() + 1), '#');
        printf("  late by < %8" PRId64 " us: %8" PRId64 " slots %s\n", limitUs, slots, bar.c_str());
    }
    if (fflush(stdout) != 0) {
        Fail("cannot write the report");
    }
    sink.Commit();
}

}  // namespace

int main(int argc, char** argv)
{
    // No file of the program may become a closed standard stream. To this one, writing fails.
    while (open("/dev/null", O_RDONLY | O_CLOEXEC) <= STDERR_FILENO) {
    }
    signal(SIGPIPE, SIG_IGN);
    try {
        Run(ParseOptions(argc, argv));
    } catch (const std::exception& failure) {
        fprintf(stderr, "media_pipeline: %s\n", failure.what());
        return 1;
    }
}
