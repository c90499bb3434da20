"""muskeip.render: the command line's picture from numpy, the colour maps, and bad keywords."""
import os
import subprocess

import numpy as np
import pytest

import muskeip
from conftest import big_endian_vector_file, circle_components

CLI = os.environ.get("MUSKEIP_CLI")


def read_pnm(path):
    """The pixels of a binary P5/P6 file as a numpy array, row 0 the bottom row (the file's
    last) as muskeip's arrays have it."""
    data = open(path, "rb").read()
    fields, position = [], 0
    while len(fields) < 4:
        while data[position:position + 1].isspace():
            position += 1
        end = position
        while not data[end:end + 1].isspace():
            end += 1
        fields.append(data[position:end])
        position = end
    width, height = int(fields[1]), int(fields[2])
    channels = 3 if fields[0] == b"P6" else 1
    pixels = np.frombuffer(data[position + 1:], dtype=np.uint8)
    return pixels.reshape((height, width, channels) if channels == 3 else (height, width))[::-1]


@pytest.mark.skipif(not CLI, reason="MUSKEIP_CLI (set by CTest) not given")
@pytest.mark.parametrize("arguments, keywords", [
    ([], {}),
    (["--colour", "magnitude", "--colormap", "blue-white-red", "--emboss"],
     dict(colour="magnitude", colormap="blue-white-red", emboss="field")),
    (["--colour", "direction", "--blend", "overlay", "--blur", "2", "--zoom", "50x40"],
     dict(colour="direction", blend="overlay", blur=2, zoom=(50, 40))),
    (["--enhance", "--equalize", "adaptive,4,3", "--adjust", "100,30", "--median"],
     dict(enhance=True, equalize=("adaptive", 4, 3), adjust=(100, 30), median=True)),
    (["--colour", "magnitude", "--blend", "lightness", "--range", "2,20",
      "--emboss=30,45,5"],
     dict(colour="magnitude", blend="lightness", range=(2, 20), emboss=(30, 45, 5))),
])
def test_render_gives_the_command_lines_bytes(tmp_path, arguments, keywords):
    u, v = circle_components(40, 30)
    big_endian_vector_file(tmp_path / "f.vec", u, v)
    out = tmp_path / ("p.ppm" if keywords.get("colour") else "p.pgm")
    subprocess.run([CLI, "-q", "lic", str(tmp_path / "f.vec"), "-o", str(out), "--size",
                    "80x60", "--tile", "0"] + arguments, check=True)
    picture = muskeip.render(u, v, size=(80, 60), noise="binary", seed=1, tile=0, **keywords)
    assert np.array_equal(read_pnm(out), picture)


def test_colour_from_an_array_and_the_default_maps():
    u, v = circle_components(40, 30)
    magnitude = np.hypot(u, v)
    by_array = muskeip.render(u, v, size=(80, 60), colour=magnitude, seed=2)
    by_field = muskeip.render(u, v, size=(80, 60), colour="magnitude", seed=2)
    assert by_array.shape == (60, 80, 3)
    # The same values through the same map: nearly the same picture (resampled differently).
    assert np.mean(np.abs(by_array.astype(int) - by_field)) < 8
    grey = muskeip.render(u, v, size=(80, 60), seed=2)
    assert grey.shape == (60, 80)
    values = grey[grey > 0].astype(float)
    assert abs(values.mean() - 128) < 1 and abs(values.std(ddof=1) - 40) < 1
    raw = muskeip.lic(u, v, size=(80, 60), seed=2)  # lic keeps returning the raw LIC
    assert raw.std() < 30


def test_tables_match_their_reference_at_eight_points():
    colormaps = pytest.importorskip("matplotlib").colormaps
    for name in ["viridis", "magma", "inferno", "plasma", "cividis", "twilight"]:
        values = np.linspace(0.0, 1.0, 8)
        field = np.tile(values, (2, 1)).astype(np.float32)
        # Colour a 8 x 2 scalar field through the map over 0..1 and compare with the reference.
        picture = muskeip.render(np.ones_like(field), np.zeros_like(field), size=(8, 2),
                                 colour=field, colormap=name, range=(0, 1), adjust=None,
                                 blend="overlay", texture=np.full((2, 8), 128, np.uint8))
        reference = colormaps[name](values)[:, :3] * 255
        # Bytes rounded twice (map, overlay); twilight is resampled from 510 entries.
        tolerance = 3 if name == "twilight" else 2.5
        assert np.abs(picture[0].astype(float) - reference).max() <= tolerance, name


@pytest.mark.parametrize("keywords, error, text", [
    (dict(colormap="viridis"), ValueError, "colormap needs colour"),
    (dict(colour="speed"), ValueError, "colour must be None, 'magnitude'"),
    (dict(colour="magnitude", colormap="no-such-map"), OSError, "neither a preset (grey"),
    (dict(blend="screen"), ValueError, "blend must be one of"),
    (dict(blur=12), ValueError, "blur must be 0 .. 9"),
    (dict(adjust=(128, 0)), ValueError, "sdev above 0"),
    (dict(equalize=("adaptive", 1)), ValueError, "tiles must be 2 .. 64"),
    (dict(emboss=(1, 2, 0.5)), ValueError, "steepness"),
    (dict(colour=np.zeros(5)), ValueError, "2-D array"),
    (dict(_frames=2), TypeError, "_frames"),
])
def test_bad_keywords_raise(keywords, error, text):
    u, v = circle_components(16, 16)
    with pytest.raises(error) as raised:
        muskeip.render(u, v, **keywords)
    assert text in str(raised.value)
