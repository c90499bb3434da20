// flicProbeFile: header parsing of every format the library reads, done as the readers do it
// (the same line lengths, comment rules and number scans), but with wide integers so that
// sizes beyond what the readers accept are reported as such.
#include "probe.h"

#include "image_common.h"
#include "messages.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace {

struct File {
    FILE* handle;
    ~File() {
        if (handle) fclose(handle);
    }
};

void set_problem(FlicFileProbe& probe, const char* text) {
    snprintf(probe.problem, sizeof probe.problem, "%s", text);
}

long long bytes_after(FILE* file) {
    struct stat info;
    long position = ftell(file);
    if (position < 0 || fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) return -1;
    long long rest = static_cast<long long>(info.st_size) - position;
    return rest < 0 ? 0 : rest;
}

void probe_pnm(FILE* file, const char* magic, FlicFileProbe& probe) {
    probe.kind = FLIC_FILE_PNM;
    probe.channels = (magic[1] == '3' || magic[1] == '6') ? 3 : 1;
    probe.binary = magic[1] == '5' || magic[1] == '6';
    char line[256];
    flic_image::read_pnm_header_line(file, line, 255);
    long long w = 0, h = 0;
    int sizes = sscanf(line, "%lld %lld", &w, &h);
    flic_image::read_pnm_header_line(file, line, 255);
    int maxValue = 0;
    int numbers = sscanf(line, "%d", &maxValue);
    probe.width = w;
    probe.height = h;
    probe.maxValue = maxValue;
    if (sizes != 2 || numbers != 1 || w <= 0 || h <= 0) {
        set_problem(probe, "couldn't read dimensions");
        return;
    }
    if (w > 1000000 || h > 1000000 || w * h > (1LL << 31) / probe.channels) {
        set_problem(probe, "size too large");
        return;
    }
    if (maxValue < 1 || maxValue > 65535) {
        set_problem(probe, "maximum value outside 1 .. 65535");
        return;
    }
    if (!probe.binary) return;
    probe.dataBytes = w * h * probe.channels * (maxValue > 255 ? 2 : 1);
    probe.presentBytes = bytes_after(file);
}

void probe_field(FILE* file, const char* first, FlicFileProbe& probe) {
    bool vector = strstr(first, "FLIC VECTOR") != nullptr;
    probe.kind = vector ? FLIC_FILE_VECTOR : FLIC_FILE_SCALAR;
    probe.channels = vector ? 2 : 1;
    probe.binary = strstr(first, "BINARY") != nullptr;
    char line[64];
    if (!fgets(line, 63, file)) line[0] = '\0';
    long long w = 0, h = 0;
    if (sscanf(line, "%lld %lld", &w, &h) != 2 || w <= 0 || h <= 0) {
        set_problem(probe,
                    vector ? "illegal vector field dimensions" : "illegal scalar field dimensions");
        return;
    }
    probe.width = w;
    probe.height = h;
    if (w > 1000000 || h > 1000000) {
        set_problem(probe, "size too large");
        return;
    }
    if (!probe.binary) return;
    probe.dataBytes = w * h * probe.channels * 4;
    probe.presentBytes = bytes_after(file);
}

// A FLIC VECTOR or FLIC SCALAR file: its header anywhere in the first line, read as the field
// readers read it (62 characters). Probes it and returns true, or returns false with the file
// back at `resume`.
bool field_header(FILE* file, long resume, FlicFileProbe& probe) {
    rewind(file);
    char line[64];
    if (!fgets(line, 63, file)) line[0] = '\0';
    if (strstr(line, "FLIC VECTOR") || strstr(line, "FLIC SCALAR")) {
        probe_field(file, line, probe);
        return true;
    }
    fseek(file, resume, SEEK_SET);
    return false;
}

// The UCD counts: everything but digits counts as a blank, as in the mesh readers; then the
// numbers on the first vertex line (the third line).
void probe_ucd(FILE* file, const char* first, FlicFileProbe& probe) {
    char digits[128];
    if (strlen(first) > 126) return;
    size_t n = 0;
    for (const char* p = first; *p && n + 1 < sizeof digits; p++)
        digits[n++] = isdigit(static_cast<unsigned char>(*p)) ? *p : ' ';
    digits[n] = '\0';
    long long vertices = 0, triangles = 0;
    if (sscanf(digits, "%lld%lld", &vertices, &triangles) != 2) return;
    probe.kind = FLIC_FILE_UCD;
    probe.vertices = vertices;
    probe.triangles = triangles;
    char line[4096];
    if (!fgets(line, sizeof line, file) || !fgets(line, sizeof line, file)) return;
    float value;
    int used = 0;
    const char* p = line;
    while (probe.columns < 16 && sscanf(p, "%g%n", &value, &used) == 1) {
        probe.columns++;
        p += used;
    }
}

