"""Dask: the tiled engine's tiles as tasks, so a picture is computed across worker processes.

    import muskeip.dask
    picture = muskeip.dask.lic(u, v, chunks=1024)     # a dask array
    picture.compute()                                  # on the current scheduler / cluster

The picture is cut into tiles of `tile` pixels, as the in-process engine cuts it. Tiles fall
into phases whose tiles never reach into each other; the task of a tile traces the lines
seeded in it and returns its partial accumulation (integer hit counts and sums over the tile
and the halo its lines can reach, plus what fell beyond). A tile of a later phase judges
coverage from its own lines and from the partials of its earlier neighbours, exactly as the
in-process engine does, so the bytes equal muskeip.lic's with the same tile size, whatever the
chunks of the inputs and the number of workers. Each block of the result (one per tile) sums
the partials that reach it and normalises them.

A tile task reads only the window of the field that its lines can reach (the tile, grown by
the lines' reach and clipped to the field; the library says which nodes), taken from the
input chunks that overlap it, and likewise the window of the texture its lines read (the
texture, or the noise, is made once and cut into pieces); the partials and the blocks are
what travel between tasks.
"""
import numpy as np

from . import _muskeip


def _field(rect, pieces):
    """The window [x0, x1) x [y0, y1) of the field from the input chunks that overlap it:
    pieces of (column, row of the chunk's first node, u chunk, v chunk)."""
    x0, y0, x1, y1 = rect
    field = np.empty((y1 - y0, x1 - x0, 2), np.float32)
    for cx, cy, u, v in pieces:
        h, w = u.shape
        ax, ay = max(x0, cx), max(y0, cy)
        bx, by = min(x1, cx + w), min(y1, cy + h)
        field[ay - y0:by - y0, ax - x0:bx - x0, 0] = u[ay - cy:by - cy, ax - cx:bx - cx]
        field[ay - y0:by - y0, ax - x0:bx - x0, 1] = v[ay - cy:by - cy, ax - cx:bx - cx]
    if np.isnan(field).any():
        raise ValueError("muskeip.dask does not take fields with NaN (no-data) nodes yet; "
                         "use muskeip.lic")
    return field


def _texture(texture, width, height, binary, seed):
    if texture is not None:
        return np.ascontiguousarray(texture)
    return _muskeip._noise(width, height, binary, seed)


def _means(texture):
    return _muskeip._texture_means(texture)


def _piece(texture, y0, y1, x0, x1):
    """A piece of the texture, copied, so that the whole texture is freed once it is cut."""
    return np.array(texture[y0:y1, x0:x1])


def _texture_window(rect, size, pieces):
    """The texture's pixels of columns x0 .. x0 + w - 1 and rows y0 .. y0 + h - 1, each modulo
    the texture's size, from the pieces that hold them: (column, row of the piece's first
    pixel, piece)."""
    x0, y0, w, h = rect
    width, height = size
    rows, columns = (y0 + np.arange(h)) % height, (x0 + np.arange(w)) % width
    window = np.empty((h, w) + pieces[0][2].shape[2:], np.uint8)
    for px, py, piece in pieces:
        r = (rows >= py) & (rows < py + piece.shape[0])
        c = (columns >= px) & (columns < px + piece.shape[1])
        window[np.ix_(r, c)] = piece[np.ix_(rows[r] - py, columns[c] - px)]
    return window


def _earlier(rect, stride, partials):
    x0, y0, w, h = rect
    records = np.zeros((h, w, stride), np.int32)
    for partial in partials:
        _muskeip._add_to_area(partial, x0, y0, w, h, records, False)
    return records


def _compute(settings, field, texture, tile, earlier, origin, field_size, texture_origin,
             texture_size, texture_means):
    return _muskeip._compute_tile(settings, field, texture, tile, earlier, origin, field_size,
                                  texture_origin, texture_size, texture_means)


def _compute_window(settings, field_rect, field_pieces, texture_rect, texture_size,
                    texture_pieces, texture_means, tile, earlier, field_size):
    """A tile task: its field and texture windows assembled from the pieces, then the tile."""
    texture = _texture_window(texture_rect, texture_size, texture_pieces)
    return _compute(settings, _field(field_rect, field_pieces), texture, tile, earlier,
                    field_rect[:2], field_size, texture_rect[:2], texture_size, texture_means)


