// The adding of tiles' partial accumulations and the normalisation of records, with partials
// built from the input bytes as a damaged transfer might leave them: picture sizes, strides,
// window places and sizes, record counts and overflow entries from menus that include
// nonsense. The picture's and the area's records are as large as the partial's own picture
// and the area say (the callers' part of the contract). A refused partial leaves both alone;
// an accepted one adds exactly what it holds.
#include "compute.h"
#include "fuzz_target.h"

#include <climits>
#include <vector>

namespace {

// Sizes and places: mostly small, sometimes zero, negative or huge.
int smallOrOdd(fuzz::ByteReader& in, int small) {
    static const int odd[] = {-1, 0, INT_MIN, INT_MAX, 1 << 16, -(1 << 16)};
    uint8_t b = in.byte();
    if (b < 224) return b % (small + 1);
    return odd[b % 6];
}

// The wrap-around sum of every int: what adding records changes it by.
unsigned sumOf(const std::vector<int>& values) {
    unsigned sum = 0;
    for (int value : values)
        sum += static_cast<unsigned>(value);
    return sum;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::quietMessages();
    fuzz::ByteReader in(data, size);
    FlicCompute::TileWindow p;
    p.imageWidth = smallOrOdd(in, 24);
    p.imageHeight = smallOrOdd(in, 24);
    p.stride = smallOrOdd(in, 4);
    p.x0 = smallOrOdd(in, 24);
    p.y0 = smallOrOdd(in, 24);
    p.width = smallOrOdd(in, 24);
    p.height = smallOrOdd(in, 24);
    p.tileX0 = smallOrOdd(in, 24);
    p.tileY0 = smallOrOdd(in, 24);
    p.tileX1 = smallOrOdd(in, 24);
    p.tileY1 = smallOrOdd(in, 24);
    // Records: as many as the window needs, one more or less, or none.
    long long cells = static_cast<long long>(p.width) * p.height; // fits: both are ints
    bool few = cells >= 0 && p.stride >= 0 && cells <= 1 << 14 && p.stride <= 64;
    long long count = few && cells * p.stride <= 1 << 14 ? cells * p.stride : in.below(64);
    count += static_cast<int>(in.below(4)) - 1; // -1 .. +2
    if (count < 0) count = 0;
    for (long long k = 0; k < count; k++)
        p.records.push_back(static_cast<int>(in.word()));
    // Overflow: whole entries of pixel plus record, and now and then a stray int.
    int entries = in.below(4);
    long long pixels = static_cast<long long>(p.imageWidth) * p.imageHeight;
    for (int e = 0; e < entries; e++) {
        static const int places[] = {-1, 0, INT_MAX, INT_MIN};
        uint8_t b = in.byte();
        p.overflow.push_back(b < 200 && pixels > 0 ? static_cast<int>(b % pixels)
                             : b < 220             ? static_cast<int>(pixels)
                                                   : places[b % 4]);
        for (int k = 0; k < p.stride && k < 8; k++)
            p.overflow.push_back(static_cast<int>(in.word()));
    }
    if (in.below(8) == 0) p.overflow.push_back(1);

    // The partial's own picture, when it has a size to hold. A partial that names no picture
    // at all must be refused without a picture to add to.
    bool named = p.imageWidth >= 1 && p.imageHeight >= 1 && p.stride >= 1;
    bool sized = named && p.imageWidth <= 256 && p.imageHeight <= 256 && p.stride <= 8;
    std::vector<int> picture(sized ? static_cast<size_t>(pixels * p.stride) : 1, 7);
    std::vector<int> before = picture;
    int result = -1; // not tried: a picture too large to hold here
    if (sized || !named) result = FlicCompute::addTile(p, sized ? picture.data() : nullptr);
    if (!named) FUZZ_CHECK(result == 0);
    if (result == 0) {
        FUZZ_CHECK(picture == before);
    } else if (result == 1) {
        // Every record of the window and the overflow lands in the picture.
        unsigned held = sumOf(p.records);
        for (size_t at = 0; at + 1 + p.stride <= p.overflow.size(); at += 1 + p.stride)
            for (int k = 0; k < p.stride; k++)
                held += static_cast<unsigned>(p.overflow[at + 1 + k]);
        FUZZ_CHECK(sumOf(picture) - sumOf(before) == held);
    }
    int areaX = smallOrOdd(in, 24), areaY = smallOrOdd(in, 24);
    int areaW = in.below(25), areaH = in.below(25);
    if (p.stride >= 1 && p.stride <= 8) {
        std::vector<int> area(static_cast<size_t>(areaW) * areaH * p.stride + 1, 7);
        std::vector<int> areaBefore = area;
        int added = FlicCompute::addToArea(p, areaX, areaY, areaW, areaH, area.data());
        if (result >= 0) FUZZ_CHECK(added == result); // both accept or refuse a partial
        if (!added) FUZZ_CHECK(area == areaBefore);
        FUZZ_CHECK(area.back() == 7); // nothing beyond the area
    }

    // The picture normalised with hit counters and channels from the bytes, when its records
    // are that large.
    int subCells = smallOrOdd(in, 4), channels = smallOrOdd(in, 4);
    if (sized && subCells >= 0 && channels >= 0 &&
        pixels * (static_cast<long long>(subCells) + channels) <=
            static_cast<long long>(picture.size())) {
        FlicImage output;
        int hits = 0;
        if (FlicCompute::normalizeRecords(picture.data(), p.imageWidth, p.imageHeight, subCells,
                                          channels, &output, &hits))
            FUZZ_CHECK(output.width == p.imageWidth && output.height == p.imageHeight &&
                       output.nChannels == channels);
        else
            FUZZ_CHECK(output.data == nullptr);
    }
    return 0;
}
