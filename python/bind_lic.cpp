// muskeip.lic: one call from numpy arrays to a LIC picture. Every argument is checked with the
// GIL held; the noise and the computation then run without it, so threads can compute many
// pictures at once.
#include "picture_settings.h"
#include "support.h"

#include "compute.h"

#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <vector>
#include <string>

using namespace mp;

namespace {

float finiteNonNegative(double value, const char* what) {
    if (!std::isfinite(value) || value < 0.0 || value > 1.0e6)
        throw py::value_error(std::string(what) + " must be a finite number from 0 to 1e6");
    return static_cast<float>(value);
}

// The vector field of the call: borrowed from a VectorField, wrapped over a float32 (H, W, 2)
// array, or interleaved from two (H, W) arrays. `keep` holds converted arrays alive.
struct FieldInput {
    FlicVectorField owned;
    std::unique_ptr<FlicVectorField> wrapped;
    FlicVectorField* field = nullptr;
    py::object keep;
};

void checkFieldShape(py::ssize_t height, py::ssize_t width) {
    if (height < 2 || width < 2) throw py::value_error("the field needs at least 2 x 2 nodes");
    if (height > 1000000 || width > 1000000)
        throw py::value_error("the field may have at most 1000000 nodes per direction");
}

void readFieldInput(py::handle u, py::handle v, FieldInput& input) {
    if (py::isinstance<VectorFieldObject>(u)) {
        if (!v.is_none()) throw py::type_error("v must be omitted when u is a VectorField");
        input.field = &py::cast<VectorFieldObject&>(u).field;
        return;
    }
    py::array a = asArray(u, v.is_none() ? "the field" : "u");
    if (v.is_none()) {
        if (a.ndim() != 3 || a.shape(2) != 2)
            throw py::value_error("with v omitted, u must hold both components in the shape "
                                  "(H, W, 2)");
        checkFieldShape(a.shape(0), a.shape(1));
        auto values = floatArray(a, "the field");
        input.wrapped = std::make_unique<FlicVectorField>(static_cast<int>(a.shape(1)),
                                                          static_cast<int>(a.shape(0)),
                                                          const_cast<float*>(values.data()));
        input.field = input.wrapped.get();
        input.keep = values;
        return;
    }
    py::array b = asArray(v, "v");
    if (a.ndim() != 2 || b.ndim() != 2)
        throw py::value_error("u and v must be 2-D arrays of the x and y components");
    if (a.shape(0) != b.shape(0) || a.shape(1) != b.shape(1))
        throw py::value_error("u and v must have the same shape");
    checkFieldShape(a.shape(0), a.shape(1));
    auto x = floatArray(a, "u");
    auto y = floatArray(b, "v");
    int width = static_cast<int>(a.shape(1)), height = static_cast<int>(a.shape(0));
    MessageScope scope;
    if (!input.owned.setSize(width, height) || !input.owned.data)
        raiseValueError(scope.errors(), "the vector field is too large");
    const float* px = x.data();
    const float* py_ = y.data();
    float* out = input.owned.data;
    size_t nodes = static_cast<size_t>(width) * height;
    for (size_t k = 0; k < nodes; k++) {
        out[2 * k] = px[k];
        out[2 * k + 1] = py_[k];
    }
    input.field = &input.owned;
}

// An image argument as a FlicImage over C-ordered uint8 memory (the caller's, when it is
// already C-ordered). `keep` holds that memory alive.
struct ImageInput {
    std::unique_ptr<FlicImage> image;
    py::object keep;
};

void readImageInput(py::handle object, const char* what, ImageInput& input) {
    py::array array = asArray(object, what);
    int channels = imageChannels(array, what);
    auto compact = py::array_t<uint8_t, py::array::c_style>::ensure(array);
    if (!compact) throw py::error_already_set();
    if (array.shape(0) > 1000000 || array.shape(1) > 1000000)
        throw py::value_error(std::string(what) + " is too large");
    int width = static_cast<int>(array.shape(1)), height = static_cast<int>(array.shape(0));
    input.image = std::make_unique<FlicImage>(width, height, channels, width * channels,
                                              const_cast<uint8_t*>(compact.data()));
    input.keep = compact;
}

struct LicSettings {
    float length = 20.0f;
    int kernel = FlicCompute::TRIANGLE;
    int integrator = 0; // 0 RK43, 1 the fixed-step pair installed by useEuler
    int subpixels = 1;
    int seeding = 1;
    int interpolation = FlicCompute::BILINEAR;
    float normalization = 0.0f;
    int tile = 256;  // 0: the serial engine
    int threads = 0; // 0: every core
    int simdLanes = 0;
    int border[2] = {FlicCompute::PERIODIC, FlicCompute::PERIODIC};
    int orientation = 0;
    int passes = 1;
    int frames = 0; // > 0: an animation of this many frames
    int ripples = 2;
};

// Whether any node of the field has a NaN component: then it has no-data nodes.
bool hasNaN(const FlicVectorField& field) {
    long long nodes = static_cast<long long>(field.width) * field.height;
    for (long long k = 0; k < nodes; k++)
        if (std::isnan(field.vectors()[k].x) || std::isnan(field.vectors()[k].y)) return true;
    return false;
}

// Runs the engine; returns its result. Called without the GIL. With `coverage`, lines end at
// no-data nodes and the coverage image is made.
// With `picture`, the library's picture steps follow (and, with enhance, a second pass).
// The engine's settings from the call's keywords.
void configureEngine(const LicSettings& settings, FlicCompute& engine) {
    engine.setFilterLength(settings.length);
    engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(settings.kernel));
    engine.setNumSubPixels(settings.subpixels);
    engine.setInterpolationMethod(
        static_cast<FlicCompute::InterpolationMethod>(settings.interpolation));
    engine.seedingMethod = settings.seeding;
    if (settings.integrator == 1) engine.useEuler();
    engine.setNormalization(settings.normalization);
    engine.setTileSize(settings.tile);
    engine.setNumThreads(settings.threads);
    engine.setSimdLanes(settings.simdLanes);
    engine.setBorders(static_cast<FlicCompute::BorderMode>(settings.border[0]),
                      static_cast<FlicCompute::BorderMode>(settings.border[1]));
    engine.setOrientation(settings.orientation);
    engine.setPasses(settings.passes);
}

