"""muskeip.dask with a field larger than a worker's memory: an 8192^2 field of float64
(1 GB), made chunk by chunk on the workers, on a LocalCluster of 2 worker processes limited
to 600 MB each; every tile task holds only the windows of the field and the noise its lines
reach. The picture is compared with the in-process engine's on the same field."""
import numpy as np
import pytest

import muskeip

da = pytest.importorskip("dask.array")
distributed = pytest.importorskip("distributed")

SIZE = 8192


def chunk(block, block_info=None, which=0):
    (y0, y1), (x0, x1) = block_info[None]["array-location"]
    y, x = np.mgrid[y0:y1, x0:x1] / (SIZE - 1.0)
    ax, ay, bx, by = x - 0.3, y - 0.45, x - 0.72, y - 0.6
    weight = np.exp(-(ax * ax + ay * ay) * 12.0)
    return -ay * weight + 0.6 * bx if which == 0 else ax * weight - 0.6 * by


def test_a_field_larger_than_each_workers_memory_completes():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                       dashboard_address=None, memory_limit="600MB")
    with distributed.Client(cluster):
        u, v = (da.zeros((SIZE, SIZE), chunks=1024).map_blocks(chunk, which=k, dtype=np.float64)
                for k in (0, 1))
        assert u.nbytes + v.nbytes > 600e6
        picture = muskeip.dask.lic(u, v, tile=512).compute()
    cluster.close()
    # The same field in this process (float64 -> float32 as the tasks take it).
    expected = muskeip.lic(u.compute(scheduler="sync"), v.compute(scheduler="sync"), tile=512)
    np.testing.assert_array_equal(picture, expected)
