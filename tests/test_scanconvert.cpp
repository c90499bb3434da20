// Triangle scan conversion, UCD mesh files and the import of scalar and vector fields from
// meshes.
#include "scanconvert.h"
#include "scalarfield.h"
#include "vectorfield.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

using testutil::MessageCapture;
using testutil::TempDir;
using testutil::writeFile;

namespace {

typedef FlicScanConvert::Vertex Vertex;

// One callback call: pixel and the first two attribute values.
struct Hit {
    int x, y;
    float a0, a1;
};

void record(int x, int y, float* values, void* user) {
    static_cast<std::vector<Hit>*>(user)->push_back({x, y, values[0], values[1]});
}

Vertex vertex(float x, float y, float a0 = 0, float a1 = 0) {
    Vertex v{};
    v.x = x;
    v.y = y;
    v.attributes[0] = a0;
    v.attributes[1] = a1;
    return v;
}

// Rasterizes the polygon and returns the callback calls in order.
std::vector<Hit> rasterize(const std::vector<Vertex>& polygon, int width = 100, int height = 100,
                           int nAttributes = 2) {
    std::vector<Hit> hits;
    FlicScanConvert converter(nAttributes);
    converter.setCanvas(width, height);
    converter.setPixelCallback(record, &hits);
    converter.scanConvert(static_cast<int>(polygon.size()), polygon.data());
    return hits;
}

// Columns covered per row, as first..last ranges (rows must be contiguous runs).
std::map<int, std::pair<int, int>> spans(const std::vector<Hit>& hits) {
    std::map<int, std::pair<int, int>> rows;
    for (const Hit& h : hits) {
        auto found = rows.find(h.y);
        if (found == rows.end()) {
            rows[h.y] = {h.x, h.x};
        } else {
            EXPECT_EQ(h.x, found->second.second + 1) << "row " << h.y << " not contiguous";
            found->second.second = h.x;
        }
    }
    return rows;
}

typedef std::map<int, std::pair<int, int>> Spans;

// The mesh file as the importers read it.
std::string ucdFile(const std::string& counts, const std::vector<std::string>& vertexLines,
                    const std::string& triangles) {
    std::string text = counts + "\nsecond line is skipped\n";
    for (const std::string& line : vertexLines)
        text += line + "\n";
    return text + "this line is skipped too\n" + triangles + "\n";
}

// A 2 x 2 field holding 9s, to see that failures leave a field alone.
FlicVectorField untouchedField() {
    FlicVectorField field(2, 2);
    for (int i = 0; i < 8; i++)
        field.data[i] = 9.0f;
    return field;
}

void expectUntouched(const FlicVectorField& field) {
    ASSERT_EQ(field.width, 2);
    ASSERT_EQ(field.height, 2);
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(field.data[i], 9.0f);
}

} // namespace

TEST(ScanConvert, DefaultsAndSetters) {
    FlicScanConvert converter(4);
    EXPECT_EQ(converter.nAttributes, 4);
    EXPECT_EQ(converter.width, 100);
    EXPECT_EQ(converter.height, 100);
    EXPECT_EQ(converter.callback, nullptr);
    EXPECT_EQ(converter.userData, nullptr);
    int marker = 0;
    converter.setCanvas(7, 3);
    converter.setPixelCallback(record, &marker);
    EXPECT_EQ(converter.width, 7);
    EXPECT_EQ(converter.height, 3);
    EXPECT_EQ(converter.callback, &record);
    EXPECT_EQ(converter.userData, &marker);
    // Without a callback covered pixels are simply skipped.
    converter.setPixelCallback(nullptr, nullptr);
    Vertex triangle[3] = {vertex(0, 0), vertex(4, 0), vertex(0, 4)};
    converter.scanConvert(3, triangle);
}

