"""The filters for images of any size on numpy arrays: dtypes and layouts,
results against independent expectations, and argument errors."""
import threading

import numpy
import pytest

import kxfreq
from conftest import random_image, same_bits

FUNCTIONS = {
    "band_reject": dict(frequency=0.1, sigma=0.01),
    "band_pass": dict(frequency=0.1, sigma=0.01),
    "gabor": dict(frequency=0.1, sigma=0.01, angle=0.5),
    "gabor_reject": dict(frequency=0.1, sigma=(0.01, 0.02), angle=0.5),
}


def run(name, image, **extra):
    return getattr(kxfreq, name)(image, **FUNCTIONS[name], **extra)


def sine_image(shape, frequency, angle, amplitude=60.0, base=120.0):
    """A plane wave of `frequency` cycles per pixel in direction `angle`."""
    y, x = numpy.mgrid[0 : shape[0], 0 : shape[1]].astype(numpy.float64)
    return base + amplitude * numpy.cos(2 * numpy.pi * frequency * (x * numpy.cos(angle) + y * numpy.sin(angle)))


def amplitude_of(image, frequency, angle, border=64):
    """The amplitude of the plane wave in the image's interior, by projection."""
    inner = (slice(border, image.shape[0] - border), slice(border, image.shape[1] - border))
    y, x = numpy.mgrid[0 : image.shape[0], 0 : image.shape[1]].astype(numpy.float64)
    phase = 2 * numpy.pi * frequency * (x * numpy.cos(angle) + y * numpy.sin(angle))
    values = image[inner] - image[inner].mean()
    c = numpy.mean(values * numpy.cos(phase[inner]))
    s = numpy.mean(values * numpy.sin(phase[inner]))
    return 2 * numpy.hypot(c, s)


@pytest.mark.parametrize("name", FUNCTIONS)
@pytest.mark.parametrize("dtype", [numpy.uint8, numpy.uint16, numpy.float32, numpy.float64, numpy.int16, numpy.bool_])
def test_every_dtype_comes_back_in_its_dtype_and_shape(rng, name, dtype):
    image = random_image(rng, numpy.uint8, (300, 420)).astype(dtype)
    result = run(name, image, tile=256)
    assert result.dtype == numpy.dtype(dtype) and result.shape == image.shape


@pytest.mark.parametrize("name", FUNCTIONS)
def test_float32_gives_the_float64_results_of_the_same_values(rng, name):
    image = rng.uniform(0, 255, (200, 330)).astype(numpy.float32)
    for dtype in (numpy.float32, numpy.float64):
        assert same_bits(run(name, image, tile=256, dtype=dtype),
                         run(name, image.astype(numpy.float64), tile=256, dtype=dtype))


def test_integer_results_are_the_float_result_rounded_and_clipped(rng):
    # The same margin for both: by default it follows the output's depth.
    image = random_image(rng, numpy.uint8, (260, 300))
    exact = kxfreq.band_reject(image, frequency=0.1, sigma=0.01, tile=256, margin=90, dtype=numpy.float64)
    as8 = kxfreq.band_reject(image, frequency=0.1, sigma=0.01, tile=256, margin=90)
    expected = numpy.clip(numpy.round(exact), 0, 255)   # no value is exactly half-way
    assert numpy.array_equal(as8, expected)
    assert exact.min() < 0 and exact.max() > 255  # the clipping was exercised


def test_non_contiguous_and_fortran_ordered_input_give_the_contiguous_result(rng):
    base = random_image(rng, numpy.uint16, (400, 500))
    contiguous = numpy.ascontiguousarray(base[::2, 1::2])
    expected = kxfreq.gabor(contiguous, frequency=0.12, sigma=0.02, tile=128)
    assert numpy.array_equal(kxfreq.gabor(base[::2, 1::2], frequency=0.12, sigma=0.02, tile=128), expected)
    fortran = numpy.asfortranarray(contiguous)
    assert numpy.array_equal(kxfreq.gabor(fortran, frequency=0.12, sigma=0.02, tile=128), expected)
    assert numpy.array_equal(kxfreq.gabor(contiguous.tolist(), frequency=0.12, sigma=0.02, tile=128, dtype=numpy.float64),
                             kxfreq.gabor(contiguous, frequency=0.12, sigma=0.02, tile=128, dtype=numpy.float64))


