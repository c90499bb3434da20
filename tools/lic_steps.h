// The steps of `muskeip lic` after option parsing: inputs, post-processing, output.
#ifndef MUSKEIP_TOOLS_LIC_STEPS_H
#define MUSKEIP_TOOLS_LIC_STEPS_H

#include "commands.h"
#include "field_source.h"

#include "compute.h"
#include "image.h"
#include "vectorfield.h"

#include <string>

enum ColourMode { COLOUR_NONE, COLOUR_MAGNITUDE, COLOUR_DIRECTION };
enum EmbossMode { EMBOSS_NONE, EMBOSS_FIELD, EMBOSS_LIGHT };

// The checked values of the options of `lic`.
struct LicSettings {
    FieldRequest request;
    SourceKind kind = SOURCE_UNKNOWN_FILE;
    int width = 0, height = 0; // picture size; 0 until known
    int zoomWidth = 0, zoomHeight = 0;
    FlicCompute::FilterKernel kernel = FlicCompute::TRIANGLE;
    bool midpoint = false;
    bool rk43Given = false;
    float rk43[4] = {4.0f, 0.5f, 15.0f, 0.001f};
    int seeding = 1;
    FlicCompute::InterpolationMethod interpolation = FlicCompute::BILINEAR;
    bool adjust = true;
    float adjustMean = 128.0f, adjustSdev = 40.0f;
    int blur = 0;
    bool median = false;
    ColourMode colour = COLOUR_NONE;
    std::string colormap;
    bool rangeGiven = false;
    float range[2] = {0.0f, 1.0f};
    EmbossMode emboss = EMBOSS_NONE;
    float light[3] = {0.0f, 0.0f, 3.0f}; // azimuth, elevation (degrees), steepness
    int lineColour[3] = {0, 0, 0};
    int lineWidth = 1;
    FlicCompute::BorderMode border[2] = {FlicCompute::PERIODIC, FlicCompute::PERIODIC};
    bool nodataColourGiven = false;
    int nodataColour[3] = {0, 0, 0};
};

// What the engine works on.
struct LicInputs {
    FlicVectorField field;
    FlicImage texture;
    FlicImage mask;      // empty without --seedmap
    FlicImage seedMap;   // filled by the engine with --seedmap
    bool noData = false; // the field has NaN nodes: lines end there
    FlicImage coverage;  // with noData: 255 where lines reached, else 0
};

// Reads or makes the texture, the field and the mask, and settles the picture size in
// `settings`. False after a report naming the file.
bool loadInputs(const LicOptions& options, LicSettings& settings, LicInputs& inputs);
// Applies --adjust, --blur, --median, --colour, --emboss, --zoom, --overlay and --mesh, in
// this order. False after a report.
bool postProcess(const LicOptions& options, const LicSettings& settings, LicInputs& inputs,
                 FlicImage& picture);
// Writes a picture in the format its name asks for; with `alpha` (the picture's size), PNG gets
// it as its alpha channel. False after a report naming the file.
bool writePicture(const std::string& path, const FlicImage& picture, bool ascii,
                  const FlicImage* alpha = nullptr);

#endif
