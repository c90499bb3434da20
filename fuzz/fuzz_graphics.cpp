// FlicGraphics::drawFile on arbitrary bytes. The image (owned, or wrapping caller rows with a
// gap after each row) and the pen come from a hash of the input. Whatever is drawn, the image
// keeps its size, and a colour command may only make it RGB.
#include "fuzz_target.h"
#include "graphics.h"
#include "image.h"

#include <climits>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("graphics");
    fuzz::quietMessages();
    const char* name = input.write(data, size);
    fuzz::Choices choose(fuzz::hashBytes(data, size));
    const int sizes[] = {0, 1, 2, 3, 10, 33, 64};
    const int channels[] = {1, 1, 3, 3, 2, 4};
    const int widths[] = {1, 1, 1, 2, 3, 4, 7, 0, -2, 40, 1000, INT_MAX};

    int width = choose.from(sizes), height = choose.from(sizes), nChannels = choose.from(channels);
    int gap = choose.below(3) == 0 ? 1 + choose.below(5) : -1; // -1: an image of its own
    std::vector<unsigned char> rows;
    FlicImage image;
    if (gap < 0) {
        image.setSize(width, height, nChannels);
        image.clear(0);
    } else {
        int bytesPerLine = width * nChannels + gap;
        rows.assign(static_cast<size_t>(bytesPerLine) * height + 1, 0);
        FlicImage wrapped(width, height, nChannels, bytesPerLine, rows.data());
        image = wrapped; // the drawing works on a copy; the wrapping form is tried below
        FlicGraphics pen;
        pen.setPixelWidth(choose.from(widths));
        pen.setColor(200, 100, 50);
        pen.drawFile(wrapped, name);
        FUZZ_CHECK(wrapped.width == width && wrapped.height == height);
    }

    FlicGraphics pen;
    pen.setPixelWidth(choose.from(widths));
    pen.setColor(choose.below(300), choose.below(300), choose.below(300));
    pen.drawFile(image, name);
    FUZZ_CHECK(image.width == width && image.height == height);
    FUZZ_CHECK(image.nChannels == nChannels || image.nChannels == 3);
    return 0;
}
