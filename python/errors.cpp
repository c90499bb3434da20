// The library's messages turned into Python exceptions and log records: per-thread message
// capture, the lock around the library's process-wide state, and the capture of the standard
// streams that some file operations write to.
#include "errors.h"

#include "messages.h"

#include <cstdlib>
#include <cstring>
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

} // namespace mp
