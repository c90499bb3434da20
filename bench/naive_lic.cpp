// Per-pixel LIC baseline: single-threaded, every pixel traces and convolves its own line.
#include "naive_lic.h"

#include <cmath>

namespace {

struct Sampler {
    const Vec2f* field;
    int fieldWidth, fieldHeight;
    float toFieldX, toFieldY; // field cells per pixel
    const unsigned char* noise;
    int width, height;

    // Unit field direction at pixel position (x, y); false outside the field or at a zero.
    bool direction(float x, float y, float& dx, float& dy) const {
        float fx = x * toFieldX, fy = y * toFieldY;
        if (!(fx >= 0.0f && fy >= 0.0f && fx < fieldWidth - 1 && fy < fieldHeight - 1))
            return false;
        int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
        float u = fx - ix, v = fy - iy;
        const Vec2f* a = field + iy * fieldWidth + ix;
        const Vec2f* c = a + fieldWidth;
        float vx = (1 - v) * ((1 - u) * a[0].x + u * a[1].x) + v * ((1 - u) * c[0].x + u * c[1].x);
        float vy = (1 - v) * ((1 - u) * a[0].y + u * a[1].y) + v * ((1 - u) * c[0].y + u * c[1].y);
        float length2 = vx * vx + vy * vy;
        if (!(length2 > 0.0f)) return false;
        float inv = 1.0f / sqrtf(length2);
        dx = vx * inv;
        dy = vy * inv;
        return true;
    }

    // Bilinear noise value at pixel position (x, y), clamped to the image.
    float noiseAt(float x, float y) const {
        x -= 0.5f;
        y -= 0.5f;
        if (x < 0) x = 0;
        if (y < 0) y = 0;
        if (x > width - 1.001f) x = width - 1.001f;
        if (y > height - 1.001f) y = height - 1.001f;
        int ix = static_cast<int>(x), iy = static_cast<int>(y);
        float u = x - ix, v = y - iy;
        const unsigned char* p = noise + iy * width + ix;
        return (1 - v) * ((1 - u) * p[0] + u * p[1]) + v * ((1 - u) * p[width] + u * p[width + 1]);
    }

    // Weighted samples along one direction (sign +1 or -1), the centre excluded.
    void trace(float x, float y, float sign, int halfLength, float& sum, float& weights) const {
        for (int k = 1; k <= halfLength; k++) {
            float dx, dy;
            if (!direction(x, y, dx, dy)) return;
            x += sign * dx;
            y += sign * dy;
            float w = static_cast<float>(halfLength + 1 - k);
            sum += w * noiseAt(x, y);
            weights += w;
        }
    }
};

} // namespace

void naiveLic(const FlicVectorField& field, const FlicImage& noise, int halfLength,
              FlicImage& output) {
    output.setSize(noise.width, noise.height, 1);
    Sampler s;
    s.field = field.vectors();
    s.fieldWidth = field.width;
    s.fieldHeight = field.height;
    s.toFieldX = (field.width - 1.0f) / noise.width;
    s.toFieldY = (field.height - 1.0f) / noise.height;
    s.noise = noise.data;
    s.width = noise.width;
    s.height = noise.height;
    for (int y = 0; y < noise.height; y++)
        for (int x = 0; x < noise.width; x++) {
            float cx = x + 0.5f, cy = y + 0.5f;
            float w0 = static_cast<float>(halfLength + 1);
            float sum = w0 * s.noiseAt(cx, cy), weights = w0;
            s.trace(cx, cy, 1.0f, halfLength, sum, weights);
            s.trace(cx, cy, -1.0f, halfLength, sum, weights);
            output.data[y * noise.width + x] = static_cast<unsigned char>(sum / weights);
        }
}