TEST(ScanConvert, TriangleCoversPixelCentresWithInterpolatedAttributes) {
    // Attribute 0 is x, attribute 1 is y: at a covered pixel they read its centre.
    std::vector<Hit> hits = rasterize({vertex(0, 0, 0, 0), vertex(4, 0, 4, 0), vertex(0, 4, 0, 4)});
    Spans expected = {{0, {0, 3}}, {1, {0, 2}}, {2, {0, 1}}, {3, {0, 0}}};
    EXPECT_EQ(spans(hits), expected);
    ASSERT_EQ(hits.size(), 10u);
    EXPECT_EQ(hits.front().y, 0); // rows bottom up, columns left to right
    EXPECT_EQ(hits.back().y, 3);
    for (const Hit& h : hits) {
        EXPECT_EQ(h.a0, h.x + 0.5f) << h.x << "," << h.y;
        EXPECT_EQ(h.a1, h.y + 0.5f) << h.x << "," << h.y;
    }
    // The vertex order around the polygon does not matter.
    EXPECT_EQ(spans(rasterize({vertex(0, 4), vertex(4, 0), vertex(0, 0)})), expected);
}

TEST(ScanConvert, HorizontalEdgesDegeneratePolygonsAndCentreRule) {
    // Rectangle with horizontal top and bottom: rows 0 and 1 only.
    Spans rectangle = {{0, {0, 3}}, {1, {0, 3}}};
    EXPECT_EQ(spans(rasterize({vertex(0, 0), vertex(4, 0), vertex(4, 2), vertex(0, 2)})),
              rectangle);
    // A centre exactly on the top or right edge is inside; x just short of a centre is not.
    Spans closed = {{0, {0, 1}}, {1, {0, 1}}};
    EXPECT_EQ(
        spans(rasterize({vertex(0, 0), vertex(1.5f, 0), vertex(1.5f, 1.5f), vertex(0, 1.5f)})),
        closed);
    Spans open = {{0, {0, 0}}};
    EXPECT_EQ(
        spans(rasterize({vertex(0, 0), vertex(1.49f, 0), vertex(1.49f, 1.49f), vertex(0, 1.49f)})),
        open);
    // Zero height, a single vertex, no vertices, a non-finite corner: nothing.
    EXPECT_TRUE(rasterize({vertex(0, 3), vertex(9, 3), vertex(5, 3)}).empty());
    EXPECT_TRUE(rasterize({vertex(2, 2)}).empty());
    EXPECT_TRUE(rasterize({}).empty());
    float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(rasterize({vertex(0, 0), vertex(4, nan), vertex(0, 4)}).empty());
    EXPECT_TRUE(rasterize({vertex(0, 0), vertex(INFINITY, 0), vertex(0, 4)}).empty());
}

TEST(ScanConvert, SpanReachesOneColumnPastTheCanvas) {
    // Right end at 5.0 >= width + 0.5 on a 4-wide canvas: x == 4 is handed out, x == 5 never.
    Spans wide = {{0, {0, 4}}, {1, {0, 4}}};
    EXPECT_EQ(spans(rasterize({vertex(-3, 0), vertex(9, 0), vertex(9, 2), vertex(-3, 2)}, 4, 4)),
              wide);
    // The vector field's callback drops that pixel.
    FlicVectorField field(4, 2);
    for (int i = 0; i < 16; i++)
        field.data[i] = -1.0f;
    FlicScanConvert converter(2);
    converter.setCanvas(4, 2);
    converter.setPixelCallback(FlicVectorField::pixelCallback, &field);
    Vertex strip[4] = {vertex(0, 0, 7, 8), vertex(6, 0, 7, 8), vertex(6, 1, 7, 8),
                       vertex(0, 1, 7, 8)};
    converter.scanConvert(4, strip);
    for (int x = 0; x < 4; x++) {
        EXPECT_EQ(field.vectors()[x].x, 7.0f);
        EXPECT_EQ(field.vectors()[x].y, 8.0f);
        EXPECT_EQ(field.vectors()[4 + x].x, -1.0f); // row 1 untouched
    }
}

