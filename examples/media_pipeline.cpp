// Plays a WAV file to a second process, buffer by buffer, each at its presentation time:
//
//   WAV file -> description (MediaMeta) -> parcel (MediaParam) -> player -> one message a buffer (MsgQueue)
//            -> samples (memory-file region, write-protected) ----------------------> sink process -> WAV file

#include "report.h"
#include "sink.h"
#include "wav.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <memory>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <osal/memfd.h>
#include <osal/msg_queue.h>
#include <osal/utils.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr int64_t BUFFERS_PER_SECOND = 50;  // of 20 ms each
constexpr uint64_t NS_PER_US = 1000;

struct Options {
    std::string input = OSAL_SAMPLE_WAV;
    std::string output;
    double speed = 1.0;  // 0: as fast as it can
};

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error(what); }

Options ParseOptions(int argc, char** argv)
{
    const option longOptions[] = {{"speed", required_argument, nullptr, 's'},
                                  {"out", required_argument, nullptr, 'o'},
                                  {nullptr, 0, nullptr, 0}};
    const auto usage = [argv] {
        fprintf(stderr,
                "usage: %s [FILE.wav | -] [--speed N] [--out FILE.wav]\n"
                "  -          read standard input to its end, then play\n"
                "  --speed N  N times as fast, 0.001 to 1000000; 0: as fast as it can\n"
                "  --out      where the sink keeps the samples\n",
                argv[0]);
        exit(2);
    };
    Options options;
    for (int c = 0; (c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
        if (c == 'o') {
            options.output = optarg;
        } else if (c == 's') {
            char* end = nullptr;
            options.speed = strtod(optarg, &end);
            if (end == optarg || *end != '\0' ||
                !(options.speed == 0 || (options.speed >= 1e-3 && options.speed <= 1e6))) {
                usage();
            }
        } else {
            usage();
        }
    }
    if (argc - optind > 1) {
        usage();
    }
    if (optind < argc) {
        options.input = argv[optind];
    }
    return options;
}

Bytes ReadAll(const std::string& path)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> file(
        path == "-" ? fdopen(dup(0), "rb") : fopen(path.c_str(), "rb"), fclose);
    Bytes bytes;
    size_t got = 0;
    do {
        const size_t size = bytes.size();
        bytes.resize(size + (1 << 20));
        got = file ? fread(bytes.data() + size, 1, bytes.size() - size, file.get()) : 0;
        bytes.resize(size + got);
    } while (got > 0);
    if (!file || ferror(file.get()) != 0) {
        throw WavError(strerror(errno));
    }
    return bytes;
}

