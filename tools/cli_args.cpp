// Subcommands and options of `muskeip`, with their defaults and help texts.
#include "cli_args.h"

#include "commands.h"
#include "console.h"

#include "colormap.h"
#include "settings.h"

#include <CLI/CLI.hpp>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char* const versionText = "muskeip " MUSKEIP_VERSION;

// The names of one of the library's settings (aliases left out), for CLI11's membership check.
std::vector<std::string> namesOf(const FlicSettingTable& table) {
    std::vector<std::string> names;
    for (const FlicSettingName* entry = table.names; entry->name; entry++)
        if (!entry->alias) names.push_back(entry->name);
    return names;
}

const char* const licFooter =
    "\nFIELD is a FLIC VECTOR file, a FLIC SCALAR file or an image (PNM/PNG; the field then\n"
    "follows its iso-lines, turned by --angle), a UCD mesh, or a built-in field: circle,\n"
    "saddle, linear, brusselator, dipole (write ./circle for a file of that name).\n"
    "Post-processing runs in this order: --enhance, --adjust, --equalize, --blur, --median,\n"
    "--colour, --emboss, --zoom, --overlay, --mesh. The output format follows the\n"
    "extension: .png, .pgm, .ppm, .pnm.\n\n"
    "Examples:\n"
    "  muskeip lic dipole -o dipole.png --size 1024x1024 --colour magnitude\n"
    "  muskeip lic flow.vec -o flow.png --kernel cubic --length 30 --emboss\n"
    "  muskeip lic mesh.inp -o mesh.png --mesh mesh.inp --line-colour red\n";

// The usage line shows FIELD as the required argument it is: it is not marked required for
// CLI11 (see addLic), which would print it in brackets.
class UsageFormatter : public CLI::Formatter {
  public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string usage = CLI::Formatter::make_usage(app, name);
        size_t at = usage.find("[FIELD]");
        if (at != std::string::npos) usage.replace(at, 7, "FIELD");
        return usage;
    }
};

// The field-source options; returns the --angle option. `gridHelp` describes --grid, whose
// default differs between commands. --ucd and --grid exclude each other (and `size`, when
// given, both).
CLI::Option* addSourceOptions(CLI::App& command, FieldSourceOptions& o, const char* gridHelp,
                              CLI::Option* size = nullptr) {
    const char* group = "Field";
    CLI::Option* ucd =
        command.add_option("--ucd", o.ucd, "Read FIELD as a UCD mesh rasterised onto a WxH grid")
            ->type_name("WxH")
            ->group(group);
    CLI::Option* grid =
        command.add_option("--grid", o.grid, gridHelp)->type_name("WxH")->group(group);
    ucd->excludes(grid);
    if (size) {
        size->excludes(ucd)->excludes(grid);
        ucd->excludes(size);
        grid->excludes(size);
    }
    CLI::Option* angle;
    angle = command
                .add_option("--angle", o.angle,
                            "Turn of scalar-field, image and circle fields in degrees: 0 "
                            "along iso-lines/circles, 90 along the gradient/radii")
                ->group(group);
    command.add_option("--matrix", o.matrix, "linear: matrix a,b,c,d of (a u + b v, c u + d v)")
        ->type_name("A,B,C,D")
        ->group(group);
    command.add_option("--offset", o.offset, "linear: offset x,y added to the matrix product")
        ->type_name("X,Y")
        ->group(group);
    command.add_option("--brusselator", o.brusselator, "brusselator: XMAX,YMAX,A,B")
        ->type_name("XMAX,YMAX,A,B")
        ->group(group);
    command.add_option("--extent", o.extent, "dipole: half-width of the square shown")
        ->group(group);
    command.add_option("--phase", o.phase, "dipole: phase of the wave in cycles")->group(group);
    return angle;
}

const char* kPictureGridHelp =
    "Grid of built-in fields and meshes, WxH (default: the picture size, at most 1024 each way)";

