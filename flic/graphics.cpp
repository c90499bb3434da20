// Drawing of square points and Bresenham lines, the "FLIC GRAPHICS" command files, the drawing
// of UCD triangle meshes, and the token readers of the command files.
#include "graphics.h"

#include "image.h"
#include "messages.h"
#include "scanconvert.h"

#include <cctype>
#include <climits>
#include <algorithm>
#include <cmath>
#include <vector>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// Truncates toward zero into `out`, saturating at the int range. False for NaN.
bool truncate_to_int(double value, int& out) {
    if (std::isnan(value)) return false;
    if (value <= static_cast<double>(INT_MIN)) {
        out = INT_MIN;
    } else if (value >= static_cast<double>(INT_MAX)) {
        out = INT_MAX;
    } else {
        out = static_cast<int>(value);
    }
    return true;
}

// The same, with NaN giving 0.
int truncate_or_zero(double value) {
    int result = 0;
    truncate_to_int(value, result);
    return result;
}

} // namespace

// --- Drawing primitives -----------------------------------------------------------------------

FlicGraphics::FlicGraphics() : color{0, 0, 0, 0}, pixelWidth(1), halfWidth(0) {}

FlicGraphics::~FlicGraphics() {}

void FlicGraphics::setPixelWidth(int width) {
    pixelWidth = width;
    halfWidth = width / 2;
}

void FlicGraphics::setColor(int r, int g, int b) {
    color[0] = static_cast<unsigned char>(r);
    color[1] = static_cast<unsigned char>(g);
    color[2] = static_cast<unsigned char>(b);
    double grey = 0.3 * r + 0.59 * g + 0.11 * b + 0.5;
    if (grey >= 255.0) {
        color[3] = 255;
    } else if (grey <= 0.0) {
        color[3] = 0;
    } else {
        color[3] = static_cast<unsigned char>(static_cast<int>(grey));
    }
}

namespace {

// Draws the square points of one FlicGraphics into one image, with the image's geometry read
// once. Every write is checked against the image's pixels, so nothing outside them is touched.
class SquarePen {
  public:
    SquarePen(const FlicGraphics& graphics, FlicImage& image)
        : data(image.data), width(image.width), height(image.height), lineBytes(image.bytesPerLine),
          channels(image.nChannels), side(graphics.pixelWidth), half(graphics.halfWidth),
          color(graphics.color) {
        lastPixel = (height - 1) * lineBytes + (width - 1) * channels;
        usable = data && channels > 0 && side > 0 && width > 0 && height > 0;
        single = side == 1 && half == 0;
    }

    void plot(long long x, long long y) const {
        if (!usable) return;
        if (single) {
            if (x >= 0 && x < width && y >= 0 && y < height) put(y * lineBytes + x * channels);
            return;
        }
        plotSquare(x, y);
    }

  private:
    unsigned char* data;
    long long width, height, lineBytes, lastPixel;
    int channels;
    long long side, half;
    const unsigned char* color;
    bool usable, single;

    void put(long long offset) const {
        if (offset < 0 || offset > lastPixel) return;
        unsigned char* pixel = data + offset;
        if (channels == 3) {
            pixel[0] = color[0];
            pixel[1] = color[1];
            pixel[2] = color[2];
        } else {
            for (int c = 0; c < channels; c++)
                pixel[c] = color[3];
        }
    }

    // The square is clipped as rows y - half .. and columns x - half .., side of each; counted
    // row r is written on row y + (r - (y - half)), the kept columns from x - half on.
    void plotSquare(long long x, long long y) const {
        const long long rowFirst = y - half, colFirst = x - half;
        const long long rowStart = rowFirst < 0 ? 0 : rowFirst;
        const long long rowStop =
            rowFirst + side - 1 < height - 1 ? rowFirst + side - 1 : height - 1;
        const long long colStart = colFirst < 0 ? 0 : colFirst;
        const long long colStop = colFirst + side - 1 < width - 1 ? colFirst + side - 1 : width - 1;
        const long long columns = colStop - colStart + 1;
        for (long long r = rowStart; r <= rowStop && columns > 0; r++) {
            const long long row = y + (r - rowFirst);
            if (row >= height) break;
            if (row < 0) continue;
            const long long rowOffset = row * lineBytes + colFirst * channels;
            for (long long i = 0; i < columns; i++)
                put(rowOffset + i * channels);
        }
    }
};

} // namespace

void FlicGraphics::drawPixel(FlicImage& image, int x, int y) {
    SquarePen(*this, image).plot(x, y);
}

