// FlicVectorField: a 2-D vector field on a regular grid, one Vec2f per node, row-major with
// row 0 first; and its "FLIC VECTOR" files.
#ifndef MUSKEIP_VECTORFIELD_H
#define MUSKEIP_VECTORFIELD_H

#include "api.h"

// A position or vector in field grid units: x then y, no padding.
struct Vec2f {
    float x, y;
};

class FlicImage;
class FlicScalarField;

// Reverses the byte order of each of `count` 4-byte words at `data`, in place.
MUSKEIP_API void swapByteOrder(int count, void* data);

class MUSKEIP_API FlicVectorField {
  public:
    float* buffer; // owned storage (malloc/realloc/free), or null
    float* data;   // width * height (x, y) pairs in use: owned storage or a caller's buffer
    int width;     // columns
    int height;    // rows

    // Empty field: no data, 0 by 0.
    FlicVectorField();
    // With non-null `data`: uses the caller's buffer in place (not copied, never freed).
    // With null `data`: allocates storage of the given size (uninitialised).
    FlicVectorField(int width, int height, float* data = nullptr);
    // Deep copy: the copy owns storage of its own.
    FlicVectorField(const FlicVectorField& other);
    // Deep copy into this field's own storage.
    FlicVectorField& operator=(const FlicVectorField& other);
    // Exchanges storage (owned or wrapped) and size with `other`: nothing is copied.
    void swap(FlicVectorField& other);
    // Frees the owned storage only.
    ~FlicVectorField();

    // The values as an array of width * height vectors.
    Vec2f* vectors() { return reinterpret_cast<Vec2f*>(data); }
    const Vec2f* vectors() const { return reinterpret_cast<const Vec2f*>(data); }

    // Resizes the owned storage (contents kept as realloc keeps them, not cleared) and makes
    // it the data in use; a zero node count frees it. Returns 1, or 0 (field unchanged, error
    // reported) when the byte count is beyond what the library accepts.
    int setSize(int width, int height);
    // Scan-conversion callback: stores values[0], values[1] at node (x, y) of the field given
    // as `field`, when the node lies inside it.
    static void pixelCallback(int x, int y, float* values, void* field);
    // Reads a "FLIC VECTOR" file (binary data read big-endian). Returns 1, or 0 with a report
    // through flic_ioerror.
    int read(const char* filename);
    // Writes a "FLIC VECTOR" file, ASCII when `ascii` is non-zero, else binary in host byte
    // order. Returns 1, or 0 through flic_ioerror when the file cannot be created.
    int write(const char* filename, int ascii = 0) const;
    // Largest vector length (0 for an empty field).
    float getMax() const;
    // Scales every vector of non-zero length to length 1.
    void normalize();

    // --- Synthetic and derived fields -----------------------------------------------------

    // Linear field M * (u, v) + b over [-2, 2] x [-2, 2], into the current size.
    void setLinear(const float matrix[2][2], const float offset[2]);
    // The Brusselator reaction system over [0, xmax] x [0, ymax], into the current size.
    void setBrusselator(float xmax, float ymax, float a, float b);
    // Position vector about the centre turned by 90 degrees minus `angle`, current size.
    void setCircle(float angle);
    // A saddle on a 2 x 2 grid.
    void setSaddle();
    // Gradient of a scalar field turned by 90 degrees minus `angle` (0: along iso-lines).
    void fromScalarField(const FlicScalarField& field, float angle);
    // The same for an image's grey values.
    void fromImage(const FlicImage& image, float angle);
    // Colours the field's directions as hues into an RGB image (resized when `resize`).
    void vecToColor(FlicImage& image, int resize) const;
    // Vector lengths into a scalar field (resized when `resize`).
    void magnitude(FlicScalarField& result, int resize) const;
    // Vector directions atan2(y, x) in radians, -pi .. pi (0 for a zero vector), into a scalar
    // field (resized when `resize`); sampled as magnitude samples, vectors first, so the angle
    // never jumps between neighbouring samples.
    void direction(FlicScalarField& result, int resize) const;
    // Bilinear, cell-centred resampling to newWidth x newHeight, into `result` or in place.
    void resample(int newWidth, int newHeight, FlicVectorField* result = nullptr);

    // --- Import from triangle meshes --------------------------------------------------------

    // Rasterizes a UCD triangle mesh with vertex vectors into a width x height field, the
    // mesh fitted into `bbox` (xmin, xmax, ymin, ymax). Returns 1, or 0 with a report.
    int readUCD(const char* filename, int width, int height, float* bbox);
    // The same with the box computed from the vertices.
    int readUCD(const char* filename, int width, int height);
};

#endif
