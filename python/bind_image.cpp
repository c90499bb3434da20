// muskeip.Image: the library's 8-bit raster image, viewed by numpy without copying.
#include "support.h"

#include <memory>
#include <string>

using namespace mp;

namespace {

using ImageClass = py::class_<ImageObject>;

std::unique_ptr<ImageObject> blankImage(long long width, long long height, long long channels) {
    if (channels != 1 && channels != 3) throw py::value_error("channels must be 1 or 3");
    if (width < 1 || height < 1 || width > INT32_MAX || height > INT32_MAX)
        throw py::value_error("an image needs a width and height of at least 1");
    auto object = std::make_unique<ImageObject>();
    MessageScope scope;
    if (!object->image.setSize(static_cast<int>(width), static_cast<int>(height),
                               static_cast<int>(channels)) ||
        !object->image.data)
        raiseValueError(scope.errors(), "image size " + std::to_string(width) + " x " +
                                            std::to_string(height) + " x " +
                                            std::to_string(channels) + " is too large");
    object->image.clear(0);
    return object;
}

std::unique_ptr<ImageObject> imageFromArray(py::handle source) {
    auto object = std::make_unique<ImageObject>();
    copyArrayToImage(asArray(source, "the image array"), "the image array", object->image);
    return object;
}

void requireSameSize(const FlicImage& a, const FlicImage& b, const char* what) {
    if (a.width != b.width || a.height != b.height)
        throw py::value_error(std::string(what) + ": images must have the same size (" +
                              std::to_string(a.width) + " x " + std::to_string(a.height) + " and " +
                              std::to_string(b.width) + " x " + std::to_string(b.height) + ")");
}

void requireGrey(const FlicImage& image, const char* what) {
    if (image.nChannels != 1) throw py::value_error(std::string(what) + " must be a grey image");
}

py::object readPNM(py::handle pathObject) {
    std::string path = pathArgument(pathObject);
    FlicImage image;
    fileOperation("can't read " + path, [&] { return image.readPNM(path.c_str()); });
    if (image.nChannels != 1 && image.nChannels != 3)
        throw py::value_error(path + ": unsupported channel count");
    return newImage(image);
}

py::object glue(const ImageObject& r, const ImageObject& g, const ImageObject& b) {
    requireGrey(r.image, "the red image");
    requireGrey(g.image, "the green image");
    requireGrey(b.image, "the blue image");
    requireSameSize(r.image, g.image, "glue");
    requireSameSize(r.image, b.image, "glue");
    FlicImage result;
    withoutGil([&] { return result.glue(r.image, g.image, b.image); });
    return newImage(result);
}

py::object mix(ImageObject& self, const ImageObject& other) {
    requireSameSize(self.image, other.image, "mix");
    int a = self.image.nChannels, b = other.image.nChannels;
    if (!((a == 1 && b == 3) || (a == 3 && b == 1)))
        throw py::value_error("mix: one image must be grey and the other RGB");
    FlicImage result;
    withoutGil([&] { return self.image.mix(other.image, &result); });
    return newImage(result);
}

py::object multiply(ImageObject& self, const ImageObject& other) {
    requireSameSize(self.image, other.image, "multiply");
    FlicImage result;
    withoutGil([&] { return self.image.multiply(other.image, &result); });
    return newImage(result);
}

py::object brighten(ImageObject& self, int low, int high) {
    if (low == high) throw py::value_error("brighten: low and high must differ");
    FlicImage result;
    withoutGil([&] { self.image.brighten(low, high, &result); });
    return newImage(result);
}

py::object oneband(ImageObject& self, int band) {
    if (band < 0 || band >= self.image.nChannels)
        throw py::value_error("band " + std::to_string(band) + " outside 0 .. " +
                              std::to_string(self.image.nChannels - 1));
    FlicImage result;
    withoutGil([&] { self.image.oneband(band, &result); });
    return newImage(result);
}

py::object colorToGrey(ImageObject& self) {
    FlicImage result;
    withoutGil([&] { self.image.colorToGrey(&result); });
    return newImage(result);
}

py::object copyImage(const ImageObject& self) {
    FlicImage copy(self.image);
    return newImage(copy);
}

void createRandom(ImageObject& self, bool binary, py::object seed) {
    int seedValue = seedArgument(seed);
    serialised([&] { self.image.createRandom(binary ? 1 : 0, seedValue); });
}

py::tuple statistics(const ImageObject& self) {
    float mean = 0.0f, sdev = 0.0f;
    self.image.getStatistics(mean, sdev);
    return py::make_tuple(mean, sdev);
}

std::string describeImage(const ImageObject& self) {
    return "muskeip.Image(width=" + std::to_string(self.image.width) +
           ", height=" + std::to_string(self.image.height) +
           ", channels=" + std::to_string(self.image.nChannels) + ")";
}

py::tuple shapeOf(const ImageObject& self) {
    if (self.image.nChannels == 1) return py::make_tuple(self.image.height, self.image.width);
    return py::make_tuple(self.image.height, self.image.width, self.image.nChannels);
}

py::array pixelsCopy(const ImageObject& self) {
    FlicImage copy(self.image);
    return adoptImage(copy);
}

} // namespace

