// Triangle scan conversion, UCD mesh files and the import of scalar and vector fields.
#include "scalarfield.h"
#include "scanconvert.h"
#include "vectorfield.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using testutil::MessageCapture;
using testutil::TempDir;
using testutil::writeFile;

namespace {

typedef FlicScanConvert::Vertex Vertex;

struct Hit {
    int x, y;
    float a0, a1;
};

void record(int x, int y, float* values, void* user) {
    static_cast<std::vector<Hit>*>(user)->push_back({x, y, values[0], values[1]});
}

Vertex vertex(float x, float y, float a0 = 0, float a1 = 0) {
    return Vertex{x, y, {a0, a1, 0, 0, 0, 0}};
}

std::vector<Hit> rasterize(const std::vector<Vertex>& polygon, int width = 100, int height = 100,
                           int nAttributes = 2) {
    std::vector<Hit> hits;
    FlicScanConvert converter(nAttributes);
    converter.setCanvas(width, height);
    converter.setPixelCallback(record, &hits);
    converter.scanConvert(static_cast<int>(polygon.size()), polygon.data());
    return hits;
}

// The calls as "row:first-last" runs in call order, e.g. "0:0-3 1:0-2".
std::string spans(const std::vector<Hit>& hits) {
    std::string text;
    for (size_t i = 0; i < hits.size(); i++) {
        bool starts = i == 0 || hits[i].y != hits[i - 1].y || hits[i].x != hits[i - 1].x + 1;
        bool ends =
            i + 1 == hits.size() || hits[i + 1].y != hits[i].y || hits[i + 1].x != hits[i].x + 1;
        if (starts)
            text += (text.empty() ? "" : " ") + std::to_string(hits[i].y) + ":" +
                    std::to_string(hits[i].x);
        if (ends) text += "-" + std::to_string(hits[i].x);
    }
    return text;
}

std::string ucdFile(const std::string& counts, const std::vector<std::string>& vertexLines,
                    const std::string& triangles) {
    std::string text = counts + "\nsecond line is skipped\n";
    for (const std::string& line : vertexLines)
        text += line + "\n";
    return text + "this line is skipped too\n" + triangles + "\n";
}

} // namespace

TEST(ScanConvert, CoverageByPixelCentres) {
    FlicScanConvert defaults(4);
    EXPECT_EQ(defaults.width, 100);
    EXPECT_EQ(defaults.height, 100);
    EXPECT_EQ(defaults.callback, nullptr);

    // Attribute 0 is x and attribute 1 is y: at each pixel they read its centre.
    std::vector<Hit> hits = rasterize({vertex(0, 0, 0, 0), vertex(4, 0, 4, 0), vertex(0, 4, 0, 4)});
    EXPECT_EQ(spans(hits), "0:0-3 1:0-2 2:0-1 3:0-0");
    for (const Hit& h : hits) {
        EXPECT_EQ(h.a0, h.x + 0.5f);
        EXPECT_EQ(h.a1, h.y + 0.5f);
    }
    EXPECT_EQ(spans(rasterize({vertex(0, 4), vertex(4, 0), vertex(0, 0)})),
              "0:0-3 1:0-2 2:0-1 3:0-0");
    // Horizontal edges add no rows; centres on the top or right edge are inside.
    EXPECT_EQ(spans(rasterize({vertex(0, 0), vertex(4, 0), vertex(4, 2), vertex(0, 2)})),
              "0:0-3 1:0-3");
    EXPECT_EQ(
        spans(rasterize({vertex(0, 0), vertex(1.5f, 0), vertex(1.5f, 1.5f), vertex(0, 1.5f)})),
        "0:0-1 1:0-1");
    EXPECT_EQ(
        spans(rasterize({vertex(0, 0), vertex(1.49f, 0), vertex(1.49f, 1.49f), vertex(0, 1.49f)})),
        "0:0-0");
    // Zero height, one vertex, none, a non-finite corner: nothing.
    EXPECT_TRUE(rasterize({vertex(0, 3), vertex(9, 3), vertex(5, 3)}).empty());
    EXPECT_TRUE(rasterize({vertex(2, 2)}).empty());
    EXPECT_TRUE(rasterize({}).empty());
    EXPECT_TRUE(rasterize({vertex(0, 0), vertex(4, NAN), vertex(0, 4)}).empty());
    EXPECT_TRUE(rasterize({vertex(0, 0), vertex(INFINITY, 0), vertex(0, 4)}).empty());

    // A span reaches x == width (never beyond); the vector field's callback drops that pixel.
    EXPECT_EQ(spans(rasterize({vertex(-3, 0), vertex(9, 0), vertex(9, 2), vertex(-3, 2)}, 4, 4)),
              "0:0-4 1:0-4");
    FlicVectorField field(4, 2);
    for (int i = 0; i < 16; i++)
        field.data[i] = -1.0f;
    FlicScanConvert converter(2);
    converter.setCanvas(4, 2);
    converter.setPixelCallback(FlicVectorField::pixelCallback, &field);
    Vertex strip[4] = {vertex(0, 0, 7, 8), vertex(6, 0, 7, 8), vertex(6, 1, 7, 8),
                       vertex(0, 1, 7, 8)};
    converter.scanConvert(4, strip);
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(field.data[i], i % 2 ? 8.0f : 7.0f);
    for (int i = 8; i < 16; i++)
        EXPECT_EQ(field.data[i], -1.0f);
}

