// The steps of `muskeip lic`: reading the inputs, the post-processing chain and the output.
#include "lic_steps.h"

#include "console.h"
#include "image_files.h"
#include "parsing.h"
#include "source_options.h"

#include "colormap.h"
#include "graphics.h"
#include "scalarfield.h"
#include "scanconvert.h"
#include "settings.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

// --- Inputs -----------------------------------------------------------------------------------

bool loadTexture(const LicOptions& o, LicSettings& s, LicInputs& in) {
    FileContext context(o.texture);
    if (!readImage(o.texture, in.texture)) return false;
    if (in.texture.width < 2 || in.texture.height < 2 ||
        (in.texture.nChannels != 1 && in.texture.nChannels != 3)) {
        failure("%s: a texture needs at least 2 x 2 pixels of grey or RGB", o.texture.c_str());
        return false;
    }
    if (s.picture.colour != FlicPicture::NO_COLOUR && in.texture.nChannels != 1) {
        failure("%s: --colour gives colour to a grey LIC picture, but this texture is RGB",
                o.texture.c_str());
        return false;
    }
    s.width = in.texture.width;
    s.height = in.texture.height;
    return true;
}

// A field's own size, enlarged to at least 512 pixels on its longer side.
void pictureSizeFor(const FlicVectorField& field, int& width, int& height) {
    width = field.width;
    height = field.height;
    int longer = width > height ? width : height;
    if (longer >= 512) return;
    double factor = 512.0 / longer;
    width = static_cast<int>(std::lround(width * factor));
    height = static_cast<int>(std::lround(height * factor));
    if (width < 2) width = 2;
    if (height < 2) height = 2;
}

bool loadField(LicSettings& s, LicInputs& in) {
    if (isBuiltIn(s.kind) && s.width == 0) s.width = s.height = 512;
    defaultGrid(s.request, s.width, s.height);
    if (!loadVectorField(s.request, s.kind, in.field)) return false;
    if (s.width == 0) pictureSizeFor(in.field, s.width, s.height);
    long long nodes = static_cast<long long>(in.field.width) * in.field.height;
    bool moving = false; // a finite non-zero vector somewhere (NaN nodes are no-data)
    for (long long k = 0; k < nodes; k++) {
        Vec2f v = in.field.vectors()[k];
        bool nan = std::isnan(v.x) || std::isnan(v.y);
        in.noData = in.noData || nan;
        moving = moving || (!nan && (v.x != 0.0f || v.y != 0.0f));
    }
    if (in.noData) note("%s: NaN nodes are no-data; lines end there", s.request.source.c_str());
    if (!moving)
        warning("%s: the field has no non-zero vector; the picture will be black",
                s.request.source.c_str());
    note("field %s (%s): %d x %d nodes; picture %d x %d pixels", s.request.source.c_str(),
         describeKind(s.kind), in.field.width, in.field.height, s.width, s.height);
    return true;
}

void makeNoise(const LicOptions& o, const LicSettings& s, LicInputs& in) {
    in.texture.setSize(s.width, s.height, 1);
    int binary = 1;
    flicSettingValue(flicNoiseNames, o.noise.c_str(), binary);
    in.texture.createRandom(binary, o.seed);
}

bool loadMask(const LicOptions& o, LicInputs& in) {
    if (o.seedmap.empty()) return true;
    if (o.mask.empty()) {
        // Without a mask the seed map shows every seed as white.
        in.mask.setSize(in.field.width, in.field.height, 1);
        in.mask.clear(255);
        return true;
    }
    FileContext context(o.mask);
    if (!readImage(o.mask, in.mask)) return false;
    if (in.mask.nChannels != 1) in.mask.colorToGrey();
    if (in.mask.width != in.field.width || in.mask.height != in.field.height) {
        failure("%s: the mask has %d x %d pixels, but the field has %d x %d nodes", o.mask.c_str(),
                in.mask.width, in.mask.height, in.field.width, in.field.height);
        return false;
    }
    return true;
}

// --- Post-processing --------------------------------------------------------------------------

// A grey picture becomes RGB before a colour that is not grey (lines, no-data) goes on it.
void makeRoomForColour(const int c[3], FlicImage& picture) {
    if (picture.nChannels != 1 || (c[0] == c[1] && c[1] == c[2])) return;
    FlicImage grey(picture);
    picture.glue(grey, grey, grey);
}

