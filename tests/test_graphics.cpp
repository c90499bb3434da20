// Drawing primitives, token readers, FLIC GRAPHICS command files and UCD mesh drawing.
#include "graphics.h"
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace testutil;

namespace {

FlicImage blankImage(int width, int height, int channels = 1) {
    FlicImage image(width, height, channels);
    image.clear(0);
    return image;
}

FlicGraphics whitePen(int pixelWidth = 1) {
    FlicGraphics g;
    g.setColor(255, 255, 255);
    g.setPixelWidth(pixelWidth);
    return g;
}

// The pixels with a non-zero byte, as "x,y" in memory order.
std::string drawn(const FlicImage& image) {
    std::string text;
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.width; x++)
            for (int c = 0; c < image.nChannels; c++)
                if (image.data[y * image.bytesPerLine + x * image.nChannels + c]) {
                    text += (text.empty() ? "" : " ") + std::to_string(x) + "," + std::to_string(y);
                    break;
                }
    return text;
}

// What a white pen of the given width draws on a blank grey image: the points x0, y0, x1, y1,
// ... or, with `line`, the line between the first two.
std::string sketch(int width, int height, int pixelWidth, const std::vector<int>& xy,
                   bool line = false) {
    FlicImage image = blankImage(width, height);
    FlicGraphics g = whitePen(pixelWidth);
    if (line) g.drawLine(image, xy[0], xy[1], xy[2], xy[3]);
    for (size_t i = 0; !line && i + 1 < xy.size(); i += 2)
        g.drawPixel(image, xy[i], xy[i + 1]);
    return drawn(image);
}

std::string lineOn(int x0, int y0, int x1, int y1, int pixelWidth = 1) {
    return sketch(10, 10, pixelWidth, {x0, y0, x1, y1}, true);
}

// Bresenham's walk over every point of the line, each drawn with drawPixel.
void referenceLine(FlicGraphics& g, FlicImage& image, int x0, int y0, int x1, int y1) {
    if (x1 < x0) {
        std::swap(x0, x1);
        std::swap(y0, y1);
    }
    int dx = x1 - x0, dy = std::abs(y1 - y0), s = y1 < y0 ? -1 : 1;
    bool steep = dy > dx;
    int major = steep ? dy : dx, minor = steep ? dx : dy;
    int d = 2 * minor - major, x = x0, y = y0;
    g.drawPixel(image, x, y);
    while ((!steep && x < x1) || (steep && y != y1)) {
        if (d <= 0) {
            d += 2 * minor;
            (steep ? y : x) += steep ? s : 1;
        } else {
            d += 2 * (minor - major);
            y += s;
            x++;
        }
        g.drawPixel(image, x, y);
    }
}

FILE* textStream(const std::string& text) {
    FILE* file = tmpfile();
    fwrite(text.data(), 1, text.size(), file);
    rewind(file);
    return file;
}

// Runs a command file with the given pen (a white one by default); returns drawFile's result.
int runCommands(FlicImage& image, const std::string& commands, FlicGraphics* pen = nullptr) {
    TempDir dir;
    std::string path = dir.path("overlay.fg");
    writeFile(path, commands);
    FlicGraphics white = whitePen();
    return (pen ? *pen : white).drawFile(image, path.c_str());
}

// What the commands draw with a white pen on a blank grey image.
std::string overlay(int width, int height, const std::string& commands) {
    FlicImage image = blankImage(width, height);
    EXPECT_EQ(runCommands(image, commands), 1) << commands;
    return drawn(image);
}

std::string ucdText(const std::vector<std::string>& vertexLines, const std::string& triangles) {
    std::string text = std::to_string(vertexLines.size()) + " 1\nskipped\n";
    for (const std::string& line : vertexLines)
        text += line + "\n";
    return text + "skipped\n" + triangles + "\n";
}

} // namespace

