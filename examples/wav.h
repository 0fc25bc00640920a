#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

// RIFF/WAVE files: PCM of 8, 16, 24 and 32 bits and IEEE floats of 32 and 64, plain or extensible.

using Bytes = std::vector<uint8_t>;

// What is wrong with a file, in one line.
class WavError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct WavFile {
    int32_t channels = 0;
    int32_t sampleRate = 0;
    int32_t bitsPerSample = 0;
    int32_t frameBytes = 0;  // of one sample of every channel
    bool isFloat = false;
    Bytes fmtChunk;  // as it stands in the file
    std::map<std::string, std::string> info;  // LIST INFO: four-letter id to text
    Bytes samples;  // whole frames
};

// Throws WavError. A data size that streaming encoders leave behind (0 or the largest they can write) means
// that the samples go on to the end of the file.
WavFile ParseWav(const Bytes& file);

// Everything that stands before the samples of a file with this format.
Bytes WavHeader(const Bytes& fmtChunk, uint64_t sampleBytes);
