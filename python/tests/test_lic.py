"""muskeip.lic: identity with the C++ engine, forms of the field, parameters, errors."""
import logging
import os
import subprocess

import numpy as np
import pytest

import muskeip
from conftest import big_endian_vector_file, circle_components


REFERENCE = os.environ.get("MUSKEIP_LIC_REFERENCE")

SETTINGS = [
    ({}, []),
    ({"length": 5.0, "kernel": "box"}, ["length=5", "kernel=0"]),
    ({"length": 9.0, "kernel": "cubic"}, ["length=9", "kernel=2"]),
    ({"integrator": "euler"}, ["euler=1"]),
    ({"integrator": "midpoint"}, ["euler=1"]),
    ({"subpixels": 2, "length": 8.0}, ["subpixels=2", "length=8"]),
    ({"seeding": "raster"}, ["seeding=0"]),
    ({"seeding": "sobol", "subpixels": 2}, ["seeding=2", "subpixels=2"]),
    ({"interpolation": "constant"}, ["interpolation=0"]),
    ({"normalization": 0.5}, ["normalization=0.5"]),
    ({"length": 0.4}, ["length=0.4"]),
    ({"tile": 16, "threads": 3}, ["tile=16"]),
    ({"tile": 16, "simd_lanes": 1}, ["tile=16"]),
    ({"tile": 0, "seeding": "sobol"}, ["tile=0", "seeding=2"]),
    ({"border": ("closed", "periodic"), "orientation": True, "passes": 2},
     ["border=1,0", "orientation=1", "passes=2"]),
    ({"border": "closed", "tile": 16}, ["border=1,1", "tile=16"]),
]


@pytest.mark.skipif(not REFERENCE, reason="MUSKEIP_LIC_REFERENCE (set by CTest) not given")
class TestSameBytesAsCpp:
    @pytest.mark.parametrize("channels", [1, 3])
    @pytest.mark.parametrize("options, arguments", SETTINGS)
    def test_picture_equals_the_cpp_engine(self, tmp_path, options, arguments, channels):
        u, v = circle_components(40, 30)
        u = u + 0.3 * v * v / 20  # not symmetric, so mirrored rows would show
        big_endian_vector_file(tmp_path / "field.vec", u, v)
        rng = np.random.default_rng(channels)
        shape = (45, 70) if channels == 1 else (45, 70, 3)
        muskeip.Image(rng.integers(0, 256, shape, dtype=np.uint8)).writePNM(tmp_path / "tex.pnm")
        subprocess.run([REFERENCE, str(tmp_path / "field.vec"), str(tmp_path / "tex.pnm"),
                        str(tmp_path / "cpp.pnm")] + arguments, check=True)

        field = muskeip.VectorField.read(tmp_path / "field.vec")
        texture = np.asarray(muskeip.Image.readPNM(tmp_path / "tex.pnm"))
        picture = muskeip.lic(field, texture=texture, **options)
        muskeip.Image(picture).writePNM(tmp_path / "python.pnm")
        assert (tmp_path / "python.pnm").read_bytes() == (tmp_path / "cpp.pnm").read_bytes()


class TestFieldForms:
    def test_every_form_of_the_field_gives_the_same_picture(self, circle, noise):
        u, v = circle
        expected = muskeip.lic(u, v, noise)
        stacked = np.stack([u, v], axis=-1)
        same = [
            muskeip.lic(u.astype(np.float64) + 1e-12, v.astype(np.float64), noise),  # rounded
            muskeip.lic(np.asfortranarray(u), np.asfortranarray(v), noise),
            muskeip.lic(u.astype(np.longdouble), v.astype(np.float16).astype(np.float32), noise),
            muskeip.lic(stacked, texture=noise),
            muskeip.lic(stacked[::-1][::-1], texture=np.asfortranarray(noise)),
            muskeip.lic(muskeip.VectorField(u, v), texture=noise),
            muskeip.lic(u.tolist(), v.tolist(), noise),
        ]
        for picture in same:
            np.testing.assert_array_equal(picture, expected)


