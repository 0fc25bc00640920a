// The example program end to end: which WAV files it plays, and that it leaves nothing behind when it cannot.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <random>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int WAIT_LIMIT_MS = 120'000;  // only a broken program uses this up
constexpr const char* OLD_CONTENTS = "what an earlier run wrote";

// Machines that run this are little-endian, as the fields of the files are.
template <typename... Numbers>
std::string Raw(Numbers... numbers)
{
    std::string bytes;
    (bytes.append(reinterpret_cast<const char*>(&numbers), sizeof(numbers)), ...);
    return bytes;
}

std::string Chunk(const std::string& id, const std::string& body)
{
    return id + Raw(static_cast<uint32_t>(body.size())) + body + std::string(body.size() % 2, '\0');
}

std::string Fmt(uint16_t tag, uint16_t channels, uint32_t rate, uint32_t bytesPerSecond, uint16_t blockBytes,
                uint16_t bits, const std::string& tail = {})
{
    return Chunk("fmt ", Raw(tag, channels, rate, bytesPerSecond, blockBytes, bits) + tail);
}

std::string Riff(const std::string& chunks) { return Chunk("RIFF", "WAVE" + chunks); }

std::string Samples(size_t sizeBytes)
{
    std::string bytes(sizeBytes, '\0');
    std::generate(bytes.begin(), bytes.end(), std::minstd_rand());
    return bytes;
}

class PipelineTest : public testing::Test {
protected:
    PipelineTest() { std::filesystem::create_directory(mFolder); }
    ~PipelineTest() override { std::filesystem::remove_all(mFolder); }

    // Starts the program where an older file stands in place of its output.
    void Start(const std::string& wav, const std::string& arguments)
    {
        std::ofstream(mFolder + "/in.wav", std::ios::binary) << wav;
        std::ofstream(mFolder + "/out.wav") << OLD_CONTENTS;
        const char* const moved = std::getenv("MEDIA_PIPELINE");  // where the built tree was copied elsewhere
        const std::string program = moved != nullptr ? moved : MEDIA_PIPELINE;
        const std::string command = "cd '" + mFolder + "'; echo $$; exec " + program + " - --out " + arguments;
        mText = popen((command + " < in.wav 2>&1").c_str(), "r");
        setvbuf(mText, nullptr, _IONBF, 0);
        ASSERT_EQ(1, fscanf(mText, "%d", &mProgram));
    }

    bool Await(int fd)
    {
        pollfd event{fd, POLLIN, 0};
        const bool hasCome = poll(&event, 1, WAIT_LIMIT_MS) == 1;
        if (!hasCome) {
            ADD_FAILURE() << "nothing happens";
            kill(mProgram, SIGKILL);
        }
        return hasCome;
    }

    // Waits for the end of both processes. `status` is the exit status as a shell has it. Returns all they said.
    std::string ExpectEnd(int status, const std::string& said, const std::string& output)
    {
        std::string text;
        for (char byte = 0; Await(fileno(mText)) && read(fileno(mText), &byte, 1) == 1;) {
            text.push_back(byte);
        }
        const int ended = pclose(mText);
        EXPECT_EQ(status, WIFSIGNALED(ended) ? 128 + WTERMSIG(ended) : WEXITSTATUS(ended)) << text;
        EXPECT_NE(std::string::npos, text.find(said)) << said << " is not in: " << text;
        std::ifstream file(mFolder + "/out.wav", std::ios::binary);
        EXPECT_TRUE(output == std::string(std::istreambuf_iterator<char>(file), {})) << text;
        EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(mFolder), {})) << "beside input and output";
        return text;
    }

    const std::string mFolder = testing::TempDir() + "osal_pipeline_" + std::to_string(getpid());
    pid_t mProgram = -1;
    FILE* mText = nullptr;  // standard output and error of both processes
};

}  // namespace

