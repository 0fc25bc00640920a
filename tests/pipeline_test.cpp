// The example program end to end: samples arrive unchanged, and it leaves nothing behind when it fails.

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
    return id + Raw(static_cast<uint32_t>(body.size())) + body;
}

std::string Wav(uint16_t tag, uint16_t channels, uint16_t sampleBytes, const std::string& data)
{
    const auto frameBytes = static_cast<uint16_t>(channels * sampleBytes);
    const auto bits = static_cast<uint16_t>(8 * sampleBytes);
    return Chunk("RIFF",
                 "WAVE" + Chunk("fmt ", Raw(tag, channels, 8000, 8000 * frameBytes, frameBytes, bits)) + data);
}

std::string Contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Runs the program with `input`, "in.wav" or "-" for a pipe, and, beside it, the shell commands `meanwhile`.
// `status` is the exit status as a shell reports it, `end` what the output ends with.
void ExpectRun(const std::string& wav, const std::string& arguments, int status, const std::string& said,
               const std::string& end, const std::string& meanwhile = "")
{
    std::string folder = testing::TempDir() + "osal_pipeline_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(folder.data()));
    std::ofstream(folder + "/in.wav", std::ios::binary) << wav;
    std::ofstream(folder + "/out.wav") << OLD;
    setenv("MEDIA_PIPELINE", MEDIA_PIPELINE, 0);  // it is already set where the built tree was copied elsewhere
    // The last `cat` ends when both the program and its sink have ended.
    const std::string script = "{ cat in.wav | eval \"exec $MEDIA_PIPELINE --out out.wav " + arguments + "\" & " +
                               meanwhile + " wait $!; echo status $?; } 2>&1 | cat >log";
    EXPECT_EQ(0, std::system(("cd '" + folder + "' && timeout -s KILL 60 sh -c '" + script + "'").c_str()));
    const std::string log = Contents(folder + "/log");
    const std::string output = Contents(folder + "/out.wav");
    EXPECT_NE(std::string::npos, log.find(said)) << arguments << ": " << said << " is not in: " << log;
    EXPECT_NE(std::string::npos, log.find("status " + std::to_string(status) + "\n")) << arguments << ": " << log;
    EXPECT_TRUE(output.size() >= end.size() && output.substr(output.size() - end.size()) == end) << log;
    EXPECT_EQ(4U, std::filesystem::remove_all(folder)) << "the folder with in.wav, out.wav and log";
}

}  // namespace

TEST(Pipeline, PassesSamplesOnUnchangedOrLeavesTheOldOutput)
{
    const std::string samples = Contents("/proc/self/exe").substr(0, 48'000);  // two seconds in some formats
    const std::string data = Chunk("data", samples);
    const std::string endless = "data" + Raw(-1) + samples;
    struct Case {
        const char* input;
        std::string wav;
        std::string said;
        std::string end;
    };
    const Case cases[] = {
        {"in.wav", Wav(1, 2, 2, data), ": 1.50 s, WAV (Microsoft), Signed 16 bit PCM, 8000 Hz, 2", samples},
        {"-", Wav(1, 3, 1, data), ": 2.00 s, WAV (Microsoft), Unsigned 8 bit PCM, 8000 Hz, 3", samples},
        {"-", Wav(1, 1, 3, endless), ": 2.00 s, WAV (Microsoft), Signed 24 bit PCM, 8000 Hz, 1", samples},
        {"in.wav", Wav(3, 1, 4, endless), ": 1.50 s, WAV (Microsoft), 32 bit float, 8000 Hz, 1", samples},
        {"-", Wav(3, 1, 8, data), ": 0.75 s, WAV (Microsoft), 64 bit float, 8000 Hz, 1", samples},
        {"in.wav", Wav(1, 1, 4, data).substr(0, 9000), "in.wav: it is truncated\nstatus", OLD},
        {"-", Wav(1, 1, 4, data).substr(0, 9000), "/dev/stdin: it is truncated\nstatus", OLD},
        {"-", Wav(1, 1, 2, Chunk("data", "")), "/dev/stdin: it has no samples\nstatus", OLD},
        {"in.wav", Wav(1, 0, 2, data), "in.wav: Channel count is zero.\nstatus", OLD},
        {"out.wav", "", "out.wav: Format not recognised.\nstatus", OLD},
    };
    for (const auto& [input, wav, said, end] : cases) {
        ExpectRun(wav, std::string(input) + " --speed 0", end == OLD ? 1 : 0, said, end);
    }
}

TEST(Pipeline, LeavesNothingBehindWhenItIsEndedOrCannotReport)
{
    const std::string wav = Wav(1, 1, 2, Chunk("data", std::string(16'000, 's')));  // a second, in 1000 s
    const std::string waitForPart = "until [ -s .media_pipeline* ]; do :; done; kill ";
    ExpectRun(wav, "- --speed 0.001", 130, "status", OLD, waitForPart + "-INT $!;");
    ExpectRun(wav, "- --speed 0.001", 137, "status", OLD, waitForPart + "-KILL $!;");
    ExpectRun(wav, "- --speed 0 >/dev/full", 1, "cannot write the report", OLD);
}
