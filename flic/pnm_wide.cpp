// flicReadWidePNM: PNM files whose samples exceed a byte (maxval 256 .. 65535, two big-endian
// bytes per binary sample), scaled exactly to 0 .. 255. The header is read as readPNM reads it.
#include "image.h"
#include "image_common.h"
#include "messages.h"
#include "probe.h"

#include <cstdio>
#include <cstring>

namespace {

struct File {
    FILE* handle;
    ~File() {
        if (handle) fclose(handle);
    }
};

// Skips the three header lines (magic, size, maxval; comment lines between them) as the
// image reader does.
void skip_header(FILE* file) {
    char line[256];
    if (!fgets(line, 32, file)) return;
    flic_image::read_pnm_header_line(file, line, 255);
    flic_image::read_pnm_header_line(file, line, 255);
}

// v * 255 / maxValue, rounded to the nearest byte.
unsigned char scaled(long v, long maxValue) {
    if (v > maxValue) v = maxValue;
    if (v < 0) v = 0;
    return static_cast<unsigned char>((v * 255 + maxValue / 2) / maxValue);
}

} // namespace

int flicReadWidePNM(const char* filename, FlicImage& image) {
    FlicFileProbe probe;
    if (!flicProbeFile(filename, probe)) return flic_ioerror(filename, nullptr);
    if (probe.kind != FLIC_FILE_PNM || probe.problem[0])
        return flic_ioerror(filename, probe.problem[0] ? probe.problem : "not a PNM file");
    if (probe.maxValue <= 255) return image.readPNM(filename);
    if (flicProbeShort(probe)) return flic_ioerror(filename, "file too short for its dimensions");
    int w = static_cast<int>(probe.width), h = static_cast<int>(probe.height);
    int channels = probe.channels;
    FlicImage loaded(w, h, channels);
    if (!loaded.data) return 0;
    File file{fopen(filename, "rb")};
    if (!file.handle) return flic_ioerror(filename, nullptr);
    skip_header(file.handle);
    long maxValue = probe.maxValue;
    for (int y = h - 1; y >= 0; y--) {
        unsigned char* row = loaded.data + static_cast<long>(y) * loaded.bytesPerLine;
        for (int i = 0; i < w * channels; i++) {
            long v = 0;
            if (probe.binary) {
                int high = fgetc(file.handle), low = fgetc(file.handle);
                if (low == EOF) return flic_ioerror(filename, "file too short for its dimensions");
                v = (high << 8) | low;
            } else if (fscanf(file.handle, "%ld", &v) != 1) {
                return flic_ioerror(filename, "illegal or missing sample values");
            }
            row[i] = scaled(v, maxValue);
        }
    }
    image.swap(loaded);
    return 1;
}
