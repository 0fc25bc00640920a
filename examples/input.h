#pragma once

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <regex>
#include <sndfile.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

// Sound of any format that libsndfile decodes, from a file or from a pipe. Frames are of int, float or double: of
// the type in which libsndfile passes on samples of WavSubtype() unchanged.
class Input {
public:
    // Throws std::runtime_error with one line for the user, as Read() does.
    explicit Input(const std::string& path) : mPath(path)
    {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat file {};
        if (fd < 0 || fstat(fd, &file) != 0) {
            Fail(strerror(errno));
        }
        mIsPipe = !S_ISREG(file.st_mode);
        mFile.reset(sf_open_fd(fd, SFM_READ, &mInfo, SF_TRUE));
        const bool isRf64 = (mInfo.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64;  // from a pipe, its end is lost
        if (!mFile || (mIsPipe && isRf64)) {
            Fail(!mIsPipe ? sf_strerror(nullptr)
                          : "not a format that libsndfile reads from a pipe; try it as a file");
        }
        if (!mIsPipe && (mInfo.frames == SF_COUNT_MAX || IsShorterThanPromised())) {
            Fail("it is truncated");
        }
    }

    const std::string& Path() const { return mPath; }
    const SF_INFO& Info() const { return mInfo; }
    SNDFILE* File() const { return mFile.get(); }

    // With which a WAV file holds the samples: PCM, float and double stay, but WAV has no signed bytes. The other
    // codecs decode to float, or to 16 bits or more.
    int WavSubtype() const
    {
        const int subtype = mInfo.format & SF_FORMAT_SUBMASK;
        const bool isFloat =
            subtype == SF_FORMAT_VORBIS || subtype == SF_FORMAT_OPUS || subtype >= SF_FORMAT_MPEG_LAYER_I;
        return isFloat                        ? SF_FORMAT_FLOAT
               : subtype == SF_FORMAT_PCM_S8  ? SF_FORMAT_PCM_U8
               : subtype <= SF_FORMAT_DOUBLE  ? subtype
               : subtype >= SF_FORMAT_DWVW_12 ? SF_FORMAT_PCM_32
                                              : SF_FORMAT_PCM_16;
    }

    size_t FrameBytes() const
    {
        return static_cast<size_t>(mInfo.channels) *
               (WavSubtype() == SF_FORMAT_DOUBLE ? sizeof(double) : sizeof(int));
    }

    // Returns 0 if only the end of a pipe will tell.
    int64_t Frames() const
    {
        const bool isUnknown = mIsPipe && mInfo.frames >= UNKNOWN_BYTES / static_cast<int64_t>(FrameBytes());
        return isUnknown ? 0 : mInfo.frames;
    }

    std::string FormatName() const
    {
        SF_FORMAT_INFO container{mInfo.format & SF_FORMAT_TYPEMASK, "", ""};
        SF_FORMAT_INFO codec{mInfo.format & SF_FORMAT_SUBMASK, "", ""};
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &container, sizeof(container));
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &codec, sizeof(codec));
        return std::string(container.name) + ", " + codec.name;
    }

    // Returns the number of frames read, which is less than `frames` only at the end. Throws if frames are
    // missing.
    int64_t Read(void* to, int64_t frames)
    {
        // From the end of a pipe on, some codecs decode silence without end.
        const bool isSilence = mIsPipe && Log().find("short read") != std::string::npos;
        const int subtype = WavSubtype();
        const int64_t got = isSilence ? 0
                            : subtype == SF_FORMAT_DOUBLE
                                ? sf_readf_double(File(), static_cast<double*>(to), frames)
                            : subtype == SF_FORMAT_FLOAT ? sf_readf_float(File(), static_cast<float*>(to), frames)
                                                         : sf_readf_int(File(), static_cast<int*>(to), frames);
        mDoneFrames += got;
        if (sf_error(File()) != 0 || mDoneFrames == 0) {
            Fail(mDoneFrames == 0 ? "it has no samples" : sf_strerror(File()));
        }
        if (Frames() > 0 && (isSilence || (got < frames && mDoneFrames < Frames()))) {
            Fail("it is truncated");
        }
        return got;
    }

    // Writes frames of this input to a file of its WavSubtype(). Returns false if not all could be written.
    bool Write(SNDFILE* to, const void* from, int64_t frames) const
    {
        const int subtype = WavSubtype();
        return frames ==
               (subtype == SF_FORMAT_DOUBLE  ? sf_writef_double(to, static_cast<const double*>(from), frames)
                : subtype == SF_FORMAT_FLOAT ? sf_writef_float(to, static_cast<const float*>(from), frames)
                                             : sf_writef_int(to, static_cast<const int*>(from), frames));
    }

private:
    // What an encoder that cannot seek writes at the least in place of a size that it does not know.
    static constexpr int64_t UNKNOWN_BYTES = 0x7FFFF000;

    std::string Log() const
    {
        std::array<char, 1 << 14> log{};
        sf_command(File(), SFC_GET_LOG_INFO, log.data(), log.size());
        return log.data();
    }

    // libsndfile plays what is there of a file. Only its log tells what the header promises.
    bool IsShorterThanPromised() const
    {
        const std::regex promise("(data|SSND|Data Size|Riff size|riff) *: ([0-9]+) \\(should be ([0-9]+)\\)");
        const std::string log = Log();
        std::smatch size;
        return std::regex_search(log, size, promise) && std::stoll(size[2]) > std::stoll(size[3]) &&
               std::stoll(size[2]) < UNKNOWN_BYTES;
    }

    [[noreturn]] void Fail(const std::string& what) const { throw std::runtime_error(mPath + ": " + what); }

    const std::string mPath;
    bool mIsPipe = false;
    SF_INFO mInfo{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> mFile{nullptr, sf_close};
    int64_t mDoneFrames = 0;
};
