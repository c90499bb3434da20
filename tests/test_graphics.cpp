// Drawing primitives, token readers, FLIC GRAPHICS command files and UCD mesh drawing.
#include "graphics.h"
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

using testutil::MessageCapture;
using testutil::TempDir;
using testutil::writeFile;

namespace {

typedef std::set<std::pair<int, int>> PixelSet;

FlicImage blankImage(int width, int height, int channels = 1) {
    FlicImage image(width, height, channels);
    image.clear(0);
    return image;
}

// Pixels of a compact image with any non-zero byte.
PixelSet drawn(const FlicImage& image) {
    PixelSet pixels;
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.width; x++)
            for (int c = 0; c < image.nChannels; c++)
                if (image.data[y * image.bytesPerLine + x * image.nChannels + c]) {
                    pixels.insert({x, y});
                    break;
                }
    return pixels;
}

// Byte offsets of the non-zero bytes.
std::vector<int> setBytes(const FlicImage& image) {
    std::vector<int> offsets;
    for (int i = 0; i < image.height * image.bytesPerLine; i++)
        if (image.data[i]) offsets.push_back(i);
    return offsets;
}

PixelSet lineOn(int width, int height, int x0, int y0, int x1, int y1, int pixelWidth = 1) {
    FlicImage image = blankImage(width, height);
    FlicGraphics graphics;
    graphics.setColor(255, 255, 255);
    graphics.setPixelWidth(pixelWidth);
    graphics.drawLine(image, x0, y0, x1, y1);
    return drawn(image);
}

// Bresenham's walk over every point, drawn through drawPixel.
void referenceLine(FlicGraphics& g, FlicImage& image, int x0, int y0, int x1, int y1) {
    if (x1 < x0) {
        std::swap(x0, x1);
        std::swap(y0, y1);
    }
    int dx = x1 - x0, dy = std::abs(y1 - y0), s = y1 < y0 ? -1 : 1;
    bool steep = dy > dx;
    int major = steep ? dy : dx, minor = steep ? dx : dy;
    int d = 2 * minor - major, e1 = 2 * minor, e2 = 2 * (minor - major);
    int x = x0, y = y0;
    g.drawPixel(image, x, y);
    while ((!steep && x < x1) || (steep && y != y1)) {
        if (d <= 0) {
            d += e1;
            if (steep) {
                y += s;
            } else {
                x++;
            }
        } else {
            y += s;
            x++;
            d += e2;
        }
        g.drawPixel(image, x, y);
    }
}

// A stdio stream over the text, for the token readers.
FILE* textStream(const std::string& text) {
    FILE* file = tmpfile();
    fwrite(text.data(), 1, text.size(), file);
    rewind(file);
    return file;
}

// Runs a command file on the image; returns drawFile's result.
int runCommands(FlicImage& image, const std::string& commands, FlicGraphics* graphics = nullptr) {
    TempDir dir;
    std::string path = dir.path("overlay.fg");
    writeFile(path, commands);
    FlicGraphics local;
    local.setColor(255, 255, 255);
    return (graphics ? *graphics : local).drawFile(image, path.c_str());
}

std::string ucdText(const std::vector<std::string>& vertexLines, const std::string& triangles) {
    std::string text = std::to_string(vertexLines.size()) + " 1\nskipped\n";
    for (const std::string& line : vertexLines)
        text += line + "\n";
    return text + "skipped\n" + triangles + "\n";
}

} // namespace

// --- Primitives -------------------------------------------------------------------------------

