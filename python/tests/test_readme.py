"""The README's Python example runs as written."""
import os
import re

import numpy

import kxfreq

README = os.path.join(os.path.dirname(__file__), "..", "..", "README.md")


def python_examples():
    """The Python examples outside the "Large images" section (test_readme_large runs those)."""
    with open(README, encoding="utf-8") as f:
        text = re.sub(r"\n## Large images\n.*?(?=\n## )", "\n", f.read(), flags=re.S)
    return re.findall(r"```python\n(.*?)```", text, re.S)


def test_readme_python_example_runs_as_written(tmp_path, monkeypatch):
    examples = python_examples()
    assert len(examples) == 1
    code = examples[0]
    assert len(code.strip().splitlines()) == 5
    # The image it reads: a texture with a period of 8 pixels and a scratch.
    y, x = numpy.mgrid[0:128, 0:128]
    image = (120 + 30 * numpy.sin(2 * numpy.pi * x / 8) + 30 * numpy.sin(2 * numpy.pi * y / 8)).astype(numpy.uint8)
    image[64, 20:100] = 40
    numpy.save(tmp_path / "image.npy", image)
    monkeypatch.chdir(tmp_path)
    scope = {}
    exec(compile(code, "README.md", "exec"), scope)
    result = scope["result"]
    assert result.dtype == numpy.uint8 and result.shape == image.shape
    # The texture is gone and the scratch is left: the rows away from it are
    # much flatter than before, the scratch row still stands out.
    rows = numpy.r_[10:50, 80:118]
    assert numpy.std(result[rows, 10:118].astype(float)) < 0.2 * numpy.std(image[rows, 10:118].astype(float))
    assert result[64, 30:90].mean() < result[rows, 30:90].mean() - 20
    assert isinstance(scope["spectrum"], kxfreq.Spectrum)
