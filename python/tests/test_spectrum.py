"""The Spectrum object: sizes, element access and the zero-copy numpy view."""
import gc
import weakref

import numpy
import pytest

import kxfreq
from conftest import random_image, same_bits, texture


def test_sizes_and_flags():
    spectrum = kxfreq.forward(numpy.zeros((100, 300), dtype=numpy.uint8))
    assert (spectrum.width, spectrum.height) == (512, 128)
    assert spectrum.requested_size == (300, 100)
    assert spectrum.initialized and not spectrum.masked and spectrum.band is None
    assert not spectrum.inverse_computed


def test_empty_and_zero_spectra():
    empty = kxfreq.Spectrum()
    assert not empty.initialized
    with pytest.raises(kxfreq.UninitializedError, match="FrequencyBuffer has not been initialized"):
        empty.width
    with pytest.raises(kxfreq.UninitializedError):
        empty.array
    zero = kxfreq.Spectrum(5, 3)
    assert (zero.width, zero.height, zero.requested_size) == (8, 4, (5, 3))
    assert not numpy.any(zero.array)


def test_get_and_put_in_storage_and_centred_addressing(rng):
    spectrum = kxfreq.forward(random_image(rng, numpy.float64, (8, 16)))
    view = spectrum.array
    assert spectrum.get(3, 2) == complex(view[2, 3])
    # Centred: signed frequencies, a negative one addressing index value + size.
    assert spectrum.get(-1, -4, centered=True) == complex(view[4, 15])
    assert spectrum.get(7, 3, centered=True) == complex(view[3, 7])
    spectrum.put(-2, 1, 1.5 - 2.25j, centered=True)
    assert spectrum.get(14, 1) == 1.5 - 2.25j
    spectrum.put(0, 0, 0.1 + 0j)
    assert spectrum.get(0, 0) == complex(numpy.float32(0.1))  # stored as float
    with pytest.raises(kxfreq.BadCoordError, match="Coordinates are out of bounds"):
        spectrum.get(8, 0, centered=True)
    with pytest.raises(kxfreq.BadCoordError):
        spectrum.get(16, 0)


def test_view_is_zero_copy_and_writable(rng):
    spectrum = kxfreq.forward(random_image(rng, numpy.uint8, (20, 30)))
    view = spectrum.array
    assert view.dtype == numpy.complex64 and view.shape == (32, 32)
    assert view.flags.writeable and view.flags.c_contiguous and not view.flags.owndata
    # Writing through the view changes what get() reads, and put() shows in the view.
    view[5, 7] = 3 + 4j
    assert spectrum.get(7, 5) == 3 + 4j
    spectrum.put(1, 2, -1 - 1j)
    assert view[2, 1] == -1 - 1j
    # numpy.asarray and a second .array share the same store.
    again = numpy.asarray(spectrum)
    assert numpy.shares_memory(again, view) and numpy.shares_memory(spectrum.array, view)
    again[0, 0] = 42
    assert spectrum.get(0, 0) == 42
    # A dtype asked of __array__ gives a converted copy.
    converted = numpy.asarray(spectrum, dtype=numpy.complex128)
    assert converted.dtype == numpy.complex128 and not numpy.shares_memory(converted, view)
    copied = spectrum.__array__(copy=True)
    assert copied.dtype == numpy.complex64 and not numpy.shares_memory(copied, view)
    # Element-wise work through the view is seen by the inverse.
    view[:] = 0
    view[0, 0] = 32 * 32 * 7
    assert numpy.all(kxfreq.inverse(spectrum) == 7)


def test_view_keeps_the_spectrum_alive(rng):
    image = random_image(rng, numpy.float64, (16, 16))
    spectrum = kxfreq.forward(image)
    alive = weakref.ref(spectrum)
    expected = spectrum.array.copy()
    view = spectrum.array
    del spectrum
    gc.collect()
    assert alive() is not None
    assert same_bits(view, expected)
    view[1, 1] = 5j
    assert alive().get(1, 1) == 5j
    del view
    gc.collect()
    assert alive() is None


def test_a_spectrum_with_views_is_not_resized(rng):
    small = kxfreq.forward(random_image(rng, numpy.uint8, (16, 16)))
    large = kxfreq.forward(random_image(rng, numpy.uint8, (64, 64)))
    out = kxfreq.Spectrum()
    kxfreq.add(small, small, out=out)
    view = out.array
    with pytest.raises(ValueError, match="cannot resize a spectrum while numpy views"):
        kxfreq.add(large, large, out=out)
    with pytest.raises(ValueError, match="cannot resize"):
        kxfreq.BandPass(0.02, 0.01, 0.1, (64, 64), 1).apply(large, out)
    # The same size is fine, and the view sees the result.
    kxfreq.multiply(small, small, out=out)
    assert numpy.shares_memory(view, out.array)
    assert same_bits(view, kxfreq.multiply(small, small).array)
    del view
    kxfreq.add(large, large, out=out)
    assert out.width == 64


def test_masked_band_after_a_pass_filter():
    spectrum = kxfreq.forward(texture((64, 64)))
    kxfreq.Gabor((0.02, 0.02), (0.0, 0.0), 0.0, 0.125, (64, 64), 1).apply(spectrum)
    assert spectrum.masked
    first, last = spectrum.band
    assert 0 <= first <= 32 <= last < 64
    # Rows outside the band (in centred row indices) are zero.
    centred_rows = numpy.fft.fftshift(spectrum.array, axes=0)
    outside = numpy.r_[0:first, last + 1 : 64]
    assert not numpy.any(centred_rows[outside])


def test_copy_is_independent(rng):
    spectrum = kxfreq.forward(random_image(rng, numpy.float64, (10, 10)))
    copy = spectrum.copy()
    assert copy == spectrum and copy is not spectrum
    copy.put(0, 0, 99)
    assert spectrum.get(0, 0) != 99
    assert copy != spectrum
    import copy as copy_module

    assert copy_module.deepcopy(spectrum) == spectrum and copy_module.copy(spectrum) == spectrum
