// FlicCompute: the Fast Line Integral Convolution engine. A noise texture is smeared along the
// field lines of a vector field: each traced line serves every output pixel it passes, and the
// convolution along it runs through integer running sums, so the cost per pixel does not grow
// with the filter length.
#ifndef MUSKEIP_COMPUTE_H
#define MUSKEIP_COMPUTE_H

#include "api.h"

#include "image.h"
#include "integrator.h"
#include "vectorfield.h"

#include <sys/times.h>

#include <vector>

// A stopwatch on the process clock (times): elapsed real time and the user, system and
// children's times, accumulated over start/stop intervals.
class MUSKEIP_API FlicWatch {
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

struct FlicLaneTracer; // the tiled engine's SIMD lane tracer (internal)

class MUSKEIP_API FlicCompute {
    friend struct FlicLaneTracer; // traces lines of several tiles at once

  public:
    // Both are stored as int: a host may hand over any int value (the engine then uses the box
    // formula, respectively the bilinear lookup), and every int is a value of these types.
    enum FilterKernel : int { BOX = 0, TRIANGLE = 1, CUBIC = 2 };
    enum InterpolationMethod : int { CONSTANT = 0, BILINEAR = 1 };
    // What a line does at the field's edge along one axis: PERIODIC, the default, goes on past
    // it (sampled at wrapped positions); CLOSED ends the line there.
    enum BorderMode : int { PERIODIC = 0, CLOSED = 1 };

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
    long long tracedPoints = 0;           // points of those lines (seed and both sides), last pass
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
    // Tiled mode (see compute): 0 = the serial engine; otherwise the picture is cut into
    // tiles of tileSize x tileSize output pixels, traced independently and in parallel.
    int tileSize = 0;
    // Threads of the tiled mode: 0 = every core the system reports, 1 = the calling thread.
    int numThreads = 0;
    // Tiled mode: the lines of how many tiles one thread traces at once, one per SIMD lane of
    // the trial steps: 0 = the widest the processor offers (16 with AVX-512, 8 with AVX2, else
    // 4), 1 = one tile at a time with the scalar tracer; other values are brought to the
    // nearest width offered (the widest not above it, else the narrowest). The bytes do not
    // depend on it. Lines of integrators other than RK43 take the scalar tracer.
    int simdLanes = 0;
    // Modes for real data (all off by default). A line that ends at a closed border or at a
    // no-data cell gives its points near that end values of the kernel part it covers, with
    // the weights renormalised to that part.
    BorderMode borderX = PERIODIC, borderY = PERIODIC;
    // 1: lines end where they enter a no-data cell: a cell with a corner node whose vector has
    // a NaN component or, with noDataMask, whose mask value is 0.
    int noData = 0;
    FlicImage* noDataMask = nullptr; // optional, one channel of the field's size; not owned
    // 1: an orientation field: the sign of its vectors is ignored (v and -v are one direction).
    int orientation = 0;
    // Passes > 1 feed each picture back as the texture of the next pass.
    int passes = 1;
    // Optional output: 255 where at least one line reached the pixel, 0 elsewhere; not owned.
    FlicImage* coverage = nullptr;
    // Animation (computeFrames): ripples of the animated kernel along its 2N samples, 0 to 64;
    // 0 makes every frame the box kernel's picture.
    int animationRipples = 2;