// Refuses a picture the engine cannot take (ValueError) or the memory cannot hold
// (MemoryError) before any buffer is made.
void checkResources(const LicSettings& settings, int width, int height, int channels,
                    bool rendered) {
    FlicCompute engine;
    configureEngine(settings, engine);
    long long pixels = static_cast<long long>(width) * height;
    long long extra = pixels * channels * (settings.frames > 1 ? settings.frames : 0);
    if (rendered) extra += pixels * 10; // colours and their values
    MessageScope scope;
    int fits = engine.checkResources(width, height, channels, extra);
    if (fits == 0) raiseValueError(scope.errors(), "the picture is too large for the engine");
    if (fits < 0) {
        PyErr_SetString(PyExc_MemoryError, scope.errors().c_str());
        throw py::error_already_set();
    }
}

int runEngine(const LicSettings& settings, FlicVectorField* field, FlicImage* texture,
              FlicImage* output, FlicImage* mask, FlicImage* seedMap, FlicImage* coverage,
              const FlicPicture* picture) {
    FlicCompute engine;
    configureEngine(settings, engine);
    if (coverage) {
        engine.setNoData(1);
        engine.setCoverageImage(coverage);
    }
    if (settings.frames > 0) {
        engine.setAnimationRipples(settings.ripples);
        return engine.computeFrames(field, texture, settings.frames, output, mask, seedMap);
    }
    if (picture) return picture->render(engine, *field, *texture, *output, mask, seedMap);
    return engine.compute(field, texture, output, mask, seedMap);
}

