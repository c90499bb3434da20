// A slow, literal statement of the LIC computation (driver, seeding, sampling, lookups), used to
// prove that the optimised engine produces the same bytes. It shares only the integrators and
// KvSobol with the engine; everything else is written out step by step, without guards.
#ifndef MUSKEIP_TEST_LIC_REFERENCE_H
#define MUSKEIP_TEST_LIC_REFERENCE_H

#include "image.h"
#include "integrator.h"
#include "sobol.h"
#include "vectorfield.h"

#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

namespace reference {

struct Settings {
    float filterLength = 20.0f;
    float extensionLength = 80.0f;
    float stepLength = 1.0f;
    float normalization = 0.0f;
    int numSubPixels = 1;
    int kernel = 1; // 0 box, 1 triangle, 2 cubic
    int seeding = 1;
    int interpolation = 1;
    int integrator = 0; // 0 RK43 defaults, 1 midpoint, 2 RK43 (2, 0.25, 6, 0.01), 3 RKDP, 4 RKCK
};

struct Result {
    std::vector<unsigned char> image;
    std::vector<unsigned char> seedMap;
    int lines = 0;
    int totalHits = 0;
};

inline int texel(const FlicImage& t, float x, float y, int ch, bool bilinear) {
    float px = static_cast<float>(t.width - 1), py = static_cast<float>(t.height - 1);
    while (x < 0)
        x += px;
    while (x >= px)
        x -= px;
    while (y < 0)
        y += py;
    while (y >= py)
        y -= py;
    int ix = static_cast<int>(x), iy = static_cast<int>(y);
    float fx = x - ix, fy = y - iy;
    auto at = [&](int i, int j) {
        return static_cast<float>(t.data[j * t.bytesPerLine + i * t.nChannels + ch]);
    };
    if (!bilinear) return static_cast<int>(at(ix, iy));
    float P = at(ix, iy), Q = at(ix + 1, iy), R = at(ix, iy + 1), T = at(ix + 1, iy + 1);
    return static_cast<int>(P + (Q - P) * fx + (R - P) * fy + fx * fy * (P - R - Q + T));
}

class Lic {
  public:
    Settings s;
    FlicVectorField* field = nullptr;
    FlicImage* tex = nullptr;
    int W = 0, H = 0, C = 0, N = 0, M = 0, S = 1, stride = 0;
    float fieldMaxX = 0, fieldMaxY = 0, scaleX = 0, scaleY = 0;
    std::unique_ptr<FlicIntegrator> fwd, bwd;
    std::vector<int> accum, samples, sums, pixel, cell, status;
    Result result;

    explicit Lic(const Settings& settings) : s(settings) {}

    void makeIntegrators() {
        if (s.integrator == 1) {
            fwd.reset(new Midpoint(1));
            bwd.reset(new Midpoint(-1));
        } else if (s.integrator == 2) {
            fwd.reset(new RK43(0.01f, 2.0f, 0.25f, 6.0f, 1));
            bwd.reset(new RK43(0.01f, 2.0f, 0.25f, 6.0f, -1));
        } else if (s.integrator == 3) {
            fwd.reset(new RKDP(0.001f, 4.0f, 0.5f, 15.0f, 1));
            bwd.reset(new RKDP(0.001f, 4.0f, 0.5f, 15.0f, -1));
        } else if (s.integrator == 4) {
            fwd.reset(new RKCK(0.001f, 4.0f, 0.5f, 15.0f, 1));
            bwd.reset(new RKCK(0.001f, 4.0f, 0.5f, 15.0f, -1));
        } else {
            fwd.reset(new RK43(0.001f, 4.0f, 0.5f, 15.0f, 1));
            bwd.reset(new RK43(0.001f, 4.0f, 0.5f, 15.0f, -1));
        }
    }