    // The partial accumulation of one tile: the records (S^2 hit counters, then one sum per
    // channel) of a window of output pixels around the tile, wide enough for the lines seeded
    // in the tile, and the contributions that fell outside the window. The window stops at the
    // picture's edges; what a line puts across an edge (at wrapped pixels) is overflow.
    struct TileWindow {
        int tileX0 = 0, tileY0 = 0, tileX1 = 0, tileY1 = 0; // the tile: [x0, x1) x [y0, y1)
        int x0 = 0, y0 = 0;                                 // first column and row of the window
        int width = 0, height = 0;                          // window size in pixels
        int imageWidth = 0, imageHeight = 0;                // the picture's size
        int stride = 0;                                     // ints per record
        int numFieldLines = 0;                              // lines the tile traced
        std::vector<int> records;                           // width x height records, row by row
        std::vector<int> overflow; // entries of 1 + stride ints: pixel index, then a record
        // Row of a pixel index by one multiplication: (pixel * rowMultiplier) >> rowShift.
        unsigned long long rowMultiplier = 0;
        int rowShift = 0;
        // Per picture column and row: its offset in the window's records (column x stride,
        // row x width x stride), or INT_MIN where the window does not cover it; made when a
        // tile starts.
        std::vector<int> columnSlots, rowSlots;

        // The record of picture pixel `pixel` (x + y * imageWidth): inside the window, or a
        // new zeroed overflow entry.
        int* record(int pixel);
        // The record of a pixel inside the window, or null (also before a tile has started).
        int* windowRecord(int pixel);
    };

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
    // Tiled mode: 0 (the default) runs the serial engine; a size of at least 8 pixels cuts
    // the picture into tiles of that size. Checked by compute.
    void setTileSize(int size) { tileSize = size; }
    // Threads for the tiled mode, 0 (all cores) to 1024. Checked by compute.
    void setNumThreads(int count) { numThreads = count; }
    // SIMD lanes of the tiled mode (0 = the widest, 1 = scalar). Checked by compute.
    void setSimdLanes(int count) { simdLanes = count; }
    // Border mode of each axis (PERIODIC or CLOSED).
    void setBorders(BorderMode x, BorderMode y) {
        borderX = x;
        borderY = y;
    }
    // No-data mode on (1) or off (0), with an optional mask of the field's size (0 = no data).
    void setNoData(int on, FlicImage* mask = nullptr) {
        noData = on;
        noDataMask = mask;
    }
    // Orientation mode on (1) or off (0).
    void setOrientation(int on) { orientation = on; }
    // Number of passes, 1 to 16.
    void setPasses(int count) { passes = count; }
    // Where compute writes its coverage image (null: nowhere).
    void setCoverageImage(FlicImage* image) { coverage = image; }
    // Ripples of the animated kernel (computeFrames), 0 to 64.
    void setAnimationRipples(int count) { animationRipples = count; }

    // Computes `frames` pictures (1 to 1024) from one trace of the field's lines, into the
    // array `outputs`: frame f convolves each line with a box window of 2N samples times a
    // ripple (1 + cos(theta_j - psi)) / 2, whose phase psi runs through one period backwards
    // over the frames, so the texture flows downstream and frame `frames` would be frame 0
    // again. The lines, seeds, hits, modes and tiles are those of compute (passes excepted).
    // Returns 1, or 0 after a report through flic_error (bad settings or inputs, no memory);
    // the outputs are then untouched.
    int computeFrames(FlicVectorField* field, FlicImage* texture, int frames, FlicImage* outputs,
                      FlicImage* mask = nullptr, FlicImage* seedMap = nullptr);
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