// Whether the file is a colour-map table: its name ends in ".icol", or its first line holds the
// sixteen numbers of the four-group layout (no mesh's first line has that many).
bool is_colormap(const char* path, const char* first) {
    size_t length = strlen(path);
    if (length >= 5 && strcmp(path + length - 5, ".icol") == 0) return true;
    int count = 0, used = 0, value;
    for (const char* p = first; count < 17 && sscanf(p, "%d%n", &value, &used) == 1; p += used)
        count++;
    return count == 16;
}

long long big_endian_32(const unsigned char* bytes) {
    return (static_cast<long long>(bytes[0]) << 24) | (bytes[1] << 16) | (bytes[2] << 8) | bytes[3];
}

} // namespace

int flicProbeShort(const FlicFileProbe& probe) {
    return probe.binary && probe.dataBytes > 0 && probe.presentBytes >= 0 &&
           probe.presentBytes < probe.dataBytes;
}

int flicCheckComplete(const char* path) {
    FlicFileProbe probe;
    if (!flicProbeFile(path, probe)) return flic_ioerror(path, nullptr);
    if (!flicProbeShort(probe)) return 1;
    if (probe.kind != FLIC_FILE_PNM)
        return flic_error("%s: the binary data ends after %lld of %lld values", path,
                          probe.presentBytes / 4, probe.dataBytes / 4);
    char reason[200];
    snprintf(reason, sizeof reason,
             "the pixel data ends after %lld of %lld bytes (%lld x %lld pixels announced)",
             probe.presentBytes, probe.dataBytes, probe.width, probe.height);
    return flic_ioerror(path, reason);
}

int flicProbeFile(const char* path, FlicFileProbe& probe) {
    memset(&probe, 0, sizeof probe);
    probe.presentBytes = -1;
    File file{path ? fopen(path, "rb") : nullptr};
    if (!file.handle) {
        probe.kind = FLIC_FILE_MISSING;
        return 0;
    }
    probe.kind = FLIC_FILE_UNKNOWN;
    unsigned char head[8] = {0};
    size_t got = fread(head, 1, sizeof head, file.handle);
    static const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (got == 8 && memcmp(head, png, 8) == 0) {
        unsigned char header[17] = {0}; // IHDR: length, type, width, height, depth, colour
        if (fread(header, 1, sizeof header, file.handle) == sizeof header) {
            probe.width = big_endian_32(header + 8);
            probe.height = big_endian_32(header + 12);
            probe.maxValue = header[16];
        }
        probe.kind = FLIC_FILE_PNG;
        probe.binary = 1;
        return 1;
    }
    if (got >= 6 && memcmp(head, "\x93NUMPY", 6) == 0) {
        probe.kind = FLIC_FILE_NPY;
        return 1;
    }
    if (got >= 4 && memcmp(head, "PK\x03\x04", 4) == 0) {
        probe.kind = FLIC_FILE_ZIP;
        return 1;
    }
    rewind(file.handle);
    char first[256];
    if (!fgets(first, sizeof first, file.handle)) return 1;
    long afterFirst = ftell(file.handle);
    if (first[0] == 'P' && strchr("2356", first[1]) && first[1] && isspace(first[2])) {
        // The magic line as the image reader reads it: up to 31 characters.
        rewind(file.handle);
        char magic[32];
        if (!fgets(magic, 32, file.handle)) return 1;
        probe_pnm(file.handle, magic, probe);
    } else if (field_header(file.handle, afterFirst, probe)) {
        return 1;
    } else if (strstr(first, "FLIC GRAPHICS")) {
        probe.kind = FLIC_FILE_GRAPHICS;
    } else if (is_colormap(path, first)) {
        probe.kind = FLIC_FILE_COLORMAP;
    } else {
        probe_ucd(file.handle, first, probe);
    }
    return 1;
}

long long flicImplausibleValues(const float* values, long long count) {
    long long implausible = 0;
    for (long long k = 0; values && k < count; k++) {
        float v = values[k] < 0 ? -values[k] : values[k];
        if (v != v || v == 0.0f) continue;
        if (v > 1e30f || v < 1e-30f) implausible++;
    }
    return implausible;
}
