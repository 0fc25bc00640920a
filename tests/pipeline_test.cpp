// The example program end to end: which WAV files it plays, and that it leaves nothing behind when it cannot.

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace {

const std::string OLD = "what an earlier run wrote";

// The fields of the files are little-endian, and so are the machines that run the test.
template <typename... Numbers>
std::string Raw(Numbers... numbers)
{
    return (std::string(reinterpret_cast<const char*>(&numbers), sizeof(numbers)) + ...);
}

std::string Chunk(const std::string& id, const std::string& body)
{
    return id + Raw(static_cast<uint32_t>(body.size())) + body + std::string(body.size() % 2, '\0');
}

std::string Fmt(uint16_t tag, uint16_t channels, uint32_t rate, uint32_t bytesPerSecond, uint16_t blockBytes,
                uint16_t bits, const std::string& tail = "")
{
    return Chunk("fmt ", Raw(tag, channels, rate, bytesPerSecond, blockBytes, bits) + tail);
}

std::string Riff(const std::string& chunks) { return Chunk("RIFF", "WAVE" + chunks); }

std::string Contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Runs the program and, beside it, the shell commands `meanwhile`. `status` is the exit status as a shell reports
// it.
void ExpectRun(const std::string& wav, const std::string& arguments, int status, const std::string& said,
               const std::string& output, const std::string& meanwhile = "")
{
    std::string folder = testing::TempDir() + "osal_pipeline_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(folder.data()));
    std::ofstream(folder + "/in.wav", std::ios::binary) << wav;
    std::ofstream(folder + "/out.wav") << OLD;
    setenv("MEDIA_PIPELINE", MEDIA_PIPELINE, 0);  // it is already set where the built tree was copied elsewhere
    // `cat` ends when both the program and its sink have ended.
    const std::string script = "{ eval \"exec $MEDIA_PIPELINE - --out " + arguments + " <in.wav\" & " + meanwhile +
                               " wait $!; echo status $?; } 2>&1 | cat >log";
    EXPECT_EQ(0, std::system(("cd '" + folder + "' && timeout -s KILL 60 sh -c '" + script + "'").c_str()));
    const std::string log = Contents(folder + "/log");
    EXPECT_NE(std::string::npos, log.find(said)) << said << " is not in: " << log;
    EXPECT_NE(std::string::npos, log.find("status " + std::to_string(status) + "\n")) << log;
    EXPECT_TRUE(output == Contents(folder + "/out.wav")) << log;
    EXPECT_EQ(4U, std::filesystem::remove_all(folder)) << "the folder with in.wav, out.wav and log";
}

}  // namespace

TEST(Pipeline, PlaysWhatStatesABlockSizeAndARateAndRefusesTheRest)
{
    const std::string samples = Contents("/proc/self/exe").substr(0, 4000);
    const std::string data = Chunk("data", samples);
    const std::string pcm = Fmt(1, 2, 44100, 176400, 4, 16);
    const std::string good = Riff(pcm + data);
    const std::string extension("\x16\0\x20\0\3\0\0\0\3\0\0\0\0\0\x10\0\x80\0\0\xAA\0\x38\x9B\x71", 24);
    const std::string cases[][3] = {
        // the input, what the program says, and the output if it is not the input
        {good, ": 0.02 s, PCM, 44100 Hz, 2 channel(s), 16 bit\n  2 buffers, 4000 bytes"},
        {Riff(Fmt(1, 1, 1000, 7, 3, 20) + Chunk("data", samples.substr(1))), ": 1.33 s, PCM"},
        {Riff(Fmt(6, 1, 8000, 8000, 1, 8) + data), ": 0.50 s, A-law"},
        {Riff(Fmt(17, 1, 8000, 1000, 600, 4, Raw(2)) + data), ", 1 channel(s), 4 bit\n  7 buffers"},
        {Riff(Fmt(0xFFFE, 2, 1000, 0, 8, 64, extension) + Chunk("fact", "1234") + data), ": 0.50 s, IEEE"},
        {Riff(Chunk("LIST", "INFO" + Chunk("INAM", "own\n!")) + pcm + data) + "TAG behind all", "own?!", good},
        // Streams, which end in the middle of a frame.
        {"RIFF" + Raw(0) + "WAVE" + pcm + "data" + Raw(0) + samples + "end", "4000 bytes", good},
        {"RIFF" + Raw(-1) + "WAVE" + pcm + "data" + Raw(-1) + samples + "end", "4000 bytes", good},
        {good.substr(0, 11), ": it is not a RIFF/WAVE file\nstatus", OLD},
        {good.substr(0, good.size() - 1), ": it is truncated: chunk 'data' has 3999 of 4000 bytes\nstatus", OLD},
        {Riff(pcm), ": it has no samples\nstatus", OLD},
        {Riff(data + pcm), ": its samples come without a format\nstatus", OLD},
        {Riff(Fmt(6, 1, 8000, 8000, 0, 8) + data), ": its header states no block size\nstatus", OLD},
        {Riff(Fmt(6, 1, 8000, 0, 1, 8) + data), ": its header states no usable rate (0 bytes per second)\n", OLD},
    };
    for (const auto& [input, said, output] : cases) {
        ExpectRun(input, "out.wav --speed 0", output == OLD ? 1 : 0, said, output.empty() ? input : output);
    }
}

TEST(Pipeline, LeavesNothingBehindWhenItIsEndedOrFails)
{
    // Of two blocks of 8000 bytes, the second one is due after 1000 s.
    const std::string wav = Riff(Fmt(6, 1, 8000, 8000, 8000, 8) + Chunk("data", std::string(16'000, 's')));
    const std::string waitForPart = "until [ -s .media_pipeline* ]; do :; done; kill ";
    ExpectRun(wav, "out.wav --speed 0.001", 130, "status", OLD, waitForPart + "-INT $!;");
    ExpectRun(wav, "out.wav --speed 0.001", 137, "status", OLD, waitForPart + "-KILL $!;");
    ExpectRun(wav, "/dev/full --speed 0", 1, "/dev/full: No space left on device\n", OLD);
}
