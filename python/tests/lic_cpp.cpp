// The C++ side of the module's bit-identity test: reads a "FLIC VECTOR" file and a PNM texture,
// runs FlicCompute with the settings given as key=value arguments and writes the PNM picture.
//
//   muskeip_lic_reference FIELD TEXTURE OUTPUT [length=L] [kernel=0|1|2] [euler=0|1]
//                         [subpixels=S] [seeding=0|1|2] [interpolation=0|1] [normalization=X]
#include "compute.h"
#include "image.h"
#include "vectorfield.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: %s FIELD TEXTURE OUTPUT [key=value ...]\n", argv[0]);
        return 2;
    }
    FlicVectorField field;
    FlicImage texture, output;
    if (!field.read(argv[1]) || !texture.readPNM(argv[2])) return 1;

    FlicCompute engine;
    bool euler = false;
    float normalization = 0.0f;
    for (int i = 4; i < argc; i++) {
        std::string setting = argv[i];
        size_t equals = setting.find('=');
        if (equals == std::string::npos) {
            fprintf(stderr, "bad setting %s\n", argv[i]);
            return 2;
        }
        std::string key = setting.substr(0, equals);
        const char* value = argv[i] + equals + 1;
        if (key == "length")
            engine.setFilterLength(strtof(value, nullptr));
        else if (key == "kernel")
            engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(atoi(value)));
        else if (key == "euler")
            euler = atoi(value) != 0;
        else if (key == "subpixels")
            engine.setNumSubPixels(atoi(value));
        else if (key == "seeding")
            engine.seedingMethod = atoi(value);
        else if (key == "interpolation")
            engine.setInterpolationMethod(
                static_cast<FlicCompute::InterpolationMethod>(atoi(value)));
        else if (key == "tile")
            engine.setTileSize(atoi(value));
        else if (key == "border")
            engine.setBorders(static_cast<FlicCompute::BorderMode>(value[0] - '0'),
                              static_cast<FlicCompute::BorderMode>(value[2] - '0'));
        else if (key == "orientation")
            engine.setOrientation(atoi(value));
        else if (key == "passes")
            engine.setPasses(atoi(value));
        else if (key == "normalization")
            normalization = strtof(value, nullptr);
        else {
            fprintf(stderr, "unknown setting %s\n", key.c_str());
            return 2;
        }
    }
    if (euler) engine.useEuler();
    engine.setNormalization(normalization);
    if (!engine.compute(&field, &texture, &output)) return 1;
    return output.writePNM(argv[3]) ? 0 : 1;
}
