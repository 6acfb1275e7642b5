"""Every dtype an image may have: the library's own three as they are, the
others converted exactly or refused with the dtype they had."""
import numpy
import pytest

import kxfreq
from conftest import same_bits


def sample(rng, shape=(23, 37)):
    """Small non-negative integers: exact in every dtype tested here."""
    return rng.integers(0, 120, size=shape)


@pytest.mark.parametrize("dtype", [numpy.float16, numpy.float32, numpy.int8, numpy.int16, numpy.int32,
                                   numpy.int64, numpy.uint32, numpy.uint64, ">f8", "<f4", ">i4"])
def test_exact_conversions_give_the_float64_spectrum(rng, dtype):
    values = sample(rng)
    expected = kxfreq.forward(values.astype(numpy.float64))
    assert kxfreq.forward(values.astype(dtype)) == expected


def test_float32_results_are_the_float64_results_of_the_same_values(rng):
    image = (rng.random((40, 52)) * 255).astype(numpy.float32)
    wide = image.astype(numpy.float64)
    assert kxfreq.forward(image) == kxfreq.forward(wide)
    textured = image + 40 * numpy.sin(numpy.arange(52) * 0.9).astype(numpy.float32)
    result = kxfreq.remove_texture(textured)
    assert result.dtype == numpy.float32 and result.shape == textured.shape
    assert same_bits(result, kxfreq.remove_texture(textured.astype(numpy.float64)).astype(numpy.float32))
    assert kxfreq.phase_correlate(image, image) == kxfreq.phase_correlate(wide, wide)
    assert same_bits(kxfreq.map_image(image), kxfreq.map_image(wide))


def test_bool_is_uint8_zero_and_one(rng):
    mask = rng.random((16, 20)) > 0.5
    assert kxfreq.forward(mask) == kxfreq.forward(mask.astype(numpy.uint8))


def test_lists_and_other_array_likes(rng):
    values = sample(rng, (5, 6))
    assert kxfreq.forward(values.tolist()) == kxfreq.forward(values.astype(numpy.float64))
    assert kxfreq.forward([[True, False], [False, True]]) == kxfreq.forward(numpy.eye(2, dtype=numpy.uint8))


def test_int64_beyond_two_to_the_53_is_refused():
    exact = numpy.full((4, 4), 2**53, dtype=numpy.int64)
    kxfreq.forward(exact)  # the largest magnitude that converts exactly
    for bad in [numpy.full((4, 4), 2**53 + 1, dtype=numpy.int64), numpy.full((4, 4), -(2**53) - 1),
                numpy.full((4, 4), 2**63, dtype=numpy.uint64)]:
        with pytest.raises(ValueError, match=f"image of dtype {bad.dtype} holds values beyond 2\\*\\*53"):
            kxfreq.forward(bad)


def test_integer_results_are_rounded_and_clipped_to_the_input_dtype(rng):
    image = sample(rng, (32, 32)).astype(numpy.int16) - 60
    result = kxfreq.remove_texture(image)
    reference = kxfreq.remove_texture(image.astype(numpy.float64))
    assert result.dtype == numpy.int16
    half_away = numpy.copysign(numpy.floor(numpy.abs(reference) + 0.5), reference)
    assert numpy.array_equal(result, numpy.clip(half_away, -32768, 32767).astype(numpy.int16))
    assert (reference < -0.5).any()  # negative values were rounded too


def test_non_contiguous_and_fortran_ordered_input(rng):
    base = sample(rng, (60, 80)).astype(numpy.float32)
    view = base[::2, 1::3]
    assert kxfreq.forward(view) == kxfreq.forward(numpy.ascontiguousarray(view, dtype=numpy.float64))
    fortran = numpy.asfortranarray(base)
    assert kxfreq.forward(fortran) == kxfreq.forward(base.astype(numpy.float64))
