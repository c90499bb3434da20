// The engine's tiled mode: the same bytes whatever the threads, the serial engine's bytes for a
// tile as large as the picture, tiles as independent tasks, no seams, checked settings.
#include "compute.h"
#include "testutil.h"
#include "tiles_common.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

using testutil::imageBytes;
using testutil::makeField;
using testutil::MessageCapture;
using testutil::noiseImage;
using testutil::vortexSaddle;
using Bytes = std::vector<unsigned char>;

namespace {

// The vortex-saddle field with a row of zero nodes and a NaN node.
FlicVectorField holesField(int width, int height) {
    FlicVectorField field = vortexSaddle(width, height);
    for (int x = width / 2 - 3; x < width / 2 + 1; x++)
        field.vectors()[(height / 2) * width + x] = Vec2f{0, 0};
    field.vectors()[5 * width + width - 7] = Vec2f{std::numeric_limits<float>::quiet_NaN(), 1};
    return field;
}

struct Outcome {
    Bytes image;
    Bytes seeds;
    int lines, hits;
    Bytes coverage;
};

Outcome run(FlicVectorField& field, FlicImage& texture, int tile, int threads, int seeding, int S,
            FlicImage* mask = nullptr, float extension = 24) {
    FlicCompute engine;
    engine.setTileSize(tile);
    engine.setNumThreads(threads);
    engine.seedingMethod = seeding;
    engine.setNumSubPixels(S);
    engine.setFilterLength(8);
    engine.extensionLength = extension;
    FlicImage output, seedMap, coverage;
    engine.setCoverageImage(&coverage);
    EXPECT_EQ(engine.compute(&field, &texture, &output, mask, mask ? &seedMap : nullptr), 1);
    return Outcome{imageBytes(output), mask ? imageBytes(seedMap) : Bytes(), engine.numFieldLines,
                   engine.totalHits, imageBytes(coverage)};
}

// The hit counters (entries first .. end - 1) of records of `stride` ints.
long long hitsIn(const std::vector<int>& records, int stride, int end, int first = 0) {
    long long hits = 0;
    for (size_t r = 0; r + stride <= records.size(); r += stride)
        for (int k = first; k < end; k++)
            hits += records[r + k];
    return hits;
}

bool same(const Outcome& a, const Outcome& b) {
    return std::tie(a.image, a.seeds, a.lines, a.hits, a.coverage) ==
           std::tie(b.image, b.seeds, b.lines, b.hits, b.coverage);
}

} // namespace

TEST(Tiles, OneTileAsLargeAsThePictureIsTheSerialEngine) {
    FlicVectorField field = holesField(25, 21);
    for (int channels : {1, 3})
        for (int seeding : {0, 1, 2})
            for (int S : {1, 2}) {
                FlicImage texture = noiseImage(70, 61, channels, 3);
                Outcome serial = run(field, texture, 0, 1, seeding, S);
                Outcome tiled = run(field, texture, 128, 2, seeding, S);
                EXPECT_TRUE(same(serial, tiled))
                    << "channels " << channels << " seeding " << seeding << " S " << S;
            }
}

