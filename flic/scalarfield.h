// FlicScalarField: a 2-D scalar field on a regular grid, one float per node, row-major with
// row 0 first; and its "FLIC SCALAR" files.
#ifndef MUSKEIP_SCALARFIELD_H
#define MUSKEIP_SCALARFIELD_H

#include "api.h"

class FlicColormap;
class FlicImage;

class MUSKEIP_API FlicScalarField {
  public:
    float* buffer; // owned storage (malloc/realloc/free), or null
    float* data;   // width * height values in use
    int width;     // columns
    int height;    // rows

    // Empty field.
    FlicScalarField();
    // With null `data`: allocates storage of the given size. With non-null `data`: records
    // the size only; the field has no storage until setSize or read gives it some.
    FlicScalarField(int width, int height, float* data = nullptr);
    // Deep copy.
    FlicScalarField(const FlicScalarField& other);
    // Deep copy into this field's own storage.
    FlicScalarField& operator=(const FlicScalarField& other);
    // Exchanges storage (owned or wrapped) and size with `other`: nothing is copied.
    void swap(FlicScalarField& other);
    // Frees the owned storage.
    ~FlicScalarField();

    // Resizes the owned storage (contents not cleared) and makes it the data in use. Returns 1,
    // or 0 (field unchanged, error reported) when the byte count is beyond what is accepted.
    int setSize(int width, int height);
    // Scan-conversion callback: stores values[0] at node (x, y) of the field given as `field`.
    static void pixelCallback(int x, int y, float* values, void* field);
    // Radiation pattern of an oscillating dipole over [-extent, extent]^2, current size.
    void createDipole(float extent, float phase);
    // Squared distance from the centre over [-0.5, 0.5]^2, current size.
    void createCircle();
    // Reads a "FLIC SCALAR" file. Returns 1, or 0 with a report through flic_ioerror.
    int read(const char* filename);
    // Writes a "FLIC SCALAR" file (binary big-endian, or ASCII when `ascii` is non-zero).
    // Returns 1, or 0 through flic_ioerror when the file cannot be created.
    int write(const char* filename, int ascii = 0) const;
    // Smallest and largest value.
    void getRange(float& min, float& max) const;
    // Colours the field through a colour map into an RGB image (resized when `resize`).
    void pseudoColor(const FlicColormap& colormap, FlicImage& image, int resize) const;
    // Rasterizes a UCD triangle mesh with vertex values into a width x height field.
    // Returns 1, or 0 with a report.
    int readUCD(const char* filename, int width, int height);
};

#endif
