// What every binding of the Python module shares: message capture and errors, the wrapper
// objects and their buffers, and argument conversion.
#ifndef MUSKEIP_PYTHON_SUPPORT_H
#define MUSKEIP_PYTHON_SUPPORT_H

#include "arguments.h"
#include "buffers.h"
#include "errors.h"

// Binding functions, one per family.
void bindImage(py::module_& m);
void bindFields(py::module_& m);
void bindColormap(py::module_& m);
void bindGraphics(py::module_& m);
void bindLic(py::module_& m);
void bindFilters(py::module_& m);

#endif
