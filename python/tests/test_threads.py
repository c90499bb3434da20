"""Concurrent use: threads get the results of sequential calls, and their own messages."""
import concurrent.futures
import logging
import sys
import threading
import time

import numpy as np
import pytest

import muskeip
from conftest import circle_components


def lic_job(k):
    u, v = circle_components(96, 80)
    u = u + k * 3.0
    kernel = ("box", "triangle", "cubic")[k % 3]
    return muskeip.lic(u, v, seed=k + 1, kernel=kernel, length=8 + k, subpixels=1 + k % 2)


def noise_job(k):
    image = muskeip.Image(64, 64)
    image.createRandom(k % 2 == 1, k + 1)
    return np.asarray(image).copy()


def blur_job(k):
    source = muskeip.Image(noise_job(k))
    return np.asarray(source.gaussBlur(1 + k % 9).zoom(50 + k, 40)).copy()


def run_in_threads(job, count, workers=4):
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        return list(pool.map(job, range(count)))


@pytest.mark.parametrize("job", [lic_job, noise_job, blur_job])
def test_threads_match_sequential_calls(job):
    count = 12 if job is lic_job else 40
    sequential = [job(k) for k in range(count)]
    for parallel, expected in zip(run_in_threads(job, count), sequential):
        np.testing.assert_array_equal(parallel, expected)


def test_each_thread_gets_its_own_messages(tmp_path):
    def read_missing(k):
        path = tmp_path / f"missing{k}.pgm"
        try:
            muskeip.Image.readPNM(path) if k % 2 else muskeip.VectorField.read(path)
        except OSError as error:
            return str(error)

    texts = run_in_threads(read_missing, 200, workers=8)
    for k, text in enumerate(texts):
        assert text == f"FLIC error: can't open {tmp_path / f'missing{k}.pgm'} (No such file or directory)"


def test_records_of_concurrent_computations(caplog):
    with caplog.at_level(logging.INFO, logger="muskeip"):
        run_in_threads(lic_job, 8)
    starts = [r for r in caplog.records if r.getMessage().startswith("computing LIC image")]
    assert len(starts) == 8 and len(caplog.records) == 40


def other_thread_ran_during(call):
    """Whether this thread got to run while `call` was running in another one.

    With a switch interval far longer than the call, a thread that keeps the GIL keeps it until
    it ends, so this thread can only run during the call if the call let the GIL go."""
    started = threading.Event()
    worker = threading.Thread(target=lambda: (started.set(), call()))
    saved = sys.getswitchinterval()
    sys.setswitchinterval(1000)
    try:
        worker.start()
        started.wait()
        steps = 0
        while worker.is_alive():
            steps += 1
            time.sleep(0.001)  # lets the worker take the GIL back when it needs it
        worker.join()
    finally:
        sys.setswitchinterval(saved)
    return steps > 0


def test_lic_and_filters_release_the_gil():
    u, v = circle_components(400, 400)
    image = muskeip.Image(2000, 2000)
    assert other_thread_ran_during(lambda: muskeip.lic(u, v, length=40))
    assert other_thread_ran_during(lambda: image.gaussBlur(9))
    assert other_thread_ran_during(lambda: image.medianFilter())
    assert not other_thread_ran_during(lambda: sum(range(3_000_000)))  # the check itself works
