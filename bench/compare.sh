#!/usr/bin/env bash
# Builds the benchmarks in Release, runs them, and prints a table of median
# times: kxfreq beside FFTW (single precision) and OpenCV (one thread) on the
# same operations and sizes, with kxfreq's time divided by each peer's.
#
#   bash bench/compare.sh [extra Google Benchmark flags]
set -euo pipefail
cd "$(dirname "$0")/.."

missing=()
for p in cmake g++ pkg-config libbenchmark-dev libfftw3-dev libopencv-dev python3; do
  dpkg -s "$p" > /dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi

build=build-bench
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DKXFREQ_BUILD_TESTS=OFF -DKXFREQ_BUILD_BENCH=ON > /dev/null
cmake --build "$build" -j2 --target kxfreq_bench > /dev/null
out="$build/bench.json"
"$build/bench/kxfreq_bench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_format=json --benchmark_out="$out" --benchmark_out_format=json "$@" > /dev/null

/usr/bin/python3 - "$out" <<'PY'
import json, sys
data = json.load(open(sys.argv[1]))
medians = {}
for b in data["benchmarks"]:
    if b.get("aggregate_name") != "median":
        continue
    op, lib, w, h = b["run_name"].split("/")[:4]   # "/real_time" may follow
    medians[(op, f"{w} x {h}", lib)] = b["real_time"]
# Which peer operations each kxfreq operation is compared with (a list picks
# the fastest of several); the peers' in-place inverses copy their input
# first, as kxfreq's in-place rows do.
forward_real = {"fftw": ["forward_real", "forward_real_inplace"], "opencv": ["forward_real"]}
forward_complex = {"fftw": ["forward_complex"], "opencv": ["forward_complex"]}
inverse_8bit = {"fftw": ["inverse_magnitude"], "opencv": ["inverse_real"]}
inverse_double = {"fftw": ["inverse_complex"], "opencv": ["inverse_real"]}
pipeline = {"fftw": ["pipeline"], "opencv": ["pipeline"]}
peers = {
    "forward_real": forward_real, "forward_real_new": forward_real,
    "forward_real16": forward_real, "forward_real16_new": forward_real,
    "forward_complex": forward_complex, "forward_complex_new": forward_complex,
    "inverse_to_8bit": inverse_8bit, "inverse_to_8bit_new": inverse_8bit, "inverse_to_8bit_inplace": inverse_8bit,
    "inverse_to_double": inverse_double, "inverse_to_double_new": inverse_double,
    "inverse_to_double_inplace": inverse_double,
    "pipeline": pipeline, "pipeline_new": pipeline,
}
# The peers run on the padded grid of an image that is not a power of two.
padded = {"1000 x 750": "1024 x 1024"}
ctx = data["context"]
print(f"host: {ctx.get('host_name', '?')}, {ctx.get('num_cpus', '?')} CPUs at {ctx.get('mhz_per_cpu', '?')} MHz, "
      f"load average {ctx.get('load_avg', '?')}")
flags = set()
model = "?"
for line in open("/proc/cpuinfo"):
    if line.startswith("flags") and not flags:
        flags = set(line.split(":", 1)[1].split())
    if line.startswith("model name") and model == "?":
        model = line.split(":", 1)[1].strip()
# The engine takes the first usable variant of its table, as this does.
variant = next((v for v, need in [("avx512", {"avx512f", "avx512dq"}), ("avx2", {"avx2"}), ("sse2", {"sse2"})]
                if need <= flags), "scalar")
print(f"cpu: {model}; engine variant: {variant}")
print()
print("| operation | size | kxfreq (us) | FFTW (us) | OpenCV (us) | kxfreq / FFTW | kxfreq / OpenCV |")
print("|---|---|---:|---:|---:|---:|---:|")
sizes = ["256 x 256", "512 x 512", "1024 x 1024", "2048 x 2048", "1000 x 750", "2048 x 8", "8 x 2048", "64 x 2048"]
for op, peer in peers.items():
    for size in sizes:
        ours = medians.get((op, size, "kxfreq"))
        if ours is None:
            continue
        cells = [f"{ours:.1f}"]
        ratios = []
        for lib in ("fftw", "opencv"):
            key = padded.get(size, size)
            times = [medians[(name, key, lib)] for name in peer[lib] if (name, key, lib) in medians]
            t = min(times) if times else None
            cells.append(f"{t:.1f}" if t else "n/a")
            ratios.append(f"{ours / t:.2f}" if t else "n/a")
        print(f"| {op} | {size} | " + " | ".join(cells + ratios) + " |")

print()
print("New buffer (or image) per call against a reused one, same run:")
print()
print("| operation | size | new (us) | reused (us) | new / reused |")
print("|---|---|---:|---:|---:|")
for op in ["forward_real", "forward_real16", "forward_complex", "inverse_to_8bit", "inverse_to_double", "pipeline"]:
    for size in sizes:
        new, reused = medians.get((op + "_new", size, "kxfreq")), medians.get((op, size, "kxfreq"))
        if new and reused:
            print(f"| {op} | {size} | {new:.1f} | {reused:.1f} | {new / reused:.2f} |")

print()
big = "2048 x 2048"
floor = medians.get(("memory_floor", big, "copy"))
forward = medians.get(("forward_real", big, "kxfreq"))
if floor and forward:
    print(f"2048 x 2048 real forward {forward:.0f} us against a streaming copy of the bytes it must move "
          f"(25 per element) {floor:.0f} us: {forward / floor:.2f} x the floor")
for op in ["forward_real", "inverse_to_8bit"]:
    one, two = medians.get((op + "_1thread", big, "kxfreq")), medians.get((op + "_2threads", big, "kxfreq"))
    if one and two:
        print(f"{op} 2048 x 2048, wall time: 1 thread {one:.0f} us, 2 threads {two:.0f} us: {one / two:.2f} x faster")
PY

# Phase correlation beside cv::phaseCorrelate: its own program, which
# prints the accuracy of both on test pairs, then their times.
if cmake --build "$build" -j2 --target kxfreq_bench_phase_correlate > /dev/null 2>&1; then
  echo
  "$build/bench/kxfreq_bench_phase_correlate" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
fi