def test_channels_are_each_filtered_alone(rng):
    colour = random_image(rng, numpy.uint8, (150, 170, 3))
    result = kxfreq.band_pass(colour, frequency=0.2, sigma=0.03, tile=128)
    assert result.shape == colour.shape and result.dtype == numpy.uint8
    planar = numpy.moveaxis(colour, -1, 0)
    first = kxfreq.band_pass(planar, frequency=0.2, sigma=0.03, tile=128, channel_axis=0)
    for c in range(3):
        alone = kxfreq.band_pass(colour[:, :, c], frequency=0.2, sigma=0.03, tile=128)
        assert numpy.array_equal(result[:, :, c], alone)
        assert numpy.array_equal(first[c], alone)


def test_an_alpha_channel_is_kept_as_it_is(rng):
    """The last of two or four channels is alpha, as the tool keeps a file's
    alpha: copied exactly, in the result's dtype; the others are filtered
    each alone. alpha=False filters it too, alpha=True keeps it for any count."""
    options = dict(frequency=0.2, sigma=0.03, tile=128)
    for count in (2, 4):
        image = random_image(rng, numpy.uint8, (150, 170, count))
        result = kxfreq.band_reject(image, **options)
        assert numpy.array_equal(result[:, :, -1], image[:, :, -1])
        for c in range(count - 1):
            assert numpy.array_equal(result[:, :, c], kxfreq.band_reject(image[:, :, c], **options))
        as_float = kxfreq.band_reject(image, **options, dtype=numpy.float32)
        assert as_float.dtype == numpy.float32
        assert numpy.array_equal(as_float[:, :, -1], image[:, :, -1].astype(numpy.float32))
        every = kxfreq.band_reject(image, **options, alpha=False)
        assert numpy.array_equal(every[:, :, -1], kxfreq.band_reject(image[:, :, -1], **options))
    three = random_image(rng, numpy.uint16, (3, 90, 100))
    kept = kxfreq.band_pass(three, **options, channel_axis=0, alpha=True)
    assert numpy.array_equal(kept[2], three[2])
    assert numpy.array_equal(kept[0], kxfreq.band_pass(three[0], **options))
    assert not numpy.array_equal(kxfreq.band_pass(three, **options, channel_axis=0)[2], three[2])


def test_alpha_needs_channels():
    with pytest.raises(kxfreq.InvalidArgumentError, match="alpha=True needs an image with two or more channels, not 1"):
        kxfreq.band_pass(numpy.zeros((8, 8)), frequency=0.1, sigma=0.01, alpha=True)


def test_the_pattern_is_removed_or_kept_across_tiles():
    """An independent expectation: a plane wave at the filter's frequency is
    rejected by the reject filters and kept by the pass filters, across tile
    borders (tile 256 on a 600 x 700 image)."""
    frequency, angle = 0.1, numpy.pi / 6
    image = sine_image((600, 700), frequency, angle)
    base = amplitude_of(image, frequency, angle)
    assert abs(base - 60.0) < 0.5
    common = dict(frequency=frequency, sigma=0.01, tile=256, dtype=numpy.float64)
    assert amplitude_of(kxfreq.band_reject(image, **common), frequency, angle) < 0.05 * base
    assert abs(amplitude_of(kxfreq.band_pass(image, **common), frequency, angle) - base) < 0.02 * base
    assert amplitude_of(kxfreq.gabor_reject(image, angle=angle, **common), frequency, angle) < 0.05 * base
    gabor = kxfreq.gabor(image, angle=angle, **common)
    assert abs(amplitude_of(gabor, frequency, angle) - base) < 0.02 * base
    # The real part of the Gabor result is the wave itself, around zero.
    inner = (slice(64, -64), slice(64, -64))
    assert numpy.max(numpy.abs(gabor[inner] - (image[inner] - 120.0))) < 0.02 * base


