// Where the command line gets its fields: FLIC VECTOR and FLIC SCALAR files, images (PNM and
// PNG, through their grey-value gradient), UCD triangle meshes, and the built-in analytic
// fields circle, saddle, linear, brusselator and dipole.
#ifndef MUSKEIP_TOOLS_FIELD_SOURCE_H
#define MUSKEIP_TOOLS_FIELD_SOURCE_H

#include "scalarfield.h"
#include "vectorfield.h"

#include <string>

enum SourceKind {
    SOURCE_CIRCLE,
    SOURCE_SADDLE,
    SOURCE_LINEAR,
    SOURCE_BRUSSELATOR,
    SOURCE_DIPOLE,
    SOURCE_VECTOR_FILE,
    SOURCE_SCALAR_FILE,
    SOURCE_IMAGE_FILE,
    SOURCE_UCD_FILE,
    SOURCE_GRAPHICS_FILE,
    SOURCE_NUMPY_FILE,    // .npy or .npz
    SOURCE_COLORMAP_FILE, // an .icol colour map
    SOURCE_MISSING_FILE,
    SOURCE_UNKNOWN_FILE
};

// The parameters of every kind of source (already parsed and checked).
struct FieldRequest {
    std::string source;    // a built-in name or a file path
    bool forceUCD = false; // read the file as a UCD mesh whatever it looks like
    float angle = 0.0f;    // radians: 0 along iso-lines / circles, pi/2 along the gradient
    float matrix[2][2] = {{0.2f, -1.0f}, {1.0f, 0.2f}};
    float offset[2] = {0.0f, 0.0f};
    float brusselator[4] = {4.0f, 6.0f, 1.0f, 3.0f}; // xmax, ymax, a, b
    float extent = 12.0f;                            // dipole half-width
    float phase = 0.0f;                              // dipole phase in cycles
    int gridWidth = 0, gridHeight = 0;               // grid of built-in fields and meshes
};

// Built-in names win over files of the same name (write ./circle for such a file). Files are
// recognised by the library's probe (their first bytes); a file that is nothing else is taken
// as a UCD mesh when its first line holds two counts.
SourceKind classifySource(const std::string& source);
bool isBuiltIn(SourceKind kind);
// A short description of the kind ("FLIC VECTOR file", "built-in field circle", ...).
const char* describeKind(SourceKind kind);
// Whether the source is a scalar field (FLIC SCALAR, dipole, UCD mesh with one value per
// vertex) rather than a vector field. Here and in the loaders `kind` is the kind
// classifySource gave; with request.forceUCD the file is taken as a UCD mesh whatever it is.
bool isScalarSource(const FieldRequest& request, SourceKind kind);

// Counts a UCD mesh announces and the number of values on its first vertex line.
struct UCDHeader {
    long long vertices = 0, triangles = 0; // as written, even beyond the int range
    int columns = 0;
};
// Reads the counts of the first line and the first vertex line. False when the first line
// holds no two counts.
bool probeUCD(const std::string& path, UCDHeader& header);
// Refuses a mesh whose counts exceed what the mesh readers take (they read them as int). True
// when they fit or the file is no mesh; false after a report naming the file.
bool checkUCDCounts(const std::string& path);

// Fills `scalars` from a scalar source. False after a report naming the file.
bool loadScalarField(const FieldRequest& request, SourceKind kind, FlicScalarField& scalars);
// Fills `vectors` from any source; scalar sources and images give their gradient turned by
// request.angle. False after a report naming the file.
bool loadVectorField(const FieldRequest& request, SourceKind kind, FlicVectorField& vectors);

// Writes a FLIC VECTOR file whose binary data is big-endian, the order the reader expects, so
// that the files this program writes read back unchanged. False after a report.
bool writeVectorFile(const std::string& path, FlicVectorField& field, bool ascii);

// Reads a .npy or .npz field (see numpy_files.h). False after a report naming the file.
bool readNumpyFile(const std::string& path, FlicVectorField& vectors);

// Whether the first line of a FLIC file names the binary mode.
bool isBinaryFieldFile(const std::string& path);
// Reads a FLIC VECTOR or FLIC SCALAR file and checks that binary data holds all the values its
// header announces (the library reads a short file without complaint). False after a report
// naming the file.
bool readFieldFile(const std::string& path, FlicVectorField& vectors);
bool readFieldFile(const std::string& path, FlicScalarField& scalars);

#endif