TEST(Graphics, ColourAndWidth) {
    FlicGraphics g;
    EXPECT_TRUE(g.pixelWidth == 1 && g.halfWidth == 0 && !g.color[0] && !g.color[3]);
    // r, g, b and the expected bytes: low bytes; grey trunc(.3r + .59g + .11b + .5) in 0..255.
    const int cases[][7] = {{255, 0, 0, 255, 0, 0, 77},          {2, 0, 0, 2, 0, 0, 1},
                            {300, -5, 0, 44, 251, 0, 87},        {-100, 0, 0, 156, 0, 0, 0},
                            {127, 127, 127, 127, 127, 127, 127}, {1000, 0, 0, 232, 0, 0, 255}};
    for (const auto& c : cases) {
        g.setColor(c[0], c[1], c[2]);
        for (int i = 0; i < 4; i++)
            EXPECT_EQ(g.color[i], c[3 + i]) << c[0] << " byte " << i;
    }
    g.setPixelWidth(5);
    int half = g.halfWidth;
    g.setPixelWidth(-3);
    EXPECT_TRUE(half == 2 && g.halfWidth == -1);
}

TEST(Graphics, DrawPixelSquaresClippingAndShifts) {
    EXPECT_EQ(sketch(10, 10, 1, {0, 0, 9, 9, 10, 3, -1, 3, 3, 10}), "0,0 9,9");
    EXPECT_EQ(sketch(10, 10, 2, {5, 5}), "4,5 5,5 4,6 5,6"); // rows y, y + 1; columns x - 1, x
    // Clipped as rows 8..10, written on rows 9..11: row 9 only.
    EXPECT_EQ(sketch(10, 10, 3, {5, 9}), "4,9 5,9 6,9");
    // At the left edge the two kept columns are written from column -1 on, i.e. at the end of
    // the row below: bytes 9, 10 (row 2), 14, 15 (row 3), 19, 20 (row 4).
    EXPECT_EQ(sketch(5, 5, 3, {0, 2}), "4,1 0,2 4,2 0,3 4,3 0,4");
    EXPECT_EQ(sketch(5, 5, 0, {2, 2}), "");

    FlicImage rgb = blankImage(3, 3, 3), grey = blankImage(3, 3);
    FlicGraphics g;
    g.setColor(200, 10, 20);
    g.drawPixel(rgb, 1, 1);
    g.drawPixel(grey, 1, 1);
    EXPECT_TRUE(rgb.data[12] == 200 && rgb.data[13] == 10 && rgb.data[14] == 20);
    EXPECT_TRUE(drawn(rgb) == "1,1" && drawn(grey) == "1,1" && grey.data[4] == g.color[3]);

    // A 1 x 3 image in caller memory with guard bytes on both sides: writes that would land
    // before the first byte or past the last row are dropped, whatever the width and position.
    std::vector<unsigned char> memory(48, 0xEE);
    unsigned char* pixels = &memory[16];
    FlicImage image(1, 3, 1, pixels);
    image.clear(0);
    g = whitePen(3);
    g.drawPixel(image, -1, 0);
    g.drawPixel(image, 0, 2);
    EXPECT_EQ(std::vector<int>(pixels, pixels + 3), (std::vector<int>{255, 255, 0}));
    g.setPixelWidth(INT_MAX);
    g.drawPixel(image, 0, 0);
    g.drawPixel(image, INT_MAX, INT_MIN);
    g.drawLine(image, INT_MIN, INT_MIN, INT_MAX, INT_MAX);
    g.pixelWidth = 5; // half widths set by hand out of step with the width
    for (int half : {0, -5, 40}) {
        g.halfWidth = half;
        g.drawPixel(image, -3, 1);
    }
    std::vector<unsigned char> expected(48, 0xEE);
    expected[16] = expected[17] = 255;
    expected[18] = 0;
    EXPECT_EQ(memory, expected);
}

