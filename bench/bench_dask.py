"""muskeip.dask.lic on a LocalCluster of 2 worker processes against the in-process tiled
engine on 2 threads (muskeip.lic), at 8192^2, L = 20, tiles of 256: wall times (median of the
rounds, the two alternating) and the peak resident memory of each worker process.

    PYTHONPATH=build/python/module /usr/bin/python3 bench/bench_dask.py [size] [rounds]
"""
import os
import statistics
import sys
import time

import numpy as np

import muskeip
import muskeip.dask


def field(size):
    y, x = np.mgrid[0:size, 0:size].astype(np.float32) / (size - 1)
    ax, ay, bx, by = x - 0.3, y - 0.45, x - 0.72, y - 0.6
    weight = np.exp(-(ax * ax + ay * ay) * 12.0)
    return (-ay * weight + 0.6 * bx).astype(np.float32), (ax * weight - 0.6 * by).astype(np.float32)


def reset_peak():
    """Starts the peak resident memory afresh: a worker forked from this process would
    otherwise report this process's peak as its own."""
    with open("/proc/self/clear_refs", "w") as f:
        f.write("5")


def peak_kilobytes():
    with open("/proc/self/status") as f:
        return int(f.read().split("VmHWM:")[1].split()[0])


def main():
    import dask.array as da
    import distributed

    size = int(sys.argv[1]) if len(sys.argv) > 1 else 8192
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    u, v = field(size)
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                       dashboard_address=None, memory_limit="6GB")
    client = distributed.Client(cluster)
    du, dv = da.from_array(u, chunks=1024), da.from_array(v, chunks=1024)
    local, tasks = [], []
    client.run(reset_peak)
    for _ in range(rounds):
        start = time.perf_counter()
        expected = muskeip.lic(u, v, tile=256, threads=2)
        local.append(time.perf_counter() - start)
        start = time.perf_counter()
        got = muskeip.dask.lic(du, dv, tile=256).compute()
        tasks.append(time.perf_counter() - start)
        assert np.array_equal(got, expected)
    peaks = client.run(peak_kilobytes)
    print("%d^2, L = 20, tiles of 256, load %.2f %.2f %.2f" % ((size,) + os.getloadavg()))
    print("in-process, 2 threads:    %.2f s (median of %d)" % (statistics.median(local), rounds))
    print("dask, 2 worker processes: %.2f s (median of %d), identical bytes" %
          (statistics.median(tasks), rounds))
    for worker, kilobytes in sorted(peaks.items()):
        print("  peak resident memory of %s: %.0f MB" % (worker, kilobytes / 1024))
    client.close()
    cluster.close()


if __name__ == "__main__":
    main()
