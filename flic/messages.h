// Diagnostics: every report of the library goes through these functions and the replaceable
// handlers below, so a host can route messages into its own console or log.
#ifndef MUSKEIP_MESSAGES_H
#define MUSKEIP_MESSAGES_H

#include "api.h"

// A message handler receives one complete line of text, prefix included, without a trailing
// newline. The text lives only for the duration of the call. The return value is ignored.
typedef int (*FlicMessageHandler)(const char*);

// Receives every error message; null discards errors. Initially prints to standard error.
MUSKEIP_API extern FlicMessageHandler flic_error_handler;
// Receives warnings: what an operation skipped or doubted while still succeeding; null
// discards them. Initially prints to standard error.
MUSKEIP_API extern FlicMessageHandler flic_warning_handler;
// Receives informational messages while flic_verbosity is non-zero; null discards them.
MUSKEIP_API extern FlicMessageHandler flic_info_handler;
// Informational messages are formatted and delivered only while this is non-zero (initially 0).
MUSKEIP_API extern int flic_verbosity;

// Formats "FLIC error: " followed by the printf-style message and hands it to
// flic_error_handler. Always returns 0, so failing operations can `return flic_error(...)`.
MUSKEIP_API int flic_error(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Formats "FLIC warning: " followed by the printf-style message and hands it to
// flic_warning_handler. Always returns 0.
MUSKEIP_API int flic_warning(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Formats "FLIC info: " followed by the message and hands it to flic_info_handler, but only
// while flic_verbosity is non-zero (otherwise nothing is formatted). Always returns 0.
MUSKEIP_API int flic_info(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Reports that a file could not be used: "can't open <filename> (<reason>)" through flic_error.
// A null reason stands for the text of the current errno. Always returns 0.
MUSKEIP_API int flic_ioerror(const char* filename, const char* reason);

// Package entry by which a host recognises the library: returns the build description, a text
// of "|key|value" pairs beginning with "|vendor|". The text is static and stays valid.
extern "C" MUSKEIP_API const char* orlapackage_flic();

#endif
