// `muskeip field`: generate a built-in field or convert a field source into a FLIC VECTOR or
// FLIC SCALAR file (binary, or ASCII with --ascii).
#include "commands.h"
#include "console.h"
#include "field_source.h"
#include "image_files.h"
#include "parsing.h"
#include "source_options.h"

#include "scalarfield.h"
#include "vectorfield.h"

namespace {

// Scalar sources stay scalar unless --angle asks for their turned gradient.
bool writesScalars(const FieldOptions& o, const FieldRequest& request, SourceKind kind) {
    return !o.field.angleGiven && isScalarSource(request, kind);
}

// The output's extension must not promise another format: .vec/.vector for vector fields,
// .sca/.scalar for scalar fields, anything else that names no known format.
int checkOutputName(const std::string& output, bool scalars) {
    static const char* const otherFormats[] = {"png", "pgm",  "ppm", "pnm", "npy",  "npz",
                                               "gfx", "icol", "inp", "ucd", "webp", "gif",
                                               "jpg", "jpeg", "tif", "tiff"};
    std::string extension = lowerExtension(output);
    bool vectorName = extension == "vec" || extension == "vector";
    bool scalarName = extension == "sca" || extension == "scalar";
    const char* written = scalars ? "FLIC SCALAR" : "FLIC VECTOR";
    const char* fitting = scalars ? ".sca" : ".vec";
    if ((scalars && vectorName) || (!scalars && scalarName))
        return usageError("%s would hold a %s file: name it %s%s", output.c_str(), written, fitting,
                          scalars ? " (or give --angle for vectors along the field)" : "");
    for (const char* other : otherFormats)
        if (extension == other)
            return usageError("%s would hold a %s file, not a .%s file: name it %s", output.c_str(),
                              written, other, fitting);
    return EXIT_OK;
}

int checkGridOptions(const FieldOptions& o, FieldRequest& request, SourceKind kind) {
    if (o.size.empty()) return EXIT_OK;
    bool meshOrBuiltIn = isBuiltIn(kind) || kind == SOURCE_UCD_FILE || request.forceUCD;
    if (!meshOrBuiltIn)
        return usageError("--size sets the grid of built-in fields and UCD meshes; '%s' is a "
                          "%s with a size of its own",
                          request.source.c_str(), describeKind(kind));
    if (!o.field.grid.empty() || !o.field.ucd.empty())
        return usageError("give the grid once: --size, --grid or --ucd");
    if (!parseGrid(o.size, "--size", request.gridWidth, request.gridHeight)) return EXIT_USAGE;
    return EXIT_OK;
}

int writeScalars(const FieldOptions& o, const FieldRequest& request, SourceKind kind) {
    FlicScalarField scalars;
    if (!loadScalarField(request, kind, scalars)) return EXIT_FAILED;
    FileContext context(o.output);
    if (!scalars.write(o.output.c_str(), o.ascii ? 1 : 0)) return EXIT_FAILED;
    note("wrote FLIC SCALAR %s: %d x %d nodes", o.output.c_str(), scalars.width, scalars.height);
    return EXIT_OK;
}

int writeVectors(const FieldOptions& o, const FieldRequest& request, SourceKind kind) {
    FlicVectorField vectors;
    if (!loadVectorField(request, kind, vectors)) return EXIT_FAILED;
    if (!writeVectorFile(o.output, vectors, o.ascii)) return EXIT_FAILED;
    note("wrote FLIC VECTOR %s: %d x %d nodes", o.output.c_str(), vectors.width, vectors.height);
    return EXIT_OK;
}

} // namespace

int runField(const FieldOptions& options) {
    FieldRequest request;
    SourceKind kind;
    int status = buildFieldRequest(options.field, request, kind);
    if (status == EXIT_OK) status = checkGridOptions(options, request, kind);
    if (status != EXIT_OK) return status;
    defaultGrid(request, 0, 0);
    bool noField =
        kind == SOURCE_UNKNOWN_FILE || kind == SOURCE_GRAPHICS_FILE || kind == SOURCE_COLORMAP_FILE;
    if (kind == SOURCE_MISSING_FILE || (noField && !request.forceUCD)) {
        FlicVectorField unused;
        loadVectorField(request, kind, unused); // reports why the source is no field
        return EXIT_FAILED;
    }
    bool scalars = writesScalars(options, request, kind);
    status = checkOutputName(options.output, scalars);
    if (status != EXIT_OK) return status;
    if (!checkWritable(options.output)) return EXIT_FAILED;
    return scalars ? writeScalars(options, request, kind) : writeVectors(options, request, kind);
}
