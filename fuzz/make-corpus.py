#!/usr/bin/env python3
"""Writes the seed corpora under fuzz/corpus/<target>/: small valid files of every format and
mode the readers know, and for the engine byte strings that select typical settings (their
layout follows the order in which fuzz_engine.cpp reads its input). Run it from anywhere; it
replaces the files it writes and leaves others alone."""
import os
import struct

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")


def put(target, name, data):
    folder = os.path.join(ROOT, target)
    os.makedirs(folder, exist_ok=True)
    if isinstance(data, str):
        data = data.encode()
    with open(os.path.join(folder, name), "wb") as out:
        out.write(data)


def pnm():
    grey = bytes([0, 64, 128, 255, 10, 20])
    put("pnm", "p5.pgm", b"P5\n3 2\n255\n" + grey)
    put("pnm", "p6.ppm", b"P6\n2 2\n255\n" + bytes(range(0, 240, 20)))
    put("pnm", "p2.pgm", "P2\n3 2\n255\n000  064  128  255  010  020 ")
    put("pnm", "p3.ppm", "P3\n2 1\n255\n255 000 000 000 255 000 ")
    put("pnm", "comments.pgm", "P2\n# made by hand\n2 2\n# maximum\n255\n1 2\n3 300\n")
    put("pnm", "short.pgm", b"P5\n4 4\n255\n\x01\x02")
    put("image_ops", "grey.pgm", b"P5\n6 5\n255\n" + bytes((i * 37) % 256 for i in range(30)))
    put("image_ops", "rgb.ppm", b"P6\n4 3\n255\n" + bytes((i * 11) % 256 for i in range(36)))
    put("image_ops", "flat.pgm", "P2\n3 3\n255\n" + "9 " * 9)
    put("image_ops", "line.ppm", "P3\n5 1\n255\n" + "1 2 3 " * 5)


def npy(type_code, shape, values, fortran=False):
    header = "{'descr': '%s', 'fortran_order': %s, 'shape': %s, }" % (
        type_code, "True" if fortran else "False", shape)
    header += " " * ((64 - (10 + len(header) + 1) % 64) % 64) + "\n"
    body = struct.pack(type_code[0] + str(len(values)) + {"f4": "f", "f8": "d"}[type_code[1:]],
                       *values)
    return b"\x93NUMPY\x01\x00" + struct.pack("<H", len(header)) + header.encode() + body


def zipped(members, method):
    import zipfile, io
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w", method) as archive:
        for name, content in members:
            archive.writestr(name, content)
    return data.getvalue()


def numpy_files():
    pairs = [1.0, 0.0, 0.0, 1.0, -1.0, 0.0, 0.5, -0.25, 2.0, 2.0, 0.0, -3.0]
    put("numpy", "c.npy", npy("<f4", "(2, 3, 2)", pairs))
    put("numpy", "f.npy", npy(">f8", "(2, 3, 2)", pairs, fortran=True))
    put("numpy", "flat.npy", npy("<f4", "(3, 4)", pairs))
    put("numpy", "int.npy", npy("<f4", "(2, 3, 2)", pairs).replace(b"<f4", b"<i4"))
    put("numpy", "short.npy", npy("<f4", "(2, 3, 2)", pairs)[:-5])
    u, v = npy("<f8", "(2, 3)", pairs[:6]), npy(">f4", "(2, 3)", pairs[6:])
    put("numpy", "stored.npz", zipped([("u.npy", u), ("v.npy", v)], 0))
    put("numpy", "deflated.npz", zipped([("u.npy", u), ("v.npy", v)], 8))
    put("numpy", "single.npz", zipped([("arr_0.npy", npy("<f4", "(2, 3, 2)", pairs))], 8))


