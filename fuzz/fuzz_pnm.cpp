// FlicImage::readPNM on arbitrary bytes. A failed read leaves the image as it was; an image that
// was read survives a binary and an ASCII write and read unchanged.
#include "fuzz_target.h"
#include "image.h"

namespace {

bool sameImage(const FlicImage& a, const FlicImage& b) {
    if (a.width != b.width || a.height != b.height || a.nChannels != b.nChannels) return false;
    size_t rowBytes = static_cast<size_t>(a.width) * a.nChannels;
    for (int y = 0; y < a.height; y++)
        if (memcmp(a.data + static_cast<long>(y) * a.bytesPerLine,
                   b.data + static_cast<long>(y) * b.bytesPerLine, rowBytes) != 0)
            return false;
    return true;
}

// Writes the image (binary or ASCII) and reads it back into a fresh image.
void checkRoundTrip(const FlicImage& image, fuzz::ScratchFile& copy, int ascii) {
    FUZZ_CHECK(image.writePNM(copy.name(), ascii) == 1);
    FlicImage back;
    FUZZ_CHECK(back.readPNM(copy.name()) == 1);
    FUZZ_CHECK(sameImage(image, back));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("pnm"), copy("pnm-copy");
    fuzz::quietMessages();
    const char* name = input.write(data, size);

    FlicImage image(3, 2, 1);
    image.clear(77);
    const FlicImage before(image);
    if (!image.readPNM(name)) {
        FUZZ_CHECK(sameImage(image, before));
        return 0;
    }
    FUZZ_CHECK(image.width > 0 && image.height > 0 && image.data != nullptr);
    FUZZ_CHECK(image.nChannels == 1 || image.nChannels == 3);
    // Round trips are only worth their cost for pictures of moderate size.
    if (static_cast<long long>(image.width) * image.height <= 65536) {
        checkRoundTrip(image, copy, 0);
        checkRoundTrip(image, copy, 1);
    }
    return 0;
}