TEST(Tiles, ThreadsAndTasksGiveTheSameBytes) {
    std::vector<FlicVectorField> fields;
    fields.push_back(vortexSaddle(33, 29));
    fields.push_back(holesField(33, 29));
    fields.push_back(makeField(33, 29, [](float x, float y) { return Vec2f{y - 14, x - 16}; }));
    FlicImage mask = noiseImage(33, 29, 1, 9);
    // An extension of 24 steps gives these fields a halo of 27 pixels, wider than half of every
    // tile here: windows of tiles that run at once may meet, so each tile has records of its
    // own. With 8 steps (halo 11) the windows of such tiles stay apart from tiles of 22 pixels
    // on, and the tiles add into the picture directly.
    struct Case {
        int field, channels, seeding, S, tile;
        float extension;
    } cases[] = {{0, 1, 1, 1, 16, 24}, {1, 1, 1, 2, 24, 24}, {2, 3, 0, 1, 16, 24},
                 {1, 3, 2, 1, 22, 8},  {0, 1, 2, 2, 32, 8},  {2, 1, 0, 2, 40, 24},
                 {0, 3, 1, 1, 22, 8},  {2, 1, 0, 2, 24, 8}};
    for (const Case& c : cases) {
        std::string label = "case field " + std::to_string(c.field) + " seeding " +
                            std::to_string(c.seeding) + " S " + std::to_string(c.S) + " tile " +
                            std::to_string(c.tile) + " extension " + std::to_string(c.extension);
        FlicImage texture = noiseImage(97, 83, c.channels, 5);
        FlicVectorField& field = fields[c.field];
        Outcome one = run(field, texture, c.tile, 1, c.seeding, c.S, &mask, c.extension);
        EXPECT_NE(one.image, run(field, texture, 0, 1, c.seeding, c.S, &mask, c.extension).image)
            << label;
        for (int threads : {2, 3, 8})
            EXPECT_TRUE(
                same(one, run(field, texture, c.tile, threads, c.seeding, c.S, &mask, c.extension)))
                << label << " threads " << threads;

        // The same picture from the tiles as separate tasks, phase by phase, each tile given
        // the sums of the earlier phases on its pixels; the partials added in reverse order.
        FlicCompute engine;
        engine.setTileSize(c.tile);
        engine.seedingMethod = c.seeding;
        engine.setNumSubPixels(c.S);
        engine.setFilterLength(8);
        engine.extensionLength = c.extension;
        std::vector<int> phaseOf;
        int phases = engine.tilePhases(&field, &texture, phaseOf);
        ASSERT_GT(phases, 1) << label;
        int tilesX, tilesY;
        engine.tileGrid(texture.width, texture.height, tilesX, tilesY);
        int stride = c.S * c.S + c.channels;
        std::vector<FlicCompute::TileWindow> partials(tilesX * tilesY);
        for (int phase = 0; phase < phases; phase++)
            for (int tile = tilesX * tilesY - 1; tile >= 0; tile--) {
                if (phaseOf[tile] != phase) continue;
                int x0 = tile % tilesX * c.tile, y0 = tile / tilesX * c.tile;
                int w = std::min(c.tile, texture.width - x0),
                    h = std::min(c.tile, texture.height - y0);
                std::vector<int> earlier(static_cast<size_t>(w) * h * stride);
                for (int other = 0; other < tilesX * tilesY; other++) {
                    if (phaseOf[other] >= phase) continue;
                    ASSERT_EQ(FlicCompute::addToArea(partials[other], x0, y0, w, h, earlier.data(),
                                                     false),
                              1);
                }
                ASSERT_EQ(engine.computeTile(&field, &texture, tile, partials[tile], nullptr,
                                             nullptr, earlier.data(),
                                             static_cast<long long>(earlier.size())),
                          1);
            }
        std::vector<int> records(static_cast<size_t>(texture.width) * texture.height * stride);
        int lines = 0;
        long long partialHits = 0;
        for (int tile = tilesX * tilesY - 1; tile >= 0; tile--) {
            const FlicCompute::TileWindow& partial = partials[tile];
            ASSERT_EQ(FlicCompute::addTile(partial, records.data()), 1);
            lines += partial.numFieldLines;
            partialHits += hitsIn(partial.records, partial.stride, c.S * c.S);
            partialHits += hitsIn(partial.overflow, partial.stride + 1, c.S * c.S + 1, 1);
        }
        FlicImage picture;
        int hits = 0;
        ASSERT_EQ(FlicCompute::normalizeRecords(records.data(), texture.width, texture.height,
                                                c.S * c.S, c.channels, &picture, &hits),
                  1);
        EXPECT_EQ(imageBytes(picture), one.image) << label;
        EXPECT_EQ(std::tie(lines, hits), std::tie(one.lines, one.hits)) << label;
        // Every hit of every window and overflow entry reaches the picture.
        EXPECT_EQ(partialHits, hits) << label;
    }
}