def test_tile_borders_leave_no_seams(rng):
    """The same image in tiles of 128 and in one transform agrees within one
    grey level away from the image's border."""
    image = random_image(rng, numpy.uint8, (500, 600))
    whole = kxfreq.band_reject(image, frequency=0.15, sigma=0.02)
    tiled = kxfreq.band_reject(image, frequency=0.15, sigma=0.02, tile=128)
    inner = (slice(40, -40), slice(40, -40))
    assert numpy.max(numpy.abs(whole[inner].astype(int) - tiled[inner].astype(int))) <= 1


def test_jobs_give_the_same_bits(rng):
    image = random_image(rng, numpy.uint16, (700, 900))
    one = kxfreq.gabor_reject(image, frequency=0.2, sigma=0.02, angle=1.0, tile=128)
    for jobs in (2, 3):
        assert numpy.array_equal(one, kxfreq.gabor_reject(image, frequency=0.2, sigma=0.02, angle=1.0, tile=128,
                                                          jobs=jobs))


def test_outputs(rng):
    image = sine_image((256, 300), 0.1, 0.0).astype(numpy.uint8)
    real = kxfreq.gabor(image, frequency=0.1, sigma=0.02, dtype=numpy.float64)
    signed = kxfreq.gabor(image, frequency=0.1, sigma=0.02, output="signed")
    assert numpy.array_equal(signed, numpy.clip(numpy.round(real + 128), 0, 255))
    magnitude = kxfreq.gabor(image, frequency=0.1, sigma=0.02, output="magnitude", dtype=numpy.float64)
    assert numpy.all(magnitude >= numpy.abs(real) - 1e-9)


def test_a_large_uint16_image_keeps_its_dtype_and_shape(rng):
    image = rng.integers(0, 65536, (5000, 7000), dtype=numpy.uint16)
    result = kxfreq.band_reject(image, frequency=0.1, sigma=0.01, jobs=2)
    assert result.dtype == numpy.uint16 and result.shape == (5000, 7000)
    assert abs(float(result.mean()) - float(image.mean())) < 1.0  # the zero frequency passes


def test_the_gil_is_released_while_tiles_are_computed(rng):
    image = random_image(rng, numpy.uint8, (2500, 3000))
    done = threading.Event()
    result = []

    def work():
        result.append(kxfreq.band_reject(image, frequency=0.1, sigma=0.01, tile=256))
        done.set()

    worker = threading.Thread(target=work)
    worker.start()
    spins = 0
    while not done.is_set():
        spins += 1
    worker.join()
    assert spins > 1000 and result[0].shape == image.shape


def test_argument_errors_name_what_they_saw():
    """Refused values are the module's InvalidArgumentError and InvalidSizeError
    (both also ValueErrors); refused types are TypeErrors."""
    image = numpy.zeros((100, 100), dtype=numpy.uint8)
    with pytest.raises(kxfreq.InvalidSizeError, match=r"must be 2-D \(height, width\) or 3-D .* not 1-D with shape \(5,\)"):
        kxfreq.band_reject(numpy.zeros(5), frequency=0.1, sigma=0.01)
    with pytest.raises(kxfreq.InvalidSizeError, match=r"not 4-D with shape \(2, 2, 2, 2\)"):
        kxfreq.band_reject(numpy.zeros((2, 2, 2, 2)), frequency=0.1, sigma=0.01)
    with pytest.raises(kxfreq.UnboundWindowError, match=r"image has no pixels \(shape \(0, 4\)\)"):
        kxfreq.gabor(numpy.zeros((0, 4)), frequency=0.1, sigma=0.01)
    with pytest.raises(TypeError, match="must have a real dtype.* not complex128"):
        kxfreq.band_pass(numpy.zeros((8, 8), dtype=complex), frequency=0.1, sigma=0.01)
    with pytest.raises(kxfreq.InvalidArgumentError, match='output must be "real", "signed" or "magnitude", not "imag"'):
        kxfreq.band_pass(image, frequency=0.1, sigma=0.01, output="imag")
    with pytest.raises(TypeError, match="dtype must be float32 or float64 .* not uint8"):
        kxfreq.band_pass(image, frequency=0.1, sigma=0.01, dtype=numpy.uint8)
    with pytest.raises(kxfreq.InvalidArgumentError, match="jobs must be at least 1, not 0"):
        kxfreq.band_pass(image, frequency=0.1, sigma=0.01, jobs=0)
    with pytest.raises(kxfreq.InvalidArgumentError, match="margin must be 0 or more"):
        kxfreq.band_pass(image, frequency=0.1, sigma=0.01, margin=-2)
    with pytest.raises(kxfreq.InvalidArgumentError, match="channel_axis must be -3 to 2"):
        kxfreq.band_pass(numpy.zeros((8, 8, 3)), frequency=0.1, sigma=0.01, channel_axis=3)
    with pytest.raises(TypeError):
        kxfreq.band_pass(image, 0.1, 0.01)  # parameters are keywords
    with pytest.raises(kxfreq.InvalidArgumentError, match="sigma must be a number or a pair"):
        kxfreq.gabor(image, frequency=0.1, sigma=(0.1, 0.2, 0.3))


