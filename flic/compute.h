// FlicCompute: the Fast Line Integral Convolution engine. A noise texture is smeared along the
// field lines of a vector field: each traced line serves every output pixel it passes, and the
// convolution along it runs through integer running sums, so the cost per pixel does not grow
// with the filter length.
#ifndef MUSKEIP_COMPUTE_H
#define MUSKEIP_COMPUTE_H

#include "image.h"
#include "integrator.h"
#include "vectorfield.h"

#include <sys/times.h>

// A stopwatch on the process clock (times): elapsed real time and the user, system and
// children's times, accumulated over start/stop intervals.
class FlicWatch {
  public:
    clock_t elapsedTicks, userTicks, systemTicks, childUserTicks, childSystemTicks;
    clock_t startTicks;
    struct tms startTimes;

    FlicWatch();
    // Clears the accumulated times.
    void reset();
    // Records the current process times.
    void start();
    // Adds the times since `start` to the accumulated ones.
    void stop();
    // Accumulated real time in seconds (single precision).
    float seconds() const;
};

class FlicCompute {
  public:
    // Both are stored as int: a host may hand over any int value (the engine then uses the box
    // formula, respectively the bilinear lookup), and every int is a value of these types.
    enum FilterKernel : int { BOX = 0, TRIANGLE = 1, CUBIC = 2 };
    enum InterpolationMethod : int { CONSTANT = 0, BILINEAR = 1 };

    // One point of the current field line: output pixel, sub-pixel cell, integrator status.
    struct PointRecord {
        int pixel;
        int cell;
        int status;
    };

    // Texture lookup at (x, y) in output pixels, wrapped periodically; one int per channel.
    typedef void (*TextureLookup)(FlicImage* texture, float x, float y, int* out);
    // Progress report: `done` runs from 0 to 1 over the seeding of one computation.
    typedef void (*ProgressCallback)(float done, void* user);

    // Visiting order of the residues of a 4 x 4 pixel block for the interleaved seeding.
    static const int offset[16][2];

    float filterLength;    // L: kernel half-length in output pixels
    float extensionLength; // how far lines go beyond the kernel on each side, output pixels
    float stepLength;      // h: spacing of the points on a line, output pixels
    float offsetLength;    // stored only
    float normalization;   // speed threshold handed to both integrators
    int numSubPixels;      // S: each pixel has S x S sub-pixel cells
    FilterKernel filterKernel;
    int seedingMethod; // 0 raster, 1 interleaved 4 x 4 pattern, 2 quasi-random
    InterpolationMethod interpolationMethod;
    int texWidth, texHeight, texChannels; // input texture (and output) geometry
    float fieldMaxX, fieldMaxY;           // field size - 1.001: wrap bounds of positions
    float scaleX, scaleY;                 // output pixels per field cell
    int kernelSteps;                      // N: steps per kernel half-length
    int extensionSteps;                   // M: extra steps per side
    int lengthBias;                       // added to N in the statistics of evalZaehlrohr
    int maxSteps;                         // N + M
    int recordStride;                     // S^2 + texChannels ints per output pixel
    int numSubCells;                      // S^2
    int totalHits;                        // sum of all hit counts of the last computation
    int numFieldLines;                    // lines traced in the last computation
    FlicVectorField* field;               // borrowed during a computation
    FlicImage* texture;                   // borrowed during a computation
    FlicIntegrator* forward;              // owned, direction +1
    FlicIntegrator* backward;             // owned, direction -1
    int* accum;                           // per pixel: S^2 hit counters, then one sum per channel
    int* samples;          // texture samples (later the second running sums) along a line
    int* sums;             // running sums along a line
    PointRecord* points;   // the points of the current line, seed at index maxSteps
    int zaehlrohr[256][2]; // per extension step: gain count, line count (zeroed at construction)
    TextureLookup getPixel;
    FlicWatch watch;
    ProgressCallback progressCallback = nullptr; // optional; see setProgressCallback
    void* progressUser = nullptr;

