// Keyword conversion for muskeip.render: every value checked and turned into FlicPicture
// settings before any work starts.
#include "picture_settings.h"

#include <cmath>
#include <string>

using namespace mp;

namespace {

const float degrees = 3.14159265358979323846f / 180.0f;

std::vector<double> numbers(py::handle value, const char* what, size_t low, size_t high) {
    std::vector<double> list;
    try {
        for (py::handle item : value.cast<py::sequence>())
            list.push_back(item.cast<double>());
    } catch (const py::cast_error&) {
        list.clear();
    }
    if (list.size() < low || list.size() > high)
        throw py::value_error(std::string(what) + " must be a sequence of " + std::to_string(low) +
                              (low == high ? "" : " to " + std::to_string(high)) + " numbers");
    for (double v : list)
        if (!std::isfinite(v)) throw py::value_error(std::string(what) + " must be finite");
    return list;
}

void readAdjust(py::handle value, FlicPicture& p) {
    p.adjust = !value.is_none();
    if (!p.adjust) return;
    std::vector<double> a = numbers(value, "adjust", 2, 2);
    if (!(a[1] > 0.0)) throw py::value_error("adjust must be (mean, sdev) with sdev above 0");
    p.adjustMean = static_cast<float>(a[0]);
    p.adjustSdev = static_cast<float>(a[1]);
}

void readEqualize(py::handle value, FlicPicture& p) {
    if (value.is_none() || (py::isinstance<py::bool_>(value) && !value.cast<bool>())) return;
    if (py::isinstance<py::bool_>(value) ||
        (py::isinstance<py::str>(value) && value.cast<std::string>() == "global")) {
        p.equalize = FlicPicture::EQUALIZE_GLOBAL;
        return;
    }
    if (py::isinstance<py::str>(value) && value.cast<std::string>() == "adaptive") {
        p.equalize = FlicPicture::EQUALIZE_ADAPTIVE;
        return;
    }
    py::sequence list = value.cast<py::sequence>();
    if (list.size() < 1 || list.size() > 3 || !py::isinstance<py::str>(list[0]) ||
        list[0].cast<std::string>() != "adaptive")
        throw py::value_error("equalize must be None, 'global', 'adaptive' or ('adaptive', "
                              "tiles, clip)");
    p.equalize = FlicPicture::EQUALIZE_ADAPTIVE;
    if (list.size() > 1) p.equalizeTiles = list[1].cast<int>();
    if (list.size() > 2) p.equalizeClip = list[2].cast<float>();
    if (p.equalizeTiles < 2 || p.equalizeTiles > 64 || !(p.equalizeClip >= 1.0f) ||
        p.equalizeClip > 256.0f)
        throw py::value_error("equalize: tiles must be 2 .. 64 and clip 1 .. 256");
}

void readColour(py::handle value, PictureInput& input) {
    FlicPicture& p = input.settings;
    if (value.is_none()) return;
    if (py::isinstance<py::str>(value)) {
        std::string name = value.cast<std::string>();
        int colour = FlicPicture::NO_COLOUR;
        if (flicSettingValue(flicColourNames, name.c_str(), colour) &&
            colour != FlicPicture::NO_COLOUR)
            p.colour = static_cast<FlicPicture::ColourSource>(colour);
        else
            throw py::value_error("colour must be None, 'magnitude', 'direction' or a 2-D array, "
                                  "not '" +
                                  name + "'");
        return;
    }
    py::array array = asArray(value, "colour");
    if (array.ndim() != 2 || array.shape(0) < 1 || array.shape(1) < 1)
        throw py::value_error("colour must be a 2-D array of values (row 0 the bottom row)");
    auto values = floatArray(array, "colour");
    // The field borrows the array's memory (data set, no owned buffer to free).
    input.colourValues = std::make_unique<FlicScalarField>();
    input.colourValues->width = static_cast<int>(array.shape(1));
    input.colourValues->height = static_cast<int>(array.shape(0));
    input.colourValues->data = const_cast<float*>(values.data());
    input.keep = values;
    p.colour = FlicPicture::SCALAR;
    p.colourField = input.colourValues.get();
}

void readColormap(py::handle value, FlicPicture& p) {
    if (value.is_none()) return;
    if (py::isinstance<ColormapObject>(value)) {
        p.colormap = py::cast<ColormapObject&>(value).colormap;
        p.colormapGiven = 1;
        return;
    }
    std::string name = pathArgument(value);
    FlicColormap probe;
    if (probe.createPreset(name.c_str())) {
        p.setColormap(name.c_str());
        return;
    }
    capturedFileOperation("colormap '" + name + "' is neither a preset (" +
                              FlicColormap::presetNames() + ") nor a readable file",
                          [&] { return p.setColormap(name.c_str()); });
}

void readEmboss(py::handle value, FlicPicture& p) {
    if (value.is_none() || (py::isinstance<py::bool_>(value) && !value.cast<bool>())) return;
    if (py::isinstance<py::bool_>(value) ||
        (py::isinstance<py::str>(value) && value.cast<std::string>() == "field")) {
        p.emboss = FlicPicture::EMBOSS_FIELD;
        return;
    }
    std::vector<double> light = numbers(value, "emboss", 2, 3);
    p.emboss = FlicPicture::EMBOSS_LIGHT;
    p.light[0] = static_cast<float>(light[0]);
    p.light[1] = static_cast<float>(light[1]);
    p.light[2] = light.size() > 2 ? static_cast<float>(light[2]) : 3.0f;
    if (!(p.light[2] >= 1.0f && p.light[2] <= 1530.0f && p.light[2] == std::floor(p.light[2])))
        throw py::value_error("emboss steepness must be a whole number 1 .. 1530");
}

} // namespace

void readPictureSettings(const py::dict& k, PictureInput& input) {
    FlicPicture& p = input.settings;
    readAdjust(k["adjust"], p);
    p.enhance = k["enhance"].cast<bool>() ? 1 : 0;
    readEqualize(k["equalize"], p);
    long long blur = k["blur"].cast<long long>();
    if (blur < 0 || blur > 9) throw py::value_error("blur must be 0 .. 9");
    p.blur = static_cast<int>(blur);
    p.median = k["median"].cast<bool>() ? 1 : 0;
    readColour(k["colour"], input);
    if (p.colour == FlicPicture::NO_COLOUR && !k["colormap"].is_none())
        throw py::value_error("colormap needs colour ('magnitude', 'direction' or an array)");
    if (p.colour == FlicPicture::NO_COLOUR && !k["range"].is_none())
        throw py::value_error("range needs colour ('magnitude', 'direction' or an array)");
    readColormap(k["colormap"], p);
    p.blend = static_cast<FlicPicture::BlendMode>(
        chooseSetting(k["blend"].cast<std::string>(), flicBlendNames));
    if (!k["range"].is_none()) {
        std::vector<double> range = numbers(k["range"], "range", 2, 2);
        if (!(range[1] > range[0]))
            throw py::value_error("range must be (min, max), max above min");
        float scale = p.colour == FlicPicture::DIRECTION ? degrees : 1.0f;
        p.rangeGiven = 1;
        p.range[0] = static_cast<float>(range[0]) * scale;
        p.range[1] = static_cast<float>(range[1]) * scale;
    }
    readEmboss(k["emboss"], p);
    if (!k["zoom"].is_none()) parseSize(k["zoom"], "zoom", p.zoomWidth, p.zoomHeight, 1);
}
