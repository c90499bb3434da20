"""muskeip.VectorField and ScalarField: views, files and their messages, generators."""
import pickle

import numpy as np
import pytest

import muskeip
from conftest import big_endian_vector_file


class TestVectorField:
    def test_view_is_float32_x_then_y_per_node(self):
        u = np.arange(6, dtype=np.float64).reshape(2, 3)
        field = muskeip.VectorField(u, -u)
        view = np.asarray(field)
        assert view.shape == (2, 3, 2) and view.dtype == np.float32
        np.testing.assert_array_equal(view[..., 0], u)
        view[1, 2] = (7, 8)
        assert field.getMax() == pytest.approx(np.hypot(7, 8))
        field.normalize()
        assert np.hypot(*view[1, 2]) == pytest.approx(1)
        assert pickle.loads(pickle.dumps(field)).shape == (2, 3, 2)

    def test_generators_index_rows_from_the_bottom(self):
        field = muskeip.VectorField(3, 3)
        field.setCircle(0)
        view = np.asarray(field)
        np.testing.assert_allclose(view[0, 0], (0.5, -0.5))  # node x = 0, y = 0
        linear = muskeip.VectorField(5, 5)
        linear.setLinear([[1, 0], [0, 1]], [0, 0])
        np.testing.assert_allclose(np.asarray(linear)[4, 0], (-2, 2))
        np.testing.assert_array_equal(np.asarray(muskeip.VectorField.saddle()),
                                      [[[-1, 1], [1, 1]], [[-1, -1], [1, -1]]])

    def test_derived_fields_and_colourings(self):
        ramp = muskeip.ScalarField(np.tile(np.arange(5, dtype=np.float32), (4, 1)))
        gradient = np.asarray(muskeip.VectorField.fromScalarField(ramp, np.pi / 2))
        np.testing.assert_allclose(gradient[..., 0], 2, atol=1e-6)
        np.testing.assert_allclose(gradient[..., 1], 0, atol=1e-6)
        field = muskeip.VectorField(np.dstack([np.full((4, 5), -1.0), np.zeros((4, 5))]))
        hues = field.vecToColor()
        assert hues.shape == (4, 5, 3) and tuple(np.asarray(hues)[0, 0]) == (255, 0, 0)
        assert field.vecToColor(size=(9, 7)).shape == (7, 9, 3)
        assert np.asarray(field.magnitude()).tolist() == [[1.0] * 5] * 4
        assert field.magnitude(size=(3, 2)).shape == (2, 3)
        assert field.resample(10, 8).shape == (8, 10, 2)
        image = muskeip.Image(np.tile(np.arange(0, 50, 10, dtype=np.uint8), (3, 1)))
        np.testing.assert_allclose(np.asarray(muskeip.VectorField.fromImage(image, np.pi / 2))[1, 2],
                                   (20, 0), atol=1e-5)

    def test_binary_file_is_read_big_endian_and_written_in_host_order(self, tmp_path):
        u = np.linspace(-1, 1, 12, dtype=np.float32).reshape(3, 4)
        big_endian_vector_file(tmp_path / "f.vec", u, 2 * u)
        field = muskeip.VectorField.read(tmp_path / "f.vec")
        np.testing.assert_array_equal(np.asarray(field), np.dstack([u, 2 * u]))
        field.write(tmp_path / "g.vec")
        again = np.asarray(muskeip.VectorField.read(tmp_path / "g.vec"))
        np.testing.assert_array_equal(again, np.asarray(field).byteswap())  # the kept asymmetry
        field.write(tmp_path / "h.vec", ascii=True)
        assert (tmp_path / "h.vec").read_text().startswith("FLIC VECTOR ASCII\n4 3\n-1 -2\n")

    def test_read_failure_carries_the_library_message(self, tmp_path):
        path = tmp_path / "bad.vec"
        path.write_bytes(b"FLIC VECTOR ASCII\n1 5\n")
        with pytest.raises(OSError) as raised:
            muskeip.VectorField.read(path)
        assert str(raised.value) == f"FLIC error: can't open {path} (illegal vector field dimensions)"

    def test_binary_file_that_ends_early_is_refused_with_the_counts(self, tmp_path):
        path = tmp_path / "short.vec"
        path.write_bytes(b"FLIC VECTOR BINARY\n4 4\n" + bytes(40))
        with pytest.raises(OSError) as raised:
            muskeip.VectorField.read(path)
        assert str(raised.value) == f"FLIC error: {path}: the binary data ends after 10 of 32 values"
        path.write_bytes(b"FLIC SCALAR BINARY\n3 2\n" + bytes(20))
        with pytest.raises(OSError, match="ends after 5 of 6 values"):
            muskeip.ScalarField.read(path)

    def test_mesh_import(self, tmp_path):
        path = tmp_path / "mesh.inp"
        path.write_text("3 1\n-\n0 0 1 0\n1 0 1 0\n0 1 1 0\n-\n1 2 3\n")
        field = np.asarray(muskeip.VectorField.readUCD(path, 8, 8))
        assert field.shape == (8, 8, 2) and (field[0, 0] == (1, 0)).all()
        path.write_text("3 1\n-\n0 0\n")
        with pytest.raises(OSError, match="FLIC error: expected to read 4 floats, got 2"):
            muskeip.VectorField.readUCD(path, 8, 8)

    @pytest.mark.parametrize("args, error", [
        ((1, 5), ValueError), ((np.zeros((3, 3, 3)),), ValueError),
        ((np.zeros((3, 3, 2), int),), TypeError), ((np.zeros((3, 3)), np.zeros((3, 2))), ValueError)])
    def test_bad_construction(self, args, error):
        with pytest.raises(error):
            muskeip.VectorField(*args)


class TestScalarField:
    def test_view_generators_and_range(self):
        field = muskeip.ScalarField(3, 3)
        field.createCircle()
        np.testing.assert_allclose(np.asarray(field), [[.5, .25, .5], [.25, 0, .25], [.5, .25, .5]])
        np.asarray(field)[2, 0] = -4
        assert field.getRange() == (-4.0, 0.5)

    def test_binary_round_trip_is_bit_identical(self, tmp_path):
        values = np.random.default_rng(2).normal(size=(6, 7)).astype(np.float32)
        field = muskeip.ScalarField(values)
        field.write(tmp_path / "s.dat")
        np.testing.assert_array_equal(np.asarray(field), values)
        assert (tmp_path / "s.dat").read_bytes().endswith(values.astype(">f4").tobytes())
        np.testing.assert_array_equal(np.asarray(muskeip.ScalarField.read(tmp_path / "s.dat")), values)

    def test_pseudo_colour_follows_the_map_range(self):
        field = muskeip.ScalarField(np.array([[0, 10], [5, 20]], np.float32))
        colormap = muskeip.Colormap()
        colormap.setMinMax(0, 10)
        picture = np.asarray(field.pseudoColor(colormap))
        assert picture.shape == (2, 2, 3)
        assert picture[:, :, 0].tolist() == [[0, 255], [127, 255]]
        assert field.pseudoColor(colormap, size=(6, 4)).shape == (4, 6, 3)