    Result run(FlicVectorField& f, FlicImage& t, FlicImage* mask = nullptr) {
        field = &f;
        tex = &t;
        W = t.width;
        H = t.height;
        C = t.nChannels;
        S = s.numSubPixels;
        fieldMaxX = static_cast<float>(f.width - 1.001);
        fieldMaxY = static_cast<float>(f.height - 1.001);
        scaleX = static_cast<float>(W / (f.width - 1.0));
        scaleY = static_cast<float>(H / (f.height - 1.0));
        makeIntegrators();
        for (FlicIntegrator* in : {fwd.get(), bwd.get()}) {
            in->normalization = s.normalization;
            in->stepLength = 2.0f * s.stepLength / (scaleX + scaleY);
            in->setField(f.width, f.height, f.vectors());
        }
        N = static_cast<int>(static_cast<double>(s.filterLength / s.stepLength) + 0.5);
        if (s.kernel == 2 && N % 6 != 0) N = N + 6 - N % 6;
        M = static_cast<int>(static_cast<double>(s.extensionLength / s.stepLength) + 0.5);
        stride = S * S + C;
        accum.assign(W * H * stride, 0);
        int len = 2 * (N + M) + 1;
        samples.assign(len * C, 0);
        sums.assign(len * C, 0);
        pixel.assign(len, 0);
        cell.assign(len, 0);
        status.assign(len, 0);
        if (mask) result.seedMap.assign(W * H, 1);
        if (N == 0) {
            result.image.assign(t.data, t.data + W * H * C);
            return result;
        }
        if (s.seeding == 1) {
            const int offset[16][2] = {{0, 0}, {2, 0}, {0, 2}, {2, 2}, {1, 1}, {3, 1},
                                       {1, 3}, {3, 3}, {1, 0}, {3, 0}, {1, 2}, {3, 2},
                                       {0, 1}, {2, 1}, {0, 3}, {2, 3}};
            for (int j = 0; j < S; j++)
                for (int i = 0; i < S; i++)
                    for (int o = 0; o < 16; o++)
                        for (int y = offset[o][1]; y < H; y += 4)
                            for (int x = offset[o][0]; x < W; x += 4)
                                candidate(x, y, i, j, mask);
        } else if (s.seeding == 0) {
            for (int j = 0; j < S; j++)
                for (int i = 0; i < S; i++)
                    for (int y = 0; y < H; y++)
                        for (int x = 0; x < W; x++)
                            candidate(x, y, i, j, mask);
        } else if (s.seeding == 2) {
            KvSobol sobol;
            sobol.init(W * S, H * S);
            int n = W * S, m = H * S, ix = 0, iy = 0;
            for (int counter = 0;;) {
                int X = sobol.xs[ix];
                ix++;
                int Y = sobol.ys[iy % m];
                iy++;
                if (ix == n) {
                    ix = 0;
                    iy = iy + 1 - n;
                }
                counter++;
                if (!(counter < W * H)) break;
                candidate(X / S, Y / S, X % S, Y % S, mask);
            }
        }
        result.image.assign(W * H * C, 0);
        for (int p = 0; p < W * H; p++) {
            int hits = 0;
            for (int c = 0; c < S * S; c++)
                hits += accum[p * stride + c];
            result.totalHits += hits;
            for (int ch = 0; ch < C; ch++)
                result.image[p * C + ch] =
                    hits == 0 ? 0
                              : static_cast<unsigned char>(accum[p * stride + S * S + ch] / hits);
        }
        return result;
    }

    void candidate(int x, int y, int i, int j, FlicImage* mask) {
        if (accum[(y * W + x) * stride + j * S + i] != 0) return;
        float invX = 1.0f / scaleX, invY = 1.0f / scaleY, invS = 1.0f / S;
        Vec2f seed{(x + (i + 0.5f) * invS) * invX, (y + (j + 0.5f) * invS) * invY};
        sample(seed);
        if (mask)
            result.seedMap[y * W + x] =
                static_cast<unsigned char>(texel(*mask, seed.x, seed.y, 0, false));
    }

    void record(int i, float x, float y) {
        for (int ch = 0; ch < C; ch++)
            samples[i * C + ch] = texel(*tex, x * scaleX, y * scaleY, ch, s.interpolation != 0);
        if (y < 0)
            y += fieldMaxY;
        else if (y > fieldMaxY)
            y -= fieldMaxY;
        if (x < 0)
            x += fieldMaxX;
        else if (x > fieldMaxX)
            x -= fieldMaxX;
        pixel[i] = static_cast<int>(x * scaleX) + static_cast<int>(y * scaleY) * W;
        cell[i] = static_cast<int>(scaleX * S * x) % S + (static_cast<int>(scaleY * S * y) % S) * S;
    }