TEST(ScanConvert, RowsOffTheCanvasStillAdvanceTheEdges) {
    // Edge (0,-10)-(20,10) reaches x = 10.5 on row 0 only after walking the rows below it.
    EXPECT_EQ(spans(rasterize({vertex(0, -10), vertex(20, 10), vertex(0, 10)}, 100, 3)),
              "0:0-10 1:0-11 2:0-12");
    // The walk accumulates exactly as on visible rows: the polygon moved up by 16 (an exact
    // move for these heights) gives bit-identical values 16 rows higher.
    std::vector<Vertex> polygon = {vertex(0.3f, -10.25f, 0.1f, 0.7f),
                                   vertex(7.1f, -3.5f, 0.9f, 0.2f),
                                   vertex(5.3f, 9.75f, 0.35f, 0.05f)};
    std::vector<Hit> cut = rasterize(polygon);
    for (Vertex& v : polygon)
        v.y += 16;
    std::vector<Hit> upper;
    for (const Hit& h : rasterize(polygon))
        if (h.y >= 16) upper.push_back({h.x, h.y - 16, h.a0, h.a1});
    ASSERT_EQ(cut.size(), upper.size());
    for (size_t i = 0; i < cut.size(); i++) {
        EXPECT_EQ(spans({cut[i]}), spans({upper[i]}));
        EXPECT_EQ(cut[i].a0, upper[i].a0) << i;
        EXPECT_EQ(cut[i].a1, upper[i].a1) << i;
    }
    // Far-off vertices cost no long walks and leave the visible rows right.
    EXPECT_EQ(spans(rasterize({vertex(0, -1e6f), vertex(10, 10), vertex(10, 1e9f), vertex(0, 1e9f)},
                              100, 2)),
              "0:0-9 1:0-9");
    EXPECT_TRUE(rasterize({vertex(0, -3e38f), vertex(10, -1e38f), vertex(0, -2e38f)}).empty());
    EXPECT_EQ(spans(rasterize({vertex(0, -1e38f), vertex(1e30f, 1e38f), vertex(0, 1e38f)}, 20, 2)),
              "0:0-20 1:0-20");
}

