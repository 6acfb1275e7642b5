"""Forward and inverse transforms, component images, the display mapping and
the arithmetic, against numpy and against the C++ library bit for bit."""
import numpy
import pytest

import kxfreq
from conftest import random_image, same_bits, texture

SIZES = [(1, 1), (3, 5), (16, 16), (20, 37), (64, 128), (130, 200), (256, 100)]
DTYPES = [numpy.uint8, numpy.uint16, numpy.float64]


def padded(n):
    p = 1
    while p < n:
        p *= 2
    return p


def relative_rms(result, expected):
    return numpy.sqrt(numpy.mean(numpy.abs(result - expected) ** 2) / numpy.mean(numpy.abs(expected) ** 2))


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("shape", SIZES)
def test_forward_matches_numpy_fft2_of_the_zero_padded_image(rng, dtype, shape):
    image = random_image(rng, dtype, shape)
    spectrum = kxfreq.forward(image)
    h, w = shape
    assert (spectrum.width, spectrum.height) == (padded(w), padded(h))
    assert spectrum.requested_size == (w, h)
    expected = numpy.fft.fft2(image.astype(numpy.float64), s=(padded(h), padded(w)))
    result = spectrum.array
    assert result.dtype == numpy.complex64 and result.shape == expected.shape
    assert relative_rms(result.astype(numpy.complex128), expected) < 1e-5


@pytest.mark.parametrize("dtype", DTYPES)
def test_forward_of_two_images_matches_numpy_fft2_of_the_complex_image(rng, dtype):
    re = random_image(rng, dtype, (40, 24))
    im = random_image(rng, dtype, (40, 24))
    spectrum = kxfreq.forward(re, im)
    expected = numpy.fft.fft2(re.astype(numpy.float64) + 1j * im.astype(numpy.float64), s=(64, 32))
    assert relative_rms(spectrum.array.astype(numpy.complex128), expected) < 1e-5


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("shape", [(1, 1), (20, 37), (130, 200)])
def test_forward_is_bit_identical_to_the_library(reference, rng, dtype, shape):
    image = random_image(rng, dtype, shape)
    assert kxfreq.forward(image).to_bytes() == reference.forward(image)


@pytest.mark.parametrize("dtype", DTYPES)
def test_forward_of_two_images_is_bit_identical_to_the_library(reference, rng, dtype):
    re = random_image(rng, dtype, (33, 17))
    im = random_image(rng, dtype, (33, 17))
    assert kxfreq.forward(re, im).to_bytes() == reference.forward(re, im)


@pytest.mark.parametrize("dtype", DTYPES)
def test_non_contiguous_and_fortran_ordered_inputs(rng, dtype):
    base = random_image(rng, dtype, (90, 70))
    views = {
        "strided": base[::2, ::3],
        "fortran": numpy.asfortranarray(base),
        "transposed": base.T,
        "reversed": base[::-1, ::-1],
        "column slice": base[:, 5:40],
        "broadcast row": numpy.broadcast_to(base[3], (20, base.shape[1])),
    }
    read_only = base.copy()
    read_only.flags.writeable = False
    views["read-only"] = read_only
    for name, view in views.items():
        expected = kxfreq.forward(numpy.ascontiguousarray(view)).to_bytes()
        assert kxfreq.forward(view).to_bytes() == expected, name
    # The input is never changed.
    assert same_bits(base, base.copy())


def test_dtypes_are_recognised_by_kind_not_by_identity(rng):
    image = random_image(rng, numpy.uint16, (9, 7))
    with_metadata = image.view(numpy.dtype(numpy.uint16, metadata={"unit": "counts"}))
    assert with_metadata.dtype is not image.dtype
    assert kxfreq.forward(with_metadata).to_bytes() == kxfreq.forward(image).to_bytes()
    assert kxfreq.inverse(kxfreq.forward(image), dtype=numpy.dtype("<u2")).dtype == numpy.uint16
    assert kxfreq.inverse(kxfreq.forward(image), dtype="float64").dtype == numpy.float64


def test_non_native_byte_order_gives_the_native_spectrum(rng):
    image = random_image(rng, numpy.uint16, (9, 12))
    swapped = image.astype(">u2")
    assert kxfreq.forward(swapped) == kxfreq.forward(image)