void addEngineOptions(CLI::App& lic, LicOptions& o) {
    const char* group = "LIC engine";
    auto* size = lic.add_option("--size", o.size,
                                "Picture size WxH (default: 512x512 for built-in fields, "
                                "else the field's size, at least 512 on its longer side)")
                     ->type_name("WxH")
                     ->group(group);
    lic.add_option("--length", o.length, "Filter half-length in pixels")->group(group);
    lic.add_option("--kernel", o.kernel, "Filter kernel")
        ->check(CLI::IsMember(namesOf(flicKernelNames)))
        ->group(group);
    lic.add_option("--integrator", o.integrator, "Field-line integrator")
        ->check(CLI::IsMember(namesOf(flicIntegratorNames)))
        ->group(group);
    lic.add_option("--rk43", o.rk43,
                   "RK43 steps and tolerance INITIAL,MIN,MAX,TOLERANCE "
                   "(default 4,0.5,15,0.001)")
        ->type_name("I,MIN,MAX,TOL")
        ->group(group);
    lic.add_option("--subpixels", o.subpixels, "Sub-pixel cells per pixel side")
        ->check(CLI::Range(1, 16))
        ->group(group);
    lic.add_option("--seeding", o.seeding, "Seeding order")
        ->check(CLI::IsMember(namesOf(flicSeedingNames)))
        ->group(group);
    lic.add_option("--threads", o.threads, "Threads of the tiled engine (0: every core)")
        ->check(CLI::Range(0, 1024))
        ->group(group);
    lic.add_option("--simd-lanes", o.simdLanes,
                   "Tiles one thread traces at once, one per SIMD lane (0: the widest the "
                   "processor offers, 1: the scalar tracer; -v reports the choice)")
        ->check(CLI::Range(0, 1024))
        ->group(group);
    lic.add_option("--tile", o.tile,
                   "Tile size in pixels of the parallel engine; 0 runs the serial engine "
                   "(one thread)")
        ->check(CLI::Range(0, 1 << 20))
        ->group(group);
    lic.add_option("--border", o.border,
                   "What lines do at the field's edges: periodic (go on, wrapped) or closed "
                   "(end there); one mode, or X,Y for each axis")
        ->type_name("MODE[,MODE]")
        ->group(group);
    lic.add_flag("--orientation", o.orientation,
                 "An orientation field: the sign of the vectors is ignored")
        ->group(group);
    lic.add_option("--passes", o.passes, "Feed the picture back as texture this many times")
        ->check(CLI::Range(1, 16))
        ->group(group);
    lic.add_option("--nodata-colour,--nodata-color", o.nodataColour,
                   "Colour of pixels no line reaches in a field with NaN (no-data) nodes "
                   "(default: transparent in PNG, black in PNM)")
        ->type_name("R,G,B")
        ->group(group);
    lic.add_option("--interpolation", o.interpolation, "Texture lookup")
        ->check(CLI::IsMember(namesOf(flicInterpolationNames)))
        ->group(group);
    lic.add_option("--normalization", o.normalization,
                   "Speed below which vectors are not scaled up to unit length")
        ->group(group);
    lic.add_option("--extension", o.extension, "Line extension beyond the kernel, pixels")
        ->group(group);
    lic.add_option("--step", o.step, "Step between points on a line, pixels")->group(group);
    auto* noise = lic.add_option("--noise", o.noise, "Input noise")
                      ->check(CLI::IsMember(namesOf(flicNoiseNames)))
                      ->group(group);
    auto* seed =
        lic.add_option("--seed", o.seed, "Noise seed")->check(CLI::Range(1, INT_MAX))->group(group);
    auto* texture = lic.add_option("--texture", o.texture,
                                   "Input texture (PNM/PNG, grey or RGB) instead of noise; it "
                                   "sets the picture size")
                        ->type_name("FILE")
                        ->group(group);
    texture->excludes(size)->excludes(noise)->excludes(seed);
    lic.add_option("--mask", o.mask,
                   "Grey image of the field's size whose value at each seed "
                   "the seed map records")
        ->type_name("FILE")
        ->group(group);
    lic.add_option("--seedmap", o.seedmap,
                   "Write the seed map here (1 where no line was "
                   "seeded; else the mask, default 255)")
        ->type_name("FILE")
        ->group(group);
}

