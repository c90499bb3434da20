"""muskeip.Image: zero-copy views, construction, PNM files and their messages, operations."""
import copy
import logging
import pickle

import numpy as np
import pytest

import muskeip


class TestViews:
    def test_array_and_image_share_pixels(self):
        image = muskeip.Image(4, 3, 3)
        view = np.asarray(image)
        assert view.shape == (3, 4, 3) and view.dtype == np.uint8 and not view.any()
        view[0, 1] = (10, 20, 30)  # row 0 is the picture's bottom row
        assert image.getStatistics()[0] == pytest.approx(60 / 36)
        image.clear(9)
        assert (view == 9).all()

    def test_grey_view_is_two_dimensional_and_keeps_the_image_alive(self):
        view = np.asarray(muskeip.Image(5, 2))
        view[:] = 3
        assert view.shape == (2, 5) and int(view.sum()) == 30
        assert memoryview(muskeip.Image(5, 2, 3)).shape == (2, 5, 3)

    def test_construction_copies_any_memory_order(self):
        source = np.arange(24, dtype=np.uint8).reshape(4, 6)
        for array in (source, np.asfortranarray(source), source[::-1][::-1], source.tolist()):
            image = muskeip.Image(np.asarray(array, dtype=np.uint8))
            np.testing.assert_array_equal(np.asarray(image), source)
        image = muskeip.Image(source)
        source[0, 0] = 99
        assert np.asarray(image)[0, 0] == 0
        np.testing.assert_array_equal(np.asarray(muskeip.Image(source[:, ::2])), source[:, ::2])

    def test_copies_and_pickles_are_deep(self):
        image = muskeip.Image(np.arange(12, dtype=np.uint8).reshape(2, 2, 3))
        for other in (image.copy(), copy.copy(image), copy.deepcopy(image),
                      pickle.loads(pickle.dumps(image))):
            np.testing.assert_array_equal(np.asarray(other), np.asarray(image))
            np.asarray(other)[:] = 0
            assert np.asarray(image).any()

    @pytest.mark.parametrize("args, error", [
        ((0, 5), ValueError), ((5, 5, 2), ValueError), ((np.zeros((2, 2), np.float32),), TypeError),
        ((np.zeros((2, 2, 4), np.uint8),), ValueError), ((np.zeros((0, 3), np.uint8),), ValueError),
        ((np.zeros(5, np.uint8),), ValueError)])
    def test_bad_construction(self, args, error):
        with pytest.raises(error):
            muskeip.Image(*args)


class TestPNM:
    def test_rows_are_written_top_first_and_read_back(self, tmp_path):
        pixels = np.array([[1, 2, 3], [4, 5, 6]], np.uint8)  # row 0 is the bottom row
        muskeip.Image(pixels).writePNM(tmp_path / "a.pgm")
        assert (tmp_path / "a.pgm").read_bytes() == b"P5\n3 2\n255\n\x04\x05\x06\x01\x02\x03"
        muskeip.Image(pixels).writePNM(str(tmp_path / "b.pgm"), ascii=True)
        assert (tmp_path / "b.pgm").read_bytes() == b"P2\n3 2\n255\n004  005  006  001  002  003  "
        np.testing.assert_array_equal(np.asarray(muskeip.Image.readPNM(tmp_path / "a.pgm")), pixels)

    def test_read_failure_carries_the_library_message(self, tmp_path, capfd):
        path = tmp_path / "bad.pnm"
        path.write_bytes(b"P5 3 2 255\n")
        with pytest.raises(OSError) as raised:
            muskeip.Image.readPNM(path)
        assert str(raised.value) == f"FLIC error: can't open {path} (couldn't read dimensions)"
        assert capfd.readouterr().err == ""

    def test_write_failure_carries_the_library_message_and_prints_nothing(self, tmp_path, capfd):
        path = tmp_path / "missing" / "x.pgm"
        with pytest.raises(OSError, match=r"^FlicImage: Can't open file .*missing/x.pgm$"):
            muskeip.Image(2, 2).writePNM(path)
        with pytest.raises(OSError, match="FlicImage: Can't write histogram"):
            muskeip.Image(2, 2).writeHistogram(path)
        assert capfd.readouterr() == ("", "")

    def test_histogram_file_and_mean_record(self, tmp_path, caplog, capfd):
        image = muskeip.Image(np.array([[0, 0, 255, 7]], np.uint8))
        with caplog.at_level(logging.INFO, logger="muskeip"):
            image.writeHistogram(tmp_path / "h.txt")
        lines = (tmp_path / "h.txt").read_text().splitlines()
        assert len(lines) == 256 and lines[0] == "0 2" and lines[7] == "7 1" and lines[255] == "255 1"
        assert [r.getMessage() for r in caplog.records] == ["Mean = 65.5"]
        assert capfd.readouterr().out == ""


class TestOperations:
    def test_random_noise_is_seeded(self):
        a, b = muskeip.Image(30, 20), muskeip.Image(30, 20)
        a.createRandom(True, 7)
        b.createRandom(binary=True, seed=7)
        np.testing.assert_array_equal(np.asarray(a), np.asarray(b))
        assert set(np.unique(np.asarray(a))) == {0, 255}
        b.createRandom(True, None)
        assert not np.array_equal(np.asarray(a), np.asarray(b))
        with pytest.raises(ValueError, match="seed"):
            a.createRandom(False, 0)

    def test_sampling_takes_x_then_y(self):
        image = muskeip.Image(np.array([[0, 40, 80, 120, 160], [0] * 5], np.uint8))
        assert image.interp(3.5, 0) == 140 and image.interpConst(3.0, 0.25) == 120
        with pytest.raises(ValueError, match="grey"):
            muskeip.Image(5, 5, 3).interp(0, 0)

    def test_channels_grey_and_glue(self):
        red = np.full((2, 3), 200, np.uint8)
        green = np.full((2, 3), 100, np.uint8)
        blue = np.full((2, 3), 50, np.uint8)
        rgb = muskeip.Image.glue(muskeip.Image(red), muskeip.Image(green), muskeip.Image(blue))
        assert rgb.shape == (2, 3, 3) and tuple(np.asarray(rgb)[1, 2]) == (200, 100, 50)
        np.testing.assert_array_equal(np.asarray(rgb.oneband(1)), green)
        assert (np.asarray(rgb.colorToGrey()) == int(0.3 * 200 + 0.59 * 100 + 0.11 * 50)).all()
        with pytest.raises(ValueError, match="band"):
            rgb.oneband(3)
        with pytest.raises(ValueError, match="same size"):
            muskeip.Image.glue(muskeip.Image(red), muskeip.Image(green[:1]), muskeip.Image(blue))

    def test_mix_multiply_brighten(self):
        colour = muskeip.Image(np.full((2, 2, 3), (255, 0, 0), np.uint8))
        grey = muskeip.Image(np.full((2, 2), 64, np.uint8))
        mixed = colour.mix(grey)
        assert tuple(np.asarray(mixed)[0, 0]) == (128, 0, 0)
        assert tuple(np.asarray(colour.multiply(grey))[0, 0]) == (64, 0, 0)
        assert np.asarray(grey.brighten(32, 96))[0, 0] == 127
        assert np.asarray(grey)[0, 0] == 64  # operations return new images
        with pytest.raises(ValueError, match="one image must be grey"):
            grey.mix(grey)
        with pytest.raises(ValueError, match="same size"):
            grey.multiply(muskeip.Image(3, 2))
        with pytest.raises(ValueError, match="differ"):
            grey.brighten(5, 5)
