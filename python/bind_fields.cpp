// muskeip.VectorField and muskeip.ScalarField: regular-grid fields of float32, viewed by numpy
// without copying, with their files, generators and colourings.
#include "support.h"

#include "probe.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <string>

using namespace mp;

namespace {

const char kGridMessage[] = "a field needs at least 2 x 2 nodes";

void checkGrid(long long width, long long height) {
    if (width < 2 || height < 2) throw py::value_error(kGridMessage);
    if (width > 1000000 || height > 1000000)
        throw py::value_error("a field may have at most 1000000 nodes per direction");
}

// Reads a field file with the GIL released into a new Python object made by `wrap`; failures
// become OSError with the library's text.
template <class Field>
py::object readField(py::handle pathObject, py::object (*wrap)(Field&)) {
    std::string path = pathArgument(pathObject);
    Field field;
    // A binary file that ends early is refused, as the command line refuses it (the reader
    // itself pads it with zeros).
    fileOperation("can't read " + path,
                  [&] { return field.read(path.c_str()) && flicCheckComplete(path.c_str()); });
    return wrap(field);
}

template <class Field>
void writeField(const Field& field, const std::string& path, bool ascii) {
    fileOperation("can't write " + path, [&] { return field.write(path.c_str(), ascii ? 1 : 0); });
}

// A new field object of width x height nodes, its values not yet set; ValueError with
// `tooLarge` when the library can't hold it.
template <class Object>
std::unique_ptr<Object> allocateField(long long width, long long height, const char* tooLarge) {
    checkGrid(width, height);
    auto object = std::make_unique<Object>();
    MessageScope scope;
    if (!object->field.setSize(static_cast<int>(width), static_cast<int>(height)) ||
        !object->field.data)
        raiseValueError(scope.errors(), tooLarge);
    return object;
}

// An RGB image coloured by `paint(image, resize)`: of the field's own size (resize 1), or
// stretched onto size = (W, H) when that is given.
template <class Paint>
py::object colourImage(py::object size, Paint paint) {
    FlicImage image;
    if (size.is_none()) {
        withoutGil([&] { paint(image, 1); });
    } else {
        int width = 0, height = 0;
        parseSize(size, "size", width, height, 2);
        MessageScope scope;
        if (!image.setSize(width, height, 3) || !image.data)
            raiseValueError(scope.errors(), "size too large for an image");
        withoutGil([&] { paint(image, 0); });
    }
    return newImage(image);
}

// --- VectorField -------------------------------------------------------------------------------

std::unique_ptr<VectorFieldObject> allocateVectorField(long long width, long long height) {
    return allocateField<VectorFieldObject>(width, height, "vector field too large");
}

std::unique_ptr<VectorFieldObject> blankVectorField(long long width, long long height) {
    auto object = allocateVectorField(width, height);
    memset(object->field.data, 0, static_cast<size_t>(width) * height * 2 * sizeof(float));
    return object;
}

// Copies float components into a new field: either one (H, W, 2) array or two (H, W) arrays.
std::unique_ptr<VectorFieldObject> vectorFieldFromArrays(py::handle first, py::handle second) {
    py::array a = asArray(first, second.is_none() ? "the field array" : "u");
    if (second.is_none()) {
        if (a.ndim() != 3 || a.shape(2) != 2)
            throw py::value_error("the field array must have the shape (H, W, 2)");
        auto values = floatArray(a, "the field array");
        auto object = allocateVectorField(a.shape(1), a.shape(0));
        memcpy(object->field.data, values.data(), static_cast<size_t>(values.nbytes()));
        return object;
    }
    py::array b = asArray(second, "v");
    if (a.ndim() != 2 || b.ndim() != 2) throw py::value_error("u and v must be 2-D arrays");
    if (a.shape(0) != b.shape(0) || a.shape(1) != b.shape(1))
        throw py::value_error("u and v must have the same shape");
    auto u = floatArray(a, "u");
    auto v = floatArray(b, "v");
    auto object = allocateVectorField(a.shape(1), a.shape(0));
    const float* pu = u.data();
    const float* pv = v.data();
    float* out = object->field.data;
    size_t nodes = static_cast<size_t>(a.shape(0)) * a.shape(1);
    for (size_t k = 0; k < nodes; k++) {
        out[2 * k] = pu[k];
        out[2 * k + 1] = pv[k];
    }
    return object;
}

py::object readVectorField(py::handle path) {
    return readField(path, &newVectorField);
}

py::object readVectorUCD(py::handle pathObject, int width, int height, py::object bbox) {
    std::string path = pathArgument(pathObject);
    checkGrid(width, height);
    std::vector<float> box;
    if (!bbox.is_none()) {
        try {
            box = py::cast<std::vector<float>>(bbox);
        } catch (py::cast_error&) {
            throw py::type_error("bbox must be four numbers (xmin, xmax, ymin, ymax)");
        }
        if (box.size() != 4) throw py::value_error("bbox must be (xmin, xmax, ymin, ymax)");
    }
    FlicVectorField field;
    fileOperation("can't read " + path, [&] {
        return box.empty() ? field.readUCD(path.c_str(), width, height)
                           : field.readUCD(path.c_str(), width, height, box.data());
    });
    return newVectorField(field);
}

py::object saddle() {
    FlicVectorField field;
    field.setSaddle();
    return newVectorField(field);
}

py::object fromScalarField(const ScalarFieldObject& source, float angle) {
    FlicVectorField field;
    withoutGil([&] { field.fromScalarField(source.field, angle); });
    return newVectorField(field);
}

py::object fromImage(const ImageObject& source, float angle) {
    if (source.image.width < 2 || source.image.height < 2)
        throw py::value_error("the image needs at least 2 x 2 pixels");
    FlicVectorField field;
    withoutGil([&] { field.fromImage(source.image, angle); });
    return newVectorField(field);
}

void setLinear(VectorFieldObject& self, const std::vector<std::vector<float>>& matrix,
               const std::vector<float>& offset) {
    if (matrix.size() != 2 || matrix[0].size() != 2 || matrix[1].size() != 2)
        throw py::value_error("matrix must be 2 x 2");
    if (offset.size() != 2) throw py::value_error("offset must have two values");
    const float m[2][2] = {{matrix[0][0], matrix[0][1]}, {matrix[1][0], matrix[1][1]}};
    const float b[2] = {offset[0], offset[1]};
    self.field.setLinear(m, b);
}

// Direction colours.
py::object vecToColor(const VectorFieldObject& self, py::object size) {
    return colourImage(size,
                       [&](FlicImage& image, int resize) { self.field.vecToColor(image, resize); });
}

py::object magnitude(const VectorFieldObject& self, py::object size) {
    FlicScalarField result;
    if (size.is_none()) {
        withoutGil([&] { self.field.magnitude(result, 1); });
    } else {
        int width = 0, height = 0;
        parseSize(size, "size", width, height, 2);
        MessageScope scope;
        if (!result.setSize(width, height) || !result.data)
            raiseValueError(scope.errors(), "size too large for a scalar field");
        withoutGil([&] { self.field.magnitude(result, 0); });
    }
    return newScalarField(result);
}

py::object resample(VectorFieldObject& self, int width, int height) {
    checkGrid(width, height);
    FlicVectorField result;
    MessageScope scope;
    withoutGil([&] { self.field.resample(width, height, &result); });
    if (!result.data) raiseValueError(scope.errors(), "resampled field too large");
    return newVectorField(result);
}

py::object copyVectorField(const VectorFieldObject& self) {
    FlicVectorField copy(self.field);
    return newVectorField(copy);
}

py::array vectorValues(const VectorFieldObject& self) {
    py::array_t<float> values({self.field.height, self.field.width, 2});
    memcpy(values.mutable_data(), self.field.data, static_cast<size_t>(values.nbytes()));
    return values;
}

// --- ScalarField ----------------------------------------------------------------------------

std::unique_ptr<ScalarFieldObject> allocateScalarField(long long width, long long height) {
    return allocateField<ScalarFieldObject>(width, height, "scalar field too large");
}

std::unique_ptr<ScalarFieldObject> blankScalarField(long long width, long long height) {
    auto object = allocateScalarField(width, height);
    memset(object->field.data, 0, static_cast<size_t>(width) * height * sizeof(float));
    return object;
}

std::unique_ptr<ScalarFieldObject> scalarFieldFromArray(py::handle source) {
    py::array a = asArray(source, "the field array");
    if (a.ndim() != 2) throw py::value_error("the field array must have the shape (H, W)");
    auto values = floatArray(a, "the field array");
    auto object = allocateScalarField(a.shape(1), a.shape(0));
    memcpy(object->field.data, values.data(), static_cast<size_t>(values.nbytes()));
    return object;
}

py::object readScalarField(py::handle path) {
    return readField(path, &newScalarField);
}

py::object readScalarUCD(py::handle pathObject, int width, int height) {
    std::string path = pathArgument(pathObject);
    checkGrid(width, height);
    FlicScalarField field;
    fileOperation("can't read " + path, [&] { return field.readUCD(path.c_str(), width, height); });
    return newScalarField(field);
}

// Colours through the map.
py::object pseudoColor(const ScalarFieldObject& self, const ColormapObject& colormap,
                       py::object size) {
    return colourImage(size, [&](FlicImage& image, int resize) {
        self.field.pseudoColor(colormap.colormap, image, resize);
    });
}

py::object copyScalarField(const ScalarFieldObject& self) {
    FlicScalarField copy(self.field);
    return newScalarField(copy);
}

py::array scalarValues(const ScalarFieldObject& self) {
    py::array_t<float> values({self.field.height, self.field.width});
    memcpy(values.mutable_data(), self.field.data, static_cast<size_t>(values.nbytes()));
    return values;
}

// What both field classes have alike: width, height and shape (the array's shape, with
// `components` values per node when it is above 1), repr and copying, and pickling as the
// array of values (`fromValues` rebuilds the field from it).
template <class Object, class Class, class FromValues>
void bindFieldBasics(Class& cls, const char* name, int components,
                     py::object (*copy)(const Object&), py::array (*values)(const Object&),
                     FromValues fromValues) {
    std::string repr = std::string("muskeip.") + name + "(width=";
    std::string badState = std::string("bad ") + name + " state";
    cls.def_property_readonly("width", [](const Object& s) { return s.field.width; })
        .def_property_readonly("height", [](const Object& s) { return s.field.height; })
        .def_property_readonly("shape",
                               [components](const Object& s) {
                                   py::tuple shape = py::make_tuple(s.field.height, s.field.width);
                                   return components > 1 ? shape + py::make_tuple(components)
                                                         : shape;
                               })
        .def("__repr__",
             [repr](const Object& s) {
                 return repr + std::to_string(s.field.width) +
                        ", height=" + std::to_string(s.field.height) + ")";
             })
        .def("copy", copy)
        .def("__copy__", copy)
        .def("__deepcopy__", [copy](const Object& s, py::handle) { return copy(s); })
        .def(py::pickle([values](const Object& s) { return py::make_tuple(values(s)); },
                        [badState, fromValues](py::tuple state) {
                            if (state.size() != 1) throw py::value_error(badState);
                            return fromValues(state[0]);
                        }));
}

void bindVectorField(py::module_& m) {
    py::class_<VectorFieldObject> cls(m, "VectorField", R"doc(A 2-D vector field on a grid.

numpy.asarray(field) is a writable float32 view of shape (H, W, 2) holding (x, y) per node;
row 0 is the bottom row, and a positive y component points up the picture.
VectorField(width, height) is zero; VectorField(array) copies an (H, W, 2) array and
VectorField(u, v) two (H, W) arrays of the x and y components.)doc");
    enableCountedBuffer<VectorFieldObject>(cls);
    bindFieldBasics<VectorFieldObject>(
        cls, "VectorField", 2, &copyVectorField, &vectorValues,
        [](py::handle values) { return vectorFieldFromArrays(values, py::none()); });
    cls.def(py::init(&blankVectorField), py::arg("width"), py::arg("height"))
        .def(py::init([](py::array values) { return vectorFieldFromArrays(values, py::none()); }),
             py::arg("array"))
        .def(py::init([](py::handle u, py::handle v) {
                 if (v.is_none()) throw py::type_error("v must be an array, not None");
                 return vectorFieldFromArrays(u, v);
             }),
             py::arg("u"), py::arg("v"))
        .def_static("read", &readVectorField, py::arg("path"),
                    "Reads a 'FLIC VECTOR' file (binary data big-endian). OSError on failure.")
        .def(
            "write",
            [](const VectorFieldObject& s, py::handle path, bool ascii) {
                writeField(s.field, pathArgument(path), ascii);
            },
            py::arg("path"), py::arg("ascii") = false,
            "Writes a 'FLIC VECTOR' file; binary data in the host's byte order.")
        .def_static("readUCD", &readVectorUCD, py::arg("path"), py::arg("width"), py::arg("height"),
                    py::arg("bbox") = py::none(),
                    "Rasterizes a UCD triangle mesh with vertex vectors into a width x height "
                    "field; bbox = (xmin, xmax, ymin, ymax) or None for the mesh's own box.")
        .def(
            "getMax", [](const VectorFieldObject& s) { return s.field.getMax(); },
            "Largest vector length.")
        .def(
            "normalize", [](VectorFieldObject& s) { s.field.normalize(); },
            "Scales every non-zero vector to length 1, in place.")
        .def("setLinear", &setLinear, py::arg("matrix"), py::arg("offset"),
             "M (u, v) + b over [-2, 2]^2, in place.")
        .def(
            "setBrusselator",
            [](VectorFieldObject& s, float xmax, float ymax, float a, float b) {
                s.field.setBrusselator(xmax, ymax, a, b);
            },
            py::arg("xmax"), py::arg("ymax"), py::arg("a"), py::arg("b"),
            "The Brusselator system over [0, xmax] x [0, ymax], in place.")
        .def(
            "setCircle", [](VectorFieldObject& s, float angle) { s.field.setCircle(angle); },
            py::arg("angle") = 0.0f,
            "Circles about the centre (angle 0: counter-clockwise), turned by angle, in place.")
        .def_static("saddle", &saddle, "A saddle on a 2 x 2 grid.")
        .def_static("fromScalarField", &fromScalarField, py::arg("field"), py::arg("angle") = 0.0f,
                    "Gradient turned by 90 degrees minus angle (0: along the iso-lines).")
        .def_static("fromImage", &fromImage, py::arg("image"), py::arg("angle") = 0.0f,
                    "The same for an image's grey values.")
        .def("vecToColor", &vecToColor, py::arg("size") = py::none(),
             "Directions as hues: an RGB Image of the field's size, or stretched to size (W, H).")
        .def("magnitude", &magnitude, py::arg("size") = py::none(),
             "Vector lengths as a ScalarField, of the field's size or stretched to size (W, H).")
        .def("resample", &resample, py::arg("width"), py::arg("height"),
             "Cell-centred bilinear resampling (new VectorField).");
}

void bindScalarField(py::module_& m) {
    py::class_<ScalarFieldObject> cls(m, "ScalarField", R"doc(A 2-D scalar field on a grid.

numpy.asarray(field) is a writable float32 view of shape (H, W), row 0 the bottom row.
ScalarField(width, height) is zero; ScalarField(array) copies an (H, W) float array.)doc");
    enableCountedBuffer<ScalarFieldObject>(cls);
    bindFieldBasics<ScalarFieldObject>(
        cls, "ScalarField", 1, &copyScalarField, &scalarValues,
        [](py::handle values) { return scalarFieldFromArray(values); });
    cls.def(py::init(&blankScalarField), py::arg("width"), py::arg("height"))
        .def(py::init(&scalarFieldFromArray), py::arg("array"))
        .def_static("read", &readScalarField, py::arg("path"),
                    "Reads a 'FLIC SCALAR' file. OSError with the library's message on failure.")
        .def(
            "write",
            [](const ScalarFieldObject& s, py::handle path, bool ascii) {
                writeField(s.field, pathArgument(path), ascii);
            },
            py::arg("path"), py::arg("ascii") = false, "Writes a 'FLIC SCALAR' file.")
        .def_static("readUCD", &readScalarUCD, py::arg("path"), py::arg("width"), py::arg("height"),
                    "Rasterizes a UCD triangle mesh with vertex values into a width x height "
                    "field.")
        .def(
            "createDipole",
            [](ScalarFieldObject& s, float extent, float phase) {
                s.field.createDipole(extent, phase);
            },
            py::arg("extent"), py::arg("phase") = 0.0f,
            "Radiation pattern of an oscillating dipole over [-extent, extent]^2, in place.")
        .def(
            "createCircle", [](ScalarFieldObject& s) { s.field.createCircle(); },
            "Squared distance from the centre over [-0.5, 0.5]^2, in place.")
        .def(
            "getRange",
            [](const ScalarFieldObject& s) {
                float low = 0.0f, high = 0.0f;
                s.field.getRange(low, high);
                return py::make_tuple(low, high);
            },
            "(smallest, largest) value.")
        .def("pseudoColor", &pseudoColor, py::arg("colormap"), py::arg("size") = py::none(),
             "Colours the values through the map's range: an RGB Image of the field's size, "
             "or stretched to size (W, H).");
}

} // namespace

void bindFields(py::module_& m) {
    bindVectorField(m);
    bindScalarField(m);
}
