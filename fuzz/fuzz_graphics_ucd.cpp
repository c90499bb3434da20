// FlicGraphics::drawUCD on arbitrary bytes, into images and with pens that come from a hash of
// the input. A failed drawing leaves the image untouched; any drawing keeps its size.
#include "fuzz_target.h"
#include "graphics.h"
#include "image.h"

#include <climits>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("graphics-ucd");
    fuzz::quietMessages();
    const char* name = input.write(data, size);
    fuzz::Choices choose(fuzz::hashBytes(data, size));
    const int sizes[] = {0, 1, 2, 5, 16, 33, 101};
    const int channels[] = {1, 3, 2};
    const int widths[] = {1, 1, 2, 3, 5, 0, -1, 300, INT_MAX};

    int width = choose.from(sizes), height = choose.from(sizes);
    FlicImage image(width, height, choose.from(channels));
    image.clear(9);
    const FlicImage before(image);
    FlicGraphics pen;
    pen.setPixelWidth(choose.from(widths));
    pen.setColor(255, 0, 128);
    int drawn = pen.drawUCD(image, name);
    FUZZ_CHECK(image.width == before.width && image.height == before.height);
    FUZZ_CHECK(image.nChannels == before.nChannels);
    long bytes = static_cast<long>(image.bytesPerLine) * image.height;
    if (!drawn && bytes > 0) FUZZ_CHECK(memcmp(image.data, before.data, bytes) == 0);
    return 0;
}