// Partials read from elsewhere may be damaged: adding one that does not fit its own picture,
// or computing a tile with the wrong count of earlier records, is refused with a message,
// nothing read or written out of place.
TEST(Tiles, PartialsThatDoNotFitTheirPictureAreRefused) {
    FlicVectorField field = vortexSaddle(33, 29);
    FlicImage texture = noiseImage(97, 83, 1, 5);
    FlicCompute engine;
    engine.setTileSize(32);
    engine.setFilterLength(8);
    engine.extensionLength = 24;
    // Tile 5 of the 4 x 3 tiles: pixels 32 .. 63 of rows 32 .. 63; records of 1 hit + 1 sum.
    FlicCompute::TileWindow good;
    ASSERT_EQ(engine.computeTile(&field, &texture, 5, good), 1);
    ASSERT_EQ(std::tie(good.tileX0, good.tileY0, good.stride), std::make_tuple(32, 32, 2));
    ASSERT_GT(good.x0, 0);
    {
        // A kernel shorter than a step traces no lines: the tile's window is placed, empty.
        FlicCompute shortKernel;
        shortKernel.setTileSize(32);
        shortKernel.setFilterLength(0.25f);
        FlicCompute::TileWindow empty = good;
        ASSERT_EQ(shortKernel.computeTile(&field, &texture, 5, empty), 1);
        EXPECT_EQ(std::tie(empty.tileX0, empty.tileY0, empty.tileX1, empty.tileY1),
                  std::make_tuple(32, 32, 64, 64));
        EXPECT_TRUE(empty.records.empty());
        EXPECT_TRUE(empty.overflow.empty());
        EXPECT_EQ(empty.numFieldLines, 0);
    }
    {
        std::vector<int> earlier(32 * 32 * 2 - 1);
        FlicCompute::TileWindow kept = good;
        MessageCapture capture;
        EXPECT_EQ(engine.computeTile(&field, &texture, 5, kept, nullptr, nullptr, earlier.data(),
                                     static_cast<long long>(earlier.size())),
                  0);
        EXPECT_EQ(MessageCapture::onlyError(), "FLIC error: LIC: the earlier records of tile 5 "
                                               "hold 2047 ints, its 32 x 32 pixels need 2048");
        EXPECT_EQ(kept.records, good.records);
    }
    auto window = [&](const FlicCompute::TileWindow& p) {
        return "(" + std::to_string(p.width) + " x " + std::to_string(p.height) + " pixels at " +
               std::to_string(p.x0) + ", " + std::to_string(p.y0) + ")";
    };
    struct Damage {
        void (*spoil)(FlicCompute::TileWindow&);
        std::string message;
    } damages[] = {
        {[](FlicCompute::TileWindow& p) { p.imageWidth = 0; },
         "for a 0 x 83 picture with records of 2 ints cannot be added"},
        {[](FlicCompute::TileWindow& p) { p.stride = 0; },
         "for a 97 x 83 picture with records of 0 ints cannot be added"},
        {[](FlicCompute::TileWindow& p) { p.x0 = -1; }, ""},
        {[](FlicCompute::TileWindow& p) { p.y0 = p.imageHeight - p.height + 1; }, ""},
        {[](FlicCompute::TileWindow& p) { p.records.pop_back(); },
         "holds " + std::to_string(good.records.size() - 1) + " ints for a window of " +
             std::to_string(good.width) + " x " + std::to_string(good.height) +
             " records of 2 ints"},
        {[](FlicCompute::TileWindow& p) { p.overflow.push_back(1); },
         "overflow of a partial accumulation is not made of entries of 3 ints"},
        {[](FlicCompute::TileWindow& p) {
             p.overflow.insert(p.overflow.end(), {97 * 83, 1, 1});
         },
         "names pixel 8051, outside its 97 x 83 picture"},
        {[](FlicCompute::TileWindow& p) {
             p.overflow.insert(p.overflow.end(), {-1, 1, 1});
         },
         "names pixel -1, outside its 97 x 83 picture"},
    };
    for (const Damage& d : damages) {
        FlicCompute::TileWindow bad = good;
        d.spoil(bad);
        std::string expected = d.message.empty()
                                   ? "the window of a partial accumulation " + window(bad) +
                                         " is not inside its 97 x 83 picture"
                                   : d.message;
        std::vector<int> picture(97 * 83 * 2, 7), area(40 * 40 * 2, 7);
        MessageCapture capture;
        EXPECT_EQ(FlicCompute::addTile(bad, picture.data()), 0) << expected;
        EXPECT_EQ(FlicCompute::addToArea(bad, 30, 30, 40, 40, area.data()), 0) << expected;
        ASSERT_EQ(MessageCapture::errors().size(), 2u) << expected;
        for (const std::string& text : MessageCapture::errors())
            EXPECT_NE(text.find(expected), std::string::npos) << text;
        EXPECT_TRUE(std::all_of(picture.begin(), picture.end(), [](int v) { return v == 7; }));
        EXPECT_TRUE(std::all_of(area.begin(), area.end(), [](int v) { return v == 7; }));
    }
    // The undamaged partial adds its hits: every record of its window lands in the picture.
    std::vector<int> picture(97 * 83 * 2, 0);
    ASSERT_EQ(FlicCompute::addTile(good, picture.data()), 1);
    long long added = 0, held = 0;
    for (size_t k = 0; k < picture.size(); k += 2)
        added += picture[k];
    for (size_t k = 0; k < good.records.size(); k += 2)
        held += good.records[k];
    for (size_t k = 0; k < good.overflow.size(); k += 3)
        held += good.overflow[k + 1];
    EXPECT_GT(held, 0);
    EXPECT_EQ(added, held);

    // Records whose sizes make no picture are refused, the output left as it was.
    FlicImage output(3, 2, 1);
    output.clear(9);
    for (auto sizes : {std::make_tuple(0, 83, 1, 1), std::make_tuple(97, 83, -1, 3),
                       std::make_tuple(97, 83, 65537, 1), std::make_tuple(97, 83, 1, 0)}) {
        int w = std::get<0>(sizes), h = std::get<1>(sizes), cells = std::get<2>(sizes),
            channels = std::get<3>(sizes);
        MessageCapture capture;
        EXPECT_EQ(FlicCompute::normalizeRecords(picture.data(), w, h, cells, channels, &output), 0);
        EXPECT_EQ(MessageCapture::onlyError(),
                  "FLIC error: LIC: no picture from " + std::to_string(w) + " x " +
                      std::to_string(h) + " records of " + std::to_string(cells) +
                      " hit counters and " + std::to_string(channels) + " channels");
        EXPECT_EQ(std::make_tuple(output.width, output.height, output.data[5]),
                  std::make_tuple(3, 2, static_cast<unsigned char>(9)));
    }
}

