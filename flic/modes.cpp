// FlicCompute's modes for real data: closed borders and no-data cells end lines early, and the
// points near such an end get values of the kernel part the line covers, renormalised to it;
// checks of the mode settings.
//
// A line that ends early is continued past its end with N zero samples, so the running sums,
// read as for a whole line, give the sum of the weighted samples the line really has; dividing
// by the sum of the kernel's weights over those samples (from prefix sums of the weights) keeps
// the value's mean. Fewer samples would still vary more than a whole kernel's: the value's
// distance from the texture's mean is scaled by sqrt((Qw / Ww^2) / (Qp / Wp^2)), W the sum and
// Q the sum of squares of the weights of the whole kernel (w) and of the part (p), so that on
// white noise its spread is a whole kernel's. All of it is O(1) per point.
#include "compute.h"

#include "engine_common.h"
#include "messages.h"

#include <cmath>
#include <new>

using namespace muskeip::detail;

namespace {

const int maxPasses = 16;

// Weights of the kernel over the sample offsets -N .. N - 1 from a point, as its running-sum
// formula applies them: the formula evaluated at every point around a single unit sample.
std::vector<long long> kernelWeights(int kernel, int N) {
    int L = 4 * N + 3, zero = 2 * N + 1; // indices of offsets -2N-1 .. 2N+1
    std::vector<long long> s(L, 0), s1(L + 1, 0), s2(L + 1, 0), s3(L + 1, 0);
    s[zero] = 1;
    for (int i = 0; i < L; i++)
        s1[i + 1] = s1[i] + s[i];
    for (int i = 0; i < L; i++)
        s2[i + 1] = s2[i] + s1[i];
    for (int i = 0; i < L; i++)
        s3[i + 1] = s3[i] + s2[i];
    std::vector<long long> weights(2 * N, 0);
    int third = N / 3;
    for (int k = -N + 1; k <= N; k++) {
        int at = zero + k;
        long long value;
        if (kernel == FlicCompute::TRIANGLE)
            value = s2[at + N] + s2[at - N] - 2 * s2[at];
        else if (kernel == FlicCompute::CUBIC)
            value = s3[at + N] - 3 * (s3[at + third] - s3[at - third]) - s3[at - N];
        else
            value = s1[at + N] - s1[at - N];
        weights[-k + N] = value; // the weight of offset -k
    }
    return weights;
}

} // namespace

int FlicCompute::checkModes(FlicVectorField* field) const {
    if ((borderX != PERIODIC && borderX != CLOSED) || (borderY != PERIODIC && borderY != CLOSED))
        return flic_error("LIC: border modes %d, %d are neither periodic (0) nor closed (1)",
                          static_cast<int>(borderX), static_cast<int>(borderY));
    if (passes < 1 || passes > maxPasses)
        return flic_error("LIC: number of passes %d outside 1 .. %d", passes, maxPasses);
    if (noDataMask && (noDataMask->width != field->width || noDataMask->height != field->height ||
                       !noDataMask->data || noDataMask->nChannels < 1))
        return flic_error("LIC: the no-data mask must be an image of the field's size %d x %d",
                          field->width, field->height);
    return 1;
}

void FlicCompute::textureMeans(const FlicImage& texture, double* means) {
    for (int ch = 0; ch < texture.nChannels; ch++) {
        long long sum = 0;
        for (int y = 0; y < texture.height; y++) {
            const unsigned char* row =
                texture.data + static_cast<std::ptrdiff_t>(y) * texture.bytesPerLine + ch;
            for (int x = 0; x < texture.width; x++)
                sum += row[static_cast<std::ptrdiff_t>(x) * texture.nChannels];
        }
        means[ch] =
            static_cast<double>(sum) / (static_cast<double>(texture.width) * texture.height);
    }
}

