// FlicCompute: configuration, the integrator pair, and start/stop around one computation
// (working quantities, work buffers, reports).
#include "compute.h"

#include "engine_common.h"
#include "messages.h"

#include <cstdlib>
#include <cstring>
#include <cstdint>
#include <new>
#if defined(__linux__)
#include <sys/mman.h>
#endif

using namespace muskeip::detail;

namespace {

const char* const kernelNames[3] = {"box", "triangle", "cubic"};

} // namespace

// --- Configuration ----------------------------------------------------------------------------

const int FlicCompute::offset[16][2] = {{0, 0}, {2, 0}, {0, 2}, {2, 2}, {1, 1}, {3, 1},
                                        {1, 3}, {3, 3}, {1, 0}, {3, 0}, {1, 2}, {3, 2},
                                        {0, 1}, {2, 1}, {0, 3}, {2, 3}};

FlicCompute::FlicCompute()
    : filterLength(20.0f), extensionLength(80.0f), stepLength(1.0f), offsetLength(20.0f),
      normalization(0.0f), numSubPixels(1), filterKernel(TRIANGLE), seedingMethod(1),
      interpolationMethod(BILINEAR), texWidth(0), texHeight(0), texChannels(0), fieldMaxX(0),
      fieldMaxY(0), scaleX(0), scaleY(0), kernelSteps(0), extensionSteps(0), lengthBias(0),
      maxSteps(0), recordStride(0), numSubCells(0), totalHits(0), numFieldLines(0), field(nullptr),
      texture(nullptr), forward(nullptr), backward(nullptr), accum(nullptr), samples(nullptr),
      sums(nullptr), points(nullptr), getPixel(nullptr), positions(nullptr) {
    memset(zaehlrohr, 0, sizeof zaehlrohr);
    // Without memory for them the engine has no integrators, and compute refuses to run.
    installIntegrators(new (std::nothrow) RK43(0.001f, 4.0f, 0.5f, 15.0f, 1),
                       new (std::nothrow) RK43(0.001f, 4.0f, 0.5f, 15.0f, -1));
}

FlicCompute::~FlicCompute() {
    delete forward;
    delete backward;
}

void FlicCompute::setNormalization(float value) {
    normalization = value;
    if (forward) forward->normalization = value;
    if (backward) backward->normalization = value;
}

void FlicCompute::setProgressCallback(ProgressCallback callback, void* user) {
    progressCallback = callback;
    progressUser = user;
}

// Calls the progress callback when `done` of `total` candidates reach another whole percent.
void FlicCompute::reportProgress(long long done, long long total) {
    if (!progressCallback || total <= 0) return;
    int percent = static_cast<int>(done >= total ? 100 : done * 100 / total);
    if (percent <= progressPercent) return;
    progressPercent = percent;
    progressCallback(static_cast<float>(percent) / 100.0f, progressUser);
}

// Replaces the integrator pair. A null one (no memory) drops both new ones and keeps the pair in
// place; returns 0 after reporting.
int FlicCompute::installIntegrators(FlicIntegrator* forwardOne, FlicIntegrator* backwardOne) {
    if (!forwardOne || !backwardOne) {
        delete forwardOne;
        delete backwardOne;
        return flic_error("LIC: no memory for the integrators");
    }
    delete forward;
    delete backward;
    forward = forwardOne;
    backward = backwardOne;
    forward->normalization = normalization;
    backward->normalization = normalization;
    return 1;
}

// The operation's name is historical: it installs the midpoint method.
void FlicCompute::useEuler() {
    installIntegrators(new (std::nothrow) Midpoint(1), new (std::nothrow) Midpoint(-1));
}

void FlicCompute::useRK43(float initialStep, float minStep, float maxStep, float tolerance) {
    installIntegrators(new (std::nothrow) RK43(tolerance, initialStep, minStep, maxStep, 1),
                       new (std::nothrow) RK43(tolerance, initialStep, minStep, maxStep, -1));
}

// Asks the system to back the records with large pages where it offers them: a picture's
// records are written all over and, untouched until then, each first write of a small page
// costs a fault; large pages cut the faults by a factor of 512. Only the whole large pages
// inside the block are advised; a hint, without effect where the system has none.
static void adviseLargePages(void* block, size_t bytes) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    const uintptr_t large = 2u << 20;
    uintptr_t begin = (reinterpret_cast<uintptr_t>(block) + large - 1) & ~(large - 1);
    uintptr_t end = (reinterpret_cast<uintptr_t>(block) + bytes) & ~(large - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)block;
    (void)bytes;
#endif
}

// --- start / stop -----------------------------------------------------------------------------

