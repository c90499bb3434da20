// `muskeip info`: what a PNM or PNG image, a FLIC VECTOR, FLIC SCALAR or FLIC GRAPHICS file, a
// UCD mesh, a numpy field or a colour map holds, printed on standard output.
#include "commands.h"
#include "console.h"
#include "field_source.h"
#include "image_files.h"

#include "colormap.h"
#include "graphics.h"
#include "histogram.h"
#include "image.h"
#include "messages.h"
#include "probe.h"
#include "scalarfield.h"
#include "scanconvert.h"
#include "vectorfield.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// Smallest and largest of a run of values, with the count of values that are not finite.
struct Range {
    double min = 0.0, max = 0.0;
    long long finite = 0, other = 0;
    void add(double v) {
        if (!std::isfinite(v)) {
            other++;
            return;
        }
        if (finite == 0 || v < min) min = v;
        if (finite == 0 || v > max) max = v;
        finite++;
    }
    void print(const char* label) const {
        if (finite == 0)
            printf("  %s: no finite value\n", label);
        else
            printf("  %s: %g .. %g\n", label, min, max);
        if (other > 0) printf("  %s: %lld values are not finite\n", label, other);
    }
};

const char* modeOf(const std::string& path) {
    return isBinaryFieldFile(path) ? "binary" : "ASCII";
}

void printVectors(const FlicVectorField& field) {
    Range xs, ys, lengths;
    long long zero = 0;
    const Vec2f* v = field.vectors();
    for (long long i = 0; i < static_cast<long long>(field.width) * field.height; i++) {
        xs.add(v[i].x);
        ys.add(v[i].y);
        lengths.add(
            std::sqrt(static_cast<double>(v[i].x) * v[i].x + static_cast<double>(v[i].y) * v[i].y));
        if (v[i].x == 0.0f && v[i].y == 0.0f) zero++;
    }
    printf("  size: %d x %d nodes\n", field.width, field.height);
    xs.print("u (x component) range");
    ys.print("v (y component) range");
    printf("  max vector length: %g\n", lengths.finite ? lengths.max : 0.0);
    printf("  zero vectors: %lld\n", zero);
}

int infoVector(const std::string& path) {
    FlicVectorField field;
    if (!readFieldFile(path, field)) return EXIT_FAILED;
    printf("%s: FLIC VECTOR field, %s\n", path.c_str(), modeOf(path));
    printVectors(field);
    return EXIT_OK;
}

int infoNumpy(const std::string& path) {
    FlicVectorField field;
    if (!readNumpyFile(path, field)) return EXIT_FAILED;
    FlicFileProbe probe;
    flicProbeFile(path.c_str(), probe);
    printf("%s: numpy %s, a vector field\n", path.c_str(),
           probe.kind == FLIC_FILE_ZIP ? ".npz archive" : ".npy array");
    printVectors(field);
    return EXIT_OK;
}

int infoColormap(const std::string& path) {
    FileContext context(path);
    FlicColormap map;
    map.createPreset("grey");
    if (!FlicColormap::checkIcol(path.c_str()) || !map.readIcol(path.c_str())) return EXIT_FAILED;
    printf("%s: colour map\n", path.c_str());
    printf("  range: %g .. %g\n", map.min, map.max);
    for (int entry : {0, 128, 255})
        printf("  entry %d: %d %d %d\n", entry,
               static_cast<int>(map.colors[entry][0] * 255.0f + 0.5f),
               static_cast<int>(map.colors[entry][1] * 255.0f + 0.5f),
               static_cast<int>(map.colors[entry][2] * 255.0f + 0.5f));
    return EXIT_OK;
}

int infoScalar(const std::string& path) {
    FlicScalarField field;
    if (!readFieldFile(path, field)) return EXIT_FAILED;
    Range values;
    double sum = 0.0;
    for (long long i = 0; i < static_cast<long long>(field.width) * field.height; i++) {
        values.add(field.data[i]);
        if (std::isfinite(field.data[i])) sum += field.data[i];
    }
    printf("%s: FLIC SCALAR field, %s\n", path.c_str(), modeOf(path));
    printf("  size: %d x %d nodes\n", field.width, field.height);
    values.print("value range");
    if (values.finite) printf("  mean: %g\n", sum / values.finite);
    return EXIT_OK;
}

