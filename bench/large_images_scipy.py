#!/usr/bin/python3
"""Large images: kxfreq's tiled band-reject filtering beside scipy's
whole-image FFT filtering of the same 8-bit image, in the same run, each
measurement in its own process so that its peak memory is its own.

    /usr/bin/python3 bench/large_images_scipy.py BUILD_DIR [--sizes 1,4,12,48] [--heights 2500,10000,30000]

BUILD_DIR holds bench/kxfreq_bench_large (a Release build). Prints two
Markdown tables: time and peak memory against megapixels (kxfreq with one and
two jobs, scipy with one worker), and a streamed kxfreq run against scipy for
4096-pixel-wide strips of growing height.

The filter is the same ring on both sides: gain 1 - exp(-(r - 0.1)^2 /
(2 x 0.01^2)), r the radial frequency in cycles per pixel; scipy applies it
to the real FFT of the whole image and rounds and clips the result to 8 bits.
"""
import argparse
import os
import resource
import subprocess
import sys
import time


def pixel_image(w, h):
    import numpy as np
    x = np.arange(w, dtype=np.int64)[None, :]
    y = np.arange(h, dtype=np.int64)[:, None]
    return ((x * 31 + y * 17 + x * y) % 251).astype(np.uint8)


def scipy_once(w, h):
    """One scipy run in this process: seconds and peak MB."""
    import numpy as np
    import scipy.fft as fft
    image = pixel_image(w, h)
    start = time.perf_counter()
    spectrum = fft.rfft2(image.astype(np.float64), workers=1)
    fy = fft.fftfreq(h)[:, None]
    fx = fft.rfftfreq(w)[None, :]
    radius = np.sqrt(fx * fx + fy * fy)
    spectrum *= 1.0 - np.exp(-(radius - 0.1) ** 2 / (2.0 * 0.01 ** 2))
    del radius
    filtered = fft.irfft2(spectrum, s=(h, w), workers=1)
    del spectrum
    result = np.clip(np.rint(filtered), 0, 255).astype(np.uint8)
    seconds = time.perf_counter() - start
    assert result.shape == (h, w)
    peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024.0
    print(f"{seconds:.3f} {peak:.1f}")


def measure(command):
    out = subprocess.run(command, check=True, capture_output=True, text=True).stdout.split()
    return float(out[0]), float(out[1])


def scipy_run(w, h):
    return measure([sys.executable, __file__, "--scipy-once", str(w), str(h)])


def size_of(megapixels):
    w = round((megapixels * 1e6 * 4.0 / 3.0) ** 0.5)
    return w, round(w * 3.0 / 4.0)


def main():
    if len(sys.argv) == 4 and sys.argv[1] == "--scipy-once":
        scipy_once(int(sys.argv[2]), int(sys.argv[3]))
        return
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--sizes", default="1,4,12,48,100,200")
    parser.add_argument("--heights", default="2500,10000,30000")
    parser.add_argument("--small-tile", type=int, default=512,
                        help="also time kxfreq with this tile side on one job")
    parser.add_argument("--scipy-limit", type=float, default=100.0,
                        help="largest image in megapixels given to scipy (memory)")
    args = parser.parse_args()
    bench = os.path.join(args.build, "bench", "kxfreq_bench_large")

    small = args.small_tile
    print(f"| image | MP | kxfreq 1 job | ms/MP | peak MB | kxfreq 2 jobs | ms/MP | tile {small}, 1 job | ms/MP | "
          f"scipy (1 worker) | ms/MP | peak MB | kxfreq/scipy 1 job | 2 jobs | tile {small} |")
    print("|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|")
    for mp in [float(s) for s in args.sizes.split(",")]:
        w, h = size_of(mp)
        n = w * h / 1e6
        t1, m1 = measure([bench, "--run", str(w), str(h), "1"])
        t2, _ = measure([bench, "--run", str(w), str(h), "2"])
        t3, _ = measure([bench, "--run", str(w), str(h), "1", str(small)])
        if n <= args.scipy_limit:
            ts, ms = scipy_run(w, h)
            scipy_cells = (f"{ts:.2f} s | {ts / n * 1e3:.0f} | {ms:.0f} | {t1 / ts:.2f} | {t2 / ts:.2f} | "
                           f"{t3 / ts:.2f}")
        else:
            scipy_cells = "- | - | - | - | - | -"
        print(f"| {w} x {h} | {n:.1f} | {t1:.2f} s | {t1 / n * 1e3:.0f} | {m1:.0f} | {t2:.2f} s | "
              f"{t2 / n * 1e3:.0f} | {t3:.2f} s | {t3 / n * 1e3:.0f} | {scipy_cells} |", flush=True)

    print()
    print("| strip | kxfreq streamed | peak MB | scipy in memory | peak MB |")
    print("|---|---|---|---|---|")
    for h in [int(s) for s in args.heights.split(",")]:
        t, m = measure([bench, "--stream", "4096", str(h)])
        ts, ms = scipy_run(4096, h)
        print(f"| 4096 x {h} | {t:.2f} s | {m:.0f} | {ts:.2f} s | {ms:.0f} |", flush=True)


if __name__ == "__main__":
    main()