// Options whose value may be left out; after parsing, given alone means their default mode.
struct OptionalValues {
    CLI::Option* emboss = nullptr;
    CLI::Option* equalize = nullptr;
};

void addPostOptions(CLI::App& lic, LicOptions& o, OptionalValues& optional) {
    const char* group = "Post-processing (in this order)";
    lic.add_flag("--enhance", o.enhance,
                 "Sharper streaks: LIC of the high-passed LIC, then a percentile stretch")
        ->group(group);
    lic.add_option("--adjust", o.adjust, "Contrast: MEAN,SDEV of the non-black pixels, or none")
        ->type_name("MEAN,SDEV")
        ->group(group);
    optional.equalize =
        lic.add_option("--equalize,--equalise", o.equalize,
                       "Histogram equalisation: global (write --equalize alone), or "
                       "adaptive[,TILES[,CLIP]] (contrast-limited, default 8 tiles, clip 2)")
            ->type_name("MODE")
            ->expected(0, 1)
            ->group(group);
    lic.add_option("--blur", o.blur, "Gaussian blur of N half-taps (0 none)")
        ->check(CLI::Range(0, 9))
        ->group(group);
    lic.add_flag("--median", o.median, "3x3 median filter")->group(group);
    lic.add_option("--colour,--color", o.colour,
                   "Colour the picture by the field's magnitude or direction")
        ->check(CLI::IsMember(namesOf(flicColourNames)))
        ->group(group);
    lic.add_option("--colour-by,--color-by", o.colourBy,
                   "Colour the picture by the values of a FLIC SCALAR file")
        ->type_name("FILE")
        ->group(group);
    lic.add_option("--colormap", o.colormap,
                   std::string("Colour map: ") + FlicColormap::presetNames() +
                       ", or an .icol file (default viridis; twilight for direction)")
        ->type_name("MAP")
        ->group(group);
    lic.add_option("--blend", o.blend,
                   "How colour and LIC combine: multiply (colour times LIC), lightness (LIC as "
                   "HSL lightness) or overlay")
        ->check(CLI::IsMember(namesOf(flicBlendNames)))
        ->group(group);
    lic.add_option("--range", o.range,
                   "Values MIN,MAX spanned by the colour map "
                   "(default: 1st to 99th percentile; -180,180 degrees for direction)")
        ->type_name("MIN,MAX")
        ->group(group);
    optional.emboss =
        lic.add_option("--emboss", o.light,
                       "Relief shading; lit along the field, or from AZ,EL[,STEEPNESS] "
                       "in degrees (write --emboss=AZ,EL)")
            ->type_name("AZ,EL")
            ->expected(0, 1)
            ->group(group);
    lic.add_option("--zoom", o.zoom, "Resample the picture to WxH")->type_name("WxH")->group(group);
    lic.add_option("--overlay", o.overlay, "Draw a FLIC GRAPHICS command file")
        ->type_name("FILE")
        ->group(group);
    lic.add_option("--mesh", o.mesh, "Draw the edges of a UCD mesh")
        ->type_name("FILE")
        ->group(group);
    lic.add_option("--line-colour,--line-color", o.lineColour,
                   "Colour of --overlay and --mesh lines: R,G,B or a name")
        ->type_name("COLOUR")
        ->group(group);
    lic.add_option("--line-width", o.lineWidth, "Width of --overlay and --mesh lines")
        ->check(CLI::Range(1, 100))
        ->group(group);
}

