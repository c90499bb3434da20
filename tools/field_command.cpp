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
bool writesScalars(const FieldOptions& o, const FieldSpec& spec, SourceKind kind) {
    return !o.field.angleGiven && isScalarSource(spec, spec.forceUCD ? SOURCE_UCD_FILE : kind);
}

int checkGridOptions(const FieldOptions& o, FieldSpec& spec, SourceKind kind) {
    if (o.size.empty()) return EXIT_OK;
    bool meshOrBuiltIn = isBuiltIn(kind) || kind == SOURCE_UCD_FILE || spec.forceUCD;
    if (!meshOrBuiltIn)
        return usageError("--size sets the grid of built-in fields and UCD meshes; '%s' is a "
                          "%s with a size of its own",
                          spec.source.c_str(), describeKind(kind));
    if (!o.field.grid.empty() || !o.field.ucd.empty())
        return usageError("give the grid once: --size, --grid or --ucd");
    int width = 0, height = 0;
    if (!parseSize(o.size, width, height) || width < 2 || height < 2 || width > 10000 ||
        height > 10000)
        return usageError("--size expects WxH with 2 to 10000 nodes each way, got '%s'",
                          o.size.c_str());
    spec.gridWidth = width;
    spec.gridHeight = height;
    return EXIT_OK;
}

int writeScalars(const FieldOptions& o, const FieldSpec& spec, SourceKind kind) {
    FlicScalarField scalars;
    if (!loadScalarField(spec, kind == SOURCE_UCD_FILE || spec.forceUCD ? SOURCE_UCD_FILE : kind,
                         scalars))
        return EXIT_FAILED;
    FileContext context(o.output);
    if (!scalars.write(o.output.c_str(), o.ascii ? 1 : 0)) return EXIT_FAILED;
    note("wrote FLIC SCALAR %s: %d x %d nodes", o.output.c_str(), scalars.width, scalars.height);
    return EXIT_OK;
}

int writeVectors(const FieldOptions& o, const FieldSpec& spec, SourceKind kind) {
    FlicVectorField vectors;
    if (!loadVectorField(spec, kind, vectors)) return EXIT_FAILED;
    if (!writeVectorFile(o.output, vectors, o.ascii)) return EXIT_FAILED;
    note("wrote FLIC VECTOR %s: %d x %d nodes", o.output.c_str(), vectors.width, vectors.height);
    return EXIT_OK;
}

} // namespace

int runField(const FieldOptions& options) {
    FieldSpec spec;
    SourceKind kind;
    int status = buildFieldSpec(options.field, spec, kind);
    if (status == EXIT_OK) status = checkGridOptions(options, spec, kind);
    if (status != EXIT_OK) return status;
    if (!checkWritable(options.output)) return EXIT_FAILED;
    defaultGrid(spec, 0, 0);
    bool noField = kind == SOURCE_UNKNOWN_FILE || kind == SOURCE_GRAPHICS_FILE;
    if (kind == SOURCE_MISSING_FILE || (noField && !spec.forceUCD)) {
        FlicVectorField unused;
        loadVectorField(spec, kind, unused); // reports why the source is no field
        return EXIT_FAILED;
    }
    if (writesScalars(options, spec, kind)) return writeScalars(options, spec, kind);
    return writeVectors(options, spec, kind);
}