    // Whether a picture of width x height x channels can be computed with the current
    // settings (sub-pixels, lengths, buffer sizes), checked before any work. Returns 1, or 0
    // through flic_error with the reason compute would give.
    int checkPicture(int width, int height, int channels) const;
    // Bytes the engine's buffers take for such a picture (accumulated sums, texture, output).
    long long memoryNeeded(int width, int height, int channels) const;
    // Bytes of memory the system reports still available (MemAvailable of /proc/meminfo), or
    // -1 when it cannot tell.
    static long long availableMemory();
    // checkPicture, then whether memoryNeeded plus `extraBytes` (what the caller adds: frames,
    // colours) fits the available memory. Returns 1; 0 after checkPicture's report; -1 after
    // flic_error("a W x H picture needs about X GB of memory, but only Y GB are available").
    int checkResources(int width, int height, int channels, long long extraBytes = 0) const;
    // Computes the LIC image of `field` with the input texture `texture` (1 or more channels)
    // into `output`, which gets the texture's size and channels. `mask` (field size, may be
    // null) is copied into `seedMap` (may be null) at each seed. Returns 1, or 0 when the mask
    // does not match the field (reported through flic_info) or the inputs or settings cannot
    // be used (reported through flic_error); the output is then untouched.
    //
    // With tileSize > 0 the picture is cut into tiles; each tile seeds only the sub-pixel
    // cells inside it, in the seeding order restricted to the tile, and judges coverage from
    // its own lines and those of its neighbours of earlier phases (tiles of one phase never
    // reach into each other), so tiles run on numThreads threads as soon as their earlier
    // neighbours are done. The bytes depend on the inputs and settings (tileSize included),
    // never on the thread count or the order in which tiles finish; a tile as large as the
    // picture gives the serial engine's bytes. numFieldLines then counts the lines of all
    // tiles, totalHits the hits of all pixels (both a little higher than the serial engine's:
    // a few lines near tile borders are traced again by the neighbouring tile). The calling
    // thread traces tiles too and calls the progress callback as it finishes them. Threads
    // with no tile left normalise the rows whose tiles are done; the output is replaced only
    // when every tile has succeeded.
    int compute(FlicVectorField* field, FlicImage* texture, FlicImage* output,
                FlicImage* mask = nullptr, FlicImage* seedMap = nullptr);