void FlicGraphics::drawLine(FlicImage& image, int x0, int y0, int x1, int y1) {
    if (pixelWidth <= 0) return;
    if (x1 < x0) { // walk with x never decreasing
        std::swap(x0, x1);
        std::swap(y0, y1);
    }
    const long long dx = static_cast<long long>(x1) - x0;
    const long long dy = llabs(static_cast<long long>(y1) - y0);
    const int ystep = y1 < y0 ? -1 : 1;
    const bool steep = dy > dx;
    const long long major = steep ? dy : dx;
    const long long minor = steep ? dx : dy;

    // Only the steps whose major coordinate lets a square write into the image are walked.
    // A square's counted rows y - h .. y - h + w - 1 are written on rows h higher, so a row r
    // is written only when both r and r + h lie in 0 .. height - 1; its columns x - h ..
    // x - h + w - 1 must meet 0 .. width - 1.
    const long long w = pixelWidth, h = halfWidth;
    const long long rowMin = h < 0 ? -h : 0;
    const long long rowMax = image.height - 1 - (h > 0 ? h : 0);
    if (rowMin > rowMax || image.width <= 0) return;
    const long long reachLow = steep ? rowMin + h - w + 1 : h - w + 1;
    const long long reachHigh = steep ? rowMax + h : image.width - 1 + h;
    long long kFirst, kLast;
    if (!steep) {
        kFirst = reachLow - x0;
        kLast = reachHigh - x0;
    } else if (ystep > 0) {
        kFirst = reachLow - y0;
        kLast = reachHigh - y0;
    } else {
        kFirst = y0 - reachHigh;
        kLast = y0 - reachLow;
    }
    if (kFirst < 0) kFirst = 0;
    if (kLast > major) kLast = major;
    if (kFirst > kLast) return;

    // Bresenham's state after kFirst steps along the major axis: the decision variable stays
    // in (2 minor - 2 major, 2 minor], which fixes the number of minor steps taken so far.
    long long minorSteps = 0;
    long long decision = 2 * minor - major;
    if (kFirst > 0) {
        unsigned long long product =
            static_cast<unsigned long long>(minor) * static_cast<unsigned long long>(kFirst);
        long long quotient =
            static_cast<long long>(product / static_cast<unsigned long long>(major));
        long long remainder =
            static_cast<long long>(product % static_cast<unsigned long long>(major));
        long long extra = 2 * remainder > major ? 1 : 0;
        minorSteps = quotient + extra;
        decision += 2 * remainder - 2 * major * extra;
    }
    long long x = steep ? x0 + minorSteps : x0 + kFirst;
    long long y = steep ? y0 + ystep * kFirst : y0 + ystep * minorSteps;
    const long long straight = 2 * minor;
    const long long diagonal = 2 * (minor - major);

    const SquarePen pen(*this, image);
    pen.plot(x, y);
    for (long long k = kFirst; k < kLast; k++) {
        if (decision <= 0) {
            decision += straight;
            if (steep) {
                y += ystep;
            } else {
                x += 1;
            }
        } else {
            decision += diagonal;
            y += ystep;
            x += 1;
        }
        pen.plot(x, y);
    }
}

// --- Token readers ------------------------------------------------------------------------------

int check_cmd(const char* word, const char* command) {
    size_t length = strlen(word);
    size_t commandLength = strlen(command);
    if (commandLength < length) length = commandLength;
    return strncmp(word, command, length) == 0;
}

int read_char(FILE* file) {
    int c = getc(file);
    while (c == '\\') {
        int next = getc(file);
        if (next != '\n') {
            if (next != EOF) ungetc(next, file);
            return '\\';
        }
        c = getc(file);
    }
    return c;
}

int read_word(FILE* file, int maxlen, char* word, int& endOfLine) {
    endOfLine = 0;
    if (!word) return 0;
    if (maxlen < 1) {
        word[0] = '\0';
        return 0;
    }
    int c = read_char(file);
    while (c != EOF && isspace(c))
        c = read_char(file);
    if (c == EOF) {
        word[0] = '\0';
        return 0;
    }

    int length = 0;
    word[length++] = static_cast<char>(c);
    for (;;) {
        c = read_char(file);
        if (c == EOF || isspace(c) || length >= maxlen) break;
        word[length++] = static_cast<char>(c);
    }
    word[length] = '\0';

    if (c == EOF) return 1;
    if (c == '\n') {
        endOfLine = 1;
    } else if (c == ' ' || c == '\t') {
        do {
            c = read_char(file);
        } while (c == ' ' || c == '\t');
        if (c == '\n') {
            endOfLine = 1;
        } else if (c != EOF) {
            ungetc(c, file);
        }
    } else {
        ungetc(c, file);
    }
    return 1;
}