TEST(ScanConvert, EdgeAndSpanIncrements) {
    FlicScanConvert converter(2);
    Vertex a = vertex(1, 2, 10, 20), b = vertex(5, 2, 30, 40);
    Vertex current = vertex(0, -7), step = vertex(0, -9);
    converter.increment_y(a, b, current, step, 3); // dy 0 counts as 1; t = 1.5
    EXPECT_EQ(step.x, 4.0f);
    EXPECT_EQ(current.x, 7.0f);
    EXPECT_EQ(current.attributes[1], 50.0f);
    EXPECT_EQ(current.y, -7.0f); // y members untouched
    EXPECT_EQ(step.y, -9.0f);
    converter.nAttributes = 1;
    converter.increment_x(a, b, current, step, 2); // dx 4; t = 1.5; x untouched
    EXPECT_EQ(step.attributes[0], 5.0f);
    EXPECT_EQ(current.attributes[0], 17.5f);
    EXPECT_EQ(current.attributes[1], 50.0f); // beyond the attribute count
    EXPECT_EQ(current.x, 7.0f);
    // Counts beyond 6 act as 6.
    std::vector<Hit> hits =
        rasterize({vertex(0, 0, 1, 2), vertex(2, 0, 1, 2), vertex(0, 2, 1, 2)}, 100, 100, 50);
    EXPECT_EQ(spans(hits), "0:0-1 1:0-0");
    EXPECT_EQ(hits[0].a1, 2.0f);
}

TEST(VectorFieldUCD, ImportFitAndOverlaps) {
    TempDir dir;
    std::string path = dir.path("mesh.inp");
    writeFile(path,
              ucdFile("nodes: -3, cells: 1.", {"0 0 1 2", "4 0 1 2 ignored", "0 4 1 2"}, "1\n2 3"));
    FlicVectorField field;
    MessageCapture capture;
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_TRUE(capture.errors().empty());
    ASSERT_EQ(field.width * field.height, 64);
    for (int i = 0; i < 64; i++) { // scale 2: covers x + y <= 7
        bool covered = i % 8 + i / 8 <= 7;
        EXPECT_EQ(field.vectors()[i].x, covered ? 1.0f : 0.0f) << i;
        EXPECT_EQ(field.vectors()[i].y, covered ? 2.0f : 0.0f) << i;
    }

    // Two triangles splitting [0,4]^2 with values 1 and 5, into 8 x 4: scale 1, centred with
    // x0 = -2. The shared diagonal takes the later triangle's value.
    std::vector<std::string> square = {"0 0 1 1", "4 0 1 1", "0 4 1 1",
                                       "4 0 5 5", "4 4 5 5", "0 4 5 5"};
    writeFile(path, ucdFile("6 2", square, "1 2 3 4 5 6"));
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 4), 1);
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 8; x++)
            EXPECT_EQ(field.vectors()[y * 8 + x].x, x < 2 || x >= 6   ? 0.0f
                                                    : (x - 2) + y < 3 ? 1.0f
                                                                      : 5.0f);
    writeFile(path, ucdFile("6 2", square, "4 5 6 1 2 3"));
    ASSERT_EQ(field.readUCD(path.c_str(), 4, 8), 1); // tall: centred with y0 = -2
    EXPECT_EQ(field.vectors()[0].x, 0.0f);
    EXPECT_EQ(field.vectors()[2 * 4].x, 1.0f);
    EXPECT_EQ(field.vectors()[5 * 4].x, 1.0f);
    EXPECT_EQ(field.vectors()[5 * 4 + 3].x, 5.0f);
    EXPECT_EQ(field.vectors()[6 * 4].x, 0.0f);
}

TEST(VectorFieldUCD, BoundingBoxQuirk) {
    TempDir dir;
    std::string path = dir.path("quirk.inp");
    // Vertex 0 has the largest x (10) and a smaller y (2): xmax starts from 2 and misses it.
    writeFile(path, ucdFile("3 1", {"10 2 1 0", "0 0 2 0", "5 8 3 0"}, "1 2 3"));
    FlicVectorField automatic, quirkBox, trueBox;
    float quirk[4] = {0, 5, 0, 8}, truth[4] = {0, 10, 0, 8};
    ASSERT_EQ(automatic.readUCD(path.c_str(), 16, 16), 1);
    ASSERT_EQ(quirkBox.readUCD(path.c_str(), 16, 16, quirk), 1);
    ASSERT_EQ(trueBox.readUCD(path.c_str(), 16, 16, truth), 1);
    EXPECT_EQ(memcmp(automatic.data, quirkBox.data, 2048), 0);
    EXPECT_NE(memcmp(automatic.data, trueBox.data, 2048), 0);
}