// The engine's keywords of lic, checked (ValueError / TypeError naming the keyword).
LicSettings engineSettings(double length, const std::string& kernel, const std::string& integrator,
                           long long subpixels, const std::string& seeding,
                           const std::string& interpolation, double normalization,
                           py::object threads, long long tile, long long simdLanes,
                           py::object border, bool orientation, long long passes, long long frames,
                           long long ripples) {
    LicSettings settings;
    if (simdLanes < 0 || simdLanes > 1024) throw py::value_error("simd_lanes must be 0 .. 1024");
    settings.simdLanes = static_cast<int>(simdLanes);
    settings.length = finiteNonNegative(length, "length");
    settings.normalization = finiteNonNegative(normalization, "normalization");
    settings.kernel = chooseSetting(kernel, flicKernelNames);
    settings.integrator = chooseSetting(integrator, flicIntegratorNames);
    settings.seeding = chooseSetting(seeding, flicSeedingNames);
    settings.interpolation = chooseSetting(interpolation, flicInterpolationNames);
    if (subpixels < 1 || subpixels > 16) throw py::value_error("subpixels must be 1 .. 16");
    settings.subpixels = static_cast<int>(subpixels);
    if (tile != 0 && (tile < 8 || tile > (1 << 20)))
        throw py::value_error("tile must be 0 (the serial engine) or 8 .. 1048576 pixels");
    settings.tile = static_cast<int>(tile);
    std::vector<std::string> borders;
    if (py::isinstance<py::str>(border)) {
        borders.assign(2, border.cast<std::string>());
    } else {
        for (py::handle mode : border.cast<py::sequence>())
            borders.push_back(py::cast<std::string>(mode));
        if (borders.size() != 2)
            throw py::value_error("border must be 'periodic', 'closed' or a pair of them");
    }
    for (int axis = 0; axis < 2; axis++)
        settings.border[axis] = chooseSetting(borders[axis], flicBorderNames);
    settings.orientation = orientation ? 1 : 0;
    if (passes < 1 || passes > 16) throw py::value_error("passes must be 1 .. 16");
    settings.passes = static_cast<int>(passes);
    if (frames < 0 || frames > 1024) throw py::value_error("frames must be 1 .. 1024");
    if (ripples < 0 || ripples > 64) throw py::value_error("ripples must be 0 .. 64");
    settings.frames = static_cast<int>(frames);
    settings.ripples = static_cast<int>(ripples);
    if (!threads.is_none()) {
        long long count = threads.cast<long long>();
        if (count < 1 || count > 1024) throw py::value_error("threads must be 1 .. 1024 or None");
        settings.threads = static_cast<int>(count);
    }
    return settings;
}

py::object lic(py::object u, py::object v, py::object texture, py::object size, double length,
               const std::string& kernel, const std::string& integrator, long long subpixels,
               const std::string& seeding, const std::string& interpolation, double normalization,
               const std::string& noise, py::object seed, py::object mask, bool returnSeedmap,
               py::object threads, long long tile, long long simdLanes, py::object border,
               bool orientation, long long passes, long long frames, long long ripples,
               py::object pictureKeywords) {
    LicSettings settings =
        engineSettings(length, kernel, integrator, subpixels, seeding, interpolation, normalization,
                       threads, tile, simdLanes, border, orientation, passes, frames, ripples);
    PictureInput pictureInput;
    bool rendered = !pictureKeywords.is_none();
    if (rendered) readPictureSettings(pictureKeywords.cast<py::dict>(), pictureInput);
    int binaryNoise = chooseSetting(noise, flicNoiseNames);
    int seedValue = seedArgument(seed);

    FieldInput field;
    readFieldInput(u, v, field);
    int fieldWidth = field.field->width, fieldHeight = field.field->height;

    int outWidth = fieldWidth, outHeight = fieldHeight;
    bool sized = !size.is_none();
    if (sized) parseSize(size, "size", outWidth, outHeight, 2);

    ImageInput textureInput;
    FlicImage noiseTexture;
    FlicImage* textureImage = nullptr;
    FlicImage zoomedTexture; // the texture resampled to `size`
    bool zoomTexture = false;
    if (texture.is_none()) {
        checkResources(settings, outWidth, outHeight, 1, rendered);
        MessageScope scope;
        if (!noiseTexture.setSize(outWidth, outHeight, 1) || !noiseTexture.data)
            raiseValueError(scope.errors(), "size too large for a texture");
        textureImage = &noiseTexture;
    } else {
        readImageInput(texture, "texture", textureInput);
        textureImage = textureInput.image.get();
        if (textureImage->width < 2 || textureImage->height < 2)
            throw py::value_error("texture needs at least 2 x 2 pixels");
        zoomTexture =
            sized && (outWidth != textureImage->width || outHeight != textureImage->height);
        if (!zoomTexture) {
            outWidth = textureImage->width;
            outHeight = textureImage->height;
        }
        checkResources(settings, outWidth, outHeight, textureImage->nChannels, rendered);
    }

    ImageInput maskInput;
    if (!mask.is_none()) {
        readImageInput(mask, "mask", maskInput);
        if (maskInput.image->nChannels != 1) throw py::value_error("mask must be a 2-D array");
        if (maskInput.image->width != fieldWidth || maskInput.image->height != fieldHeight)
            throw py::value_error("mask must have the field's shape (" +
                                  std::to_string(fieldHeight) + ", " + std::to_string(fieldWidth) +
                                  ")");
    } else if (returnSeedmap) {
        // Without a mask the seed map shows every seed as white, as the command line's does.
        maskInput.image.reset(new FlicImage(fieldWidth, fieldHeight, 1));
        maskInput.image->clear(255);
    }

    std::vector<FlicImage> outputs(frames > 0 ? frames : 1);
    FlicImage& output = outputs[0];
    FlicImage seedMap, coverage;
    bool noData = hasNaN(*field.field);
    MessageScope scope;
    int ok = withoutGil([&] {
        if (textureImage == &noiseTexture || zoomTexture) {
            std::lock_guard<std::mutex> lock(libraryMutex());
            if (zoomTexture) {
                if (!textureImage->zoom(outWidth, outHeight, &zoomedTexture)) return 0;
                textureImage = &zoomedTexture;
            } else {
                noiseTexture.createRandom(binaryNoise, seedValue);
            }
        }
        // The picture steps use the library's shared filter tables: one picture at a time.
        std::unique_lock<std::mutex> lock(libraryMutex(), std::defer_lock);
        if (rendered) lock.lock();
        return runEngine(settings, field.field, textureImage, outputs.data(), maskInput.image.get(),
                         returnSeedmap ? &seedMap : nullptr, noData ? &coverage : nullptr,
                         rendered ? &pictureInput.settings : nullptr);
    });
    if (!ok)
        raiseValueError(scope.errors(),
                        rendered ? "the picture could not be made" : "the LIC computation failed");
    scope.deliverInfo();

    py::object picture;
    if (frames > 0) { // (F, H, W) or (F, H, W, 3)
        py::list list;
        for (FlicImage& frame : outputs)
            list.append(adoptImage(frame));
        picture = py::module_::import("numpy").attr("stack")(list);
    } else {
        picture = adoptImage(output);
    }
    if (noData) { // pixels no line reached are masked
        py::array reached = adoptImage(coverage);
        picture = py::module_::import("numpy.ma")
                      .attr("masked_array")(picture, py::arg("mask") = reached.attr("__eq__")(0));
    }
    if (!returnSeedmap) return picture;
    return py::make_tuple(picture, adoptImage(seedMap));
}