TEST(ScanConvert, RowsOffTheCanvasAreSkippedButEdgesAdvance) {
    // Edge (0,-10)-(20,10) crosses row 0 at x = 10.5: row 0 spans 0..10 only if the edges were
    // walked through the ten invisible rows below it.
    std::vector<Hit> hits =
        rasterize({vertex(0, -10, 0, 0), vertex(20, 10, 20, 0), vertex(0, 10, 0, 0)}, 100, 3, 1);
    Spans expected = {{0, {0, 10}}, {1, {0, 11}}, {2, {0, 12}}};
    EXPECT_EQ(spans(hits), expected);
    for (const Hit& h : hits)
        EXPECT_FLOAT_EQ(h.a0, h.x + 0.5f);

    // The walk through invisible rows accumulates exactly as a walk over visible ones: the
    // same polygon moved up by 16 rows (corner heights chosen so that the move is exact) gives
    // bit-identical pixels and values 16 rows higher.
    std::vector<Vertex> polygon = {vertex(0.3f, -10.25f, 0.1f, 0.7f),
                                   vertex(7.1f, -3.5f, 0.9f, 0.2f),
                                   vertex(5.3f, 9.75f, 0.35f, 0.05f)};
    std::vector<Vertex> moved = polygon;
    for (Vertex& v : moved)
        v.y += 16;
    std::vector<Hit> cut = rasterize(polygon, 100, 100);
    std::vector<Hit> whole = rasterize(moved, 100, 100);
    std::vector<Hit> upper;
    for (const Hit& h : whole)
        if (h.y >= 16) upper.push_back({h.x, h.y - 16, h.a0, h.a1});
    ASSERT_EQ(cut.size(), upper.size());
    ASSERT_FALSE(cut.empty());
    for (size_t i = 0; i < cut.size(); i++) {
        EXPECT_EQ(cut[i].x, upper[i].x);
        EXPECT_EQ(cut[i].y, upper[i].y);
        EXPECT_EQ(cut[i].a0, upper[i].a0) << i;
        EXPECT_EQ(cut[i].a1, upper[i].a1) << i;
    }

    // Far-off vertices: the long walk below the canvas is jumped and rows above the canvas end
    // the work, with the visible rows still right.
    Spans far = {{0, {0, 9}}, {1, {0, 9}}};
    EXPECT_EQ(spans(rasterize({vertex(0, -1e6f), vertex(10, 10), vertex(10, 1e9f), vertex(0, 1e9f)},
                              100, 2)),
              far);
    EXPECT_TRUE(rasterize({vertex(0, -3e38f), vertex(10, -1e38f), vertex(0, -2e38f)}).empty());
    Spans huge = {{0, {0, 20}}, {1, {0, 20}}};
    EXPECT_EQ(spans(rasterize({vertex(0, -1e38f), vertex(1e30f, 1e38f), vertex(0, 1e38f)}, 20, 2)),
              huge);
}

TEST(ScanConvert, IncrementsAndAttributeCount) {
    FlicScanConvert converter(2);
    Vertex a = vertex(1, 2, 10, 20), b = vertex(5, 2, 30, 40);
    Vertex current = vertex(0, -7), step = vertex(0, -9);
    // Equal y: dy counts as 1; t = 3.5 - 2 = 1.5.
    converter.increment_y(a, b, current, step, 3);
    EXPECT_EQ(step.x, 4.0f);
    EXPECT_EQ(current.x, 7.0f);
    EXPECT_EQ(step.attributes[0], 20.0f);
    EXPECT_EQ(current.attributes[1], 50.0f);
    EXPECT_EQ(current.y, -7.0f); // y members untouched
    EXPECT_EQ(step.y, -9.0f);
    // Along x: dx = 4, t = 2.5 - 1 = 1.5; x members untouched.
    current.x = 99;
    converter.increment_x(a, b, current, step, 2);
    EXPECT_EQ(step.attributes[0], 5.0f);
    EXPECT_EQ(current.attributes[0], 17.5f);
    EXPECT_EQ(current.attributes[1], 27.5f);
    EXPECT_EQ(current.x, 99.0f);
    // Attributes beyond the count are left alone; counts beyond 6 act as 6.
    converter.nAttributes = 1;
    current.attributes[1] = -1;
    converter.increment_x(a, b, current, step, 2);
    EXPECT_EQ(current.attributes[1], -1.0f);
    std::vector<Hit> hits =
        rasterize({vertex(0, 0, 1, 2), vertex(2, 0, 1, 2), vertex(0, 2, 1, 2)}, 100, 100, 50);
    ASSERT_EQ(hits.size(), 3u);
    EXPECT_EQ(hits[0].a1, 2.0f);
}