TEST(Tiles, NoSeamsAtTileBorders) {
    FlicVectorField field = makeField(65, 65, [](float x, float y) {
        return Vec2f{cosf(y * 0.05f) + 0.3f, sinf(x * 0.04f)};
    });
    FlicImage texture = noiseImage(256, 256, 1, 2);
    FlicCompute engine;
    engine.setTileSize(64);
    engine.setNumThreads(2);
    FlicImage output;
    ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
    double sum[2] = {0, 0}, squares[2] = {0, 0}, count[2] = {0, 0};
    for (int y = 0; y < 256; y++)
        for (int x = 0; x < 256; x++) {
            int dx = std::min(x % 64, 63 - x % 64), dy = std::min(y % 64, 63 - y % 64);
            int near = std::min(dx, dy) < 4 ? 1 : 0;
            double v = output.data[y * output.bytesPerLine + x];
            sum[near] += v;
            squares[near] += v * v;
            count[near]++;
        }
    double mean[2], sdev[2];
    for (int k = 0; k < 2; k++) {
        mean[k] = sum[k] / count[k];
        sdev[k] = std::sqrt(squares[k] / count[k] - mean[k] * mean[k]);
    }
    EXPECT_NEAR(mean[1] / mean[0], 1.0, 0.03);
    EXPECT_NEAR(sdev[1] / sdev[0], 1.0, 0.03);
}

namespace {
struct Progress {
    std::vector<float> values;
    std::thread::id thread;
    bool otherThread = false;
};
void record(float done, void* user) {
    Progress* p = static_cast<Progress*>(user);
    p->values.push_back(done);
    if (std::this_thread::get_id() != p->thread) p->otherThread = true;
}
} // namespace

// Bands of 32 rows over a picture 130 rows high: 0-31, 32-63, 64-95, 96-127, 128-129. The
// windows of three tiles cover rows 0-39, 30-69 and 96-99; no window meets the last band.
TEST(Tiles, RowBandsAreNormalisedOnceTheTilesThatMeetThemAreMerged) {
    using muskeip::detail::RowBands;
    RowBands bands;
    std::vector<std::pair<int, int>> calls;
    bands.normalize = [&](int begin, int end) {
        calls.push_back({begin, end});
        return begin == 32 ? INT_MAX : end - begin; // the sum of the hits wraps
    };
    bands.setUp(130, {0, 30, 96}, {40, 70, 100});
    EXPECT_EQ(bands.ready, std::vector<int>({4}));
    bands.tileMerged(2);
    EXPECT_EQ(bands.ready, std::vector<int>({4, 3}));
    bands.tileMerged(0); // bands 0 and 1 still wait for tile 1
    EXPECT_EQ(bands.ready.size(), 2u);
    bands.tileMerged(1);
    EXPECT_EQ(bands.ready, std::vector<int>({4, 3, 0, 1, 2}));
    for (int b : bands.ready)
        bands.normalizeBand(b);
    EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{
                         {128, 130}, {96, 128}, {0, 32}, {32, 64}, {64, 96}}));
    EXPECT_EQ(bands.hits, std::vector<int>({32, INT_MAX, 32, 32, 2}));
    EXPECT_EQ(bands.totalHits(), INT_MIN + 97);

    // The overflow's rows: their bands again, once each; rows outside the picture are ignored.
    calls.clear();
    for (int row : {-1, 40, 63, 129, 130, INT_MAX})
        bands.touch(row);
    bands.normalizeTouched();
    EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{{32, 64}, {128, 130}}));
    calls.clear();
    bands.normalizeTouched();
    EXPECT_TRUE(calls.empty());
}

TEST(Tiles, ProgressFromTheCallingThreadAndCheckedSettings) {
    FlicVectorField field = vortexSaddle(33, 29);
    FlicImage texture = noiseImage(300, 280, 1, 4);
    FlicCompute engine;
    engine.setTileSize(16);
    engine.setNumThreads(3);
    Progress progress;
    progress.thread = std::this_thread::get_id();
    engine.setProgressCallback(record, &progress);
    FlicImage output;
    ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
    ASSERT_FALSE(progress.values.empty());
    EXPECT_LE(progress.values.size(), 100u);
    EXPECT_EQ(progress.values.back(), 1.0f);
    EXPECT_FALSE(progress.otherThread);
    for (size_t k = 1; k < progress.values.size(); k++)
        EXPECT_LT(progress.values[k - 1], progress.values[k]);

    struct Bad {
        int tile, threads, lanes;
        const char* message;
    } bad[] = {{-1, 1, 0, "LIC: tile size -1 is negative"},
               {4, 1, 0, "LIC: tile size 4 is below the smallest tile of 8 pixels"},
               {16, -2, 0, "LIC: number of threads -2 outside 0 .. 1024"},
               {16, 5000, 0, "LIC: number of threads 5000 outside 0 .. 1024"},
               {16, 1, -1, "LIC: SIMD lanes -1 is negative"}};
    for (const Bad& b : bad) {
        FlicCompute refused;
        refused.setTileSize(b.tile);
        refused.setNumThreads(b.threads);
        refused.setSimdLanes(b.lanes);
        FlicImage untouched(3, 2, 1);
        untouched.clear(7);
        MessageCapture capture;
        EXPECT_EQ(refused.compute(&field, &texture, &untouched), 0);
        EXPECT_NE(MessageCapture::onlyError().find(b.message), std::string::npos)
            << MessageCapture::onlyError();
        EXPECT_EQ(untouched.width, 3);
        EXPECT_EQ(untouched.data[0], 7);
    }
    FlicCompute::TileWindow partial;
    MessageCapture capture;
    EXPECT_EQ(engine.computeTile(&field, &texture, 999, partial), 0);
    EXPECT_NE(MessageCapture::onlyError().find("LIC: tile 999 outside 0 .. 341"), std::string::npos)
        << MessageCapture::onlyError();
    // A window that no tile has started has no lookup tables: its records go to the overflow.
    FlicCompute::TileWindow bare;
    bare.imageWidth = bare.width = 30;
    bare.imageHeight = bare.height = 20;
    bare.stride = 2;
    bare.records.assign(30 * 20 * 2, 0);
    EXPECT_EQ(bare.windowRecord(45), nullptr);
    int* entry = bare.record(45);
    ASSERT_EQ(bare.overflow.size(), 3u);
    EXPECT_EQ(bare.overflow[0], 45);
    EXPECT_EQ(entry, bare.overflow.data() + 1);
}

