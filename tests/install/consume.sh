#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, then builds and runs a
# consumer with CMake's find_package and another with pkg-config.
set -euo pipefail
build=$1
consumer=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
cmake -S "$consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/configure.log"
cmake --build "$work/consumer" > "$work/build.log"
LD_LIBRARY_PATH="$work/prefix/lib:${LD_LIBRARY_PATH:-}" "$work/consumer/consumer"
if command -v pkg-config > /dev/null; then
  pc=$(find "$work/prefix" -name kxfreq.pc -print -quit)
  flags=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags --libs kxfreq)
  # shellcheck disable=SC2086
  c++ -std=c++17 "$consumer/main.cpp" $flags -o "$work/consumer-pc"
  LD_LIBRARY_PATH="$work/prefix/lib:${LD_LIBRARY_PATH:-}" "$work/consumer-pc"
fi
# The installed tool finds its libraries without any environment.
if [ -x "$work/prefix/bin/kxfreq" ]; then
  "$work/prefix/bin/kxfreq" --version
fi
echo "install and consume: ok"