// --- Tiles as tasks (muskeip.dask) ----------------------------------------------------------

// The settings as a plain tuple that pickles to worker processes, and back.
py::tuple settingsTuple(const LicSettings& s) {
    return py::make_tuple(s.length, s.kernel, s.integrator, s.subpixels, s.seeding, s.interpolation,
                          s.normalization, s.tile, s.border[0], s.border[1], s.orientation);
}

LicSettings settingsFromTuple(const py::tuple& t) {
    if (t.size() != 11) throw py::value_error("not a tuple of engine settings");
    LicSettings s;
    s.length = t[0].cast<float>();
    s.kernel = t[1].cast<int>();
    s.integrator = t[2].cast<int>();
    s.subpixels = t[3].cast<int>();
    s.seeding = t[4].cast<int>();
    s.interpolation = t[5].cast<int>();
    s.normalization = t[6].cast<float>();
    s.tile = t[7].cast<int>();
    s.border[0] = t[8].cast<int>();
    s.border[1] = t[9].cast<int>();
    s.orientation = t[10].cast<int>();
    s.threads = 1;
    if (s.tile < 8) throw py::value_error("tile tasks need a tile size of at least 8 pixels");
    return s;
}

// (tiles across, tiles down, phase of every tile, halo, neighbours of every tile).
py::tuple tileLayout(const py::tuple& settingsValues, int fieldWidth, int fieldHeight, int width,
                     int height, int channels) {
    FlicCompute engine;
    configureEngine(settingsFromTuple(settingsValues), engine);
    std::vector<int> phases;
    std::vector<std::vector<int>> neighbours;
    int halo = 0, tilesX = 0, tilesY = 0;
    MessageScope scope;
    if (!engine.tileLayout(fieldWidth, fieldHeight, width, height, channels, phases, halo,
                           &neighbours))
        raiseValueError(scope.errors(), "no tile layout for these sizes and settings");
    engine.tileGrid(width, height, tilesX, tilesY);
    return py::make_tuple(tilesX, tilesY, phases, halo, neighbours);
}

// One of the engine's tile windows (tileFieldWindow: x0, y0, x1, y1 of the field's nodes;
// tileTextureWindow: x0, y0, w, h of the texture's pixels, wrapping) as a tuple.
typedef int (FlicCompute::*TileWindowPlan)(int, int, int, int, int, int, int&, int&, int&, int&);