// --- Vector field import ---------------------------------------------------------------------

TEST(VectorFieldUCD, MinimalFileImportsOneTriangle) {
    TempDir dir;
    std::string path = dir.path("one.inp");
    writeFile(path, ucdFile("3 1", {"0 0 1 2", "4 0 1 2 ignored", "0 4 1 2"}, "1 2 3"));
    FlicVectorField field;
    MessageCapture capture;
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_TRUE(capture.errors().empty());
    ASSERT_EQ(field.width, 8);
    ASSERT_EQ(field.height, 8);
    // Box 4 x 4 scaled by 2: the triangle (0,0),(8,0),(0,8) covers x + y <= 7.
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 8; x++) {
            Vec2f v = field.vectors()[y * 8 + x];
            bool covered = x + y <= 7;
            EXPECT_EQ(v.x, covered ? 1.0f : 0.0f) << x << "," << y;
            EXPECT_EQ(v.y, covered ? 2.0f : 0.0f) << x << "," << y;
        }

    // Counts among other text, minus signs blanked; triangles in any line layout.
    writeFile(path, ucdFile("nodes: -3, cells: 1.", {"0 0 1 2", "4 0 1 2", "0 4 1 2"}, "1\n2 3"));
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_EQ(field.vectors()[0].x, 1.0f);
}

TEST(VectorFieldUCD, FitKeepsAspectRatioAndLaterTrianglesWin) {
    TempDir dir;
    std::string path = dir.path("two.inp");
    // Two triangles splitting the square [0,4]^2 along a diagonal, with values 1 and 5.
    std::vector<std::string> vertices = {"0 0 1 1", "4 0 1 1", "0 4 1 1",
                                         "4 0 5 5", "4 4 5 5", "0 4 5 5"};
    writeFile(path, ucdFile("6 2", vertices, "1 2 3 4 5 6"));
    FlicVectorField field;
    // 8 x 4 grid: scale 1, the square centred horizontally (x0 = -2). Centres on the shared
    // diagonal belong to both triangles and take the later one's value.
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 4), 1);
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 8; x++) {
            float expected = x < 2 || x >= 6 ? 0.0f : (x - 2) + y < 3 ? 1.0f : 5.0f;
            EXPECT_EQ(field.vectors()[y * 8 + x].x, expected) << x << "," << y;
        }
    writeFile(path, ucdFile("6 2", vertices, "4 5 6 1 2 3"));
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 4), 1);
    EXPECT_EQ(field.vectors()[3 * 8 + 2].x, 1.0f);
    EXPECT_EQ(field.vectors()[3 * 8 + 3].x, 5.0f);
    // Into a tall grid: centred vertically (y0 = -2).
    ASSERT_EQ(field.readUCD(path.c_str(), 4, 8), 1);
    EXPECT_EQ(field.vectors()[0].x, 0.0f);
    EXPECT_EQ(field.vectors()[2 * 4].x, 1.0f);
    EXPECT_EQ(field.vectors()[5 * 4 + 3].x, 5.0f);
    EXPECT_EQ(field.vectors()[6 * 4].x, 0.0f);
}

