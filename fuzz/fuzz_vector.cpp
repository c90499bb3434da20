// FlicVectorField::read on arbitrary bytes, then the whole-field operations on what was read.
// A field that was read comes back from a binary write byte-reversed (binary files are read
// big-endian and written in host order) and from an ASCII write with its size.
#include "fuzz_target.h"
#include "image.h"
#include "scalarfield.h"
#include "vectorfield.h"

namespace {

bool sameBits(const float* a, const float* b, size_t count) {
    return memcmp(a, b, count * sizeof(float)) == 0;
}

void checkRoundTrips(const FlicVectorField& field, fuzz::ScratchFile& copy) {
    size_t floats = 2 * static_cast<size_t>(field.width) * field.height;
    FUZZ_CHECK(field.write(copy.name(), 0) == 1);
    FlicVectorField binary;
    FUZZ_CHECK(binary.read(copy.name()) == 1);
    FUZZ_CHECK(binary.width == field.width && binary.height == field.height);
    swapByteOrder(static_cast<int>(floats), binary.data);
    FUZZ_CHECK(sameBits(binary.data, field.data, floats));

    FUZZ_CHECK(field.write(copy.name(), 1) == 1);
    FlicVectorField ascii;
    // Values "%g" cannot read back (nan, inf) make the ASCII read fail; its size is kept.
    ascii.read(copy.name());
    FUZZ_CHECK(ascii.width == field.width && ascii.height == field.height);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("vector"), copy("vector-copy");
    fuzz::quietMessages();
    const char* name = input.write(data, size);

    FlicVectorField field;
    if (!field.read(name)) return 0;
    FUZZ_CHECK(field.width >= 2 && field.width <= 10000);
    FUZZ_CHECK(field.height >= 2 && field.height <= 10000);
    FUZZ_CHECK(field.data != nullptr);
    if (static_cast<long long>(field.width) * field.height > 65536) return 0;

    checkRoundTrips(field, copy);
    (void)field.getMax();
    FlicScalarField lengths;
    field.magnitude(lengths, 1);
    FlicImage colours(7, 5, 1);
    field.vecToColor(colours, 0);
    FlicVectorField smaller;
    field.resample(5, 3, &smaller);
    field.normalize();
    return 0;
}