template <TileWindowPlan PLAN>
py::tuple tileWindowOf(const py::tuple& settingsValues, int fieldWidth, int fieldHeight, int width,
                       int height, int channels, int tile) {
    FlicCompute engine;
    configureEngine(settingsFromTuple(settingsValues), engine);
    int a, b, c, d;
    MessageScope scope;
    if (!(engine.*PLAN)(fieldWidth, fieldHeight, width, height, channels, tile, a, b, c, d))
        raiseValueError(scope.errors(), "no window for this tile");
    return py::make_tuple(a, b, c, d);
}

// A partial accumulation as (geometry, records (h, w, stride) int32, overflow (n, 1 + stride)
// int32); geometry = tile x0, y0, x1, y1, window x0, y0, width, height, picture width and
// height, stride, lines.
py::tuple partialTuple(FlicCompute::TileWindow& p) {
    py::tuple geometry =
        py::make_tuple(p.tileX0, p.tileY0, p.tileX1, p.tileY1, p.x0, p.y0, p.width, p.height,
                       p.imageWidth, p.imageHeight, p.stride, p.numFieldLines);
    py::array_t<int> records({static_cast<py::ssize_t>(p.height), static_cast<py::ssize_t>(p.width),
                              static_cast<py::ssize_t>(p.stride)});
    if (!p.records.empty())
        memcpy(records.mutable_data(), p.records.data(), p.records.size() * sizeof(int));
    py::ssize_t entries = static_cast<py::ssize_t>(p.overflow.size() / (p.stride + 1));
    py::array_t<int> overflow({entries, static_cast<py::ssize_t>(p.stride + 1)});
    if (entries)
        memcpy(overflow.mutable_data(), p.overflow.data(), p.overflow.size() * sizeof(int));
    return py::make_tuple(geometry, records, overflow);
}

FlicCompute::TileWindow partialFromTuple(const py::tuple& t) {
    if (t.size() != 3) throw py::value_error("not a tile's partial accumulation");
    py::tuple g = t[0].cast<py::tuple>();
    FlicCompute::TileWindow p;
    int* fields[] = {&p.tileX0,     &p.tileY0,      &p.tileX1, &p.tileY1,
                     &p.x0,         &p.y0,          &p.width,  &p.height,
                     &p.imageWidth, &p.imageHeight, &p.stride, &p.numFieldLines};
    if (g.size() != 12) throw py::value_error("not a tile's partial accumulation");
    for (size_t k = 0; k < 12; k++)
        *fields[k] = g[k].cast<int>();
    auto records = py::array_t<int, py::array::c_style | py::array::forcecast>::ensure(t[1]);
    auto overflow = py::array_t<int, py::array::c_style | py::array::forcecast>::ensure(t[2]);
    // Shapes compared dimension by dimension: their products may not fit any integer.
    if (!records || !overflow || p.stride < 1 || records.ndim() != 3 ||
        records.shape(0) != p.height || records.shape(1) != p.width ||
        records.shape(2) != p.stride ||
        overflow.size() % (static_cast<py::ssize_t>(p.stride) + 1) != 0)
        throw py::value_error("a tile's partial accumulation does not match its geometry");
    p.records.assign(records.data(), records.data() + records.size());
    p.overflow.assign(overflow.data(), overflow.data() + overflow.size());
    return p;
}

// The texture's mean per channel, as the engine takes it.
py::tuple textureMeans(py::object textureArray) {
    ImageInput texture;
    readImageInput(textureArray, "texture", texture);
    std::vector<double> means(texture.image->nChannels);
    FlicCompute::textureMeans(*texture.image, means.data());
    return py::cast(means);
}

// Reads a pair of ints (x, y) or (width, height).
void readPair(py::object pair, const char* name, int& a, int& b) {
    py::tuple t = pair.cast<py::tuple>();
    if (t.size() != 2) throw py::value_error(std::string(name) + " must be a pair");
    a = t[0].cast<int>();
    b = t[1].cast<int>();
}