TEST(Graphics, DrawLineBresenham) {
    EXPECT_EQ(lineOn(0, 7, 5, 5), "4,5 5,5 2,6 3,6 0,7 1,7");
    EXPECT_EQ(lineOn(2, 0, 3, 5), "2,0 2,1 2,2 3,3 3,4 3,5");
    EXPECT_EQ(lineOn(1, 4, 4, 1), "4,1 3,2 2,3 1,4");
    EXPECT_EQ(lineOn(1, 1, 3, 1, 2), "0,1 1,1 2,1 3,1 0,2 1,2 2,2 3,2");
    EXPECT_EQ(lineOn(1, 1, 8, 8, 0), "");
    // Across the whole int range only the visible steps are walked.
    EXPECT_EQ(lineOn(INT_MIN, 3, INT_MAX, 5), "0,4 1,4 2,4 3,4 4,4 5,4 6,4 7,4 8,4 9,4");
    EXPECT_EQ(lineOn(5, INT_MAX, 4, INT_MIN), "5,0 5,1 5,2 5,3 5,4 5,5 5,6 5,7 5,8 5,9");

    // Every line with end points in -8..10 on a 4 x 3 image, widths 1 and 3, against the walk.
    FlicImage fast = blankImage(4, 3), full = blankImage(4, 3);
    for (int width : {1, 3}) {
        FlicGraphics g = whitePen(width);
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

TEST(TokenReaders, CommandsCharactersWordsAndNumbers) {
    EXPECT_TRUE(check_cmd("c", "color") && check_cmd("colors", "color"));
    EXPECT_FALSE(check_cmd("colx", "color") || check_cmd("canvas", "color"));

    FILE* file = textStream("a\\\nb\\c\\\n\\\nd\\");
    std::string chars;
    for (int c = read_char(file); c != EOF; c = read_char(file))
        chars.push_back(char(c));
    fclose(file);
    EXPECT_EQ(chars, "ab\\cd\\");

    // Words of at most 3 characters: end of line after blanks, other white space put back,
    // backslash-newline joining, long words split.
    char word[8];
    int eol = -1;
    file = textStream("  abc  \n def\tghi \t x\t\ny \\\n z\r\nabcdefgh\nabc\nlast");
    std::string words;
    while (read_word(file, 3, word, eol))
        words += std::string(word) + (eol ? "| " : " ");
    EXPECT_EQ(words, "abc| def ghi x| y z abc def gh| abc| las t ");
    EXPECT_STREQ(word, "");
    EXPECT_EQ(eol, 0);
    fclose(file);
    file = textStream("word");
    EXPECT_EQ(read_word(file, 0, word, eol), 0);
    fclose(file);

    float v[3] = {-1, -1, -1};
    file = textStream("1 2.5 -3e2\n4 x\n5\n6 7 8");
    EXPECT_EQ(read_floats(file, 3, v, eol), 1);
    EXPECT_EQ(v[0] + v[1] + v[2], -296.5f);
    EXPECT_EQ(eol, 1);
    EXPECT_EQ(read_floats(file, 2, v, eol), 1);
    EXPECT_EQ(v[1], 0.0f);                      // not a number: 0
    EXPECT_EQ(read_floats(file, 2, v, eol), 0); // the line ends after one number
    EXPECT_EQ(read_floats(file, 0, v, eol), 1);
    EXPECT_EQ(read_floats(file, 2, v, eol), 1);
    EXPECT_EQ(eol, 0);
    EXPECT_EQ(read_floats(file, 2, v, eol), 0); // the file ends
    EXPECT_EQ(v[0], 8.0f);
    fclose(file);
}

TEST(GraphicsFiles, HeaderCanvasLinesPointsAndAbbreviations) {
    TempDir dir;
    FlicImage image = blankImage(8, 8);
    MessageCapture capture;
    std::string path = dir.path("header.fg");
    EXPECT_EQ(FlicGraphics().drawFile(image, path.c_str()), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: can't open " + path + " (No such file or directory)");
    for (std::string text :
         {std::string(""), std::string("FLIC GRAPHIC\np 1 1\n"), std::string("\nFLIC GRAPHICS\n"),
          std::string(1010, '.') + "FLIC GRAPHICS\n"}) {
        writeFile(path, text);
        capture.errors().clear();
        EXPECT_EQ(FlicGraphics().drawFile(image, path.c_str()), 0);
        EXPECT_EQ(capture.onlyError(),
                  "FLIC error: can't open " + path + " (header string 'FLIC GRAPHICS' not found)");
    }
    capture.errors().clear();
    EXPECT_EQ(overlay(8, 8, "# FLIC GRAPHICS overlay\n") + overlay(8, 8, "FLIC GRAPHICS"), "");
    EXPECT_TRUE(capture.errors().empty());

    const std::string H = "FLIC GRAPHICS\n";
    EXPECT_EQ(overlay(200, 100, H + "canvas 0 0 1 1\npoints 0.5 0.5\n"), "100,50");
    // trunc(v + 0.5) toward zero; a flipped canvas; a zero span counting as 1.
    EXPECT_EQ(overlay(10, 10, H + "points 2.5 2.49 -0.7 9.4\n"), "3,2 0,9");
    EXPECT_EQ(overlay(10, 10, H + "canvas 10 5 0 5\npoints 8 5 7 5.9 8 6\n"), "2,0 3,9");
    // Past its 1022nd character the header line is skipped, commands and all.
    EXPECT_EQ(overlay(8, 8, "FLIC GRAPHICS" + std::string(1010, ' ') + "p 3 3\np 1 1\n"), "1,1");

    // A polyline on one line draws two segments; with its last pair on the next line, one,
    // and the pair is read as unknown words. Numbers may follow on later lines, lines may be
    // joined by a backslash, and a dangling number is ignored.
    const std::string across = "0,0 1,0 2,0 3,0 4,0 5,0 6,0 7,0 8,0 9,0 10,0";
    const std::string down = " 10,1 10,2 10,3 10,4 10,5 10,6 10,7 10,8 10,9 10,10";
    EXPECT_EQ(overlay(12, 12, H + "line 0 0 10 0 10 10\n"), across + down);
    EXPECT_EQ(overlay(12, 12, H + "line 0 0 10 0\n10 10\n"), across);
    EXPECT_EQ(overlay(12, 12, H + "line\n0 0 10 0 \\\n 10 10 7\n"), across + down);

    // Abbreviations and longer words; "#" skips one word only.
    FlicImage words = blankImage(12, 12);
    FlicGraphics g;
    ASSERT_EQ(runCommands(words,
                          "FLIC GRAPHICS\nc 1 1 1\nl 0 0 3 0\np 5 5\nlines 0 2 2 2\npointsx 9 9\n"
                          "xyz 1 1\n#line 0 11 11 11\n# p 7 7\nw 2.5\n",
                          &g),
              1);
    EXPECT_EQ(drawn(words), "0,0 1,0 2,0 3,0 0,2 1,2 2,2 5,5 7,7 9,9");
    EXPECT_EQ(g.pixelWidth, 3);
    ASSERT_EQ(runCommands(words, "FLIC GRAPHICS\nwidth\n2.49\n", &g), 1);
    EXPECT_EQ(g.pixelWidth, 2);
}

TEST(GraphicsFiles, ColourCommandsAndBadArguments) {
    FlicGraphics g;
    FlicImage grey = blankImage(4, 4);
    ASSERT_EQ(runCommands(grey, "FLIC GRAPHICS\ncolors 0.5 0.5 0.5\npoints 1 1\n", &g), 1);
    EXPECT_EQ(grey.nChannels, 1); // a grey colour keeps the image grey: 127.5 truncates
    EXPECT_EQ(g.color[0] + g.color[3], 254);
    EXPECT_EQ(grey.data[5], 127);
    // Any other colour makes a grey image RGB first, keeping its content.
    FlicImage turned = blankImage(3, 2);
    turned.data[5] = 40;
    ASSERT_EQ(runCommands(turned, "FLIC GRAPHICS\ncolor 0 1 0.2\npoints 0 0\n", &g), 1);
    EXPECT_EQ(pixelBytes(turned),
              (std::vector<int>{0, 255, 51, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 40, 40, 40}));

    const std::pair<const char*, const char*> cases[] = {
        {"color 1 0\n1\npoints 6 6\n", "expecting 'color r g b'"},
        {"width", "expecting 'width n'"},
        {"canvas 0 0 1\n1\npoints 6 6\n", "expecting 'canvas x0 y0 x1 y1'"},
        {"line 0 0 1\npoints 6 6\n", "expecting 'line x0 y0 x1 y1 [x2 y2 ...]'"},
        {"points 1\n2\npoints 6 6\n", "expecting 'points x1 y1 [x2 y2 ...]'"},
    };
    for (const auto& c : cases) {
        FlicImage image = blankImage(8, 8);
        MessageCapture capture;
        EXPECT_EQ(runCommands(image, std::string("FLIC GRAPHICS\np 4 4\n") + c.first), 0);
        EXPECT_EQ(capture.onlyError(), std::string("FLIC error: ") + c.second);
        EXPECT_EQ(drawn(image), "4,4") << c.first; // what was drawn before stays
    }
}

// The check reads words as drawing does and names file and line for every doubt.
TEST(GraphicsFiles, CheckReportsProblemsByLineWithoutDrawing) {
    TempDir dir;
    std::string path = dir.path("b.gfx");
    writeFile(path, "FLIC GRAPHICS\n"
                    "line 1 2 x 3\n"       // 2: a malformed number: error, rest skipped
                    "foo 1 2\n"            // 3: unknown word, its numbers skipped with it
                    "width 1000000000\n"   // 4: width out of range: error
                    "line nan 1 2 3\n"     // 5: NaN coordinate: skipped when drawn
                    "# line 0 0 \\\n1 1\n" // 6-7: a command after '#', joined lines
                    "points 1 1 2\n"       // 8: a dangling number: skipped when drawn
                    "7\n"                  // 9: a number outside any command
                    "color 0 0.5 2\n");    // 10: a colour part outside 0 .. 1: error
    MessageCapture capture;
    EXPECT_EQ(3, FlicGraphics::checkFile(path.c_str()));
    std::string file = path + ":";
    EXPECT_EQ(capture.errors(), (std::vector<std::string>{
                                    "FLIC error: " + file + "2: not a number ('x')",
                                    "FLIC error: " + file + "4: a width outside 0 .. 1000",
                                    "FLIC error: " + file + "10: colour parts go from 0 to 1"}));
    EXPECT_EQ(capture.warnings(),
              (std::vector<std::string>{
                  "FLIC warning: " + file + "3: unknown command 'foo' skipped",
                  "FLIC warning: " + file + "5: a NaN coordinate: the point is skipped",
                  "FLIC warning: " + file +
                      "6: 'line' after a '#' is read as a command ('#' comments out one word only)",
                  "FLIC warning: " + file + "8: a coordinate pair is incomplete: it is skipped",
                  "FLIC warning: " + file + "9: a number outside any command ('7') skipped"}));

    // A clean file: no message; abbreviations and longer command words are commands.
    writeFile(path, "FLIC GRAPHICS\nc 1 0 0\nw 3\ncanvas 0 0 1 1\nlines 0 0 1 1 0.5 0.5\n");
    capture.errors().clear();
    capture.warnings().clear();
    EXPECT_EQ(0, FlicGraphics::checkFile(path.c_str()));
    EXPECT_TRUE(capture.errors().empty() && capture.warnings().empty());

    writeFile(path, "not graphics\n");
    EXPECT_EQ(-1, FlicGraphics::checkFile(path.c_str()));
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open " + path + " (header string 'FLIC GRAPHICS' not found)");
    EXPECT_EQ(-1, FlicGraphics::checkFile(dir.path("none").c_str()));
}

TEST(GraphicsUCD, MeshEdgesFittedIntoTheImage) {
    TempDir dir;
    std::string path = dir.path("mesh.inp");
    // Corners at (0,0), (101,0), (0,101): row 0, column 0 and the diagonal x + y = 101.
    writeFile(path, ucdText({"0 0", "1 0", "0 1"}, "1 2 3"));
    FlicImage image = blankImage(101, 101), expected = blankImage(101, 101);
    for (int i = 0; i <= 100; i++) {
        expected.data[i] = expected.data[101 * i] = 255;
        if (i > 0) expected.data[101 * (101 - i) + i] = 255;
    }
    FlicGraphics g = whitePen();
    ASSERT_EQ(g.drawUCD(image, path.c_str()), 1);
    EXPECT_EQ(memcmp(image.data, expected.data, 101 * 101), 0);
    // Box [0,2]^2 into 5 x 5: scale 2.5, so (1,1) lands on 2.5 and rounds down to 2.
    writeFile(path, ucdText({"0 0", "2 0", "0 2", "1 1"}, "1 2 4"));
    FlicImage halves = blankImage(5, 5);
    ASSERT_EQ(g.drawUCD(halves, path.c_str()), 1);
    EXPECT_EQ(drawn(halves), "0,0 1,0 2,0 3,0 4,0 1,1 3,1 4,1 2,2");

    const struct {
        std::string text;
        int width;
        std::string message;
    } cases[] = {
        {ucdText({"0 0", "1", "0 1"}, "1 2 3"), 8, "expected to read 2 floats, got 1"},
        {ucdText({"0 0", "1 0", "0 1"}, "1 2 3"), 0, "degenerate image (width=0, height=5)"},
        {ucdText({"0 0", "0 1", "0 2"}, "1 2 3"), 0, "degenerate grid (width=0, height=2)"},
    };
    for (const auto& c : cases) {
        writeFile(path, c.text);
        FlicImage untouched = blankImage(c.width, 5);
        MessageCapture capture;
        EXPECT_EQ(g.drawUCD(untouched, path.c_str()), 0);
        EXPECT_EQ(capture.onlyError(), "FLIC error: " + c.message);
        EXPECT_EQ(drawn(untouched), "");
    }
}
