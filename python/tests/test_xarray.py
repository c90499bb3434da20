"""xarray in and out: dims in either order, coordinates kept, upright pictures, uneven grids."""
import numpy as np
import pytest

import muskeip

xr = pytest.importorskip("xarray")


def vortex(ny=48, nx=80, y_descending=False):
    y = np.linspace(-1.0, 1.0, ny)
    x = np.linspace(-2.0, 2.0, nx)
    Y, X = np.meshgrid(y, x, indexing="ij")
    u = xr.DataArray((-Y).astype(np.float32), dims=("y", "x"), coords={"y": y, "x": x})
    v = xr.DataArray(X.astype(np.float32), dims=("y", "x"), coords={"y": y, "x": x})
    if y_descending:
        u, v = u.isel(y=slice(None, None, -1)), v.isel(y=slice(None, None, -1))
    return u, v


def test_dataarrays_give_the_numpy_picture_on_the_field_coordinates():
    u, v = vortex()
    picture = muskeip.lic(u, v, length=8)
    assert isinstance(picture, xr.DataArray) and picture.dims == ("y", "x")
    np.testing.assert_array_equal(picture.values, muskeip.lic(u.values, v.values, length=8))
    np.testing.assert_array_equal(picture.x.values, u.x.values)
    np.testing.assert_array_equal(picture.y.values, u.y.values)


def test_order_of_dims_direction_of_y_and_datasets_do_not_change_the_picture():
    u, v = vortex()
    expected = muskeip.lic(u, v, length=8)
    descending = muskeip.lic(*vortex(y_descending=True), length=8)
    np.testing.assert_array_equal(descending.values, expected.values)
    assert descending.y.values[0] < descending.y.values[-1]  # row 0 is the lowest y
    np.testing.assert_array_equal(muskeip.lic(u.T, v.T, length=8).values, expected.values)
    named = xr.Dataset({"v": v, "u": u, "speed": np.hypot(u, v)})
    np.testing.assert_array_equal(muskeip.lic(named, length=8).values, expected.values)
    geo = xr.Dataset({"uo": u.rename(x="lon", y="lat").T, "vo": v.rename(x="lon", y="lat").T})
    result = muskeip.lic(geo, length=8)
    assert result.dims == ("lat", "lon")
    np.testing.assert_array_equal(result.values, expected.values)


def test_output_size_colour_frames_and_resampling_are_described():
    u, v = vortex()
    coloured = muskeip.render(u, v, size=(160, 96), colour="magnitude")
    assert coloured.dims == ("y", "x", "rgb") and coloured.shape == (96, 160, 3)
    assert coloured.x.values[0] == -2.0 and coloured.x.values[-1] == 2.0
    assert coloured.x.size == 160
    frames = muskeip.animate(u, v, frames=3, length=6)
    assert frames.dims == ("frame", "y", "x") and frames.shape[0] == 3
    assert "muskeip_resampled" not in coloured.attrs
    # An uneven x coordinate: resampled onto an even grid at the output resolution.
    uneven = u.x.values ** 3 / 4
    stretched = muskeip.lic(u.assign_coords(x=uneven), v.assign_coords(x=uneven), size=(100, 48))
    assert "x were resampled" in stretched.attrs["muskeip_resampled"]
    steps = np.diff(stretched.x.values)
    np.testing.assert_allclose(steps, steps[0])


def test_no_data_becomes_nan_and_bad_input_is_refused():
    u, v = vortex()
    holed = u.copy()
    holed[10:20, 30:40] = np.nan
    picture = muskeip.lic(holed, v, length=6)
    assert picture.dtype == np.float32 and np.isnan(picture.values).any()
    assert "muskeip_nodata" in picture.attrs
    with pytest.raises(ValueError, match="same dims"):
        muskeip.lic(u, v.rename(x="z"))
    with pytest.raises(ValueError, match="strictly monotonic"):
        muskeip.lic(u.assign_coords(x=np.zeros(u.sizes["x"])), v)
    with pytest.raises(TypeError, match="both be xarray"):
        muskeip.lic(u, v.values)
