// The library's messages turned into Python exceptions and log records, and the serialisation
// of the library's process-wide state (noise generator, shared tables, standard streams).
#ifndef MUSKEIP_PYTHON_ERRORS_H
#define MUSKEIP_PYTHON_ERRORS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdio>
#include <mutex>
#include <string>

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

} // namespace mp

#endif
