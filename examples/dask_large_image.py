#!/usr/bin/env python3
"""Filters an image too large to handle whole, on a Dask cluster.

A size x size 8-bit image (a smooth scene with a periodic interference at 30
degrees and some noise) is generated chunk by chunk straight into a zarr
store, as a scanner or a mosaicking step would leave it. The workers then
find the interference with a Welch spectrum computed chunk by chunk (only
spectra travel), remove it with kxfreq.dask.gabor_reject, and write the
result to a second zarr store, chunk by chunk: no process ever holds the
whole image.

    PYTHONPATH=build/python /usr/bin/python3 examples/dask_large_image.py --size 20000 --workers 2

Prints one line of JSON: the sizes, the frequency found, the interference's
amplitude in a crop before and after, and for each step its time and the
workers' CPU time (with the workers' peak memory).
"""
import argparse
import json
import os
import tempfile
import time

import dask.array as da
import distributed
import numpy

import kxfreq
import kxfreq.dask

FREQUENCY = 0.09            # cycles per pixel
ANGLE = numpy.radians(30.0)
AMPLITUDE = 25.0            # grey levels


def make_chunk(block_info=None):
    """One chunk of the scene, the same whichever worker makes it."""
    info = block_info[None]
    (top, bottom), (left, right) = info["array-location"]
    y, x = numpy.mgrid[top:bottom, left:right].astype(numpy.float64)
    scene = 128 + 60 * numpy.sin(x / 700.0) * numpy.cos(y / 900.0)
    wave = AMPLITUDE * numpy.cos(2 * numpy.pi * FREQUENCY * (x * numpy.cos(ANGLE) + y * numpy.sin(ANGLE)))
    noise = numpy.random.default_rng([top, left]).normal(0, 4, x.shape)
    return numpy.clip(numpy.round(scene + wave + noise), 0, 255).astype(numpy.uint8)


def wave_amplitude(crop, top, left):
    """The interference's amplitude in a crop, by projection on the wave."""
    y, x = numpy.mgrid[top : top + crop.shape[0], left : left + crop.shape[1]].astype(numpy.float64)
    phase = 2 * numpy.pi * FREQUENCY * (x * numpy.cos(ANGLE) + y * numpy.sin(ANGLE))
    values = crop - crop.mean()
    return float(2 * numpy.hypot(numpy.mean(values * numpy.cos(phase)), numpy.mean(values * numpy.sin(phase))))


def _usage():
    """This process's CPU seconds and peak memory (MB), as a worker reports them."""
    import resource

    r = resource.getrusage(resource.RUSAGE_SELF)
    return r.ru_utime + r.ru_stime, r.ru_maxrss / 1024.0


class Step:
    """Wall time and the workers' CPU time of one step."""

    def __init__(self, client, name, report):
        self.client, self.name, self.report = client, name, report

    def cpu(self):
        return sum(cpu for cpu, _ in self.client.run(_usage).values())

    def __enter__(self):
        self.start, self.cpu_start = time.perf_counter(), self.cpu()

    def __exit__(self, *exc):
        self.report["seconds"][self.name] = round(time.perf_counter() - self.start, 2)
        self.report["worker_cpu_seconds"][self.name] = round(self.cpu() - self.cpu_start, 2)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--size", type=int, default=20000, help="image side in pixels")
    parser.add_argument("--chunk", type=int, default=2048, help="chunk side in pixels")
    parser.add_argument("--workers", type=int, default=2, help="worker processes of the local cluster")
    parser.add_argument("--scheduler", help="address of an existing cluster's scheduler (instead of a local one)")
    parser.add_argument("--store", help="folder for the zarr stores (default: a temporary folder)")
    args = parser.parse_args()

    if args.scheduler:
        client = distributed.Client(args.scheduler)
        cluster = None
    else:
        cluster = distributed.LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                                           dashboard_address=None)
        client = distributed.Client(cluster)
    with tempfile.TemporaryDirectory() as scratch:
        store = args.store or scratch
        source, target = os.path.join(store, "image.zarr"), os.path.join(store, "clean.zarr")
        report = {"seconds": {}, "worker_cpu_seconds": {}}
        try:
            shape, chunks = (args.size, args.size), (args.chunk, args.chunk)
            with Step(client, "generate", report):
                scene = da.map_blocks(make_chunk, dtype=numpy.uint8, chunks=da.core.normalize_chunks(chunks, shape))
                scene.to_zarr(source, overwrite=True)

            image = da.from_zarr(source)
            with Step(client, "find", report):
                found = kxfreq.dask.find_peaks(image, max_peaks=1)[0]

            with Step(client, "filter", report):
                clean = kxfreq.dask.gabor_reject(image, frequency=found["frequency"], angle=found["angle"],
                                                 sigma=max(found["sigma"][0], found["sigma"][1], 0.004))
                clean.to_zarr(target, overwrite=True)

            result = da.from_zarr(target)
            side = min(1024, args.size // 2)
            top = left = (args.size - side) // 2
            before = image[top : top + side, left : left + side].compute().astype(numpy.float64)
            after = result[top : top + side, left : left + side].compute().astype(numpy.float64)
            peaks = [memory for _, memory in client.run(_usage).values()]
            print(json.dumps({
                "size": list(result.shape), "dtype": str(result.dtype), "chunk": args.chunk,
                "workers": len(peaks), "worker_peak_mb": round(max(peaks)),
                "found": {"frequency": round(found["frequency"], 5),
                          "angle_degrees": round(float(numpy.degrees(found["angle"])), 2)},
                "amplitude": {"before": round(wave_amplitude(before, top, left), 3),
                              "after": round(wave_amplitude(after, top, left), 3)},
                **report,
            }))
        finally:
            client.close()
            if cluster is not None:
                cluster.close()


if __name__ == "__main__":
    main()