    // Defaults: L = 20, extension 80, h = 1, triangle kernel, S = 1, interleaved seeding,
    // bilinear texture lookup, two RK43 integrators (tolerance 0.001, steps 4, 0.5, 15).
    FlicCompute();
    // Deletes the integrators (the work buffers are freed by stop).
    ~FlicCompute();
    FlicCompute(const FlicCompute&) = delete;
    FlicCompute& operator=(const FlicCompute&) = delete;

    void setFilterKernel(FilterKernel kernel) { filterKernel = kernel; }
    void setFilterLength(float length) { filterLength = length; }
    void setOffsetLength(float length) { offsetLength = length; }
    void setNumSubPixels(int count) { numSubPixels = count; }
    void setInterpolationMethod(InterpolationMethod method) { interpolationMethod = method; }
    // Stores the threshold and hands it to each installed integrator.
    void setNormalization(float value);
    // Installs a progress callback (null removes it), called with `user` from the seeding
    // loop each time another whole percent of the seed candidates has been visited, so at most
    // 100 times per computation, the last time with 1. It does not change the result.
    void setProgressCallback(ProgressCallback callback, void* user);

    // Installs two midpoint integrators (directions +1, -1) with the engine's normalization.
    // Without memory for them the integrators in place are kept (reported through flic_error).
    void useEuler();
    // Installs two RK43 integrators built from the arguments, with the engine's normalization;
    // without memory for them as above.
    void useRK43(float initialStep, float minStep, float maxStep, float tolerance);

    // Computes the LIC image of `field` with the input texture `texture` (1 or more channels)
    // into `output`, which gets the texture's size and channels. `mask` (field size, may be
    // null) is copied into `seedMap` (may be null) at each seed. Returns 1, or 0 when the mask
    // does not match the field (reported through flic_info) or the inputs cannot be used
    // (reported through flic_error); the output is then untouched.
    int compute(FlicVectorField* field, FlicImage* texture, FlicImage* output,
                FlicImage* mask = nullptr, FlicImage* seedMap = nullptr);

    // Prepares one computation: reports the parameters, starts the watch, derives N, M and the
    // scales, binds the integrators and allocates the work buffers.
    void start(FlicVectorField* field, FlicImage* texture);
    // Frees the work buffers and reports lines, hits per pixel and time.
    void stop();
    // Traces the field line through `seed` (field coordinates) both ways, convolves the texture
    // along it and accumulates the values into every pixel its middle part passes. A seed on
    // a zero or invalid vector, outside the field or outside start/stop does nothing.
    void sample(const Vec2f& seed);
    // Re-chooses extensionSteps from the gain and line counts in zaehlrohr and clears them.
    void evalZaehlrohr();

    static void getPixelConst1(FlicImage* texture, float x, float y, int* out);
    static void getPixelConstN(FlicImage* texture, float x, float y, int* out);
    static void getPixelBilinear1(FlicImage* texture, float x, float y, int* out);
    static void getPixelBilinearN(FlicImage* texture, float x, float y, int* out);

  private:
    int progressPercent = 0; // whole percent reported so far in this computation
    void reportProgress(long long done, long long total);
    int installIntegrators(FlicIntegrator* forwardOne, FlicIntegrator* backwardOne);
    int checkInputs(FlicVectorField* field, FlicImage* texture, FlicImage* output, FlicImage* mask,
                    FlicImage* seedMap) const;
    void seedCell(int x, int y, int i, int j, FlicImage* mask, FlicImage* seedMap);
    void seedPattern(FlicImage* mask, FlicImage* seedMap);
    void seedRaster(FlicImage* mask, FlicImage* seedMap);
    void seedQuasiRandom(FlicImage* mask, FlicImage* seedMap);
    void normalize(FlicImage* output);
    Vec2f seedVector(const Vec2f& seed) const;
    template <int KIND>
    void traceAndConvolve(const Vec2f& seed, const Vec2f& v);
    int traceSide(FlicIntegrator* integrator, int sign);
    int traceAdaptiveSide(AdaptiveIntegrator* integrator, int sign);
    void freeBuffers();

    Vec2f* positions; // the points of the current line as the integrators returned them
    void runningSums(const int* in, int* out, int lo, int hi) const;
    void runningSumsTwice(int lo, int hi);
    void convolve(int lo, int hi);
};

#endif
