#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and imports the installed
# Python package from there, with nothing but PYTHONPATH pointing at it: the
# module must find the installed libraries by itself.
set -euo pipefail
build=$1
python=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
site="$work/prefix/lib/python3/dist-packages"
test -f "$site/kxfreq/__init__.py"
test -f "$site/kxfreq/__init__.pyi"
cd "$work"
env -u LD_LIBRARY_PATH PYTHONPATH="$site" "$python" -c "import kxfreq" 
env -u LD_LIBRARY_PATH PYTHONPATH="$site" PREFIX="$work/prefix" "$python" - <<'PY'
import os
import numpy
import kxfreq

prefix = os.environ["PREFIX"]
assert kxfreq.__file__.startswith(prefix), kxfreq.__file__
with open("/proc/self/maps") as maps:
    libraries = {line.split()[-1] for line in maps if "libkxfreq" in line or "libkxcore" in line}
assert libraries and all(path.startswith(prefix) for path in libraries), libraries
image = numpy.arange(48, dtype=numpy.uint8).reshape(6, 8)
assert numpy.array_equal(kxfreq.inverse(kxfreq.forward(image)), image)
print("installed kxfreq", kxfreq.__version__, "from", os.path.dirname(kxfreq.__file__))
PY
echo "install and import: ok"
