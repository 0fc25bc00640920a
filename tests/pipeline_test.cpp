// The example program end to end, on WAV files of every kind that it says it reads.

#include "wav.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The pieces of a WAV file; each test changes what it is about.
struct WavPieces {
    uint16_t tag = 1;
    uint16_t channels = 2;
    uint32_t sampleRate = 44100;
    uint16_t bits = 16;
    std::string fmtTail;  // behind the 16 bytes of the plain format
    std::string beforeData;  // whole chunks
    std::string afterData;
    size_t frames = 2000;
    std::optional<uint32_t> riffSize;
    std::optional<uint32_t> dataSize;
};

std::string LittleEndian(uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i) {
        text.push_back(static_cast<char>(value >> (8 * i)));
    }
    return text;
}

std::string Chunk(const std::string& id, const std::string& body)
{
    return id + LittleEndian(body.size(), 4) + body + std::string(body.size() % 2, '\0');
}

std::string Samples(const WavPieces& pieces)
{
    std::string samples(pieces.frames * pieces.channels * pieces.bits / 8, '\0');
    uint32_t random = 1;
    for (char& byte : samples) {
        random = random * 1664525 + 1013904223;
        byte = static_cast<char>(random >> 24);
    }
    return samples;
}

std::string Build(const WavPieces& pieces)
{
    const int frameBytes = pieces.channels * pieces.bits / 8;
    const std::string fmt =
        LittleEndian(pieces.tag, 2) + LittleEndian(pieces.channels, 2) + LittleEndian(pieces.sampleRate, 4) +
        LittleEndian(pieces.sampleRate * static_cast<uint32_t>(frameBytes), 4) +
        LittleEndian(static_cast<uint64_t>(frameBytes), 2) + LittleEndian(pieces.bits, 2) + pieces.fmtTail;
    std::string data = Chunk("data", Samples(pieces));
    data.replace(4, 4, LittleEndian(pieces.dataSize.value_or(static_cast<uint32_t>(Samples(pieces).size())), 4));
    const std::string body = "WAVE" + Chunk("fmt ", fmt) + pieces.beforeData + data + pieces.afterData;
    return "RIFF" + LittleEndian(pieces.riffSize.value_or(static_cast<uint32_t>(body.size())), 4) + body;
}

