"""Shared helpers of the kxfreq Python tests."""
import os
import subprocess

import numpy
import pytest

import kxfreq

TYPE_CODES = {numpy.dtype(numpy.uint8): "u8", numpy.dtype(numpy.uint16): "u16", numpy.dtype(numpy.float64): "f64"}


class Reference:
    """Runs the C++ reference program on files in a temporary folder."""

    def __init__(self, folder):
        self.program = os.environ.get("KXFREQ_REFERENCE")
        if not self.program:
            pytest.fail("KXFREQ_REFERENCE must name the reference program (the tests run through CTest)")
        self.folder = folder
        self.count = 0

    def path(self, name):
        self.count += 1
        return str(self.folder / f"{self.count}-{name}")

    def run(self, *args):
        result = subprocess.run([self.program, *map(str, args)], capture_output=True, text=True)
        assert result.returncode == 0, result.stderr

    def image_file(self, image):
        path = self.path("image.raw")
        numpy.ascontiguousarray(image).astype(image.dtype.newbyteorder("<")).tofile(path)
        return path

    def spectrum_file(self, spectrum):
        path = self.path("spectrum.bin")
        with open(path, "wb") as f:
            f.write(spectrum.to_bytes())
        return path

    @staticmethod
    def read_bytes(path):
        with open(path, "rb") as f:
            return f.read()

    @staticmethod
    def read_image(path, dtype, shape):
        return numpy.fromfile(path, dtype=numpy.dtype(dtype).newbyteorder("<")).reshape(shape)

    def forward(self, image, imag=None):
        out = self.path("out.bin")
        h, w = image.shape
        if imag is None:
            self.run("forward", TYPE_CODES[image.dtype], w, h, self.image_file(image), out)
        else:
            self.run("forward2", TYPE_CODES[image.dtype], w, h, self.image_file(image), self.image_file(imag), out)
        return self.read_bytes(out)


@pytest.fixture
def reference(tmp_path):
    return Reference(tmp_path)


def random_image(rng, dtype, shape):
    dtype = numpy.dtype(dtype)
    if dtype == numpy.uint8:
        return rng.integers(0, 256, size=shape, dtype=numpy.uint8)
    if dtype == numpy.uint16:
        return rng.integers(0, 65536, size=shape, dtype=numpy.uint16)
    return rng.uniform(-1000.0, 1000.0, size=shape)


def same_bits(a, b):
    """True when two float arrays hold the same bits (shape and dtype too)."""
    a = numpy.asarray(a)
    b = numpy.asarray(b)
    return a.shape == b.shape and a.dtype == b.dtype and a.tobytes() == b.tobytes()


@pytest.fixture
def rng():
    return numpy.random.default_rng(20261122)


def texture(shape=(60, 50), period=8.0):
    """A woven-looking float64 test image with a dark spot."""
    y, x = numpy.mgrid[0 : shape[0], 0 : shape[1]]
    image = 100.0 + 40.0 * numpy.sin(2 * numpy.pi * x / period) * numpy.cos(2 * numpy.pi * y / period)
    image[shape[0] // 3, shape[1] // 3] -= 60.0
    return image


__all__ = ["kxfreq", "random_image", "same_bits", "texture"]