// Planning from sizes gives the phases of the real inputs; neighbours are mutual and of other
// phases, and the halo is the lines' reach.
TEST(Tiles, LayoutFromSizesMatchesThePhasesOfTheInputs) {
    FlicVectorField field = vortexSaddle(33, 25);
    FlicImage texture = noiseImage(300, 200, 1, 4);
    FlicCompute engine;
    engine.setTileSize(64);
    std::vector<int> phases, planned;
    std::vector<std::vector<int>> neighbours;
    int halo = -1;
    ASSERT_GT(engine.tilePhases(&field, &texture, phases), 0);
    ASSERT_EQ(engine.tileLayout(33, 25, 300, 200, 1, planned, halo, &neighbours),
              *std::max_element(phases.begin(), phases.end()) + 1);
    EXPECT_EQ(planned, phases);
    // 80 steps of extension, each 2 max(sx, sy) / (sx + sy) = 2 * 9.375 / 17.708 pixels long
    // (scales 300 / 32 and 200 / 24): 84.7, rounded up, and 2 of margin.
    EXPECT_EQ(87, halo);
    ASSERT_EQ(neighbours.size(), phases.size());
    for (size_t t = 0; t < neighbours.size(); t++)
        for (int other : neighbours[t]) {
            EXPECT_NE(phases[t], phases[other]);
            const std::vector<int>& back = neighbours[other];
            EXPECT_NE(std::find(back.begin(), back.end(), static_cast<int>(t)), back.end());
        }

    // Windows stop at the picture's edges: 3 x 2 tiles of 256 pixels (scales 3 and 2, so a halo
    // of 80 steps of 1.2 pixels and 2 of margin) take two colours along each axis, and tiles on
    // opposite edges are not neighbours.
    engine.setTileSize(256);
    ASSERT_EQ(4, engine.tileLayout(257, 257, 768, 512, 1, planned, halo, &neighbours));
    EXPECT_EQ(98, halo);
    EXPECT_EQ((std::vector<int>{0, 1, 0, 2, 3, 2}), planned);
    auto sorted = [](std::vector<int> v) {
        std::sort(v.begin(), v.end());
        return v;
    };
    EXPECT_EQ((std::vector<int>{1, 3, 4}), sorted(neighbours[0]));
    EXPECT_EQ((std::vector<int>{1, 4, 5}), sorted(neighbours[2]));
    EXPECT_EQ((std::vector<int>{0, 2, 3, 4, 5}), sorted(neighbours[1]));

    MessageCapture capture;
    EXPECT_EQ(0, engine.tileLayout(1, 25, 300, 200, 1, planned, halo));
    EXPECT_EQ(0, engine.tileLayout(33, 25, 0, 200, 1, planned, halo));
    EXPECT_EQ(2u, MessageCapture::errors().size());
}

// --- SIMD lanes -------------------------------------------------------------------------------

namespace {

// A rough field: random vectors, with NaN nodes, zero nodes and nodes too slow to follow
// sprinkled in, so that lines fail inside trial steps at every stage, steps are rejected and
// integrators fall back to Euler steps.
FlicVectorField roughField(int width, int height, unsigned seed) {
    FlicVectorField field(width, height);
    for (int k = 0; k < width * height; k++) {
        seed = seed * 1103515245u + 12345u;
        int kind = static_cast<int>((seed >> 16) % 23);
        float angle = static_cast<float>((seed >> 4) % 6283) * 0.001f;
        Vec2f v{cosf(angle), sinf(angle)};
        if (kind == 0) v.x = std::numeric_limits<float>::quiet_NaN();
        if (kind == 1) v = Vec2f{0.0f, 0.0f};
        if (kind == 2) v = Vec2f{1e-12f, 0.0f};
        field.vectors()[k] = v;
    }
    return field;
}

struct LaneRun {
    Bytes image;
    int lines, hits;
    long long points;
};

// A tiled picture with the settings `configure` makes, on `threads` threads and `lanes` lanes.
template <class Configure>
LaneRun laneRun(FlicVectorField& field, FlicImage& texture, int lanes, int threads,
                Configure configure) {
    FlicCompute engine;
    engine.setTileSize(16);
    engine.setFilterLength(8);
    engine.extensionLength = 24;
    engine.setNumThreads(threads);
    engine.setSimdLanes(lanes);
    configure(engine);
    FlicImage output;
    EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
    return LaneRun{imageBytes(output), engine.numFieldLines, engine.totalHits, engine.tracedPoints};
}

} // namespace