TEST_F(PipelineTest, PlaysWhatStatesABlockSizeAndARateAndRefusesTheRest)
{
    const std::string extension("\x16\0\x20\0\3\0\0\0\3\0\0\0\0\0\x10\0\x80\0\0\xAA\0\x38\x9B\x71", 24);
    const std::string pcm = Fmt(1, 2, 44100, 176400, 4, 16);
    const std::string data = Chunk("data", Samples(4000));
    const std::string good = Riff(pcm + data);
    const std::string adpcm = Fmt(17, 1, 8000, 1000, 500, 4, Raw(0x03E10002)) + Chunk("fact", "1234");
    const auto streamed = [&](uint32_t unknownSize) {  // up to a frame that is not whole
        return "RIFF" + Raw(unknownSize) + "WAVE" + pcm + "data" + Raw(unknownSize) + Samples(4003);
    };
    struct Case {
        std::string input;
        std::string said;  // "it..." on refused ones
        std::string output = {};  // where it is not the input
    };
    const Case cases[] = {
        {good, ": 0.02 s, PCM, 44100 Hz, 2 channel(s), 16 bit\n  2 buffers, 4000 bytes"},
        // Wrong bytes per second beside the right samples per second; an odd size.
        {Riff(Fmt(1, 1, 1000, 7, 3, 20) + Chunk("data", Samples(999))), ": 0.33 s, PCM"},
        {Riff(Fmt(6, 1, 8000, 8000, 1, 8) + data), ": 0.50 s, A-law"},
        // Blocks of half a second, the last one short.
        {Riff(adpcm + Chunk("data", Samples(4001))), "4.00 s, IMA ADPCM, 8000 Hz, 1 channel(s), 4 bit\n  9 b"},
        {Riff(Fmt(85, 2, 44100, 16000, 1, 0) + data), ": 0.25 s, MP3, 44100 Hz, 2 channel(s)\n"},
        {Riff(Fmt(0xFFFE, 2, 1000, 0, 8, 64, extension) + data), "0.50 s, IEEE"},
        {Riff(Fmt(0xFFFE, 2, 1000, 8000, 8, 32, std::string(24, 'x')) + data), "format 0xFFFE"},
        {Riff(Chunk("LIST", "INFO" + Chunk("IXYZ", "own\n")) + Chunk("JUNK", "odd") + pcm + data), ":own?)", good},
        {good + "TAG behind all", "4000 bytes", good},
        {streamed(0), "4000 bytes", good},
        {streamed(0x7FFFF000), "4000 bytes", good},
        {streamed(0xFFFFFFFF), "4000 bytes", good},
        {"", "it is empty"},
        {good.substr(0, 11), "it is not a RIFF/WAVE file"},
        {good.substr(0, 30), "it is truncated: chunk 'fmt ' has 10 of 16 bytes"},
        {good.substr(0, good.size() - 1), "it is truncated"},
        {Riff(pcm + Chunk("LIST", "INFO")), "it has no samples"},
        {Riff(data + pcm), "its samples come without a format"},
        {Riff(Chunk("fmt ", std::string(13, 'x')) + data), "its format chunk is too short"},
        {Riff(Fmt(6, 1, 8000, 8000, 0, 8) + data), "its header states no block size"},
        {Riff(Fmt(1, 1, 0, 8000, 1, 8) + data), "its header states no usable rate"},
        {Riff(Fmt(6, 1, 8000, 0, 1, 8) + data), "its header states no usable rate"},
    };
    for (const auto& [input, said, output] : cases) {
        Start(input, "out.wav --speed 0");
        if (said.rfind("it", 0) == 0) {
            const std::string text = ExpectEnd(1, "media_pipeline: -: " + said, OLD_CONTENTS);
            EXPECT_EQ(text.size() - 1, text.find('\n')) << "not one line: " << text;
        } else {
            ExpectEnd(0, said, output.empty() ? input : output);
        }
    }
    const auto begin = std::chrono::steady_clock::now();
    Start(cases[3].input, "out.wav --speed 40");  // whose last buffer is due at 4 s
    ExpectEnd(0, "IMA ADPCM", cases[3].input);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
}

TEST_F(PipelineTest, LeavesNothingBehindWhenItIsEndedOrFails)
{
    const std::string minutes = Riff(Fmt(1, 1, 44100, 44100, 1, 8) + Chunk("data", Samples(10'000'000)));
    const int cases[][3] = {{SIGINT, 0, 130},  {SIGTERM, 0, 143}, {SIGKILL, 0, 137},     {0, SIGINT, 130},
                            {0, SIGTERM, 143}, {0, SIGKILL, 1},   {SIGINT, SIGINT, 130}, {SIGTERM, SIGTERM, 143}};
    for (const auto& [toProgram, toSink, expected] : cases) {
        SCOPED_TRACE(std::to_string(toProgram) + ' ' + std::to_string(toSink));
        Start(minutes, "out.wav");
        const int changes = inotify_init1(IN_CLOEXEC);
        inotify_add_watch(changes, mFolder.c_str(), IN_MODIFY);
        Await(changes);  // the sink writes
        close(changes);
        const std::string id = std::to_string(mProgram);
        pid_t sink = 0;
        std::ifstream("/proc/" + id + "/task/" + id + "/children") >> sink;
        ASSERT_GT(sink, 0);
        kill(sink, toSink);  // 0: none
        kill(mProgram, toProgram);
        ExpectEnd(expected, "", OLD_CONTENTS);
    }
    Start(minutes, "/dev/full --speed 0");
    ExpectEnd(1, "/dev/full: No space left on device\n", OLD_CONTENTS);
    Start(minutes, "none/out.wav");
    ExpectEnd(1, "none/out.wav: No such file or directory\n", OLD_CONTENTS);
}
