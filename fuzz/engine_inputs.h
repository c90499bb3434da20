// What the engine's fuzz targets build from their input: a field from a menu of ordinary,
// special (NaN, infinities, huge, subnormal) and raw 32-bit values; a texture, owned or made of
// caller rows with gaps; every setting of the engine (lengths, kernel, sub-pixels, seeding,
// texture lookup, normalization, the integrators and their step control) from menus that
// include out-of-range values.
#ifndef MUSKEIP_FUZZ_ENGINE_INPUTS_H
#define MUSKEIP_FUZZ_ENGINE_INPUTS_H

#include "compute.h"
#include "fuzz_target.h"
#include "image.h"
#include "integrator.h"
#include "vectorfield.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

namespace fuzz {

const float kNaN = __builtin_nanf("");
const float kInf = __builtin_inff();

// A field component: mostly ordinary values in -3 .. 3, sometimes a special value or any bit
// pattern at all.
inline float fieldValue(ByteReader& in) {
    static const float unusual[] = {0.0f,   -0.0f,  kNaN,   kInf,   -kInf,  1e38f,
                                    -1e38f, 1e-38f, 1e-45f, 3e-39f, 1e-10f, 1e10f};
    uint8_t b = in.byte();
    if (b < 192) return static_cast<float>(b - 96) / 32.0f;
    if (b < 192 + 12) return unusual[b - 192];
    return in.rawFloat();
}

inline void buildField(ByteReader& in, FlicVectorField& field) {
    int width = in.below(18), height = in.below(18);
    field.setSize(width, height);
    long nodes = static_cast<long>(width) * height;
    if (nodes == 0) return;
    switch (in.below(4)) {
    case 0:
        for (long i = 0; i < 2 * nodes; i++)
            field.data[i] = fieldValue(in);
        break;
    case 1:
        field.setCircle(fieldValue(in));
        break;
    case 2: {
        float matrix[2][2] = {{fieldValue(in), fieldValue(in)}, {fieldValue(in), fieldValue(in)}};
        float offset[2] = {fieldValue(in), fieldValue(in)};
        field.setLinear(matrix, offset);
        break;
    }
    default: {
        float x = fieldValue(in), y = fieldValue(in);
        for (long i = 0; i < nodes; i++) {
            field.data[2 * i] = x;
            field.data[2 * i + 1] = y;
        }
    }
    }
    // A few nodes overwritten with special values anywhere in the field.
    for (int k = in.below(4); k > 0; k--)
        field.data[in.word() % (2 * nodes)] = fieldValue(in);
}

// The input texture: owned, or caller rows with a gap after each row.
inline void buildTexture(ByteReader& in, FlicImage& texture, std::vector<unsigned char>& rows) {
    const int sizes[] = {0, 1, 2, 2, 3, 5, 8, 13, 16, 24};
    const int channels[] = {1, 1, 1, 3, 3, 2, 4, 0};
    int width = in.from(sizes), height = in.from(sizes), nChannels = in.from(channels);
    int binary = in.below(2), seed = 1 + in.byte();
    if (in.below(4) != 0) {
        texture.setSize(width, height, nChannels);
        texture.createRandom(binary, seed);
        return;
    }
    int bytesPerLine = width * nChannels + 1 + in.below(4);
    rows.assign(static_cast<size_t>(bytesPerLine) * height + 1, 0);
    FlicImage wrapped(width, height, nChannels, bytesPerLine, rows.data());
    wrapped.createRandom(binary, seed);
    texture.width = width;
    texture.height = height;
    texture.nChannels = nChannels;
    texture.bytesPerLine = bytesPerLine;
    texture.data = rows.data();
}

// Installs the integrators: the default pair, the midpoint pair, an RK43 pair with step
// control settings from a menu, or a pair of another kind put in place directly.
inline void chooseIntegrators(ByteReader& in, FlicCompute& lic) {
    const float tolerances[] = {0.001f, 0.01f, 1.0f, 0.0f, -1.0f, kNaN, kInf};
    const float initialSteps[] = {4.0f, 1.0f, 0.1f, 0.0f, -1.0f, kNaN, kInf, 1e30f};
    const float minSteps[] = {0.5f, 0.1f, 0.0f, -1.0f, kNaN, kInf, 1e-30f, 1e30f};
    const float maxSteps[] = {15.0f, 1.0f, 0.2f, 0.0f, -1.0f, kNaN, kInf, 1e30f, 1e-30f};
    int kind = in.below(8);
    FlicIntegrator *forward = nullptr, *backward = nullptr;
    switch (kind) {
    case 0:
        return; // the constructor's RK43 pair
    case 1:
        lic.useEuler();
        return;
    case 2: {
        float initial = in.from(initialSteps), minimum = in.from(minSteps);
        float maximum = in.from(maxSteps), tolerance = in.from(tolerances);
        lic.useRK43(initial, minimum, maximum, tolerance);
        return;
    }
    case 3:
        forward = new RKDP(0.001f, 4.0f, 0.5f, 15.0f, 1);
        backward = new RKDP(0.001f, 4.0f, 0.5f, 15.0f, -1);
        break;
    case 4:
        forward = new RKCK(0.001f, 4.0f, 0.5f, 15.0f, 1);
        backward = new RKCK(0.001f, 4.0f, 0.5f, 15.0f, -1);
        break;
    case 5: {
        float tolerance = in.from(tolerances), initial = in.from(initialSteps);
        float minimum = in.from(minSteps), maximum = in.from(maxSteps);
        forward = new RKCK(tolerance, initial, minimum, maximum, 1);
        backward = new RKDP(tolerance, initial, minimum, maximum, -1);
        break;
    }
    default:
        forward = new Euler(1);
        backward = new Euler(-1);
        break;
    }
    delete lic.forward;
    delete lic.backward;
    lic.forward = forward;
    lic.backward = backward;
}

// The menus hold ordinary values, boundaries and values the engine must refuse. They leave out
// lengths that are accepted but make every computation take minutes (a filter of a few hundred
// thousand steps costs that many steps per line, by design); such settings are slow, not wrong.
// The settings of an engine on standard error (for MUSKEIP_FUZZ_VERBOSE).
inline void describe(const FlicCompute& lic) {
    fprintf(stderr,
            "L %g, extension %g, step %g, kernel %d, S %d, seeding %d, lookup %d, "
            "normalization %g\n",
            lic.filterLength, lic.extensionLength, lic.stepLength, lic.filterKernel,
            lic.numSubPixels, lic.seedingMethod, lic.interpolationMethod, lic.normalization);
    const AdaptiveIntegrator* rk = dynamic_cast<const AdaptiveIntegrator*>(lic.forward);
    if (rk)
        fprintf(stderr, "adaptive: tolerance %g, steps %g, %g, %g\n", rk->tolerance,
                rk->initialStep, rk->minStep, rk->maxStep);
}

inline void chooseSettings(ByteReader& in, FlicCompute& lic) {
    const float filterLengths[] = {20.0f, 5.0f, 2.4f,  0.4f, 0.5f, 1.0f, 3.0f, 7.5f,
                                   12.0f, 0.0f, -1.0f, kNaN, kInf, 1e9f, 2e7f};
    const float extensionLengths[] = {80.0f, 0.0f, 10.0f, 3.0f, 0.4f, -5.0f, kNaN, kInf, 1e12f};
    const float stepLengths[] = {1.0f, 1.0f,  0.5f, 2.0f, 0.25f, 3.0f,
                                 0.0f, -1.0f, kNaN, kInf, 1e-9f, 1e30f};
    const int kernels[] = {0, 1, 2, 1, 3, -1};
    const int subPixels[] = {1, 1, 1, 2, 3, 4, 0, -1, 257, INT_MAX, INT_MIN};
    const int seedings[] = {1, 1, 0, 2, 3, -1};
    const int lookups[] = {1, 1, 0, 2, -1};
    const float normalizations[] = {0.0f, 0.0f, 0.5f, 2.0f, kNaN, kInf, -1.0f, 1e-30f};

    lic.setFilterLength(in.from(filterLengths));
    lic.extensionLength = in.from(extensionLengths);
    lic.stepLength = in.from(stepLengths);
    lic.setFilterKernel(static_cast<FlicCompute::FilterKernel>(in.from(kernels)));
    lic.setNumSubPixels(in.from(subPixels));
    lic.seedingMethod = in.from(seedings);
    lic.setInterpolationMethod(static_cast<FlicCompute::InterpolationMethod>(in.from(lookups)));
    chooseIntegrators(in, lic);
    lic.setNormalization(in.from(normalizations));
    if (getenv("MUSKEIP_FUZZ_VERBOSE")) describe(lic);
}

// An engine's inputs and settings, in the order both targets read them: the field, the texture
// (its caller rows in `rows`), then the settings.
struct EngineInputs {
    FlicVectorField field;
    FlicImage texture;
    std::vector<unsigned char> rows;
    FlicCompute lic;

    explicit EngineInputs(ByteReader& in) {
        buildField(in, field);
        buildTexture(in, texture, rows);
        chooseSettings(in, lic);
    }
};

inline bool sameImage(const FlicImage& a, const FlicImage& b) {
    if (a.width != b.width || a.height != b.height || a.nChannels != b.nChannels) return false;
    return memcmp(a.data, b.data, static_cast<size_t>(a.width) * a.height * a.nChannels) == 0;
}

} // namespace fuzz

#endif