def _window(partial):
    """The partial without its overflow (what its neighbours' blocks need)."""
    geometry, records, _ = partial
    return geometry, records, np.zeros((0, records.shape[2] + 1), np.int32)


def _overflow_of(partial):
    """The partial's overflow alone, as a partial without a window (small: it travels to
    every block)."""
    geometry, records, overflow = partial
    geometry = list(geometry)
    geometry[6:8] = [0, 0]  # no window
    return tuple(geometry), np.zeros((0, 0, records.shape[2]), np.int32), overflow


def _overflow(parts):
    """The overflow of all partials joined into one."""
    geometry, records, _ = parts[0]
    return geometry, records, np.concatenate([p[2] for p in parts])


def _block_records(rect, stride, windows):
    """A block's records summed from the windows that reach it. A task of its own, so that
    the windows (larger than the block) are freed once their blocks have them, while the
    overflow of every tile is still being gathered."""
    x0, y0, w, h = rect
    records = np.zeros((h, w, stride), np.int32)
    for partial in windows:
        _muskeip._add_to_area(partial, x0, y0, w, h, records, False)
    return records


def _block(rect, sub_cells, channels, records, overflow):
    x0, y0, w, h = rect
    records = np.array(records)  # another task's result (read-only when it travelled)
    _muskeip._add_to_area(overflow, x0, y0, w, h, records, True)
    return _muskeip._normalize_records(records, sub_cells, channels)


