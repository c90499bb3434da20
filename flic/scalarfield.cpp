// FlicScalarField container, the scan-conversion callback, the analytic generators, the
// "FLIC SCALAR" files, the value range and the pseudo-colouring through a colour map.
#include "scalarfield.h"

#include "colormap.h"
#include "field_common.h"
#include "image.h"
#include "messages.h"
#include "vectorfield.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

using flic_field::grid_divisor;

namespace {

// Largest node count a scalar field may have: the node count must stay a positive 32-bit int.
const long long kMaxScalarNodes = INT_MAX;

long node_count(const FlicScalarField& field) {
    if (!field.data || field.width <= 0 || field.height <= 0) return 0;
    return static_cast<long>(field.width) * field.height;
}

// A colour component in 0..1 as a byte: times 255, truncated; out-of-range components keep
// the low byte of the truncated value, and components beyond the int range are held at its
// ends so the conversion stays defined.
unsigned char component_byte(float c) {
    float v = c * 255;
    if (!(v == v)) return 0;
    if (v >= 2147483647.0f) return 0xff;
    if (v <= -2147483648.0f) return 0;
    return static_cast<unsigned char>(static_cast<int>(v));
}

void put_colour(const FlicColormap& colormap, float value, unsigned char* pixel) {
    float rgb[3];
    colormap.getColor1((value - colormap.min) * colormap.scale, rgb);
    pixel[0] = component_byte(rgb[0]);
    pixel[1] = component_byte(rgb[1]);
    pixel[2] = component_byte(rgb[2]);
}

// Bilinear sample at (px, py) with the mirrored neighbour at the last column and row; a
// field one node wide or high uses the node itself, and positions past the grid (from
// rounding of long position sums) are held to the last node.
float sample_scalar(const FlicScalarField& field, float px, float py) {
    using flic_field::cell_index;
    using flic_field::neighbour_index;
    int ix = cell_index(px, field.width), iy = cell_index(py, field.height);
    int nx = neighbour_index(ix, field.width), ny = neighbour_index(iy, field.height);
    const float* row = field.data + static_cast<long>(iy) * field.width;
    const float* next = field.data + static_cast<long>(ny) * field.width;
    float a = row[ix], b = row[nx], c = next[ix], d = next[nx];
    float tx = px - ix, ty = py - iy;
    return a + (b - a) * tx + (c - a) * ty + tx * ty * (a - c - b + d);
}

} // namespace

FlicScalarField::FlicScalarField() : buffer(nullptr), data(nullptr), width(0), height(0) {}

// A non-null `data` argument is not attached: only the size is recorded, and the field has no
// storage (data stays null) until setSize or read gives it some.
FlicScalarField::FlicScalarField(int width, int height, float* data) : FlicScalarField() {
    if (data) {
        this->width = width;
        this->height = height;
    } else {
        setSize(width, height);
    }
}

FlicScalarField::FlicScalarField(const FlicScalarField& other) : FlicScalarField() {
    *this = other;
}

FlicScalarField& FlicScalarField::operator=(const FlicScalarField& other) {
    if (&other == this) return *this;
    if (!setSize(other.width, other.height)) return *this;
    if (data && other.data && width > 0 && height > 0)
        memcpy(data, other.data, static_cast<size_t>(width) * height * sizeof(float));
    return *this;
}

void FlicScalarField::swap(FlicScalarField& other) {
    std::swap(buffer, other.buffer);
    std::swap(data, other.data);
    std::swap(width, other.width);
    std::swap(height, other.height);
}

FlicScalarField::~FlicScalarField() {
    if (buffer) free(buffer);
}

// Resizes with realloc/malloc to width * height floats. A zero node count still calls the
// allocator with 0 bytes (the block may then be null or a unique pointer).
int FlicScalarField::setSize(int width, int height) {
    if (width < 0 || height < 0)
        return flic_error("illegal scalar field size %d x %d", width, height);
    long long nodes = static_cast<long long>(width) * height;
    if (nodes > kMaxScalarNodes)
        return flic_error("scalar field size %d x %d is too large", width, height);
    size_t bytes = static_cast<size_t>(nodes) * sizeof(float);
    float* block;
    if (bytes == 0) {
        // realloc with 0 bytes has implementation-defined results; free explicitly.
        free(buffer);
        buffer = nullptr;
        block = static_cast<float*>(malloc(0));
    } else {
        block = static_cast<float*>(buffer ? realloc(buffer, bytes) : malloc(bytes));
        // A failed realloc keeps the old block: the field stays as it was.
        if (!block) return flic_error("no memory for a scalar field of %d x %d", width, height);
    }
    buffer = block;
    this->width = width;
    this->height = height;
    data = buffer;
    return 1;
}

// No bounds test: the scan converter only produces nodes inside the field it was sized to.
void FlicScalarField::pixelCallback(int x, int y, float* values, void* field) {
    FlicScalarField* self = static_cast<FlicScalarField*>(field);
    self->data[static_cast<long>(y) * self->width + x] = values[0];
}