// The samples in shared memory that nobody can write to any more. As a MetaBase it can stand in a container,
// as a MediaRefBase it can travel in a parcel.
class SampleRegion : public osal::MediaMeta::MetaBase, public osal::MediaRefBase {
public:
    explicit SampleRegion(const WavFile& wav) : mFmtChunk(wav.fmtChunk)
    {
        const size_t sizeBytes = wav.samples.size();
        mFd = osal::MemfdCreateRegion("samples", sizeBytes);
        if (mFd < 0 || osal::MemfdGetRegionSize(mFd) < 0) {
            throw WavError("its samples do not fit into a region");
        }
        void* mapping = mmap(nullptr, sizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, mFd, 0);
        if (mapping == MAP_FAILED) {
            Fail("cannot map the region");
        }
        memcpy(mapping, wav.samples.data(), sizeBytes);
        munmap(mapping, sizeBytes);
        // The sink maps the region: nobody may pull it away under the mapping either.
        if (osal::MemfdSetProtRegion(mFd, PROT_READ) != 0 ||
            fcntl(mFd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
            Fail("cannot write-protect the region");
        }
    }
    ~SampleRegion() override { close(mFd); }

    int Fd() const { return mFd; }
    const Bytes& FmtChunk() const { return mFmtChunk; }

private:
    int mFd;
    Bytes mFmtChunk;
};

// What is known of the stream and travels in a parcel.
std::shared_ptr<osal::MediaMeta> Describe(const WavFile& wav)
{
    const std::map<std::string, const char*> names{
        {"INAM", "title"}, {"IART", "artist"}, {"ICMT", "comment"}, {"ICRD", "date"}, {"ISFT", "encoder"}};
    auto meta = osal::MediaMeta::Create();
    meta->SetString("mime", wav.isFloat ? "audio/x-raw-float" : "audio/x-raw-int");
    meta->SetInt32("channels", wav.channels);
    meta->SetInt32("sample-rate", wav.sampleRate);
    meta->SetInt32("bits-per-sample", wav.bitsPerSample);
    meta->SetInt32("frame-bytes", wav.frameBytes);
    meta->SetInt64("sample-bytes", static_cast<int64_t>(wav.samples.size()));
    meta->SetFraction("frames-per-buffer", wav.sampleRate, static_cast<int32_t>(BUFFERS_PER_SECOND));
    for (const auto& [id, text] : wav.info) {
        const auto name = names.find(id);
        meta->SetString(name != names.end() ? name->second : ("info:" + id).c_str(), text.c_str());
    }
    return meta;
}

// The consumer: rebuilds the description from a parcel and releases one buffer after another to the sink. It is
// the handler of its own messages: each one queues the next, and the last one marks it finished.
class Player : public osal::MsgHandlerBase {
public:
    Player(const osal::MediaParam& parcel, Sink& sink, double speed) : mSink(sink), mSpeed(speed)
    {
        const auto meta = osal::MediaMeta::Create();
        osal::MediaMeta::Fraction framesPerBuffer{};
        if (!meta->ReadFromMediaParam(&parcel) || !meta->GetFraction("frames-per-buffer", framesPerBuffer) ||
            !meta->GetInt32("frame-bytes", mFrameBytes) || !meta->GetInt64("sample-bytes", mSampleBytes)) {
            Fail("the description did not arrive");
        }
        mSampleRate = framesPerBuffer.num;
        mFrames = mSampleBytes / mFrameBytes;
        mBuffers = (mFrames * BUFFERS_PER_SECOND + mSampleRate - 1) / mSampleRate;
        mRegion = std::dynamic_pointer_cast<SampleRegion>(parcel.ReadPointer());
        if (!mRegion) {
            Fail("the samples did not arrive");
        }
        mSink.SendRegion(mRegion->Fd(), mRegion->FmtChunk());
        mLatenessUs.reserve(static_cast<size_t>(mBuffers));
    }

    // Blocks until the last buffer is released. False when the sink is gone.
    bool Play()
    {
        if (mQueue.Start("player", osal::Thread::PRIORITY_DEFAULT) != 0) {
            Fail("no thread to play on");
        }
        mStartUs = osal::GetTimeUsBoot();
        QueueNext();
        Wait();
        mQueue.Stop();
        return !mFailed;
    }

    double TotalSeconds() const { return static_cast<double>(mFrames) / mSampleRate; }
    double DoneSeconds() const { return static_cast<double>(mNext) / BUFFERS_PER_SECOND; }
    const std::vector<int64_t>& LatenessUs() const { return mLatenessUs; }

private:
    void HandleMsg(int32_t& /*arg*/) override
    {
        mLatenessUs.push_back(osal::GetTimeUsBoot() - mDueUs);
        const int64_t begin = FirstFrame(mNext) * mFrameBytes;
        const int64_t end = FirstFrame(mNext + 1) * mFrameBytes;
        mFailed = !mSink.SendBuffer(static_cast<uint64_t>(begin), static_cast<uint64_t>(end - begin));
        ++mNext;
        if (mFailed || mNext == mBuffers) {
            NotifyFinished();
            return;
        }
        QueueNext();
    }

    // Due times count from the start, so that lateness does not add up.
    void QueueNext()
    {
        const int64_t nowUs = osal::GetTimeUsBoot();
        const double presentationUs = static_cast<double>(mNext) * 1e6 / BUFFERS_PER_SECOND;
        mDueUs = mSpeed > 0 ? mStartUs + static_cast<int64_t>(presentationUs / mSpeed) : nowUs;
        const uint64_t delayNs = mDueUs > nowUs ? static_cast<uint64_t>(mDueUs - nowUs) * NS_PER_US : 0;
        if (mQueue.QueueMsg(this, delayNs) != 0) {
            mFailed = true;
            NotifyFinished();  // or Play() would wait for ever
        }
    }

