// The three subcommands of the command line, each taking its options as parsed (option values
// not yet checked beyond their type) and returning the program's exit status.
#ifndef MUSKEIP_TOOLS_COMMANDS_H
#define MUSKEIP_TOOLS_COMMANDS_H

#include <string>

// Options naming and shaping a field source, shared by `lic` and `field`.
struct FieldSourceOptions {
    std::string source; // built-in name or file
    std::string ucd;    // "WxH": read the source as a UCD mesh onto this grid
    std::string grid;   // "WxH": grid of built-in fields and meshes
    double angle = 0.0; // degrees: 0 along iso-lines / circles, 90 along the gradient
    bool angleGiven = false;
    std::string matrix = "0.2,-1,1,0.2";
    std::string offset = "0,0";
    std::string brusselator = "4,6,1,3";
    double extent = 12.0;
    double phase = 0.0;
};

struct LicOptions {
    FieldSourceOptions field;
    std::string output;
    std::string size;
    // Engine.
    double length = 20.0;
    double extension = 80.0;
    double step = 1.0;
    std::string kernel = "triangle";
    std::string integrator = "rk43";
    std::string rk43;
    int subpixels = 1;
    std::string seeding = "pattern";
    std::string interpolation = "bilinear";
    double normalization = 0.0;
    std::string noise = "binary";
    int seed = 1;
    std::string texture;
    std::string mask;
    std::string seedmap;
    int threads = 0;                 // 0: every core
    int simdLanes = 0;               // 0: the widest the processor offers, 1: scalar
    int tile = 256;                  // 0: the serial engine
    std::string border = "periodic"; // MODE or XMODE,YMODE: periodic or closed
    bool orientation = false;
    int passes = 1;
    std::string nodataColour; // empty: transparent in PNG, black in PNM
    // Animation (`animate`).
    int frames = 32;
    int fps = 25;
    int ripples = 2;
    // Post-processing, in this order.
    bool enhance = false;
    std::string adjust = "128,40";
    std::string equalize; // empty: none; global, or adaptive[,TILES[,CLIP]]
    int blur = 0;
    bool median = false;
    std::string colour = "none";
    std::string colourBy; // a FLIC SCALAR file giving the colour
    std::string colormap; // empty: viridis, twilight for direction
    std::string blend = "multiply";
    std::string range;
    bool emboss = false;
    std::string light;
    std::string zoom;
    std::string overlay;
    std::string mesh;
    std::string lineColour = "black";
    int lineWidth = 1;
    // Output.
    bool ascii = false;
    bool progress = false;
};

struct FieldOptions {
    FieldSourceOptions field;
    std::string output;
    std::string size;
    bool ascii = false;
};

struct InfoOptions {
    std::string file;
};

int runLic(const LicOptions& options);
// `animate`: the frames of an animated LIC, each post-processed as `lic` does a picture.
int runAnimate(const LicOptions& options);
int runField(const FieldOptions& options);
int runInfo(const InfoOptions& options);

#endif