    // Tiles of a texture of width x height pixels under the current tileSize (one tile when
    // tileSize is 0 or at least the picture), across and down. Tiles are numbered row by row.
    void tileGrid(int width, int height, int& tilesX, int& tilesY) const;
    // The phase of every tile of the picture that `field` and `texture` give under the current
    // settings (tiles numbered row by row) into `phaseOfTile`: tiles of one phase never reach
    // into each other. Returns the number of phases, or 0 after a report (unusable inputs).
    int tilePhases(FlicVectorField* field, FlicImage* texture, std::vector<int>& phaseOfTile);
    // The same plan from sizes alone (a field of fieldWidth x fieldHeight nodes, a texture of
    // width x height x channels), for planning tile tasks before any data exists: the phase
    // of every tile, and `halo`, how far a tile's lines reach beyond it (its window is the
    // tile grown by the halo on every side, cut off at the picture's edges). Returns the number
    // of phases, or 0 after a report. With `neighbours`, also every tile's neighbours: the
    // tiles of other phases whose windows reach into it or into whose window it reaches (only
    // their records can meet its pixels; overflow aside).
    int tileLayout(int fieldWidth, int fieldHeight, int width, int height, int channels,
                   std::vector<int>& phaseOfTile, int& halo,
                   std::vector<std::vector<int>>* neighbours = nullptr);
    // Computes the partial accumulation of tile number `tile`, as compute's tiled mode does,
    // into `partial` (mask and seedMap as for compute; the seed map must already have the
    // texture's size and is written only inside the tile). The tile judges coverage from its
    // own lines and from `earlier`: the records of the tile's own pixels (its width x height,
    // row by row) summed over the windows of every tile of an earlier phase (addToArea without
    // overflow makes them), or null for a tile of the first phase; `earlierInts`, when not
    // negative, is how many ints `earlier` holds, and any other count than the tile's pixels
    // times S^2 + channels is reported instead of read. A task that runs in any thread or
    // process with the same inputs gives the same partial. Returns 1, or 0 after a report
    // through flic_error (bad inputs or settings, no memory).
    int computeTile(FlicVectorField* field, FlicImage* texture, int tile, TileWindow& partial,
                    FlicImage* mask = nullptr, FlicImage* seedMap = nullptr,
                    const int* earlier = nullptr, long long earlierInts = -1);
    // The nodes of a fieldWidth x fieldHeight field that the lines of tile `tile` of a
    // width x height x channels picture can reach under the current settings (their points,
    // the integrators' trial points and the nodes around them): columns [x0, x1) and rows
    // [y0, y1), clipped to the field. With integrators whose reach is unknown (a host's own),
    // the whole field. Returns 1, or 0 after a report (unusable sizes or tile).
    int tileFieldWindow(int fieldWidth, int fieldHeight, int width, int height, int channels,
                        int tile, int& x0, int& y0, int& x1, int& y1);
    // computeTile from a window of the field only, for tasks that should not hold the whole
    // field: `window` holds the nodes of columns x0 .. x0 + window->width - 1 and rows y0 ..
    // y0 + window->height - 1 of a fieldWidth x fieldHeight field, and must contain the nodes
    // tileFieldWindow names. The partial equals computeTile's on the whole field; memory for
    // the nodes beyond the window is reserved but never written. Returns 1, or 0 after a
    // report through flic_error (as computeTile; a window that misses nodes; no memory).
    int computeTileFromWindow(FlicVectorField* window, int x0, int y0, int fieldWidth,
                              int fieldHeight, FlicImage* texture, int tile, TileWindow& partial,
                              FlicImage* mask = nullptr, FlicImage* seedMap = nullptr,
                              const int* earlier = nullptr, long long earlierInts = -1);
    // Where the lines of tile `tile` read the texture (sizes as for tileFieldWindow): the
    // pixels of columns x0 .. x0 + w - 1 and rows y0 .. y0 + h - 1, each taken modulo the
    // texture's width and height (the window may wrap around its edges, as the lookups do).
    // Returns 1, or 0 after a report.
    int tileTextureWindow(int fieldWidth, int fieldHeight, int width, int height, int channels,
                          int tile, int& x0, int& y0, int& w, int& h);
    // computeTileFromWindow with the texture from a window too, for tasks that hold neither
    // whole: `textureWindow` holds the pixels tileTextureWindow names for a texture of width x
    // height pixels (its channels the texture's), at least those, starting at column x0 and row
    // y0 and wrapping as there; `textureMeans` are the whole texture's means per channel
    // (textureMeans gives them), which closed borders use. The partial equals computeTile's
    // on the whole inputs. Returns 1, or 0 after a report through flic_error.
    int computeTileFromWindows(FlicVectorField* fieldWindow, int fieldX0, int fieldY0,
                               int fieldWidth, int fieldHeight, FlicImage* textureWindow,
                               int textureX0, int textureY0, int width, int height,
                               const double* textureMeans, int tile, TileWindow& partial,
                               const int* earlier = nullptr, long long earlierInts = -1);
    // The mean of each channel of a texture (sum over the pixels divided by their count, in
    // double) into `means`, one per channel.
    static void textureMeans(const FlicImage& texture, double* means);
    // Adds what a partial holds for the pixels of the rectangle [x0, x0 + width) x
    // [y0, y0 + height) of the picture into `records`, that rectangle's records row by row:
    // its window, and with `withOverflow` its overflow too. Returns 1, or 0 after a report
    // through flic_error, `records` untouched, when the partial does not fit its own picture
    // (a window outside it, records or overflow entries of the wrong size, overflow at pixels
    // outside it): partials from computeTile always fit, partials read from elsewhere may not.
    static int addToArea(const TileWindow& partial, int x0, int y0, int width, int height,
                         int* records, bool withOverflow = true);
    // Adds a partial into the records of the whole picture (imageWidth x imageHeight records
    // of `stride` ints, wrap-around integer additions, so the order of the partials does not
    // matter). Returns 1, or 0 after a report as addToArea.
    static int addTile(const TileWindow& partial, int* records);
    // Divides accumulated records (width x height, S^2 = subCells hit counters and `channels`
    // sums each) into `output`, as compute's last step: truncating, low byte, 0 without hits.
    // Adds the hits to `totalHitsOut` when it is not null. Returns 1, or 0 after a report when
    // the sizes make no picture (width or height below 1, subCells outside 0 .. 65536 (256^2),
    // channels below 1) or the output cannot be sized; the output is then untouched.
    // With `coverageOut`, also makes the coverage image (255 where a pixel has hits, else 0).
    static int normalizeRecords(const int* records, int width, int height, int subCells,
                                int channels, FlicImage* output, int* totalHitsOut = nullptr,
                                FlicImage* coverageOut = nullptr);

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
    int progressPercent = 0;      // whole percent reported so far in this computation
    TileWindow* window = nullptr; // set while this engine traces one tile
    int* windowSlots = nullptr;   // per point of a line: its record in the window, or -1
    // Where the window's slots point: its own records, or the picture's records when the tile
    // adds into them directly (see directRecords). Set while a tile is traced.
    int* windowRecords = nullptr;
    // The picture's records, when the threaded driver lets tiles add into them directly: the
    // windows of tiles that may run at the same time never meet (see tilesShareNoRecords), so
    // a tile's window needs no records of its own and no merging, and the records at its seed
    // cells already hold the lines of its earlier neighbours.
    int* directRecords = nullptr;
    // Real-data modes, prepared by derive: whether a line may end early, the no-data cells
    // ((field width - 1) x (field height - 1), 1 = no data) and the prefix sums of the
    // kernel's weights over its 2N offsets (see trace.cpp); tracers share the parent's.
    bool endsEarly = false;
    std::vector<unsigned char> noDataCellStore;
    std::vector<long long> weightPrefixStore;
    std::vector<double> squarePrefixStore; // prefix sums of the squared weights
    std::vector<double> textureMeanStore;  // per channel
    const unsigned char* noDataCells = nullptr;
    const long long* weightPrefix = nullptr;
    const double* squarePrefix = nullptr;
    const double* textureMean = nullptr;
    int* samplesBase = nullptr; // the line arrays with N entries of room on both sides
    int* sumsBase = nullptr;
    int prepareModes();
    // Animation: frames per record (0: a still picture) and the line's running sums of the
    // samples, of the samples times cos and sin of the ripple phase, and of cos and sin alone.
    int frameCount = 0;
    double* frameSums = nullptr;
    unsigned** frameTargets = nullptr; // per point of a line: its frame sums, for the kernel
    // cos and sin of the ripple's phase over its period (2N each), then of the frames' phases
    // (frameCount each); made once per computation, shared by the tiles' tracers.
    std::vector<double> frameTableStore;
    const double* frameTable = nullptr;
    void accumulateFrames(int lo, int hi, bool cutLo, bool cutHi);
    void normalizeFrames(FlicImage* outputs);
    // Sizes the frames and the coverage image; true when there is a coverage image to make.
    bool sizeFrames(FlicImage* outputs);
    // Rows rowBegin .. rowEnd - 1 of normalizeFrames into frames (and the coverage image
    // `covered`, when not null) sized already; returns the rows' hits (wrapping).
    int normalizeFrameRows(FlicImage* outputs, int rowBegin, int rowEnd, FlicImage* covered) const;
    struct TiledPictures; // what a tiled computation normalises into (tiles.cpp)
    struct TiledRun;      // one tiled computation's shared state and steps (tiles.cpp)
    int checkModes(FlicVectorField* field) const;
    int computeOnce(FlicVectorField* field, FlicImage* texture, FlicImage* output, FlicImage* mask,
                    FlicImage* seedMap);
    bool keepsPoint(const Vec2f& p) const;
    void endLineEarly(int& lo, int& hi, bool& cutLo, bool& cutHi);
    void accumulateCut(int lo, int hi, bool cutLo, bool cutHi);
    void derive(FlicVectorField* field, FlicImage* texture);
    int allocateLineBuffers();
    // Tiled mode: checks the settings, runs the tiles on the threads, merges and normalises.
    int checkTileSettings() const;
    int computeTiled(FlicImage* output, FlicImage* mask, FlicImage* seedMap);
    // Copies the settings, derived quantities and integrators of `parent` (after its start)
    // and allocates the line buffers, so that this engine can trace tiles of the same picture.
    int becomeTracerOf(const FlicCompute& parent);
    int haloPixels() const;
    double lineReach() const; // field cells a line's points and trials reach from its seed
    const double* givenTextureMean = nullptr; // the texture's means when only a window is held
    int phasesOfTiles(std::vector<int>& phaseOfTile) const;
    // Whether the windows of tiles that may run at the same time never share a record, so that
    // tiles may add into the picture's records directly.
    bool tilesShareNoRecords() const;
    void tileNeighbours(const std::vector<int>& phaseOfTile, std::vector<std::vector<int>>& later,
                        std::vector<int>& waitingFor) const;
    // Coverage by the tiles of earlier phases: records of the pixels from (coveredX0,
    // coveredY0) on, coveredWidth to a row; read only inside the tile being traced.
    const int* coveredRecords = nullptr;
    int coveredX0 = 0, coveredY0 = 0, coveredWidth = 0;
    void setUpWindow(int tile, TileWindow& partial) const;
    // The pixels [x0, x1) x [y0, y1) of tile `tile` of a width x height picture.
    void tilePixels(int width, int height, int tile, int& x0, int& y0, int& x1, int& y1) const;
    int traceTile(int tile, TileWindow& partial, FlicImage* mask, FlicImage* seedMap,
                  const std::vector<unsigned>* sobolCells, const std::vector<int>* sobolStart,
                  bool zeroed);
    // traceTile's first and last steps: the window set up and zeroed and the line count
    // cleared (0 without memory); the line count stored in the window and the window let go
    // (also after a failure).
    int beginTile(int tile, TileWindow& partial, bool zeroed);
    void endTile(TileWindow& partial);
    void reportProgress(long long done, long long total);
    int installIntegrators(FlicIntegrator* forwardOne, FlicIntegrator* backwardOne);
    int checkInputs(FlicVectorField* field, FlicImage* texture, FlicImage* output, FlicImage* mask,
                    FlicImage* seedMap) const;
    void seedCell(int x, int y, int i, int j, FlicImage* mask, FlicImage* seedMap);
    // The parts of seedCell: the seed of the cell in field coordinates (0 when a line covers
    // the cell already), and the seed map's pixel for it.
    int seedOfCell(int x, int y, int i, int j, Vec2f& seed) const;
    // Whether a line covers cell (i, j) of pixel (x, y) already: hits in the records this
    // engine adds to, or in the earlier tiles' records. Inline (engine_common.h): the seeding
    // asks it for every cell, and most cells are covered.
    bool coversCell(int x, int y, int i, int j) const;
    void markSeed(int x, int y, const Vec2f& seed, FlicImage* mask, FlicImage* seedMap) const;
    void seedPattern(FlicImage* mask, FlicImage* seedMap);
    void seedRaster(FlicImage* mask, FlicImage* seedMap);
    void seedQuasiRandom(FlicImage* mask, FlicImage* seedMap);
    void normalize(FlicImage* output);
    Vec2f seedVector(const Vec2f& seed) const;
    // A line in three parts, so that tracers may take its points in their own way: the seed's
    // checks and direction (1 when a line is to be traced), then, once the integrators have
    // traced positions lo .. hi, the texture samples, convolution and accumulation.
    int beginLine(const Vec2f& seed, Vec2f& v);
    void finishLine(int lo, int hi);
    template <int KIND>
    void convolveLine(int lo, int hi);
    int traceSide(FlicIntegrator* integrator, int sign);
    int traceAdaptiveSide(AdaptiveIntegrator* integrator, int sign);
    void freeBuffers();

    Vec2f* positions; // the points of the current line as the integrators returned them
    void runningSums(const int* in, int* out, int lo, int hi) const;
    void runningSumsTwice(int lo, int hi);
    void convolve(int lo, int hi);
};

#endif