class TestParameters:
    def test_noise_and_seed(self, circle):
        u, v = circle
        binary = muskeip.lic(u, v, noise="binary", length=0)
        assert set(np.unique(binary)) == {0, 255}
        uniform = muskeip.lic(u, v, seed=7, length=0)
        assert not np.array_equal(uniform, muskeip.lic(u, v, seed=8, length=0))
        continued = muskeip.lic(u, v, seed=None, length=0)
        assert not np.array_equal(continued, muskeip.lic(u, v, seed=None, length=0))
        reference = muskeip.Image(64, 48)
        reference.createRandom(False, 7)
        np.testing.assert_array_equal(uniform, np.asarray(reference))

    def test_nan_nodes_are_no_data_and_masked(self, circle):
        u, v = (c.astype(np.float32) for c in circle)
        u[10:14, 10:14] = np.nan
        picture = muskeip.lic(u, v, size=(96, 80))
        assert isinstance(picture, np.ma.MaskedArray) and picture.dtype == np.uint8
        assert picture.mask[int(12 / u.shape[0] * 80), int(12 / u.shape[1] * 96)]
        assert 0 < picture.mask.mean() < 0.2
        assert not isinstance(muskeip.lic(*circle), np.ma.MaskedArray)

    def test_animate_gives_frames_of_one_trace(self, circle, noise):
        u, v = circle
        frames = muskeip.animate(u, v, noise, frames=4, length=9)
        assert frames.shape == (4,) + noise.shape and frames.dtype == np.uint8
        assert not np.array_equal(frames[0], frames[1])
        still = muskeip.lic(u, v, noise, length=9, kernel="box")
        for frame in muskeip.animate(u, v, noise, frames=3, ripples=0, length=9):
            np.testing.assert_array_equal(frame, still)
        colour = np.dstack([noise, noise[::-1], noise[:, ::-1]])
        assert muskeip.animate(u, v, colour, frames=2).shape == (2,) + colour.shape
        with pytest.raises(ValueError, match="frames"):
            muskeip.animate(u, v, frames=0)
        with pytest.raises(ValueError, match="passes apply to still pictures"):
            muskeip.animate(u, v, frames=2, passes=2)

    def test_size_sets_the_noise_and_picture_size(self, circle):
        u, v = circle
        picture = muskeip.lic(u, v, size=(200, 150))
        assert picture.shape == (150, 200)
        assert picture.std() > 3

    def test_seed_map_holds_mask_values_at_seeds_and_1_elsewhere(self, circle, noise):
        u, v = circle
        mask = np.full(u.shape, 200, np.uint8)
        picture, seeds = muskeip.lic(u, v, noise, mask=mask, return_seedmap=True)
        np.testing.assert_array_equal(picture, muskeip.lic(u, v, noise))
        assert seeds.shape == noise.shape and seeds.dtype == np.uint8
        assert set(np.unique(seeds)) == {1, 200}
        # Without a mask, as on the command line, the seeds are white.
        picture, seeds = muskeip.lic(u, v, noise, return_seedmap=True)
        assert set(np.unique(seeds)) == {1, 255}

    def test_messages_go_to_logging_not_stderr(self, circle, noise, caplog, capfd):
        u, v = circle
        with caplog.at_level(logging.INFO, logger="muskeip"):
            muskeip.lic(u, v, noise, length=7, kernel="box", subpixels=2)
        texts = [r.getMessage() for r in caplog.records if r.name == "muskeip"]
        assert texts[0] == "computing LIC image (L=7, filter=box, mask=2x2)" and len(texts) == 5
        assert texts[1].startswith("LIC: tiled mode (tile size ") and "lanes" in texts[1]
        assert capfd.readouterr().err == ""


F = np.zeros((20, 30), np.float32)
T = np.zeros((20, 30), np.uint8)