TEST(VectorFieldUCD, FailuresReportAndLeaveTheFieldAlone) {
    TempDir dir;
    const std::string p = dir.path("bad.inp");
    const std::string not_ucd = "FLIC error: can't open " + p + " (this is not an UCD file)";
    const std::vector<std::string> three = {"0 0 0 0", "1 0 0 0", "0 1 0 0"};
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", not_ucd},
        {"only 7 here\n", not_ucd},
        {"4" + std::string(130, ' ') + "2\n", not_ucd}, // second count beyond 126 characters
        {ucdFile("2 1", {"0 0 0 0", "1 1 1 1"}, "1 2 2"),
         "FLIC error: file " + p + " contains insufficient data (2 vertices, 1 triangles"},
        {ucdFile("3 0", three, ""),
         "FLIC error: file " + p + " contains insufficient data (3 vertices, 0 triangles"},
        {ucdFile("3 1", {"0 0 0 0", "1 0 0", "0 1 0 0"}, "1 2 3"),
         "FLIC error: expected to read 4 floats, got 3"},
        {ucdFile("3 1", {"0 0 0 0", "", "0 1 0 0"}, "1 2 3"),
         "FLIC error: expected to read 4 floats, got 0"},
        {"3 1\nskip\n0 0 0 0\n", "FLIC error: expected to read 4 floats, got 0"},
        {ucdFile("3 1", three, "1 2"), "FLIC error: expected to read 3 ints, got 2"},
        {ucdFile("3 2", three, "1 2 3 x"), "FLIC error: expected to read 3 ints, got 0"},
        {ucdFile("3 1", three, "1 2 4"), "FLIC error: file " + p +
                                             ": triangle 1 refers to vertex 4 (vertices are "
                                             "numbered 1 to 3)"},
        {ucdFile("3 2", three, "1 2 3 0 1 2"), "FLIC error: file " + p +
                                                   ": triangle 2 refers to vertex 0 (vertices "
                                                   "are numbered 1 to 3)"},
        {ucdFile("3 1", {"0 0 0 0", "0 1 0 0", "0 2 0 0"}, "1 2 3"),
         "FLIC error: degenerate grid (width=0, height=2)"},
        {ucdFile("3 1", {"5 5 0 0", "6 5 0 0", "7 5 0 0"}, "1 2 3"),
         "FLIC error: degenerate grid (width=2, height=0)"},
    };
    for (const auto& c : cases) {
        writeFile(p, c.first);
        FlicVectorField field(1, 1);
        field.data[0] = field.data[1] = 9.0f;
        MessageCapture capture;
        EXPECT_EQ(field.readUCD(p.c_str(), 4, 4), 0) << c.second;
        EXPECT_EQ(capture.onlyError(), c.second);
        EXPECT_EQ(field.width * field.height, 1);
        EXPECT_EQ(field.data[0] + field.data[1], 18.0f);
    }

    FlicVectorField field;
    MessageCapture capture;
    std::string missing = dir.path("missing.inp");
    EXPECT_EQ(field.readUCD(missing.c_str(), 4, 4), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: can't open " + missing + " (No such file or directory)");
    capture.errors().clear();
    writeFile(p, ucdFile("3 1", three, "1 2 3"));
    EXPECT_EQ(field.readUCD(p.c_str(), -1, 4), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: illegal field size -1 x 4");
    // Counts far beyond the file's content, one beyond the int range: one clean failure.
    for (const char* counts : {"2000000000 2000000000", "99999999999999999999 5", "3 2000000000"}) {
        capture.errors().clear();
        writeFile(p, ucdFile(counts, three, "1 2 3"));
        EXPECT_EQ(field.readUCD(p.c_str(), 4, 4), 0) << counts;
        EXPECT_EQ(capture.errors().size(), 1u) << counts;
    }
}

TEST(ScalarFieldUCD, ImportWrapsTheExtraColumnIntoTheNextRow) {
    TempDir dir;
    std::string path = dir.path("scalar.inp");
    writeFile(path, ucdFile("3 1", {"0 0 3", "4 0 3", "0 4 3"}, "1 2 3"));
    FlicScalarField field;
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    ASSERT_EQ(field.width * field.height, 64);
    for (int i = 0; i < 64; i++)
        EXPECT_EQ(field.data[i], i % 8 + i / 8 <= 7 ? 3.0f : 0.0f) << i;

    // Vertex 0 lies beyond the quirky box, so rows 3 to 11 of a 16 x 16 grid reach x == 16:
    // the scalar field stores that pixel at node (0, row + 1), the vector field drops it.
    writeFile(path, ucdFile("3 1", {"10 2 7", "0 0 7", "5 8 7"}, "1 2 3"));
    std::string vectorPath = dir.path("vector.inp");
    writeFile(vectorPath, ucdFile("3 1", {"10 2 7 0", "0 0 7 0", "5 8 7 0"}, "1 2 3"));
    FlicVectorField vectors;
    ASSERT_EQ(field.readUCD(path.c_str(), 16, 16), 1);
    ASSERT_EQ(vectors.readUCD(vectorPath.c_str(), 16, 16), 1);
    std::vector<int> wrapped, expected;
    for (int i = 0; i < 256; i++)
        if (field.data[i] != vectors.data[2 * i]) wrapped.push_back(i);
    for (int row = 4; row <= 12; row++)
        expected.push_back(row * 16);
    EXPECT_EQ(wrapped, expected);
    EXPECT_EQ(field.data[4 * 16], 7.0f);

    // On the top row that node would lie past the field: the store is dropped.
    writeFile(path, ucdFile("3 1", {"10 8 5", "0 0 5", "0 8 5"}, "1 2 3"));
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_EQ(field.data[63], 5.0f);

    MessageCapture capture;
    writeFile(path, ucdFile("3 1", {"0 0 1", "1 0", "0 1 1"}, "1 2 3"));
    EXPECT_EQ(field.readUCD(path.c_str(), 4, 4), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: expected to read 3 floats, got 2");
    EXPECT_EQ(field.width, 8);
}

TEST(UcdMesh, TablesBoxAndFit) {
    TempDir dir;
    std::string path = dir.path("mesh.inp");
    // A first line longer than the part read for the counts is still one line.
    writeFile(path, "4 2" + std::string(200, ' ') +
                        "77\nskip\n0 0\n3 0\n0 3\n3 3 9\nskip\n"
                        "1 2 3\n2 4 3\n");
    FlicUcdMesh mesh;
    ASSERT_EQ(mesh.read(path.c_str(), "rb", 2), 1);
    EXPECT_EQ(mesh.nVertices, 4);
    EXPECT_EQ(mesh.nTriangles, 2);
    EXPECT_EQ(mesh.vertex(3)[1], 3.0f);
    EXPECT_EQ(std::vector<int>(mesh.triangles, mesh.triangles + 6),
              (std::vector<int>{0, 1, 2, 1, 3, 2}));
    float box[4], scale, x0, y0;
    mesh.boundingBox(box);
    EXPECT_EQ(std::vector<float>(box, box + 4), (std::vector<float>{0, 3, 0, 3}));
    ASSERT_EQ(flic_fitBox(box, 12, 6, scale, x0, y0), 1);
    EXPECT_EQ(scale, 2.0f);
    EXPECT_EQ(x0, -1.5f);
    EXPECT_EQ(y0, 0.0f);
}
