"""muskeip.plot.lic: the picture drawn upright, on the field's coordinates."""
import numpy as np
import pytest

import muskeip

matplotlib = pytest.importorskip("matplotlib")
matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402


def field():
    y = np.linspace(0.0, 3.0, 31)
    x = np.linspace(10.0, 20.0, 51)
    Y, X = np.meshgrid(y, x, indexing="ij")
    return (Y - 1.5).astype(np.float32), (15.0 - X).astype(np.float32), x, y


def test_grey_picture_with_origin_lower_and_pixel_extent():
    u, v, x, y = field()
    fig, ax = plt.subplots()
    image = muskeip.plot.lic(ax, u, v, x=x, y=y, length=6)
    assert image.origin == "lower"
    np.testing.assert_allclose(image.get_extent(), (9.9, 20.1, -0.05, 3.05))
    np.testing.assert_array_equal(image.get_array(), muskeip.render(u, v, length=6))
    assert image.get_cmap().name == "gray" and image.get_clim() == (0, 255)
    plt.close(fig)


def test_descending_coordinates_and_colour_and_xarray():
    u, v, x, y = field()
    fig, ax = plt.subplots()
    upright = muskeip.render(u, v, colour="magnitude", length=6)
    image = muskeip.plot.lic(ax, u[::-1], v[::-1], x=x, y=y[::-1], colour="magnitude", length=6)
    np.testing.assert_allclose(image.get_extent(), (9.9, 20.1, -0.05, 3.05))
    # The rows were flipped back: the same picture up to the field being traced reversed.
    assert np.asarray(image.get_array()).shape == upright.shape
    xr = pytest.importorskip("xarray")
    du = xr.DataArray(u, dims=("y", "x"), coords={"y": y, "x": x})
    dv = xr.DataArray(v, dims=("y", "x"), coords={"y": y, "x": x})
    from_xarray = muskeip.plot.lic(ax, du, dv, length=6)
    np.testing.assert_allclose(from_xarray.get_extent(), (9.9, 20.1, -0.05, 3.05))
    np.testing.assert_array_equal(from_xarray.get_array(), muskeip.render(u, v, length=6))
    with pytest.raises(ValueError, match="1-D"):
        muskeip.plot.lic(ax, u, v, x=np.zeros((2, 2)))
    plt.close(fig)
