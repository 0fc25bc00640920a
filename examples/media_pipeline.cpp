// Plays a WAV file to a second process, buffer by buffer, each at its presentation time:
//
//   WAV file -> description (MediaMeta) -> parcel (MediaParam) -> player -> one message a buffer (MsgQueue)
//            -> samples (memory-file region, write-protected) ----------------------> sink process -> WAV file
//
// Samples of every format are passed on unchanged, a compressed one block by block. The output appears complete or
// not at all, also when an interrupt ends the two processes.

#include "output.h"
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

// Bad arguments.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Options ParseOptions(int argc, char** argv)
{
    const option longOptions[] = {{"help", no_argument, nullptr, 'h'},
                                  {"speed", required_argument, nullptr, 's'},
                                  {"out", required_argument, nullptr, 'o'},
                                  {nullptr, 0, nullptr, 0}};
    opterr = 0;
    Options options;
    for (int c = 0; (c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
        if (c == 'h') {
            puts(
                "usage: media_pipeline [FILE.wav | -] [--speed N] [--out FILE.wav]\n"
                "  -          read standard input to its end, then play\n"
                "  --speed N  N times as fast, 0.001 to 1000000; 0: as fast as it can\n"
                "  --out      where the sink keeps the samples");
            exit(fflush(stdout) == 0 ? 0 : 1);
        }
        if (c == 'o') {
            options.output = optarg;
            if (options.output.empty()) {
                throw UsageError("--out needs the name of a file");
            }
        } else if (c == 's') {
            char* end = nullptr;
            options.speed = strtod(optarg, &end);
            if (end == optarg || *end != '\0' ||
                !(options.speed == 0 || (options.speed >= 1e-3 && options.speed <= 1e6))) {
                throw UsageError("--speed must be 0, or 0.001 to 1000000");
            }
        } else {
            throw UsageError(std::string(argv[optind - 1]) + " is no option, or its value is missing");
        }
    }
    if (argc - optind > 1) {
        throw UsageError("there is one input, or none");
    }
    if (optind < argc) {
        options.input = argv[optind];
        if (options.input.empty()) {
            throw UsageError("the name of the input is empty");
        }
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
    } while (got > 0 && bytes.size() <= INT32_MAX);
    if (bytes.size() > INT32_MAX) {
        throw WavError("it is larger than 2 GiB");
    }
    if (!file || ferror(file.get()) != 0) {
        throw WavError(strerror(errno));
    }
    return bytes;
}

// The file to be written, in shared memory that nobody can write to any more. As a MetaBase it can stand in a
// container, as a MediaRefBase a parcel can carry it.
class FileRegion : public osal::MediaMeta::MetaBase, public osal::MediaRefBase {
public:
    explicit FileRegion(const WavFile& wav)
    {
        const Bytes header = WavHeader(wav.formatChunks, wav.samples.size());
        const size_t sizeBytes = header.size() + wav.samples.size() + wav.samples.size() % 2;
        mHeaderBytes = header.size();
        mFd = osal::MemfdCreateRegion("samples", sizeBytes);
        if (mFd < 0 || osal::MemfdGetRegionSize(mFd) < 0) {
            throw WavError("its samples do not fit into a region");
        }
        void* mapping = mmap(nullptr, sizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, mFd, 0);
        if (mapping == MAP_FAILED) {
            Fail("cannot map the region");
        }
        memcpy(mapping, header.data(), header.size());
        memcpy(static_cast<uint8_t*>(mapping) + header.size(), wav.samples.data(), wav.samples.size());
        munmap(mapping, sizeBytes);
        // The sink maps the region: nobody may pull it away under the mapping either.
        if (osal::MemfdSetProtRegion(mFd, PROT_READ) != 0 ||
            fcntl(mFd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
            Fail("cannot write-protect the region");
        }
    }
    ~FileRegion() override { close(mFd); }

    int Fd() const { return mFd; }
    size_t HeaderBytes() const { return mHeaderBytes; }

private:
    int mFd;
    size_t mHeaderBytes;
};

// The properties of the stream, which a parcel carries.
std::shared_ptr<osal::MediaMeta> Describe(const WavFile& wav)
{
    const std::map<std::string, const char*> names{
        {"INAM", "title"}, {"IART", "artist"}, {"ICMT", "comment"}, {"ICRD", "date"}, {"ISFT", "encoder"}};
    auto meta = osal::MediaMeta::Create();
    meta->SetString("format", FormatName(wav.formatTag).c_str());
    meta->SetInt32("channels", wav.channels);
    meta->SetInt32("bits-per-sample", wav.bitsPerSample);
    meta->SetInt64("sample-rate", wav.samplesPerSecond);
    meta->SetInt32("block-bytes", wav.blockBytes);
    meta->SetFraction("blocks-per-second", wav.blockRateNum, wav.blockRateDen);
    meta->SetInt64("sample-bytes", static_cast<int64_t>(wav.samples.size()));
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
        osal::MediaMeta::Fraction blocksPerSecond{};
        int32_t blockBytes = 0;
        if (!meta->ReadFromMediaParam(&parcel) || !meta->GetFraction("blocks-per-second", blocksPerSecond) ||
            !meta->GetInt32("block-bytes", blockBytes) || !meta->GetInt64("sample-bytes", mSampleBytes)) {
            Fail("the description did not arrive");
        }
        mRegion = std::dynamic_pointer_cast<FileRegion>(parcel.ReadPointer());
        if (!mRegion) {
            Fail("the samples did not arrive");
        }
        // A block of a compressed format may last longer than a buffer should.
        const int64_t blocks =
            std::max<int64_t>(1, blocksPerSecond.num / (blocksPerSecond.den * BUFFERS_PER_SECOND));
        mBufferBytes = blocks * blockBytes;
        mBytesPerSecond = static_cast<double>(blocksPerSecond.num) / blocksPerSecond.den * blockBytes;
        mLatenessUs.reserve(static_cast<size_t>((mSampleBytes + mBufferBytes - 1) / mBufferBytes));
    }

    void Start()
    {
        mSink.SendRegion(mRegion->Fd());
        mSink.SendBuffer(mRegion->HeaderBytes());
        if (mQueue.Start("player", osal::Thread::PRIORITY_DEFAULT) != 0) {
            Fail("no thread to play on");
        }
        mStartUs = osal::GetTimeUsBoot();
        QueueNext();
    }

    double TotalSeconds() const { return static_cast<double>(mSampleBytes) / mBytesPerSecond; }
    double DoneSeconds() const { return static_cast<double>(mDoneBytes) / mBytesPerSecond; }
    const std::vector<int64_t>& LatenessUs() const { return mLatenessUs; }  // one number a buffer

private:
    void HandleMsg(int32_t& /*arg*/) override
    {
        mLatenessUs.push_back(osal::GetTimeUsBoot() - mDueUs);
        const int64_t end = std::min(mSampleBytes, mDoneBytes + mBufferBytes);
        const bool isLast = end == mSampleBytes;
        const int64_t padding = isLast ? mSampleBytes % 2 : 0;
        if (!mSink.SendBuffer(static_cast<uint64_t>(end - mDoneBytes + padding))) {
            return;  // who waits for the sink knows more
        }
        mDoneBytes = end;
        if (isLast) {
            NotifyFinished();
        } else {
            QueueNext();
        }
    }

    // Due times count from the start, so that lateness does not add up.
    void QueueNext()
    {
        const int64_t nowUs = osal::GetTimeUsBoot();
        mDueUs = mSpeed > 0 ? mStartUs + static_cast<int64_t>(DoneSeconds() * 1e6 / mSpeed) : nowUs;
        const uint64_t delayNs = mDueUs > nowUs ? static_cast<uint64_t>(mDueUs - nowUs) * NS_PER_US : 0;
        mQueue.QueueMsg(this, delayNs);  // refused only while the queue is stopped, because the sink is gone
    }

    Sink& mSink;
    const double mSpeed;
    std::shared_ptr<FileRegion> mRegion;
    int64_t mSampleBytes = 0;
    int64_t mBufferBytes = 0;
    double mBytesPerSecond = 0;
    int64_t mStartUs = 0;
    int64_t mDueUs = 0;
    std::atomic<int64_t> mDoneBytes{0};  // read by the progress bar
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

    const auto region = std::make_shared<FileRegion>(wav);
    const auto description = Describe(wav);

    // For the log: with what stays on this side, a copy that shares the description's numbers.
    const auto everything = description->Copy();
    everything->SetByteBuffer("format-chunks",
                              {wav.formatChunks.size(), const_cast<uint8_t*>(wav.formatChunks.data())});
    everything->SetObject("region", region);
    everything->Dump();

    osal::MediaParam parcel;
    if (!description->WriteToMediaParam(&parcel)) {
        Fail("the description is not carried");
    }
    parcel.WritePointer(region);

    Player player(parcel, sink, options.speed);
    Sink::Report report{};
    {
        const Progress progress(player);
        player.Start();
        report = sink.WaitForReport();
        player.Wait();
    }
    FILE* const to = IsStandardOutput(options.output) ? stderr : stdout;
    fprintf(to, "played %s: %.2f s, %s, %u Hz, %d channel(s)", options.input.c_str(), player.TotalSeconds(),
            FormatName(wav.formatTag).c_str(), wav.samplesPerSecond, wav.channels);
    fprintf(to, wav.bitsPerSample > 0 ? ", %d bit\n" : "\n", wav.bitsPerSample);
    fprintf(to, "  %zu buffers, %zu bytes%s%s\n", player.LatenessUs().size(), wav.samples.size(),
            options.output.empty() ? ", not kept" : " -> ", options.output.c_str());
    fprintf(to, "  region write-protected: the sink's writable mapping was refused (%s)\n",
            strerror(report.writableMapErrno));
    fputs(LatenessReport(player.LatenessUs()).c_str(), to);
    if (fflush(to) != 0 || ferror(to) != 0) {
        Fail("cannot write the report");
    }
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    try {
        RemoveOutputOnInterrupt();
        options = ParseOptions(argc, argv);
        Run(options);
    } catch (const UsageError& error) {
        fprintf(stderr, "media_pipeline: %s; see --help\n", error.what());
        return 2;
    } catch (const WavError& error) {
        fprintf(stderr, "media_pipeline: %s: %s\n", options.input.c_str(), error.what());
        return 1;
    } catch (const std::bad_alloc&) {
        fprintf(stderr, "media_pipeline: %s: it does not fit into memory\n", options.input.c_str());
        return 1;
    } catch (const std::exception& error) {
        fprintf(stderr, "media_pipeline: %s\n", error.what());
        return 1;
    }
    return 0;
}