// With `origin` (x0, y0) and `fieldSize` (width, height), `fieldArray` is the window of the
// field from (x0, y0) on (computeTileFromWindow); without them, the whole field. With
// `textureOrigin`, `textureSize` and `textureMeans` as well, `textureArray` is the window of
// the texture from that origin on, wrapping (computeTileFromWindows).
py::tuple computeTile(const py::tuple& settingsValues, py::object fieldArray,
                      py::object textureArray, int tile, py::object earlier, py::object origin,
                      py::object fieldSize, py::object textureOrigin, py::object textureSize,
                      py::object textureMeansGiven) {
    FieldInput field;
    readFieldInput(fieldArray, py::none(), field);
    ImageInput texture;
    readImageInput(textureArray, "texture", texture);
    std::vector<int> earlierRecords;
    if (!earlier.is_none()) {
        auto values = py::array_t<int, py::array::c_style | py::array::forcecast>::ensure(earlier);
        if (!values) throw py::error_already_set();
        earlierRecords.assign(values.data(), values.data() + values.size());
    }
    bool windowed = !origin.is_none(), textureWindowed = !textureOrigin.is_none();
    int x0 = 0, y0 = 0, fieldWidth = 0, fieldHeight = 0;
    int tx0 = 0, ty0 = 0, textureWidth = 0, textureHeight = 0;
    std::vector<double> means;
    if (windowed) {
        readPair(origin, "origin", x0, y0);
        readPair(fieldSize, "field_size", fieldWidth, fieldHeight);
    }
    if (textureWindowed) {
        if (!windowed) throw py::value_error("a texture window needs a field window");
        readPair(textureOrigin, "texture_origin", tx0, ty0);
        readPair(textureSize, "texture_size", textureWidth, textureHeight);
        means = textureMeansGiven.cast<std::vector<double>>();
        if (static_cast<int>(means.size()) != texture.image->nChannels)
            throw py::value_error("texture_means must give one mean per channel");
    }
    FlicCompute engine;
    configureEngine(settingsFromTuple(settingsValues), engine);
    FlicCompute::TileWindow partial;
    MessageScope scope;
    int ok = withoutGil([&] {
        const int* before = earlierRecords.empty() ? nullptr : earlierRecords.data();
        long long count = static_cast<long long>(earlierRecords.size());
        if (textureWindowed)
            return engine.computeTileFromWindows(
                field.field, x0, y0, fieldWidth, fieldHeight, texture.image.get(), tx0, ty0,
                textureWidth, textureHeight, means.data(), tile, partial, before, count);
        if (windowed)
            return engine.computeTileFromWindow(field.field, x0, y0, fieldWidth, fieldHeight,
                                                texture.image.get(), tile, partial, nullptr,
                                                nullptr, before, count);
        return engine.computeTile(field.field, texture.image.get(), tile, partial, nullptr, nullptr,
                                  before, count);
    });
    if (!ok) raiseValueError(scope.errors(), "the tile could not be computed");
    return partialTuple(partial);
}

// Adds what a partial holds for the rectangle [x0, x0 + width) x [y0, y0 + height) into
// `records` (height, width, stride) int32, in place.
void addToArea(const py::tuple& partialValues, int x0, int y0, int width, int height,
               py::array_t<int, py::array::c_style> records, bool withOverflow) {
    FlicCompute::TileWindow partial = partialFromTuple(partialValues);
    if (records.size() != static_cast<py::ssize_t>(width) * height * partial.stride)
        throw py::value_error("records must have the shape (height, width, stride)");
    MessageScope scope;
    if (!FlicCompute::addToArea(partial, x0, y0, width, height, records.mutable_data(),
                                withOverflow))
        raiseValueError(scope.errors(), "the partial accumulation could not be added");
}

// Divides accumulated records (height, width, stride) into a uint8 picture.
py::object normalizeRecords(py::array_t<int, py::array::c_style | py::array::forcecast> records,
                            int subCells, int channels) {
    if (records.ndim() != 3 || records.shape(2) != static_cast<py::ssize_t>(subCells) + channels)
        throw py::value_error("records must have the shape (height, width, subcells + channels)");
    FlicImage picture;
    MessageScope scope;
    if (!FlicCompute::normalizeRecords(records.data(), static_cast<int>(records.shape(1)),
                                       static_cast<int>(records.shape(0)), subCells, channels,
                                       &picture))
        raiseValueError(scope.errors(), "the records could not be normalised");
    return adoptImage(picture);
}

// The noise texture lic makes: width x height, binary or uniform, from `seed`.
py::object noiseTexture(int width, int height, int binary, int seed) {
    FlicImage noise;
    MessageScope scope;
    if (width < 1 || height < 1)
        throw py::value_error("a noise texture needs at least 1 x 1 pixels, not " +
                              std::to_string(width) + " x " + std::to_string(height));
    if (!noise.setSize(width, height, 1) || !noise.data)
        raiseValueError(scope.errors(), "size too large for a texture");
    serialised([&] { noise.createRandom(binary, seed); });
    return adoptImage(noise);
}

} // namespace