BAD_CALLS = [
    (TypeError, "floating-point", lambda: muskeip.lic(F.astype(int), F)),
    (TypeError, "uint8", lambda: muskeip.lic(F, F, T.astype(np.float32))),
    (TypeError, "uint8", lambda: muskeip.lic(F, F, mask=T.astype(np.int8))),
    (TypeError, "must be an array", lambda: muskeip.lic(None, F)),
    (TypeError, "omitted", lambda: muskeip.lic(muskeip.VectorField(30, 20), F)),
    (ValueError, "2-D", lambda: muskeip.lic(F[0], F[0])),
    (ValueError, "same shape", lambda: muskeip.lic(F, F[:, :-1])),
    (ValueError, "(H, W, 2)", lambda: muskeip.lic(np.zeros((20, 30, 3)))),
    (ValueError, "(H, W, 2)", lambda: muskeip.lic(F)),
    (ValueError, "2 x 2", lambda: muskeip.lic(F[:1], F[:1])),
    (ValueError, "(H, W) or (H, W, 3)", lambda: muskeip.lic(F, F, np.zeros((20, 30, 4), np.uint8))),
    (ValueError, "2 x 2", lambda: muskeip.lic(F, F, T[:, :1])),
    (ValueError, "field's shape", lambda: muskeip.lic(F, F, mask=T[1:])),
    (ValueError, "2-D", lambda: muskeip.lic(F, F, mask=np.zeros((20, 30, 3), np.uint8))),
    (ValueError, "kernel must be one of", lambda: muskeip.lic(F, F, kernel="gauss")),
    (ValueError, "integrator", lambda: muskeip.lic(F, F, integrator="rk4")),
    (ValueError, "seeding", lambda: muskeip.lic(F, F, seeding="random")),
    (ValueError, "interpolation", lambda: muskeip.lic(F, F, interpolation="cubic")),
    (ValueError, "noise", lambda: muskeip.lic(F, F, noise="gaussian")),
    (ValueError, "length", lambda: muskeip.lic(F, F, length=-1)),
    (ValueError, "length", lambda: muskeip.lic(F, F, length=float("nan"))),
    (ValueError, "normalization", lambda: muskeip.lic(F, F, normalization=float("inf"))),
    (ValueError, "subpixels", lambda: muskeip.lic(F, F, subpixels=0)),
    (ValueError, "subpixels", lambda: muskeip.lic(F, F, subpixels=17)),
    (ValueError, "tile must be 0", lambda: muskeip.lic(F, F, tile=4)),
    (ValueError, "border must be one of", lambda: muskeip.lic(F, F, border="open")),
    (ValueError, "pair", lambda: muskeip.lic(F, F, border=("closed",))),
    (ValueError, "passes", lambda: muskeip.lic(F, F, passes=0)),
    (ValueError, "threads must be", lambda: muskeip.lic(F, F, threads=0)),
    (ValueError, "simd_lanes must be", lambda: muskeip.lic(F, F, simd_lanes=-1)),
    (ValueError, "seed", lambda: muskeip.lic(F, F, seed=0)),
    (TypeError, "seed", lambda: muskeip.lic(F, F, seed=1.5)),
    (ValueError, "size", lambda: muskeip.lic(F, F, size=(1, 5))),
    (ValueError, "size", lambda: muskeip.lic(F, F, size=(1, 2, 3))),
    (ValueError, "FLIC error: LIC: 100000 x 100000 x 1 texture too large for the work buffers",
     lambda: muskeip.lic(F, F, size=(100000, 100000))),
    (ValueError, "FLIC error: LIC: 40000 x 40000 x 1 texture too large for the work buffers",
     lambda: muskeip.lic(F, F, size=(40000, 40000))),
    (ValueError, "40000 x 40000 x 1 texture too large",
     lambda: muskeip.render(F, F, size=(40000, 40000), colour="magnitude", subpixels=1)),
    (TypeError, "size", lambda: muskeip.lic(F, F, size=(10.5, 5))),
    (TypeError, "positional arguments", lambda: muskeip.lic(F, F, F, T)),
]


@pytest.mark.parametrize("error, text, call", BAD_CALLS)
def test_bad_arguments_raise_before_any_work(error, text, call, caplog):
    with caplog.at_level(logging.INFO, logger="muskeip"):
        with pytest.raises(error) as raised:
            call()
    assert text in str(raised.value)
    assert not caplog.records  # the engine never started
