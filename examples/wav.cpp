#include "wav.h"

#include <algorithm>
#include <array>

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
    if (fmt.Size() < 16) {
        throw WavError("its format chunk is too short");
    }
    uint16_t tag = fmt.U16(0);
    if (tag == FORMAT_EXTENSIBLE) {
        if (fmt.Size() < 40 || fmt.Text(26, guidTail.size()) != std::string(guidTail.begin(), guidTail.end())) {
            throw WavError("its extensible format is of no known kind");
        }
        tag = fmt.U16(24);
    }
    const uint16_t bits = fmt.U16(14);
    const bool isPcm = tag == FORMAT_PCM && (bits == 8 || bits == 16 || bits == 24 || bits == 32);
    wav.isFloat = tag == FORMAT_FLOAT && (bits == 32 || bits == 64);
    if (!isPcm && !wav.isFloat) {
        throw WavError("its format is neither PCM of 8, 16, 24 or 32 bits nor float of 32 or 64 (tag " +
                       std::to_string(tag) + ", " + std::to_string(bits) + " bits)");
    }
    wav.channels = fmt.U16(2);
    wav.bitsPerSample = bits;
    wav.frameBytes = wav.channels * bits / 8;
    if (wav.channels == 0 || fmt.U32(4) == 0 || fmt.U32(4) > INT32_MAX || fmt.U16(12) != wav.frameBytes) {
        throw WavError("its format chunk contradicts itself");
    }
    wav.sampleRate = static_cast<int32_t>(fmt.U32(4));
    wav.fmtChunk = fmt.Copy();
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
    size_t position = 12;
    while (position + 8 <= file.Size()) {
        const std::string id = file.Text(position, 4);
        size_t size = file.U32(position + 4);
        const size_t left = file.Size() - position - 8;
        const bool isStreamed =
            id == "data" && ((size == 0 && !isSizeKnown) || (size >= UNKNOWN_SIZE && size > left));
        if (isStreamed) {
            size = left;
        } else if (size > left) {
            throw WavError("it is truncated: chunk '" + Printable(id) + "' has " + std::to_string(left) + " of " +
                           std::to_string(size) + " bytes");
        }
        const Reader chunk = file.Part(position + 8, size);
        if ((id == "fmt " && !wav.fmtChunk.empty()) || (id == "data" && !wav.samples.empty())) {
            throw WavError("it has its chunk '" + id + "' twice");
        }
        if (id == "fmt ") {
            ParseFormat(chunk, wav);
        } else if (id == "LIST") {
            ParseInfo(chunk, wav);
        } else if (id == "data") {
            if (wav.frameBytes == 0) {
                throw WavError("its samples come without a format");
            }
            const size_t cutOff = size % static_cast<size_t>(wav.frameBytes);
            if (cutOff != 0 && !isStreamed) {
                throw WavError("its last sample frame is not whole");
            }
            wav.samples = chunk.Part(0, size - cutOff).Copy();
        }
        position += 8 + size + size % 2;
    }
    if (wav.samples.empty()) {
        throw WavError("it has no samples");
    }
    return wav;
}

Bytes WavHeader(const Bytes& fmtChunk, uint64_t sampleBytes)
{
    const uint64_t fmtPadded = fmtChunk.size() + fmtChunk.size() % 2;
    Bytes header;
    Append(header, "RIFF");
    AppendU32(header, 4 + 8 + fmtPadded + 8 + sampleBytes + sampleBytes % 2);
    Append(header, "WAVEfmt ");
    AppendU32(header, fmtChunk.size());
    header.insert(header.end(), fmtChunk.begin(), fmtChunk.end());
    header.resize(header.size() + fmtChunk.size() % 2);
    Append(header, "data");
    AppendU32(header, sampleBytes);
    return header;
}