// Value = sin(theta)^2 * (cos(r - p) - sin(r - p) / r), theta measured from the y axis.
void FlicScalarField::createDipole(float extent, float phase) {
    if (!data || width <= 0) return; // no rows to fill (a field of width 0 has storage of 0 bytes)
    float p = phase * 6.2831855f;
    float* out = data;
    for (int j = 0; j < height; j++) {
        float y = (2 * j / grid_divisor(height) - 1) * extent;
        for (int i = 0; i < width; i++) {
            float x = (2 * i / grid_divisor(width) - 1) * extent;
            float r = static_cast<float>(hypot(static_cast<double>(x), static_cast<double>(y)));
            if (fabs(r) < 1e-10) r = 1;
            float theta = static_cast<float>(atan2(static_cast<double>(x), static_cast<double>(y)));
            float d = r - p;
            double c = cos(static_cast<double>(d)), s = sin(static_cast<double>(d));
            double st = sin(static_cast<double>(theta));
            *out++ = static_cast<float>(st * ((c - s / r) * st));
        }
    }
}

void FlicScalarField::createCircle() {
    if (!data || width <= 0) return;
    float* out = data;
    for (int j = 0; j < height; j++) {
        float v = j / grid_divisor(height) - 0.5f;
        for (int i = 0; i < width; i++) {
            float u = i / grid_divisor(width) - 0.5f;
            *out++ = u * u + v * v;
        }
    }
}

// The field is resized only once the dimension line is accepted. A short binary file leaves
// zeros where it ends; missing ASCII values fail, keeping the values read so far (the rest
// reads as zero).
int FlicScalarField::read(const char* filename) {
    bool binary;
    int w, h;
    FILE* file = flic_field::open_field_file(filename, "FLIC SCALAR", "scalar", binary, w, h);
    if (!file) return 0;
    if (!flic_field::take_zeroed_storage(*this, w, h, 1, "scalar")) {
        fclose(file);
        return 0;
    }
    size_t nodes = static_cast<size_t>(w) * h;

    if (binary) {
        size_t got = fread(data, 4, nodes, file);
        if (got < nodes) memset(data + got, 0, 4); // bytes of a value cut short
        swapByteOrder(static_cast<int>(got), data);
    } else {
        for (size_t i = 0; i < nodes; i++) {
            if (fscanf(file, "%g", &data[i]) < 1) {
                fclose(file);
                return flic_ioerror(filename, "illegal or missing scalar values");
            }
        }
    }
    fclose(file);
    return 1;
}

// Binary values are written big-endian: reversed a block at a time through a local copy, so
// the field itself is never touched.
int FlicScalarField::write(const char* filename, int ascii) const {
    FILE* file = fopen(filename, "wb");
    if (!file) return flic_ioerror(filename, nullptr);
    fputs("FLIC SCALAR ", file);
    long nodes = node_count(*this);
    if (ascii) {
        fprintf(file, "ASCII\n%d %d\n", width, height);
        for (long i = 0; i < nodes; i++)
            fprintf(file, "%g\n", static_cast<double>(data[i]));
    } else {
        fprintf(file, "BINARY\n%d %d\n", width, height);
        float block[1024];
        for (long start = 0; start < nodes; start += 1024) {
            int count = static_cast<int>(nodes - start < 1024 ? nodes - start : 1024);
            memcpy(block, data + start, count * sizeof(float));
            swapByteOrder(count, block);
            fwrite(block, 4, count, file);
        }
    }
    fclose(file);
    return 1;
}

// Both start at element 0; an empty field gives 0 and 0.
void FlicScalarField::getRange(float& min, float& max) const {
    long nodes = node_count(*this);
    if (nodes == 0) {
        min = max = 0.0f;
        return;
    }
    min = max = data[0];
    for (long k = 0; k < nodes; k++) {
        float v = data[k];
        if (v > max)
            max = v;
        else if (v < min)
            min = v;
    }
}

// Without `resize` the image keeps its width and height (made RGB if it is not) and the field
// is stretch-sampled onto it, rows written 3 * width bytes apart. A field that records a size
// but holds no values leaves the image alone.
void FlicScalarField::pseudoColor(const FlicColormap& colormap, FlicImage& image,
                                  int resize) const {
    if (!data && width > 0 && height > 0) return; // a recorded size without values
    long nodes = node_count(*this);
    if (resize) {
        if (!image.setSize(width, height, 3) || nodes == 0) return;
        for (long k = 0; k < nodes; k++)
            put_colour(colormap, data[k], image.data + 3 * k);
        return;
    }
    if (nodes == 0) return;
    int tw = image.width, th = image.height;
    if (image.nChannels != 3 && !image.setSize(tw, th, 3)) return;
    if (!image.data) return;
    float sx = (width - 1.001f) / grid_divisor(tw);
    float sy = (height - 1.001f) / grid_divisor(th);
    unsigned char* out = image.data;
    float py = 0;
    for (int j = 0; j < th; j++, py += sy) {
        float px = 0;
        for (int i = 0; i < tw; i++, px += sx, out += 3)
            put_colour(colormap, sample_scalar(*this, px, py), out);
    }
}
