// Field sources: recognising a file by its first bytes, reading it or generating a built-in
// field, and turning scalar fields and images into vector fields.
#include "field_source.h"

#include "console.h"
#include "image.h"
#include "image_files.h"
#include "messages.h"
#include "numpy_files.h"
#include "parsing.h"
#include "probe.h"

#include <cctype>
#include <climits>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <vector>

namespace {

struct BuiltIn {
    const char* name;
    SourceKind kind;
};
const BuiltIn builtIns[] = {{"circle", SOURCE_CIRCLE},
                            {"saddle", SOURCE_SADDLE},
                            {"linear", SOURCE_LINEAR},
                            {"brusselator", SOURCE_BRUSSELATOR},
                            {"dipole", SOURCE_DIPOLE}};

// The built-in fields' names, as a list for messages.
std::string builtInNames() {
    std::string names;
    for (const BuiltIn& builtIn : builtIns)
        names += (names.empty() ? "" : ", ") + std::string(builtIn.name);
    return names;
}

// A source with neither a folder nor an extension was most likely meant as a built-in field.
bool looksLikeName(const std::string& source) {
    return !source.empty() && source.find_first_of("/.") == std::string::npos;
}

// A file whose content is none of the known kinds is read as its extension suggests, so the
// reader reports what is wrong with it.
SourceKind kindByExtension(const std::string& path) {
    std::string extension = lowerExtension(path);
    if (extension == "vec" || extension == "vector") return SOURCE_VECTOR_FILE;
    if (extension == "sca" || extension == "scalar") return SOURCE_SCALAR_FILE;
    if (extension == "pgm" || extension == "ppm" || extension == "pnm" || extension == "png")
        return SOURCE_IMAGE_FILE;
    if (extension == "inp" || extension == "ucd") return SOURCE_UCD_FILE;
    if (extension == "npy" || extension == "npz") return SOURCE_NUMPY_FILE;
    return SOURCE_UNKNOWN_FILE;
}

// The kind a source is read as: with --ucd a UCD mesh, whatever its content.
SourceKind readKind(const FieldRequest& request, SourceKind kind) {
    return request.forceUCD ? SOURCE_UCD_FILE : kind;
}

bool checkImageAsField(const std::string& path, const FlicImage& image) {
    if (image.width < 2 || image.height < 2 || image.width > 10000 || image.height > 10000) {
        failure("%s: an image gives a field only with 2 to 10000 pixels each way (it has %d x %d)",
                path.c_str(), image.width, image.height);
        return false;
    }
    return true;
}

bool loadImageField(const FieldRequest& request, FlicVectorField& vectors) {
    FileContext context(request.source);
    FlicImage image;
    if (!readImage(request.source, image)) return false;
    if (!checkImageAsField(request.source, image)) return false;
    vectors.fromImage(image, request.angle);
    return true;
}

// Binary data in the wrong byte order (what numpy's tofile writes on little-endian machines)
// reads as values of absurd size: refuse the file when a tenth of its values are such.
bool checkByteOrder(const std::string& path, const float* values, long long count) {
    long long implausible = flicImplausibleValues(values, count);
    if (count == 0 || implausible * 10 < count) return true;
    failure("%s: %lld of %lld values are beyond 1e30 or below 1e-30 in size: the file looks "
            "byte-swapped (binary FLIC files are big-endian; from numpy write "
            "a.astype('>f4').tofile(path), or give a .npy file)",
            path.c_str(), implausible, count);
    return false;
}

// Reads a FLIC VECTOR or FLIC SCALAR file of `components` values per node and checks that
// binary data is complete and in the right byte order.
template <class Field>
bool readCheckedFieldFile(const std::string& path, Field& field, int components) {
    FileContext context(path);
    if (!field.read(path.c_str())) return false;
    if (!isBinaryFieldFile(path)) return true;
    return flicCheckComplete(path.c_str()) &&
           checkByteOrder(path, field.data, 1LL * components * field.width * field.height);
}

bool loadUCDVectors(const FieldRequest& request, FlicVectorField& vectors) {
    if (!checkUCDCounts(request.source)) return false;
    FileContext context(request.source);
    return vectors.readUCD(request.source.c_str(), request.gridWidth, request.gridHeight) != 0;
}

bool generateBuiltIn(const FieldRequest& request, SourceKind kind, FlicVectorField& vectors) {
    if (kind == SOURCE_SADDLE) {
        vectors.setSize(2, 2);
        vectors.setSaddle();
        return true;
    }
    if (!vectors.setSize(request.gridWidth, request.gridHeight)) return false;
    if (kind == SOURCE_CIRCLE) vectors.setCircle(request.angle);
    if (kind == SOURCE_LINEAR) vectors.setLinear(request.matrix, request.offset);
    if (kind == SOURCE_BRUSSELATOR)
        vectors.setBrusselator(request.brusselator[0], request.brusselator[1],
                               request.brusselator[2], request.brusselator[3]);
    return true;
}

} // namespace

