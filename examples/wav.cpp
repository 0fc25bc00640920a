#include "wav.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

constexpr uint16_t FORMAT_PCM = 1;
constexpr uint16_t FORMAT_FLOAT = 3;
constexpr uint16_t FORMAT_EXTENSIBLE = 0xFFFE;

// What an encoder that cannot seek writes at the least in place of a size that it does not know.
constexpr uint32_t UNKNOWN_SIZE = 0x7FFFF000;

// A part of a file, read in little-endian order.
class Reader {
public:
    Reader(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    size_t Size() const { return mSize; }
    uint16_t U16(size_t offset) const { return static_cast<uint16_t>(mData[offset] | mData[offset + 1] << 8); }
    uint32_t U32(size_t offset) const { return U16(offset) | static_cast<uint32_t>(U16(offset + 2)) << 16; }
    std::string Text(size_t offset, size_t size) const { return {mData + offset, mData + offset + size}; }
    Bytes Copy() const { return {mData, mData + mSize}; }
    Reader Part(size_t offset, size_t size) const { return {mData + offset, size}; }

private:
    const uint8_t* mData;
    size_t mSize;
};

void ParseFormat(const Reader& fmt, WavFile& wav)
{
    constexpr std::array<uint8_t, 14> guidTail{0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};
    if (fmt.Size() < 14) {
        throw WavError("its format chunk is too short");
    }
    wav.formatTag = fmt.U16(0);
    wav.channels = fmt.U16(2);
    wav.samplesPerSecond = fmt.U32(4);
    wav.blockBytes = fmt.U16(12);
    wav.bitsPerSample = fmt.Size() >= 16 ? fmt.U16(14) : uint16_t{0};
    if (wav.formatTag == FORMAT_EXTENSIBLE && fmt.Size() >= 40 &&
        fmt.Text(26, guidTail.size()) == std::string(guidTail.begin(), guidTail.end())) {
        wav.formatTag = fmt.U16(24);
    }
    if (wav.blockBytes == 0) {
        throw WavError("its header states no block size");
    }
    // Where a block is one sample of every channel, the sampling rate is exact, and the bytes per second that
    // encoders write beside it are often wrong.
    const bool isPlain = wav.formatTag == FORMAT_PCM || wav.formatTag == FORMAT_FLOAT;
    const uint32_t rate = isPlain ? wav.samplesPerSecond : fmt.U32(8);
    if (rate == 0 || rate > INT32_MAX) {
        throw WavError("its header states no usable rate (" + std::to_string(rate) +
                       (isPlain ? " samples" : " bytes") + " per second)");
    }
    wav.blockRateNum = static_cast<int32_t>(rate);
    wav.blockRateDen = isPlain ? 1 : wav.blockBytes;
}

// Texts of a file go into logs and to terminals.
std::string Printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
    return text;
}

void ParseInfo(const Reader& list, WavFile& wav)
{
    if (list.Size() < 4 || list.Text(0, 4) != "INFO") {
        return;
    }
    size_t position = 4;
    while (position + 8 <= list.Size()) {
        const size_t size = std::min<size_t>(list.U32(position + 4), list.Size() - position - 8);
        const std::string text = list.Text(position + 8, size);
        wav.info[Printable(list.Text(position, 4))] = Printable(text.substr(0, text.find('\0')));
        position += 8 + size + size % 2;
    }
}

void Append(Bytes& bytes, const std::string& text) { bytes.insert(bytes.end(), text.begin(), text.end()); }

void AppendU32(Bytes& bytes, uint64_t value)
{
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

void AppendChunk(Bytes& bytes, const std::string& id, const Reader& chunk)
{
    const Bytes body = chunk.Copy();
    Append(bytes, id);
    AppendU32(bytes, body.size());
    bytes.insert(bytes.end(), body.begin(), body.end());
    bytes.resize(bytes.size() + body.size() % 2);
}

}  // namespace

WavFile ParseWav(const Bytes& bytes)
{
    const Reader file(bytes.data(), bytes.size());
    if (file.Size() == 0) {
        throw WavError("it is empty");
    }
    if (file.Size() < 12 || file.Text(0, 4) != "RIFF" || file.Text(8, 4) != "WAVE") {
        throw WavError("it is not a RIFF/WAVE file");
    }
    const bool isSizeKnown = file.U32(4) == file.Size() - 8;
    WavFile wav;
    bool hasFact = false;
    size_t position = 12;
    while (position + 8 <= file.Size()) {
        const std::string id = file.Text(position, 4);
        size_t size = file.U32(position + 4);
        const size_t left = file.Size() - position - 8;
        const bool isStreamed =
            id == "data" && ((size == 0 && !isSizeKnown) || (size >= UNKNOWN_SIZE && size > left));
        if (isStreamed) {
            size = left;
        } else if (size > left && !wav.samples.empty()) {
            break;  // tags of other kinds are common behind the samples
        } else if (size > left) {
            throw WavError("it is truncated: chunk '" + Printable(id) + "' has " + std::to_string(left) + " of " +
                           std::to_string(size) + " bytes");
        }
        const Reader chunk = file.Part(position + 8, size);
        if ((id == "fmt " && wav.blockBytes != 0) || (id == "data" && !wav.samples.empty())) {
            throw WavError("it has its chunk '" + id + "' twice");
        }
        if (id == "fmt ") {
            ParseFormat(chunk, wav);
            AppendChunk(wav.formatChunks, id, chunk);
        } else if (id == "fact" && !hasFact) {
            AppendChunk(wav.formatChunks, id, chunk);
            hasFact = true;
        } else if (id == "LIST") {
            ParseInfo(chunk, wav);
        } else if (id == "data") {
            if (wav.blockBytes == 0) {
                throw WavError("its samples come without a format");
            }
            // A stream may break off anywhere. What was written in full may end in a shorter block.
            wav.samples =
                chunk.Part(0, isStreamed ? size - size % static_cast<size_t>(wav.blockBytes) : size).Copy();
        }
        position += 8 + size + size % 2;
    }
    if (wav.samples.empty()) {
        throw WavError("it has no samples");
    }
    return wav;
}

std::string FormatName(uint16_t formatTag)
{
    const std::map<uint16_t, const char*> names{
        {FORMAT_PCM, "PCM"}, {0x02, "MS ADPCM"}, {FORMAT_FLOAT, "IEEE float"}, {0x06, "A-law"}, {0x07, "mu-law"},
        {0x11, "IMA ADPCM"}, {0x31, "GSM 6.10"}, {0x40, "G.721 ADPCM"},        {0x50, "MPEG"},  {0x55, "MP3"},
        {0xFF, "AAC"}};
    const auto name = names.find(formatTag);
    if (name != names.end()) {
        return name->second;
    }
    std::array<char, sizeof("format 0x0000")> text{};
    snprintf(text.data(), text.size(), "format 0x%04X", formatTag);
    return text.data();
}

Bytes WavHeader(const Bytes& formatChunks, uint64_t sampleBytes)
{
    Bytes header;
    Append(header, "RIFF");
    AppendU32(header, 4 + formatChunks.size() + 8 + sampleBytes + sampleBytes % 2);
    Append(header, "WAVE");
    header.insert(header.end(), formatChunks.begin(), formatChunks.end());
    Append(header, "data");
    AppendU32(header, sampleBytes);
    return header;
}
