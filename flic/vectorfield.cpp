// FlicVectorField container, whole-field utilities and the "FLIC VECTOR" files.
#include "vectorfield.h"

#include "messages.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Largest node count a field may have: two floats per node must stay countable in an int.
const long long kMaxFieldNodes = INT_MAX / 2;

// Reads one header line of a field file into `line` (at most 62 characters).
bool read_field_header_line(FILE* file, char line[64]) {
    if (fgets(line, 63, file)) return true;
    line[0] = '\0';
    return false;
}

} // namespace

void swapByteOrder(int count, void* data) {
    unsigned char* bytes = static_cast<unsigned char*>(data);
    for (int i = 0; i < count; i++, bytes += 4) {
        unsigned char b0 = bytes[0], b1 = bytes[1];
        bytes[0] = bytes[3];
        bytes[1] = bytes[2];
        bytes[2] = b1;
        bytes[3] = b0;
    }
}

FlicVectorField::FlicVectorField() : buffer(nullptr), data(nullptr), width(0), height(0) {}

FlicVectorField::FlicVectorField(int width, int height, float* data) : FlicVectorField() {
    if (data) {
        this->width = width;
        this->height = height;
        this->data = data;
    } else {
        setSize(width, height);
    }
}

FlicVectorField::FlicVectorField(const FlicVectorField& other) : FlicVectorField() {
    *this = other;
}

FlicVectorField& FlicVectorField::operator=(const FlicVectorField& other) {
    if (&other == this) return *this;
    if (!setSize(other.width, other.height)) return *this;
    if (data && other.data)
        memcpy(data, other.data, static_cast<size_t>(width) * height * sizeof(Vec2f));
    return *this;
}

FlicVectorField::~FlicVectorField() {
    if (buffer) free(buffer);
}

int FlicVectorField::setSize(int width, int height) {
    long long nodes = static_cast<long long>(width) * height;
    if (nodes > kMaxFieldNodes)
        return flic_error("vector field size %d x %d is too large", width, height);
    this->width = width;
    this->height = height;
    if (nodes > 0) {
        size_t bytes = static_cast<size_t>(width) * 8 * static_cast<size_t>(height);
        buffer = static_cast<float*>(buffer ? realloc(buffer, bytes) : malloc(bytes));
    } else if (buffer) {
        free(buffer);
        buffer = nullptr;
    }
    data = buffer;
    return 1;
}

void FlicVectorField::pixelCallback(int x, int y, float* values, void* field) {
    FlicVectorField* self = static_cast<FlicVectorField*>(field);
    if (x < 0 || x >= self->width || y < 0 || y >= self->height) return;
    float* entry = self->data + 2 * (static_cast<long>(y) * self->width + x);
    entry[0] = values[0];
    entry[1] = values[1];
}

int FlicVectorField::read(const char* filename) {
    FILE* file = fopen(filename, "rb");
    if (!file) return flic_ioerror(filename, nullptr);

    char line[64];
    read_field_header_line(file, line);
    if (!strstr(line, "FLIC VECTOR")) {
        flic_ioerror(filename, "header string 'FLIC VECTOR' not found");
        fclose(file);
        return 0;
    }
    bool binary = strstr(line, "BINARY") != nullptr;

    int w = 0, h = 0;
    read_field_header_line(file, line);
    if (sscanf(line, "%d%d", &w, &h) < 2 || w < 2 || h < 2 || w > 10000 || h > 10000) {
        fclose(file);
        return flic_ioerror(filename, "illegal vector field dimensions");
    }
    setSize(w, h);
    size_t nodes = static_cast<size_t>(w) * h;

    if (binary) {
        // A short file is not an error; the part it does not supply reads as zero vectors.
        size_t got = fread(data, 8, nodes, file);
        if (got < nodes) memset(data + 2 * got, 0, (nodes - got) * 8);
        swapByteOrder(2 * w * h, data);
    } else {
        for (size_t i = 0; i < nodes; i++) {
            if (fscanf(file, "%g%g", &data[2 * i], &data[2 * i + 1]) < 2) {
                // Keep the values read so far; the rest reads as zero vectors.
                memset(data + 2 * i, 0, (nodes - i) * 8);
                fclose(file);
                return flic_ioerror(filename, "illegal or missing vector values");
            }
        }
    }
    fclose(file);
    return 1;
}

int FlicVectorField::write(const char* filename, int ascii) const {
    FILE* file = fopen(filename, "wb");
    if (!file) return flic_ioerror(filename, nullptr);
    fputs("FLIC VECTOR ", file);
    long nodes = width > 0 && height > 0 ? static_cast<long>(width) * height : 0;
    if (ascii) {
        fprintf(file, "ASCII\n%d %d\n", width, height);
        for (long i = 0; i < nodes; i++)
            fprintf(file, "%g %g\n", static_cast<double>(data[2 * i]),
                    static_cast<double>(data[2 * i + 1]));
    } else {
        fprintf(file, "BINARY\n%d %d\n", width, height);
        if (nodes > 0) fwrite(data, 8, nodes, file);
    }
    fclose(file);
    return 1;
}

