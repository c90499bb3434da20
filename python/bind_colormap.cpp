// muskeip.Colormap: 256 RGB float colours over a value range, viewed by numpy as (256, 3).
#include "support.h"

#include <cstring>
#include <memory>
#include <string>

using namespace mp;

namespace {

std::unique_ptr<ColormapObject> colormapFromArray(py::handle source, float low, float high) {
    py::array a = asArray(source, "the colour array");
    if (a.ndim() != 2 || a.shape(0) != 256 || a.shape(1) != 3)
        throw py::value_error("the colour array must have the shape (256, 3)");
    auto values = floatArray(a, "the colour array");
    if (!(low != high)) throw py::value_error("min and max must differ");
    auto object = std::make_unique<ColormapObject>();
    memcpy(object->colormap.colors, values.data(), sizeof(object->colormap.colors));
    object->colormap.setMinMax(low, high);
    return object;
}

py::object wrapColormap(const FlicColormap& colormap) {
    auto object = std::make_unique<ColormapObject>();
    object->colormap = colormap;
    return py::cast(std::move(object));
}

py::object readIcol(py::handle pathObject) {
    std::string path = pathArgument(pathObject);
    FlicColormap colormap;
    capturedFileOperation("can't read " + path, [&] { return colormap.readIcol(path.c_str()); });
    return wrapColormap(colormap);
}

void writeIcol(const ColormapObject& self, py::handle pathObject) {
    std::string path = pathArgument(pathObject);
    capturedFileOperation("can't write " + path,
                          [&] { return self.colormap.writeIcol(path.c_str()); });
}

py::array coloursCopy(const ColormapObject& self) {
    py::array_t<float> values({256, 3});
    memcpy(values.mutable_data(), self.colormap.colors, sizeof(self.colormap.colors));
    return values;
}

} // namespace

void bindColormap(py::module_& m) {
    py::class_<ColormapObject> cls(m, "Colormap", R"doc(256 RGB colours over a value range.

numpy.asarray(colormap) is a writable float32 view of the (256, 3) colours, nominally 0..1.
Colormap() is the grey ramp over 0..1; Colormap(array, min=0, max=1) copies a (256, 3) array.)doc");
    enableCountedBuffer<ColormapObject>(cls);
    cls.def(py::init([] { return std::make_unique<ColormapObject>(); }))
        .def(py::init(&colormapFromArray), py::arg("array"), py::arg("min") = 0.0f,
             py::arg("max") = 1.0f)
        .def_property_readonly("min", [](const ColormapObject& s) { return s.colormap.min; })
        .def_property_readonly("max", [](const ColormapObject& s) { return s.colormap.max; })
        .def(
            "setMinMax",
            [](ColormapObject& s, float low, float high) {
                if (!(low != high)) throw py::value_error("min and max must differ");
                s.colormap.setMinMax(low, high);
            },
            py::arg("min"), py::arg("max"), "Sets the value range that maps onto the colours.")
        .def(
            "getMinMax",
            [](const ColormapObject& s) { return py::make_tuple(s.colormap.min, s.colormap.max); },
            "(min, max)")
        .def("__repr__",
             [](const ColormapObject& s) {
                 return "muskeip.Colormap(min=" + std::to_string(s.colormap.min) +
                        ", max=" + std::to_string(s.colormap.max) + ")";
             })
        .def("copy", [](const ColormapObject& s) { return wrapColormap(s.colormap); })
        .def(py::pickle(
            [](const ColormapObject& s) {
                return py::make_tuple(coloursCopy(s), s.colormap.min, s.colormap.max);
            },
            [](py::tuple state) {
                if (state.size() != 3) throw py::value_error("bad Colormap state");
                return colormapFromArray(state[0], py::cast<float>(state[1]),
                                         py::cast<float>(state[2]));
            }))
        .def(
            "createGreyRamp", [](ColormapObject& s) { s.colormap.createGreyRamp(); },
            "Black to white, in place; the range is kept.")
        .def(
            "createHotIron", [](ColormapObject& s) { s.colormap.createHotIron(); },
            "Red to yellow to white, in place.")
        .def(
            "createBlueWhiteRed", [](ColormapObject& s) { s.colormap.createBlueWhiteRed(); },
            "Blue to white to red, in place.")
        .def(
            "createHueRamp", [](ColormapObject& s) { s.colormap.createHueRamp(); },
            "Red through green and blue to magenta, in place.")
        .def(
            "getColor1",
            [](const ColormapObject& s, float t) {
                float rgb[3] = {0.0f, 0.0f, 0.0f};
                s.colormap.getColor1(t, rgb);
                return py::make_tuple(rgb[0], rgb[1], rgb[2]);
            },
            py::arg("t"), "Colour (r, g, b) of a value normalized to 0..1.")
        .def(
            "multiply",
            [](ColormapObject& s, float f) {
                FlicColormap result;
                s.colormap.multiply(f, &result);
                return wrapColormap(result);
            },
            py::arg("factor"), "Every component times factor, at most 1 (new Colormap).")
        .def(
            "flip",
            [](ColormapObject& s) {
                FlicColormap result;
                s.colormap.flip(&result);
                return wrapColormap(result);
            },
            "The colours in reverse order (new Colormap).")
        .def(
            "gamma",
            [](ColormapObject& s, float g) {
                FlicColormap result;
                s.colormap.gamma(g, &result);
                return wrapColormap(result);
            },
            py::arg("g"), "Every component c becomes c ** g (new Colormap).")
        .def_static("readIcol", &readIcol, py::arg("path"),
                    "Reads a colour-map file. OSError with the library's message on failure.")
        .def("writeIcol", &writeIcol, py::arg("path"), "Writes a colour-map file.");
}
