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
