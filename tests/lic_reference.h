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
#include <memory>
#include <vector>

namespace reference {

struct Settings {
    float filterLength = 20.0f, extensionLength = 80.0f, stepLength = 1.0f, normalization = 0.0f;
    int numSubPixels = 1;
    int kernel = 1; // 0 box, 1 triangle, 2 cubic
    int seeding = 1, interpolation = 1;
    int integrator = 0; // as makeIntegrator
};

struct Result {
    std::vector<unsigned char> image, seedMap;
    int lines = 0, totalHits = 0;
};

// Integrator kinds: 0 RK43 (0.001, 4, 0.5, 15), 1 midpoint, 2 RK43 (0.01, 2, 0.25, 6), 3 RKDP
// and 4 RKCK (0.001, 4, 0.5, 15), 5 Euler.
inline FlicIntegrator* makeIntegrator(int kind, int direction) {
    if (kind == 1) return new Midpoint(direction);
    if (kind == 2) return new RK43(0.01f, 2.0f, 0.25f, 6.0f, direction);
    if (kind == 3) return new RKDP(0.001f, 4.0f, 0.5f, 15.0f, direction);
    if (kind == 4) return new RKCK(0.001f, 4.0f, 0.5f, 15.0f, direction);
    if (kind == 5) return new Euler(direction);
    return new RK43(0.001f, 4.0f, 0.5f, 15.0f, direction);
}

// Texture value at (x, y) in output pixels, wrapped with period size - 1.
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
    FlicVectorField* field;
    FlicImage* tex;
    int W, H, C, S, N, M, stride;
    float fieldMaxX, fieldMaxY, scaleX, scaleY;
    std::unique_ptr<FlicIntegrator> fwd, bwd;
    std::vector<int> accum, samples, sums, pixel, cell, status;
    Result result;

    Lic(const Settings& settings, FlicVectorField& f, FlicImage& t)
        : s(settings), field(&f), tex(&t), W(t.width), H(t.height), C(t.nChannels),
          S(s.numSubPixels), N(steps(s.filterLength)), M(steps(s.extensionLength)),
          stride(S * S + C), fieldMaxX(static_cast<float>(f.width - 1.001)),
          fieldMaxY(static_cast<float>(f.height - 1.001)),
          scaleX(static_cast<float>(W / (f.width - 1.0))),
          scaleY(static_cast<float>(H / (f.height - 1.0))), fwd(makeIntegrator(s.integrator, 1)),
          bwd(makeIntegrator(s.integrator, -1)) {
        for (FlicIntegrator* in : {fwd.get(), bwd.get()}) {
            in->normalization = s.normalization;
            in->stepLength = 2.0f * s.stepLength / (scaleX + scaleY);
            in->setField(f.width, f.height, f.vectors());
        }
        if (s.kernel == 2 && N % 6 != 0) N = N + 6 - N % 6;
        int len = 2 * (N + M) + 1;
        accum.assign(W * H * stride, 0);
        samples.assign(len * C, 0);
        sums.assign(len * C, 0);
        for (std::vector<int>* v : {&pixel, &cell, &status})
            v->assign(len, 0);
    }

    // (length / h) in single precision, + 0.5 in double, truncated.
    int steps(float length) const {
        return static_cast<int>(static_cast<double>(length / s.stepLength) + 0.5);
    }