def lic(u, v, texture=None, *, size=None, chunks=None, noise="uniform", seed=1, length=20.0,
        kernel="triangle", integrator="rk43", subpixels=1, seeding="pattern",
        interpolation="bilinear", normalization=0.0, tile=256, border="periodic",
        orientation=False):
    """muskeip.lic as a dask array of the picture, computed tile by tile in Dask tasks.

    u, v: dask arrays (or numpy arrays, cut into `chunks`) of the field's components, row 0
    the bottom row. texture: None (noise of `size`, default the field's size, from `noise`
    and an int `seed`) or a uint8 (H, W) / (H, W, 3) array. The other keywords are lic's;
    `tile` (at least 8) sets the tiles, and the result's chunks are those tiles. The bytes
    equal muskeip.lic(u, v, texture, size=size, tile=tile, ...) computed in one process."""
    import dask
    import dask.array as da

    settings = _muskeip._engine_settings(
        length=length, kernel=kernel, integrator=integrator, subpixels=subpixels,
        seeding=seeding, interpolation=interpolation, normalization=normalization, tile=tile,
        border=border, orientation=orientation)
    if seed is None or isinstance(seed, bool) or not isinstance(seed, int):
        raise TypeError("muskeip.dask.lic needs an int seed (the same noise on every worker)")
    binary = {"binary": 1, "uniform": 0}.get(noise)
    if binary is None:
        raise ValueError("noise must be one of 'binary', 'uniform', not %r" % (noise,))
    u = da.asarray(u, chunks=chunks or "auto")
    v = da.asarray(v, chunks=chunks or "auto")
    if u.ndim != 2 or u.shape != v.shape:
        raise ValueError("u and v must be 2-D arrays of one shape")
    v = v.rechunk(u.chunks)
    field_height, field_width = u.shape
    channels = 1
    if texture is not None:
        texture = np.asarray(texture)
        if texture.dtype != np.uint8 or texture.ndim not in (2, 3):
            raise TypeError("texture must be a uint8 (H, W) or (H, W, 3) array")
        height, width = texture.shape[:2]
        channels = 1 if texture.ndim == 2 else texture.shape[2]
        if size is not None and tuple(size) != (width, height):
            raise ValueError("size must be the texture's size (resampling is not done here)")
    elif size is not None:
        width, height = (int(n) for n in size)
    else:
        width, height = field_width, field_height
    tiles_x, tiles_y, phases, halo, neighbours = _muskeip._tile_layout(
        settings, field_width, field_height, width, height, channels)
    sub_cells = subpixels * subpixels
    stride = sub_cells + channels
    size_x = settings[7] if tiles_x > 1 else width  # one tile spans an axis it fills
    size_y = settings[7] if tiles_y > 1 else height

    def rect_of(t):  # the tile's pixels: x0, y0, width, height
        x0, y0 = (t % tiles_x) * size_x, (t // tiles_x) * size_y
        return x0, y0, min(x0 + size_x, width) - x0, min(y0 + size_y, height) - y0

    # The texture (or the noise) is made once, its means taken, and cut into pieces of
    # `piece` pixels; a tile task takes the pieces that overlap its texture window.
    whole = dask.delayed(_texture, pure=True)(texture, width, height, binary, seed)
    means = dask.delayed(_means, pure=True)(whole)
    piece = 1024
    pieces_across, pieces_down = -(-width // piece), -(-height // piece)
    texture_pieces = [[dask.delayed(_piece, pure=True)(whole, by * piece, min(height, by * piece + piece),
                                                       bx * piece, min(width, bx * piece + piece))
                       for bx in range(pieces_across)] for by in range(pieces_down)]

    def texture_window(t):  # the pixels tile t's lines read, and the pieces that hold them
        x0, y0, w, h = _muskeip._tile_texture_window(settings, field_width, field_height, width,
                                                     height, channels, t)
        down = np.unique((y0 + np.arange(h)) % height // piece)
        across = np.unique((x0 + np.arange(w)) % width // piece)
        return (x0, y0, w, h), [(int(bx) * piece, int(by) * piece, texture_pieces[by][bx])
                                for by in down for bx in across]

    # The input chunks as tasks, with the column and row of each one's first node: a tile
    # task takes the chunks that overlap its field window, and nothing else.
    u_blocks, v_blocks = u.to_delayed(), v.to_delayed()
    row_starts = np.concatenate([[0], np.cumsum(u.chunks[0])])
    column_starts = np.concatenate([[0], np.cumsum(u.chunks[1])])

    def field_window(t):  # the nodes tile t's lines reach, and the chunks that hold them
        rect = _muskeip._tile_field_window(settings, field_width, field_height, width, height,
                                           channels, t)
        x0, y0, x1, y1 = rect
        pieces = [(int(column_starts[bx]), int(row_starts[by]), u_blocks[by, bx], v_blocks[by, bx])
                  for by in range(len(u.chunks[0])) if row_starts[by] < y1 and row_starts[by + 1] > y0
                  for bx in range(len(u.chunks[1]))
                  if column_starts[bx] < x1 and column_starts[bx + 1] > x0]
        return tuple(rect), pieces

    partials = {}
    for phase in sorted(set(phases)):
        for t, phase_of_t in enumerate(phases):
            if phase_of_t != phase:
                continue
            rect = rect_of(t)
            before = [partials[o] for o in neighbours[t] if phases[o] < phase]
            earlier = dask.delayed(_earlier, pure=True)(rect, stride, before) if before else None
            window_rect, pieces = field_window(t)
            texture_rect, texture_parts = texture_window(t)
            partials[t] = dask.delayed(_compute_window, pure=True)(
                settings, window_rect, pieces, texture_rect, (width, height), texture_parts,
                means, t, earlier, (field_width, field_height))
    windows = {t: dask.delayed(_window, pure=True)(p) for t, p in partials.items()}
    overflows = [dask.delayed(_overflow_of, pure=True)(partials[t]) for t in sorted(partials)]
    overflow = dask.delayed(_overflow, pure=True)(overflows)
    rows = []
    for ty in range(tiles_y):
        row = []
        for tx in range(tiles_x):
            t = ty * tiles_x + tx
            rect = rect_of(t)
            reaching = [windows[t]] + [windows[o] for o in neighbours[t]]
            records = dask.delayed(_block_records, pure=True)(rect, stride, reaching)
            block = dask.delayed(_block, pure=True)(rect, sub_cells, channels, records, overflow)
            shape = (rect[3], rect[2]) + ((channels,) if channels > 1 else ())
            block = da.from_delayed(block, shape=shape, dtype=np.uint8)
            row.append([block] if channels > 1 else block)  # one list level per axis
        rows.append(row)
    return da.block(rows)
