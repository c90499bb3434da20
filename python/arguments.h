// Conversion of Python arguments for the bindings: numpy arrays, file names, seeds, sizes and
// setting names.
#ifndef MUSKEIP_PYTHON_ARGUMENTS_H
#define MUSKEIP_PYTHON_ARGUMENTS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "image.h"
#include "settings.h"

#include <string>

namespace py = pybind11;

namespace mp {

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
// A file name from str, bytes or os.PathLike, in the file system's encoding.
std::string pathArgument(py::handle path);

// A seed argument: None (0: continue the generator's sequence) or an int 1 .. 2^31 - 1.
int seedArgument(py::handle seed);

// Size argument (W, H) as two positive ints; raises ValueError naming `what`.
void parseSize(py::handle size, const char* what, int& width, int& height, int minimum);

// The value of a setting's name in one of the library's tables; ValueError lists the valid
// names ("kernel must be one of 'box', 'triangle', 'cubic', not 'gauss'").
int chooseSetting(const std::string& word, const FlicSettingTable& table);

} // namespace mp

#endif
