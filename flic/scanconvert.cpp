// Triangle scan conversion, UCD mesh files, and the import of scalar and vector fields from
// triangle meshes.
#include "scanconvert.h"

#include "messages.h"
#include "scalarfield.h"
#include "vectorfield.h"

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace {

// Row numbers are kept within +-2^30 so that stepping and comparing them cannot overflow;
// rows that far away are never on a canvas.
const double kRowLimit = 1073741824.0;

// Below the canvas the edges are walked row by row, so that they accumulate exactly as in a
// full walk. A longer run of invisible rows than this is jumped instead, by evaluating the
// edges afresh at the row where the walk resumes; this bounds the work for far-off vertices.
const int kLongestRowWalk = 65536;

// Row number of a value already rounded to an integer, clamped to the row limits.
int clamp_row(double row) {
    if (row < -kRowLimit) return -static_cast<int>(kRowLimit);
    if (row > kRowLimit) return static_cast<int>(kRowLimit);
    return static_cast<int>(row);
}

bool polygon_is_finite(int n, const FlicScanConvert::Vertex* vertices) {
    for (int i = 0; i < n; i++)
        if (!std::isfinite(vertices[i].x) || !std::isfinite(vertices[i].y)) return false;
    return true;
}

int lowest_vertex(int n, const FlicScanConvert::Vertex* vertices) {
    int lowest = 0;
    for (int i = 1; i < n; i++)
        if (vertices[i].y < vertices[lowest].y) lowest = i;
    return lowest;
}

} // namespace

// --- FlicScanConvert ------------------------------------------------------------------------

FlicScanConvert::FlicScanConvert(int nAttributes)
    : nAttributes(nAttributes), width(100), height(100), userData(nullptr), callback(nullptr) {}

FlicScanConvert::~FlicScanConvert() {}

void FlicScanConvert::setCanvas(int width, int height) {
    this->width = width;
    this->height = height;
}

void FlicScanConvert::setPixelCallback(FlicPixelCallback callback, void* user) {
    this->callback = callback;
    userData = user;
}

int FlicScanConvert::attributeCount() const {
    if (nAttributes < 0) return 0;
    return nAttributes > 6 ? 6 : nAttributes;
}

void FlicScanConvert::advance(Vertex& current, const Vertex& step) const {
    current.x += step.x;
    int count = attributeCount();
    for (int k = 0; k < count; k++)
        current.attributes[k] += step.attributes[k];
}

void FlicScanConvert::increment_y(const Vertex& a, const Vertex& b, Vertex& current, Vertex& step,
                                  int y) {
    float dy = b.y - a.y;
    if (dy == 0.0f) dy = 1.0f;
    float t = (static_cast<float>(y) + 0.5f) - a.y;
    step.x = (b.x - a.x) / dy;
    current.x = step.x * t + a.x;
    int count = attributeCount();
    for (int k = 0; k < count; k++) {
        step.attributes[k] = (b.attributes[k] - a.attributes[k]) / dy;
        current.attributes[k] = step.attributes[k] * t + a.attributes[k];
    }
}

void FlicScanConvert::increment_x(const Vertex& a, const Vertex& b, Vertex& current, Vertex& step,
                                  int x) {
    float dx = b.x - a.x;
    if (dx == 0.0f) dx = 1.0f;
    float t = (static_cast<float>(x) + 0.5f) - a.x;
    int count = attributeCount();
    for (int k = 0; k < count; k++) {
        step.attributes[k] = (b.attributes[k] - a.attributes[k]) / dx;
        current.attributes[k] = step.attributes[k] * t + a.attributes[k];
    }
}

void FlicScanConvert::scanline(int y, Vertex& left, Vertex& right) {
    double first = ceil(static_cast<double>(left.x) - 0.5);
    if (first < 0) first = 0;
    double last = floor(static_cast<double>(right.x) - 0.5);
    if (last > width) last = width; // deliberately width, not width - 1
    if (!(last >= first)) return;   // empty span, or a non-finite end
    int xs = static_cast<int>(first), xe = static_cast<int>(last);

    Vertex current{}, step{};
    increment_x(left, right, current, step, xs);
    int count = attributeCount();
    for (int x = xs; x <= xe; x++) {
        if (callback) callback(x, y, current.attributes, userData);
        for (int k = 0; k < count; k++)
            current.attributes[k] += step.attributes[k];
    }
}