TEST(Graphics, ColourAndWidth) {
    FlicGraphics g;
    EXPECT_EQ(g.pixelWidth, 1);
    EXPECT_EQ(g.halfWidth, 0);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(g.color[i], 0);

    struct Case {
        int r, g, b;
        unsigned char bytes[4];
    };
    const Case cases[] = {
        {255, 0, 0, {255, 0, 0, 77}},          // 76.5 + 0.5
        {255, 255, 255, {255, 255, 255, 255}}, // limited to 255
        {300, -5, 0, {44, 251, 0, 87}},        // low bytes; 90 - 2.95 + 0.5
        {-100, 0, 0, {156, 0, 0, 0}},          // negative grey gives 0
        {127, 127, 127, {127, 127, 127, 127}}, {1000, 1000, 1000, {232, 232, 232, 255}},
    };
    for (const Case& c : cases) {
        g.setColor(c.r, c.g, c.b);
        for (int i = 0; i < 4; i++)
            EXPECT_EQ(g.color[i], c.bytes[i]) << c.r << " byte " << i;
    }
    g.setPixelWidth(5);
    EXPECT_EQ(g.halfWidth, 2);
    g.setPixelWidth(-3);
    EXPECT_EQ(g.pixelWidth, -3);
    EXPECT_EQ(g.halfWidth, -1);
}

TEST(Graphics, DrawPixelSquaresClippingAndShifts) {
    FlicGraphics g;
    g.setColor(255, 255, 255);
    FlicImage image = blankImage(10, 10);
    g.drawPixel(image, 0, 0);
    g.drawPixel(image, 9, 9);
    g.drawPixel(image, 10, 3);
    g.drawPixel(image, -1, 3);
    g.drawPixel(image, 3, 10);
    EXPECT_EQ(drawn(image), (PixelSet{{0, 0}, {9, 9}}));

    // Width 2: rows y and y + 1, columns x - 1 and x.
    image.clear(0);
    g.setPixelWidth(2);
    g.drawPixel(image, 5, 5);
    EXPECT_EQ(drawn(image), (PixelSet{{4, 5}, {5, 5}, {4, 6}, {5, 6}}));

    // Width 3 on the top row: clipped as rows 8..10, written on rows 9..11; only row 9 stays.
    image.clear(0);
    g.setPixelWidth(3);
    g.drawPixel(image, 5, 9);
    EXPECT_EQ(drawn(image), (PixelSet{{4, 9}, {5, 9}, {6, 9}}));

    // Width 3 at the left edge of a 5 x 5 image: column -1 is clipped, the two kept columns
    // are written from column -1 on, i.e. at the end of the row below.
    FlicImage small = blankImage(5, 5);
    g.drawPixel(small, 0, 2);
    EXPECT_EQ(setBytes(small), (std::vector<int>{9, 10, 14, 15, 19, 20}));

    // Colour on RGB images, grey on others.
    FlicImage rgb = blankImage(3, 3, 3);
    FlicGraphics red;
    red.setColor(200, 10, 20);
    red.drawPixel(rgb, 1, 1);
    EXPECT_EQ(rgb.data[12], 200);
    EXPECT_EQ(rgb.data[13], 10);
    EXPECT_EQ(rgb.data[14], 20);
    FlicImage grey = blankImage(3, 3);
    red.drawPixel(grey, 1, 1);
    EXPECT_EQ(setBytes(grey), (std::vector<int>{4}));
    EXPECT_EQ(grey.data[4], red.color[3]);

    // Width 0 or less draws nothing.
    image.clear(0);
    g.setPixelWidth(0);
    g.drawPixel(image, 5, 5);
    g.setPixelWidth(-4);
    g.drawPixel(image, 5, 5);
    EXPECT_TRUE(drawn(image).empty());
}