// Every lane width, on one thread or two, traces exactly the scalar tracer's points: the same
// bytes, lines, hits and traced points, for the kernels, sub-pixels, seeding orders, channels,
// step controls and modes for real data, on fields whose lines fail in every way.
TEST(Tiles, SimdLanesGiveTheScalarTracersBytes) {
    std::vector<FlicVectorField> fields;
    fields.push_back(vortexSaddle(33, 29));
    fields.push_back(holesField(33, 29));
    fields.push_back(roughField(37, 31, 7));
    struct Case {
        const char* name;
        int channels;
        void (*configure)(FlicCompute&);
    } cases[] = {
        {"triangle, pattern", 1, [](FlicCompute&) {}},
        {"box, raster, S 2", 3,
         [](FlicCompute& e) {
             e.setFilterKernel(FlicCompute::BOX);
             e.seedingMethod = 0;
             e.setNumSubPixels(2);
         }},
        {"cubic, quasi-random", 1,
         [](FlicCompute& e) {
             e.setFilterKernel(FlicCompute::CUBIC);
             e.seedingMethod = 2;
         }},
        {"tight tolerance, short steps", 1,
         [](FlicCompute& e) { e.useRK43(0.5f, 0.01f, 3.0f, 1e-6f); }},
        {"no minimum step, h 0.7", 1,
         [](FlicCompute& e) {
             e.useRK43(2.0f, 0.0f, 20.0f, 0.01f);
             e.stepLength = 0.7f;
         }},
        {"orientation", 1, [](FlicCompute& e) { e.setOrientation(1); }},
        {"closed borders, no-data", 1,
         [](FlicCompute& e) {
             e.setBorders(FlicCompute::CLOSED, FlicCompute::CLOSED);
             e.setNoData(1);
         }},
        {"2 passes, constant lookup", 1,
         [](FlicCompute& e) {
             e.setPasses(2);
             e.setInterpolationMethod(FlicCompute::CONSTANT);
         }},
        {"short extension: tiles add into the picture directly", 3,
         [](FlicCompute& e) {
             e.setTileSize(24);
             e.extensionLength = 8;
         }},
    };
    for (size_t f = 0; f < fields.size(); f++)
        for (const Case& c : cases) {
            std::string label = std::string(c.name) + ", field " + std::to_string(f);
            FlicImage texture = noiseImage(97, 83, c.channels, 5);
            LaneRun scalar = laneRun(fields[f], texture, 1, 1, c.configure);
            EXPECT_GT(scalar.points, 10LL * scalar.lines) << label;
            for (int lanes : {0, 4, 8, 16})
                for (int threads : {1, 2}) {
                    LaneRun run = laneRun(fields[f], texture, lanes, threads, c.configure);
                    EXPECT_EQ(run.image, scalar.image)
                        << label << ", lanes " << lanes << ", threads " << threads;
                    EXPECT_EQ(std::tie(run.lines, run.hits, run.points),
                              std::tie(scalar.lines, scalar.hits, scalar.points))
                        << label << ", lanes " << lanes << ", threads " << threads;
                }
        }

    // Animation frames from one trace, and a tile as large as the picture (the serial bytes).
    FlicImage texture = noiseImage(97, 83, 1, 6);
    FlicImage frames[2][3];
    for (int lanes : {1, 0}) {
        FlicCompute engine;
        engine.setTileSize(16);
        engine.setSimdLanes(lanes);
        ASSERT_EQ(engine.computeFrames(&fields[1], &texture, 3, frames[lanes == 0 ? 1 : 0]), 1);
    }
    for (int k = 0; k < 3; k++)
        EXPECT_EQ(imageBytes(frames[0][k]), imageBytes(frames[1][k])) << "frame " << k;
    for (FlicVectorField& field : fields) {
        FlicCompute serial, whole;
        whole.setTileSize(128);
        FlicImage a, b;
        ASSERT_EQ(serial.compute(&field, &texture, &a), 1);
        ASSERT_EQ(whole.compute(&field, &texture, &b), 1);
        EXPECT_EQ(imageBytes(a), imageBytes(b));
        EXPECT_EQ(serial.tracedPoints, whole.tracedPoints);
    }
}