int read_floats(FILE* file, int n, float* values, int& endOfLine) {
    char word[128];
    for (int i = 0; i < n; i++) {
        if (!read_word(file, 127, word, endOfLine)) return 0;
        values[i] = static_cast<float>(strtod(word, nullptr));
        if (endOfLine && i < n - 1) return 0;
    }
    return 1;
}

// --- FLIC GRAPHICS command files ----------------------------------------------------------------

namespace {

// Characters of the first line searched for the header.
const int kHeaderLength = 1022;
// Longest word of a command file.
const int kWordLength = 1023;

// A position in the file's drawing space mapped to a pixel; invalid for NaN coordinates.
struct Pixel {
    int x, y;
    bool valid;
};

// Mapping from the file's drawing space to pixels, set by the "canvas" command.
struct Canvas {
    float originX = 0, originY = 0;
    float scaleX = 1, scaleY = 1;

    Pixel map(float x, float y) const {
        Pixel p{0, 0, true};
        p.valid = truncate_to_int((x - originX) * scaleX + 0.5, p.x) &&
                  truncate_to_int((y - originY) * scaleY + 0.5, p.y);
        return p;
    }
};

// Reads the header line and checks it; the part of a longer line beyond kHeaderLength
// characters is not searched and is skipped with the line.
bool read_header(FILE* file) {
    char line[kHeaderLength + 2];
    if (!fgets(line, kHeaderLength + 1, file)) return false;
    size_t length = strlen(line);
    if (length > 0 && line[length - 1] != '\n') {
        int c;
        do {
            c = getc(file);
        } while (c != EOF && c != '\n');
    }
    return strstr(line, "FLIC GRAPHICS") != nullptr;
}

// Interprets the commands of one file on one image.
class CommandReader {
  public:
    CommandReader(FlicGraphics& graphics, FlicImage& image, FILE* file)
        : graphics(graphics), image(image), file(file) {}

    // Runs the commands to the end of the file. Returns 0 after a command's message.
    int run() {
        char word[kWordLength + 1];
        int endOfLine = 0;
        while (read_word(file, kWordLength, word, endOfLine)) {
            if (word[0] == '#') continue;
            if (!command(word)) return 0;
        }
        return 1;
    }

  private:
    FlicGraphics& graphics;
    FlicImage& image;
    FILE* file;
    Canvas canvas;
    int endOfLine = 0;

    int command(const char* word) {
        if (check_cmd(word, "color")) return color();
        if (check_cmd(word, "width")) return width();
        if (check_cmd(word, "canvas")) return setCanvas();
        if (check_cmd(word, "line")) return line();
        if (check_cmd(word, "points")) return points();
        return 1; // unknown words are ignored
    }

    int color() {
        float rgb[3];
        if (!read_floats(file, 3, rgb, endOfLine)) return flic_error("expecting 'color r g b'");
        graphics.setColor(truncate_or_zero(rgb[0] * 255.0f), truncate_or_zero(rgb[1] * 255.0f),
                          truncate_or_zero(rgb[2] * 255.0f));
        const unsigned char* c = graphics.color;
        bool grey = c[0] == c[1] && c[1] == c[2];
        if (!grey && image.nChannels != 3) makeRGB();
        return 1;
    }

    void makeRGB() {
        FlicImage grey(image);
        image.glue(grey, grey, grey);
    }

    int width() {
        float n;
        if (!read_floats(file, 1, &n, endOfLine)) return flic_error("expecting 'width n'");
        graphics.setPixelWidth(truncate_or_zero(static_cast<double>(n) + 0.5));
        return 1;
    }

    int setCanvas() {
        float box[4];
        if (!read_floats(file, 4, box, endOfLine))
            return flic_error("expecting 'canvas x0 y0 x1 y1'");
        float spanX = box[2] - box[0], spanY = box[3] - box[1];
        if (spanX == 0.0f) spanX = 1.0f;
        if (spanY == 0.0f) spanY = 1.0f;
        canvas.originX = box[0];
        canvas.originY = box[1];
        canvas.scaleX = static_cast<float>(image.width) / spanX;
        canvas.scaleY = static_cast<float>(image.height) / spanY;
        return 1;
    }

    void segment(const Pixel& from, const Pixel& to) {
        if (from.valid && to.valid) graphics.drawLine(image, from.x, from.y, to.x, to.y);
    }

