// Helpers shared by the test programs: message capture, scratch files, byte comparisons.
#ifndef MUSKEIP_TESTUTIL_H
#define MUSKEIP_TESTUTIL_H

#include "image.h"
#include "messages.h"
#include "vectorfield.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include <sys/resource.h>
#include <unistd.h>

namespace testutil {

// Collects the texts passed to the message handlers while it lives, and restores the previous
// handlers and verbosity afterwards.
class MessageCapture {
  public:
    explicit MessageCapture(int verbosity = 1)
        : savedError(flic_error_handler), savedInfo(flic_info_handler),
          savedWarning(flic_warning_handler), savedVerbosity(flic_verbosity) {
        errors().clear();
        infos().clear();
        warnings().clear();
        flic_error_handler = &captureError;
        flic_info_handler = &captureInfo;
        flic_warning_handler = &captureWarning;
        flic_verbosity = verbosity;
    }
    ~MessageCapture() {
        flic_error_handler = savedError;
        flic_info_handler = savedInfo;
        flic_warning_handler = savedWarning;
        flic_verbosity = savedVerbosity;
    }
    static std::vector<std::string>& warnings() {
        static std::vector<std::string> list;
        return list;
    }
    static std::vector<std::string>& errors() {
        static std::vector<std::string> list;
        return list;
    }
    static std::vector<std::string>& infos() {
        static std::vector<std::string> list;
        return list;
    }
    // The single error reported, or a description of how many there were.
    static std::string onlyError() {
        if (errors().size() == 1) return errors()[0];
        return "<" + std::to_string(errors().size()) + " errors>";
    }

  private:
    static int captureError(const char* text) {
        errors().push_back(text);
        return 0;
    }
    static int captureInfo(const char* text) {
        infos().push_back(text);
        return 0;
    }
    static int captureWarning(const char* text) {
        warnings().push_back(text);
        return 0;
    }
    FlicMessageHandler savedError, savedInfo, savedWarning;
    int savedVerbosity;
};

// A scratch directory removed with its files at the end of the test.
class TempDir {
  public:
    TempDir() {
        char pattern[] = "/tmp/muskeip-test-XXXXXX";
        const char* made = mkdtemp(pattern);
        dir = made ? made : "/tmp";
    }
    ~TempDir() {
        std::string command = "rm -rf '" + dir + "'";
        if (dir != "/tmp") (void)!system(command.c_str());
    }
    std::string path(const std::string& name) const { return dir + "/" + name; }

