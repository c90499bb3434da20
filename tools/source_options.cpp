// Field-source options: parsing and checking.
#include "source_options.h"

#include "console.h"
#include "parsing.h"

#include <cmath>

namespace {

const double degrees = 3.14159265358979323846 / 180.0;

bool parseList(const std::string& text, const char* option, int count, const char* form,
               float* values) {
    if (parseNumbers(text, count, values)) return true;
    usageError("%s expects %s, got '%s'", option, form, text.c_str());
    return false;
}

// Whether --angle changes the field of this source.
bool usesAngle(const FieldRequest& request, SourceKind kind) {
    if (kind == SOURCE_CIRCLE || kind == SOURCE_IMAGE_FILE) return true;
    return isScalarSource(request, kind);
}

} // namespace

bool parseGrid(const std::string& text, const char* option, int& width, int& height) {
    if (!parseSize(text, width, height) || width < 2 || height < 2 || width > 10000 ||
        height > 10000) {
        usageError("%s expects WxH with 2 to 10000 nodes each way, got '%s'", option, text.c_str());
        return false;
    }
    return true;
}

int buildFieldRequest(const FieldSourceOptions& options, FieldRequest& request, SourceKind& kind) {
    request.source = options.source;
    if (!std::isfinite(options.angle) || std::fabs(options.angle) > 1.0e6)
        return usageError("--angle expects a finite number of degrees");
    request.angle = static_cast<float>(options.angle * degrees);
    float matrix[4];
    if (!parseList(options.matrix, "--matrix", 4, "a,b,c,d", matrix) ||
        !parseList(options.offset, "--offset", 2, "x,y", request.offset) ||
        !parseList(options.brusselator, "--brusselator", 4, "XMAX,YMAX,A,B", request.brusselator))
        return EXIT_USAGE;
    request.matrix[0][0] = matrix[0];
    request.matrix[0][1] = matrix[1];
    request.matrix[1][0] = matrix[2];
    request.matrix[1][1] = matrix[3];
    if (!(request.brusselator[0] > 0.0f && request.brusselator[1] > 0.0f))
        return usageError("--brusselator needs XMAX and YMAX above 0");
    if (!(options.extent > 0.0 && options.extent < 1.0e6))
        return usageError("--extent expects a number above 0");
    if (!std::isfinite(options.phase) || std::fabs(options.phase) > 1.0e6)
        return usageError("--phase expects a finite number of cycles");
    request.extent = static_cast<float>(options.extent);
    request.phase = static_cast<float>(options.phase);
    if (!options.ucd.empty() && !options.grid.empty())
        return usageError("--ucd already gives the grid; leave out --grid");
    if (!options.ucd.empty() &&
        !parseGrid(options.ucd, "--ucd", request.gridWidth, request.gridHeight))
        return EXIT_USAGE;
    if (!options.grid.empty() &&
        !parseGrid(options.grid, "--grid", request.gridWidth, request.gridHeight))
        return EXIT_USAGE;
    request.forceUCD = !options.ucd.empty();
    kind = classifySource(request.source);
    if (request.forceUCD && isBuiltIn(kind))
        return usageError("--ucd reads a mesh file, but '%s' names a built-in field",
                          request.source.c_str());
    if (options.angleGiven && !usesAngle(request, kind))
        warning("--angle turns scalar fields, images and the circle field; it does not change "
                "%s",
                request.source.c_str());
    return EXIT_OK;
}

void defaultGrid(FieldRequest& request, int pictureWidth, int pictureHeight) {
    if (request.gridWidth > 0) return;
    if (pictureWidth < 2 || pictureHeight < 2) {
        request.gridWidth = request.gridHeight = 512;
        return;
    }
    request.gridWidth = pictureWidth < 1024 ? pictureWidth : 1024;
    request.gridHeight = pictureHeight < 1024 ? pictureHeight : 1024;
}