void FlicScanConvert::scanConvert(int n, const Vertex* vertices) {
    if (n < 1 || !vertices || !polygon_is_finite(n, vertices)) return;
    int lowest = lowest_vertex(n, vertices);
    int y = clamp_row(ceil(static_cast<double>(vertices[lowest].y) - 0.5));

    // The left chain walks the vertex list backwards, the right chain forwards; each edge runs
    // from vertex *From to vertex *To and ends before row *End.
    int leftFrom = lowest, leftTo = lowest, rightFrom = lowest, rightTo = lowest;
    int leftEnd = y - 1, rightEnd = y - 1;
    int remaining = n;
    Vertex left{}, leftStep{}, right{}, rightStep{};

    while (remaining > 0) {
        while (leftEnd <= y && remaining > 0) {
            remaining--;
            leftFrom = leftTo;
            leftTo = leftFrom - 1 < 0 ? n - 1 : leftFrom - 1;
            increment_y(vertices[leftFrom], vertices[leftTo], left, leftStep, y);
            leftEnd = clamp_row(floor(static_cast<double>(vertices[leftTo].y) + 0.5));
        }
        while (rightEnd <= y && remaining > 0) {
            remaining--;
            rightFrom = rightTo;
            rightTo = rightFrom + 1 == n ? 0 : rightFrom + 1;
            increment_y(vertices[rightFrom], vertices[rightTo], right, rightStep, y);
            rightEnd = clamp_row(floor(static_cast<double>(vertices[rightTo].y) + 0.5));
        }
        while (y < leftEnd && y < rightEnd) {
            if (y >= height) return; // rows only grow: nothing further can be drawn
            if (y < 0) {
                int resume = leftEnd < rightEnd ? leftEnd : rightEnd;
                if (resume > 0) resume = 0;
                if (resume - y > kLongestRowWalk) {
                    y = resume;
                    increment_y(vertices[leftFrom], vertices[leftTo], left, leftStep, y);
                    increment_y(vertices[rightFrom], vertices[rightTo], right, rightStep, y);
                    continue;
                }
            } else if (left.x <= right.x) {
                scanline(y, left, right);
            } else {
                scanline(y, right, left);
            }
            advance(left, leftStep);
            advance(right, rightStep);
            y++;
        }
    }
}

// --- UCD mesh files ---------------------------------------------------------------------------

namespace {

// Characters of line 1 that are looked at for the two counts.
const size_t kCountLineLength = 126;

// Reads one line without its newline into `line`, whatever its length. Returns false when the
// file has ended before any character.
bool read_line(FILE* file, std::string& line) {
    line.clear();
    int c = getc_unlocked(file); // files are read by one thread: no per-character locking
    if (c == EOF) return false;
    while (c != EOF && c != '\n') {
        line.push_back(static_cast<char>(c));
        c = getc_unlocked(file);
    }
    return true;
}

// Reads the next decimal number of `text` from `pos` on (only digits and blanks are present),
// saturating at INT_MAX. Returns false when no digit is left.
bool next_count(const std::string& text, size_t& pos, int& count) {
    while (pos < text.size() && text[pos] == ' ')
        pos++;
    if (pos >= text.size()) return false;
    long long value = 0;
    for (; pos < text.size() && text[pos] != ' '; pos++) {
        value = value * 10 + (text[pos] - '0');
        if (value > INT_MAX) value = INT_MAX;
    }
    count = static_cast<int>(value);
    return true;
}

// The vertex and triangle counts of line 1: every character that is not a decimal digit
// counts as a blank, so "nodes: 120, cells: 200" gives 120 and 200.
bool read_counts(FILE* file, int& nVertices, int& nTriangles) {
    std::string line;
    if (!read_line(file, line)) return false;
    if (line.size() > kCountLineLength) line.resize(kCountLineLength);
    for (char& c : line)
        if (!isdigit(static_cast<unsigned char>(c))) c = ' ';
    size_t pos = 0;
    return next_count(line, pos, nVertices) && next_count(line, pos, nTriangles);
}

// Converts up to `count` (2 to 4) numbers of the line with "%g"; returns how many converted.
int scan_vertex_line(const std::string& line, int count, float* values) {
    int converted = 0;
    switch (count) {
    case 2:
        converted = sscanf(line.c_str(), "%g%g", &values[0], &values[1]);
        break;
    case 3:
        converted = sscanf(line.c_str(), "%g%g%g", &values[0], &values[1], &values[2]);
        break;
    default:
        converted =
            sscanf(line.c_str(), "%g%g%g%g", &values[0], &values[1], &values[2], &values[3]);
        break;
    }
    return converted < 0 ? 0 : converted;
}

} // namespace

FlicUcdMesh::FlicUcdMesh()
    : nVertices(0), nTriangles(0), nValues(0), values(nullptr), triangles(nullptr) {}

FlicUcdMesh::~FlicUcdMesh() {
    release();
}

