// Helpers shared by the test programs: message capture, scratch files, byte comparisons.
#ifndef MUSKEIP_TESTUTIL_H
#define MUSKEIP_TESTUTIL_H

#include "messages.h"
#include "vectorfield.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace testutil {

// Collects the texts passed to the message handlers while it lives, and restores the previous
// handlers and verbosity afterwards.
class MessageCapture {
  public:
    explicit MessageCapture(int verbosity = 1)
        : savedError(flic_error_handler), savedInfo(flic_info_handler),
          savedVerbosity(flic_verbosity) {
        errors().clear();
        infos().clear();
        flic_error_handler = &captureError;
        flic_info_handler = &captureInfo;
        flic_verbosity = verbosity;
    }
    ~MessageCapture() {
        flic_error_handler = savedError;
        flic_info_handler = savedInfo;
        flic_verbosity = savedVerbosity;
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
    FlicMessageHandler savedError, savedInfo;
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

} // namespace testutil

#endif