    void point(const Pixel& p) {
        if (p.valid) graphics.drawPixel(image, p.x, p.y);
    }

    int line() {
        float numbers[4];
        if (!read_floats(file, 4, numbers, endOfLine))
            return flic_error("expecting 'line x0 y0 x1 y1 [x2 y2 ...]'");
        Pixel previous = canvas.map(numbers[2], numbers[3]);
        segment(canvas.map(numbers[0], numbers[1]), previous);
        while (!endOfLine) {
            if (!read_floats(file, 2, numbers, endOfLine)) break;
            Pixel next = canvas.map(numbers[0], numbers[1]);
            segment(previous, next);
            previous = next;
        }
        return 1;
    }

    int points() {
        float numbers[2];
        if (!read_floats(file, 2, numbers, endOfLine))
            return flic_error("expecting 'points x1 y1 [x2 y2 ...]'");
        point(canvas.map(numbers[0], numbers[1]));
        while (!endOfLine) {
            if (!read_floats(file, 2, numbers, endOfLine)) break;
            point(canvas.map(numbers[0], numbers[1]));
        }
        return 1;
    }
};

} // namespace

namespace {

// Reads a command file's words as CommandReader does, judging them instead of drawing.
class CommandChecker {
  public:
    CommandChecker(FILE* file, const char* filename) : file(file), filename(filename) {
        long position = 0;
        int c;
        while ((c = getc(file)) != EOF) {
            position++;
            if (c == '\n') newlines.push_back(position);
        }
        rewind(file);
        read_header(file);
    }

    int run() {
        char word[kWordLength + 1];
        int wordsLine = 0;
        for (;;) {
            long start = ftell(file);
            if (!read_word(file, kWordLength, word, endOfLine)) break;
            line = lineAt(start);
            if (line != wordsLine) skippingNumbers = false;
            wordsLine = line;
            bool afterComment = line == commentLine;
            if (word[0] == '#') {
                commentLine = line;
            } else if (isNumber(word)) {
                if (!skippingNumbers && !afterComment)
                    flic_warning("%s:%d: a number outside any command ('%s') skipped", filename,
                                 line, word);
            } else if (isCommand(word)) {
                if (afterComment)
                    flic_warning("%s:%d: '%s' after a '#' is read as a command ('#' comments "
                                 "out one word only)",
                                 filename, line, word);
                command(word);
            } else if (!afterComment) {
                flic_warning("%s:%d: unknown command '%s' skipped", filename, line, word);
                skippingNumbers = true; // its numbers are skipped with it
            }
        }
        return errors;
    }

  private:
    FILE* file;
    const char* filename;
    std::vector<long> newlines; // offsets just after each newline
    int endOfLine = 0, line = 1, errors = 0;
    int commentLine = 0;          // the line of the last word that began with '#'
    bool skippingNumbers = false; // after an unknown command, until its line ends

    static bool isNumber(const char* word) {
        char* end = nullptr;
        strtod(word, &end);
        return end != word && *end == '\0';
    }

    static bool isCommand(const char* word) {
        return check_cmd(word, "color") || check_cmd(word, "width") || check_cmd(word, "canvas") ||
               check_cmd(word, "line") || check_cmd(word, "points");
    }

    // Skips the rest of the current line after a malformed command.
    void skipLine() {
        char word[kWordLength + 1];
        while (!endOfLine && read_word(file, kWordLength, word, endOfLine)) {
        }
    }

    // The line of the first non-blank character at or after `offset`; the reading position
    // is left where it was.
    int lineAt(long offset) {
        long here = ftell(file), position = offset;
        int c;
        fseek(file, offset, SEEK_SET);
        while ((c = getc(file)) != EOF && isspace(c))
            position++;
        fseek(file, here, SEEK_SET);
        return 1 + static_cast<int>(std::upper_bound(newlines.begin(), newlines.end(), position) -
                                    newlines.begin());
    }

    void error(const char* what, const char* word) {
        errors++;
        flic_error("%s:%d: %s%s%s%s", filename, line, what, word ? " ('" : "", word ? word : "",
                   word ? "')" : "");
    }

