"""muskeip.dask: the tiled engine's tiles as Dask tasks give muskeip.lic's bytes, whatever the
chunks and the workers."""
import numpy as np
import pytest

import muskeip

da = pytest.importorskip("dask.array")
distributed = pytest.importorskip("distributed")


def spiral(height, width):
    y, x = np.mgrid[0:height, 0:width].astype(np.float32)
    y -= height / 2
    x -= width / 2
    return -y + 0.3 * x, x + 0.2 * y


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                       dashboard_address=None, memory_limit="1GB")
    with distributed.Client(cluster) as client:
        yield client
    cluster.close()


def test_two_worker_processes_give_the_in_process_bytes(client):
    u, v = spiral(1024, 1024)
    expected = muskeip.lic(u, v, tile=256)
    regular = muskeip.dask.lic(da.from_array(u, chunks=256), da.from_array(v, chunks=256),
                               tile=256)
    assert regular.chunks == ((256,) * 4, (256,) * 4)
    np.testing.assert_array_equal(regular.compute(), expected)
    irregular = muskeip.dask.lic(da.from_array(u, chunks=((300, 724), (100, 500, 424))),
                                 da.from_array(v, chunks=((1000, 24), (1024,))), tile=256)
    np.testing.assert_array_equal(irregular.compute(), expected)
    workers = client.run(lambda: 1)
    assert len(workers) == 2


def test_settings_sizes_textures_and_edge_tiles_agree_with_lic():
    u, v = spiral(90, 130)
    cases = [
        dict(tile=32, subpixels=2, kernel="box", seeding="raster"),
        dict(tile=48, size=(200, 150), noise="binary", seed=7, border="closed"),
        dict(tile=64, seeding="sobol", orientation=True, length=9),
    ]
    for options in cases:
        expected = muskeip.lic(u, v, **options)
        got = muskeip.dask.lic(u, v, chunks=40, **options).compute(scheduler="sync")
        np.testing.assert_array_equal(got, expected, err_msg=str(options))
    texture = np.random.default_rng(3).integers(0, 256, (100, 140, 3), dtype=np.uint8)
    expected = muskeip.lic(u, v, texture, tile=40)
    got = muskeip.dask.lic(u, v, texture, tile=40).compute(scheduler="threads")
    assert got.shape == (100, 140, 3)
    np.testing.assert_array_equal(got, expected)


def test_bad_input_is_refused_before_any_task():
    u, v = spiral(20, 30)
    with pytest.raises(ValueError, match="tile must be"):
        muskeip.dask.lic(u, v, tile=4)
    with pytest.raises(TypeError, match="int seed"):
        muskeip.dask.lic(u, v, seed=None)
    with pytest.raises(ValueError, match="one shape"):
        muskeip.dask.lic(u, v[:, 1:])
    holed = u.copy()
    holed[3, 3] = np.nan
    with pytest.raises(ValueError, match="NaN"):
        muskeip.dask.lic(holed, v).compute(scheduler="sync")


def test_each_tile_task_reads_only_the_field_window_its_lines_reach(monkeypatch):
    import muskeip.dask as mdask
    u, v = spiral(400, 500)
    seen = []
    original = mdask._compute

    def recording(settings, field, texture, tile, earlier, origin, field_size, *texture_window):
        seen.append((tile, field.shape, origin, texture.shape))
        return original(settings, field, texture, tile, earlier, origin, field_size,
                        *texture_window)

    monkeypatch.setattr(mdask, "_compute", recording)
    got = muskeip.dask.lic(u, v, chunks=100, tile=64, length=8).compute(scheduler="sync")
    np.testing.assert_array_equal(got, muskeip.lic(u, v, tile=64, length=8))
    assert len(seen) == 8 * 7
    for tile, shape, (x0, y0), texture_shape in seen:
        assert texture_shape[0] * texture_shape[1] < 400 * 500 / 2, (tile, texture_shape)
        # the tile grown by the lines' reach on each side, well short of the whole field
        assert shape[0] * shape[1] < 400 * 500 / 2, (tile, shape)
        tx, ty = tile % 8 * 64, tile // 8 * 64
        assert x0 <= tx and y0 <= ty and x0 + shape[1] >= min(tx + 64, 500)


def test_damaged_partials_and_earlier_records_are_refused():
    # What the tasks pass between processes is checked where it is used: a damaged partial or
    # a wrong count of earlier records raises instead of reading or writing out of place.
    from muskeip import _muskeip

    u, v = spiral(29, 33)
    field = np.dstack([u, v]).astype(np.float32)
    texture = _muskeip._noise(97, 83, 0, 5)
    settings = _muskeip._engine_settings(length=8.0, tile=32)
    geometry, records, overflow = _muskeip._compute_tile(settings, field, texture, 5, None)
    assert geometry[:4] == (32, 32, 64, 64) and records.shape[2] == 2
    area = np.full((40, 40, 2), 7, np.int32)
    no_picture = ((0,) * 8 + (0, 83, 2, 0), np.zeros((0, 0, 2), np.int32),
                  np.zeros((0, 3), np.int32))
    with pytest.raises(ValueError, match="for a 0 x 83 picture"):
        _muskeip._add_to_area(no_picture, 30, 30, 40, 40, area, True)
    huge = (0, 0, 1, 1, 0, 0, 2**31 - 1, 2**31 - 1, 2**31 - 1, 2**31 - 1, 2, 0)
    with pytest.raises(ValueError, match="does not match its geometry"):
        _muskeip._add_to_area((huge, records, overflow), 30, 30, 40, 40, area, True)
    with pytest.raises(ValueError, match="names pixel 8051, outside its 97 x 83 picture"):
        _muskeip._add_to_area((geometry, records, np.array([[97 * 83, 1, 1]], np.int32)),
                              30, 30, 40, 40, area, True)
    assert (area == 7).all()
    _muskeip._add_to_area((geometry, records, overflow), 30, 30, 40, 40, area, True)
    assert (area != 7).any()
    with pytest.raises(ValueError, match="hold 2047 ints, its 32 x 32 pixels need 2048"):
        _muskeip._compute_tile(settings, field, texture, 5, np.zeros(2047, np.int32))
    with pytest.raises(ValueError, match="no picture from 0 x 0 records"):
        _muskeip._normalize_records(np.zeros((0, 0, 2), np.int32), 1, 1)
    with pytest.raises(ValueError, match="at least 1 x 1 pixels, not 0 x 5"):
        _muskeip._noise(0, 5, 0, 1)
