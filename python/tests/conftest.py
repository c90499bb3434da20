"""Shared helpers of the muskeip module's tests."""
import numpy as np
import pytest


def circle_components(width, height):
    """(u, v) of a counter-clockwise vortex about the centre, rows growing upward."""
    y, x = np.mgrid[0:height, 0:width].astype(np.float32)
    x -= (width - 1) / 2.0
    y -= (height - 1) / 2.0
    return -y, x


def big_endian_vector_file(path, u, v):
    """A binary 'FLIC VECTOR' file as the reader expects it: big-endian floats."""
    height, width = u.shape
    values = np.stack([u, v], axis=-1).astype(">f4")
    with open(path, "wb") as f:
        f.write(b"FLIC VECTOR BINARY\n%d %d\n" % (width, height))
        f.write(values.tobytes())


@pytest.fixture
def circle():
    return circle_components(64, 48)


@pytest.fixture
def noise():
    rng = np.random.default_rng(5)
    return rng.integers(0, 256, size=(48, 64), dtype=np.uint8)