// The verbose report says how the tiles are traced and why; integrators the lanes do not trace
// fall back to the scalar tracer with the same bytes, and widths are brought to those offered.
TEST(Tiles, SimdLanesReportedWithTheirFallbacks) {
    FlicVectorField field = vortexSaddle(33, 29);
    FlicImage texture = noiseImage(97, 83, 1, 5);
    auto report = [&](int lanes, bool euler, Bytes* image = nullptr) {
        FlicCompute engine;
        engine.setTileSize(16);
        engine.setNumThreads(1);
        engine.setSimdLanes(lanes);
        if (euler) engine.useEuler();
        FlicImage output;
        MessageCapture capture;
        EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
        if (image) *image = imageBytes(output);
        for (const std::string& text : MessageCapture::infos())
            if (text.find("tiled mode") != std::string::npos) return text;
        return std::string("<no report>");
    };
    EXPECT_NE(report(1, false).find("LIC: tiled mode (tile size 16, tiles 42, threads 1), the "
                                    "scalar tracer (1 lane asked for)"),
              std::string::npos)
        << report(1, false);
    Bytes scalarEuler, laneEuler;
    std::string fallback = report(0, true, &laneEuler);
    EXPECT_NE(fallback.find("the scalar tracer (the SIMD lanes trace RK43 lines only)"),
              std::string::npos)
        << fallback;
    report(1, true, &scalarEuler);
    EXPECT_EQ(laneEuler, scalarEuler);
    // 4 lanes are offered by every build; 3 asked for are brought up to them, more than the
    // widest down to the widest.
    std::string three = report(3, false);
    EXPECT_NE(three.find("4 SIMD lanes ("), std::string::npos) << three;
    EXPECT_NE(three.find(", 3 asked for"), std::string::npos) << three;
    std::string many = report(1000, false), widest = report(0, false);
    EXPECT_NE(many.find(", 1000 asked for"), std::string::npos) << many;
    EXPECT_EQ(many.substr(0, many.find(", 1000 asked for")), widest);
    // Large windows (the whole 512 x 512 picture of 3 channels: 4 MB each): on one thread at
    // most 3 tiles at once, the scalar tracer's bytes; on two threads, whose windows share the
    // budget, and with 2 x 2 sub-pixels (7 MB), the scalar tracer itself.
    FlicVectorField wide = vortexSaddle(65, 65);
    FlicImage colours = noiseImage(512, 512, 3, 8);
    auto large = [&](int lanes, int S, int threads, Bytes* image) {
        FlicCompute engine;
        engine.setTileSize(256);
        engine.setNumThreads(threads);
        engine.setSimdLanes(lanes);
        engine.setNumSubPixels(S);
        engine.setFilterLength(6);
        engine.extensionLength = 260; // a halo of 262 pixels
        FlicImage output;
        MessageCapture capture;
        EXPECT_EQ(engine.compute(&wide, &colours, &output), 1);
        *image = imageBytes(output);
        for (const std::string& text : MessageCapture::infos())
            if (text.find("tiled mode") != std::string::npos) return text;
        return std::string("<no report>");
    };
    Bytes capped, scalar, shared, finer;
    std::string fewer = large(4, 1, 1, &capped);
    EXPECT_NE(fewer.find("4 SIMD lanes ("), std::string::npos) << fewer;
    EXPECT_NE(fewer.find("), at most 3 tiles at once (the windows of all threads within 12 MB)"),
              std::string::npos)
        << fewer;
    large(1, 1, 1, &scalar);
    EXPECT_EQ(capped, scalar);
    const std::string tooLarge =
        ", the scalar tracer (the tiles' windows are too large to trace several at once)";
    std::string two = large(4, 1, 2, &shared);
    EXPECT_NE(two.find(tooLarge), std::string::npos) << two;
    EXPECT_EQ(shared, scalar);
    std::string none = large(4, 2, 1, &finer);
    EXPECT_NE(none.find(tooLarge), std::string::npos) << none;

    // The serial engine does not report tiles.
    FlicCompute serial;
    FlicImage output;
    MessageCapture capture;
    ASSERT_EQ(serial.compute(&field, &texture, &output), 1);
    for (const std::string& text : MessageCapture::infos())
        EXPECT_EQ(text.find("tiled mode"), std::string::npos) << text;
}

// --- Tile tasks from field windows ------------------------------------------------------------

namespace {

// The nodes of columns [x0, x1) and rows [y0, y1) of a field.
FlicVectorField cutWindow(FlicVectorField& field, int x0, int y0, int x1, int y1) {
    FlicVectorField window(x1 - x0, y1 - y0);
    for (int y = y0; y < y1; y++)
        for (int x = x0; x < x1; x++)
            window.vectors()[(y - y0) * (x1 - x0) + (x - x0)] =
                field.vectors()[y * field.width + x];
    return window;
}

// The pixels of columns x0 .. x0 + w - 1 and rows y0 .. y0 + h - 1 of an image, each taken
// modulo its size.
FlicImage cutCyclic(const FlicImage& image, int x0, int y0, int w, int h) {
    FlicImage window(w, h, image.nChannels);
    for (int r = 0; r < h; r++)
        for (int c = 0; c < w; c++)
            for (int ch = 0; ch < image.nChannels; ch++)
                window.data[r * window.bytesPerLine + c * image.nChannels + ch] =
                    image.data[(y0 + r) % image.height * image.bytesPerLine +
                               (x0 + c) % image.width * image.nChannels + ch];
    return window;
}

bool samePartial(const FlicCompute::TileWindow& a, const FlicCompute::TileWindow& b) {
    return std::tie(a.records, a.overflow, a.numFieldLines, a.x0, a.y0, a.width, a.height) ==
           std::tie(b.records, b.overflow, b.numFieldLines, b.x0, b.y0, b.width, b.height);
}

} // namespace