def fields():
    put("vector", "ascii.vec", "FLIC VECTOR ASCII\n2 2\n1 0\n0 1\n-1 0\n0.5 -0.25\n")
    put("vector", "oneline.vec", "FLIC VECTOR\n3 2\n1 2 3 4 5 6 7 8 9 10 11 12\n")
    values = [1.0, 0.0, 0.0, 1.0, -1.0, 0.0, 0.5, -0.25]
    put("vector", "binary.vec", b"FLIC VECTOR BINARY\n2 2\n" + struct.pack(">8f", *values))
    put("scalar", "ascii.sca", "FLIC SCALAR ASCII\n2 3\n0\n1\n2\n3\n-4.5\n1e3\n")
    put("scalar", "binary.sca",
        b"FLIC SCALAR BINARY\n3 2\n" + struct.pack(">6f", 0, 0.5, 1, 1.5, -2, 3e10))


def icol():
    lines = []
    for k in range(64):
        groups = []
        for g in range(4):
            i = k + 64 * g
            groups.append("%4d%4d%4d%4d" % (i, i, 255 - i, i // 2))
        lines.append("   ".join(groups) + "\n")
    put("icol", "grouped.icol", "".join(lines) + "0 1\n")
    put("icol", "plain.icol", "".join("%d %d %d\n" % (i, i, i) for i in range(256)) + "-2 5\n")
    put("icol", "norange.icol", "".join("%d 0 %d\n" % (i, 255 - i) for i in range(256)))


UCD = """4 2
vertices: x y value vx vy
0 0 1 1 0
1 0 2 0 1
1 1 3 -1 0
0 1 4 0 -1
triangles
1 2 3
1 3 4
"""

UCD_COUNTS = """nodes: 5, cells: 3
x y s u v
0 0 0.5 1 1
2 0 1.5 -1 1
2 1 2.5 0 2
0 1 3.5 1 0
1 3 4 0.5 0.5
cells
1 2 3 1 3 4
3 5 4
"""


def ucd():
    for target in ("ucd_scalar", "ucd_vector", "graphics_ucd"):
        put(target, "square.inp", UCD)
        put(target, "counts.inp", UCD_COUNTS)


def graphics():
    put("graphics", "commands.fg", "FLIC GRAPHICS\ncanvas 0 0 1 1\ncolor 1 0 0\nwidth 3\n"
        "line 0 0 1 1 0.5 0.2\npoints 0.1 0.1 0.9 0.9\n# comment\n")
    put("graphics", "abbreviated.fg", "FLIC GRAPHICS overlay\nc 0.5 0.5 0.5\nw 1\n"
        "l 0 0 10 0 10 10 \\\n 0 10\np 3 3\nunknown words\n")


def engine_input(field, texture, settings, integrator=(0,), mask=(0,), again=0):
    """field: (width, height, pattern, pattern bytes..., unusual values); texture: (size index x,
    size index y, channel index, binary, seed, owned); settings: (filter, extension, step,
    kernel, sub-pixels, seeding, lookup) menu indices; integrator: kind and its menu indices;
    then the normalization index; mask: choice and seed; again: a second computation."""
    data = list(field) + list(texture) + list(settings) + list(integrator) + [0]
    data += list(mask) + [again]
    return bytes(data)


def engine():
    circle = (8, 8, 1, 96, 0)
    noise = (8, 8, 0, 0, 5, 1)
    put("engine", "defaults", engine_input(circle, noise, (0, 0, 0, 1, 0, 0, 0)))
    put("engine", "rgb-cubic-sobol", engine_input(
        circle, (7, 6, 3, 0, 9, 1), (1, 2, 1, 2, 3, 3, 0), mask=(3, 4), again=1))
    raw = [5, 4, 0] + [96 + ((7 * i) % 60) for i in range(40)] + [0]
    put("engine", "raw-box-raster", engine_input(
        raw, (5, 5, 0, 1, 3, 1), (2, 1, 0, 0, 4, 2, 2), integrator=(1,), mask=(1, 7)))
    saddle = (6, 9, 2, 128, 96, 96, 64, 96, 96, 0)
    put("engine", "linear-rk43-wrapped", engine_input(
        saddle, (6, 9, 4, 0, 11, 0, 2), (2, 0, 4, 1, 0, 0, 1), integrator=(2, 1, 1, 1, 0)))
    unusual = [9, 9, 3, 100, 90, 3, 0, 0, 0, 3, 194, 1, 0, 0, 0, 195, 2, 0, 0, 0, 196]
    put("engine", "nan-infinities-rkdp", engine_input(
        unusual, (8, 8, 1, 0, 2, 1), (0, 0, 0, 1, 1, 1, 1), integrator=(3,)))
    put("engine", "rkck-euler", engine_input(
        circle, (9, 9, 0, 0, 2, 1), (4, 3, 1, 1, 0, 0, 1), integrator=(6,), mask=(1, 2)))


def tiled_input(field, texture, settings, tiling, modes, frames, integrator=(0,)):
    """As engine_input up to the normalization index; then tiling: tile size, threads and
    lanes menu indices; modes: border x, border y, no-data choice (and the mask's seed when it
    has one), orientation, passes and ripples menu indices; frames: the frame count's index."""
    data = list(field) + list(texture) + list(settings) + list(integrator) + [0]
    return bytes(data + list(tiling) + list(modes) + [frames])


def tiled():
    circle = (16, 16, 1, 96, 0)
    noise = (8, 8, 0, 0, 5, 1)
    plain = (0, 0, 0, 1, 0, 0, 0)
    put("tiled", "two-threads-widest-lanes", tiled_input(
        circle, noise, plain, (0, 1, 0), (0, 0, 0, 1, 0, 0), 0))
    put("tiled", "tile-9-rgb-closed-borders", tiled_input(
        circle, (9, 9, 3, 0, 7, 1), plain, (2, 2, 2), (2, 3, 0, 1, 0, 0), 0))
    saddle = (16, 12, 2, 128, 96, 96, 64, 96, 96, 0)
    put("tiled", "no-data-mask-orientation-frames", tiled_input(
        saddle, noise, (1, 0, 0, 2, 3, 3, 0), (4, 1, 1), (0, 0, 2, 9, 0, 0, 0), 3))
    put("tiled", "one-tile-two-passes", tiled_input(
        circle, (6, 6, 0, 1, 3, 1), plain, (6, 2, 0), (0, 0, 0, 1, 3, 0), 0))


def partials_input(geometry, records, overflow, stray, area, normalise):
    """geometry: picture width, height, stride, window x0, y0, width, height, tile x0, y0, x1,
    y1 (small values stand for themselves); records: the count's offset + 1 (0 .. 3), then the
    ints; overflow: entries of (pixel byte, ints); stray: 0 adds a stray int; area: x, y,
    width, height; normalise: hit counters and channels."""
    data = list(geometry) + [records[0]]
    for value in records[1]:
        data += list(struct.pack("<i", value))
    data.append(len(overflow))
    for pixel, ints in overflow:
        data.append(pixel)
        for value in ints:
            data += list(struct.pack("<i", value))
    data += [stray] + list(area) + list(normalise)
    return bytes(data)


def partials():
    window = [(k * 7) % 5 for k in range(4 * 4 * 2)]
    put("partials", "window-and-overflow", partials_input(
        (8, 8, 2, 1, 1, 4, 4, 2, 2, 4, 4), (1, window), [(10, (1, 3))], 1, (0, 0, 8, 8), (1, 1)))
    put("partials", "records-one-short", partials_input(
        (8, 8, 2, 1, 1, 4, 4, 2, 2, 4, 4), (0, window[:-1]), [], 1, (2, 2, 4, 4), (1, 1)))
    put("partials", "window-past-the-edge", partials_input(
        (6, 5, 3, 3, 2, 4, 4, 3, 2, 5, 4), (1, [1] * 48), [(230, (1, 1, 1))], 0, (0, 0, 6, 5),
        (2, 1)))


if __name__ == "__main__":
    pnm()
    fields()
    numpy_files()
    icol()
    ucd()
    graphics()
    engine()
    tiled()
    partials()
