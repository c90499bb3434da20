// muskeip.Graphics: square points, lines, "FLIC GRAPHICS" command files and UCD mesh edges
// drawn into an Image in place.
#include "support.h"

#include "graphics.h"

#include <cstring>
#include <initializer_list>
#include <string>

using namespace mp;

namespace {

// Draws into a working copy and puts the pixels back, so the Image's storage (which numpy
// arrays may view) stays where it is. A command file may turn a grey image into RGB; that
// change of geometry is taken over only while no array views the image.
void drawFile(FlicGraphics& graphics, ImageObject& target, py::handle pathObject) {
    std::string path = pathArgument(pathObject);
    FlicImage work(target.image);
    MessageScope scope;
    int ok = withoutGil([&] { return graphics.drawFile(work, path.c_str()); });
    if (work.nChannels == target.image.nChannels) {
        memcpy(target.image.data, work.data,
               static_cast<size_t>(work.bytesPerLine) * static_cast<size_t>(work.height));
    } else {
        requireNoViews(target.layout, "drawFile turned the grey image into RGB");
        target.image.swap(work);
    }
    if (!ok) raiseOSError(scope.errors(), "can't draw " + path);
    scope.deliverInfo();
}

void drawUCD(FlicGraphics& graphics, ImageObject& target, py::handle pathObject) {
    std::string path = pathArgument(pathObject);
    fileOperation("can't draw " + path,
                  [&] { return graphics.drawUCD(target.image, path.c_str()); });
}

void setColor(FlicGraphics& graphics, int r, int g, int b) {
    for (int component : {r, g, b})
        if (component < 0 || component > 255)
            throw py::value_error("colour components must be 0 .. 255");
    graphics.setColor(r, g, b);
}

// Lines are walked point by point, also outside the image: coordinates are kept within a
// range whose longest line takes a fraction of a second.
const int kCoordinateLimit = 1 << 24;

void checkCoordinates(std::initializer_list<int> coordinates) {
    for (int c : coordinates)
        if (c < -kCoordinateLimit || c > kCoordinateLimit)
            throw py::value_error("coordinates must lie within -16777216 .. 16777216");
}

void setPixelWidth(FlicGraphics& graphics, int width) {
    if (width < 0 || width > 10000) throw py::value_error("pixel width must be 0 .. 10000");
    graphics.setPixelWidth(width);
}

} // namespace

void bindGraphics(py::module_& m) {
    py::class_<FlicGraphics>(m, "Graphics", R"doc(Draws square points and lines into images.

Coordinates are pixels with row 0 at the bottom of the picture; drawing changes the Image in
place (and every numpy view of it). Starts black with a pixel width of 1.)doc")
        .def(py::init<>())
        .def_property_readonly(
            "color",
            [](const FlicGraphics& g) {
                return py::make_tuple(g.color[0], g.color[1], g.color[2], g.color[3]);
            },
            "(r, g, b, grey): the grey value is used on grey images")
        .def_property(
            "pixelWidth", [](const FlicGraphics& g) { return g.pixelWidth; }, &setPixelWidth)
        .def("setColor", &setColor, py::arg("r"), py::arg("g"), py::arg("b"),
             "Sets the colour (0 .. 255 each) and its grey value.")
        .def("setPixelWidth", &setPixelWidth, py::arg("width"),
             "Side of the square drawn per point; 0 draws nothing.")
        .def(
            "drawPixel",
            [](FlicGraphics& g, ImageObject& image, int x, int y) {
                checkCoordinates({x, y});
                g.drawPixel(image.image, x, y);
            },
            py::arg("image"), py::arg("x"), py::arg("y"), "Draws one square point.")
        .def(
            "drawLine",
            [](FlicGraphics& g, ImageObject& image, int x0, int y0, int x1, int y1) {
                checkCoordinates({x0, y0, x1, y1});
                withoutGil([&] { g.drawLine(image.image, x0, y0, x1, y1); });
            },
            py::arg("image"), py::arg("x0"), py::arg("y0"), py::arg("x1"), py::arg("y1"),
            "Draws the Bresenham line between two points as a chain of squares.")
        .def("drawFile", &drawFile, py::arg("image"), py::arg("path"),
             "Interprets a 'FLIC GRAPHICS' command file. OSError with the library's message "
             "on failure; what was drawn before stays.")
        .def("drawUCD", &drawUCD, py::arg("image"), py::arg("path"),
             "Draws the edges of a UCD triangle mesh fitted into the image.");
}