  private:
    std::string dir;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out << bytes;
}

// An image of the given geometry whose compact bytes are `bytes`.
inline FlicImage makeImage(int width, int height, int channels, const std::vector<int>& bytes) {
    FlicImage image(width, height, channels);
    for (size_t i = 0; i < bytes.size(); i++)
        image.data[i] = static_cast<unsigned char>(bytes[i]);
    return image;
}

// A grey image whose pixel (x, y) holds values[y * width + x].
inline FlicImage greyImage(int width, int height, const std::vector<int>& values) {
    return makeImage(width, height, 1, values);
}

// A width x height noise image: createRandom's bytes from `seed`.
inline FlicImage noiseImage(int width, int height, int channels, int seed) {
    FlicImage image(width, height, channels);
    image.createRandom(0, seed);
    return image;
}

// The bytes of a whole image as they lie in its buffer, for comparing pictures byte for byte.
inline std::vector<unsigned char> imageBytes(const FlicImage& image) {
    return std::vector<unsigned char>(image.data,
                                      image.data + image.width * image.height * image.nChannels);
}

// The pixel bytes row by row: nChannels * width bytes of each row, rows bytesPerLine apart.
inline std::vector<int> pixelBytes(const FlicImage& image) {
    std::vector<int> out;
    for (int y = 0; y < image.height; y++)
        for (int i = 0; i < image.nChannels * image.width; i++)
            out.push_back(image.data[static_cast<long>(y) * image.bytesPerLine + i]);
    return out;
}

// What `operation` prints on standard error.
template <typename Operation>
std::string stderrOf(Operation operation) {
    testing::internal::CaptureStderr();
    operation();
    return testing::internal::GetCapturedStderr();
}

// Pixel `along` of line `line` of a band image whose lines run along its rows (`rows`) or down
// its columns.
inline unsigned char* bandPixel(FlicImage& band, bool rows, int along, int line) {
    long row = rows ? line : along, column = rows ? along : line;
    return band.data + row * band.bytesPerLine + column * band.nChannels;
}

// A band of bytes 77, `length` pixels along and as many lines across as `pattern` has rows,
// with the rows of `pattern` laid along its lines from pixel `start` on.
inline FlicImage bandImage(bool rows, int length, const FlicImage& pattern, int start) {
    int lines = pattern.height, channels = pattern.nChannels;
    FlicImage band = rows ? FlicImage(length, lines, channels) : FlicImage(lines, length, channels);
    band.clear(77);
    for (int line = 0; line < lines; line++)
        for (int i = 0; i < pattern.width; i++)
            memcpy(bandPixel(band, rows, start + i, line),
                   pattern.data + (line * pattern.width + i) * channels, channels);
    return band;
}

// The bytes of pixels first .. last - 1 along every line of a band.
inline std::vector<int> bandBytes(FlicImage& band, bool rows, int first, int last) {
    std::vector<int> out;
    for (int line = 0; line < (rows ? band.height : band.width); line++)
        for (int i = first; i < last; i++)
            out.insert(out.end(), bandPixel(band, rows, i, line),
                       bandPixel(band, rows, i, line) + band.nChannels);
    return out;
}

// A width x height vector field whose node (x, y) holds at(x, y).
template <class At>
FlicVectorField makeField(int width, int height, At at) {
    FlicVectorField field(width, height);
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++)
            field.vectors()[y * width + x] = at(static_cast<float>(x), static_cast<float>(y));
    return field;
}

inline FlicVectorField uniformField(int width, int height, float vx, float vy) {
    return makeField(width, height, [=](float, float) { return Vec2f{vx, vy}; });
}

// Counter-clockwise rotation about (c, c), which bilinear interpolation reproduces exactly.
inline FlicVectorField rotationField(int size, float c) {
    return makeField(size, size, [=](float x, float y) { return Vec2f{-(y - c), x - c}; });
}

// A vortex and a saddle over the unit square: smooth, with critical points and lines leaving.
inline FlicVectorField vortexSaddle(int width, int height) {
    return makeField(width, height, [=](float x, float y) {
        float u = x / (width - 1.0f), v = y / (height - 1.0f);
        float ax = u - 0.3f, ay = v - 0.45f, bx = u - 0.72f, by = v - 0.6f;
        float wa = expf(-(ax * ax + ay * ay) * 12.0f);
        return Vec2f{-ay * wa + 0.6f * bx, ax * wa - 0.6f * by};
    });
}

// Peak resident memory of this process so far, in kilobytes.
inline long peakResidentKilobytes() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// While it lives, limits the address space to what the process maps now plus `headroom` bytes,
// so that larger allocations fail. AddressSanitizer needs address space of its own and ignores
// such limits: active() is false in sanitizer builds and when the limit cannot be set.
class AddressSpaceLimit {
  public:
    explicit AddressSpaceLimit(long long headroom) {
#if !defined(__SANITIZE_ADDRESS__)
        long pages = 0;
        std::ifstream statm("/proc/self/statm");
        if (!(statm >> pages) || getrlimit(RLIMIT_AS, &saved) != 0) return;
        struct rlimit limited = saved;
        limited.rlim_cur = static_cast<rlim_t>(pages) * sysconf(_SC_PAGESIZE) + headroom;
        set = setrlimit(RLIMIT_AS, &limited) == 0;
#else
        (void)headroom;
#endif
    }
    ~AddressSpaceLimit() {
        if (set) setrlimit(RLIMIT_AS, &saved);
    }
    AddressSpaceLimit(const AddressSpaceLimit&) = delete;
    AddressSpaceLimit& operator=(const AddressSpaceLimit&) = delete;
    bool active() const {
        return set;
    }

  private:
    struct rlimit saved {};
    bool set = false;
};

} // namespace testutil

#endif