TEST(Graphics, DrawPixelNeverWritesOutsideTheImage) {
    // A 1 x 3 image inside caller memory with guard bytes on both sides.
    unsigned char memory[48];
    memset(memory, 0xEE, sizeof memory);
    unsigned char* pixels = memory + 16;
    memset(pixels, 0, 3);
    FlicImage image(1, 3, 1, pixels);
    FlicGraphics g;
    g.setColor(255, 255, 255);
    g.setPixelWidth(3);
    g.drawPixel(image, -1, 0); // one write would land before the first byte
    g.drawPixel(image, 0, 2);  // one write would land past the last row
    EXPECT_EQ(pixels[0], 255);
    EXPECT_EQ(pixels[1], 255);
    EXPECT_EQ(pixels[2], 0);

    g.setPixelWidth(INT_MAX);
    g.drawPixel(image, 0, 0);
    g.drawPixel(image, INT_MAX, INT_MIN);
    g.drawPixel(image, INT_MIN, INT_MAX);
    g.drawLine(image, INT_MIN, INT_MIN, INT_MAX, INT_MAX);
    // Half widths set by hand out of step with the width.
    g.pixelWidth = 5;
    g.halfWidth = 0;
    g.drawPixel(image, -3, 0);
    g.halfWidth = -5;
    g.drawPixel(image, 0, 1);
    g.halfWidth = 40;
    g.drawPixel(image, 0, 0);
    for (int i = 0; i < 16; i++)
        EXPECT_EQ(memory[i], 0xEE) << i;
    for (int i = 19; i < 48; i++)
        EXPECT_EQ(memory[i], 0xEE) << i;
    EXPECT_EQ(pixels[2], 0);
}

TEST(Graphics, DrawLineBresenham) {
    PixelSet shallow = {{0, 7}, {1, 7}, {2, 6}, {3, 6}, {4, 5}, {5, 5}};
    EXPECT_EQ(lineOn(10, 10, 0, 7, 5, 5), shallow);
    EXPECT_EQ(lineOn(10, 10, 5, 5, 0, 7), shallow); // reversed: the same pixels
    PixelSet steep = {{2, 0}, {2, 1}, {2, 2}, {3, 3}, {3, 4}, {3, 5}};
    EXPECT_EQ(lineOn(10, 10, 2, 0, 3, 5), steep);
    EXPECT_EQ(lineOn(10, 10, 3, 5, 2, 0), steep);
    PixelSet diagonal = {{1, 4}, {2, 3}, {3, 2}, {4, 1}};
    EXPECT_EQ(lineOn(10, 10, 1, 4, 4, 1), diagonal);
    EXPECT_EQ(lineOn(10, 10, 4, 4, 4, 4), (PixelSet{{4, 4}})); // zero length: one point
    EXPECT_EQ(lineOn(10, 10, 3, 8, 3, 6), (PixelSet{{3, 6}, {3, 7}, {3, 8}}));
    // Thick lines are chains of squares.
    EXPECT_EQ(lineOn(10, 10, 1, 1, 3, 1, 2),
              (PixelSet{{0, 1}, {1, 1}, {2, 1}, {3, 1}, {0, 2}, {1, 2}, {2, 2}, {3, 2}}));
    EXPECT_TRUE(lineOn(10, 10, 1, 1, 8, 8, 0).empty());
}

TEST(Graphics, ClippedLinesMatchTheFullWalk) {
    // Lines reaching far outside small images, thin and thick, against a walk over every point.
    srand(7);
    for (int trial = 0; trial < 3000; trial++) {
        int width = 1 + rand() % 24, height = 1 + rand() % 18;
        int x0 = rand() % 140 - 60, y0 = rand() % 140 - 60;
        int x1 = rand() % 140 - 60, y1 = rand() % 140 - 60;
        FlicGraphics g;
        g.setColor(255, 255, 255);
        g.setPixelWidth(rand() % 6);
        FlicImage fast = blankImage(width, height), full = blankImage(width, height);
        g.drawLine(fast, x0, y0, x1, y1);
        referenceLine(g, full, x0, y0, x1, y1);
        ASSERT_EQ(setBytes(fast), setBytes(full))
            << width << "x" << height << " line " << x0 << "," << y0 << " " << x1 << "," << y1
            << " width " << g.pixelWidth;
    }
}

TEST(Graphics, ClippedLinesMatchTheFullWalkExhaustively) {
    // Every line with end points in -8..10 on a 4 x 3 image, widths 1 and 3.
    FlicGraphics g;
    g.setColor(255, 255, 255);
    FlicImage fast = blankImage(4, 3), full = blankImage(4, 3);
    for (int width : {1, 3}) {
        g.setPixelWidth(width);
        for (int x0 = -8; x0 <= 10; x0++)
            for (int y0 = -8; y0 <= 10; y0++)
                for (int x1 = -8; x1 <= 10; x1++)
                    for (int y1 = -8; y1 <= 10; y1++) {
                        fast.clear(0);
                        full.clear(0);
                        g.drawLine(fast, x0, y0, x1, y1);
                        referenceLine(g, full, x0, y0, x1, y1);
                        ASSERT_EQ(memcmp(fast.data, full.data, 12), 0)
                            << x0 << "," << y0 << " " << x1 << "," << y1 << " width " << width;
                    }
    }
}

