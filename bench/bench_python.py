#!/usr/bin/python3
"""muskeip.lic against a straightforward numpy-vectorized per-pixel LIC.

Run from the repository root after building:
    PYTHONPATH=build/python/module /usr/bin/python3 bench/bench_python.py [repetitions]

Both compute a LIC picture of a vortex field from the same uniform noise texture with a
triangle kernel of half-length L pixels. The baseline traces, for every pixel at once, L unit
steps forward and L backward (Euler steps on the normalized field, nearest field node,
bilinear texture lookup) and sums the samples with triangle weights: the textbook per-pixel
method, vectorized over all pixels, so its cost grows with L. Prints a Markdown table of the
median wall-clock times.
"""
import statistics
import sys
import time

import numpy as np

import muskeip


def vortex(size):
    y, x = np.mgrid[0:size, 0:size].astype(np.float32) - (size - 1) / 2.0
    return -y, x


def numpy_lic(u, v, texture, length):
    """Per-pixel LIC, vectorized over all pixels: 2 L + 1 samples per pixel."""
    height, width = texture.shape
    speed = np.hypot(u, v)
    speed[speed == 0] = 1
    du, dv = u / speed, v / speed
    tex = texture.astype(np.float32)
    y0, x0 = np.mgrid[0:height, 0:width].astype(np.float32)
    x0 += 0.5
    y0 += 0.5

    def lookup(x, y):
        x = np.clip(x - 0.5, 0, width - 1.001)
        y = np.clip(y - 0.5, 0, height - 1.001)
        ix, iy = x.astype(np.int32), y.astype(np.int32)
        fx, fy = x - ix, y - iy
        a, b = tex[iy, ix], tex[iy, ix + 1]
        c, d = tex[iy + 1, ix], tex[iy + 1, ix + 1]
        return (a + (b - a) * fx) * (1 - fy) + (c + (d - c) * fx) * fy

    total = lookup(x0, y0) * (length + 1)
    weights = float(length + 1)
    for sign in (1.0, -1.0):
        x, y = x0.copy(), y0.copy()
        for step in range(1, length + 1):
            ix = np.clip(x.astype(np.int32), 0, width - 1)
            iy = np.clip(y.astype(np.int32), 0, height - 1)
            x += sign * du[iy, ix]
            y += sign * dv[iy, ix]
            weight = length + 1 - step
            total += weight * lookup(x, y)
            weights += weight
    return (total / weights).astype(np.uint8)


def median_seconds(call, repetitions):
    times = []
    for _ in range(repetitions):
        start = time.perf_counter()
        call()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def main():
    repetitions = int(sys.argv[1]) if len(sys.argv) > 1 else 3
    rng = np.random.default_rng(1)
    print("| Size | L | muskeip.lic s | numpy per-pixel LIC s | speed-up |")
    print("|---|---|---|---|---|")
    for size in (512, 1024):
        u, v = vortex(size)
        texture = rng.integers(0, 256, (size, size), dtype=np.uint8)
        for length in (20, 80):
            ours = median_seconds(lambda: muskeip.lic(u, v, texture, length=length), repetitions)
            theirs = median_seconds(lambda: numpy_lic(u, v, texture, length),
                                    max(1, repetitions // 2))
            print(f"| {size}² | {length} | {ours:.3f} | {theirs:.2f} | {theirs / ours:.0f}× |",
                  flush=True)


if __name__ == "__main__":
    main()