TEST(VectorFieldUCD, BoundingBoxQuirkAndExplicitBox) {
    TempDir dir;
    std::string path = dir.path("quirk.inp");
    // Vertex 0 has the largest x (10) and a smaller y (2): the box's xmax starts from 2 and
    // misses it, giving [0, 5] x [0, 8].
    writeFile(path, ucdFile("3 1", {"10 2 1 0", "0 0 2 0", "5 8 3 0"}, "1 2 3"));
    FlicVectorField automatic, quirkBox, trueBox;
    ASSERT_EQ(automatic.readUCD(path.c_str(), 16, 16), 1);
    float quirk[4] = {0, 5, 0, 8};
    float truth[4] = {0, 10, 0, 8};
    ASSERT_EQ(quirkBox.readUCD(path.c_str(), 16, 16, quirk), 1);
    ASSERT_EQ(trueBox.readUCD(path.c_str(), 16, 16, truth), 1);
    int differences = 0;
    for (int i = 0; i < 2 * 16 * 16; i++) {
        EXPECT_EQ(automatic.data[i], quirkBox.data[i]) << i;
        differences += automatic.data[i] != trueBox.data[i];
    }
    EXPECT_GT(differences, 0);
    // When vertex 0's x is the smallest x and lies below every y, and its y lies below the
    // largest x, the start values do no harm and the box is the true one.
    writeFile(path, ucdFile("3 1", {"0 8 1 0", "10 2 2 0", "5 0 3 0"}, "1 2 3"));
    FlicVectorField fitted, boxed;
    float exact[4] = {0, 10, 0, 8};
    ASSERT_EQ(fitted.readUCD(path.c_str(), 16, 16), 1);
    ASSERT_EQ(boxed.readUCD(path.c_str(), 16, 16, exact), 1);
    for (int i = 0; i < 2 * 16 * 16; i++)
        EXPECT_EQ(fitted.data[i], boxed.data[i]) << i;
}

