"""Pickling and the archive bytes of spectra and filters."""
import pickle

import numpy
import pytest

import kxfreq
from conftest import random_image, same_bits, texture

FILTERS = [
    lambda: kxfreq.Gabor((0.02, 0.01), (0.0, 0.0), 0.5, 0.2, (32, 32), 1),
    lambda: kxfreq.GaborReject((0.03, 0.02), (0.01, 0.01), -1.0, 0.1, (64, 32), 0),
    lambda: kxfreq.BandPass(0.01, 0.0, 0.25, (32, 64), 2),
    lambda: kxfreq.BandReject(0.004, 0.004, 0.125, (128, 128), 1),
]


@pytest.mark.parametrize("protocol", [2, pickle.HIGHEST_PROTOCOL])
def test_spectrum_pickle_round_trip(rng, protocol):
    spectrum = kxfreq.forward(random_image(rng, numpy.uint16, (21, 40)))
    kxfreq.Gabor((0.05, 0.05), (0.0, 0.0), 0.3, 0.2, (64, 32), 1).apply(spectrum)
    again = pickle.loads(pickle.dumps(spectrum, protocol=protocol))
    assert again == spectrum
    assert same_bits(again.array, spectrum.array)
    assert again.requested_size == (40, 21) and again.band == spectrum.band
    assert again.to_bytes() == spectrum.to_bytes()
    assert not numpy.shares_memory(again.array, spectrum.array)


def test_pickle_of_empty_and_in_place_inverted_spectra():
    empty = pickle.loads(pickle.dumps(kxfreq.Spectrum()))
    assert not empty.initialized
    spectrum = kxfreq.forward(texture((16, 16)))
    image = kxfreq.inverse(spectrum, dtype=numpy.float64, in_place=True)
    again = pickle.loads(pickle.dumps(spectrum))
    assert again.inverse_computed
    assert same_bits(kxfreq.inverse(again, dtype=numpy.float64), image)


@pytest.mark.parametrize("make", FILTERS)
def test_filter_pickle_round_trip(rng, make):
    f = make()
    again = pickle.loads(pickle.dumps(f))
    assert type(again) is type(f) and again == f
    assert again.to_bytes() == f.to_bytes()
    w, h = f.size
    spectrum = kxfreq.forward(random_image(rng, numpy.uint8, (h, w)))
    assert same_bits(f.apply(spectrum.copy()).array, again.apply(spectrum.copy()).array)


def test_image_filter_pickle_round_trip(rng):
    f = kxfreq.ImageFilter(kxfreq.forward(random_image(rng, numpy.float64, (16, 8))))
    again = pickle.loads(pickle.dumps(f))
    assert type(again) is kxfreq.ImageFilter and again == f and again.size == (8, 16)


@pytest.mark.parametrize("make", FILTERS)
def test_from_bytes_by_class(make):
    f = make()
    data = f.to_bytes()
    assert isinstance(data, bytes)
    assert type(f).from_bytes(data) == f
    assert type(kxfreq.Filter.from_bytes(data)) is type(f)


def test_from_bytes_of_another_class_is_an_archive_error():
    data = kxfreq.BandPass(0.01, 0.0, 0.25, (32, 64), 2).to_bytes()
    with pytest.raises(kxfreq.ArchiveError, match="another class of filter"):
        kxfreq.Gabor.from_bytes(data)


def test_malformed_bytes_are_archive_errors(rng):
    spectrum_bytes = kxfreq.forward(random_image(rng, numpy.uint8, (8, 8))).to_bytes()
    filter_bytes = FILTERS[0]().to_bytes()
    for bad in (b"", b"\x07", spectrum_bytes[:-1], spectrum_bytes[:20]):
        with pytest.raises(kxfreq.ArchiveError):
            kxfreq.Spectrum.from_bytes(bad)
    with pytest.raises(kxfreq.ArchiveError, match="left over"):
        kxfreq.Spectrum.from_bytes(spectrum_bytes + b"\x00")
    for bad in (b"", filter_bytes[:-3], b"\xff" * 40):
        with pytest.raises(kxfreq.ArchiveError):
            kxfreq.Filter.from_bytes(bad)
    # A version byte the library does not know.
    with pytest.raises(kxfreq.ArchiveError):
        kxfreq.Spectrum.from_bytes(b"\x09" + spectrum_bytes[1:])
    assert issubclass(kxfreq.ArchiveError, kxfreq.Error)