// Derives the tables of the modes from the field and the kernel. Returns 0 without memory.
int FlicCompute::prepareModes() {
    endsEarly = borderX == CLOSED || borderY == CLOSED || noData != 0;
    noDataCells = nullptr;
    weightPrefix = nullptr;
    squarePrefix = textureMean = nullptr;
    if (!endsEarly || kernelSteps < 1) return 1;
    try {
        std::vector<long long> weights = kernelWeights(filterKernel, kernelSteps);
        weightPrefixStore.assign(weights.size() + 1, 0);
        for (size_t t = 0; t < weights.size(); t++)
            weightPrefixStore[t + 1] = weightPrefixStore[t] + weights[t];
        weightPrefix = weightPrefixStore.data();
        squarePrefixStore.assign(weights.size() + 1, 0.0);
        for (size_t t = 0; t < weights.size(); t++)
            squarePrefixStore[t + 1] =
                squarePrefixStore[t] + static_cast<double>(weights[t]) * weights[t];
        squarePrefix = squarePrefixStore.data();
        textureMeanStore.assign(texChannels, 0.0);
        if (givenTextureMean)
            textureMeanStore.assign(givenTextureMean, givenTextureMean + texChannels);
        else
            textureMeans(*texture, textureMeanStore.data());
        textureMean = textureMeanStore.data();
        if (noData) {
            int w = field->width, h = field->height;
            const Vec2f* v = field->vectors();
            auto missing = [&](int x, int y) {
                const Vec2f& node = v[static_cast<std::ptrdiff_t>(y) * w + x];
                if (std::isnan(node.x) || std::isnan(node.y)) return true;
                return noDataMask &&
                       noDataMask->data[static_cast<std::ptrdiff_t>(y) * noDataMask->bytesPerLine +
                                        static_cast<std::ptrdiff_t>(x) * noDataMask->nChannels] ==
                           0;
            };
            noDataCellStore.assign(static_cast<size_t>(w - 1) * (h - 1), 0);
            for (int y = 0; y + 1 < h; y++)
                for (int x = 0; x + 1 < w; x++)
                    noDataCellStore[static_cast<size_t>(y) * (w - 1) + x] =
                        missing(x, y) || missing(x + 1, y) || missing(x, y + 1) ||
                        missing(x + 1, y + 1);
            noDataCells = noDataCellStore.data();
        }
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return 1;
}

namespace {

// What decides whether a line may go on through a point, taken once per line.
struct LineLimits {
    float right, top; // the field's last node: width - 1, height - 1
    bool closedX, closedY;
    const unsigned char* noDataCells;
    int cellsAcross; // width - 1

    explicit LineLimits(const FlicCompute& e, const unsigned char* cells)
        : right(static_cast<float>(e.field->width - 1)),
          top(static_cast<float>(e.field->height - 1)), closedX(e.borderX == FlicCompute::CLOSED),
          closedY(e.borderY == FlicCompute::CLOSED), noDataCells(cells),
          cellsAcross(e.field->width - 1) {}

    // Whether a line may go on through point p (field coordinates): not beyond a closed
    // border, not into a no-data cell.
    bool keeps(const Vec2f& p) const {
        bool insideX = p.x >= 0.0f && p.x <= right, insideY = p.y >= 0.0f && p.y <= top;
        if ((closedX && !insideX) || (closedY && !insideY)) return false;
        if (!noDataCells) return true;
        if (std::isnan(p.x) || std::isnan(p.y)) return false;
        if (!insideX || !insideY) return true;
        int ix = static_cast<int>(p.x), iy = static_cast<int>(p.y);
        if (ix > cellsAcross - 1) ix = cellsAcross - 1;
        if (static_cast<float>(iy) > top - 1.0f) iy = static_cast<int>(top) - 1;
        return !noDataCells[static_cast<std::ptrdiff_t>(iy) * cellsAcross + ix];
    }
};

} // namespace

bool FlicCompute::keepsPoint(const Vec2f& p) const {
    return LineLimits(*this, noDataCells).keeps(p);
}

// Ends the line before its first point, on either side of the seed, that it may not go on
// through; says on which sides it was cut.
void FlicCompute::endLineEarly(int& lo, int& hi, bool& cutLo, bool& cutHi) {
    const LineLimits limits(*this, noDataCells);
    int c = maxSteps;
    cutLo = cutHi = false;
    for (int i = c + 1; i <= hi; i++)
        if (!limits.keeps(positions[i])) {
            hi = i - 1;
            cutHi = true;
            break;
        }
    for (int i = c - 1; i >= lo; i--)
        if (!limits.keeps(positions[i])) {
            lo = i + 1;
            cutLo = true;
            break;
        }
}
