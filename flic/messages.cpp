// Message formatting and routing, and the package entry with the build description.
#include "messages.h"

#include "muskeip_build_info.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <dlfcn.h>
#include <sys/stat.h>

namespace {

// Prints the message and a line end on standard error.
int default_handler(const char* text) {
    return fprintf(stderr, "%s\n", text);
}

// Message buffer size, prefix included; longer messages are cut at this size.
const int kMessageBufferSize = 4096;

// Builds prefix + formatted message in a local buffer and passes it to the handler (if any).
void deliver(const char* prefix, const FlicMessageHandler& handler_slot, const char* format,
             va_list args) {
    char text[kMessageBufferSize];
    strcpy(text, prefix);
    size_t prefix_length = strlen(text);
    vsnprintf(text + prefix_length, sizeof text - prefix_length, format, args);
    FlicMessageHandler handler = handler_slot; // read the pointer once
    if (handler) handler(text);
}

} // namespace

FlicMessageHandler flic_error_handler = default_handler;
FlicMessageHandler flic_warning_handler = default_handler;
FlicMessageHandler flic_info_handler = default_handler;
int flic_verbosity = 0;

int flic_error(const char* format, ...) {
    va_list args;
    va_start(args, format);
    deliver("FLIC error: ", flic_error_handler, format, args);
    va_end(args);
    return 0;
}

int flic_warning(const char* format, ...) {
    va_list args;
    va_start(args, format);
    deliver("FLIC warning: ", flic_warning_handler, format, args);
    va_end(args);
    return 0;
}

int flic_info(const char* format, ...) {
    if (flic_verbosity == 0) return 0;
    va_list args;
    va_start(args, format);
    deliver("FLIC info: ", flic_info_handler, format, args);
    va_end(args);
    return 0;
}

int flic_ioerror(const char* filename, const char* reason) {
    if (reason == nullptr) reason = strerror(errno);
    return flic_error("can't open %s (%s)", filename, reason);
}

namespace {

// Where the loaded library lives: file name, directory and size in bytes. Falls back to the
// names the build chose when the loader cannot tell.
void locate_library(std::string& filename, std::string& path, std::string& size) {
    filename = MUSKEIP_LIBRARY_FILE;
    path = MUSKEIP_INSTALL_PATH;
    size = "0";
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&orlapackage_flic), &info) == 0 || !info.dli_fname) return;
    std::string full = info.dli_fname;
    size_t slash = full.rfind('/');
    if (slash != std::string::npos) {
        filename = full.substr(slash + 1);
        path = full.substr(0, slash);
    } else {
        filename = full;
    }
    struct stat st;
    if (stat(info.dli_fname, &st) == 0) size = std::to_string(static_cast<long long>(st.st_size));
}

// The leading marker of the description, and the same marker with '#' after each character.
const char kMarker[] = "@(MUSKEIP)";
const char kMarkerSpelled[] = "@#(#M#U#S#K#E#I#P#)#";

std::string build_description() {
    std::string filename, path, size;
    locate_library(filename, path, size);
    const char* pairs[][2] = {
        {"vendor", MUSKEIP_VENDOR},
        {"product", MUSKEIP_PRODUCT},
        {"version_major", MUSKEIP_VERSION_MAJOR},
        {"version_minor", MUSKEIP_VERSION_MINOR},
        {"version_patch", MUSKEIP_VERSION_PATCH},
        {"version_tag", MUSKEIP_VERSION_TAG},
        {"comment", MUSKEIP_COMMENT},
        {"compiler", MUSKEIP_COMPILER},
        {"target_os", MUSKEIP_TARGET_OS},
        {"build_cfg", MUSKEIP_BUILD_CFG},
        {"build_user", MUSKEIP_BUILD_USER},
        {"build_ip", MUSKEIP_BUILD_IP},
        {"build_time", MUSKEIP_BUILD_TIME},
        {"filename", filename.c_str()},
        {"path", path.c_str()},
        {"size", size.c_str()},
    };
    std::string text = kMarker;
    for (const auto& pair : pairs) {
        text += '|';
        text += pair[0];
        text += '|';
        text += pair[1];
    }
    return text;
}

} // namespace

extern "C" const char* orlapackage_flic() {
    static const std::string version = build_description();
    size_t marker_length = strlen(kMarkerSpelled) / 2;
    return version.c_str() + marker_length;
}
