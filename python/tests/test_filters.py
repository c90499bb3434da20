"""Image filters: packed convolution, Gaussian blur, median, zoom, emboss."""
import logging
import math

import numpy as np
import pytest

import muskeip


def grey(rows):
    return muskeip.Image(np.array(rows, np.uint8))


class TestConvolution:
    def test_known_kernels(self):
        line = grey([[0, 0, 100, 0, 0]])
        assert np.asarray(line.convolve([0.5, 0.25])).tolist() == [[0, 25, 50, 25, 0]]
        flat = muskeip.Image(np.full((12, 15), 77, np.uint8))
        assert (np.asarray(flat.gaussBlur(4)) == 79).all()  # n = 4 rounds 77 up twice

    def test_filter_sum_warning_becomes_a_record(self, caplog, capfd):
        with caplog.at_level(logging.WARNING, logger="muskeip"):
            darker = grey([[100, 200]]).convolve([0.9])
        assert np.asarray(darker).tolist() == [[81, 162]]  # 0.9 along rows, then along columns
        assert [r.getMessage() for r in caplog.records] == ["Warning: filter sum != 1 (=0.900000)"]
        assert capfd.readouterr().err == ""

    def test_bad_kernels_and_blur_sizes_are_refused_instead_of_ending_the_process(self):
        with pytest.raises(ValueError, match=r"\|1.000000\|\+\|-0.500000\|\+\|0.000000\| > 1"):
            grey([[1, 2]]).convolve([2.0, -0.5])
        with pytest.raises(ValueError, match="1 to 9"):
            grey([[1, 2]]).convolve([0.1] * 10)
        with pytest.raises(ValueError, match="finite"):
            grey([[1, 2]]).convolve([float("nan")])
        for n in (0, 10):
            with pytest.raises(ValueError, match="1 .. 9"):
                grey([[1, 2]]).gaussBlur(n)

    @pytest.mark.parametrize("name, args", [("gaussBlur", (2,)), ("medianFilter", ()),
                                            ("convolve", ([1.0],))])
    def test_grey_filters_refuse_colour(self, name, args):
        with pytest.raises(ValueError, match="grey"):
            getattr(muskeip.Image(4, 4, 3), name)(*args)

    def test_median_removes_a_spike_and_keeps_an_edge(self):
        flat = np.full((5, 5), 10, np.uint8)
        flat[2, 2] = 250
        flat[:, 4] = 90
        result = np.asarray(muskeip.Image(flat).medianFilter())
        assert result[2, 2] == 10 and (result[:, 4] == 90).all()


class TestZoom:
    def test_width_then_height(self):
        assert np.asarray(grey([[0, 100]]).zoom(4, 1)).tolist() == [[0, 50, 100, 100]]
        assert muskeip.Image(5, 4, 3).zoom(3, 12).shape == (12, 3, 3)
        with pytest.raises(ValueError, match="new size"):
            grey([[1]]).zoom(0, 5)

    def test_lic_resamples_a_texture_to_size(self):
        y, x = np.mgrid[0:30, 0:40].astype(np.float32) - 15
        texture = np.random.default_rng(6).integers(0, 256, (25, 35), dtype=np.uint8)
        zoomed = np.asarray(muskeip.Image(texture).zoom(70, 50))
        picture = muskeip.lic(-y, x, texture, size=(70, 50))
        assert picture.shape == (50, 70)
        np.testing.assert_array_equal(picture, muskeip.lic(-y, x, zoomed))


class TestEmboss:
    def test_flat_image_under_a_light_from_above(self):
        relief = np.asarray(muskeip.Image(np.full((5, 6), 90, np.uint8)).emboss(0, math.pi / 2))
        assert (relief[1:-1, 1:-1] == 255).all()
        assert (relief[0] == 128).all() and (relief[:, 0] == 128).all()
        dark = np.asarray(muskeip.Image(np.full((5, 6), 90, np.uint8)).emboss(0, 0, 3))
        assert (dark[1:-1, 1:-1] == 0).all()
        with pytest.raises(ValueError, match="width45"):
            muskeip.Image(5, 5).emboss(0, 1, 0)

    def test_field_form_blacks_out_flow_free_grey_pixels(self):
        image = muskeip.Image(np.full((6, 6), 200, np.uint8))
        assert not np.asarray(image.emboss(muskeip.VectorField(6, 6))).any()
        field = muskeip.VectorField(3, 3)
        field.setCircle(0)
        colour = muskeip.Image(np.full((6, 6, 3), 200, np.uint8)).emboss(field)
        assert colour.shape == (6, 6, 3) and np.asarray(colour)[2:4, 2:4].any()
