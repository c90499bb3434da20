// The image operations on pictures read by FlicImage::readPNM, with parameters from a hash of
// the input: sampling at special coordinates, statistics, zoom, emboss (one light and along a
// field derived from the picture), filters, crop, point operations, compositing, flood fill
// and the fields derived from the picture. Every operation must leave a usable image.
#include "colormap.h"
#include "fuzz_target.h"
#include "image.h"
#include "scalarfield.h"
#include "vectorfield.h"

#include <climits>
#include <cmath>

namespace {

const float kNaN = __builtin_nanf("");
const float kInf = __builtin_inff();

FlicImage greyOf(const FlicImage& image) {
    FlicImage grey;
    if (image.nChannels == 3)
        const_cast<FlicImage&>(image).colorToGrey(&grey);
    else
        grey = image;
    return grey;
}

void sample(const FlicImage& image, fuzz::Choices& choose) {
    const float coordinates[] = {0.0f,   0.5f, -0.5f, 3.7f, 1e7f,  1e30f,
                                 -1e30f, kInf, -kInf, kNaN, -0.0f, 2.0f};
    FlicImage grey = greyOf(image);
    for (int k = 0; k < 4; k++) {
        float x = choose.from(coordinates), y = choose.from(coordinates);
        (void)grey.interp(x, y);
        (void)grey.interpConst(x, y);
    }
    float mean, sdev;
    image.getStatistics(mean, sdev);
}

// A crop whose rectangle is either small or beyond what an image can hold (refused): crops of
// gigabytes are valid requests, but too slow for fuzzing.
void crop(FlicImage& image, fuzz::Choices& choose) {
    // Around the current width, held inside the int range (a refused crop may leave any size).
    int near = image.width > -10 && image.width < 10000 ? image.width : 10;
    const int starts[] = {-3, 0, 1, near - 1, near + 2, INT_MIN};
    const int ends[] = {-5, 0, 2, near, near + 3, INT_MAX};
    int x0 = choose.from(starts), y0 = choose.from(starts);
    int x1 = choose.from(ends), y1 = choose.from(ends);
    long long spanX = static_cast<long long>(x1) - x0 + 1;
    long long spanY = static_cast<long long>(y1) - y0 + 1;
    double area = static_cast<double>(spanX) * static_cast<double>(spanY);
    bool refused = spanX > INT_MAX || spanY > INT_MAX;
    if (refused || std::fabs(area) <= 1e6) image.crop(x0, y0, x1, y1);
}

void operate(FlicImage& image, int operation, fuzz::Choices& choose) {
    const int sizes[] = {-1, 0, 1, 2, 3, 17, 64};
    const float angles[] = {0.0f, 0.7f, 1.5707964f, -3.0f, 100.0f, kNaN, kInf};
    const int widths45[] = {3, 1, 0, -1, 1000, INT_MIN, INT_MAX};
    const int bands[] = {-5, -1, 0, 1, 2, 3, 7};
    const int levels[] = {0, 10, 255, -7, 300, INT_MIN, INT_MAX};
    const float stats[] = {128.0f, 0.0f, 40.0f, -1.0f, kNaN, kInf, 1e30f};
    FlicImage other = greyOf(image), result;
    switch (operation) {
    case 0:
        image.zoom(choose.from(sizes), choose.from(sizes), choose.below(2) ? &result : nullptr);
        break;
    case 1:
        image.emboss(choose.from(angles), choose.from(angles), choose.from(widths45),
                     choose.below(2) ? &result : nullptr);
        break;
    case 2: {
        FlicVectorField field;
        field.fromImage(other, choose.from(angles));
        if (choose.below(2)) field.resample(choose.from(sizes), choose.from(sizes));
        image.emboss(field, choose.below(2) ? &result : nullptr);
        break;
    }
    case 3:
        image.gaussBlur(choose.below(14) - 2, choose.below(2) ? &result : nullptr);
        break;
    case 4: {
        const float blur[] = {0.5f, 0.25f}, sharpen[] = {1.5f, -0.25f};
        const float odd[] = {kNaN, 0.1f}, dark[] = {0.9f};
        const float* kernels[] = {blur, sharpen, odd, dark};
        const int taps[] = {2, 2, 2, 1};
        int k = choose.below(4);
        image.convolve(taps[k], kernels[k], choose.below(2) ? &result : nullptr);
        break;
    }
    case 5:
        image.medianFilter(choose.below(2) ? &result : nullptr);
        break;
    case 6:
        crop(image, choose);
        break;
    case 7:
        image.brighten(choose.from(levels), choose.from(levels));
        break;
    case 8:
        image.autoAdjust(choose.from(stats), choose.from(stats));
        break;
    case 9:
        image.oneband(choose.from(bands));
        break;
    case 10: {
        int box[4];
        image.floodFill(choose.from(sizes), choose.from(sizes), choose.from(levels), box);
        break;
    }
    case 11:
        image.colorToGrey();
        break;
    case 12:
        image.mix(other, choose.below(2) ? &result : nullptr);
        image.multiply(other);
        image.subtract(other);
        break;
    case 13:
        image.applyMask(other, choose.below(2) ? &result : nullptr);
        break;
    case 14:
        image.glue(other, other, other);
        break;
    default: {
        FlicVectorField field;
        field.fromImage(image, choose.from(angles));
        FlicImage colours(choose.from(sizes), choose.from(sizes), 1);
        field.vecToColor(colours, choose.below(2));
        FlicScalarField lengths;
        field.magnitude(lengths, 1);
        break;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("image-ops"), copy("image-ops-copy");
    fuzz::quietMessages();
    const char* name = input.write(data, size);
    FlicImage image;
    if (!image.readPNM(name)) return 0;
    if (static_cast<long long>(image.width) * image.height > 16384) return 0;

    fuzz::Choices choose(fuzz::hashBytes(data, size));
    sample(image, choose);
    for (int step = 0; step < 4; step++) {
        operate(image, choose.below(16), choose);
        // A crop with its corners exchanged records a negative size, as setSize allows.
        if (image.width > 0 && image.height > 0 && image.nChannels > 0)
            FUZZ_CHECK(image.data != nullptr);
    }
    sample(image, choose);
    image.writePNM(copy.name(), choose.below(2));
    return 0;
}
