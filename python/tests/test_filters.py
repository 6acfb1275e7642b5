"""The filters: parameters, application in place and into another spectrum,
and bit-for-bit agreement with the C++ filters."""
import numpy
import pytest

import kxfreq
from conftest import random_image, same_bits

GABOR = dict(sigma=(0.02, 0.01), plateau=(0.01, 0.0), angle=0.7, frequency=0.2, size=(64, 32), dc_radius=2)
RADIAL = dict(sigma=0.01, plateau=0.005, frequency=0.125, size=(64, 32), dc_radius=1)


def make(kind):
    if kind == "gabor":
        return kxfreq.Gabor(**GABOR)
    if kind == "gabor_reject":
        return kxfreq.GaborReject(**GABOR)
    if kind == "band_pass":
        return kxfreq.BandPass(**RADIAL)
    return kxfreq.BandReject(**RADIAL)


def reference_args(kind):
    if kind.startswith("gabor"):
        g = GABOR
        return [kind, *map(repr, g["sigma"]), *map(repr, g["plateau"]), repr(g["angle"]), repr(g["frequency"]),
                *g["size"], g["dc_radius"]]
    r = RADIAL
    return [kind, repr(r["sigma"]), repr(r["plateau"]), repr(r["frequency"]), *r["size"], r["dc_radius"]]


@pytest.fixture
def spectrum(rng):
    return kxfreq.forward(random_image(rng, numpy.uint8, (30, 50)))


@pytest.mark.parametrize("kind", ["gabor", "gabor_reject", "band_pass", "band_reject"])
def test_filter_is_bit_identical_to_the_library(reference, spectrum, kind):
    source = reference.spectrum_file(spectrum)
    out, filter_out = reference.path("filtered.bin"), reference.path("filter.bin")
    reference.run("filter", *reference_args(kind), source, out, filter_out)
    f = make(kind)
    result = f.apply(spectrum)
    assert result is spectrum
    assert spectrum.to_bytes() == reference.read_bytes(out)
    assert f.to_bytes() == reference.read_bytes(filter_out)


def test_image_filter_is_bit_identical_to_the_library(reference, rng, spectrum):
    transfer = kxfreq.forward(random_image(rng, numpy.float64, (32, 64)))
    transfer_file = reference.spectrum_file(transfer)
    out, filter_out = reference.path("filtered.bin"), reference.path("filter.bin")
    reference.run("filter", "image", transfer_file, reference.spectrum_file(spectrum), out, filter_out)
    f = kxfreq.ImageFilter(transfer)
    assert f.size == (64, 32)
    f.apply(spectrum)
    assert spectrum.to_bytes() == reference.read_bytes(out)
    assert f.to_bytes() == reference.read_bytes(filter_out)


@pytest.mark.parametrize("kind", ["gabor", "gabor_reject", "band_pass", "band_reject"])
def test_python_filter_bytes_load_in_cpp_and_cpp_bytes_load_in_python(reference, spectrum, kind):
    f = make(kind)
    stored = reference.path("filter.bin")
    with open(stored, "wb") as file:
        file.write(f.to_bytes())
    out, filter_out = reference.path("filtered.bin"), reference.path("again.bin")
    reference.run("filter", "load", stored, reference.spectrum_file(spectrum), out, filter_out)
    cpp_bytes = reference.read_bytes(filter_out)
    assert cpp_bytes == f.to_bytes()
    loaded = kxfreq.Filter.from_bytes(cpp_bytes)
    assert type(loaded) is type(f) and loaded == f
    assert same_bits(f.apply(spectrum.copy()).array, kxfreq.Spectrum.from_bytes(reference.read_bytes(out)).array)


@pytest.mark.parametrize("kind", ["gabor", "gabor_reject", "band_pass", "band_reject"])
def test_apply_into_another_spectrum_leaves_the_source(spectrum, kind):
    f = make(kind)
    before = spectrum.to_bytes()
    out = kxfreq.Spectrum()
    assert f.apply(spectrum, out) is out
    assert spectrum.to_bytes() == before
    in_place = spectrum.copy()
    f.apply(in_place)
    assert same_bits(out.array, in_place.array)
    assert out.band == in_place.band
    # out may be the spectrum itself.
    again = spectrum.copy()
    assert f.apply(again, again) is again
    assert same_bits(again.array, in_place.array)


def test_gabor_properties():
    for cls in (kxfreq.Gabor, kxfreq.GaborReject):
        f = cls(**GABOR)
        assert f.sigma == (0.02, 0.01) and f.plateau == (0.01, 0.0)
        assert f.angle == 0.7 and f.frequency == 0.2 and f.size == (64, 32) and f.dc_radius == 2
        assert f.support_width > 0 and f.support_height > 0
        with pytest.raises(AttributeError):
            f.frequency = 0.1
        assert repr(f).startswith("kxfreq." + cls.__name__ + "(sigma=(0.02, 0.01)")


def test_radial_properties():
    for cls in (kxfreq.BandPass, kxfreq.BandReject):
        f = cls(**RADIAL)
        assert (f.sigma, f.plateau, f.frequency, f.size, f.dc_radius) == (0.01, 0.005, 0.125, (64, 32), 1)
        assert f.support_width > 0
        assert isinstance(f, kxfreq.Filter)
        # Positional arguments in the documented order.
        assert cls(0.01, 0.005, 0.125, (64, 32), 1) == f


def test_one_sided_gabor_lobe():
    # A Gabor filter at angle 0 passes frequency +f along x and not -f.
    size = 64
    spectrum = kxfreq.Spectrum(size, size)
    view = spectrum.array
    view[:] = 1
    kxfreq.Gabor((0.01, 0.01), (0.0, 0.0), 0.0, 0.25, (size, size), 0).apply(spectrum)
    assert abs(spectrum.get(16, 0, centered=True)) > 0.99
    assert spectrum.get(-16, 0, centered=True) == 0
    spectrum = kxfreq.Spectrum(size, size)
    spectrum.array[:] = 1
    kxfreq.Gabor((0.01, 0.01), (0.0, 0.0), numpy.pi / 2, 0.25, (size, size), 0).apply(spectrum)
    assert abs(spectrum.get(0, 16, centered=True)) > 0.99
    assert spectrum.get(0, -16, centered=True) == 0


def test_band_reject_removes_a_periodic_texture():
    y, x = numpy.mgrid[0:64, 0:64]
    image = 128 + 60 * numpy.sin(2 * numpy.pi * x / 8)
    spectrum = kxfreq.forward(image)
    kxfreq.BandReject(0.004, 0.004, 0.125, (64, 64), 1).apply(spectrum)
    clean = kxfreq.inverse(spectrum, dtype=numpy.float64)
    assert numpy.std(clean) < 0.01 * numpy.std(image)
