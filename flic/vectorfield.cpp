// FlicVectorField container, whole-field utilities and the "FLIC VECTOR" files.
#include "vectorfield.h"

#include "colormap.h"
#include "field_common.h"
#include "image.h"
#include "messages.h"
#include "scalarfield.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// Largest node count a field may have: two floats per node must stay countable in an int.
const long long kMaxFieldNodes = INT_MAX / 2;

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

void FlicVectorField::swap(FlicVectorField& other) {
    std::swap(buffer, other.buffer);
    std::swap(data, other.data);
    std::swap(width, other.width);
    std::swap(height, other.height);
}

FlicVectorField::~FlicVectorField() {
    if (buffer) free(buffer);
}

int FlicVectorField::setSize(int width, int height) {
    long long nodes = static_cast<long long>(width) * height;
    if (nodes > kMaxFieldNodes)
        return flic_error("vector field size %d x %d is too large", width, height);
    float* block = nullptr;
    if (nodes > 0) {
        size_t bytes = static_cast<size_t>(width) * 8 * static_cast<size_t>(height);
        block = static_cast<float*>(buffer ? realloc(buffer, bytes) : malloc(bytes));
        // A failed realloc keeps the old block: the field stays as it was.
        if (!block) return flic_error("no memory for a vector field of %d x %d", width, height);
    } else if (buffer) {
        free(buffer);
    }
    buffer = block;
    this->width = width;
    this->height = height;
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

// The field gets its new size, in fresh zero-filled storage, once the dimension line is
// accepted; nodes a file does not supply read as zero vectors.
int FlicVectorField::read(const char* filename) {
    bool binary;
    int w, h;
    FILE* file = flic_field::open_field_file(filename, "FLIC VECTOR", "vector", binary, w, h);
    if (!file) return 0;
    if (!flic_field::take_zeroed_storage(*this, w, h, 2, "vector")) {
        fclose(file);
        return 0;
    }
    size_t nodes = static_cast<size_t>(w) * h;

    if (binary) {
        // A short file is not an error; the part it does not supply reads as zero vectors.
        size_t got = fread(data, 8, nodes, file);
        if (got < nodes) memset(data + 2 * got, 0, 8); // bytes of a record cut short
        swapByteOrder(static_cast<int>(2 * got), data);
    } else {
        for (size_t i = 0; i < nodes; i++) {
            if (fscanf(file, "%g%g", &data[2 * i], &data[2 * i + 1]) < 2) {
                // The values read so far are kept; the rest reads as zero vectors.
                data[2 * i] = 0.0f;
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

BilinearCell bilinear_cell(float px, float py, int width, int height) {
    using flic_field::cell_index;
    using flic_field::neighbour_index;
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
    // A target without nodes (a width of 0 with any height) has nothing to visit.
    if (!has_nodes(target)) return;
    Vec2f* out = target.vectors();
    long count = static_cast<long>(target.width) * target.height;
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
    swap(resampled);
}

// --- Analytic fields -------------------------------------------------------------------------

using flic_field::grid_divisor;

void FlicVectorField::setLinear(const float matrix[2][2], const float offset[2]) {
    Vec2f* out = vectors();
    for (int j = 0; data && j < height; j++) {
        float v = j * 4 / grid_divisor(height) - 2;
        for (int i = 0; i < width; i++) {
            float u = i * 4 / grid_divisor(width) - 2;
            out->x = u * matrix[0][0] + v * matrix[0][1] + offset[0];
            out->y = u * matrix[1][0] + v * matrix[1][1] + offset[1];
            out++;
        }
    }
}

void FlicVectorField::setBrusselator(float xmax, float ymax, float a, float b) {
    Vec2f* out = vectors();
    for (int j = 0; data && j < height; j++) {
        float y = j * ymax / grid_divisor(height);
        for (int i = 0; i < width; i++) {
            float x = i * xmax / grid_divisor(width);
            out->x = (x * x * y + a - (b + 1) * x) / xmax;
            out->y = (b * x - x * x * y) / ymax;
            out++;
        }
    }
}

void FlicVectorField::setCircle(float angle) {
    float c = std::cos(angle), s = std::sin(angle);
    Vec2f* out = vectors();
    for (int j = 0; data && j < height; j++) {
        float v = j / grid_divisor(height) - 0.5f;
        for (int i = 0; i < width; i++) {
            float u = i / grid_divisor(width) - 0.5f;
            out->x = s * u - c * v;
            out->y = c * u + s * v;
            out++;
        }
    }
}

void FlicVectorField::setSaddle() {
    if (!setSize(2, 2)) return;
    Vec2f* v = vectors();
    v[0] = Vec2f{-1, 1};
    v[1] = Vec2f{1, 1};
    v[2] = Vec2f{-1, -1};
    v[3] = Vec2f{1, -1};
}

// --- Fields derived from scalar data ---------------------------------------------------------

namespace {

// Difference along one axis at index i of n nodes, `step` elements apart: central inside,
// one-sided and doubled at the ends (the test for the first node comes first); an axis of a
// single node has no difference. Works for float and byte data alike.
template <typename T>
auto axis_difference(const T* p, int i, int n, long step) -> decltype(p[0] - p[0]) {
    if (n < 2) return 0;
    if (i == 0) return 2 * (p[step] - p[0]);
    if (i == n - 1) return 2 * (p[0] - p[-step]);
    return p[step] - p[-step];
}

// Fills `field` (already sized like the data) with the gradient of `values` turned by the
// angle: (-c dy + s dx, c dx + s dy).
template <typename T>
void turned_gradient(FlicVectorField& field, const T* values, float angle) {
    float c = std::cos(angle), s = std::sin(angle);
    int w = field.width, h = field.height;
    Vec2f* out = field.vectors();
    for (int j = 0; field.data && j < h; j++) {
        for (int i = 0; i < w; i++) {
            const T* p = values + static_cast<long>(j) * w + i;
            float dx = static_cast<float>(axis_difference(p, i, w, 1));
            float dy = static_cast<float>(axis_difference(p, j, h, w));
            out->x = -c * dy + s * dx;
            out->y = c * dx + s * dy;
            out++;
        }
    }
}

} // namespace

// A scalar field that records a size but holds no values gives an error and no change.
void FlicVectorField::fromScalarField(const FlicScalarField& field, float angle) {
    if (!field.data && field.width > 0 && field.height > 0) {
        flic_error("scalar field %d x %d has no values", field.width, field.height);
        return;
    }
    if (!setSize(field.width, field.height)) return;
    turned_gradient(*this, field.data, angle);
}

// The image's bytes are read one per pixel with rows `width` bytes apart; an RGB image is
// first turned into a grey copy.
void FlicVectorField::fromImage(const FlicImage& image, float angle) {
    if (!setSize(image.width, image.height)) return;
    if (image.nChannels == 3) {
        FlicImage grey;
        // With a result given, colorToGrey leaves the image itself unchanged.
        const_cast<FlicImage&>(image).colorToGrey(&grey);
        turned_gradient(*this, grey.data, angle);
    } else {
        turned_gradient(*this, image.data, angle);
    }
}

// --- Pictures and scalars of a field ---------------------------------------------------------

namespace {

// Hue of the direction, h = (atan2(y, x) + pi) / (2 pi), at full saturation and half
// lightness, as bytes. Directions whose hue rounds to 1.0 (straight along -x) are given hue
// 0, the same colour, since HSL_to_RGB does not convert a hue of 1.0.
void direction_colour(Vec2f v, unsigned char* pixel) {
    const double pi = 3.14159265358979323846;
    float h = static_cast<float>((atan2(static_cast<double>(v.y), static_cast<double>(v.x)) + pi) /
                                 (2 * pi));
    if (h == 1.0f) h = 0.0f;
    float hsl[3] = {h, 1.0f, 0.5f};
    float rgb[3] = {0.0f, 0.0f, 0.0f};
    HSL_to_RGB(hsl, rgb);
    for (int c = 0; c < 3; c++)
        pixel[c] = static_cast<unsigned char>(static_cast<int>(rgb[c] * 255));
}

// Visits the positions of stretch sampling onto a target of tw x th pixels, in row order:
// steps (W - 1.001) / (tw - 1) and (H - 1.001) / (th - 1), summed from 0. A target one pixel
// wide or high samples position 0 along that axis.
template <typename Visit>
void stretch_sample(const FlicVectorField& field, int tw, int th, Visit visit) {
    float sx = (field.width - 1.001f) / grid_divisor(tw);
    float sy = (field.height - 1.001f) / grid_divisor(th);
    float py = 0;
    for (int j = 0; j < th; j++, py += sy) {
        float px = 0;
        for (int i = 0; i < tw; i++, px += sx)
            visit(i, j, sample_field(field.vectors(), field.width, field.height, px, py));
    }
}

} // namespace

// Without `resize` the image keeps its size; an image that is not RGB is made RGB of the
// same size first (rows are written three bytes per pixel). A field without nodes leaves the
// image alone.
void FlicVectorField::vecToColor(FlicImage& image, int resize) const {
    if (resize) {
        if (!image.setSize(width, height, 3) || !has_nodes(*this)) return;
        long nodes = static_cast<long>(width) * height;
        for (long k = 0; k < nodes; k++)
            direction_colour(vectors()[k], image.data + 3 * k);
        return;
    }
    if (!has_nodes(*this)) return;
    if (image.nChannels != 3 && !image.setSize(image.width, image.height, 3)) return;
    if (!image.data) return;
    stretch_sample(*this, image.width, image.height, [&image](int i, int j, Vec2f v) {
        direction_colour(v, image.data + static_cast<long>(j) * image.bytesPerLine + 3 * i);
    });
}

namespace {

// A value of each vector into a scalar field. Without `resize` the result keeps its size (given
// storage if it has none yet). A field without nodes leaves the result alone.
template <typename Value>
void vector_values(const FlicVectorField& field, FlicScalarField& result, int resize, Value value) {
    if (resize) {
        if (!result.setSize(field.width, field.height) || !has_nodes(field)) return;
        long nodes = static_cast<long>(field.width) * field.height;
        const Vec2f* v = field.vectors();
        for (long k = 0; k < nodes; k++)
            result.data[k] = value(v[k]);
        return;
    }
    if (!has_nodes(field) || result.width <= 0 || result.height <= 0) return;
    if (!result.data && !result.setSize(result.width, result.height)) return;
    float* out = result.data;
    stretch_sample(field, result.width, result.height,
                   [out, &result, value](int i, int j, Vec2f v) {
                       out[static_cast<long>(j) * result.width + i] = value(v);
                   });
}

} // namespace

void FlicVectorField::magnitude(FlicScalarField& result, int resize) const {
    vector_values(*this, result, resize, [](Vec2f v) { return sqrtf(v.x * v.x + v.y * v.y); });
}

void FlicVectorField::direction(FlicScalarField& result, int resize) const {
    vector_values(*this, result, resize, [](Vec2f v) { return atan2f(v.y, v.x); });
}