TEST(Graphics, LinesWithFarEndPoints) {
    // Across the whole int range: inside a 10 x 10 image the line stays on row 4.
    PixelSet row4, column5;
    for (int i = 0; i < 10; i++) {
        row4.insert({i, 4});
        column5.insert({5, i});
    }
    EXPECT_EQ(lineOn(10, 10, INT_MIN, 3, INT_MAX, 5), row4);
    EXPECT_EQ(lineOn(10, 10, INT_MAX, 5, INT_MIN, 3), row4);
    EXPECT_EQ(lineOn(10, 10, 4, INT_MIN, 5, INT_MAX), column5);
    EXPECT_TRUE(lineOn(10, 10, INT_MIN, INT_MIN, INT_MIN + 5, INT_MAX).empty());
}

// --- Token readers ----------------------------------------------------------------------------

TEST(TokenReaders, CheckCmdAndReadChar) {
    EXPECT_TRUE(check_cmd("c", "color"));
    EXPECT_TRUE(check_cmd("colors", "color"));
    EXPECT_TRUE(check_cmd("color", "color"));
    EXPECT_FALSE(check_cmd("colx", "color"));
    EXPECT_FALSE(check_cmd("canvas", "color"));

    FILE* file = textStream("a\\\nb\\c\\\n\\\nd\\");
    std::string chars;
    for (int c = read_char(file); c != EOF; c = read_char(file))
        chars.push_back(char(c));
    fclose(file);
    EXPECT_EQ(chars, "ab\\cd\\");
}

TEST(TokenReaders, ReadWordEndsOfLineAndSplitting) {
    char word[16];
    int eol = -1;
    FILE* file = textStream("  abc  \n def\tghi \t x\r\ny \\\n z\nabcdefgh\nabc\nlast");
    struct Expected {
        const char* word;
        int endOfLine;
    };
    const Expected expected[] = {
        {"abc", 1}, {"def", 0}, {"ghi", 0}, {"x", 0},   {"y", 0},   {"z", 1},
        {"abc", 0}, {"def", 0}, {"gh", 1},  {"abc", 1}, {"las", 0}, {"t", 0},
    };
    for (const Expected& e : expected) {
        ASSERT_EQ(read_word(file, 3, word, eol), 1) << e.word;
        EXPECT_STREQ(word, e.word);
        EXPECT_EQ(eol, e.endOfLine) << e.word;
    }
    EXPECT_EQ(read_word(file, 3, word, eol), 0);
    EXPECT_STREQ(word, "");
    EXPECT_EQ(eol, 0);
    fclose(file);

    file = textStream("word");
    EXPECT_EQ(read_word(file, 0, word, eol), 0); // no room for any character
    EXPECT_STREQ(word, "");
    fclose(file);
}

TEST(TokenReaders, ReadFloats) {
    float v[4] = {-1, -1, -1, -1};
    int eol = -1;
    FILE* file = textStream("1 2.5 -3e2\n4 x\n5\n6 7 8 9");
    EXPECT_EQ(read_floats(file, 3, v, eol), 1);
    EXPECT_EQ(v[0], 1.0f);
    EXPECT_EQ(v[1], 2.5f);
    EXPECT_EQ(v[2], -300.0f);
    EXPECT_EQ(eol, 1);
    EXPECT_EQ(read_floats(file, 2, v, eol), 1);
    EXPECT_EQ(v[0], 4.0f);
    EXPECT_EQ(v[1], 0.0f);                      // not a number: 0
    EXPECT_EQ(read_floats(file, 2, v, eol), 0); // the line ends after one number
    EXPECT_EQ(v[0], 5.0f);
    EXPECT_EQ(read_floats(file, 0, v, eol), 1);
    EXPECT_EQ(read_floats(file, 2, v, eol), 1);
    EXPECT_EQ(eol, 0);
    EXPECT_EQ(read_floats(file, 3, v, eol), 0); // the file ends
    EXPECT_EQ(v[0], 8.0f);
    EXPECT_EQ(v[1], 9.0f);
    fclose(file);
}

