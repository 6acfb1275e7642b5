"""examples/dask_large_image.py runs as documented, at a small size: the
interference is found at its frequency and angle and removed."""
import json
import os
import pathlib
import subprocess
import sys

import pytest

pytest.importorskip("distributed")
pytest.importorskip("zarr")

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "dask_large_image.py"


def test_the_example_finds_and_removes_the_interference(tmp_path):
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    run = subprocess.run([sys.executable, str(EXAMPLE), "--size", "2200", "--chunk", "1024", "--workers", "2",
                          "--store", str(tmp_path)], env=env, capture_output=True, text=True, timeout=300)
    assert run.returncode == 0, run.stderr
    report = json.loads(run.stdout.strip().splitlines()[-1])
    assert report["size"] == [2200, 2200] and report["dtype"] == "uint8" and report["workers"] == 2
    assert abs(report["found"]["frequency"] - 0.09) < 0.002
    assert abs(report["found"]["angle_degrees"] - 30.0) < 1.0
    assert report["amplitude"]["before"] > 20.0
    assert report["amplitude"]["after"] < 0.05 * report["amplitude"]["before"]
    assert (tmp_path / "clean.zarr").is_dir()