void bindLic(py::module_& m) {
    m.def("lic", &lic, py::arg("u"), py::arg("v") = py::none(), py::arg("texture") = py::none(),
          py::kw_only(), py::arg("size") = py::none(), py::arg("length") = 20.0,
          py::arg("kernel") = "triangle", py::arg("integrator") = "rk43", py::arg("subpixels") = 1,
          py::arg("seeding") = "pattern", py::arg("interpolation") = "bilinear",
          py::arg("normalization") = 0.0, py::arg("noise") = "uniform", py::arg("seed") = 1,
          py::arg("mask") = py::none(), py::arg("return_seedmap") = false,
          py::arg("threads") = py::none(), py::arg("tile") = 256, py::arg("simd_lanes") = 0,
          py::arg("border") = "periodic", py::arg("orientation") = false, py::arg("passes") = 1,
          py::arg("_frames") = 0, py::arg("_ripples") = 2, py::arg("_picture") = py::none(),
          R"doc(Line integral convolution of a vector field: a uint8 picture as a numpy array.

u, v: 2-D float arrays (any float dtype, any memory order) of the field's x and y
components, row 0 the bottom row; or u alone as an (H, W, 2) array or a VectorField.
texture: uint8 (h, w) or (h, w, 3) input texture; the picture has its size and channels,
or the size (W, H) given as `size`, to which the texture is then resampled (Image.zoom).
Without a texture, white noise of size (W, H) (default: the field's) is made from `noise`
('uniform' or 'binary') and `seed` (None continues the generator's sequence).
length: filter half-length L in pixels. kernel: 'box', 'triangle' or 'cubic'.
integrator: 'rk43' (adaptive) or 'euler' / 'midpoint' (the engine's fixed-step pair, which
uses the midpoint rule). subpixels: S, seeds and coverage per S x S cell of a pixel.
seeding: 'pattern' (interleaved 4 x 4), 'raster' or 'sobol'. interpolation: 'bilinear' or
'constant' texture lookup. normalization: speed below which vectors are not normalized.
mask: uint8 (H, W) array of the field's shape; with return_seedmap=True the result is
(picture, seedmap), the seed map holding the mask's value at each pixel's last seed and 1
where no seed was placed.
tile: the picture is cut into tiles of this many pixels that are traced independently on
`threads` threads (None: every core); the bytes depend on the tile size, never on the
threads. tile=0 runs the serial engine on one thread. simd_lanes: tiles one thread traces
at once, one per SIMD lane (0: the widest the processor offers, 1: the scalar tracer); the
bytes do not depend on it.
border: 'periodic' (lines go on past the field's edges) or 'closed' (they end there), or a
pair (x, y) of them. orientation=True: the sign of the vectors is ignored (orientation
fields). passes: the picture is fed back as the texture this many times. A field with NaN
nodes has no-data there: lines end at them, and the picture is a numpy masked array whose
mask marks the pixels no line reached.

The picture's row 0 is its bottom row: show it with imshow(picture, origin="lower").
The GIL is released while the picture is computed. (_frames, _ripples and _picture serve
animate and render.))doc");
    m.def(
        "_engine_settings",
        [](double length, const std::string& kernel, const std::string& integrator,
           long long subpixels, const std::string& seeding, const std::string& interpolation,
           double normalization, long long tile, py::object border, bool orientation) {
            return settingsTuple(engineSettings(length, kernel, integrator, subpixels, seeding,
                                                interpolation, normalization, py::none(), tile, 0,
                                                border, orientation, 1, 0, 2));
        },
        py::kw_only(), py::arg("length") = 20.0, py::arg("kernel") = "triangle",
        py::arg("integrator") = "rk43", py::arg("subpixels") = 1, py::arg("seeding") = "pattern",
        py::arg("interpolation") = "bilinear", py::arg("normalization") = 0.0,
        py::arg("tile") = 256, py::arg("border") = "periodic", py::arg("orientation") = false,
        "lic's engine keywords, checked, as a tuple for the tile tasks of muskeip.dask.");
    m.def("_tile_layout", &tileLayout, "Tiles across and down, phases, halo, neighbours.");
    m.def("_tile_field_window", &tileWindowOf<&FlicCompute::tileFieldWindow>,
          "The field nodes a tile's lines reach: (x0, y0, x1, y1).");
    m.def("_tile_texture_window", &tileWindowOf<&FlicCompute::tileTextureWindow>,
          "The texture pixels a tile's lines read: (x0, y0, w, h), wrapping.");
    m.def("_texture_means", &textureMeans, "The texture's mean per channel.");
    m.def("_compute_tile", &computeTile, py::arg("settings"), py::arg("field"), py::arg("texture"),
          py::arg("tile"), py::arg("earlier"), py::arg("origin") = py::none(),
          py::arg("field_size") = py::none(), py::arg("texture_origin") = py::none(),
          py::arg("texture_size") = py::none(), py::arg("texture_means") = py::none(),
          "One tile's partial accumulation (muskeip.dask), from the whole field or, with origin "
          "and field_size, from a window of it.");
    m.def("_add_to_area", &addToArea, "Adds a partial's records of a rectangle, in place.");
    m.def("_normalize_records", &normalizeRecords, "Records to a uint8 picture.");
    m.def("_noise", &noiseTexture, "lic's noise texture.");
    m.def(
        "render",
        [m](py::object u, py::object v, py::object texture, py::object adjust, bool enhance,
            py::object equalize, long long blur, bool median, py::object colour,
            py::object colormap, const std::string& blend, py::object range, py::object emboss,
            py::object zoom, py::kwargs options) {
            py::dict picture;
            picture["adjust"] = adjust;
            picture["enhance"] = enhance;
            picture["equalize"] = equalize;
            picture["blur"] = blur;
            picture["median"] = median;
            picture["colour"] = colour;
            picture["colormap"] = colormap;
            picture["blend"] = blend;
            picture["range"] = range;
            picture["emboss"] = emboss;
            picture["zoom"] = zoom;
            for (const char* hidden : {"_frames", "_ripples", "_picture"})
                if (options.contains(hidden))
                    throw py::type_error(std::string("render() got an unexpected keyword '") +
                                         hidden + "'");
            options["_picture"] = picture;
            return m.attr("lic")(u, v, texture, **options);
        },
        py::arg("u"), py::arg("v") = py::none(), py::arg("texture") = py::none(), py::kw_only(),
        py::arg("adjust") = py::make_tuple(128, 40), py::arg("enhance") = false,
        py::arg("equalize") = py::none(), py::arg("blur") = 0, py::arg("median") = false,
        py::arg("colour") = py::none(), py::arg("colormap") = py::none(),
        py::arg("blend") = "multiply", py::arg("range") = py::none(),
        py::arg("emboss") = py::none(), py::arg("zoom") = py::none(),
        R"doc(The command line's picture: lic followed by the library's picture steps, in this
order: (enhance) contrast, equalisation, blur, median, colour, emboss, zoom. The same settings
give the same bytes as `muskeip lic`.

adjust: (mean, sdev) of the non-black pixels (exact statistics), or None.
enhance: LIC of the high-passed LIC picture, then a 0.5 .. 99.5 percentile stretch.
equalize: None, 'global', 'adaptive' or ('adaptive', tiles, clip): histogram equalisation,
contrast-limited and adaptive over tiles x tiles regions (default 8, clip 2).
blur: Gaussian blur of 0 .. 9 half-taps. median: 3 x 3 median filter.
colour: None, 'magnitude', 'direction' or a 2-D float array of values (row 0 the bottom row,
resampled to the picture). colormap: a preset name (grey, hot-iron, blue-white-red, hue,
viridis, magma, inferno, plasma, cividis, twilight), an icol file or a Colormap; default
viridis, twilight for 'direction'. blend: 'multiply' (colour times LIC), 'lightness' (LIC as
HSL lightness) or 'overlay'. range: (min, max) spanned by the map (degrees for 'direction';
default the 1st to 99th percentile, -180 .. 180 for 'direction').
emboss: None, 'field' (lit along the field) or (azimuth, elevation[, steepness]) in degrees.
zoom: (W, H) of the final picture.
Every other keyword is lic's. Returns a uint8 (H, W) or (H, W, 3) array (masked for fields
with NaN nodes).)doc");
    m.def(
        "animate",
        [m](py::object u, py::object v, py::object texture, long long frames, long long ripples,
            py::kwargs options) {
            if (frames < 1) throw py::value_error("frames must be 1 .. 1024");
            options["_frames"] = frames;
            options["_ripples"] = ripples;
            return m.attr("lic")(u, v, texture, **options);
        },
        py::arg("u"), py::arg("v") = py::none(), py::arg("texture") = py::none(), py::kw_only(),
        py::arg("frames") = 32, py::arg("ripples") = 2,
        R"doc(An animated LIC: `frames` pictures from one trace of the field's lines, as a uint8
array of shape (F, H, W) or (F, H, W, 3) (a masked array for fields with NaN nodes).

Frame f convolves every line with a box window times a ripple (`ripples` per window length,
0: the still box kernel) whose phase runs backwards through one period over the frames, so
the texture flows downstream and the last frame leads on to the first: a seamless loop.
Every other keyword is lic's (passes excepted). The GIL is released while it computes.)doc");
}
