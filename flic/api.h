// MUSKEIP_API marks what the shared library exports: the classes, functions and variables of
// the public headers. Everything else is built with hidden visibility and stays internal.
#ifndef MUSKEIP_API_H
#define MUSKEIP_API_H

#if defined(__GNUC__)
#define MUSKEIP_API __attribute__((visibility("default")))
#else
#define MUSKEIP_API
#endif

#endif
