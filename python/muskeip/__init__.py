"""Fast Line Integral Convolution of planar vector fields.

Arrays index rows as the library does: row 0 is the bottom row of the picture, so
matplotlib shows pictures upright with imshow(picture, origin="lower").
Failures raise exceptions (OSError for files, with the library's message; ValueError and
TypeError for bad arguments); informational messages go to logging.getLogger("muskeip").

lic, render and animate also take xarray DataArrays (or a Dataset with the two components)
and then return a DataArray on the field's coordinates. muskeip.plot draws pictures with
matplotlib; muskeip.dask computes big pictures tile by tile with Dask. xarray, matplotlib
and Dask are imported only when used.
"""
from . import _muskeip
from ._muskeip import *  # noqa: F401,F403 (the classes and functions of the extension)
from ._muskeip import build_info  # noqa: F401
from . import _xarray

__all__ = [name for name in dir(_muskeip) if not name.startswith("_")]


def lic(u, v=None, texture=None, **options):
    if _xarray.is_xarray(u, v):
        return _xarray.compute(_muskeip.lic, u, v, texture, options)
    return _muskeip.lic(u, v, texture, **options)


def render(u, v=None, texture=None, **options):
    if _xarray.is_xarray(u, v):
        return _xarray.compute(_muskeip.render, u, v, texture, options)
    return _muskeip.render(u, v, texture, **options)


def animate(u, v=None, texture=None, **options):
    if _xarray.is_xarray(u, v):
        return _xarray.compute(_muskeip.animate, u, v, texture, options)
    return _muskeip.animate(u, v, texture, **options)


_XARRAY_NOTE = """

xarray: u and v may be DataArrays with dims (y, x) in either order (named x/lon/longitude
and y/lat/latitude, else taken as (y, x)), or u a Dataset holding the components as the
variables u and v (or its first two variables). The result is then a DataArray on the
field's coordinates, y ascending (a decreasing y coordinate is flipped, so the picture is
upright in result.plot.imshow()), at the output size's resolution. Coordinates that are
monotonic but not evenly spaced are resampled onto an even grid at the output resolution
first (linear interpolation), noted in the attribute 'muskeip_resampled'. Pixels no line
reached (NaN nodes) are NaN in a float32 result."""

for _function, _wrapped in ((lic, _muskeip.lic), (render, _muskeip.render),
                            (animate, _muskeip.animate)):
    _function.__doc__ = (_wrapped.__doc__ or "") + _XARRAY_NOTE
__all__ += ["lic", "render", "animate"]


def __getattr__(name):
    """muskeip.plot and muskeip.dask are imported on first use (matplotlib and Dask with them)."""
    if name in ("plot", "dask"):
        import importlib

        return importlib.import_module("." + name, __name__)
    raise AttributeError("module 'muskeip' has no attribute %r" % name)
