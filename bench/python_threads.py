#!/usr/bin/env python3
"""Two Python threads against one: kxfreq releases the GIL inside transforms
and filter applications, so separate spectra are processed in parallel.

Prints the serial and threaded wall times of the same work (forward,
band-reject, inverse of 2 x N images) and their ratio; asserts nothing.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_threads.py [--size 1024] [--images 8]
"""
import argparse
import threading
import time

import numpy

import kxfreq


def work(image):
    spectrum = kxfreq.forward(image)
    kxfreq.BandReject(0.004, 0.004, 0.125, (spectrum.width, spectrum.height), 1).apply(spectrum)
    return kxfreq.inverse(spectrum, dtype=image.dtype, in_place=True)


def run_serial(images):
    for image in images:
        work(image)


def run_threads(images, count):
    threads = [threading.Thread(target=run_serial, args=(images[i::count],)) for i in range(count)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()


def best_of(repeats, call):
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        call()
        times.append(time.perf_counter() - start)
    return min(times)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--size", type=int, default=1024, help="image side in pixels (default 1024)")
    parser.add_argument("--images", type=int, default=8, help="images per run (default 8)")
    parser.add_argument("--threads", type=int, default=2, help="threads (default 2)")
    parser.add_argument("--repeats", type=int, default=3, help="runs, the best is kept (default 3)")
    args = parser.parse_args()

    rng = numpy.random.default_rng(1)
    images = [rng.integers(0, 256, size=(args.size, args.size), dtype=numpy.uint8) for _ in range(args.images)]
    work(images[0])  # warm up

    serial = best_of(args.repeats, lambda: run_serial(images))
    threaded = best_of(args.repeats, lambda: run_threads(images, args.threads))
    print(f"{args.images} images of {args.size} x {args.size}, forward + band-reject + inverse")
    print(f"  serial:     {serial * 1000:8.1f} ms")
    print(f"  {args.threads} threads:  {threaded * 1000:8.1f} ms")
    print(f"  speed-up:   {serial / threaded:8.2f} x")


if __name__ == "__main__":
    main()
