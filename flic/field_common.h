// Pieces shared by the vector and scalar field containers: the grid geometry, zero-filled
// storage for a field being read, and the two header lines of their files. Internal to the
// library: not installed with the public headers.
#ifndef MUSKEIP_FIELD_COMMON_H
#define MUSKEIP_FIELD_COMMON_H

#include "messages.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace flic_field {

// Divisor of the grid coordinate i / (n - 1). A single node has no extent: it sits at
// position 0 (the divisor 1 keeps the only index, 0, at 0 instead of dividing by zero).
inline float grid_divisor(int n) {
    return static_cast<float>(n > 1 ? n - 1 : 1);
}

// Cell of a bilinear sample at position p along an axis of `count` nodes. Positions past the
// grid (from rounding of long position sums) are held to the last node.
inline int cell_index(float p, int count) {
    if (p >= static_cast<float>(count - 1)) return count - 1;
    return p > 0 ? static_cast<int>(p) : 0;
}

// The second node of the cell: the next one, or at the last node the one before it (the
// mirrored neighbour); an axis of a single node uses the node itself.
inline int neighbour_index(int i, int count) {
    if (i < count - 1) return i + 1;
    return count > 1 ? i - 1 : i;
}

// Gives a field that is being read fresh zero-filled storage of width x height nodes of
// `components` floats, in place of setSize's resized block. The pages of a large block stay
// untouched until values arrive, so a file that announces a large field but ends early costs
// memory only for what it holds; nodes it does not supply read as zero. Returns false after
// reporting "no memory for a <kind> field of W x H", the field unchanged.
template <class Field>
bool take_zeroed_storage(Field& field, int width, int height, int components, const char* kind) {
    size_t nodes = static_cast<size_t>(width) * static_cast<size_t>(height);
    float* block = static_cast<float*>(calloc(nodes, components * sizeof(float)));
    if (!block) return flic_error("no memory for a %s field of %d x %d", kind, width, height);
    free(field.buffer);
    field.buffer = field.data = block;
    field.width = width;
    field.height = height;
    return true;
}

// Reads one header line of a field file into `line` (at most 62 characters).
inline bool read_header_line(FILE* file, char line[64]) {
    if (fgets(line, 63, file)) return true;
    line[0] = '\0';
    return false;
}

// Opens a field file and reads its two header lines: the first must hold `header` ("FLIC
// VECTOR" or "FLIC SCALAR"), with the word BINARY for binary values; the second the width and
// height, each 2 to 10000. Returns the file, positioned at the values, or null after reporting
// the reason through flic_ioerror ("illegal <kind> field dimensions" for the second line).
inline FILE* open_field_file(const char* filename, const char* header, const char* kind,
                             bool& binary, int& width, int& height) {
    FILE* file = fopen(filename, "rb");
    if (!file) {
        flic_ioerror(filename, nullptr);
        return nullptr;
    }
    char line[64], reason[64];
    read_header_line(file, line);
    if (!strstr(line, header)) {
        snprintf(reason, sizeof reason, "header string '%s' not found", header);
        flic_ioerror(filename, reason);
        fclose(file);
        return nullptr;
    }
    binary = strstr(line, "BINARY") != nullptr;

    width = height = 0;
    read_header_line(file, line);
    if (sscanf(line, "%d%d", &width, &height) < 2 || width < 2 || height < 2 || width > 10000 ||
        height > 10000) {
        snprintf(reason, sizeof reason, "illegal %s field dimensions", kind);
        fclose(file);
        flic_ioerror(filename, reason);
        return nullptr;
    }
    return file;
}

} // namespace flic_field

#endif