    // Reads n numbers as read_floats does; false (after a report) when one is missing or is
    // not a number as a whole.
    bool numbers(int n, float* values, const char* form, bool required = true) {
        char word[128];
        for (int i = 0; i < n; i++) {
            bool read = read_word(file, 127, word, endOfLine) != 0;
            if (!read || (endOfLine && i < n - 1)) {
                if (required)
                    error(form, nullptr);
                else if (read || i > 0)
                    flic_warning("%s:%d: %s: it is skipped", filename, line, form);
                return false;
            }
            char* end = nullptr;
            double v = strtod(word, &end);
            if (end == word || *end) {
                error("not a number", word);
                skipLine();
                return false;
            }
            values[i] = static_cast<float>(v);
        }
        return true;
    }

    void coordinates(const float* values, int n) {
        for (int i = 0; i < n; i++) {
            if (values[i] != values[i])
                flic_warning("%s:%d: a NaN coordinate: the point is skipped", filename, line);
            else if (values[i] > 3.4e38f || values[i] < -3.4e38f)
                error("an infinite coordinate", nullptr);
        }
    }

    void command(const char* word) {
        float v[4];
        if (check_cmd(word, "color")) {
            if (numbers(3, v, "expecting 'color r g b'"))
                for (int i = 0; i < 3; i++)
                    if (!(v[i] >= 0.0f && v[i] <= 1.0f))
                        error("colour parts go from 0 to 1", nullptr);
        } else if (check_cmd(word, "width")) {
            if (numbers(1, v, "expecting 'width n'") && !(v[0] >= 0.0f && v[0] <= 1000.0f))
                error("a width outside 0 .. 1000", nullptr);
        } else if (check_cmd(word, "canvas")) {
            if (numbers(4, v, "expecting 'canvas x0 y0 x1 y1'")) coordinates(v, 4);
        } else if (check_cmd(word, "line") || check_cmd(word, "points")) {
            bool isLine = check_cmd(word, "line");
            int first = isLine ? 4 : 2;
            if (!numbers(first, v,
                         isLine ? "expecting 'line x0 y0 x1 y1 [x2 y2 ...]'"
                                : "expecting 'points x1 y1 [x2 y2 ...]'"))
                return;
            coordinates(v, first);
            while (!endOfLine && numbers(2, v, "a coordinate pair is incomplete", false))
                coordinates(v, 2);
        }
    }
};

} // namespace

int FlicGraphics::checkFile(const char* filename) {
    FILE* file = fopen(filename, "rb");
    if (!file) {
        flic_ioerror(filename, nullptr);
        return -1;
    }
    if (!read_header(file)) {
        fclose(file);
        flic_ioerror(filename, "header string 'FLIC GRAPHICS' not found");
        return -1;
    }
    rewind(file);
    CommandChecker checker(file, filename);
    int errors = checker.run();
    fclose(file);
    return errors;
}

int FlicGraphics::drawFile(FlicImage& image, const char* filename) {
    FILE* file = fopen(filename, "rb");
    if (!file) return flic_ioerror(filename, nullptr);
    if (!read_header(file)) {
        fclose(file);
        return flic_ioerror(filename, "header string 'FLIC GRAPHICS' not found");
    }
    CommandReader reader(*this, image, file);
    int result = reader.run();
    fclose(file);
    return result;
}

// --- UCD mesh drawing ---------------------------------------------------------------------------

namespace {

// A mesh position mapped to a pixel, rounding halves down; invalid for NaN.
Pixel mesh_pixel(const float* vertex, float scale, float x0, float y0) {
    Pixel p{0, 0, true};
    p.valid = truncate_to_int(ceil((vertex[0] - x0) * scale - 0.5), p.x) &&
              truncate_to_int(ceil((vertex[1] - y0) * scale - 0.5), p.y);
    return p;
}

} // namespace

int FlicGraphics::drawUCD(FlicImage& image, const char* filename) {
    FlicUcdMesh mesh;
    if (!mesh.read(filename, "rb", 2)) return 0;
    float box[4];
    mesh.boundingBox(box);
    float scale, x0, y0;
    if (!flic_fitBox(box, image.width, image.height, scale, x0, y0)) return 0;
    if (image.width <= 0 || image.height <= 0)
        return flic_error("degenerate image (width=%d, height=%d)", image.width, image.height);

    for (int t = 0; t < mesh.nTriangles; t++) {
        Pixel corners[3];
        for (int k = 0; k < 3; k++)
            corners[k] = mesh_pixel(mesh.vertex(mesh.triangles[3 * static_cast<size_t>(t) + k]),
                                    scale, x0, y0);
        for (int k = 0; k < 3; k++) {
            const Pixel& from = corners[k];
            const Pixel& to = corners[(k + 1) % 3];
            if (from.valid && to.valid) drawLine(image, from.x, from.y, to.x, to.y);
        }
    }
    return 1;
}