void bindImage(py::module_& m) {
    ImageClass cls(m, "Image", R"doc(An 8-bit raster image of one (grey) or three (RGB) channels.

numpy.asarray(image) is a writable view of the pixels, without copying, of shape (H, W) or
(H, W, 3). Row 0 is the bottom row of the picture: show it with imshow(..., origin="lower").
Image(width, height, channels=1) makes a black image; Image(array) copies a uint8 array.)doc");
    enableCountedBuffer<ImageObject>(cls);

    cls.def(py::init(&blankImage), py::arg("width"), py::arg("height"), py::arg("channels") = 1)
        .def(py::init(&imageFromArray), py::arg("array"))
        .def_property_readonly("width", [](const ImageObject& s) { return s.image.width; })
        .def_property_readonly("height", [](const ImageObject& s) { return s.image.height; })
        .def_property_readonly("channels", [](const ImageObject& s) { return s.image.nChannels; })
        .def_property_readonly("shape", &shapeOf, "(H, W) or (H, W, 3), as the numpy view")
        .def("__repr__", &describeImage)
        .def("copy", &copyImage, "A deep copy.")
        .def("__copy__", &copyImage)
        .def("__deepcopy__", [](const ImageObject& s, py::handle) { return copyImage(s); })
        .def(py::pickle([](const ImageObject& s) { return py::make_tuple(pixelsCopy(s)); },
                        [](py::tuple state) {
                            if (state.size() != 1) throw py::value_error("bad Image state");
                            return imageFromArray(state[0]);
                        }))
        .def_static("readPNM", &readPNM, py::arg("path"),
                    "Reads a P2, P3, P5 or P6 file. OSError with the library's message on "
                    "failure.")
        .def(
            "writePNM",
            [](const ImageObject& s, py::handle pathObject, bool ascii) {
                std::string path = pathArgument(pathObject);
                capturedFileOperation("can't write " + path, [&] {
                    return s.image.writePNM(path.c_str(), ascii ? 1 : 0);
                });
            },
            py::arg("path"), py::arg("ascii") = false,
            "Writes a PNM file (P5/P6, or P2/P3 with ascii=True), top row first. OSError on "
            "failure.")
        .def(
            "writeHistogram",
            [](const ImageObject& s, py::handle pathObject) {
                std::string path = pathArgument(pathObject);
                capturedFileOperation("can't write " + path,
                                      [&] { return s.image.writeHistogram(path.c_str()); });
            },
            py::arg("path"),
            "Writes the 256-line histogram file; the mean goes to the 'muskeip' logger.")
        .def(
            "clear",
            [](ImageObject& s, int value) {
                if (value < 0 || value > 255) throw py::value_error("value must be 0 .. 255");
                s.image.clear(value);
            },
            py::arg("value"), "Sets every byte to value.")
        .def("createRandom", &createRandom, py::arg("binary") = false, py::arg("seed") = 1,
             "Fills the image with white noise from drand48, seeded with seed (None continues "
             "the sequence); binary=True gives 0/255.")
        .def("getStatistics", &statistics, "(mean, standard deviation) of all bytes.")
        .def(
            "interp",
            [](const ImageObject& s, float x, float y) {
                requireGrey(s.image, "interp");
                return static_cast<int>(s.image.interp(x, y));
            },
            py::arg("x"), py::arg("y"), "Bilinear sample of a grey image, wrapped periodically.")
        .def(
            "interpConst",
            [](const ImageObject& s, float x, float y) {
                requireGrey(s.image, "interpConst");
                return static_cast<int>(s.image.interpConst(x, y));
            },
            py::arg("x"), py::arg("y"), "Nearest-lower sample of a grey image, wrapped.")
        .def("colorToGrey", &colorToGrey, "Luminance image 0.3 R + 0.59 G + 0.11 B (new Image).")
        .def("oneband", &oneband, py::arg("band"), "One channel as a grey image (new Image).")
        .def_static("glue", &glue, py::arg("red"), py::arg("green"), py::arg("blue"),
                    "An RGB image from three grey images of one size.")
        .def("mix", &mix, py::arg("other"),
             "Colour of the RGB image with the lightness of the grey one (new RGB Image).")
        .def("multiply", &multiply, py::arg("other"), "Product / 255 of two images (new Image).")
        .def("brighten", &brighten, py::arg("low"), py::arg("high"),
             "Maps low to 0 and high to 255, clamped (new Image).");
}