SourceKind classifySource(const std::string& source) {
    for (const BuiltIn& builtIn : builtIns)
        if (source == builtIn.name) return builtIn.kind;
    FlicFileProbe probe;
    if (!flicProbeFile(source.c_str(), probe)) return SOURCE_MISSING_FILE;
    struct stat info;
    if (stat(source.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return SOURCE_UNKNOWN_FILE;
    switch (probe.kind) {
    case FLIC_FILE_PNM:
    case FLIC_FILE_PNG:
        return SOURCE_IMAGE_FILE;
    case FLIC_FILE_VECTOR:
        return SOURCE_VECTOR_FILE;
    case FLIC_FILE_SCALAR:
        return SOURCE_SCALAR_FILE;
    case FLIC_FILE_GRAPHICS:
        return SOURCE_GRAPHICS_FILE;
    case FLIC_FILE_UCD:
        return SOURCE_UCD_FILE;
    case FLIC_FILE_NPY:
    case FLIC_FILE_ZIP:
        return SOURCE_NUMPY_FILE;
    case FLIC_FILE_COLORMAP:
        return SOURCE_COLORMAP_FILE;
    default:
        return kindByExtension(source);
    }
}

bool isBuiltIn(SourceKind kind) {
    return kind <= SOURCE_DIPOLE;
}

const char* describeKind(SourceKind kind) {
    switch (kind) {
    case SOURCE_CIRCLE:
        return "built-in field circle";
    case SOURCE_SADDLE:
        return "built-in field saddle";
    case SOURCE_LINEAR:
        return "built-in field linear";
    case SOURCE_BRUSSELATOR:
        return "built-in field brusselator";
    case SOURCE_DIPOLE:
        return "built-in field dipole";
    case SOURCE_VECTOR_FILE:
        return "FLIC VECTOR file";
    case SOURCE_SCALAR_FILE:
        return "FLIC SCALAR file";
    case SOURCE_IMAGE_FILE:
        return "image";
    case SOURCE_UCD_FILE:
        return "UCD mesh";
    case SOURCE_GRAPHICS_FILE:
        return "FLIC GRAPHICS file";
    case SOURCE_NUMPY_FILE:
        return "numpy file";
    case SOURCE_COLORMAP_FILE:
        return "colour map";
    case SOURCE_MISSING_FILE:
        return "missing file";
    default:
        return "unknown file";
    }
}

bool isScalarSource(const FieldRequest& request, SourceKind kind) {
    kind = readKind(request, kind);
    if (kind == SOURCE_SCALAR_FILE || kind == SOURCE_DIPOLE) return true;
    if (kind != SOURCE_UCD_FILE) return false;
    UCDHeader header;
    return probeUCD(request.source, header) && header.columns == 3;
}

bool probeUCD(const std::string& path, UCDHeader& header) {
    FlicFileProbe probe;
    if (!flicProbeFile(path.c_str(), probe) || probe.kind != FLIC_FILE_UCD) return false;
    header.vertices = probe.vertices;
    header.triangles = probe.triangles;
    header.columns = probe.columns;
    return true;
}

bool checkUCDCounts(const std::string& path) {
    UCDHeader header;
    if (!probeUCD(path, header)) return true; // the reader says what is wrong
    if (header.vertices <= INT_MAX && header.triangles <= INT_MAX) return true;
    failure("%s: the mesh announces %lld vertices and %lld triangles, more than the mesh readers "
            "take (%d)",
            path.c_str(), header.vertices, header.triangles, INT_MAX);
    return false;
}

bool loadScalarField(const FieldRequest& request, SourceKind kind, FlicScalarField& scalars) {
    kind = readKind(request, kind);
    if (kind == SOURCE_DIPOLE) {
        if (!scalars.setSize(request.gridWidth, request.gridHeight)) return false;
        scalars.createDipole(request.extent, request.phase);
        return true;
    }
    if (kind == SOURCE_UCD_FILE) {
        if (!checkUCDCounts(request.source)) return false;
        FileContext context(request.source);
        return scalars.readUCD(request.source.c_str(), request.gridWidth, request.gridHeight) != 0;
    }
    return readFieldFile(request.source, scalars);
}

bool loadVectorField(const FieldRequest& request, SourceKind kind, FlicVectorField& vectors) {
    if (kind == SOURCE_MISSING_FILE) {
        if (looksLikeName(request.source)) {
            failure("%s: no such file, and no built-in field of that name (%s)",
                    request.source.c_str(), builtInNames().c_str());
            return false;
        }
        FILE* file = fopen(request.source.c_str(), "rb"); // sets errno for the report
        if (file) fclose(file);
        flic_ioerror(request.source.c_str(), nullptr);
        return false;
    }
    kind = readKind(request, kind);
    if (isScalarSource(request, kind)) {
        FlicScalarField scalars;
        if (!loadScalarField(request, kind, scalars)) return false;
        vectors.fromScalarField(scalars, request.angle);
        return true;
    }
    switch (kind) {
    case SOURCE_UCD_FILE:
        return loadUCDVectors(request, vectors);
    case SOURCE_VECTOR_FILE:
        return readFieldFile(request.source, vectors);
    case SOURCE_IMAGE_FILE:
        return loadImageField(request, vectors);
    case SOURCE_NUMPY_FILE:
        return readNumpyFile(request.source, vectors);
    case SOURCE_GRAPHICS_FILE:
        failure("%s: a FLIC GRAPHICS file is a drawing, not a field (draw it with --overlay)",
                request.source.c_str());
        return false;
    case SOURCE_COLORMAP_FILE:
        failure("%s: a colour map, not a field (use it with --colormap)", request.source.c_str());
        return false;
    case SOURCE_UNKNOWN_FILE:
        failure("%s: not a FLIC VECTOR, FLIC SCALAR, PNM, PNG, UCD, .npy or .npz file",
                request.source.c_str());
        return false;
    default:
        return generateBuiltIn(request, kind, vectors);
    }
}

bool readNumpyFile(const std::string& path, FlicVectorField& vectors) {
    FileContext context(path);
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        flic_ioerror(path.c_str(), nullptr);
        return false;
    }
    std::vector<unsigned char> bytes;
    unsigned char block[65536];
    size_t got;
    while ((got = fread(block, 1, sizeof block, file)) > 0)
        bytes.insert(bytes.end(), block, block + got);
    bool failed = ferror(file) != 0;
    fclose(file);
    if (failed) {
        flic_ioerror(path.c_str(), "read error");
        return false;
    }
    std::string problem = numpyField(bytes.data(), bytes.size(), vectors);
    if (problem.empty()) return true;
    failure("%s: %s", path.c_str(), problem.c_str());
    return false;
}

bool writeVectorFile(const std::string& path, FlicVectorField& field, bool ascii) {
    FileContext context(path);
    int count = 2 * field.width * field.height;
    if (!ascii) swapByteOrder(count, field.data);
    int written = field.write(path.c_str(), ascii ? 1 : 0);
    if (!ascii) swapByteOrder(count, field.data);
    return written != 0;
}

bool isBinaryFieldFile(const std::string& path) {
    FlicFileProbe probe;
    return flicProbeFile(path.c_str(), probe) && probe.binary;
}

bool readFieldFile(const std::string& path, FlicVectorField& vectors) {
    return readCheckedFieldFile(path, vectors, 2);
}

bool readFieldFile(const std::string& path, FlicScalarField& scalars) {
    return readCheckedFieldFile(path, scalars, 1);
}
