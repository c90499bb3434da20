"""muskeip.Graphics: drawing into images and their views, command files and their messages."""
import numpy as np
import pytest

import muskeip


def test_lines_and_points_appear_in_existing_views():
    image = muskeip.Image(8, 6)
    view = np.asarray(image)
    pen = muskeip.Graphics()
    pen.setColor(255, 255, 255)
    pen.drawLine(image, 0, 0, 7, 0)
    assert (view[0] == 255).all() and not view[1:].any()
    pen.setPixelWidth(2)
    pen.drawPixel(image, 4, 3)  # written on rows y, y + 1 and columns x - 1, x
    assert np.argwhere(view[1:] == 255).tolist() == [[2, 3], [2, 4], [3, 3], [3, 4]]
    assert pen.color == (255, 255, 255, 255) and pen.pixelWidth == 2


def test_command_files_draw_in_place_unless_a_grey_image_turns_rgb(tmp_path):
    grey, red = tmp_path / "grey.gfx", tmp_path / "red.gfx"
    grey.write_text("FLIC GRAPHICS\ncolor 0.5 0.5 0.5\npoints 1 1 2 2\n")
    red.write_text("FLIC GRAPHICS\ncolor 1 0 0\ncanvas 0 0 1 1\nline 0 0.5 1 0.5\n")
    image = muskeip.Image(10, 10)
    view = np.asarray(image)
    muskeip.Graphics().drawFile(image, grey)  # a grey colour keeps the image grey
    assert np.argwhere(view == 127).tolist() == [[1, 1], [2, 2]]
    with pytest.raises(BufferError):
        muskeip.Graphics().drawFile(image, red)
    assert image.channels == 1 and np.count_nonzero(view) == 2  # nothing drawn
    del view
    muskeip.Graphics().drawFile(image, red)
    assert image.shape == (10, 10, 3)
    assert np.asarray(image)[5].tolist() == [[255, 0, 0]] * 10


def test_file_failure_keeps_what_was_drawn(tmp_path):
    path = tmp_path / "bad.gfx"
    path.write_text("FLIC GRAPHICS\nline 0 0 5 5\nwidth\n")
    image = muskeip.Image(8, 8)
    pen = muskeip.Graphics()
    pen.setColor(9, 9, 9)
    with pytest.raises(OSError) as raised:
        pen.drawFile(image, path)
    assert str(raised.value) == "FLIC error: expecting 'width n'"
    assert (np.asarray(image) == 9).sum() == 6


def test_mesh_edges(tmp_path):
    path = tmp_path / "mesh.inp"
    path.write_text("3 1\n-\n0 0\n1 0\n0 1\n-\n1 2 3\n")
    image = muskeip.Image(101, 101)
    pen = muskeip.Graphics()
    pen.setColor(255, 255, 255)
    pen.drawUCD(image, path)
    view = np.asarray(image)
    assert view[0].all() and view[:, 0].all() and view[50, 51] == 255
    with pytest.raises(OSError, match="can't open"):
        pen.drawUCD(image, tmp_path / "none.inp")


def test_bad_colour_and_width():
    pen = muskeip.Graphics()
    with pytest.raises(ValueError):
        pen.setColor(256, 0, 0)
    with pytest.raises(ValueError):
        pen.pixelWidth = -1
    with pytest.raises(ValueError, match="coordinates"):
        pen.drawLine(muskeip.Image(4, 4), 0, 0, 2_000_000_000, 0)
