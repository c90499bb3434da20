"""matplotlib: a LIC picture drawn on an Axes with the right origin and extent.

    import matplotlib.pyplot as plt, muskeip.plot
    fig, ax = plt.subplots()
    muskeip.plot.lic(ax, u, v, x=x, y=y, colour="magnitude")
"""
import importlib

import numpy as np

from . import _xarray


def lic(ax, u, v=None, texture=None, *, x=None, y=None, cmap="gray", **options):
    """Draws the picture of muskeip.render(u, v, texture, **options) on `ax` and returns the
    AxesImage. Row 0 of the picture is its bottom row, so it is drawn with origin="lower".

    x, y: the field's node coordinates (1-D, ascending or descending, evenly spaced) or None
    (pixel indices); with xarray input they come from its coordinates. The pixel centres run
    evenly from x[0] to x[-1] and y[0] to y[-1]. A grey picture is drawn with `cmap` over
    0 .. 255; pixels no line reached are transparent."""
    importlib.import_module("matplotlib")
    from . import render

    picture = render(u, v, texture, **options)
    if _xarray.is_xarray(picture):
        ydim, xdim = picture.dims[0], picture.dims[1]
        y, x = picture.coords[ydim].values, picture.coords[xdim].values
        values = picture.values
        if np.issubdtype(values.dtype, np.floating):  # NaN where no line reached
            values = np.ma.masked_invalid(values)
            if values.ndim == 3:
                values = values.filled(0).astype(np.uint8)
        picture = values
    height, width = np.shape(picture)[:2]
    extent = None
    if x is not None or y is not None:
        xs = np.asarray(x if x is not None else np.arange(width), dtype=float)
        ys = np.asarray(y if y is not None else np.arange(height), dtype=float)
        if xs.ndim != 1 or ys.ndim != 1 or xs.size < 2 or ys.size < 2:
            raise ValueError("x and y must be 1-D coordinates of at least two nodes")
        if xs[0] > xs[-1]:
            picture = picture[:, ::-1]
            xs = xs[::-1]
        if ys[0] > ys[-1]:
            picture = picture[::-1]
            ys = ys[::-1]
        # Pixel centres run evenly from the first node to the last: the extent reaches half
        # a pixel beyond them, as xarray's imshow draws it.
        half_x = (xs[-1] - xs[0]) / (width - 1) / 2 if width > 1 else 0.5
        half_y = (ys[-1] - ys[0]) / (height - 1) / 2 if height > 1 else 0.5
        extent = (xs[0] - half_x, xs[-1] + half_x, ys[0] - half_y, ys[-1] + half_y)
    grey = np.ndim(picture) == 2
    return ax.imshow(picture, origin="lower", extent=extent, cmap=cmap if grey else None,
                     vmin=0 if grey else None, vmax=255 if grey else None,
                     interpolation="nearest")