// A tile computed from the window of the field its lines reach equals the tile computed from the
// whole field, for step controls that reach far and settings that change the lines; the window
// is smaller than the field where tiles are small against it.
TEST(Tiles, TilesFromFieldWindowsEqualTilesFromTheWholeField) {
    FlicVectorField field = makeField(161, 121, [](float x, float y) {
        return Vec2f{cosf(y * 0.07f) + 0.2f, sinf(x * 0.05f) - 0.1f * cosf(y * 0.03f)};
    });
    FlicImage grey = noiseImage(200, 150, 1, 8), colour = noiseImage(200, 150, 3, 9);
    struct Case {
        const char* name;
        void (*configure)(FlicCompute&);
    } cases[] = {
        {"defaults", [](FlicCompute&) {}},
        {"long steps", [](FlicCompute& e) { e.useRK43(12.0f, 0.01f, 40.0f, 0.5f); }},
        {"midpoint, h 1.5, closed",
         [](FlicCompute& e) {
             e.useEuler();
             e.stepLength = 1.5f;
             e.setBorders(FlicCompute::CLOSED, FlicCompute::PERIODIC);
         }},
        {"orientation, cubic, S 2",
         [](FlicCompute& e) {
             e.setOrientation(1);
             e.setFilterKernel(FlicCompute::CUBIC);
             e.setNumSubPixels(2);
         }},
    };
    for (const Case& c : cases) {
        FlicImage& texture = c.configure == cases[2].configure ? colour : grey;
        double means[3];
        FlicCompute::textureMeans(texture, means);
        FlicCompute engine;
        engine.setTileSize(32);
        engine.setFilterLength(6);
        engine.extensionLength = 10;
        c.configure(engine);
        int tilesX, tilesY;
        engine.tileGrid(texture.width, texture.height, tilesX, tilesY);
        bool smaller = false, smallerTexture = false;
        for (int tile = 0; tile < tilesX * tilesY; tile++) {
            int x0, y0, x1, y1;
            ASSERT_EQ(engine.tileFieldWindow(field.width, field.height, texture.width,
                                             texture.height, 1, tile, x0, y0, x1, y1),
                      1);
            smaller = smaller || (x1 - x0) * (y1 - y0) < field.width * field.height / 2;
            FlicVectorField window = cutWindow(field, x0, y0, x1, y1);
            FlicCompute::TileWindow whole, windowed;
            ASSERT_EQ(engine.computeTile(&field, &texture, tile, whole), 1);
            ASSERT_EQ(engine.computeTileFromWindow(&window, x0, y0, field.width, field.height,
                                                   &texture, tile, windowed),
                      1);
            EXPECT_TRUE(samePartial(whole, windowed)) << c.name << ", tile " << tile;
            // The texture from its window too (wrapping around the texture's edges).
            int tx0, ty0, tw, th;
            ASSERT_EQ(engine.tileTextureWindow(field.width, field.height, texture.width,
                                               texture.height, texture.nChannels, tile, tx0, ty0,
                                               tw, th),
                      1);
            smallerTexture = smallerTexture || tw * th < texture.width * texture.height;
            FlicImage textureWindow = cutCyclic(texture, tx0, ty0, tw, th);
            FlicCompute::TileWindow both;
            ASSERT_EQ(engine.computeTileFromWindows(&window, x0, y0, field.width, field.height,
                                                    &textureWindow, tx0, ty0, texture.width,
                                                    texture.height, means, tile, both),
                      1);
            EXPECT_TRUE(samePartial(whole, both)) << c.name << ", tile " << tile;
        }
        // Steps of up to 40 cells reach across most of this field.
        if (std::string(c.name) != "long steps") {
            EXPECT_TRUE(smaller) << c.name;
            EXPECT_TRUE(smallerTexture) << c.name;
        }
    }

    // A window that misses nodes the lines reach, or does not fit the field, is refused.
    FlicCompute engine;
    engine.setTileSize(32);
    int x0, y0, x1, y1;
    ASSERT_EQ(engine.tileFieldWindow(field.width, field.height, 200, 150, 1, 7, x0, y0, x1, y1), 1);
    FlicVectorField narrow = cutWindow(field, x0 + 1, y0, x1, y1);
    FlicCompute::TileWindow partial;
    FlicImage& texture = grey;
    {
        MessageCapture capture;
        EXPECT_EQ(engine.computeTileFromWindow(&narrow, x0 + 1, y0, field.width, field.height,
                                               &texture, 7, partial),
                  0);
        EXPECT_NE(MessageCapture::onlyError().find("but its lines reach columns " +
                                                   std::to_string(x0) + " .. "),
                  std::string::npos)
            << MessageCapture::onlyError();
    }
    {
        MessageCapture capture;
        EXPECT_EQ(engine.computeTileFromWindow(&narrow, field.width - 2, 0, field.width,
                                               field.height, &texture, 7, partial),
                  0);
        EXPECT_NE(MessageCapture::onlyError().find("does not fit a 161 x 121 field"),
                  std::string::npos)
            << MessageCapture::onlyError();
    }
    {
        MessageCapture capture;
        EXPECT_EQ(
            engine.tileFieldWindow(field.width, field.height, 200, 150, 1, 99, x0, y0, x1, y1), 0);
        EXPECT_EQ(MessageCapture::onlyError(), "FLIC error: LIC: tile 99 outside 0 .. 34");
    }
}