@pytest.mark.parametrize("dtype", DTYPES)
def test_round_trip_gives_the_image_back(rng, dtype):
    image = random_image(rng, numpy.uint8, (45, 31)).astype(dtype)
    result = kxfreq.inverse(kxfreq.forward(image), dtype=dtype)
    assert result.dtype == numpy.dtype(dtype) and result.shape == image.shape
    if dtype == numpy.float64:
        assert numpy.max(numpy.abs(result - image)) < 1e-3
    else:
        # The magnitude is rounded to the nearest integer.
        assert numpy.array_equal(result, image)


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("scale", [False, True])
@pytest.mark.parametrize("mode", ["magnitude", "angle", "quadrant"])
def test_inverse_is_bit_identical_to_the_library(reference, rng, dtype, scale, mode):
    spectrum = kxfreq.forward(random_image(rng, numpy.uint8, (37, 50)))
    kxfreq.BandPass(0.02, 0.01, 0.1, (spectrum.width, spectrum.height), 1).apply(spectrum)
    source = reference.spectrum_file(spectrum)
    out, second = reference.path("image.raw"), reference.path("second.raw")
    reference.run("inverse", mode, {numpy.uint8: "u8", numpy.uint16: "u16", numpy.float64: "f64"}[dtype],
                  int(scale), source, out, second)
    expected = reference.read_image(out, dtype, (37, 50))
    if mode == "magnitude":
        result = kxfreq.inverse(spectrum, dtype=dtype, scale=scale)
    elif mode == "angle":
        result, angle = kxfreq.inverse_angle(spectrum, dtype=dtype, scale=scale)
        assert same_bits(angle, reference.read_image(second, numpy.float64, (37, 50)))
    else:
        result, quadrant = kxfreq.inverse_quadrant(spectrum, dtype=dtype, scale=scale)
        assert same_bits(quadrant, reference.read_image(second, numpy.uint8, (37, 50)))
        assert set(numpy.unique(quadrant)) <= {0, 1, 2, 3}
    assert same_bits(result, expected)


def test_inverse_complex_is_bit_identical_to_the_library(reference, rng):
    spectrum = kxfreq.forward(random_image(rng, numpy.float64, (19, 23)), random_image(rng, numpy.float64, (19, 23)))
    re_path, im_path = reference.path("re.raw"), reference.path("im.raw")
    reference.run("inverse", "complex", "-", 0, reference.spectrum_file(spectrum), re_path, im_path)
    re, im = kxfreq.inverse_complex(spectrum)
    assert same_bits(re, reference.read_image(re_path, numpy.float64, (19, 23)))
    assert same_bits(im, reference.read_image(im_path, numpy.float64, (19, 23)))


def test_integer_results_keep_the_low_bits_without_clamping():
    image = numpy.full((8, 8), 300.0)
    spectrum = kxfreq.forward(image)
    as_double = kxfreq.inverse(spectrum, dtype=numpy.float64)
    as_bytes = kxfreq.inverse(spectrum, dtype=numpy.uint8)
    # Rounded (0.5 added, then truncated toward zero), then the low 8 bits.
    rounded = numpy.trunc(as_double + 0.5).astype(numpy.int64)
    assert numpy.array_equal(as_bytes, (rounded & 0xFF).astype(numpy.uint8))
    assert numpy.all(as_bytes == 300 - 256)  # wraps, never clamps to 255
    assert numpy.all(kxfreq.inverse(spectrum, dtype=numpy.uint16) == 300)


def test_in_place_inverse_locks_the_frequency_data():
    image = texture()
    spectrum = kxfreq.forward(image)
    first = kxfreq.inverse(spectrum, dtype=numpy.float64, in_place=True)
    assert spectrum.inverse_computed
    with pytest.raises(kxfreq.InvalidBufferError, match="Cannot access frequency data once inverse has been computed."):
        spectrum.get(0, 0)
    with pytest.raises(kxfreq.InvalidBufferError):
        spectrum.array
    with pytest.raises(kxfreq.InvalidBufferError):
        spectrum.magnitude()
    # Later inverses reuse the spatial result.
    assert same_bits(kxfreq.inverse(spectrum, dtype=numpy.float64), first)


def test_in_place_inverse_leaves_existing_views_on_the_spatial_result():
    image = texture((16, 16))
    spectrum = kxfreq.forward(image)
    view = spectrum.array
    kxfreq.inverse(spectrum, dtype=numpy.float64, in_place=True)
    # The store now holds the unscaled spatial result: width x height times the image.
    assert numpy.max(numpy.abs(view.real / 256.0 - image)) < 1e-3
    assert numpy.max(numpy.abs(view.imag / 256.0)) < 1e-3