void FlicCompute::start(FlicVectorField* field, FlicImage* texture) {
    int kernel = filterKernel;
    const char* name = kernel >= 0 && kernel < 3 ? kernelNames[kernel] : "unknown";
    flic_info("computing LIC image (L=%.0f, filter=%s, mask=%dx%d)", filterLength, name,
              numSubPixels, numSubPixels);
    watch.reset();
    watch.start();
    derive(field, texture);
    endsEarly = false; // prepareModes decides, once the buffers exist
    noDataCells = nullptr;
    weightPrefix = nullptr;

    // A second start without stop does not leak the previous buffers.
    freeBuffers();
    long long records = static_cast<long long>(texWidth) * texHeight;
    if (kernelSteps >= 0 && extensionSteps >= 0 && records > 0 && recordStride > 0) {
        size_t bytes = static_cast<size_t>(records) * recordStride * sizeof(int);
        accum = static_cast<int*>(calloc(bytes, 1));
        if (accum) adviseLargePages(accum, bytes);
        allocateLineBuffers();
    }
    totalHits = 0;
    numFieldLines = 0;
    tracedPoints = 0;
}

// Steps of start that derive the working quantities: the inputs, the scales, the integrators'
// step and field, N, M, the record layout and the texture lookup.
void FlicCompute::derive(FlicVectorField* field, FlicImage* texture) {
    this->field = field;
    this->texture = texture;
    texWidth = texture->width;
    texHeight = texture->height;
    texChannels = texture->nChannels;

    fieldMaxX = static_cast<float>(field->width - 1.001);
    fieldMaxY = static_cast<float>(field->height - 1.001);
    scaleX = static_cast<float>(texWidth / (field->width - 1.0));
    scaleY = static_cast<float>(texHeight / (field->height - 1.0));
    float integratorStep = 2.0f * stepLength / (scaleX + scaleY);
    FlicIntegrator* pair[2] = {forward, backward};
    for (FlicIntegrator* integrator : pair) {
        if (!integrator) continue;
        integrator->orientation = orientation;
        integrator->stepLength = integratorStep;
        integrator->setField(field->width, field->height, field->vectors());
    }

    kernelSteps = kernelStepsFor(filterLength, stepLength, filterKernel);
    extensionSteps = stepsFor(extensionLength, stepLength);
    lengthBias = 0;
    maxSteps = kernelSteps + extensionSteps;
    numSubCells = numSubPixels * numSubPixels;
    recordStride = numSubCells + texChannels * (frameCount > 0 ? frameCount : 1);

    if (interpolationMethod == CONSTANT)
        getPixel = texChannels == 1 ? getPixelConst1 : getPixelConstN;
    else
        getPixel = texChannels == 1 ? getPixelBilinear1 : getPixelBilinearN;
}

// The work arrays of one line, sized for the longest line of the current settings.
// The sample and sum arrays have N entries of room on both sides, where a line that ends early
// is continued with zero samples so that the running sums give the kernel part it covers.
int FlicCompute::allocateLineBuffers() {
    long long lineLength = 2LL * maxSteps + 1;
    long long room = kernelSteps > 0 ? kernelSteps : 0;
    points = static_cast<PointRecord*>(malloc(sizeof(PointRecord) * lineLength));
    samplesBase = static_cast<int*>(malloc(sizeof(int) * (lineLength + 2 * room) * texChannels));
    sumsBase = static_cast<int*>(malloc(sizeof(int) * (lineLength + 2 * room) * texChannels));
    samples = samplesBase ? samplesBase + room * texChannels : nullptr;
    sums = sumsBase ? sumsBase + room * texChannels : nullptr;
    positions = static_cast<Vec2f*>(malloc(sizeof(Vec2f) * lineLength));
    windowSlots = static_cast<int*>(malloc(sizeof(int) * lineLength));
    if (frameCount > 0) { // the running sums, then the frame kernel's batch
        frameSums =
            static_cast<double*>(malloc(sizeof(double) * (lineLength + 1) * (3 * texChannels + 5)));
        frameTargets = static_cast<unsigned**>(malloc(sizeof(unsigned*) * lineLength));
    }
    return points && samples && sums && positions && windowSlots &&
           (frameCount == 0 || (frameSums && frameTargets));
}

void FlicCompute::freeBuffers() {
    free(points);
    free(accum);
    free(samplesBase);
    free(sumsBase);
    samplesBase = sumsBase = nullptr;
    free(positions);
    free(windowSlots);
    windowSlots = nullptr;
    free(frameSums);
    frameSums = nullptr;
    free(frameTargets);
    frameTargets = nullptr;
    points = nullptr;
    accum = samples = sums = nullptr;
    positions = nullptr;
}

void FlicCompute::stop() {
    freeBuffers();
    float average = static_cast<float>(totalHits) / static_cast<float>(texWidth * texHeight);
    flic_info("total number of field lines = %d", numFieldLines);
    flic_info("average number of hits per pixel = %.2f", average);
    watch.stop();
    flic_info("time for LIC computation = %.2f sec", watch.seconds());
}
