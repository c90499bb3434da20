// Field-source options: parsing and checking.
#include "source_options.h"

#include "console.h"
#include "parsing.h"

#include <cmath>

namespace {

const double degrees = 3.14159265358979323846 / 180.0;

// Grids of fields have 2 to 10000 nodes each way, the limits of the field files.
bool parseGrid(const std::string& text, const char* option, int& width, int& height) {
    if (!parseSize(text, width, height) || width < 2 || height < 2 || width > 10000 ||
        height > 10000) {
        usageError("%s expects WxH with 2 to 10000 nodes each way, got '%s'", option, text.c_str());
        return false;
    }
    return true;
}

bool parseList(const std::string& text, const char* option, int count, const char* form,
               float* values) {
    if (parseNumbers(text, count, values)) return true;
    usageError("%s expects %s, got '%s'", option, form, text.c_str());
    return false;
}

// Whether --angle changes the field of this source.
bool usesAngle(const FieldSpec& spec, SourceKind kind) {
    if (kind == SOURCE_CIRCLE || kind == SOURCE_IMAGE_FILE) return true;
    return isScalarSource(spec, spec.forceUCD ? SOURCE_UCD_FILE : kind);
}

} // namespace

int buildFieldSpec(const FieldSourceOptions& options, FieldSpec& spec, SourceKind& kind) {
    spec.source = options.source;
    if (!std::isfinite(options.angle) || std::fabs(options.angle) > 1.0e6)
        return usageError("--angle expects a finite number of degrees");
    spec.angle = static_cast<float>(options.angle * degrees);
    float matrix[4];
    if (!parseList(options.matrix, "--matrix", 4, "a,b,c,d", matrix) ||
        !parseList(options.offset, "--offset", 2, "x,y", spec.offset) ||
        !parseList(options.brusselator, "--brusselator", 4, "XMAX,YMAX,A,B", spec.brusselator))
        return EXIT_USAGE;
    spec.matrix[0][0] = matrix[0];
    spec.matrix[0][1] = matrix[1];
    spec.matrix[1][0] = matrix[2];
    spec.matrix[1][1] = matrix[3];
    if (!(spec.brusselator[0] > 0.0f && spec.brusselator[1] > 0.0f))
        return usageError("--brusselator needs XMAX and YMAX above 0");
    if (!(options.extent > 0.0 && options.extent < 1.0e6))
        return usageError("--extent expects a number above 0");
    if (!std::isfinite(options.phase) || std::fabs(options.phase) > 1.0e6)
        return usageError("--phase expects a finite number of cycles");
    spec.extent = static_cast<float>(options.extent);
    spec.phase = static_cast<float>(options.phase);
    if (!options.ucd.empty() && !options.grid.empty())
        return usageError("--ucd already gives the grid; leave out --grid");
    if (!options.ucd.empty() && !parseGrid(options.ucd, "--ucd", spec.gridWidth, spec.gridHeight))
        return EXIT_USAGE;
    if (!options.grid.empty() &&
        !parseGrid(options.grid, "--grid", spec.gridWidth, spec.gridHeight))
        return EXIT_USAGE;
    spec.forceUCD = !options.ucd.empty();
    kind = classifySource(spec.source);
    if (spec.forceUCD && isBuiltIn(kind))
        return usageError("--ucd reads a mesh file, but '%s' names a built-in field",
                          spec.source.c_str());
    if (options.angleGiven && !usesAngle(spec, kind))
        warning("--angle turns scalar fields, images and the circle field; it does not change "
                "%s",
                spec.source.c_str());
    return EXIT_OK;
}

void defaultGrid(FieldSpec& spec, int pictureWidth, int pictureHeight) {
    if (spec.gridWidth > 0) return;
    if (pictureWidth < 2 || pictureHeight < 2) {
        spec.gridWidth = spec.gridHeight = 512;
        return;
    }
    spec.gridWidth = pictureWidth < 1024 ? pictureWidth : 1024;
    spec.gridHeight = pictureHeight < 1024 ? pictureHeight : 1024;
}
