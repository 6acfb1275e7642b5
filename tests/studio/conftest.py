"""Fixtures of the studio tests: a test image with stripes and a studio
serving it, started once per test file."""
import math
import os
import sys

import pytest

sys.path.insert(0, os.path.dirname(__file__))
import studio_support as support  # noqa: E402


def write_pgm(path, rows, bits=8):
    height, width = len(rows), len(rows[0])
    with open(path, "wb") as f:
        f.write(b"P5\n%d %d\n%d\n" % (width, height, 255 if bits == 8 else 65535))
        if bits == 8:
            f.write(bytes(v for row in rows for v in row))
        else:
            f.write(b"".join(v.to_bytes(2, "big") for row in rows for v in row))


def striped_photo(path):
    """The test photograph with stripes of period 9 pixels at 30 degrees,
    15 grey levels high, added."""
    width, height, bits, rows = support.read_png_file(os.path.join(support.DATA, "photo.png"))
    fx, fy = math.cos(math.radians(30)) / 9, math.sin(math.radians(30)) / 9
    striped = [[min(255, max(0, round(v + 15 * math.sin(2 * math.pi * (fx * x + fy * y)))))
                for x, v in enumerate(row)] for y, row in enumerate(rows)]
    write_pgm(path, striped)
    return striped


@pytest.fixture(scope="module")
def workdir(tmp_path_factory):
    if not support.TOOL:
        pytest.fail("KXFREQ_TOOL is not set (run through ctest)")
    return tmp_path_factory.mktemp("studio")


@pytest.fixture(scope="module")
def striped(workdir):
    return striped_photo(str(workdir / "striped.pgm"))


@pytest.fixture(scope="module")
def studio(workdir, striped):
    server = support.Studio("striped.pgm", cwd=str(workdir))
    yield server
    status, _, err = server.stop()
    assert status == 0 and err == "", err   # a clean stop: no sanitizer or other report