def test_library_refusals_are_the_module_exceptions_with_the_library_messages():
    image = numpy.zeros((300, 300), dtype=numpy.uint8)
    with pytest.raises(kxfreq.InvalidArgumentError) as info:
        kxfreq.band_reject(image, frequency=0.1, sigma=-0.01)
    assert str(info.value) == "Sigma must be positive."
    with pytest.raises(kxfreq.InvalidArgumentError) as info:
        kxfreq.gabor(image, frequency=0.1, sigma=(0.0, 0.01))
    assert str(info.value) == "Sigma values must be positive."
    for bad_tile in (100, 32, 4096):
        with pytest.raises(kxfreq.InvalidArgumentError) as info:
            kxfreq.band_reject(image, frequency=0.1, sigma=0.01, tile=bad_tile)
        assert str(info.value)
    with pytest.raises(kxfreq.InvalidArgumentError) as info:
        kxfreq.band_reject(image, frequency=0.1, sigma=0.01, tile=64, margin=40)
    assert "31" in str(info.value)  # the largest margin that fits a tile of 64


def test_welch_spectrum_and_peaks_of_a_large_image(rng):
    frequency, angle = 0.0625, numpy.pi / 6
    image = sine_image((2600, 3000), frequency, angle, amplitude=20.0) + rng.normal(0, 5, (2600, 3000))
    spectrum = kxfreq.welch_spectrum(image)
    assert (spectrum.width, spectrum.height) == (1024, 1024)
    peaks = kxfreq.find_peaks(image, max_peaks=1)
    assert len(peaks) == 1
    fx, fy = frequency * numpy.cos(angle), frequency * numpy.sin(angle)
    assert numpy.hypot(abs(peaks[0]["fx"]) - fx, peaks[0]["fy"] - fy) < 0.002
    assert kxfreq.find_peaks(spectrum, max_peaks=1)[0]["fx"] == peaks[0]["fx"]
    cleaned = kxfreq.remove_texture(image.astype(numpy.float32), max_peaks=1)
    assert cleaned.dtype == numpy.float32 and cleaned.shape == image.shape
    assert amplitude_of(cleaned.astype(numpy.float64), frequency, angle) < 0.05 * 20.0
    with pytest.raises(kxfreq.InvalidArgumentError, match='window must be "hann", "tukey" or "none"'):
        kxfreq.welch_spectrum(image, window="box")


def test_registration_of_images_larger_than_one_transform(rng):
    """A shift of (37, -21) pixels between two crops of a larger smooth scene."""
    scene = rng.normal(0, 1, (2700, 2500))
    spectrum = numpy.fft.rfft2(scene)
    fy = numpy.fft.fftfreq(scene.shape[0])[:, None]
    fx = numpy.fft.rfftfreq(scene.shape[1])[None, :]
    scene = numpy.fft.irfft2(spectrum * numpy.exp(-(fx**2 + fy**2) / (2 * 0.05**2)), s=scene.shape)
    reference = scene[100:2600, 100:2400]
    moving = scene[100 - 21 : 2600 - 21, 100 + 37 : 2400 + 37]  # moving(x + dx, y + dy) = reference(x, y)
    dx, dy, confidence = kxfreq.phase_correlate(reference, moving)
    assert abs(dx - -37) < 0.1 and abs(dy - 21) < 0.1 and confidence > 0.05
