// FlicPicture: the steps that turn a LIC texture into a picture worth publishing, in one fixed
// order shared by every front end: contrast, equalisation, blur, median, colour, emboss, zoom.
// The settings are public members with the defaults below; `render` runs the engine (twice for
// the enhanced texture) and the steps, `finish` runs the steps on a computed LIC picture.
#ifndef MUSKEIP_PICTURE_H
#define MUSKEIP_PICTURE_H

#include "api.h"

#include "colormap.h"
#include "compute.h"
#include "image.h"
#include "scalarfield.h"
#include "vectorfield.h"

class MUSKEIP_API FlicPicture {
  public:
    // Where the colour comes from: none (a grey picture), the field's magnitude, its direction
    // (the angle of the vector, -pi .. pi) or a scalar field of the caller's.
    enum ColourSource : int { NO_COLOUR = 0, MAGNITUDE = 1, DIRECTION = 2, SCALAR = 3 };
    // How colour and LIC are combined. MULTIPLY: the colour times the LIC's intensity, the LIC
    // stretched about its mean (multiplyLevel at the mean, multiplyContrast per standard
    // deviation, held to 0..1), so the map's own lightness survives and streaks stay visible.
    // LIGHTNESS: the colour's hue and saturation with the LIC as HSL lightness (FlicImage::mix).
    // OVERLAY: the usual overlay of the LIC onto the colour (a LIC byte of 128 keeps the
    // colour, brighter and darker bytes lighten and darken it).
    enum BlendMode : int { MULTIPLY = 0, LIGHTNESS = 1, OVERLAY = 2 };
    enum EmbossMode : int { NO_EMBOSS = 0, EMBOSS_FIELD = 1, EMBOSS_LIGHT = 2 };
    enum EqualizeMode : int { NO_EQUALIZE = 0, EQUALIZE_GLOBAL = 1, EQUALIZE_ADAPTIVE = 2 };

    int enhance;           // 1: LIC, high-pass, LIC of that, percentile stretch (render only)
    int adjust;            // 1: contrast adjustment of the non-black pixels (exact statistics)
    float adjustMean;      // 128
    float adjustSdev;      // 40
    EqualizeMode equalize; // NO_EQUALIZE
    int equalizeTiles;     // 8: tiles per side of the adaptive equalisation
    float equalizeClip;    // 2: clip limit of the adaptive equalisation
    int blur;              // 0, or 1 .. 9: Gaussian blur of that many half-taps
    int median;            // 1: 3 x 3 median filter
    ColourSource colour;   // NO_COLOUR
    BlendMode blend;       // MULTIPLY
    FlicColormap colormap; // set by setColormap; viridis, twilight for DIRECTION
    int colormapGiven;     // 0 until setColormap: then `colormap` is used as it is
    int rangeGiven;        // 0: the colour range is the 1st to 99th percentile of the values
    float range[2];        // values spanned by the colour map when rangeGiven
    const FlicScalarField* colourField; // borrowed: the values for SCALAR
    float multiplyLevel;                // 0.9
    float multiplyContrast;             // 0.2
    EmbossMode emboss;                  // NO_EMBOSS
    float light[3];            // EMBOSS_LIGHT: azimuth, elevation (degrees), steepness (1 .. 1530)
    int zoomWidth, zoomHeight; // 0: no zoom

    FlicPicture();

    // Makes `name` the colour map: a preset (FlicColormap::presetNames) or an icol file. Returns
    // 1, or 0 through flic_error naming the valid presets when it is neither (the map is then
    // unchanged).
    int setColormap(const char* name);
    // Checks the settings (ranges of the numbers, a colour field for SCALAR, zoom sizes).
    // Returns 1, or 0 through flic_error naming the first bad setting.
    int check() const;
    // Computes the LIC picture of the field with the engine's settings (mask and seed map as
    // for FlicCompute::compute; with enhance, a second computation on the high-passed first
    // one, then a 0.5 .. 99.5 percentile stretch) and runs finish on it. Returns 1, or 0 after
    // the engine's or a step's report (`picture` may then hold a partial result).
    int render(FlicCompute& engine, FlicVectorField& field, FlicImage& texture, FlicImage& picture,
               FlicImage* mask = nullptr, FlicImage* seedMap = nullptr) const;
    // Runs the steps on a computed LIC picture, in place: adjust, equalize, blur, median,
    // colour, emboss, zoom. A picture with colour must be grey before it. Returns 1, or 0
    // through flic_error or a step's report.
    int finish(FlicImage& picture, FlicVectorField& field) const;
    // The colour of every pixel of a picture of width x height (the colour step alone), into
    // an RGB image. Returns 1, or 0 through flic_error.
    int colours(FlicVectorField& field, int width, int height, FlicImage& result) const;
};

// Combines an RGB colour image with a grey LIC picture of the same size (a LIC byte of 0, a
// pixel no line reached, stays black), into `result` or, when it is null, into `lic` (which
// becomes RGB). Returns 1, or 0 through flic_error for mismatched images.
MUSKEIP_API int flicBlend(FlicImage& lic, const FlicImage& colours, FlicPicture::BlendMode mode,
                          float level = 0.9f, float contrast = 0.2f, FlicImage* result = nullptr);
// The 1st and 99th percentile of the finite values of a scalar field, so that a few extreme
// values (near critical points, for instance) do not squeeze all colours into one end of a map;
// 0 and 1 when there is no finite value, min + 1 when all are equal.
MUSKEIP_API void flicRobustRange(const FlicScalarField& field, float range[2]);

#endif
