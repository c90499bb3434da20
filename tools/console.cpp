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
bool progressLineOpen = false; // a bar is drawn and its line not ended

void printLine(const char* kind, const char* format, va_list args) {
    endProgressLine();
    fprintf(stderr, "muskeip: %s", kind);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
}

// Library errors: the library's text, with the file name in front when the text lacks it.
int errorHandler(const char* text) {
    endProgressLine();
    if (!currentFile.empty() && !strstr(text, currentFile.c_str()))
        return fprintf(stderr, "muskeip: %s: %s\n", currentFile.c_str(), text);
    return fprintf(stderr, "muskeip: %s\n", text);
}

// Library warnings: silent under -q, named by file like errors.
int warningHandler(const char* text) {
    if (quietMode) return 0;
    return errorHandler(text);
}

int infoHandler(const char* text) {
    endProgressLine();
    return fprintf(stderr, "muskeip: %s\n", text);
}

} // namespace

void consoleSetup(bool verbose, bool quiet) {
    verboseMode = verbose && !quiet;
    quietMode = quiet;
    flic_error_handler = errorHandler;
    flic_info_handler = infoHandler;
    flic_warning_handler = warningHandler;
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

void endProgressLine() {
    if (!progressLineOpen) return;
    fputc('\n', stderr);
    progressLineOpen = false;
}

ProgressBar::ProgressBar(const char* label, int computations)
    : label(label), shownPercent(-1), computations(computations < 1 ? 1 : computations),
      computation(0), lastDone(0.0f) {}

ProgressBar::~ProgressBar() {
    finish();
}

void ProgressBar::update(float done, void* user) {
    ProgressBar* bar = static_cast<ProgressBar*>(user);
    if (!bar) return;
    if (!(done >= 0.0f)) done = 0.0f;
    if (done > 1.0f) done = 1.0f;
    if (done + 0.5f < bar->lastDone && bar->computation + 1 < bar->computations) bar->computation++;
    bar->lastDone = done;
    bar->draw(0.85f * (bar->computation + done) / bar->computations);
    if (done >= 1.0f && bar->computation + 1 == bar->computations)
        bar->stage("muskeip: picture steps", 0.85f); // what follows the last computation
}

void ProgressBar::stage(const char* name, float fraction) {
    if (shownPercent < 0) return; // nothing drawn: the bar is off
    label = name;
    shownPercent = -2; // redraw with the new label
    draw(fraction);
}

void ProgressBar::draw(float fraction) {
    int percent = static_cast<int>(fraction * 100.0f);
    if (percent == shownPercent) return;
    shownPercent = percent;
    const int width = 40;
    char cells[width + 1];
    int filled = percent * width / 100;
    for (int i = 0; i < width; i++)
        cells[i] = i < filled ? '#' : '.';
    cells[width] = '\0';
    fprintf(stderr, "\r%-22s [%s] %3d%%", label, cells, percent);
    fflush(stderr);
    progressLineOpen = true;
}

void ProgressBar::finish() {
    if (shownPercent >= 0) endProgressLine();
    shownPercent = -1;
}
