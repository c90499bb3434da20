// FlicColormap::readIcol on arbitrary bytes; the map, read or partly overwritten, is then
// looked up, transformed, written and read back.
#include "colormap.h"
#include "fuzz_target.h"

namespace {

bool componentsPrintApart(const FlicColormap& map) {
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 3; c++) {
            float v = map.colors[i][c] * 255;
            if (!(v > -100.0f && v < 1000.0f)) return false;
        }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("icol"), copy("icol-copy");
    fuzz::quietMessages();
    const char* name = input.write(data, size);

    FlicColormap map;
    int read = map.readIcol(name);
    const float probes[] = {-1.0f, 0.0f, 0.25f, 0.5f, 0.999f, 1.0f, 7.0f, __builtin_nanf("")};
    float rgb[3];
    for (float t : probes)
        map.getColor1(t, rgb);
    if (!read) return 0;

    FUZZ_CHECK(map.writeIcol(copy.name()) == 1);
    FlicColormap back;
    int readBack = back.readIcol(copy.name());
    // The "%4d" columns stay apart only while every component has at most three digits.
    if (componentsPrintApart(map)) FUZZ_CHECK(readBack == 1);
    FlicColormap changed;
    map.multiply(2.0f, &changed);
    map.flip(&changed);
    map.gamma(0.5f, &changed);
    return 0;
}
