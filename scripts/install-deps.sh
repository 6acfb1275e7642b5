#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that building and testing need
# and that are not there yet. Safe to run again.
set -euo pipefail
# clang and its runtime build the fuzz targets (libFuzzer, sanitizers);
# binutils gives nm and objdump to the export and instruction checks.
needed=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev binutils clang libclang-rt-14-dev)
# The Python module, its tests and the API reference.
needed+=(python3-dev python3-numpy python3-pytest pybind11-dev doxygen)
needed+=(libtiff-dev libjpeg-dev time)   # TIFF and JPEG for the tool; /usr/bin/time for its memory test
needed+=(mypy python3-dask python3-distributed python3-zarr)   # the stub check; the Dask layer and its tests
needed+=(python3-scipy)   # bench/large_images_scipy.py times scipy beside the tiled filter
needed+=(libcpp-httplib-dev chromium chromium-driver python3-selenium)   # kxfreq studio; its browser test
missing=()
for p in "${needed[@]}"; do
  dpkg -s "$p" > /dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
