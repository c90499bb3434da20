// The wrapper objects' buffer protocol, which counts the views it hands out, and new wrapper
// objects around library objects.
#include "buffers.h"

#include "errors.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

namespace mp {

// --- Counted buffers --------------------------------------------------------------------------

namespace {

unsigned char emptyStorage[1];

// Storage, item size, format and layout of each wrapped type.
struct BufferDescription {
    void* data;
    Py_ssize_t itemSize;
    const char* format;
};

BufferDescription describe(ImageObject& object) {
    FlicImage& image = object.image;
    BufferLayout& layout = object.layout;
    bool grey = image.nChannels == 1;
    layout.ndim = grey ? 2 : 3;
    layout.shape[0] = image.height;
    layout.shape[1] = image.width;
    layout.shape[2] = image.nChannels;
    layout.strides[0] = image.bytesPerLine;
    layout.strides[1] = image.nChannels;
    layout.strides[2] = 1;
    return {image.data, 1, "B"};
}

// Storage of float32 values in C order in the given shape; sets the layout to match.
BufferDescription compactFloats(BufferLayout& layout, std::initializer_list<Py_ssize_t> shape,
                                float* data) {
    layout.ndim = static_cast<int>(shape.size());
    Py_ssize_t stride = sizeof(float);
    for (int i = layout.ndim - 1; i >= 0; i--) {
        layout.shape[i] = shape.begin()[i];
        layout.strides[i] = stride;
        stride *= layout.shape[i];
    }
    return {data, sizeof(float), "f"};
}

BufferDescription describe(VectorFieldObject& object) {
    FlicVectorField& field = object.field;
    return compactFloats(object.layout, {field.height, field.width, 2}, field.data);
}

BufferDescription describe(ScalarFieldObject& object) {
    FlicScalarField& field = object.field;
    return compactFloats(object.layout, {field.height, field.width}, field.data);
}

BufferDescription describe(ColormapObject& object) {
    return compactFloats(object.layout, {256, 3}, &object.colormap.colors[0][0]);
}

template <class Object>
int getCountedBuffer(PyObject* self, Py_buffer* view, int flags) {
    Object* object = nullptr;
    try {
        object = py::cast<Object*>(py::handle(self));
    } catch (...) {
        PyErr_SetString(PyExc_BufferError, "object is not initialised");
        return -1;
    }
    if (!object) {
        PyErr_SetString(PyExc_BufferError, "object is not initialised");
        return -1;
    }
    BufferDescription description = describe(*object);
    BufferLayout& layout = object->layout;
    Py_ssize_t length = description.itemSize;
    for (int i = 0; i < layout.ndim; i++)
        length *= layout.shape[i];
    view->buf = description.data ? description.data : emptyStorage;
    view->obj = self;
    Py_INCREF(self);
    view->len = description.data ? length : 0;
    view->readonly = 0;
    view->itemsize = description.itemSize;
    view->format = (flags & PyBUF_FORMAT) ? const_cast<char*>(description.format) : nullptr;
    view->ndim = layout.ndim;
    view->shape = (flags & PyBUF_ND) ? layout.shape : nullptr;
    view->strides = ((flags & PyBUF_STRIDES) == PyBUF_STRIDES) ? layout.strides : nullptr;
    view->suboffsets = nullptr;
    view->internal = nullptr;
    layout.exports++;
    return 0;
}

template <class Object>
void releaseCountedBuffer(PyObject* self, Py_buffer*) {
    try {
        Object* object = py::cast<Object*>(py::handle(self));
        if (object && object->layout.exports > 0) object->layout.exports--;
    } catch (...) {
        PyErr_Clear();
    }
}

} // namespace

template <class Object>
void enableCountedBuffer(py::handle pythonClass) {
    auto* heapType = reinterpret_cast<PyHeapTypeObject*>(pythonClass.ptr());
    heapType->as_buffer.bf_getbuffer = &getCountedBuffer<Object>;
    heapType->as_buffer.bf_releasebuffer = &releaseCountedBuffer<Object>;
    heapType->ht_type.tp_as_buffer = &heapType->as_buffer;
}

template void enableCountedBuffer<ImageObject>(py::handle);
template void enableCountedBuffer<VectorFieldObject>(py::handle);
template void enableCountedBuffer<ScalarFieldObject>(py::handle);
template void enableCountedBuffer<ColormapObject>(py::handle);

void requireNoViews(const BufferLayout& layout, const char* what) {
    if (layout.exports > 0)
        throw py::buffer_error(std::string(what) +
                               ": arrays still view the pixels, so the geometry can't change");
}

// --- New wrapper objects ------------------------------------------------------------------

py::array adoptImage(FlicImage& image) {
    std::vector<py::ssize_t> shape = {image.height, image.width};
    if (image.nChannels != 1) shape.push_back(image.nChannels);
    unsigned char* block = image.buffer;
    image.buffer = nullptr;
    image.data = nullptr;
    py::capsule owner(block ? static_cast<void*>(block) : nullptr, [](void* p) { free(p); });
    if (!block) return py::array(py::dtype::of<uint8_t>(), shape);
    return py::array(py::dtype::of<uint8_t>(), shape, block, owner);
}

py::object newImage(FlicImage& image) {
    auto object = std::make_unique<ImageObject>();
    object->image.swap(image);
    return py::cast(std::move(object));
}

py::object newVectorField(FlicVectorField& field) {
    auto object = std::make_unique<VectorFieldObject>();
    object->field.swap(field);
    return py::cast(std::move(object));
}

py::object newScalarField(FlicScalarField& field) {
    auto object = std::make_unique<ScalarFieldObject>();
    object->field.swap(field);
    return py::cast(std::move(object));
}

} // namespace mp
