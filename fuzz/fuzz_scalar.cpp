// FlicScalarField::read on arbitrary bytes, then the operations on what was read. Binary scalar
// files are big-endian on both sides, so a field that was read comes back bit for bit.
#include "colormap.h"
#include "fuzz_target.h"
#include "image.h"
#include "scalarfield.h"
#include "vectorfield.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("scalar"), copy("scalar-copy");
    fuzz::quietMessages();
    const char* name = input.write(data, size);

    FlicScalarField field;
    if (!field.read(name)) return 0;
    FUZZ_CHECK(field.width >= 2 && field.width <= 10000);
    FUZZ_CHECK(field.height >= 2 && field.height <= 10000);
    FUZZ_CHECK(field.data != nullptr);
    if (static_cast<long long>(field.width) * field.height > 65536) return 0;

    size_t count = static_cast<size_t>(field.width) * field.height;
    FUZZ_CHECK(field.write(copy.name(), 0) == 1);
    FlicScalarField back;
    FUZZ_CHECK(back.read(copy.name()) == 1);
    FUZZ_CHECK(back.width == field.width && back.height == field.height);
    FUZZ_CHECK(memcmp(back.data, field.data, count * sizeof(float)) == 0);
    FUZZ_CHECK(field.write(copy.name(), 1) == 1);
    back.read(copy.name()); // nan and inf do not read back from "%g"

    float low, high;
    field.getRange(low, high);
    FlicColormap colours;
    colours.createHueRamp();
    colours.setMinMax(low, high);
    FlicImage picture;
    field.pseudoColor(colours, picture, 1);
    FlicImage stretched(9, 4, 1);
    field.pseudoColor(colours, stretched, 0);
    FlicVectorField gradient;
    gradient.fromScalarField(field, 0.3f);
    return 0;
}
