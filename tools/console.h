// Console conventions of the command line: where messages go, how loud the program is, the
// exit statuses, and the one-line progress bar.
#ifndef MUSKEIP_TOOLS_CONSOLE_H
#define MUSKEIP_TOOLS_CONSOLE_H

#include <string>

// Exit statuses of the program.
enum ExitStatus { EXIT_OK = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

// Installs the message handlers: library errors always reach standard error, prefixed with the
// program name (and with the file being worked on when the message does not name it);
// library information only with `verbose`. `quiet` silences warnings and the progress bar.
void consoleSetup(bool verbose, bool quiet);
bool consoleVerbose();
bool consoleQuiet();
// Whether standard error is a terminal (the progress bar is drawn only there).
bool stderrIsTerminal();

// "muskeip: error: ..." on standard error; returns EXIT_FAILED.
int failure(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
// "muskeip: usage: ..." and a pointer to --help on standard error; returns EXIT_USAGE.
int usageError(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
// "muskeip: warning: ..." on standard error unless quiet.
void warning(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
// "muskeip: ..." on standard error only when verbose.
void note(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// While it lives, library messages that do not mention `path` are prefixed with it, so every
// report names the file it is about.
class FileContext {
  public:
    explicit FileContext(const std::string& path);
    ~FileContext();
    FileContext(const FileContext&) = delete;
    FileContext& operator=(const FileContext&) = delete;

  private:
    std::string previous;
};

// A one-line progress bar on standard error over the stages of a run, redrawn only when its
// percentage changes. Every message printed while it shows starts on a line of its own.
class ProgressBar {
  public:
    // `computations`: how many engine runs the computing stage holds (2 with --enhance).
    explicit ProgressBar(const char* label, int computations = 1);
    ~ProgressBar();
    // Progress callback for FlicCompute: `done` in 0..1 of one computation, `user` the bar. The
    // computations fill the bar's first 85 %; a computation that starts again counts as the
    // next one.
    static void update(float done, void* user);
    // Moves the bar to `fraction` (0..1) of the whole run under a new label.
    void stage(const char* label, float fraction);
    // Ends the line if anything was drawn.
    void finish();

  private:
    void draw(float fraction);
    const char* label;
    int shownPercent;
    int computations, computation;
    float lastDone;
};

// Ends a progress bar's line before a message, so the message starts on a line of its own.
void endProgressLine();

#endif
