// FlicCompute's tiled mode and animation frames on small fields and textures built from the
// input bytes: every engine setting as in the engine target, plus the tile size, threads and
// SIMD lanes and the modes for real data (borders, no-data cells and mask, orientation,
// passes), from menus that include refused values. A refused run leaves its outputs alone. A
// picture must not depend on the threads or the lanes: the same settings on one thread with
// the scalar tracer give the same bytes, coverage, lines and hits; and a tile as large as the
// picture gives the serial engine's.
#include "engine_inputs.h"

#include <climits>
#include <vector>

using namespace fuzz;

namespace {

const int maxFrames = 3;

// One run's results: its outputs (one picture, or the frames), coverage and statistics.
struct Run {
    int ok = 0;
    std::vector<FlicImage> pictures;
    FlicImage coverage;
    int lines = 0, hits = 0;

    bool same(const Run& other) const {
        if (ok != other.ok || lines != other.lines || hits != other.hits ||
            pictures.size() != other.pictures.size() || !sameImage(coverage, other.coverage))
            return false;
        for (size_t k = 0; k < pictures.size(); k++)
            if (!sameImage(pictures[k], other.pictures[k])) return false;
        return true;
    }
};

void chooseTiling(ByteReader& in, FlicCompute& lic) {
    const int tiles[] = {8, 8, 9, 12, 16, 24, 1000, 0, 7, -1, INT_MAX};
    const int threads[] = {1, 2, 3, 2, 0, -1, 1025};
    const int lanes[] = {0, 1, 4, 8, 16, 3, 1000, -2};
    lic.setTileSize(in.from(tiles));
    lic.setNumThreads(in.from(threads));
    lic.setSimdLanes(in.from(lanes));
}

void chooseModes(ByteReader& in, FlicCompute& lic, const FlicVectorField& field,
                 FlicImage& noDataMask) {
    const int borders[] = {0, 0, 1, 1, 2, -1};
    lic.setBorders(static_cast<FlicCompute::BorderMode>(in.from(borders)),
                   static_cast<FlicCompute::BorderMode>(in.from(borders)));
    int noData = in.below(4); // off, cells with NaN, with a mask, with a mask of another size
    if (noData >= 2) {
        noDataMask.setSize(field.width + (noData == 3 ? 1 : 0), field.height, 1);
        noDataMask.createRandom(1, 1 + in.byte());
    }
    lic.setNoData(noData > 0, noData >= 2 ? &noDataMask : nullptr);
    lic.setOrientation(in.below(3) == 0);
    const int passes[] = {1, 1, 1, 2, 0, -1};
    lic.setPasses(in.from(passes));
    const int ripples[] = {2, 2, 0, 1, 64, 65, -1};
    lic.setAnimationRipples(in.from(ripples));
}

// Computes the picture (frames 0) or `frames` frames under the engine's settings. Checks the
// shapes of what a successful run gives, and that a refused one left its outputs alone.
Run run(FlicCompute& lic, FlicVectorField& field, FlicImage& texture, int frames) {
    Run result;
    result.pictures.resize(frames > 0 && frames <= maxFrames ? frames : 1);
    for (FlicImage& picture : result.pictures) {
        picture.setSize(1, 1, 1);
        picture.clear(42);
    }
    result.coverage.setSize(1, 1, 1);
    result.coverage.clear(42);
    const FlicImage before(result.pictures[0]);
    lic.setCoverageImage(&result.coverage);
    if (frames == 0)
        result.ok = lic.compute(&field, &texture, result.pictures.data());
    else
        result.ok = lic.computeFrames(&field, &texture, frames, result.pictures.data());
    lic.setCoverageImage(nullptr);
    if (!result.ok) {
        for (const FlicImage& picture : result.pictures)
            FUZZ_CHECK(sameImage(picture, before));
        FUZZ_CHECK(sameImage(result.coverage, before));
        return result;
    }
    for (const FlicImage& picture : result.pictures) {
        FUZZ_CHECK(picture.width == texture.width && picture.height == texture.height);
        FUZZ_CHECK(picture.nChannels == texture.nChannels && picture.data != nullptr);
    }
    result.lines = lic.numFieldLines;
    result.hits = lic.totalHits;
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    quietMessages();
    ByteReader in(data, size);
    EngineInputs inputs(in);
    FlicCompute& lic = inputs.lic;
    FlicVectorField& field = inputs.field;
    FlicImage& texture = inputs.texture;
    chooseTiling(in, lic);
    FlicImage noDataMask;
    chooseModes(in, lic, field, noDataMask);
    const int frameCounts[] = {0, 0, 1, 2, 3, -1, 1025};
    int frames = in.from(frameCounts);

    Run tiled = run(lic, field, texture, frames);
    if (!tiled.ok || lic.tileSize <= 0) return 0;
    // The same settings on the calling thread alone, with the scalar tracer.
    int threads = lic.numThreads, lanes = lic.simdLanes;
    lic.setNumThreads(1);
    lic.setSimdLanes(1);
    FUZZ_CHECK(tiled.same(run(lic, field, texture, frames)));
    lic.setNumThreads(threads);
    lic.setSimdLanes(lanes);
    // A tile as large as the picture is the serial engine.
    if (lic.tileSize >= texture.width && lic.tileSize >= texture.height) {
        lic.setTileSize(0);
        FUZZ_CHECK(tiled.same(run(lic, field, texture, frames)));
    }
    return 0;
}