    int64_t FirstFrame(int64_t buffer) const
    {
        return std::min(mFrames, buffer * mSampleRate / BUFFERS_PER_SECOND);
    }

    Sink& mSink;
    const double mSpeed;
    std::shared_ptr<SampleRegion> mRegion;
    int32_t mFrameBytes = 0;
    int64_t mSampleBytes = 0;
    int32_t mSampleRate = 0;
    int64_t mFrames = 0;
    int64_t mBuffers = 0;
    int64_t mStartUs = 0;
    int64_t mDueUs = 0;
    std::atomic<int64_t> mNext{0};  // read by the progress bar
    bool mFailed = false;
    std::vector<int64_t> mLatenessUs;
    osal::MsgQueue mQueue;  // last, so that its worker ends before what it uses
};

// Draws the progress bar ten times a second, on a worker of its own: drawing must not delay the player.
class Progress : public osal::MsgHandlerBase {
public:
    explicit Progress(const Player& player) : mPlayer(player)
    {
        mIsShown = isatty(STDERR_FILENO) != 0 && mQueue.Start("progress", osal::Thread::PRIORITY_MIN) == 0 &&
                   mQueue.QueueMsg(this, 0) == 0;
    }
    ~Progress() override
    {
        if (mIsShown) {
            mQueue.Stop();
            Draw();
            fputc('\n', stderr);
        }
    }

private:
    void HandleMsg(int32_t& /*arg*/) override
    {
        Draw();
        mQueue.QueueMsg(this, 100'000'000);
    }
    void Draw() { fprintf(stderr, "\r%s", ProgressBar(mPlayer.DoneSeconds(), mPlayer.TotalSeconds()).c_str()); }

    const Player& mPlayer;
    bool mIsShown;
    osal::MsgQueue mQueue;
};

void Run(const Options& options)
{
    const WavFile wav = ParseWav(ReadAll(options.input));
    Sink sink(options.output);

    const auto region = std::make_shared<SampleRegion>(wav);
    const auto description = Describe(wav);

    // For the log: with what stays on this side, a copy that shares the description's numbers.
    const auto everything = description->Copy();
    everything->SetByteBuffer("wav-fmt", {wav.fmtChunk.size(), const_cast<uint8_t*>(wav.fmtChunk.data())});
    everything->SetObject("region", region);
    everything->Dump();

    osal::MediaParam parcel;
    if (!description->WriteToMediaParam(&parcel)) {
        Fail("the description does not travel");
    }
    parcel.WritePointer(region);

    Player player(parcel, sink, options.speed);
    bool played = false;
    {
        const Progress progress(player);
        played = player.Play();
    }
    const Sink::Report report = sink.Finish();
    if (!played || report.bytes != wav.samples.size()) {
        Fail("the sink did not get all samples");
    }
    if (report.writableMapErrno == 0) {
        Fail("the sink could map the region writable");
    }
    printf("played %s: %.2f s, %d Hz, %d channel(s), %d bit%s\n", options.input.c_str(), player.TotalSeconds(),
           wav.sampleRate, wav.channels, wav.bitsPerSample, wav.isFloat ? " float" : "");
    printf("  %llu buffers, %llu bytes%s%s\n", static_cast<unsigned long long>(report.buffers),
           static_cast<unsigned long long>(report.bytes), options.output.empty() ? ", not kept" : " -> ",
           options.output.c_str());
    printf("  region write-protected: the sink's writable mapping was refused (%s)\n",
           strerror(report.writableMapErrno));
    fputs(LatenessReport(player.LatenessUs()).c_str(), stdout);
}

}  // namespace

int main(int argc, char** argv)
{
    const Options options = ParseOptions(argc, argv);
    try {
        Run(options);
    } catch (const WavError& error) {
        fprintf(stderr, "media_pipeline: %s: %s\n", options.input.c_str(), error.what());
        return 1;
    } catch (const std::exception& error) {
        fprintf(stderr, "media_pipeline: %s\n", error.what());
        return 1;
    }
    return 0;
}
