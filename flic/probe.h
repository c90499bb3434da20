// flicProbeFile: what a file holds, read from its header alone: its kind, announced size and
// encoding, and whether its binary data is all there. Front ends use it to refuse broken input
// before any work, and to describe files; the readers themselves keep their own behaviour.
#ifndef MUSKEIP_PROBE_H
#define MUSKEIP_PROBE_H

#include "api.h"

enum FlicFileKind : int {
    FLIC_FILE_MISSING = 0,  // cannot be opened
    FLIC_FILE_UNKNOWN = 1,  // none of the kinds below
    FLIC_FILE_PNM = 2,      // P2, P3, P5, P6
    FLIC_FILE_PNG = 3,      // by its signature
    FLIC_FILE_VECTOR = 4,   // "FLIC VECTOR"
    FLIC_FILE_SCALAR = 5,   // "FLIC SCALAR"
    FLIC_FILE_GRAPHICS = 6, // "FLIC GRAPHICS"
    FLIC_FILE_UCD = 7,      // a first line of two counts
    FLIC_FILE_NPY = 8,      // numpy's .npy signature
    FLIC_FILE_ZIP = 9,      // a zip archive (numpy's .npz)
    FLIC_FILE_COLORMAP = 10 // a colour-map text file: named .icol, or 16 numbers on line 1
};

struct MUSKEIP_API FlicFileProbe {
    FlicFileKind kind;
    long long width, height;       // PNM and PNG pixels, FLIC field nodes, as the header has them
    int channels;                  // PNM/PNG 1 or 3; FLIC fields 2 (vector) or 1 (scalar)
    int maxValue;                  // PNM maxval; PNG bit depth
    int binary;                    // 1: the samples are binary (P5, P6, FLIC ... BINARY)
    long long dataBytes;           // binary data the header announces (0 for text data)
    long long presentBytes;        // binary data the file holds after its header
    long long vertices, triangles; // UCD counts as written (values beyond int kept)
    int columns;                   // UCD: numbers on the first vertex line
    char problem[160];             // what is wrong with the header, "" when nothing
};

// Probes the file at `path`. Returns 1 when it could be opened (`kind` tells the rest; a header
// that cannot be used has `problem` set), 0 for a file that cannot be opened (kind
// FLIC_FILE_MISSING). Prints nothing.
MUSKEIP_API int flicProbeFile(const char* path, FlicFileProbe& probe);
// 1 when the probe found binary data short of what its header announces.
MUSKEIP_API int flicProbeShort(const FlicFileProbe& probe);
// The completeness check of the readers' input: 1 when the file's binary data is all there
// (or it has none to check); otherwise 0 after a report naming the file and the counts:
// flic_ioerror "can't open F (the pixel data ends after B of N bytes (W x H pixels
// announced))" for PNM images, flic_error "F: the binary data ends after V of N values" for
// FLIC VECTOR and FLIC SCALAR files, flic_ioerror for a file that cannot be opened.
MUSKEIP_API int flicCheckComplete(const char* path);

// The number of values whose size no field plausibly holds: infinite, or finite and non-zero
// with a magnitude above 1e30 or below 1e-30 (NaN, the no-data value, is not counted). Float
// data read in the wrong byte order gives mostly such values.
MUSKEIP_API long long flicImplausibleValues(const float* values, long long count);

#endif