float FlicVectorField::getMax() const {
    long nodes = width > 0 && height > 0 ? static_cast<long>(width) * height : 0;
    if (nodes == 0 || !data) return 0.0f;
    float max = data[0] * data[0] + data[1] * data[1];
    for (long i = 1; i < nodes; i++) {
        float x = data[2 * i], y = data[2 * i + 1];
        float squared = x * x + y * y;
        if (squared > max) max = squared;
    }
    return sqrtf(max);
}

void FlicVectorField::normalize() {
    long nodes = width > 0 && height > 0 ? static_cast<long>(width) * height : 0;
    for (long i = 0; data && i < nodes; i++) {
        float& x = data[2 * i];
        float& y = data[2 * i + 1];
        float length = sqrtf(x * x + y * y);
        if (length > 0) {
            x = x / length;
            y = y / length;
        }
    }
}

// --- Sampling and resampling -----------------------------------------------------------------

namespace {

// The four nodes and weights of a bilinear sample at (px, py). At the last column or row the
// neighbour is taken on the other side with the same weight; a field one node wide or high
// uses the node itself. Positions beyond the grid (possible only through rounding of long
// position sums) are held to the last node, so no lookup leaves the field.
struct BilinearCell {
    long a, b, c, d; // node indices: (ix, iy), (nx, iy), (ix, ny), (nx, ny)
    float tx, ty;
};

int cell_index(float p, int count) {
    if (p >= static_cast<float>(count - 1)) return count - 1;
    return p > 0 ? static_cast<int>(p) : 0;
}

int neighbour_index(int i, int count) {
    if (i < count - 1) return i + 1;
    return count > 1 ? i - 1 : i;
}

BilinearCell bilinear_cell(float px, float py, int width, int height) {
    int ix = cell_index(px, width), iy = cell_index(py, height);
    int nx = neighbour_index(ix, width), ny = neighbour_index(iy, height);
    BilinearCell cell;
    cell.a = static_cast<long>(iy) * width + ix;
    cell.b = static_cast<long>(iy) * width + nx;
    cell.c = static_cast<long>(ny) * width + ix;
    cell.d = static_cast<long>(ny) * width + nx;
    cell.tx = px - ix;
    cell.ty = py - iy;
    return cell;
}

float blend(float a, float b, float c, float d, float tx, float ty) {
    return a + (b - a) * tx + (c - a) * ty + tx * ty * (a - c - b + d);
}

// Bilinear sample of both components of a field with at least one node.
Vec2f sample_field(const Vec2f* v, int width, int height, float px, float py) {
    BilinearCell cell = bilinear_cell(px, py, width, height);
    Vec2f out;
    out.x = blend(v[cell.a].x, v[cell.b].x, v[cell.c].x, v[cell.d].x, cell.tx, cell.ty);
    out.y = blend(v[cell.a].y, v[cell.b].y, v[cell.c].y, v[cell.d].y, cell.tx, cell.ty);
    return out;
}

bool has_nodes(const FlicVectorField& field) {
    return field.data && field.width > 0 && field.height > 0;
}

// Cell-centred bilinear resampling of `source` into `target`, already sized.
void resample_into(const FlicVectorField& source, FlicVectorField& target) {
    Vec2f* out = target.vectors();
    long count = has_nodes(target) ? static_cast<long>(target.width) * target.height : 0;
    if (!has_nodes(source)) {
        for (long k = 0; k < count; k++)
            out[k] = Vec2f{0.0f, 0.0f};
        return;
    }
    float sx = static_cast<float>(source.width - 1) / static_cast<float>(target.width);
    float sy = static_cast<float>(source.height - 1) / static_cast<float>(target.height);
    float py = 0.5f * sy;
    for (int j = 0; j < target.height; j++, py += sy) {
        float px = 0.5f * sx;
        for (int i = 0; i < target.width; i++, px += sx)
            *out++ = sample_field(source.vectors(), source.width, source.height, px, py);
    }
}

} // namespace

// In place, the field takes over the resampled storage and releases its previous block.
void FlicVectorField::resample(int newWidth, int newHeight, FlicVectorField* result) {
    if (result == this) result = nullptr;
    if (result) {
        if (result->setSize(newWidth, newHeight)) resample_into(*this, *result);
        return;
    }
    FlicVectorField resampled;
    if (!resampled.setSize(newWidth, newHeight)) return;
    resample_into(*this, resampled);
    if (buffer) free(buffer);
    buffer = resampled.buffer;
    data = resampled.data;
    width = resampled.width;
    height = resampled.height;
    resampled.buffer = nullptr;
    resampled.data = nullptr;
}
