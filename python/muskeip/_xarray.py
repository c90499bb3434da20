"""xarray in and out for lic, render and animate: the field's dims and coordinates are found,
the grid is made upright and even, and the picture comes back on the field's coordinates."""
import importlib

import numpy as np

X_NAMES = ("x", "lon", "longitude")
Y_NAMES = ("y", "lat", "latitude")


def is_xarray(*objects):
    return any(type(o).__module__.split(".")[0] == "xarray" for o in objects if o is not None)


def _components(u, v):
    """The two component DataArrays, from two DataArrays or a Dataset."""
    xr = importlib.import_module("xarray")
    if isinstance(u, xr.Dataset):
        if v is not None:
            raise TypeError("with a Dataset, give the components as its variables, not as v")
        names = list(u.data_vars)
        if "u" in u.data_vars and "v" in u.data_vars:
            names = ["u", "v"]
        if len(names) < 2:
            raise ValueError("the Dataset needs two variables: u and v")
        return u[names[0]], u[names[1]]
    if not isinstance(u, xr.DataArray) or not isinstance(v, xr.DataArray):
        raise TypeError("u and v must both be xarray DataArrays (or u a Dataset)")
    return u, v


def _dims(array):
    if array.ndim != 2:
        raise ValueError("the field's DataArrays must be 2-D, not %d-D" % array.ndim)
    dims = [str(d) for d in array.dims]
    lower = [d.lower() for d in dims]
    xdim = next((array.dims[i] for i, d in enumerate(lower) if d in X_NAMES), None)
    ydim = next((array.dims[i] for i, d in enumerate(lower) if d in Y_NAMES), None)
    if xdim is None or ydim is None or xdim == ydim:
        ydim, xdim = array.dims
    return ydim, xdim


def _coordinate(array, dim):
    if dim in array.coords:
        values = np.asarray(array.coords[dim].values, dtype=np.float64)
    else:
        values = np.arange(array.sizes[dim], dtype=np.float64)
    if values.size < 2 or not np.all(np.isfinite(values)):
        raise ValueError("the coordinate %s must hold at least two finite values" % dim)
    steps = np.diff(values)
    if not (np.all(steps > 0) or np.all(steps < 0)):
        raise ValueError("the coordinate %s must be strictly monotonic" % dim)
    return values


def _is_even(values):
    steps = np.diff(values)
    return np.allclose(steps, steps[0], rtol=1e-5, atol=0.0)


def _resample(a, coords, new, axis):
    """Linear interpolation of `a` along `axis` from ascending `coords` to `new`."""
    index = np.clip(np.searchsorted(coords, new, side="right") - 1, 0, coords.size - 2)
    t = (new - coords[index]) / (coords[index + 1] - coords[index])
    shape = [1] * a.ndim
    shape[axis] = new.size
    t = t.reshape(shape)
    return np.take(a, index, axis) * (1 - t) + np.take(a, index + 1, axis) * t


def _output_size(options, width, height, texture):
    if options.get("size") is not None:
        w, h = options["size"]
        return int(w), int(h)
    if texture is not None:
        shape = np.shape(texture)
        return int(shape[1]), int(shape[0])
    return width, height


def compute(function, u, v, texture, options):
    """Runs `function` (the extension's lic, render or animate) on xarray input."""
    xr = importlib.import_module("xarray")
    u, v = _components(u, v)
    ydim, xdim = _dims(u)
    if set(v.dims) != {ydim, xdim}:
        raise ValueError("u and v must have the same dims, not %s and %s" % (u.dims, v.dims))
    u, v = u.transpose(ydim, xdim), v.transpose(ydim, xdim)
    xs, ys = _coordinate(u, xdim), _coordinate(u, ydim)
    uu = np.asarray(u.values, dtype=np.float32)
    vv = np.asarray(v.values, dtype=np.float32)
    if xs[0] > xs[-1]:  # columns from the smallest x, as the picture's
        xs, uu, vv = xs[::-1], uu[:, ::-1], vv[:, ::-1]
    if ys[0] > ys[-1]:  # row 0 the smallest y: the picture's bottom row
        ys, uu, vv = ys[::-1], uu[::-1], vv[::-1]
    width, height = _output_size(options, xs.size, ys.size, texture)
    attrs = {}
    resampled = [name for name, values in ((str(xdim), xs), (str(ydim), ys))
                 if not _is_even(values)]
    if resampled:
        new_x = np.linspace(xs[0], xs[-1], width)
        new_y = np.linspace(ys[0], ys[-1], height)
        uu = _resample(_resample(uu, xs, new_x, 1), ys, new_y, 0).astype(np.float32)
        vv = _resample(_resample(vv, xs, new_x, 1), ys, new_y, 0).astype(np.float32)
        xs, ys = new_x, new_y
        attrs["muskeip_resampled"] = (
            "the uneven coordinate(s) %s were resampled linearly onto an even grid of "
            "%d x %d nodes" % (", ".join(resampled), width, height))
    picture = function(np.ascontiguousarray(uu), np.ascontiguousarray(vv), texture, **options)
    return _wrap(xr, picture, xdim, ydim, xs, ys, width, height, attrs, function.__name__)


def _wrap(xr, picture, xdim, ydim, xs, ys, width, height, attrs, name):
    if np.ma.isMaskedArray(picture):
        mask = np.ma.getmaskarray(picture)
        picture = np.where(mask, np.nan, picture.data.astype(np.float32)).astype(np.float32)
        attrs["muskeip_nodata"] = "NaN: pixels no line reached"
    xs_out = xs if xs.size == width else np.linspace(xs[0], xs[-1], width)
    ys_out = ys if ys.size == height else np.linspace(ys[0], ys[-1], height)
    animated = name == "animate"
    dims = (["frame"] if animated else []) + [ydim, xdim]
    coords = {ydim: ys_out, xdim: xs_out}
    if picture.ndim == len(dims) + 1:
        dims.append("rgb")
        coords["rgb"] = ["r", "g", "b"]
    if animated:
        coords["frame"] = np.arange(picture.shape[0])
    attrs["long_name"] = "LIC picture"
    return xr.DataArray(picture, dims=dims, coords=coords, attrs=attrs)