TEST(VectorFieldUCD, FailuresReportAndLeaveTheFieldAlone) {
    TempDir dir;
    std::string path = dir.path("bad.inp");
    struct Case {
        std::string text;
        std::string message;
    };
    const std::string p = path;
    std::vector<Case> cases = {
        {"", "FLIC error: can't open " + p + " (this is not an UCD file)"},
        {"only 7 here\n", "FLIC error: can't open " + p + " (this is not an UCD file)"},
        {"4" + std::string(130, ' ') + "2\n",
         "FLIC error: can't open " + p + " (this is not an UCD file)"},
        {ucdFile("2 1", {"0 0 0 0", "1 1 1 1"}, "1 2 2"),
         "FLIC error: file " + p + " contains insufficient data (2 vertices, 1 triangles"},
        {ucdFile("3 0", {"0 0 0 0", "1 0 0 0", "0 1 0 0"}, ""),
         "FLIC error: file " + p + " contains insufficient data (3 vertices, 0 triangles"},
        {ucdFile("3 1", {"0 0 0 0", "1 0 0", "0 1 0 0"}, "1 2 3"),
         "FLIC error: expected to read 4 floats, got 3"},
        {ucdFile("3 1", {"0 0 0 0", "", "0 1 0 0"}, "1 2 3"),
         "FLIC error: expected to read 4 floats, got 0"},
        {"3 1\nskip\n0 0 0 0\n", "FLIC error: expected to read 4 floats, got 0"},
        {ucdFile("3 1", {"0 0 0 0", "1 0 0 0", "0 1 0 0"}, "1 2"),
         "FLIC error: expected to read 3 ints, got 2"},
        {ucdFile("3 2", {"0 0 0 0", "1 0 0 0", "0 1 0 0"}, "1 2 3 x"),
         "FLIC error: expected to read 3 ints, got 0"},
        {ucdFile("3 1", {"0 0 0 0", "1 0 0 0", "0 1 0 0"}, "1 2 4"),
         "FLIC error: file " + p +
             ": triangle 1 refers to vertex 4 (vertices are numbered 1 to 3)"},
        {ucdFile("3 2", {"0 0 0 0", "1 0 0 0", "0 1 0 0"}, "1 2 3 0 1 2"),
         "FLIC error: file " + p +
             ": triangle 2 refers to vertex 0 (vertices are numbered 1 to 3)"},
        {ucdFile("3 1", {"0 0 0 0", "0 1 0 0", "0 2 0 0"}, "1 2 3"),
         "FLIC error: degenerate grid (width=0, height=2)"},
        {ucdFile("3 1", {"5 5 0 0", "6 5 0 0", "7 5 0 0"}, "1 2 3"),
         "FLIC error: degenerate grid (width=2, height=0)"},
    };
    for (const Case& c : cases) {
        writeFile(path, c.text);
        FlicVectorField field = untouchedField();
        MessageCapture capture;
        EXPECT_EQ(field.readUCD(path.c_str(), 4, 4), 0) << c.message;
        EXPECT_EQ(capture.onlyError(), c.message);
        expectUntouched(field);
    }

    MessageCapture capture;
    FlicVectorField field = untouchedField();
    std::string missing = dir.path("missing.inp");
    EXPECT_EQ(field.readUCD(missing.c_str(), 4, 4), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: can't open " + missing + " (No such file or directory)");
    capture.errors().clear();
    writeFile(path, ucdFile("3 1", {"0 0 0 0", "1 0 0 0", "0 1 0 0"}, "1 2 3"));
    EXPECT_EQ(field.readUCD(path.c_str(), -1, 4), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: illegal field size -1 x 4");
    expectUntouched(field);
}

TEST(VectorFieldUCD, AbsurdCountsFailCleanly) {
    TempDir dir;
    std::string path = dir.path("absurd.inp");
    // Counts far beyond the file's content, one of them beyond the int range.
    for (const char* counts : {"2000000000 2000000000", "99999999999999999999 5", "3 2000000000"}) {
        writeFile(path, ucdFile(counts, {"0 0 0 0", "1 0 0 0", "0 1 0 0"}, "1 2 3"));
        FlicVectorField field = untouchedField();
        MessageCapture capture;
        EXPECT_EQ(field.readUCD(path.c_str(), 4, 4), 0) << counts;
        ASSERT_EQ(capture.errors().size(), 1u) << counts;
        EXPECT_EQ(capture.errors()[0].rfind("FLIC error: ", 0), 0u) << capture.errors()[0];
        expectUntouched(field);
    }
}

TEST(UcdMesh, ReadsTablesCountedFromZero) {
    TempDir dir;
    std::string path = dir.path("mesh.inp");
    std::string longFirstLine = "4 2" + std::string(200, ' ') + "77\n";
    writeFile(path, longFirstLine + "skip\n0 0\n3 0\n0 3\n3 3 9\nskip\n1 2 3\n2 4 3\n");
    FlicUcdMesh mesh;
    ASSERT_EQ(mesh.read(path.c_str(), "rb", 2), 1);
    EXPECT_EQ(mesh.nVertices, 4);
    EXPECT_EQ(mesh.nTriangles, 2);
    EXPECT_EQ(mesh.values[7], 3.0f);
    std::vector<int> triangles(mesh.triangles, mesh.triangles + 6);
    EXPECT_EQ(triangles, (std::vector<int>{0, 1, 2, 1, 3, 2}));
    float box[4];
    mesh.boundingBox(box);
    EXPECT_EQ(box[0], 0.0f);
    EXPECT_EQ(box[1], 3.0f);
    EXPECT_EQ(box[2], 0.0f);
    EXPECT_EQ(box[3], 3.0f);
    float scale, x0, y0;
    ASSERT_EQ(flic_fitBox(box, 12, 6, scale, x0, y0), 1);
    EXPECT_EQ(scale, 2.0f);
    EXPECT_EQ(x0, -1.5f);
    EXPECT_EQ(y0, 0.0f);
}

// --- Scalar field import ---------------------------------------------------------------------

TEST(ScalarFieldUCD, ImportsValuesAndWrapsTheExtraColumn) {
    TempDir dir;
    std::string path = dir.path("scalar.inp");
    writeFile(path, ucdFile("3 1", {"0 0 3", "4 0 3", "0 4 3"}, "1 2 3"));
    FlicScalarField field;
    MessageCapture capture;
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_TRUE(capture.errors().empty());
    ASSERT_EQ(field.width, 8);
    ASSERT_EQ(field.height, 8);
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 8; x++)
            EXPECT_EQ(field.data[y * 8 + x], x + y <= 7 ? 3.0f : 0.0f) << x << "," << y;

    // Vertex 0 lies beyond the quirky box, so rows 3 to 11 of a 16 x 16 grid reach x == 16:
    // the scalar field stores that pixel at node (0, row + 1), the vector field drops it.
    writeFile(path, ucdFile("3 1", {"10 2 7", "0 0 7", "5 8 7"}, "1 2 3"));
    std::string vectorPath = dir.path("vector.inp");
    writeFile(vectorPath, ucdFile("3 1", {"10 2 7 0", "0 0 7 0", "5 8 7 0"}, "1 2 3"));
    FlicVectorField vectors;
    ASSERT_EQ(field.readUCD(path.c_str(), 16, 16), 1);
    ASSERT_EQ(vectors.readUCD(vectorPath.c_str(), 16, 16), 1);
    std::vector<int> wrapped;
    for (int i = 0; i < 256; i++) {
        if (field.data[i] == vectors.data[2 * i]) continue;
        wrapped.push_back(i);
        EXPECT_EQ(field.data[i], 7.0f);
        EXPECT_EQ(vectors.data[2 * i], 0.0f);
    }
    std::vector<int> expected;
    for (int row = 4; row <= 12; row++)
        expected.push_back(row * 16);
    EXPECT_EQ(wrapped, expected);

    // On the top row the extra pixel would lie past the field: it is dropped.
    writeFile(path, ucdFile("3 1", {"10 8 5", "0 0 5", "0 8 5"}, "1 2 3"));
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_EQ(field.data[7 * 8 + 7], 5.0f);
    EXPECT_EQ(field.data[0], 5.0f);
}

TEST(ScalarFieldUCD, FailuresReportAndLeaveTheFieldAlone) {
    TempDir dir;
    std::string path = dir.path("bad.inp");
    struct Case {
        std::string text;
        int width;
        std::string message;
    };
    const std::vector<Case> cases = {
        {ucdFile("3 1", {"0 0 1", "1 0", "0 1 1"}, "1 2 3"), 4,
         "FLIC error: expected to read 3 floats, got 2"},
        {ucdFile("3 1", {"0 0 1", "1 0 1", "0 1 1"}, "3 2 9"), 4,
         "FLIC error: file " + path +
             ": triangle 1 refers to vertex 9 (vertices are numbered 1 to 3)"},
        {ucdFile("3 1", {"0 0 1", "0 0 1", "0 0 1"}, "1 2 3"), 4,
         "FLIC error: degenerate grid (width=0, height=0)"},
        {ucdFile("3 1", {"0 0 1", "1 0 1", "0 1 1"}, "1 2 3"), -2,
         "FLIC error: illegal field size -2 x 4"},
        {"1 1\n", 4,
         "FLIC error: file " + path + " contains insufficient data (1 vertices, 1 triangles"},
    };
    for (const Case& c : cases) {
        writeFile(path, c.text);
        FlicScalarField field(2, 2);
        for (int i = 0; i < 4; i++)
            field.data[i] = 9.0f;
        MessageCapture capture;
        EXPECT_EQ(field.readUCD(path.c_str(), c.width, 4), 0) << c.message;
        EXPECT_EQ(capture.onlyError(), c.message);
        ASSERT_EQ(field.width, 2);
        ASSERT_EQ(field.height, 2);
        for (int i = 0; i < 4; i++)
            EXPECT_EQ(field.data[i], 9.0f);
    }
}
