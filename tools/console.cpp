// Message handlers, verbosity and the progress bar of the command line.
#include "console.h"

#include "messages.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

bool verboseMode = false;
bool quietMode = false;
std::string currentFile;

void printLine(const char* kind, const char* format, va_list args) {
    fprintf(stderr, "muskeip: %s", kind);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
}

// Library errors: the library's text, with the file name in front when the text lacks it.
int errorHandler(const char* text) {
    if (!currentFile.empty() && !strstr(text, currentFile.c_str()))
        return fprintf(stderr, "muskeip: %s: %s\n", currentFile.c_str(), text);
    return fprintf(stderr, "muskeip: %s\n", text);
}

int infoHandler(const char* text) {
    return fprintf(stderr, "muskeip: %s\n", text);
}

} // namespace

void consoleSetup(bool verbose, bool quiet) {
    verboseMode = verbose && !quiet;
    quietMode = quiet;
    flic_error_handler = errorHandler;
    flic_info_handler = infoHandler;
    flic_verbosity = verboseMode ? 1 : 0;
}

bool consoleVerbose() {
    return verboseMode;
}

bool consoleQuiet() {
    return quietMode;
}

bool stderrIsTerminal() {
    return isatty(STDERR_FILENO) != 0;
}

int failure(const char* format, ...) {
    va_list args;
    va_start(args, format);
    printLine("error: ", format, args);
    va_end(args);
    return EXIT_FAILED;
}

int usageError(const char* format, ...) {
    va_list args;
    va_start(args, format);
    printLine("usage: ", format, args);
    va_end(args);
    fprintf(stderr, "Run with --help for more information.\n");
    return EXIT_USAGE;
}

void warning(const char* format, ...) {
    if (quietMode) return;
    va_list args;
    va_start(args, format);
    printLine("warning: ", format, args);
    va_end(args);
}

void note(const char* format, ...) {
    if (!verboseMode) return;
    va_list args;
    va_start(args, format);
    printLine("", format, args);
    va_end(args);
}

FileContext::FileContext(const std::string& path) : previous(currentFile) {
    currentFile = path;
}

FileContext::~FileContext() {
    currentFile = previous;
}

ProgressBar::ProgressBar(const char* label) : label(label), shownPercent(-1) {}

void ProgressBar::update(float done, void* user) {
    ProgressBar* bar = static_cast<ProgressBar*>(user);
    if (!bar) return;
    if (!(done >= 0.0f)) done = 0.0f;
    if (done > 1.0f) done = 1.0f;
    int percent = static_cast<int>(done * 100.0f);
    if (percent == bar->shownPercent) return;
    bar->shownPercent = percent;
    const int width = 40;
    char cells[width + 1];
    int filled = percent * width / 100;
    for (int i = 0; i < width; i++)
        cells[i] = i < filled ? '#' : '.';
    cells[width] = '\0';
    fprintf(stderr, "\r%s [%s] %3d%%", bar->label, cells, percent);
    fflush(stderr);
}

void ProgressBar::finish() {
    if (shownPercent >= 0) fputc('\n', stderr);
    shownPercent = -1;
}
