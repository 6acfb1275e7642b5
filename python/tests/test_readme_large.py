"""The README's "Large images" commands run as written, from a folder that
holds the build as `build`, and do what the README says of them."""
import json
import os
import re
import subprocess

import numpy
import pytest

import kxfreq

README = os.path.join(os.path.dirname(__file__), "..", "..", "README.md")
# The module is imported from <build>/python/kxfreq.
BUILD = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(kxfreq.__file__))))


def section():
    with open(README, encoding="utf-8") as f:
        text = f.read()
    match = re.search(r"\n## Large images\n(.*?)(\n## |\Z)", text, re.S)
    assert match, "README has no Large images section"
    return match.group(1)


def blocks(language):
    return re.findall(r"```%s\n(.*?)```" % language, section(), re.S)


def stripe_amplitude(image):
    """The amplitude of the README image's stripes (period 9, 30 degrees) in its middle."""
    crop = image[1000:2000, 1000:3000].astype(numpy.float64)
    y, x = numpy.mgrid[1000:2000, 1000:3000].astype(numpy.float64)
    phase = 2 * numpy.pi / 9 * (x * numpy.cos(numpy.pi / 6) + y * numpy.sin(numpy.pi / 6))
    values = crop - crop.mean()
    return float(2 * numpy.hypot(numpy.mean(values * numpy.cos(phase)), numpy.mean(values * numpy.sin(phase))))


@pytest.fixture(scope="module")
def workdir(tmp_path_factory):
    """A folder where `./build` is this build, after the README's shell commands ran there."""
    work = tmp_path_factory.mktemp("readme-large")
    os.symlink(BUILD, work / "build")
    (commands,) = blocks("sh")
    run = subprocess.run(["bash", "-e", "-o", "pipefail", "-c", commands], cwd=work,
                         capture_output=True, text=True, timeout=300)
    assert run.returncode == 0, run.stderr
    return work, run.stdout


def peaks(work, name):
    run = subprocess.run([os.path.join(BUILD, "tools", "kxfreq"), "peaks", name, "--max", "1", "--json"],
                         cwd=work, capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    return json.loads(run.stdout)["components"]


def test_readme_large_image_commands_run_as_written(workdir):
    work, printed = workdir
    # peaks finds the stripes where the README says.
    match = re.search(r"0\.111\d*", printed)
    assert match and abs(float(match.group(0)) - 1 / 9) < 0.002, printed
    (found,) = peaks(work, "big.pgm")
    assert abs(found["frequency"] - 1 / 9) < 0.002 and abs(found["angle"] - 30) < 1, found
    # The filtered images are the input's size, tiled, and without stripes.
    (entry,) = json.load(open(work / "report.json"))["inputs"]
    assert entry["status"] == "ok" and (entry["width"], entry["height"]) == (4000, 3000), entry
    assert entry["tile"] == 2048 and entry["margin"] > 0 and entry["tiles"] > 1, entry
    for name in ("big-clean.tif", "big-auto.tif"):
        assert peaks(work, name) == [], name


def test_readme_large_image_python_runs_as_written(workdir, monkeypatch):
    work, _ = workdir
    (code,) = blocks("python")
    monkeypatch.chdir(work)
    scope = {}
    exec(compile(code, "README.md", "exec"), scope)
    image, clean, chunked = scope["image"], scope["clean"], scope["clean_dask"]
    assert image.shape == (3000, 4000)
    assert clean.dtype == numpy.uint8 and clean.shape == image.shape
    assert chunked.dtype == numpy.uint8 and chunked.shape == image.shape
    before = stripe_amplitude(image)
    assert before > 19 and stripe_amplitude(clean) < 0.05 * before
    (found,) = scope["found"]
    assert abs(found["frequency"] - 1 / 9) < 0.002
    # Dask's chunks give the in-memory result within one grey level.
    assert numpy.abs(chunked.astype(int) - clean.astype(int)).max() <= 1
