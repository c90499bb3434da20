// Triangle scan conversion, UCD mesh files and the import of scalar and vector fields.
#include "scalarfield.h"
#include "scanconvert.h"
#include "vectorfield.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using namespace testutil;
typedef FlicScanConvert::Vertex Vertex;

namespace {

struct Hit {
    int x, y;
    float a0, a1;
};

void record(int x, int y, float* values, void* user) {
    static_cast<std::vector<Hit>*>(user)->push_back({x, y, values[0], values[1]});
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

Vertex V(float x, float y, float a0 = 0, float a1 = 0) {
    return Vertex{x, y, {a0, a1, 0, 0, 0, 0}};
}

// The calls for the polygon with corners x0, y0, x1, y1, ... as "row:first-last" runs in call
// order, e.g. "0:0-3 1:0-2".
std::string spans(const std::vector<float>& corners, int width = 100, int height = 100) {
    std::vector<Vertex> polygon;
    for (size_t i = 0; i + 1 < corners.size(); i += 2)
        polygon.push_back(V(corners[i], corners[i + 1]));
    std::vector<Hit> hits = rasterize(polygon, width, height);
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

// Values 0 to 9 as digits (anything else as '?'), rows separated by blanks.
std::string digits(const float* values, int width, int height, int stride = 1) {
    std::string text;
    for (int i = 0; i < width * height; i++) {
        float v = values[i * stride];
        if (i > 0 && i % width == 0) text += ' ';
        text +=
            v >= 0 && v <= 9 && v == static_cast<int>(v) ? char('0' + static_cast<int>(v)) : '?';
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
    EXPECT_TRUE(defaults.width == 100 && defaults.height == 100 && !defaults.callback);
    // Attribute 0 is x and attribute 1 is y: at each pixel they read its centre.
    std::vector<Hit> hits = rasterize({V(0, 0, 0, 0), V(4, 0, 4, 0), V(0, 4, 0, 4)});
    EXPECT_EQ(hits.size(), 10u);
    for (const Hit& h : hits)
        EXPECT_TRUE(h.a0 == h.x + 0.5f && h.a1 == h.y + 0.5f) << h.x << "," << h.y;
    EXPECT_EQ(spans({0, 0, 4, 0, 0, 4}), "0:0-3 1:0-2 2:0-1 3:0-0");
    EXPECT_EQ(spans({0, 4, 4, 0, 0, 0}), "0:0-3 1:0-2 2:0-1 3:0-0");
    // Horizontal edges add no rows; centres on the top or right edge are inside.
    EXPECT_EQ(spans({0, 0, 4, 0, 4, 2, 0, 2}), "0:0-3 1:0-3");
    EXPECT_EQ(spans({0, 0, 1.5f, 0, 1.5f, 1.5f, 0, 1.5f}), "0:0-1 1:0-1");
    EXPECT_EQ(spans({0, 0, 1.49f, 0, 1.49f, 1.49f, 0, 1.49f}), "0:0-0");
    // Zero height, one vertex, none, a non-finite corner: nothing.
    for (const std::vector<float>& corners : std::vector<std::vector<float>>{
             {0, 3, 9, 3, 5, 3}, {2, 2}, {}, {0, 0, 4, NAN, 0, 4}, {0, 0, INFINITY, 0, 0, 4}})
        EXPECT_EQ(spans(corners), "");
    // A span reaches x == width, never beyond.
    EXPECT_EQ(spans({-3, 0, 9, 0, 9, 2, -3, 2}, 4, 4), "0:0-4 1:0-4");
}

TEST(ScanConvert, RowsOffTheCanvasStillAdvanceTheEdges) {
    // Edge (0,-10)-(20,10) reaches x = 10.5 on row 0 only after walking the rows below it.
    EXPECT_EQ(spans({0, -10, 20, 10, 0, 10}, 100, 3), "0:0-10 1:0-11 2:0-12");
    // The walk accumulates exactly as on visible rows: the polygon moved up by 16 (an exact
    // move for these heights) gives bit-identical values 16 rows higher.
    std::vector<Vertex> polygon = {V(0.3f, -10.25f, 0.1f, 0.7f), V(7.1f, -3.5f, 0.9f, 0.2f),
                                   V(5.3f, 9.75f, 0.35f, 0.05f)};
    std::vector<Hit> cut = rasterize(polygon), upper;
    for (Vertex& v : polygon)
        v.y += 16;
    for (const Hit& h : rasterize(polygon))
        if (h.y >= 16) upper.push_back({h.x, h.y - 16, h.a0, h.a1});
    ASSERT_EQ(cut.size(), upper.size());
    EXPECT_EQ(memcmp(cut.data(), upper.data(), cut.size() * sizeof(Hit)), 0);
    // Far-off vertices cost no long walks and leave the visible rows right.
    EXPECT_EQ(spans({0, -1e6f, 10, 10, 10, 1e9f, 0, 1e9f}, 100, 2), "0:0-9 1:0-9");
    EXPECT_EQ(spans({0, -3e38f, 10, -1e38f, 0, -2e38f}), "");
    EXPECT_EQ(spans({0, -1e38f, 1e30f, 1e38f, 0, 1e38f}, 20, 2), "0:0-20 1:0-20");
}

TEST(ScanConvert, EdgeAndSpanIncrements) {
    FlicScanConvert converter(2);
    Vertex a = V(1, 2, 10, 20), b = V(5, 2, 30, 40), current = V(0, -7), step = V(0, -9);
    converter.increment_y(a, b, current, step, 3); // dy 0 counts as 1; t = 1.5
    EXPECT_TRUE(step.x == 4.0f && current.x == 7.0f && current.attributes[1] == 50.0f);
    EXPECT_TRUE(current.y == -7.0f && step.y == -9.0f); // y members untouched
    converter.nAttributes = 1;
    converter.increment_x(a, b, current, step, 2); // dx 4; t = 1.5
    EXPECT_TRUE(step.attributes[0] == 5.0f && current.attributes[0] == 17.5f);
    EXPECT_TRUE(current.attributes[1] == 50.0f && current.x == 7.0f); // past the count; x kept
    // Counts beyond 6 act as 6.
    std::vector<Hit> hits = rasterize({V(0, 0, 1, 2), V(2, 0, 1, 2), V(0, 2, 1, 2)}, 100, 100, 50);
    ASSERT_EQ(hits.size(), 3u);
    EXPECT_EQ(hits[0].a1, 2.0f);
}

TEST(FieldUCD, ImportFitOverlapsAndTheExtraColumn) {
    TempDir dir;
    std::string path = dir.path("mesh.inp"), vectorPath = dir.path("vector.inp");
    FlicVectorField field;
    FlicScalarField scalars;
    MessageCapture capture;
    // Only the digits of the first 126 characters of line 1 count, and the whole line is
    // skipped; values past the fourth are ignored. Scale 2 into 8 x 8.
    writeFile(path, ucdFile("nodes: -3, cells: 1." + std::string(200, ' ') + "77",
                            {"0 0 1 2", "4 0 1 2 ignored", "0 4 1 2"}, "1\n2 3"));
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 8), 1);
    const std::string corner = "11111111 11111110 11111100 11111000 "
                               "11110000 11100000 11000000 10000000";
    EXPECT_EQ(digits(field.data, 8, 8, 2), corner);
    std::string twos = corner;
    std::replace(twos.begin(), twos.end(), '1', '2');
    EXPECT_EQ(digits(field.data + 1, 8, 8, 2), twos);
    writeFile(path, ucdFile("3 1", {"0 0 2", "4 0 2", "0 4 2"}, "1 2 3"));
    ASSERT_EQ(scalars.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_EQ(digits(scalars.data, 8, 8), twos);
    EXPECT_TRUE(capture.errors().empty());

    // Two triangles splitting [0,4]^2 with values 1 and 5, centred with the aspect ratio kept;
    // the shared diagonal takes the later triangle's value.
    std::vector<std::string> square = {"0 0 1 1", "4 0 1 1", "0 4 1 1",
                                       "4 0 5 5", "4 4 5 5", "0 4 5 5"};
    writeFile(path, ucdFile("6 2", square, "1 2 3 4 5 6"));
    ASSERT_EQ(field.readUCD(path.c_str(), 8, 4), 1);
    EXPECT_EQ(digits(field.data, 8, 4, 2), "00111500 00115500 00155500 00555500");
    writeFile(path, ucdFile("6 2", square, "4 5 6 1 2 3"));
    ASSERT_EQ(field.readUCD(path.c_str(), 4, 8), 1);
    EXPECT_EQ(digits(field.data, 4, 8, 2), "0000 0000 1111 1115 1155 1555 0000 0000");

    // Vertex 0 has the largest x (10) and a smaller y (2): the box's xmax starts from 2 and
    // misses it, as the same box given by hand shows.
    writeFile(vectorPath, ucdFile("3 1", {"10 2 7 0", "0 0 7 0", "5 8 7 0"}, "1 2 3"));
    FlicVectorField quirkBox;
    float quirk[4] = {0, 5, 0, 8};
    ASSERT_EQ(field.readUCD(vectorPath.c_str(), 16, 16), 1);
    ASSERT_EQ(quirkBox.readUCD(vectorPath.c_str(), 16, 16, quirk), 1);
    EXPECT_EQ(memcmp(field.data, quirkBox.data, 2048), 0);
    // So rows 3 to 11 reach x == 16: the scalar field stores that pixel at node (0, row + 1),
    // the vector field drops it.
    writeFile(path, ucdFile("3 1", {"10 2 7", "0 0 7", "5 8 7"}, "1 2 3"));
    ASSERT_EQ(scalars.readUCD(path.c_str(), 16, 16), 1);
    std::vector<int> wrapped, expected;
    for (int i = 0; i < 256; i++)
        if (scalars.data[i] != field.data[2 * i]) wrapped.push_back(i);
    for (int row = 4; row <= 12; row++)
        expected.push_back(row * 16);
    EXPECT_EQ(wrapped, expected);
    EXPECT_EQ(scalars.data[4 * 16], 7.0f);
    // On the top row that node would lie past the field: the store is dropped.
    writeFile(path, ucdFile("3 1", {"10 8 5", "0 0 5", "0 8 5"}, "1 2 3"));
    ASSERT_EQ(scalars.readUCD(path.c_str(), 8, 8), 1);
    EXPECT_EQ(scalars.data[63], 5.0f);
}

TEST(FieldUCD, FailuresReportAndLeaveTheFieldAlone) {
    TempDir dir;
    const std::string p = dir.path("bad.inp"), file = "FLIC error: file " + p;
    const std::string notUcd = "FLIC error: can't open " + p + " (this is not an UCD file)";
    const std::vector<std::string> three = {"0 0 0 0", "1 0 0 0", "0 1 0 0"};
    const std::string floats = "FLIC error: expected to read 4 floats, got ";
    const std::string ints = "FLIC error: expected to read 3 ints, got ";
    const std::string grid = "FLIC error: degenerate grid ",
                      few = file + " contains insufficient data ";
    const std::string numbered = " (vertices are numbered 1 to 3)";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", notUcd},
        {"only 7 here\n", notUcd},
        {"4" + std::string(130, ' ') + "2\n", notUcd}, // second count beyond 126 characters
        {ucdFile("2 1", three, "1 2 2"), few + "(2 vertices, 1 triangles"},
        {ucdFile("3 0", three, ""), few + "(3 vertices, 0 triangles"},
        {ucdFile("3 1", {"0 0 0 0", "1 0 0", "0 1 0 0"}, "1 2 3"), floats + "3"},
        {ucdFile("3 1", {"0 0 0 0", "", "0 1 0 0"}, "1 2 3"), floats + "0"},
        {"3 1\nskip\n0 0 0 0\n", floats + "0"},
        // Counts far beyond the file's content, or beyond the int range: one clean failure.
        {ucdFile("2000000000 2000000000", three, "1 2 3"), floats + "0"},
        {ucdFile("99999999999999999999 5", three, "1 2 3"), floats + "0"},
        {ucdFile("3 2000000000", three, "1 2 3"), ints + "0"},
        {ucdFile("3 1", three, "1 2"), ints + "2"},
        {ucdFile("3 2", three, "1 2 3 x"), ints + "0"},
        {ucdFile("3 1", three, "1 2 4"), file + ": triangle 1 refers to vertex 4" + numbered},
        {ucdFile("3 2", three, "1 2 3 0 1 2"), file + ": triangle 2 refers to vertex 0" + numbered},
        {ucdFile("3 1", {"0 0 0 0", "0 1 0 0", "0 2 0 0"}, "1 2 3"), grid + "(width=0, height=2)"},
        {ucdFile("3 1", {"5 5 0 0", "6 5 0 0", "7 5 0 0"}, "1 2 3"), grid + "(width=2, height=0)"},
    };
    FlicVectorField field(1, 1);
    field.data[0] = field.data[1] = 9.0f;
    MessageCapture capture;
    for (const auto& c : cases) {
        writeFile(p, c.first);
        capture.errors().clear();
        EXPECT_EQ(field.readUCD(p.c_str(), 4, 4), 0) << c.second;
        EXPECT_EQ(capture.onlyError(), c.second);
        EXPECT_TRUE(field.width * field.height == 1 && field.data[0] + field.data[1] == 18.0f);
    }
    FlicScalarField scalars(2, 2);
    std::string missing = dir.path("missing.inp"), shortLine = dir.path("short.inp");
    writeFile(shortLine, ucdFile("3 1", {"0 0 1", "1 0", "0 1 1"}, "1 2 3"));
    capture.errors().clear();
    EXPECT_EQ(field.readUCD(p.c_str(), -1, 4) + field.readUCD(missing.c_str(), 4, 4) +
                  scalars.readUCD(shortLine.c_str(), 4, 4),
              0);
    EXPECT_EQ(capture.errors(),
              (std::vector<std::string>{"FLIC error: illegal field size -1 x 4",
                                        "FLIC error: can't open " + missing +
                                            " (No such file or directory)",
                                        "FLIC error: expected to read 3 floats, got 2"}));
    EXPECT_EQ(scalars.width, 2);
}
