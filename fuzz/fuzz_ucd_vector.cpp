// FlicVectorField::readUCD on arbitrary bytes, into grids and boxes that come from a hash of the
// input (degenerate, inverted and non-finite boxes included). A failed import leaves the field
// unchanged.
#include "fuzz_target.h"
#include "vectorfield.h"

#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("ucd-vector");
    fuzz::quietMessages();
    const char* name = input.write(data, size);
    fuzz::Choices choose(fuzz::hashBytes(data, size));
    const int sizes[] = {-1, 0, 1, 2, 3, 6, 9, 16, 31, 64, 128};
    const float nan = std::nanf(""), inf = INFINITY;
    const float boxes[][4] = {{0, 1, 0, 1},
                              {-1, 1, -2, 2},
                              {1, 0, 1, 0},
                              {0, 0, 0, 1},
                              {nan, 1, 0, 1},
                              {-inf, inf, 0, 1},
                              {-1e30f, 1e30f, -1e-30f, 1e-30f},
                              {3, 3.0001f, 7, 7.5f}};

    FlicVectorField field(2, 2);
    for (int i = 0; i < 8; i++)
        field.data[i] = 1.0f;
    for (int attempt = 0; attempt < 2; attempt++) {
        int width = choose.from(sizes), height = choose.from(sizes);
        int boxChoice = choose.below(10); // 8 and 9: the box computed from the vertices
        float box[4];
        if (boxChoice < 8) memcpy(box, boxes[boxChoice], sizeof box);
        int oldWidth = field.width, oldHeight = field.height;
        float* oldData = field.data;
        int ok = boxChoice < 8 ? field.readUCD(name, width, height, box)
                               : field.readUCD(name, width, height);
        if (ok) {
            FUZZ_CHECK(field.width == width && field.height == height);
        } else {
            FUZZ_CHECK(field.width == oldWidth && field.height == oldHeight);
            FUZZ_CHECK(field.data == oldData);
        }
    }
    return 0;
}