struct Parsed {
    LicOptions lic;
    LicOptions animate;
    FieldOptions field;
    InfoOptions info;
    CLI::Option* licAngle = nullptr;
    CLI::Option* animateAngle = nullptr;
    OptionalValues licOptional, animateOptional;
    CLI::Option* fieldAngle = nullptr;
};

CLI::App* addLic(CLI::App& app, Parsed& p) {
    CLI::App* lic = app.add_subcommand("lic", "Compute a LIC picture of a field");
    lic->footer(licFooter);
    // Not marked required: a FIELD taken by a value-less --emboss is given back after parsing.
    lic->add_option("FIELD", p.lic.field.source, "Field file or built-in field name (required)");
    lic->add_option("-o,--output", p.lic.output, "Picture to write (.png, .pgm, .ppm, .pnm)")
        ->type_name("FILE")
        ->required();
    lic->add_flag("--ascii", p.lic.ascii, "Write PNM files as text (P2/P3)");
    lic->add_flag("--progress", p.lic.progress,
                  "Always show the progress bar (default: on a terminal, above 2 Mpixel)");
    p.licAngle = addSourceOptions(*lic, p.lic.field, kPictureGridHelp);
    addEngineOptions(*lic, p.lic);
    addPostOptions(*lic, p.lic, p.licOptional);
    return lic;
}

CLI::App* addAnimate(CLI::App& app, Parsed& p) {
    CLI::App* animate = app.add_subcommand(
        "animate", "An animated LIC: the texture flows along the field in a seamless loop");
    animate->footer("\nOUT: .webp (animated WebP), .gif, a folder (frame0000.png, ...) or a\n"
                    "pattern such as frames/%04d.png. All frames come from one trace of the\n"
                    "lines; each is post-processed as `lic` does a picture.\n");
    animate->add_option("FIELD", p.animate.field.source,
                        "Field file or built-in field name (required)");
    animate
        ->add_option("-o,--output", p.animate.output,
                     "Animation to write (.webp, .gif, folder or %04d.png pattern)")
        ->type_name("OUT")
        ->required();
    animate->add_option("--frames", p.animate.frames, "Frames of the loop")
        ->check(CLI::Range(1, 1024));
    animate->add_option("--fps", p.animate.fps, "Frames per second")->check(CLI::Range(1, 100));
    animate
        ->add_option("--ripples", p.animate.ripples,
                     "Ripples of the moving kernel along its length (0: a still box kernel)")
        ->check(CLI::Range(0, 64));
    animate->add_flag("--progress", p.animate.progress, "Always show the progress bar");
    p.animateAngle = addSourceOptions(*animate, p.animate.field, kPictureGridHelp);
    addEngineOptions(*animate, p.animate);
    addPostOptions(*animate, p.animate, p.animateOptional);
    return animate;
}

CLI::App* addField(CLI::App& app, Parsed& p) {
    CLI::App* field = app.add_subcommand(
        "field", "Generate a built-in field or convert a field source into a FLIC VECTOR or "
                 "FLIC SCALAR file");
    field->footer("\nScalar sources (FLIC SCALAR, dipole, UCD meshes with one value per vertex)\n"
                  "give FLIC SCALAR files unless --angle asks for their turned gradient; all\n"
                  "others give FLIC VECTOR files. Binary data is written big-endian.\n");
    field->add_option("SOURCE", p.field.field.source, "Built-in field name or field file")
        ->required();
    field->add_option("-o,--output", p.field.output, "FLIC file to write")
        ->type_name("FILE")
        ->required();
    CLI::Option* size =
        field
            ->add_option("--size", p.field.size,
                         "Grid WxH of built-in fields and UCD meshes (default 512x512)")
            ->type_name("WxH");
    field->add_flag("--ascii", p.field.ascii, "Write ASCII instead of binary data");
    p.fieldAngle = addSourceOptions(
        *field, p.field.field, "Grid WxH of built-in fields and meshes (the same as --size)", size);
    return field;
}

