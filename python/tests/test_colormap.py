"""muskeip.Colormap: the (256, 3) view, presets, transformations and colour-map files."""
import numpy as np
import pytest

import muskeip


def test_view_presets_and_lookup():
    colormap = muskeip.Colormap()
    view = np.asarray(colormap)
    assert view.shape == (256, 3) and view.dtype == np.float32
    assert colormap.getColor1(0.5) == pytest.approx((0.5, 0.5, 0.5))
    colormap.createHotIron()
    assert view[0].tolist() == [1, 0, 0] and view[255].tolist() == [1, 1, 1]
    view[255] = (0, 0, 1)
    assert colormap.getColor1(2.0) == (0, 0, 1)
    assert colormap.getMinMax() == (0, 1)


def test_transformations_return_new_maps():
    grey = muskeip.Colormap()
    grey.setMinMax(-1, 3)
    doubled = grey.multiply(2)
    assert np.asarray(doubled)[128].tolist() == [1, 1, 1] and doubled.getMinMax() == (-1, 3)
    assert np.asarray(grey.flip())[0, 0] == 1
    assert np.asarray(grey.gamma(2))[51, 0] == pytest.approx(0.04)
    assert np.asarray(grey)[128, 0] == pytest.approx(128 / 255)
    with pytest.raises(ValueError):
        grey.setMinMax(2, 2)


def test_file_round_trip(tmp_path):
    colormap = muskeip.Colormap()
    colormap.createBlueWhiteRed()
    colormap.setMinMax(-2.5, 4)
    colormap.writeIcol(tmp_path / "map.icol")
    again = muskeip.Colormap.readIcol(tmp_path / "map.icol")
    np.testing.assert_allclose(np.asarray(again), np.asarray(colormap), atol=1 / 255)
    assert again.getMinMax() == (-2.5, 4)


def test_file_failures_carry_the_library_message(tmp_path, capfd):
    with pytest.raises(OSError) as raised:
        muskeip.Colormap.readIcol(tmp_path / "none.icol")
    assert str(raised.value) == f"Can't open {tmp_path / 'none.icol'}."
    with pytest.raises(OSError, match="Can't open"):
        muskeip.Colormap().writeIcol(tmp_path / "no" / "map.icol")
    assert capfd.readouterr() == ("", "")


def test_array_construction():
    colors = np.linspace(0, 1, 768).reshape(256, 3)
    colormap = muskeip.Colormap(colors, min=1, max=2)
    np.testing.assert_array_equal(np.asarray(colormap), colors.astype(np.float32))
    assert colormap.getMinMax() == (1, 2)
    with pytest.raises(ValueError, match=r"\(256, 3\)"):
        muskeip.Colormap(colors[:255])
    with pytest.raises(ValueError, match="differ"):
        muskeip.Colormap(colors, min=1, max=1)
