// `muskeip lic`: a LIC picture of a field, post-processed in a fixed order and written as PNG
// or PNM.
//
// Order of work: read or generate the field; make the input texture (noise, or --texture);
// compute the LIC image (twice with --enhance); then --adjust, --equalize, --blur, --median,
// --colour, --emboss, --zoom (the library's picture steps), the no-data pixels, --overlay,
// --mesh; write the picture (and the seed map).
#include "animation_files.h"
#include "commands.h"
#include "console.h"
#include "image_files.h"
#include "lic_steps.h"
#include "parsing.h"
#include "source_options.h"

#include "compute.h"
#include "image.h"
#include "messages.h"
#include "settings.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <vector>

namespace {

// The value of a setting's name that the option's check has already accepted.
template <class Value>
Value settingValue(const FlicSettingTable& table, const std::string& name) {
    int value = 0;
    flicSettingValue(table, name.c_str(), value);
    return static_cast<Value>(value);
}

// Pictures larger than this show a progress bar when standard error is a terminal.
const long long progressPixels = 2000000;

int parseEngine(const LicOptions& o, LicSettings& s) {
    if (!(o.length >= 0.0 && o.length <= 10000.0))
        return usageError("--length expects 0 to 10000 pixels, got %g", o.length);
    if (!(o.extension >= 0.0 && o.extension <= 100000.0))
        return usageError("--extension expects 0 to 100000 pixels, got %g", o.extension);
    if (!(o.step >= 0.01 && o.step <= 1000.0))
        return usageError("--step expects 0.01 to 1000 pixels, got %g", o.step);
    if (!(o.normalization >= 0.0 && o.normalization <= 1.0e30))
        return usageError("--normalization expects a number of 0 or more, got %g", o.normalization);
    s.kernel = settingValue<FlicCompute::FilterKernel>(flicKernelNames, o.kernel);
    s.midpoint = settingValue<int>(flicIntegratorNames, o.integrator) == 1;
    s.rk43Given = !o.rk43.empty();
    if (s.rk43Given && s.midpoint)
        return usageError("--rk43 sets the rk43 integrator; it cannot go with --integrator "
                          "midpoint");
    if (s.rk43Given &&
        (!parseNumbers(o.rk43, 4, s.rk43) ||
         !(s.rk43[0] > 0.0f && s.rk43[1] > 0.0f && s.rk43[2] >= s.rk43[1] && s.rk43[3] > 0.0f)))
        return usageError("--rk43 expects INITIAL,MIN,MAX,TOLERANCE, all above 0 and MAX >= "
                          "MIN, got '%s'",
                          o.rk43.c_str());
    s.seeding = settingValue<int>(flicSeedingNames, o.seeding);
    s.interpolation =
        settingValue<FlicCompute::InterpolationMethod>(flicInterpolationNames, o.interpolation);
    size_t comma = o.border.find(',');
    std::string modes[2] = {o.border.substr(0, comma), comma == std::string::npos
                                                           ? o.border.substr(0, comma)
                                                           : o.border.substr(comma + 1)};
    for (int axis = 0; axis < 2; axis++) {
        int mode = 0;
        if (!flicSettingValue(flicBorderNames, modes[axis].c_str(), mode)) {
            char names[64];
            return usageError("--border expects one of %s, or X,Y of them, got '%s'",
                              flicSettingNames(flicBorderNames, names, sizeof names),
                              o.border.c_str());
        }
        s.border[axis] = static_cast<FlicCompute::BorderMode>(mode);
    }
    if (o.tile != 0 && o.tile < 8)
        return usageError("--tile expects 0 (the serial engine) or at least 8 pixels, got %d",
                          o.tile);
    return EXIT_OK;
}

int parseOutputs(const LicOptions& o, LicSettings& s, bool animate) {
    if (animate && animationFormatFor(o.output) == ANIMATION_UNKNOWN)
        return usageError("cannot tell the animation format of '%s' (use .webp, .gif, a folder "
                          "or a pattern such as frame%%04d.png)",
                          o.output.c_str());
    if (!animate && imageFormatFor(o.output) == FORMAT_UNKNOWN)
        return usageError("cannot tell the image format of '%s' (use .png, .pgm, .ppm or "
                          ".pnm)",
                          o.output.c_str());
    if (!o.seedmap.empty() && imageFormatFor(o.seedmap) == FORMAT_UNKNOWN)
        return usageError("cannot tell the image format of '%s' (use .png, .pgm, .ppm or "
                          ".pnm)",
                          o.seedmap.c_str());
    if (o.ascii && (animate || imageFormatFor(o.output) == FORMAT_PNG) &&
        (o.seedmap.empty() || imageFormatFor(o.seedmap) == FORMAT_PNG))
        return usageError("--ascii applies to PNM files (.pgm, .ppm, .pnm) only");
    if (!o.size.empty() && !parseSize(o.size, s.width, s.height))
        return usageError("--size expects WxH with 1 to %d pixels each way, got '%s'",
                          maxPictureSide, o.size.c_str());
    if (!o.size.empty() && (s.width < 2 || s.height < 2))
        return usageError("--size needs at least 2 x 2 pixels, got '%s'", o.size.c_str());
    if (!o.zoom.empty() && !parseSize(o.zoom, s.picture.zoomWidth, s.picture.zoomHeight))
        return usageError("--zoom expects WxH with 1 to %d pixels each way, got '%s'",
                          maxPictureSide, o.zoom.c_str());
    return EXIT_OK;
}

int parseEqualize(const std::string& text, FlicPicture& p) {
    if (text.empty()) return EXIT_OK;
    float numbers[3] = {0.0f, 8.0f, 2.0f};
    int count = 0;
    if (text == "global") {
        p.equalize = FlicPicture::EQUALIZE_GLOBAL;
        return EXIT_OK;
    }
    bool adaptive = text.compare(0, 8, "adaptive") == 0;
    if (adaptive && text.size() > 8 && text[8] == ',')
        adaptive = parseNumberList("0" + text.substr(8), 2, 3, numbers, count) &&
                   numbers[1] >= 2.0f && numbers[1] <= 64.0f &&
                   numbers[1] == std::floor(numbers[1]) && numbers[2] >= 1.0f &&
                   numbers[2] <= 256.0f;
    else if (adaptive)
        adaptive = text.size() == 8;
    if (!adaptive)
        return usageError("--equalize expects global or adaptive[,TILES[,CLIP]] (TILES 2 to 64, "
                          "CLIP 1 to 256), got '%s'",
                          text.c_str());
    p.equalize = FlicPicture::EQUALIZE_ADAPTIVE;
    p.equalizeTiles = static_cast<int>(numbers[1]);
    p.equalizeClip = numbers[2];
    return EXIT_OK;
}

int parseColouring(const LicOptions& o, FlicPicture& p) {
    p.colour = settingValue<FlicPicture::ColourSource>(flicColourNames, o.colour);
    if (!o.colourBy.empty() && p.colour != FlicPicture::NO_COLOUR)
        return usageError("--colour-by gives the colour from a file; it cannot go with --colour %s",
                          o.colour.c_str());
    if (!o.colourBy.empty()) p.colour = FlicPicture::SCALAR;
    if (p.colour == FlicPicture::NO_COLOUR && !o.colormap.empty())
        return usageError("--colormap needs --colour or --colour-by");
    if (p.colour == FlicPicture::NO_COLOUR && !o.range.empty())
        return usageError("--range needs --colour or --colour-by");
    p.blend = settingValue<FlicPicture::BlendMode>(flicBlendNames, o.blend);
    p.rangeGiven = !o.range.empty();
    if (p.rangeGiven && (!parseNumbers(o.range, 2, p.range) || !(p.range[1] > p.range[0])))
        return usageError("--range expects MIN,MAX with MAX above MIN, got '%s'", o.range.c_str());
    if (p.rangeGiven && p.colour == FlicPicture::DIRECTION) { // degrees for the user
        p.range[0] *= 3.14159265358979323846f / 180.0f;
        p.range[1] *= 3.14159265358979323846f / 180.0f;
    }
    if (!o.colormap.empty()) {
        FileContext context(o.colormap);
        if (!p.setColormap(o.colormap.c_str())) return EXIT_FAILED;
    }
    return EXIT_OK;
}

int parsePostProcessing(const LicOptions& o, LicSettings& s, bool animate) {
    FlicPicture& p = s.picture;
    p.adjust = o.adjust != "none";
    float adjust[2];
    if (p.adjust && (!parseNumbers(o.adjust, 2, adjust) || !(adjust[1] > 0.0f)))
        return usageError("--adjust expects MEAN,SDEV (SDEV above 0) or none, got '%s'",
                          o.adjust.c_str());
    p.adjustMean = adjust[0];
    p.adjustSdev = adjust[1];
    if (o.enhance && animate) return usageError("--enhance applies to still pictures");
    p.enhance = o.enhance;
    int status = parseEqualize(o.equalize, p);
    if (status == EXIT_OK) status = parseColouring(o, p);
    if (status != EXIT_OK) return status;
    p.emboss = !o.emboss         ? FlicPicture::NO_EMBOSS
               : o.light.empty() ? FlicPicture::EMBOSS_FIELD
                                 : FlicPicture::EMBOSS_LIGHT;
    int count = 0;
    if (p.emboss == FlicPicture::EMBOSS_LIGHT) {
        if (!parseNumberList(o.light, 2, 3, p.light, count) ||
            (count == 3 && !(p.light[2] >= 1.0f && p.light[2] <= 1530.0f &&
                             p.light[2] == std::floor(p.light[2]))))
            return usageError("--emboss expects AZIMUTH,ELEVATION[,STEEPNESS] in degrees "
                              "(steepness a whole number 1 to 1530), got '%s'",
                              o.light.c_str());
        if (count == 2) p.light[2] = 3.0f;
    }
    p.blur = o.blur;
    p.median = o.median;
    s.nodataColourGiven = !o.nodataColour.empty();
    if (s.nodataColourGiven && !parseColour(o.nodataColour, s.nodataColour))
        return usageError("--nodata-colour expects R,G,B (0 to 255) or a colour name, got '%s'",
                          o.nodataColour.c_str());
    if (!parseColour(o.lineColour, s.lineColour))
        return usageError("--line-colour expects R,G,B (0 to 255) or a colour name, got '%s'",
                          o.lineColour.c_str());
    s.lineWidth = o.lineWidth;
    return EXIT_OK;
}

int parseSettings(const LicOptions& o, LicSettings& s, bool animate) {
    int status = buildFieldRequest(o.field, s.request, s.kind);
    if (status == EXIT_OK) status = parseEngine(o, s);
    if (status == EXIT_OK) status = parseOutputs(o, s, animate);
    if (status == EXIT_OK && animate && o.passes != 1)
        return usageError("--passes applies to still pictures, not to animations");
    if (status == EXIT_OK) status = parsePostProcessing(o, s, animate);
    if (status == EXIT_OK && !o.mask.empty() && o.seedmap.empty())
        return usageError("--mask only fills the seed map; give --seedmap FILE as well");
    return status;
}

void configureEngine(const LicOptions& o, const LicSettings& s, FlicCompute& engine) {
    engine.setFilterLength(static_cast<float>(o.length));
    engine.extensionLength = static_cast<float>(o.extension);
    engine.stepLength = static_cast<float>(o.step);
    engine.setFilterKernel(s.kernel);
    if (s.midpoint) engine.useEuler();
    if (s.rk43Given) engine.useRK43(s.rk43[0], s.rk43[1], s.rk43[2], s.rk43[3]);
    engine.setNumSubPixels(o.subpixels);
    engine.seedingMethod = s.seeding;
    engine.setInterpolationMethod(s.interpolation);
    engine.setNormalization(static_cast<float>(o.normalization));
    engine.setTileSize(o.tile);
    engine.setNumThreads(o.threads);
    engine.setSimdLanes(o.simdLanes);
    engine.setBorders(s.border[0], s.border[1]);
    engine.setOrientation(o.orientation ? 1 : 0);
    engine.setPasses(o.passes);
}

// Under -v: which engine ran.
void reportEngine(const LicOptions& o, const LicSettings& s, const FlicCompute& engine) {
    if (o.tile == 0) {
        note("serial engine (one thread)");
        return;
    }
    int tilesX, tilesY;
    engine.tileGrid(s.width, s.height, tilesX, tilesY);
    int threads = o.threads ? o.threads : static_cast<int>(std::thread::hardware_concurrency());
    threads = std::max(1, std::min(threads, tilesX * tilesY));
    note("tiled engine: %d x %d tiles of %d pixels on %d thread%s", tilesX, tilesY, o.tile, threads,
         threads == 1 ? "" : "s");
}

bool showProgress(const LicOptions& o, const LicSettings& s) {
    if (consoleQuiet()) return false;
    if (o.progress) return true;
    return static_cast<long long>(s.width) * s.height > progressPixels && stderrIsTerminal();
}

bool computeLic(const LicOptions& o, LicSettings& s, LicInputs& in, FlicImage& picture,
                ProgressBar& bar) {
    FlicCompute engine;
    configureEngine(o, s, engine);
    if (in.noData) { // lines end at the NaN nodes; what no line reaches is no-data
        engine.setNoData(1);
        engine.setCoverageImage(&in.coverage);
    }
    if (showProgress(o, s)) engine.setProgressCallback(ProgressBar::update, &bar);
    bool made = renderPicture(o, s, in, engine, picture);
    if (made) reportEngine(o, s, engine);
    if (!made) failure("the picture could not be made");
    return made;
}

// The frames of the animation, each post-processed.
bool computeFrames(const LicOptions& o, LicSettings& s, LicInputs& in,
                   std::vector<FlicImage>& frames) {
    FlicCompute engine;
    configureEngine(o, s, engine);
    engine.setAnimationRipples(o.ripples);
    if (in.noData) {
        engine.setNoData(1);
        engine.setCoverageImage(&in.coverage);
    }
    ProgressBar bar("muskeip: computing frames");
    if (showProgress(o, s)) engine.setProgressCallback(ProgressBar::update, &bar);
    frames.resize(o.frames);
    int computed = engine.computeFrames(&in.field, &in.texture, o.frames, frames.data(),
                                        in.mask.data ? &in.mask : nullptr,
                                        o.seedmap.empty() ? nullptr : &in.seedMap);
    bar.finish();
    if (!computed) {
        failure("the LIC computation failed");
        return false;
    }
    reportEngine(o, s, engine);
    for (FlicImage& frame : frames)
        if (!finishFrame(o, s, in, frame)) return false;
    return true;
}

} // namespace

