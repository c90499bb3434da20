// FlicScalarField container, the scan-conversion callback, the analytic generators, the
// "FLIC SCALAR" files, the value range and the pseudo-colouring through a colour map.
#include "scalarfield.h"

#include "messages.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Largest node count a scalar field may have: the node count must stay a positive 32-bit int.
const long long kMaxScalarNodes = INT_MAX;

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
    this->width = width;
    this->height = height;
    size_t bytes = static_cast<size_t>(nodes) * sizeof(float);
    if (buffer) {
        if (bytes == 0) {
            // realloc with 0 bytes has implementation-defined results; free explicitly.
            free(buffer);
            buffer = static_cast<float*>(malloc(0));
        } else {
            buffer = static_cast<float*>(realloc(buffer, bytes));
        }
    } else {
        buffer = static_cast<float*>(malloc(bytes));
    }
    data = buffer;
    return 1;
}

// No bounds test: the scan converter only produces nodes inside the field it was sized to.
void FlicScalarField::pixelCallback(int x, int y, float* values, void* field) {
    FlicScalarField* self = static_cast<FlicScalarField*>(field);
    self->data[static_cast<long>(y) * self->width + x] = values[0];
}
