// FlicColormap: 256 RGB colours over a value range, with presets, transformations and a small
// text file format; and the RGB / hue-saturation-lightness conversions.
#ifndef MUSKEIP_COLORMAP_H
#define MUSKEIP_COLORMAP_H

#include "api.h"

// Converts (r, g, b) in 0..1 to (h, s, l) in 0..1, the hue a fraction of the full circle.
// For black only l is written, for greys only l and s (= 0): h (and s) keep what the output
// triple held.
MUSKEIP_API void RGB_to_HSL(const float* rgb, float* hsl);
// Converts (h, s, l) to (r, g, b). A hue of 1.0 or outside 0..1 (sextant other than 0..5)
// writes nothing: the output triple keeps what it held.
MUSKEIP_API void HSL_to_RGB(const float* hsl, float* rgb);

class MUSKEIP_API FlicColormap {
  public:
    float colors[256][3]; // entry i = (r, g, b), nominally 0..1
    float min;            // lower end of the value range
    float max;            // upper end of the value range
    float scale;          // 1 / (max - min), kept in step by setMinMax

    // The grey ramp over the range 0..1.
    FlicColormap();

    // Stores the range and scale = 1 / (max - min) (max = min gives an infinite scale).
    void setMinMax(float min, float max);
    // Returns the range.
    void getMinMax(float& min, float& max) const;

    // Entry i = (i/255, i/255, i/255). Presets keep the range.
    void createGreyRamp();
    // Red to yellow (entries 0..127), yellow to white (128..255).
    void createHotIron();
    // Blue to white (entries 0..127), white to red (128..255).
    void createBlueWhiteRed();
    // Hues from red through yellow, green, cyan and blue to magenta at full saturation.
    void createHueRamp();

    // Fills the table with the named preset: grey (or gray), hot-iron, blue-white-red, hue,
    // and the perceptually uniform viridis, magma, inferno, plasma, cividis and the cyclic
    // twilight. Presets keep the range. Returns 1, or 0 for a name that is none of these (no
    // message; the table is left as it was).
    int createPreset(const char* name);
    // The preset names, comma-separated, for messages and help texts.
    static const char* presetNames();

    // Colour of a value normalized to 0..1 (entry 0 at or below 0 and for NaN, entry 255 at or
    // above 1, linear between neighbouring entries otherwise) into rgb[0..2].
    void getColor1(float t, float* rgb) const;

    // Every component times f, limited above to 1.0; into dest, or this map when dest is null.
    void multiply(float f, FlicColormap* dest = nullptr);
    // Entry i becomes entry 255 - i; into dest, or this map when dest is null.
    void flip(FlicColormap* dest = nullptr);
    // Every component c becomes pow(c, g); into dest, or this map when dest is null.
    void gamma(float g, FlicColormap* dest = nullptr);

    // Writes the map as 64 lines of four "index r g b" groups (0..255) and a range line.
    // Returns 1, or 0 with "Can't open <file>." on standard error.
    int writeIcol(const char* filename) const;
    // Reads a map written by writeIcol, or a plain file of 256 "r g b" lines, each optionally
    // followed by a range. Returns 1, or 0 with "Can't open <file>." or "Illegal format in
    // <file>." on standard error (the map may then be partly overwritten).
    int readIcol(const char* filename);
    // Checks an icol file line by line as readIcol reads it, and refuses colour values outside
    // 0..255 (which readIcol would take as they are). Returns 1, or 0 through flic_error with
    // "<file>:<line>: <what is wrong>" for the first problem. The map is not changed.
    static int checkIcol(const char* filename);
};

#endif
