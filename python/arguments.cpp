// Conversion of Python arguments: numpy arrays to images and floats, file names, seeds, sizes,
// and setting names looked up in the library's tables.
#include "arguments.h"

#include "errors.h"

#include <cstring>

namespace mp {

// --- numpy conversions --------------------------------------------------------------------

py::array asArray(py::handle object, const char* what) {
    if (object.is_none()) throw py::type_error(std::string(what) + " must be an array, not None");
    try {
        return py::module_::import("numpy").attr("asarray")(object);
    } catch (py::error_already_set& error) {
        throw py::type_error(std::string(what) +
                             " can't be converted to an array: " + error.what());
    }
}

int imageChannels(const py::array& array, const char* what) {
    if (array.dtype().kind() != 'u' || array.dtype().itemsize() != 1)
        throw py::type_error(std::string(what) + " must hold uint8 values, not " +
                             std::string(py::str(array.dtype())));
    if (array.ndim() == 2) return 1;
    if (array.ndim() == 3 && array.shape(2) == 3) return 3;
    throw py::value_error(std::string(what) + " must have the shape (H, W) or (H, W, 3), not " +
                          std::string(py::str(py::cast(std::vector<py::ssize_t>(
                              array.shape(), array.shape() + array.ndim())))));
}

void copyArrayToImage(const py::array& array, const char* what, FlicImage& image) {
    int channels = imageChannels(array, what);
    if (array.shape(0) < 1 || array.shape(1) < 1 || array.shape(0) > INT32_MAX ||
        array.shape(1) > INT32_MAX)
        throw py::value_error(std::string(what) + " must have at least one pixel");
    auto compact = py::array_t<uint8_t, py::array::c_style>::ensure(array);
    if (!compact) throw py::error_already_set();
    int width = static_cast<int>(array.shape(1)), height = static_cast<int>(array.shape(0));
    MessageScope scope;
    if (!image.setSize(width, height, channels) || !image.data)
        raiseValueError(scope.errors(), std::string(what) + " is too large for an image");
    memcpy(image.data, compact.data(), static_cast<size_t>(compact.nbytes()));
}

py::array_t<float, py::array::c_style> floatArray(const py::array& array, const char* what) {
    char kind = array.dtype().kind();
    if (kind != 'f')
        throw py::type_error(std::string(what) + " must hold floating-point values, not " +
                             std::string(py::str(array.dtype())));
    auto converted = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(array);
    if (!converted) throw py::error_already_set();
    return converted;
}

std::string pathArgument(py::handle path) {
    py::object encoded;
    try {
        encoded = py::module_::import("os").attr("fsencode")(path);
    } catch (py::error_already_set&) {
        throw py::type_error("a file name must be str, bytes or os.PathLike");
    }
    std::string name = py::cast<std::string>(py::bytes(encoded));
    if (name.find('\0') != std::string::npos)
        throw py::value_error("a file name must not contain NUL characters");
    return name;
}

int seedArgument(py::handle seed) {
    if (seed.is_none()) return 0;
    if (!py::isinstance<py::int_>(seed)) throw py::type_error("seed must be an int or None");
    long long value = 0;
    try {
        value = py::cast<long long>(seed);
    } catch (py::cast_error&) {
        value = -1;
    }
    if (value < 1 || value > INT32_MAX)
        throw py::value_error("seed must be between 1 and 2147483647, or None");
    return static_cast<int>(value);
}

void parseSize(py::handle size, const char* what, int& width, int& height, int minimum) {
    std::vector<long long> values;
    try {
        values = py::cast<std::vector<long long>>(size);
    } catch (py::cast_error&) {
        throw py::type_error(std::string(what) + " must be a pair of ints (width, height)");
    }
    if (values.size() != 2)
        throw py::value_error(std::string(what) + " must be a pair (width, height)");
    if (values[0] < minimum || values[1] < minimum || values[0] > 1000000 || values[1] > 1000000)
        throw py::value_error(std::string(what) + " must be between " + std::to_string(minimum) +
                              " and 1000000 in each direction");
    width = static_cast<int>(values[0]);
    height = static_cast<int>(values[1]);
}

int chooseSetting(const std::string& word, const FlicSettingTable& table) {
    int value = 0;
    if (flicSettingValue(table, word.c_str(), value)) return value;
    std::string accepted;
    for (const FlicSettingName* entry = table.names; entry->name; entry++)
        if (!entry->alias)
            accepted += (accepted.empty() ? "'" : ", '") + std::string(entry->name) + "'";
    throw py::value_error(std::string(table.setting) + " must be one of " + accepted + ", not '" +
                          word + "'");
}

} // namespace mp