std::string Extensible(uint16_t tag)
{
    return LittleEndian(22, 2) + LittleEndian(16, 2) + LittleEndian(3, 4) + LittleEndian(tag, 2) +
           std::string("\0\0\0\0\x10\0\x80\0\0\xAA\0\x38\x9B\x71", 14);
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class PipelineTest : public testing::Test {
protected:
    PipelineTest() : mBase(testing::TempDir() + "osal_pipeline_" + std::to_string(getpid())) {}
    ~PipelineTest() override
    {
        for (const char* suffix : {".in", ".out", ".err", ".log"}) {
            std::remove((mBase + suffix).c_str());
        }
    }

    // Runs the program on `wav` and returns its exit code.
    int Play(const std::string& wav)
    {
        std::remove((mBase + ".out").c_str());
        std::ofstream(mBase + ".in", std::ios::binary) << wav;
        const char* const moved = std::getenv("MEDIA_PIPELINE");  // where the built tree was copied elsewhere
        const std::string command = std::string(moved != nullptr ? moved : MEDIA_PIPELINE) + " --speed 0 --out '" +
                                    mBase + ".out' - < '" + mBase + ".in' > '" + mBase + ".log' 2> '" + mBase +
                                    ".err'";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    void ExpectPlayed(const WavPieces& pieces)
    {
        ASSERT_EQ(0, Play(Build(pieces))) << ReadFile(mBase + ".err");
        const std::string out = ReadFile(mBase + ".out");
        const WavFile wav = ParseWav(Bytes(out.begin(), out.end()));
        EXPECT_TRUE(Samples(pieces) == std::string(wav.samples.begin(), wav.samples.end()));
        EXPECT_EQ(pieces.channels, wav.channels);
        EXPECT_EQ(pieces.bits, wav.bitsPerSample);
        EXPECT_EQ(pieces.sampleRate, static_cast<uint32_t>(wav.sampleRate));
        EXPECT_EQ(16 + pieces.fmtTail.size(), wav.fmtChunk.size());
    }

    const std::string mBase;
};

}  // namespace

TEST_F(PipelineTest, PlaysEverySampleFormat)
{
    for (const auto& [tag, bits] :
         std::vector<std::pair<uint16_t, uint16_t>>{{1, 8}, {1, 16}, {1, 24}, {1, 32}, {3, 32}, {3, 64}}) {
        for (const uint16_t channels : std::vector<uint16_t>{1, 2, 7}) {
            SCOPED_TRACE(std::to_string(tag) + " " + std::to_string(bits) + " " + std::to_string(channels));
            WavPieces pieces;
            pieces.tag = tag;
            pieces.bits = bits;
            pieces.channels = channels;
            pieces.frames = 1001;  // an odd count of bytes now and then, and a last buffer that is not full
            pieces.sampleRate = 11025;
            ExpectPlayed(pieces);
            pieces.tag = 0xFFFE;
            pieces.fmtTail = Extensible(tag);
            ExpectPlayed(pieces);
        }
    }
}

TEST_F(PipelineTest, SkipsUnknownChunksAndTakesTextsAsMetadata)
{
    WavPieces pieces;
    pieces.beforeData =
        Chunk("JUNK", "odd") + Chunk("LIST", "INFO" + Chunk("INAM", "Odd title") + Chunk("IXYZ", "own\n"));
    pieces.afterData = Chunk("cue ", "x") + Chunk("LIST", "INFO" + Chunk("IART", "Artist"));
    ExpectPlayed(pieces);
    const std::string log = ReadFile(mBase + ".err");
    for (const char* line : {"(title, string:Odd title)", "(info:IXYZ, string:own?)", "(artist, string:Artist)",
                             "(sample-rate, int32_t:44100)", "(frames-per-buffer, fraction:(44100/50))"}) {
        EXPECT_NE(std::string::npos, log.find(line)) << line;
    }
}

TEST_F(PipelineTest, ReadsWhatStreamingEncodersWrite)
{
    for (const uint32_t unknown : {0U, 0xFFFFFFFFU, 0x7FFFF000U}) {
        WavPieces pieces;
        pieces.riffSize = unknown;
        pieces.dataSize = unknown;
        ExpectPlayed(pieces);
    }
}

TEST_F(PipelineTest, SaysInOneLineWhatIsWrong)
{
    const std::string good = Build({});
    WavPieces contradicting;
    contradicting.sampleRate = 0;
    WavPieces unknownTag;
    unknownTag.tag = 85;
    WavPieces noSamples;
    noSamples.frames = 0;
    WavPieces halfFrame;
    halfFrame.dataSize = 7;
    WavPieces foreignGuid;
    foreignGuid.tag = 0xFFFE;
    foreignGuid.fmtTail = std::string(24, 'x');
    const std::pair<std::string, const char*> cases[] = {
        {"", "it is empty"},
        {"an ordinary text", "not a RIFF/WAVE file"},
        {good.substr(0, 11), "not a RIFF/WAVE file"},
        {good.substr(0, 12), "has no samples"},
        {good.substr(0, 30), "truncated"},
        {good.substr(0, good.size() - 1), "truncated"},
        {good.substr(0, 12) + good.substr(36), "without a format"},
        {Build(contradicting), "contradicts itself"},
        {Build(unknownTag), "neither PCM of"},
        {Build(noSamples), "has no samples"},
        {Build(halfFrame), "not whole"},
        {Build(foreignGuid), "of no known kind"},
        {good + Chunk("data", "more"), "twice"},
        {good + good.substr(12, 24), "twice"},
    };
    for (const auto& [wav, message] : cases) {
        EXPECT_EQ(1, Play(wav)) << message;
        const std::string error = ReadFile(mBase + ".err");
        EXPECT_EQ(0U, error.find("media_pipeline: -: it")) << error;
        EXPECT_NE(std::string::npos, error.find(message)) << error;
        EXPECT_EQ(1, std::count(error.begin(), error.end(), '\n')) << error;
    }
}