int runAnimate(const LicOptions& options) {
    LicSettings settings;
    int status = parseSettings(options, settings, true);
    if (status != EXIT_OK) return status;
    if (animationFormatFor(options.output) != ANIMATION_FRAMES && !checkWritable(options.output))
        return EXIT_FAILED;
    LicInputs inputs;
    FlicCompute limits; // the engine's settings, for the checks before the work
    configureEngine(options, settings, limits);
    if (!loadInputs(options, settings, inputs, limits, options.frames)) return EXIT_FAILED;
    std::vector<FlicImage> frames;
    if (!computeFrames(options, settings, inputs, frames)) return EXIT_FAILED;
    FileContext context(options.output);
    if (!writeAnimation(options.output, frames, options.fps)) return EXIT_FAILED;
    if (!options.seedmap.empty() && !writePicture(options.seedmap, inputs.seedMap, options.ascii))
        return EXIT_FAILED;
    return EXIT_OK;
}

int runLic(const LicOptions& options) {
    LicSettings settings;
    int status = parseSettings(options, settings, false);
    if (status != EXIT_OK) return status;
    if (!checkWritable(options.output) ||
        (!options.seedmap.empty() && !checkWritable(options.seedmap)))
        return EXIT_FAILED;
    LicInputs inputs;
    FlicCompute limits; // the engine's settings, for the checks before the work
    configureEngine(options, settings, limits);
    if (!loadInputs(options, settings, inputs, limits)) return EXIT_FAILED;
    FlicImage picture;
    ProgressBar bar("muskeip: computing", settings.picture.enhance ? 2 : 1);
    if (!computeLic(options, settings, inputs, picture, bar)) return EXIT_FAILED;
    const FlicImage* alpha =
        inputs.noData && !settings.nodataColourGiven ? &inputs.coverage : nullptr;
    bar.stage("muskeip: writing", 0.95f);
    if (!writePicture(options.output, picture, options.ascii, alpha)) return EXIT_FAILED;
    bar.stage("muskeip: done", 1.0f);
    bar.finish();
    if (!options.seedmap.empty() && !writePicture(options.seedmap, inputs.seedMap, options.ascii))
        return EXIT_FAILED;
    return EXIT_OK;
}
