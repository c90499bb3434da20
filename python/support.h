// Shared machinery of the Python module: the wrapper objects that own the library's images and
// fields, numpy conversions, per-thread message capture, the lock that serialises the library's
// non-reentrant operations, and a buffer protocol that counts the views it hands out.
#ifndef MUSKEIP_PYTHON_SUPPORT_H
#define MUSKEIP_PYTHON_SUPPORT_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "colormap.h"
#include "image.h"
#include "scalarfield.h"
#include "vectorfield.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace py = pybind11;

namespace mp {

// --- Messages -------------------------------------------------------------------------------

// Installs the capturing message handlers and turns informational messages on; called once
// when the module is imported.
void installMessageHandlers();

// Collects the library's messages of the calling thread while it lives. The handlers append
// to a thread-local list, so the GIL may be released around the library call.
class MessageScope {
  public:
    MessageScope();
    ~MessageScope();
    // Error texts collected so far, joined by newlines ("" when none).
    std::string errors() const;
    // Sends the informational texts to logging.getLogger("muskeip") (GIL held) and forgets
    // them; errors left over from a call that succeeded go there as warnings.
    void deliverInfo(bool deliverErrorsAsWarnings = true);

    MessageScope(const MessageScope&) = delete;
    MessageScope& operator=(const MessageScope&) = delete;
};

// Sends one record to the "muskeip" logger (GIL held).
void logRecord(const char* level, const std::string& text);

// --- Serialisation of the library's process-wide state --------------------------------------

// Held around operations that use process-wide state of the library: drand48 (noise), the
// packed convolution tables, the zoom contributor lists, and the standard streams while they
// are captured. Always taken after the GIL has been released, never the other way round.
std::mutex& libraryMutex();

// Runs `work` with the GIL released.
template <class Work>
auto withoutGil(Work&& work) -> decltype(work()) {
    py::gil_scoped_release release;
    return work();
}

// Runs `work` with the GIL released and the library lock held.
template <class Work>
auto serialised(Work&& work) -> decltype(work()) {
    py::gil_scoped_release release;
    std::lock_guard<std::mutex> lock(libraryMutex());
    return work();
}

// Redirects the C streams stderr and stdout into memory while it lives, so the texts that
// image and colour-map files print become exception messages and log records. Only used with
// the library lock held, which keeps two captures from overlapping.
class StdioCapture {
  public:
    StdioCapture();
    ~StdioCapture();
    // Ends the capture (idempotent) and returns what was written to stderr and stdout.
    void finish();
    std::string errText, outText;

  private:
    FILE *savedErr, *savedOut, *errStream, *outStream;
    char *errBuffer, *outBuffer;
    size_t errLength, outLength;
    bool active;
};

// Raises OSError whose text is `text` (or `fallback` when that is empty).
[[noreturn]] void raiseOSError(const std::string& text, const std::string& fallback);
// Raises ValueError with `text`, or `fallback` when `text` is empty.
[[noreturn]] void raiseValueError(const std::string& text, const std::string& fallback);

// Runs a file operation of the library (0 on failure) with the GIL released. A failure raises
// OSError with the library's messages, or `fallback` when there are none; after success the
// messages go to the logger.
template <class Work>
void fileOperation(const std::string& fallback, Work&& work) {
    MessageScope scope;
    int ok = withoutGil(work);
    if (!ok) raiseOSError(scope.errors(), fallback);
    scope.deliverInfo();
}

// Runs a file operation that reports on the standard streams (image and colour-map files; 0 on
// failure) with the library lock held and the streams captured. A failure raises OSError with
// what went to stderr, or `fallback` when nothing did; what went to stdout becomes an info
// record.
template <class Work>
void capturedFileOperation(const std::string& fallback, Work&& work) {
    int ok = 0;
    std::string errText, outText;
    serialised([&] {
        StdioCapture capture;
        ok = work();
        capture.finish();
        errText = capture.errText;
        outText = capture.outText;
    });
    if (!outText.empty()) logRecord("info", outText);
    if (!ok) raiseOSError(errText, fallback);
}

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

// --- numpy conversions ----------------------------------------------------------------------

// Checks that `array` holds uint8 values in the shape (H, W) or (H, W, 3) and returns the
// channel count; `what` names the argument in messages.
int imageChannels(const py::array& array, const char* what);
// A compact copy of a uint8 array of shape (H, W) or (H, W, 3) (any memory order).
void copyArrayToImage(const py::array& array, const char* what, FlicImage& image);
// Converts any array-like to a numpy array, raising TypeError naming `what` when numpy can't.
py::array asArray(py::handle object, const char* what);
// A float32, C-ordered version of a floating-point array (TypeError for other dtypes).
py::array_t<float, py::array::c_style> floatArray(const py::array& array, const char* what);
// Hands the owned pixel block of `image` to a new numpy array of shape (H, W) or (H, W, C),
// which frees it; the image is left empty. The image must be compact.
py::array adoptImage(FlicImage& image);

// New Python wrapper objects around a library object (moved in by swapping storage).
py::object newImage(FlicImage& image);
py::object newVectorField(FlicVectorField& field);
py::object newScalarField(FlicScalarField& field);

// A file name from str, bytes or os.PathLike, in the file system's encoding.
std::string pathArgument(py::handle path);

// A seed argument: None (0: continue the generator's sequence) or an int 1 .. 2^31 - 1.
int seedArgument(py::handle seed);

// Size argument (W, H) as two positive ints; raises ValueError naming `what`.
void parseSize(py::handle size, const char* what, int& width, int& height, int minimum);

} // namespace mp

// Binding functions, one per family.
void bindImage(py::module_& m);
void bindFields(py::module_& m);
void bindColormap(py::module_& m);
void bindGraphics(py::module_& m);
void bindLic(py::module_& m);
void bindFilters(py::module_& m);

#endif