int infoImage(const std::string& path) {
    FlicImage image;
    FileContext context(path);
    if (!readImage(path, image)) return EXIT_FAILED;
    bool png = isPNGFile(path);
    printf("%s: %s image\n", path.c_str(), png ? "PNG" : "PNM");
    printf("  size: %d x %d pixels\n", image.width, image.height);
    printf("  channels: %d (%s)\n", image.nChannels, image.nChannels == 3 ? "RGB" : "grey");
    // Exact figures from byte counts, whatever the picture's size.
    FlicHistogram histogram;
    histogram.count(image);
    const char* names[3] = {"red", "green", "blue"};
    for (int c = 0; c < image.nChannels && c < 3; c++) {
        int low = 0, high = 255;
        while (low < 255 && histogram.counts[c][low] == 0)
            low++;
        while (high > 0 && histogram.counts[c][high] == 0)
            high--;
        std::string label = image.nChannels == 1 ? "value range" : std::string(names[c]) + " range";
        if (low <= high) printf("  %s: %d .. %d\n", label.c_str(), low, high);
    }
    double mean, sdev;
    histogram.statistics(-1, 0, mean, sdev);
    printf("  mean: %.6g, standard deviation: %.6g\n", mean, sdev);
    long long nonBlack = histogram.statistics(-1, 1, mean, sdev);
    if (nonBlack > 0 &&
        nonBlack < static_cast<long long>(image.width) * image.height * image.nChannels)
        printf("  non-black bytes: %lld, mean: %.6g, standard deviation: %.6g\n", nonBlack, mean,
               sdev);
    return EXIT_OK;
}

// A UCD mesh read by the library's mesh reader (as the importers read it), with the ranges of
// its coordinates and values.
int infoUCD(const std::string& path) {
    UCDHeader header;
    if (!probeUCD(path, header)) {
        flic_ioerror(path.c_str(), "this is not an UCD file");
        return EXIT_FAILED;
    }
    if (!checkUCDCounts(path)) return EXIT_FAILED;
    int values = header.columns < 2 ? 2 : header.columns > 4 ? 4 : header.columns;
    FlicUcdMesh mesh;
    FileContext context(path);
    if (!mesh.read(path.c_str(), "r", values)) return EXIT_FAILED;
    Range xs, ys, first, second;
    for (int i = 0; i < mesh.nVertices; i++) {
        const float* v = mesh.vertex(i);
        xs.add(v[0]);
        ys.add(v[1]);
        if (values >= 3) first.add(v[2]);
        if (values >= 4) second.add(v[3]);
    }
    int data = values - 2;
    printf("%s: UCD mesh\n", path.c_str());
    printf("  vertices: %d, triangles: %d\n", mesh.nVertices, mesh.nTriangles);
    printf("  values per vertex: %d (%s)\n", data,
           data == 2   ? "a vector field"
           : data == 1 ? "a scalar field"
                       : "none");
    xs.print("x range");
    ys.print("y range");
    if (data == 1) first.print("value range");
    if (data == 2) {
        first.print("vx range");
        second.print("vy range");
    }
    return EXIT_OK;
}

int infoGraphics(const std::string& path) {
    FileContext context(path);
    int errors = FlicGraphics::checkFile(path.c_str());
    if (errors < 0) return EXIT_FAILED;
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        flic_ioerror(path.c_str(), nullptr);
        return EXIT_FAILED;
    }
    long lines = 0;
    int c, last = '\n';
    while ((c = getc(file)) != EOF) {
        if (c == '\n') lines++;
        last = c;
    }
    if (last != '\n') lines++;
    fclose(file);
    printf("%s: FLIC GRAPHICS command file\n", path.c_str());
    printf("  lines: %ld\n", lines);
    if (errors == 0) return EXIT_OK;
    return failure("%s: %d command%s cannot be drawn", path.c_str(), errors,
                   errors == 1 ? "" : "s");
}

} // namespace

int runInfo(const InfoOptions& options) {
    const std::string& path = options.file;
    SourceKind kind = classifySource(path);
    switch (kind) {
    case SOURCE_VECTOR_FILE:
        return infoVector(path);
    case SOURCE_SCALAR_FILE:
        return infoScalar(path);
    case SOURCE_IMAGE_FILE:
        return infoImage(path);
    case SOURCE_UCD_FILE:
        return infoUCD(path);
    case SOURCE_GRAPHICS_FILE:
        return infoGraphics(path);
    case SOURCE_NUMPY_FILE:
        return infoNumpy(path);
    case SOURCE_COLORMAP_FILE:
        return infoColormap(path);
    case SOURCE_UNKNOWN_FILE:
        return failure("%s: not a PNM, PNG, FLIC VECTOR, FLIC SCALAR, FLIC GRAPHICS, UCD, .npy, "
                       ".npz or .icol file",
                       path.c_str());
    default:
        if (isBuiltIn(kind))
            return failure("'%s' names a built-in field, not a file (write ./%s for a file)",
                           path.c_str(), path.c_str());
        FILE* file = fopen(path.c_str(), "rb"); // sets errno for the report
        if (file) fclose(file);
        flic_ioerror(path.c_str(), nullptr);
        return EXIT_FAILED;
    }
}