void FlicUcdMesh::release() {
    free(values);
    free(triangles);
    values = nullptr;
    triangles = nullptr;
    nVertices = nTriangles = 0;
}

namespace {

// Tables grow with what the file actually holds, so absurd counts in a short file reserve no
// memory up front; this many entries are reserved first.
const size_t kFirstTableSize = 4096;

// Makes room for `entries` entries of `width` values each in a table meant to end with `limit`
// entries. Returns false when the memory cannot be had.
template <typename T>
bool reserve_entries(T*& table, size_t& capacity, size_t entries, size_t width, size_t limit) {
    if (entries <= capacity) return true;
    size_t wanted = capacity ? 2 * capacity : kFirstTableSize;
    if (wanted < entries) wanted = entries;
    if (wanted > limit) wanted = limit;
    T* grown = static_cast<T*>(realloc(table, wanted * width * sizeof(T)));
    if (!grown) return false;
    table = grown;
    capacity = wanted;
    return true;
}

int report_no_memory(const char* filename, int nVertices, int nTriangles) {
    return flic_error("file %s: no memory for %d vertices and %d triangles", filename, nVertices,
                      nTriangles);
}

} // namespace

int FlicUcdMesh::read(const char* filename, const char* mode, int nValues) {
    release();
    if (nValues < 2) nValues = 2;
    if (nValues > 4) nValues = 4;
    this->nValues = nValues;

    FILE* file = fopen(filename, mode);
    if (!file) return flic_ioerror(filename, nullptr);
    int result;
    try {
        result = readOpenFile(file, filename);
    } catch (const std::bad_alloc&) {
        // A line too long to hold in memory.
        result = flic_error("file %s: no memory for a line of the file", filename);
    }
    fclose(file);
    if (!result) release();
    return result;
}

int FlicUcdMesh::readOpenFile(FILE* file, const char* filename) {
    int nv = 0, nt = 0;
    if (!read_counts(file, nv, nt)) return flic_ioerror(filename, "this is not an UCD file");
    if (nv < 3 || nt < 1)
        return flic_error("file %s contains insufficient data (%d vertices, %d triangles", filename,
                          nv, nt);
    std::string line;
    read_line(file, line); // line 2 carries nothing needed here
    if (!readVertices(file, filename, nv, nt)) return 0;
    read_line(file, line); // so does the line after the vertices
    if (!readTriangles(file, filename, nv, nt)) return 0;
    nVertices = nv;
    nTriangles = nt;
    return 1;
}

int FlicUcdMesh::readVertices(FILE* file, const char* filename, int nv, int nt) {
    std::string line;
    size_t capacity = 0;
    for (size_t i = 0; i < static_cast<size_t>(nv); i++) {
        if (!reserve_entries(values, capacity, i + 1, nValues, nv))
            return report_no_memory(filename, nv, nt);
        int converted = 0;
        if (read_line(file, line))
            converted = scan_vertex_line(line, nValues, values + i * nValues);
        if (converted < nValues)
            return flic_error("expected to read %d floats, got %d", nValues, converted);
    }
    return 1;
}

int FlicUcdMesh::readTriangles(FILE* file, const char* filename, int nv, int nt) {
    size_t capacity = 0;
    for (size_t t = 0; t < static_cast<size_t>(nt); t++) {
        if (!reserve_entries(triangles, capacity, t + 1, 3, nt))
            return report_no_memory(filename, nv, nt);
        // Read wide, so that a number beyond the int range is reported as written.
        long long corner[3];
        int converted = fscanf(file, "%lld%lld%lld", &corner[0], &corner[1], &corner[2]);
        if (converted < 3)
            return flic_error("expected to read 3 ints, got %d", converted < 0 ? 0 : converted);
        for (int k = 0; k < 3; k++) {
            if (corner[k] < 1 || corner[k] > nv)
                return flic_error("file %s: triangle %zu refers to vertex %lld (vertices are "
                                  "numbered 1 to %d)",
                                  filename, t + 1, corner[k], nv);
            triangles[3 * t + k] = static_cast<int>(corner[k] - 1);
        }
    }
    return 1;
}

void FlicUcdMesh::boundingBox(float box[4]) const {
    box[0] = box[1] = box[2] = box[3] = 0.0f;
    if (nVertices < 1) return;
    float xmin = values[0], xmax = values[1];
    float ymin = values[0], ymax = values[1];
    for (int i = 1; i < nVertices; i++) {
        float x = vertex(i)[0], y = vertex(i)[1];
        if (x < xmin) xmin = x;
        if (x > xmax) xmax = x;
        if (y < ymin) ymin = y;
        if (y > ymax) ymax = y;
    }
    box[0] = xmin;
    box[1] = xmax;
    box[2] = ymin;
    box[3] = ymax;
}

