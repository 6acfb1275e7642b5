#!/usr/bin/env python3
"""Two Python threads against one: kxfreq releases the GIL inside transforms
and filter applications, so separate spectra are processed in parallel.

Prints the serial and threaded wall times of the same work (forward,
band-reject, inverse of N images) and their ratio, and how long the main
thread's Python code had to wait at most while another thread ran one long
transform (with the GIL held it would wait for the whole transform).
Asserts nothing.

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


def longest_wait_during(call):
    """Runs `call` on a thread; returns (its duration, the longest gap between
    two iterations of a Python loop on this thread meanwhile)."""
    done = threading.Event()
    timing = {}

    def worker():
        start = time.perf_counter()
        call()
        timing["duration"] = time.perf_counter() - start
        done.set()

    thread = threading.Thread(target=worker)
    longest = 0.0
    last = time.perf_counter()
    thread.start()
    while not done.is_set():
        now = time.perf_counter()
        longest = max(longest, now - last)
        last = now
    thread.join()
    return timing["duration"], longest


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

    large = numpy.random.default_rng(2).integers(0, 256, size=(2048, 2048), dtype=numpy.uint8)
    duration, wait = longest_wait_during(lambda: kxfreq.forward(large))
    print(f"one 2048 x 2048 forward on another thread: {duration * 1000:.1f} ms; "
          f"longest wait of this thread's Python loop meanwhile: {wait * 1000:.1f} ms")


if __name__ == "__main__":
    main()
