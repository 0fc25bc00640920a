#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

// RIFF/WAVE files of any sample format, known or not: the samples are blocks of one size at one rate.

using Bytes = std::vector<uint8_t>;

// What is wrong with a file, in one line.
class WavError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct WavFile {
    uint16_t formatTag = 0;  // within the extensible format, if it has one of the plain kinds
    uint16_t channels = 0;
    uint16_t bitsPerSample = 0;  // 0 in some compressed formats
    uint32_t samplesPerSecond = 0;  // of each channel
    // One block is a sample of every channel, or what a compressed format cannot divide.
    int32_t blockBytes = 0;
    int32_t blockRateNum = 0;  // blocks per second, a fraction
    int32_t blockRateDen = 0;
    Bytes formatChunks;  // 'fmt ' and 'fact' as they stand in the file
    std::map<std::string, std::string> info;  // LIST INFO: four-letter id to text
    Bytes samples;  // a stated size may end in a part of a block
};

// Throws WavError. A data size that streaming encoders leave behind (0 or the largest they can write) means
// that the samples go on to the end of the file, or to the last whole block.
WavFile ParseWav(const Bytes& file);

// The usual name of a format, or its number.
std::string FormatName(uint16_t formatTag);

// Everything that stands before the samples of a file with these format chunks.
Bytes WavHeader(const Bytes& formatChunks, uint64_t sampleBytes);
