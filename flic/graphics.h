// FlicGraphics: square points and straight lines drawn into images, "FLIC GRAPHICS" command
// files and the edges of UCD triangle meshes; and the text token readers these files use.
#ifndef MUSKEIP_GRAPHICS_H
#define MUSKEIP_GRAPHICS_H

#include "api.h"

#include <cstdio>

class FlicImage;

class MUSKEIP_API FlicGraphics {
  public:
    unsigned char color[4]; // red, green, blue, and the grey value used on non-RGB images
    int pixelWidth;         // side of the square drawn for one point, in pixels
    int halfWidth;          // pixelWidth / 2

    // Black, pixel width 1.
    FlicGraphics();
    ~FlicGraphics();

    // Sets the side of the squares drawn; 0 or less draws nothing.
    void setPixelWidth(int width);
    // Sets the colour (the low byte of each component) and its grey value
    // min(trunc(0.3 r + 0.59 g + 0.11 b + 0.5), 255), at least 0.
    void setColor(int r, int g, int b);
    // Draws the square point of (x, y). The square is clipped as if it covered rows y - h to
    // y - h + w - 1 but written on rows y upwards, and a square clipped at the left edge is
    // written shifted left by the clipped columns (w the pixel width, h the half width).
    // Writes that this would place before the image's first pixel or beyond its last row are
    // dropped.
    void drawPixel(FlicImage& image, int x, int y);
    // Draws the Bresenham line from (x0, y0) to (x1, y1) as a chain of square points.
    void drawLine(FlicImage& image, int x0, int y0, int x1, int y1);
    // Interprets a "FLIC GRAPHICS" command file. Returns 1 when it was read to its end, or 0
    // through flic_ioerror (cannot open, no header) or flic_error (bad command arguments);
    // what was drawn before a failure stays.
    int drawFile(FlicImage& image, const char* filename);
    // Draws the edges of every triangle of a UCD mesh fitted into the image, as the field
    // importers fit a mesh into a grid. Returns 1, or 0 with a report (image untouched).
    int drawUCD(FlicImage& image, const char* filename);
    // Checks a FLIC GRAPHICS file without drawing, reading its words as drawFile does. What
    // drawFile skips is reported through flic_warning ("<file>:<line>: ..."): unknown commands,
    // NaN coordinates. What cannot be drawn sensibly is reported through flic_error: missing or
    // malformed numbers ("x" reads as 0), infinite coordinates, widths outside 0 .. 1000, colour
    // parts outside 0 .. 1. Returns the number of errors (0: the file can be drawn), or -1 when
    // the file cannot be opened or lacks the header (reported).
    static int checkFile(const char* filename);
};

// Non-zero when one of the two words is a prefix of the other (so "c" and "colors" both match
// "color").
MUSKEIP_API int check_cmd(const char* word, const char* command);
// The next character of the file, with backslash-newline pairs removed; EOF at the end.
MUSKEIP_API int read_char(FILE* file);
// Reads the next word of white-space separated text into `word` (room for maxlen + 1 chars),
// splitting words longer than maxlen. endOfLine tells whether the word ended its line.
// Returns 0 at the end of the file when no word was found (or when maxlen is below 1), else 1.
MUSKEIP_API int read_word(FILE* file, int maxlen, char* word, int& endOfLine);
// Reads n numbers, one word each, all on one line. Returns 1 when all were read; 0 at the end
// of the file or when the line ends early. endOfLine tells whether the last one ended it.
MUSKEIP_API int read_floats(FILE* file, int n, float* values, int& endOfLine);

#endif
