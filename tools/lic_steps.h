// The steps of `muskeip lic` after option parsing: inputs, post-processing, output.
#ifndef MUSKEIP_TOOLS_LIC_STEPS_H
#define MUSKEIP_TOOLS_LIC_STEPS_H

#include "commands.h"
#include "field_source.h"

#include "compute.h"
#include "image.h"
#include "picture.h"
#include "scalarfield.h"
#include "vectorfield.h"

#include <string>

// The checked values of the options of `lic`.
struct LicSettings {
    FieldRequest request;
    SourceKind kind = SOURCE_UNKNOWN_FILE;
    int width = 0, height = 0; // picture size; 0 until known
    FlicCompute::FilterKernel kernel = FlicCompute::TRIANGLE;
    bool midpoint = false;
    bool rk43Given = false;
    float rk43[4] = {4.0f, 0.5f, 15.0f, 0.001f};
    int seeding = 1;
    FlicCompute::InterpolationMethod interpolation = FlicCompute::BILINEAR;
    FlicPicture picture; // contrast, colour, emboss and zoom (the colour field in LicInputs)
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
    FlicImage mask;           // empty without --seedmap
    FlicImage seedMap;        // filled by the engine with --seedmap
    bool noData = false;      // the field has NaN nodes: lines end there
    FlicImage coverage;       // with noData: 255 where lines reached, else 0
    FlicScalarField colourBy; // --colour-by values
};

// Reads or makes the texture, the field and the mask, and settles the picture size in
// `settings`. False after a report naming the file.
// The drawing files and the engine's limits and memory needs (`frames` pictures at once) are
// checked before the texture is made.
bool loadInputs(const LicOptions& options, LicSettings& settings, LicInputs& inputs,
                const FlicCompute& engine, int frames = 1);
// Computes the picture: the engine (twice with --enhance) and the picture steps (--adjust to
// --zoom), then the no-data pixels, --overlay and --mesh. False after a report.
bool renderPicture(const LicOptions& options, LicSettings& settings, LicInputs& inputs,
                   FlicCompute& engine, FlicImage& picture);
// The picture steps, no-data, --overlay and --mesh on one computed frame. False after a report.
bool finishFrame(const LicOptions& options, LicSettings& settings, LicInputs& inputs,
                 FlicImage& frame);
// Writes a picture in the format its name asks for; with `alpha` (the picture's size), PNG gets
// it as its alpha channel. False after a report naming the file.
bool writePicture(const std::string& path, const FlicImage& picture, bool ascii,
                  const FlicImage* alpha = nullptr);

#endif