// The coverage follows the picture's zoom (half covered counts as covered); with
// --nodata-colour the pixels no line reached are painted in it.
bool applyNoData(const LicSettings& s, LicInputs& in, FlicImage& picture) {
    FlicImage& coverage = in.coverage;
    if (coverage.width != picture.width || coverage.height != picture.height) {
        if (!coverage.zoom(picture.width, picture.height)) return false;
        long long count = static_cast<long long>(coverage.width) * coverage.height;
        for (long long k = 0; k < count; k++)
            coverage.data[k] = coverage.data[k] >= 128 ? 255 : 0;
    }
    if (!s.nodataColourGiven) return true;
    const int* c = s.nodataColour;
    makeRoomForColour(c, picture);
    for (int y = 0; y < picture.height; y++)
        for (int x = 0; x < picture.width; x++) {
            if (coverage.data[static_cast<std::ptrdiff_t>(y) * coverage.bytesPerLine + x]) continue;
            unsigned char* p = picture.data +
                               static_cast<std::ptrdiff_t>(y) * picture.bytesPerLine +
                               static_cast<std::ptrdiff_t>(x) * picture.nChannels;
            for (int ch = 0; ch < picture.nChannels; ch++)
                p[ch] = static_cast<unsigned char>(c[ch]);
        }
    return true;
}

// Draws the file's lines (FlicGraphics::drawFile or drawUCD) in the line colour and width;
// nothing without a file.
bool drawLines(const std::string& path, const LicSettings& s, FlicImage& picture,
               int (FlicGraphics::*draw)(FlicImage&, const char*)) {
    if (path.empty()) return true;
    makeRoomForColour(s.lineColour, picture);
    FlicGraphics pen;
    pen.setColor(s.lineColour[0], s.lineColour[1], s.lineColour[2]);
    pen.setPixelWidth(s.lineWidth);
    FileContext context(path);
    return (pen.*draw)(picture, path.c_str()) != 0;
}

bool loadColourValues(const LicOptions& o, LicSettings& s, LicInputs& in) {
    if (o.colourBy.empty()) return true;
    FileContext context(o.colourBy);
    if (!in.colourBy.read(o.colourBy.c_str())) return false;
    if (in.colourBy.width < 1 || in.colourBy.height < 1 || !in.colourBy.data) {
        failure("%s: the scalar field holds no values", o.colourBy.c_str());
        return false;
    }
    s.picture.colourField = &in.colourBy;
    return true;
}

// The no-data pixels and the drawn lines: what follows the picture steps.
bool finishExtras(const LicOptions& o, const LicSettings& s, LicInputs& in, FlicImage& picture) {
    if (in.noData && !applyNoData(s, in, picture)) return false;
    return drawLines(o.overlay, s, picture, &FlicGraphics::drawFile) &&
           drawLines(o.mesh, s, picture, &FlicGraphics::drawUCD);
}

// The engine's limits and the memory the run needs, before the noise is made.
bool checkResources(const LicSettings& s, const FlicCompute& engine, int channels, int frames) {
    long long pixels = static_cast<long long>(s.width) * s.height;
    long long extra = pixels * channels * (frames > 1 ? frames : 0);
    if (s.picture.colour != FlicPicture::NO_COLOUR) extra += pixels * 10; // colours, values
    return engine.checkResources(s.width, s.height, channels, extra) == 1;
}

// The drawings go on after the LIC: their files are checked now, so that no error is found
// only after the work.
bool checkDrawings(const LicOptions& o) {
    if (!o.overlay.empty()) {
        FileContext context(o.overlay);
        int errors = FlicGraphics::checkFile(o.overlay.c_str());
        if (errors != 0) {
            if (errors > 0)
                failure("%s: %d error%s in the drawing commands", o.overlay.c_str(), errors,
                        errors == 1 ? "" : "s");
            return false;
        }
    }
    if (!o.mesh.empty()) {
        FileContext context(o.mesh);
        FlicUcdMesh mesh;
        if (!mesh.read(o.mesh.c_str(), "rb", 2)) return false;
    }
    return true;
}

} // namespace

bool loadInputs(const LicOptions& options, LicSettings& settings, LicInputs& inputs,
                const FlicCompute& engine, int frames) {
    if (!checkDrawings(options)) return false;
    if (!options.texture.empty() && !loadTexture(options, settings, inputs)) return false;
    if (!loadField(settings, inputs)) return false;
    int channels = options.texture.empty() ? 1 : inputs.texture.nChannels;
    if (!checkResources(settings, engine, channels, frames)) return false;
    if (options.texture.empty()) makeNoise(options, settings, inputs);
    return loadMask(options, inputs) && loadColourValues(options, settings, inputs);
}

bool renderPicture(const LicOptions& options, LicSettings& settings, LicInputs& inputs,
                   FlicCompute& engine, FlicImage& picture) {
    FlicImage* mask = inputs.mask.data ? &inputs.mask : nullptr;
    FlicImage* seedMap = options.seedmap.empty() ? nullptr : &inputs.seedMap;
    if (!settings.picture.render(engine, inputs.field, inputs.texture, picture, mask, seedMap))
        return false;
    return finishExtras(options, settings, inputs, picture);
}

bool finishFrame(const LicOptions& options, LicSettings& settings, LicInputs& inputs,
                 FlicImage& frame) {
    return settings.picture.finish(frame, inputs.field) &&
           finishExtras(options, settings, inputs, frame);
}

bool writePicture(const std::string& path, const FlicImage& picture, bool ascii,
                  const FlicImage* alpha) {
    FileContext context(path);
    return writeImage(path, picture, ascii, alpha) != 0;
}
