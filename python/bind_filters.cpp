// Filters of muskeip.Image: convolution, Gaussian blur, median, zoom and emboss. Each returns a
// new Image and runs without the GIL; the convolutions and zoom hold the library lock, since
// the packed tables and the resampler's lists are process-wide.
#include "support.h"

#include <cmath>
#include <string>
#include <vector>

using namespace mp;

namespace {

const int kMaxHalfTaps = 9;

void requireGreyImage(const ImageObject& self, const char* what) {
    if (self.image.nChannels != 1)
        throw py::value_error(std::string(what) +
                              " works on grey images: take a channel with oneband() or the "
                              "luminance with colorToGrey() first");
}

// The packed tables hold three half-taps per 32-bit word; a group whose absolute weights (the
// centre halved) sum above 1 would overflow its fields, and the library ends the process for
// it. Such kernels are refused here instead.
void checkPackable(const std::vector<float>& kernel) {
    if (kernel.empty() || kernel.size() > static_cast<size_t>(kMaxHalfTaps))
        throw py::value_error("the kernel must have 1 to 9 half-taps (centre first)");
    for (float weight : kernel)
        if (!std::isfinite(weight)) throw py::value_error("kernel weights must be finite");
    for (size_t group = 0; group < kernel.size(); group += 3) {
        float a = kernel[group], b = 0.0f, c = 0.0f;
        if (group == 0) a *= 0.5f;
        if (group + 1 < kernel.size()) b = kernel[group + 1];
        if (group + 2 < kernel.size()) c = kernel[group + 2];
        if (std::fabs(a) + std::fabs(b) + std::fabs(c) > 1.0f)
            throw py::value_error("kernel weights too large for the packed tables: |" +
                                  std::to_string(a) + "|+|" + std::to_string(b) + "|+|" +
                                  std::to_string(c) + "| > 1 (the centre counts half)");
    }
}

// Runs a filter under the library lock with the standard streams captured; what the library
// printed (the filter-sum warning) becomes a warning record.
template <class Filter>
py::object lockedFilter(Filter filter) {
    FlicImage result;
    std::string warning;
    MessageScope scope;
    int ok = serialised([&] {
        StdioCapture capture;
        int done = filter(result);
        capture.finish();
        warning = capture.errText;
        return done;
    });
    if (!warning.empty()) logRecord("warning", warning);
    if (!ok) raiseValueError(scope.errors(), "the filter failed");
    scope.deliverInfo();
    return newImage(result);
}

py::object convolve(ImageObject& self, const std::vector<float>& kernel) {
    requireGreyImage(self, "convolve");
    checkPackable(kernel);
    return lockedFilter([&](FlicImage& result) {
        return self.image.convolve(static_cast<int>(kernel.size()), kernel.data(), &result);
    });
}

py::object gaussBlur(ImageObject& self, int n) {
    requireGreyImage(self, "gaussBlur");
    if (n < 1 || n > kMaxHalfTaps) throw py::value_error("gaussBlur: n must be 1 .. 9");
    return lockedFilter([&](FlicImage& result) { return self.image.gaussBlur(n, &result); });
}

py::object medianFilter(ImageObject& self) {
    requireGreyImage(self, "medianFilter");
    FlicImage result;
    MessageScope scope;
    int ok = withoutGil([&] { return self.image.medianFilter(&result); });
    if (!ok) raiseValueError(scope.errors(), "medianFilter failed");
    return newImage(result);
}

py::object zoom(ImageObject& self, long long width, long long height) {
    if (width < 1 || height < 1 || width > 1000000 || height > 1000000)
        throw py::value_error("zoom: the new size must be 1 .. 1000000 in each direction");
    return lockedFilter([&](FlicImage& result) {
        return self.image.zoom(static_cast<int>(width), static_cast<int>(height), &result);
    });
}

py::object embossLight(ImageObject& self, float azimuth, float elevation, int width45) {
    if (width45 < 1) throw py::value_error("emboss: width45 must be positive");
    FlicImage result;
    MessageScope scope;
    int ok = withoutGil([&] { return self.image.emboss(azimuth, elevation, width45, &result); });
    if (!ok) raiseValueError(scope.errors(), "emboss failed");
    return newImage(result);
}

py::object embossField(ImageObject& self, VectorFieldObject& field) {
    FlicImage result;
    MessageScope scope;
    int ok = withoutGil([&] { return self.image.emboss(field.field, &result); });
    if (!ok) raiseValueError(scope.errors(), "emboss failed");
    return newImage(result);
}

} // namespace

void bindFilters(py::module_& m) {
    auto cls = py::reinterpret_borrow<py::class_<ImageObject>>(m.attr("Image"));
    cls.def("convolve", &convolve, py::arg("kernel"),
            "Separable convolution of a grey image with a symmetric half-kernel of 1 to 9 "
            "weights, centre first (new Image). A kernel not summing to 1 is used as it is, "
            "with a warning record.")
        .def("gaussBlur", &gaussBlur, py::arg("n"),
             "Gaussian blur of a grey image, n half-taps and standard deviation n pixels, "
             "n = 1 .. 9 (new Image).")
        .def("medianFilter", &medianFilter, "3 x 3 median of a grey image (new Image).")
        .def("zoom", &zoom, py::arg("width"), py::arg("height"),
             "Resampled to width x height with the triangle filter (new Image).")
        .def("emboss", &embossLight, py::arg("azimuth"), py::arg("elevation"),
             py::arg("width45") = 3,
             "Relief shading under a light from azimuth and elevation (radians) (new Image).")
        .def("emboss", &embossField, py::arg("field"),
             "Relief shading with the light's direction following a VectorField; flow-free "
             "pixels of a grey image become black (new Image).");
}