@pytest.mark.parametrize("part", ["real", "imaginary", "magnitude", "phase"])
@pytest.mark.parametrize("centered", [False, True])
def test_component_images_are_bit_identical_to_the_library(reference, rng, part, centered):
    spectrum = kxfreq.forward(random_image(rng, numpy.uint16, (30, 20)))
    out = reference.path("component.raw")
    reference.run("component", part, int(centered), reference.spectrum_file(spectrum), out)
    result = getattr(spectrum, part)(centered=centered)
    assert result.dtype == numpy.float64 and result.shape == (32, 32)
    assert same_bits(result, reference.read_image(out, numpy.float64, (32, 32)))
    if part == "real" and not centered:
        assert same_bits(result, spectrum.array.real.astype(numpy.float64))
    if part == "real" and centered:
        assert same_bits(result, numpy.fft.fftshift(spectrum.array.real.astype(numpy.float64)))


@pytest.mark.parametrize("mapping,low,high", [("clip", 0.0, 0.0), ("linear", 0.0, 0.0), ("range", -50.0, 700.0),
                                              ("log", 0.0, 0.0), ("phase", 0.0, 0.0)])
def test_map_image_is_bit_identical_to_the_library(reference, rng, mapping, low, high):
    values = rng.uniform(-100.0, 1000.0, size=(21, 13))
    if mapping == "log":
        values = numpy.abs(values)
    if mapping == "phase":
        values = rng.uniform(-numpy.pi, numpy.pi, size=(21, 13))
    out = reference.path("mapped.raw")
    reference.run("map", mapping, repr(low), repr(high), 13, 21, reference.image_file(values), out)
    result = kxfreq.map_image(values, mapping, low, high)
    assert result.dtype == numpy.uint8
    assert same_bits(result, reference.read_image(out, numpy.uint8, (21, 13)))
    # Strided input gives the same result.
    assert same_bits(kxfreq.map_image(numpy.asfortranarray(values), mapping, low, high), result)


def test_map_image_default_is_log():
    values = numpy.abs(texture())
    assert same_bits(kxfreq.map_image(values), kxfreq.map_image(values, "log"))


@pytest.mark.parametrize("op", ["multiply", "add", "subtract", "conjugate"])
def test_arithmetic_is_bit_identical_to_the_library(reference, rng, op):
    a = kxfreq.forward(random_image(rng, numpy.float64, (24, 24)))
    b = kxfreq.forward(random_image(rng, numpy.float64, (30, 17)))
    out = reference.path("result.bin")
    if op == "conjugate":
        reference.run("arith", op, reference.spectrum_file(a), "-", out)
        result = kxfreq.conjugate(a)
    else:
        reference.run("arith", op, reference.spectrum_file(a), reference.spectrum_file(b), out)
        result = getattr(kxfreq, op)(a, b)
    assert result.to_bytes() == reference.read_bytes(out)


def test_arithmetic_values_and_outputs(rng):
    a = kxfreq.forward(random_image(rng, numpy.float64, (16, 16)))
    b = kxfreq.forward(random_image(rng, numpy.float64, (16, 16)))
    va, vb = a.array.copy(), b.array.copy()
    assert numpy.array_equal(kxfreq.add(a, b).array, va + vb)
    assert numpy.array_equal(kxfreq.subtract(a, b).array, va - vb)
    assert numpy.array_equal(kxfreq.conjugate(a).array, numpy.conj(va))
    product = kxfreq.multiply(a, b).array
    assert numpy.max(numpy.abs(product - va * vb)) <= 1e-6 * numpy.max(numpy.abs(va * vb))
    # Into an existing spectrum, which is returned; the inputs stay as they were.
    out = kxfreq.Spectrum()
    assert kxfreq.add(a, b, out=out) is out
    assert numpy.array_equal(out.array, va + vb)
    assert numpy.array_equal(a.array, va) and numpy.array_equal(b.array, vb)
    # Into one of the operands.
    assert kxfreq.subtract(a, b, out=b) is b
    assert numpy.array_equal(b.array, va - vb)
    assert kxfreq.conjugate(a, out=a) is a
    assert numpy.array_equal(a.array, numpy.conj(va))