    Result run(FlicImage* mask = nullptr) {
        if (mask) result.seedMap.assign(W * H, 1);
        if (N == 0) {
            result.image.assign(tex->data, tex->data + W * H * C);
            return result;
        }
        // The raster order is the pattern's loop with the one offset (0, 0) and spacing 1.
        const int offset[16][2] = {{0, 0}, {2, 0}, {0, 2}, {2, 2}, {1, 1}, {3, 1}, {1, 3}, {3, 3},
                                   {1, 0}, {3, 0}, {1, 2}, {3, 2}, {0, 1}, {2, 1}, {0, 3}, {2, 3}};
        int offsets = s.seeding == 1 ? 16 : 1, spacing = s.seeding == 1 ? 4 : 1;
        if (s.seeding == 0 || s.seeding == 1)
            for (int j = 0; j < S; j++)
                for (int i = 0; i < S; i++)
                    for (int o = 0; o < offsets; o++)
                        for (int y = offset[o][1]; y < H; y += spacing)
                            for (int x = offset[o][0]; x < W; x += spacing)
                                candidate(x, y, i, j, mask);
        if (s.seeding == 2) {
            KvSobol sobol;
            sobol.init(W * S, H * S);
            int n = W * S, m = H * S, ix = 0, iy = 0;
            for (int counter = 1; counter < W * H; counter++) { // pair W * H is not used
                int X = sobol.xs[ix++], Y = sobol.ys[iy++ % m];
                if (ix == n) {
                    ix = 0;
                    iy = iy + 1 - n;
                }
                candidate(X / S, Y / S, X % S, Y % S, mask);
            }
        }
        result.image.assign(W * H * C, 0);
        for (int p = 0; p < W * H; p++) {
            int hits = 0;
            for (int c = 0; c < S * S; c++)
                hits += accum[p * stride + c];
            result.totalHits += hits;
            for (int ch = 0; ch < C && hits != 0; ch++)
                result.image[p * C + ch] =
                    static_cast<unsigned char>(accum[p * stride + S * S + ch] / hits);
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
        y = y < 0 ? y + fieldMaxY : y > fieldMaxY ? y - fieldMaxY : y; // wrapped once
        x = x < 0 ? x + fieldMaxX : x > fieldMaxX ? x - fieldMaxX : x;
        pixel[i] = static_cast<int>(x * scaleX) + static_cast<int>(y * scaleY) * W;
        cell[i] = static_cast<int>(scaleX * S * x) % S + (static_cast<int>(scaleY * S * y) % S) * S;
    }

    // One side of the line (sign +1 forward, -1 backward): N steps whatever the status, then
    // extension step j after which the line stops when j + 1 = M or point c + sign (2 + j) has a
    // non-zero status. Returns the last index written.
    int trace(FlicIntegrator& in, int sign) {
        int c = N + M, i = c;
        for (int k = 1; k <= N; k++) {
            i = c + sign * k;
            const Vec2f& p = in.next(status[i]);
            record(i, p.x, p.y);
        }
        if (M > 0 && status[c + sign] == 0)
            for (int j = 0;; j++) {
                i = c + sign * (N + 1 + j);
                const Vec2f& p = in.next(status[i]);
                record(i, p.x, p.y);
                if (j + 1 == M || status[c + sign * (2 + j)] != 0) break;
            }
        return i;
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
        record(N + M, seed.x, seed.y);
        int hi = trace(*fwd, 1), lo = trace(*bwd, -1);
        for (int ch = 0; ch < C; ch++) {
            pass(samples, sums, lo, hi, ch);
            if (s.kernel >= 1) pass(sums, samples, lo, hi, ch);
            if (s.kernel == 2) pass(samples, sums, lo, hi, ch);
        }
        for (int k = lo + N; k <= hi - N; k++) {
            accum[pixel[k] * stride + cell[k]] += 1;
            for (int ch = 0; ch < C; ch++) {
                auto at = [&](const std::vector<int>& a, int i) { return a[i * C + ch]; };
                int value =
                    s.kernel == 0 ? (at(sums, k + N) - at(sums, k - N)) / (2 * N)
                    : s.kernel == 1
                        ? (at(samples, k + N) + at(samples, k - N) - 2 * at(samples, k)) / (N * N)
                        : (at(sums, k + N) - 3 * (at(sums, k + N / 3) - at(sums, k - N / 3)) -
                           at(sums, k - N)) /
                              (8 * N * N * N / 27);
                accum[pixel[k] * stride + S * S + ch] += value;
            }
        }
    }

    // Running sum: out[c] = 0 and out[i + 1] - out[i] = in[i] over lo .. hi.
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