// --- Command files ----------------------------------------------------------------------------

TEST(GraphicsFiles, HeaderAndOpenFailures) {
    TempDir dir;
    FlicImage image = blankImage(8, 8);
    FlicGraphics g;
    MessageCapture capture;
    std::string missing = dir.path("missing.fg");
    EXPECT_EQ(g.drawFile(image, missing.c_str()), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: can't open " + missing + " (No such file or directory)");

    std::string path = dir.path("plain.txt");
    for (const char* text : {"", "FLIC GRAPHIC\npoints 1 1\n", "\nFLIC GRAPHICS\npoints 1 1\n"}) {
        capture.errors().clear();
        writeFile(path, text);
        EXPECT_EQ(g.drawFile(image, path.c_str()), 0) << text;
        EXPECT_EQ(capture.onlyError(),
                  "FLIC error: can't open " + path + " (header string 'FLIC GRAPHICS' not found)");
    }
    // The header is searched in the first 1022 characters of the line only.
    capture.errors().clear();
    writeFile(path, std::string(1010, '.') + "FLIC GRAPHICS\npoints 1 1\n");
    EXPECT_EQ(g.drawFile(image, path.c_str()), 0);
    EXPECT_EQ(capture.errors().size(), 1u);

    capture.errors().clear();
    EXPECT_EQ(runCommands(image, "# FLIC GRAPHICS overlay\n"), 1);
    EXPECT_EQ(runCommands(image, "FLIC GRAPHICS"), 1);
    EXPECT_TRUE(capture.errors().empty());
    EXPECT_TRUE(drawn(image).empty());
}

TEST(GraphicsFiles, CanvasMappingAndRounding) {
    FlicImage image = blankImage(200, 100);
    ASSERT_EQ(runCommands(image, "FLIC GRAPHICS\ncanvas 0 0 1 1\npoints 0.5 0.5\n"), 1);
    EXPECT_EQ(drawn(image), (PixelSet{{100, 50}}));

    // Without a canvas: trunc(v + 0.5), so 2.5 gives 3 and -0.7 gives 0 (toward zero).
    FlicImage plain = blankImage(10, 10);
    ASSERT_EQ(runCommands(plain, "FLIC GRAPHICS\npoints 2.5 2.49 -0.7 9.4\n"), 1);
    EXPECT_EQ(drawn(plain), (PixelSet{{3, 2}, {0, 9}}));

    // A flipped canvas with an offset origin; a zero span counts as 1.
    FlicImage flipped = blankImage(10, 10);
    ASSERT_EQ(runCommands(flipped, "FLIC GRAPHICS\ncanvas 10 5 0 5\npoints 8 5 7 5.9 8 6\n"), 1);
    EXPECT_EQ(drawn(flipped), (PixelSet{{2, 0}, {3, 9}}));
}

TEST(GraphicsFiles, LinesPolylinesAndPoints) {
    FlicImage image = blankImage(12, 12);
    ASSERT_EQ(runCommands(image, "FLIC GRAPHICS\nline 0 0 10 0 10 10\n"), 1);
    PixelSet twoSegments;
    for (int i = 0; i <= 10; i++) {
        twoSegments.insert({i, 0});
        twoSegments.insert({10, i});
    }
    EXPECT_EQ(drawn(image), twoSegments);

    // The last pair on the next line: one segment, and the pair is read as unknown words.
    image.clear(0);
    ASSERT_EQ(runCommands(image, "FLIC GRAPHICS\nline 0 0 10 0\n10 10\n"), 1);
    PixelSet oneSegment;
    for (int i = 0; i <= 10; i++)
        oneSegment.insert({i, 0});
    EXPECT_EQ(drawn(image), oneSegment);

    // Numbers may start on a later line than the command; a backslash joins lines; a dangling
    // single number ends the polyline without complaint.
    image.clear(0);
    ASSERT_EQ(runCommands(image, "FLIC GRAPHICS\nline\n0 0 10 0 \\\n 10 10 7\npoints 3 3 5 5\n"
                                 "points 1 1\n2 2\n"),
              1);
    PixelSet expected = twoSegments;
    expected.insert({3, 3});
    expected.insert({5, 5});
    expected.insert({1, 1});
    EXPECT_EQ(drawn(image), expected);
}

TEST(GraphicsFiles, AbbreviationsCommentsWidthAndGreyColour) {
    FlicImage image = blankImage(12, 12);
    FlicGraphics g;
    ASSERT_EQ(runCommands(image,
                          "FLIC GRAPHICS\nc 1 1 1\nl 0 0 3 0\np 5 5\nlines 0 2 2 2\n"
                          "pointsx 9 9\nxyz 1 1\n#line 0 11 11 11\n# p 7 7\n",
                          &g),
              1);
    EXPECT_EQ(
        drawn(image),
        (PixelSet{{0, 0}, {1, 0}, {2, 0}, {3, 0}, {5, 5}, {0, 2}, {1, 2}, {2, 2}, {9, 9}, {7, 7}}));
    EXPECT_EQ(image.data[0], 255);

    // Width rounds n + 0.5 down; "w" abbreviates it.
    ASSERT_EQ(runCommands(image, "FLIC GRAPHICS\nwidth 2.5\n", &g), 1);
    EXPECT_EQ(g.pixelWidth, 3);
    ASSERT_EQ(runCommands(image, "FLIC GRAPHICS\nw\n2.49\n", &g), 1);
    EXPECT_EQ(g.pixelWidth, 2);
    EXPECT_EQ(g.halfWidth, 1);

    // A grey colour keeps a grey image grey: 0.5 * 255 truncates to 127.
    FlicImage grey = blankImage(4, 4);
    ASSERT_EQ(runCommands(grey, "FLIC GRAPHICS\ncolors 0.5 0.5 0.5\nwidth 1\npoints 1 1\n", &g), 1);
    EXPECT_EQ(grey.nChannels, 1);
    EXPECT_EQ(g.color[0], 127);
    EXPECT_EQ(g.color[3], 127);
    EXPECT_EQ(grey.data[5], 127);

    // A colour that is not grey turns a grey image into RGB first, keeping its content.
    FlicImage turned = blankImage(3, 2);
    turned.data[5] = 40;
    ASSERT_EQ(runCommands(turned, "FLIC GRAPHICS\ncolor 0 1 0\npoints 0 0\n", &g), 1);
    ASSERT_EQ(turned.nChannels, 3);
    ASSERT_EQ(turned.width, 3);
    ASSERT_EQ(turned.height, 2);
    EXPECT_EQ(
        std::vector<unsigned char>(turned.data, turned.data + 18),
        (std::vector<unsigned char>{0, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 40, 40, 40}));

    // On an RGB image the colour is drawn as it is.
    FlicImage rgb = blankImage(4, 4, 3);
    ASSERT_EQ(runCommands(rgb, "FLIC GRAPHICS\ncolor 1 0 0.2\npoints 1 1\n", &g), 1);
    EXPECT_EQ(rgb.data[15], 255);
    EXPECT_EQ(rgb.data[16], 0);
    EXPECT_EQ(rgb.data[17], 51);
}

TEST(GraphicsFiles, BadArgumentsStopWithTheCommandsMessage) {
    struct Case {
        const char* commands;
        const char* message;
    };
    const Case cases[] = {
        {"color 1 0\n1\npoints 6 6\n", "FLIC error: expecting 'color r g b'"},
        {"width", "FLIC error: expecting 'width n'"},
        {"canvas 0 0 1\n1\npoints 6 6\n", "FLIC error: expecting 'canvas x0 y0 x1 y1'"},
        {"line 0 0 1\npoints 6 6\n", "FLIC error: expecting 'line x0 y0 x1 y1 [x2 y2 ...]'"},
        {"points 1\n2\npoints 6 6\n", "FLIC error: expecting 'points x1 y1 [x2 y2 ...]'"},
    };
    for (const Case& c : cases) {
        FlicImage image = blankImage(8, 8);
        MessageCapture capture;
        std::string text = std::string("FLIC GRAPHICS\npoints 4 4\n") + c.commands;
        EXPECT_EQ(runCommands(image, text), 0) << c.commands;
        EXPECT_EQ(capture.onlyError(), c.message);
        EXPECT_EQ(drawn(image), (PixelSet{{4, 4}})) << c.commands; // earlier drawing stays
    }
}

// --- UCD mesh drawing -------------------------------------------------------------------------

TEST(GraphicsUCD, OneTriangleFillsTheImageEdges) {
    TempDir dir;
    std::string path = dir.path("triangle.inp");
    writeFile(path, ucdText({"0 0", "1 0", "0 1"}, "1 2 3"));
    FlicImage image = blankImage(101, 101);
    FlicGraphics g;
    g.setColor(255, 255, 255);
    MessageCapture capture;
    ASSERT_EQ(g.drawUCD(image, path.c_str()), 1);
    EXPECT_TRUE(capture.errors().empty());
    // Corners at (0,0), (101,0), (0,101): row 0, column 0 and the diagonal x + y = 101.
    PixelSet expected;
    for (int i = 0; i <= 100; i++) {
        expected.insert({i, 0});
        expected.insert({0, i});
        if (i > 0) expected.insert({i, 101 - i});
    }
    EXPECT_EQ(drawn(image), expected);
}

TEST(GraphicsUCD, HalvesRoundDown) {
    TempDir dir;
    std::string path = dir.path("halves.inp");
    // Box [0,2]^2 into 5 x 5: scale 2.5, so (1,1) lands on 2.5 and rounds to 2.
    writeFile(path, ucdText({"0 0", "2 0", "0 2", "1 1"}, "1 2 4"));
    FlicImage image = blankImage(5, 5);
    FlicGraphics g;
    g.setColor(9, 9, 9);
    ASSERT_EQ(g.drawUCD(image, path.c_str()), 1);
    EXPECT_EQ(drawn(image),
              (PixelSet{{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {3, 1}, {4, 1}, {1, 1}, {2, 2}}));
}

TEST(GraphicsUCD, FailuresLeaveTheImageUntouched) {
    TempDir dir;
    std::string path = dir.path("bad.inp");
    struct Case {
        std::string text;
        int width, height;
        std::string message;
    };
    const std::vector<Case> cases = {
        {ucdText({"0 0", "1", "0 1"}, "1 2 3"), 8, 8,
         "FLIC error: expected to read 2 floats, got 1"},
        {ucdText({"0 0", "1 0", "0 1"}, "1 2 3"), 0, 5,
         "FLIC error: degenerate image (width=0, height=5)"},
        {ucdText({"0 0", "0 1", "0 2"}, "1 2 3"), 0, 5,
         "FLIC error: degenerate grid (width=0, height=2)"},
        {ucdText({"0 0", "1 0", "0 1"}, "1 2 -1"), 8, 8,
         "FLIC error: file " + path +
             ": triangle 1 refers to vertex -1 (vertices are numbered 1 "
             "to 3)"},
        {"x y\n", 8, 8, "FLIC error: can't open " + path + " (this is not an UCD file)"},
    };
    for (const Case& c : cases) {
        writeFile(path, c.text);
        FlicImage image = blankImage(c.width, c.height);
        FlicGraphics g;
        g.setColor(255, 255, 255);
        MessageCapture capture;
        EXPECT_EQ(g.drawUCD(image, path.c_str()), 0) << c.message;
        EXPECT_EQ(capture.onlyError(), c.message);
        EXPECT_TRUE(drawn(image).empty());
    }
}