CLI::App* addInfo(CLI::App& app, Parsed& p) {
    CLI::App* info = app.add_subcommand(
        "info", "Tell what a PNM/PNG image, FLIC VECTOR/SCALAR/GRAPHICS file, UCD mesh, numpy "
                "field (.npy/.npz) or colour map (.icol) holds");
    info->add_option("FILE", p.info.file, "File to describe")->required();
    return info;
}

// CLI11's reports in the program's own form.
std::string usageMessage(const CLI::App*, const CLI::Error& error) {
    return std::string("muskeip: usage: ") + error.what() +
           "\nRun with --help for more information.\n";
}

// `--emboss FIELD` and `--equalize FIELD` (the default mode, then the field) read FIELD as
// their value; such a value that cannot be theirs is the field. An --equalize given alone is
// global. False when there is no field at all.
bool settleOptionalValues(LicOptions& o, const OptionalValues& optional) {
    o.emboss = optional.emboss->count() > 0;
    bool equalize = optional.equalize->count() > 0;
    if (o.field.source.empty() && o.emboss && !o.light.empty() &&
        !strchr("0123456789+-.", o.light[0])) {
        o.field.source = o.light;
        o.light.clear();
    }
    if (o.field.source.empty() && equalize && !o.equalize.empty() &&
        o.equalize.compare(0, 6, "global") != 0 && o.equalize.compare(0, 8, "adaptive") != 0) {
        o.field.source = o.equalize;
        o.equalize.clear();
    }
    if (equalize && o.equalize.empty()) o.equalize = "global";
    return !o.field.source.empty();
}

// The first word that is not an option must name a subcommand (the program's own options are
// all flags, so no option value can stand before it).
bool unknownSubcommand(int argc, char** argv) {
    for (int i = 1; i < argc; i++) {
        std::string word = argv[i];
        if (!word.empty() && word[0] == '-') continue;
        if (word == "lic" || word == "animate" || word == "field" || word == "info") return false;
        usageError("unknown subcommand '%s' (use lic, animate, field or info)", word.c_str());
        return true;
    }
    return false;
}

} // namespace

int runCommandLine(int argc, char** argv) {
    if (unknownSubcommand(argc, argv)) return EXIT_USAGE;
    CLI::App app{"muskeip: pictures of planar vector fields by Fast Line Integral Convolution",
                 "muskeip"};
    app.option_defaults()->always_capture_default();
    app.failure_message(usageMessage);
    app.formatter(std::make_shared<UsageFormatter>());
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", versionText);
    bool verbose = false, quiet = false;
    auto* v = app.add_flag("-v,--verbose", verbose,
                           "Report the engine's parameters, line count, hits per pixel and time");
    app.add_flag("-q,--quiet", quiet, "Report nothing but errors")->excludes(v);
    Parsed p;
    CLI::App* lic = addLic(app, p);
    CLI::App* animate = addAnimate(app, p);
    CLI::App* field = addField(app, p);
    CLI::App* info = addInfo(app, p);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        int status = app.exit(error);
        return status == 0 ? EXIT_OK : EXIT_USAGE;
    }
    consoleSetup(verbose, quiet);
    if (lic->parsed()) {
        p.lic.field.angleGiven = p.licAngle->count() > 0;
        if (!settleOptionalValues(p.lic, p.licOptional)) return usageError("FIELD is required");
        return runLic(p.lic);
    }
    if (animate->parsed()) {
        p.animate.field.angleGiven = p.animateAngle->count() > 0;
        if (!settleOptionalValues(p.animate, p.animateOptional))
            return usageError("FIELD is required");
        return runAnimate(p.animate);
    }
    if (field->parsed()) {
        p.field.field.angleGiven = p.fieldAngle->count() > 0;
        return runField(p.field);
    }
    if (info->parsed()) return runInfo(p.info);
    return EXIT_USAGE;
}
