// The wrapper objects that own the library's images, fields and colour maps, the buffer
// protocol that counts the views they hand out, and new wrappers around library objects.
#ifndef MUSKEIP_PYTHON_BUFFERS_H
#define MUSKEIP_PYTHON_BUFFERS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "colormap.h"
#include "image.h"
#include "scalarfield.h"
#include "vectorfield.h"

namespace py = pybind11;

namespace mp {

// --- Wrapper objects ----------------------------------------------------------------------

// Shape and strides of the view handed out through the buffer protocol.
struct BufferLayout {
    int exports = 0; // views alive; the geometry may change only while this is 0
    int ndim = 0;
    Py_ssize_t shape[3] = {0, 0, 0};
    Py_ssize_t strides[3] = {0, 0, 0};
};

struct ImageObject {
    FlicImage image;
    BufferLayout layout;
};

struct VectorFieldObject {
    FlicVectorField field;
    BufferLayout layout;
};

struct ScalarFieldObject {
    FlicScalarField field;
    BufferLayout layout;
};

struct ColormapObject {
    FlicColormap colormap;
    BufferLayout layout;
};

// Gives the Python class of `Object` a writable buffer protocol over the object's storage
// that counts live views in `layout.exports`.
template <class Object>
void enableCountedBuffer(py::handle pythonClass);

// Raises BufferError when views of the object exist (before a change of geometry).
void requireNoViews(const BufferLayout& layout, const char* what);

// Hands the owned pixel block of `image` to a new numpy array of shape (H, W) or (H, W, C),
// which frees it; the image is left empty. The image must be compact.
py::array adoptImage(FlicImage& image);

// New Python wrapper objects around a library object (moved in by swapping storage).
py::object newImage(FlicImage& image);
py::object newVectorField(FlicVectorField& field);
py::object newScalarField(FlicScalarField& field);

} // namespace mp

#endif
