// Message capture, the library lock, standard-stream capture, counted buffers and the numpy
// conversions shared by every binding of the module.
#include "support.h"

#include "messages.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

namespace mp {

// --- Messages -------------------------------------------------------------------------------

namespace {

const char kErrorPrefix[] = "FLIC error: ";
const char kInfoPrefix[] = "FLIC info: ";

struct ThreadMessages {
    std::vector<std::string> errors;
    std::vector<std::string> infos;
};

ThreadMessages& threadMessages() {
    thread_local ThreadMessages messages;
    return messages;
}

int captureError(const char* text) {
    threadMessages().errors.emplace_back(text);
    return 0;
}

int captureInfo(const char* text) {
    threadMessages().infos.emplace_back(text);
    return 0;
}

// The text without the "FLIC info: " prefix: the logger's name and level already say it.
std::string withoutPrefix(const std::string& text, const char* prefix) {
    size_t length = strlen(prefix);
    return text.compare(0, length, prefix) == 0 ? text.substr(length) : text;
}

std::string joinLines(const std::vector<std::string>& lines) {
    std::string joined;
    for (const std::string& line : lines) {
        if (!joined.empty()) joined += '\n';
        joined += line;
    }
    return joined;
}

} // namespace

void installMessageHandlers() {
    flic_error_handler = &captureError;
    flic_info_handler = &captureInfo;
    flic_warning_handler = &captureInfo; // logged as info records with their own prefix
    flic_verbosity = 1;                  // the logger's level decides what is shown
}

MessageScope::MessageScope() {
    threadMessages().errors.clear();
    threadMessages().infos.clear();
}

MessageScope::~MessageScope() {
    threadMessages().errors.clear();
    threadMessages().infos.clear();
}

std::string MessageScope::errors() const {
    return joinLines(threadMessages().errors);
}

void logRecord(const char* level, const std::string& text) {
    py::object logger = py::module_::import("logging").attr("getLogger")("muskeip");
    logger.attr(level)("%s", text);
}

void MessageScope::deliverInfo(bool deliverErrorsAsWarnings) {
    ThreadMessages& messages = threadMessages();
    std::vector<std::string> infos, errors;
    infos.swap(messages.infos);
    if (deliverErrorsAsWarnings) errors.swap(messages.errors);
    for (const std::string& text : infos)
        logRecord("info", withoutPrefix(text, kInfoPrefix));
    for (const std::string& text : errors)
        logRecord("warning", withoutPrefix(text, kErrorPrefix));
}

[[noreturn]] void raiseOSError(const std::string& text, const std::string& fallback) {
    // The text alone: with a filename attribute, str() of OSError would no longer be the
    // library's message.
    PyErr_SetString(PyExc_OSError, (text.empty() ? fallback : text).c_str());
    throw py::error_already_set();
}

[[noreturn]] void raiseValueError(const std::string& text, const std::string& fallback) {
    throw py::value_error(text.empty() ? fallback : text);
}

// --- Library lock and stream capture ---------------------------------------------------------

std::mutex& libraryMutex() {
    static std::mutex mutex;
    return mutex;
}

StdioCapture::StdioCapture()
    : savedErr(stderr), savedOut(stdout), errStream(nullptr), outStream(nullptr),
      errBuffer(nullptr), outBuffer(nullptr), errLength(0), outLength(0), active(false) {
    fflush(stderr);
    fflush(stdout);
    errStream = open_memstream(&errBuffer, &errLength);
    outStream = open_memstream(&outBuffer, &outLength);
    if (!errStream || !outStream) {
        if (errStream) fclose(errStream);
        if (outStream) fclose(outStream);
        free(errBuffer);
        free(outBuffer);
        errStream = outStream = nullptr;
        errBuffer = outBuffer = nullptr;
        return; // no capture: the texts go to the real streams
    }
    stderr = errStream;
    stdout = outStream;
    active = true;
}

StdioCapture::~StdioCapture() {
    finish();
}

void StdioCapture::finish() {
    if (!active) return;
    active = false;
    stderr = savedErr;
    stdout = savedOut;
    fclose(errStream);
    fclose(outStream);
    errText.assign(errBuffer ? errBuffer : "", errLength);
    outText.assign(outBuffer ? outBuffer : "", outLength);
    free(errBuffer);
    free(outBuffer);
    errBuffer = outBuffer = nullptr;
    while (!errText.empty() && errText.back() == '\n')
        errText.pop_back();
    while (!outText.empty() && outText.back() == '\n')
        outText.pop_back();
}

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

// --- numpy conversions --------------------------------------------------------------------

py::array asArray(py::handle object, const char* what) {
    if (object.is_none()) throw py::type_error(std::string(what) + " must be an array, not None");
    try {
        return py::module_::import("numpy").attr("asarray")(object);
    } catch (py::error_already_set& error) {
        throw py::type_error(std::string(what) +
                             " can't be converted to an array: " + error.what());
    }
}

int imageChannels(const py::array& array, const char* what) {
    if (array.dtype().kind() != 'u' || array.dtype().itemsize() != 1)
        throw py::type_error(std::string(what) + " must hold uint8 values, not " +
                             std::string(py::str(array.dtype())));
    if (array.ndim() == 2) return 1;
    if (array.ndim() == 3 && array.shape(2) == 3) return 3;
    throw py::value_error(std::string(what) + " must have the shape (H, W) or (H, W, 3), not " +
                          std::string(py::str(py::cast(std::vector<py::ssize_t>(
                              array.shape(), array.shape() + array.ndim())))));
}

void copyArrayToImage(const py::array& array, const char* what, FlicImage& image) {
    int channels = imageChannels(array, what);
    if (array.shape(0) < 1 || array.shape(1) < 1 || array.shape(0) > INT32_MAX ||
        array.shape(1) > INT32_MAX)
        throw py::value_error(std::string(what) + " must have at least one pixel");
    auto compact = py::array_t<uint8_t, py::array::c_style>::ensure(array);
    if (!compact) throw py::error_already_set();
    int width = static_cast<int>(array.shape(1)), height = static_cast<int>(array.shape(0));
    MessageScope scope;
    if (!image.setSize(width, height, channels) || !image.data)
        raiseValueError(scope.errors(), std::string(what) + " is too large for an image");
    memcpy(image.data, compact.data(), static_cast<size_t>(compact.nbytes()));
}

py::array_t<float, py::array::c_style> floatArray(const py::array& array, const char* what) {
    char kind = array.dtype().kind();
    if (kind != 'f')
        throw py::type_error(std::string(what) + " must hold floating-point values, not " +
                             std::string(py::str(array.dtype())));
    auto converted = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(array);
    if (!converted) throw py::error_already_set();
    return converted;
}

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

std::string pathArgument(py::handle path) {
    py::object encoded;
    try {
        encoded = py::module_::import("os").attr("fsencode")(path);
    } catch (py::error_already_set&) {
        throw py::type_error("a file name must be str, bytes or os.PathLike");
    }
    std::string name = py::cast<std::string>(py::bytes(encoded));
    if (name.find('\0') != std::string::npos)
        throw py::value_error("a file name must not contain NUL characters");
    return name;
}

int seedArgument(py::handle seed) {
    if (seed.is_none()) return 0;
    if (!py::isinstance<py::int_>(seed)) throw py::type_error("seed must be an int or None");
    long long value = 0;
    try {
        value = py::cast<long long>(seed);
    } catch (py::cast_error&) {
        value = -1;
    }
    if (value < 1 || value > INT32_MAX)
        throw py::value_error("seed must be between 1 and 2147483647, or None");
    return static_cast<int>(value);
}

void parseSize(py::handle size, const char* what, int& width, int& height, int minimum) {
    std::vector<long long> values;
    try {
        values = py::cast<std::vector<long long>>(size);
    } catch (py::cast_error&) {
        throw py::type_error(std::string(what) + " must be a pair of ints (width, height)");
    }
    if (values.size() != 2)
        throw py::value_error(std::string(what) + " must be a pair (width, height)");
    if (values[0] < minimum || values[1] < minimum || values[0] > 1000000 || values[1] > 1000000)
        throw py::value_error(std::string(what) + " must be between " + std::to_string(minimum) +
                              " and 1000000 in each direction");
    width = static_cast<int>(values[0]);
    height = static_cast<int>(values[1]);
}

} // namespace mp
