"""Transforms and filters on separate spectra from several threads give the
same results as one after another (the GIL is released inside them)."""
import threading

import numpy

import kxfreq
from conftest import random_image


def work(image):
    spectrum = kxfreq.forward(image)
    kxfreq.BandReject(0.004, 0.004, 0.125, (spectrum.width, spectrum.height), 1).apply(spectrum)
    return kxfreq.inverse(spectrum, dtype=numpy.uint16)


def test_threads_give_the_serial_results(rng):
    images = [random_image(rng, numpy.uint16, (256, 256)) for _ in range(8)]
    serial = [work(image) for image in images]
    results = [None] * len(images)

    def run(i):
        results[i] = work(images[i])

    threads = [threading.Thread(target=run, args=(i,)) for i in range(len(images))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for expected, result in zip(serial, results):
        assert numpy.array_equal(expected, result)


def loaded_core_library():
    with open("/proc/self/maps") as maps:
        for line in maps:
            if "libkxcore" in line:
                return line.split()[-1]
    return None


def test_a_stop_request_reaches_python_and_leaves_the_spectrum_not_initialized():
    import ctypes

    import pytest

    path = loaded_core_library()
    if path is None:
        pytest.skip("kxcore is linked statically into the module")
    core = ctypes.CDLL(path)
    request, clear = core._ZN11kxAttention7requestEv, core._ZN11kxAttention5clearEv
    spectrum = kxfreq.forward(numpy.ones((64, 64)))
    view = spectrum.array
    band_pass = kxfreq.BandPass(0.01, 0.0, 0.1, (64, 64), 0)
    source = spectrum.copy()
    out = kxfreq.Spectrum()
    request()
    try:
        with pytest.raises(RuntimeError, match="Operation stopped by an attention request"):
            band_pass.apply(spectrum)
        with pytest.raises(RuntimeError, match="Operation stopped"):
            band_pass.apply(source, out)
    finally:
        clear()
    assert not spectrum.initialized and not out.initialized
    with pytest.raises(kxfreq.UninitializedError):
        spectrum.get(0, 0)
    assert view[0, 0] == 4096  # the store is still there
    assert source.get(0, 0) == 4096  # the source is untouched
    # Work goes on after clear().
    assert band_pass.apply(source).initialized