    void sample(const Vec2f& seed) {
        const Vec2f* d = field->vectors();
        int fw = field->width, fh = field->height;
        int ix = static_cast<int>(seed.x), iy = static_cast<int>(seed.y);
        float fx = seed.x - ix, fy = seed.y - iy;
        int rx = ix >= fw - 1 ? ix - 1 : ix + 1;
        int uy = iy >= fh - 1 ? iy - 1 : iy + 1;
        Vec2f P = d[iy * fw + ix], Q = d[iy * fw + rx], R = d[uy * fw + ix], T = d[uy * fw + rx];
        Vec2f v{P.x + (Q.x - P.x) * fx + (R.x - P.x) * fy + fx * fy * (P.x - R.x - Q.x + T.x),
                P.y + (Q.y - P.y) * fx + (R.y - P.y) * fy + fx * fy * (P.y - R.y - Q.y + T.y)};
        float len2 = v.x * v.x + v.y * v.y;
        if (len2 == 0.0f || std::isnan(len2)) return;
        result.lines++;
        v.x = v.x / sqrtf(len2);
        v.y = v.y / sqrtf(len2);
        fwd->init(seed, v);
        bwd->init(seed, v);
        int c = N + M;
        record(c, seed.x, seed.y);
        int hi = c, lo = c;
        for (int k = 1; k <= N; k++) {
            const Vec2f& p = fwd->next(status[c + k]);
            record(c + k, p.x, p.y);
            hi = c + k;
        }
        if (M > 0 && status[c + 1] == 0)
            for (int j = 0;; j++) {
                const Vec2f& p = fwd->next(status[c + N + 1 + j]);
                record(c + N + 1 + j, p.x, p.y);
                hi = c + N + 1 + j;
                if (j + 1 == M || status[c + 2 + j] != 0) break;
            }
        for (int k = 1; k <= N; k++) {
            const Vec2f& p = bwd->next(status[c - k]);
            record(c - k, p.x, p.y);
            lo = c - k;
        }
        if (M > 0 && status[c - 1] == 0)
            for (int j = 0;; j++) {
                const Vec2f& p = bwd->next(status[c - N - 1 - j]);
                record(c - N - 1 - j, p.x, p.y);
                lo = c - N - 1 - j;
                if (j + 1 == M || status[c - 2 - j] != 0) break;
            }
        for (int ch = 0; ch < C; ch++) {
            pass(samples, sums, lo, hi, ch);
            if (s.kernel >= 1) pass(sums, samples, lo, hi, ch);
            if (s.kernel == 2) pass(samples, sums, lo, hi, ch);
        }
        for (int k = lo + N; k <= hi - N; k++) {
            accum[pixel[k] * stride + cell[k]] += 1;
            for (int ch = 0; ch < C; ch++) {
                auto at = [&](const std::vector<int>& a, int i) { return a[i * C + ch]; };
                int value;
                if (s.kernel == 0) {
                    value = (at(sums, k + N) - at(sums, k - N)) / (2 * N);
                } else if (s.kernel == 1) {
                    value =
                        (at(samples, k + N) + at(samples, k - N) - 2 * at(samples, k)) / (N * N);
                } else {
                    value = (at(sums, k + N) - 3 * (at(sums, k + N / 3) - at(sums, k - N / 3)) -
                             at(sums, k - N)) /
                            (8 * N * N * N / 27);
                }
                accum[pixel[k] * stride + S * S + ch] += value;
            }
        }
    }

    void pass(const std::vector<int>& in, std::vector<int>& out, int lo, int hi, int ch) {
        int c = N + M;
        out[c * C + ch] = 0;
        for (int i = c + 1; i <= hi; i++)
            out[i * C + ch] = out[(i - 1) * C + ch] + in[(i - 1) * C + ch];
        for (int i = c - 1; i >= lo; i--)
            out[i * C + ch] = out[(i + 1) * C + ch] - in[i * C + ch];
    }
};

} // namespace reference

#endif