int flic_fitBox(const float box[4], int width, int height, float& scale, float& x0, float& y0) {
    float boxWidth = box[1] - box[0];
    float boxHeight = box[3] - box[2];
    if (boxWidth == 0.0f || boxHeight == 0.0f)
        return flic_error("degenerate grid (width=%g, height=%g)", static_cast<double>(boxWidth),
                          static_cast<double>(boxHeight));
    float gridWidth = static_cast<float>(width), gridHeight = static_cast<float>(height);
    if (gridWidth / gridHeight > boxWidth / boxHeight) {
        scale = gridHeight / boxHeight;
        x0 = box[0] - (gridWidth / scale - boxWidth) * 0.5f;
        y0 = box[2];
    } else {
        scale = gridWidth / boxWidth;
        x0 = box[0];
        y0 = box[2] - (gridHeight / scale - boxHeight) * 0.5f;
    }
    return 1;
}

// --- Import of fields from meshes ---------------------------------------------------------------

namespace {

// Scan-converts every triangle of the mesh, in file order, into the callback's target. The
// data values of each vertex (those after x and y) become its first attributes.
void rasterize_mesh(const FlicUcdMesh& mesh, float scale, float x0, float y0, int width, int height,
                    int nAttributes, FlicPixelCallback callback, void* target) {
    FlicScanConvert converter(6);
    converter.nAttributes = nAttributes;
    converter.setCanvas(width, height);
    converter.setPixelCallback(callback, target);

    FlicScanConvert::Vertex corners[3];
    for (int t = 0; t < mesh.nTriangles; t++) {
        for (int k = 0; k < 3; k++) {
            const float* vertex = mesh.vertex(mesh.triangles[3 * static_cast<size_t>(t) + k]);
            FlicScanConvert::Vertex& corner = corners[k];
            corner.x = (vertex[0] - x0) * scale;
            corner.y = (vertex[1] - y0) * scale;
            for (int a = 0; a < 6; a++)
                corner.attributes[a] = a + 2 < mesh.nValues ? vertex[a + 2] : 0.0f;
        }
        converter.scanConvert(3, corners);
    }
}

// The scalar field's callback stores a span's extra pixel x == width at the first node of the
// next row; on the top row that node would lie past the field, so such a store is dropped.
void store_scalar_node(int x, int y, float* values, void* field) {
    const FlicScalarField* target = static_cast<const FlicScalarField*>(field);
    long long index = static_cast<long long>(y) * target->width + x;
    if (index < 0 || index >= static_cast<long long>(target->width) * target->height) return;
    FlicScalarField::pixelCallback(x, y, values, field);
}

int reject_field_size(int width, int height) {
    return flic_error("illegal field size %d x %d", width, height);
}

} // namespace

int FlicScalarField::readUCD(const char* filename, int width, int height) {
    if (width < 0 || height < 0) return reject_field_size(width, height);
    FlicUcdMesh mesh;
    if (!mesh.read(filename, "r", 3)) return 0;
    float box[4];
    mesh.boundingBox(box);
    float scale = 0.0f, x0 = 0.0f, y0 = 0.0f; // set by flic_fitBox when it succeeds
    if (!flic_fitBox(box, width, height, scale, x0, y0)) return 0;

    if (!setSize(width, height)) return 0;
    long long nodes = static_cast<long long>(width) * height;
    for (long long i = 0; i < nodes; i++)
        data[i] = 0.0f;
    rasterize_mesh(mesh, scale, x0, y0, width, height, 1, store_scalar_node, this);
    return 1;
}

int FlicVectorField::readUCD(const char* filename, int width, int height, float* bbox) {
    if (width < 0 || height < 0) return reject_field_size(width, height);
    FlicUcdMesh mesh;
    if (!mesh.read(filename, "r", 4)) return 0;
    float box[4];
    if (bbox) {
        memcpy(box, bbox, sizeof box);
    } else {
        mesh.boundingBox(box);
    }
    float scale = 0.0f, x0 = 0.0f, y0 = 0.0f; // set by flic_fitBox when it succeeds
    if (!flic_fitBox(box, width, height, scale, x0, y0)) return 0;

    if (!setSize(width, height)) return 0;
    long long values = 2LL * width * height;
    for (long long i = 0; i < values; i++)
        data[i] = 0.0f;
    rasterize_mesh(mesh, scale, x0, y0, width, height, 3, FlicVectorField::pixelCallback, this);
    return 1;
}

int FlicVectorField::readUCD(const char* filename, int width, int height) {
    return readUCD(filename, width, height, nullptr);
}
