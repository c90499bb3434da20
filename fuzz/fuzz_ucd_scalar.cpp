// FlicScalarField::readUCD on arbitrary bytes, into grids whose size comes from a hash of the
// input (degenerate and negative sizes included). A failed import leaves the field unchanged.
#include "fuzz_target.h"
#include "scalarfield.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("ucd-scalar");
    fuzz::quietMessages();
    const char* name = input.write(data, size);
    fuzz::Choices choose(fuzz::hashBytes(data, size));
    const int sizes[] = {-3, 0, 1, 2, 3, 5, 8, 17, 32, 64, 100, 150};

    FlicScalarField field(2, 2);
    field.data[0] = field.data[1] = field.data[2] = field.data[3] = 0.5f;
    for (int attempt = 0; attempt < 2; attempt++) {
        int width = choose.from(sizes), height = choose.from(sizes);
        int oldWidth = field.width, oldHeight = field.height;
        float* oldData = field.data;
        if (field.readUCD(name, width, height)) {
            FUZZ_CHECK(field.width == width && field.height == height);
            FUZZ_CHECK(field.data != nullptr || static_cast<long long>(width) * height == 0);
        } else {
            FUZZ_CHECK(field.width == oldWidth && field.height == oldHeight);
            FUZZ_CHECK(field.data == oldData);
        }
    }
    return 0;
}
