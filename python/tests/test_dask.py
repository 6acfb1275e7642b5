"""kxfreq.dask on a real distributed cluster (two worker processes): the
filters against the in-memory functions, chunks smaller than the margin,
channels, and the Welch spectrum, peaks and texture removal as reductions."""
import sys

import numpy
import pytest

distributed = pytest.importorskip("distributed")
da = pytest.importorskip("dask.array")

import kxfreq  # noqa: E402
import kxfreq.dask as kd  # noqa: E402
from test_array_filters import FUNCTIONS, amplitude_of, sine_image  # noqa: E402


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                                       memory_limit="1GiB")
    client = distributed.Client(cluster)
    try:
        yield client
    finally:
        client.close()
        cluster.close()


def within_one_grey_level(a, b):
    return numpy.max(numpy.abs(a.astype(numpy.float64) - b.astype(numpy.float64))) <= 1.0


def test_the_work_runs_on_the_two_worker_processes(client):
    assert len(client.scheduler_info()["workers"]) == 2
    image = da.from_array(numpy.zeros((600, 600), dtype=numpy.uint8), chunks=300)
    kd.band_pass(image, frequency=0.1, sigma=0.02).compute()
    loaded = client.run(lambda: "kxfreq" in sys.modules)
    assert len(loaded) == 2 and all(loaded.values())


@pytest.mark.parametrize("name", FUNCTIONS)
@pytest.mark.parametrize("dtype", [numpy.uint8, numpy.float32, numpy.int16])
def test_each_filter_equals_the_in_memory_function_within_one_grey_level(client, rng, name, dtype):
    image = rng.uniform(0, 255, (700, 800)) if dtype == numpy.float32 else rng.integers(0, 256, (700, 800))
    image = image.astype(dtype)
    expected = getattr(kxfreq, name)(image, **FUNCTIONS[name])
    lazy = getattr(kd, name)(da.from_array(image, chunks=(350, 400)), **FUNCTIONS[name])
    assert lazy.dtype == expected.dtype and lazy.shape == expected.shape
    result = lazy.compute()
    assert result.dtype == expected.dtype and within_one_grey_level(result, expected)


def test_chunks_smaller_than_the_margin_are_merged(client, rng):
    image = rng.integers(0, 256, (700, 650), dtype=numpy.uint8)
    margin = kxfreq._kxfreq._BandRejectDescription(0.01, 0.0, 0.1, 0).margin(numpy.uint8, None, 2048, None)
    assert margin > 40
    small = da.from_array(image, chunks=(40, 33))
    result = kd.band_reject(small, frequency=0.1, sigma=0.01).compute()
    assert within_one_grey_level(result, kxfreq.band_reject(image, frequency=0.1, sigma=0.01))


def test_sixteen_bit_results_agree_as_closely_as_tiles_do_in_memory(client, rng):
    """On 16-bit white noise at full scale the single-precision spectra of
    differently placed tiles agree to a few 1e-4 of full scale (in memory,
    tiles of 256 against one transform differ by up to about 50 levels), so
    the bound here is 1e-3 of full scale, not one level."""
    image = rng.integers(0, 65536, (700, 650), dtype=numpy.uint16)
    result = kd.band_reject(da.from_array(image, chunks=(300, 200)), frequency=0.1, sigma=0.01).compute()
    expected = kxfreq.band_reject(image, frequency=0.1, sigma=0.01)
    assert result.dtype == numpy.uint16
    assert numpy.max(numpy.abs(result.astype(numpy.int64) - expected)) <= 0.001 * 65535


def test_channels_and_options_pass_through(client, rng):
    colour = rng.integers(0, 256, (500, 600, 3), dtype=numpy.uint8)
    lazy = kd.gabor(da.from_array(colour, chunks=(250, 300, 1)), frequency=0.15, sigma=0.03, angle=1.0,
                    output="magnitude", dtype=numpy.float32, tile=256)
    expected = kxfreq.gabor(colour, frequency=0.15, sigma=0.03, angle=1.0, output="magnitude",
                            dtype=numpy.float32, tile=256)
    result = lazy.compute()
    assert result.dtype == numpy.float32 and within_one_grey_level(result, expected)


def test_an_alpha_channel_split_over_chunks_is_kept(client, rng):
    rgba = rng.integers(0, 256, (400, 500, 4), dtype=numpy.uint8)
    lazy = kd.band_reject(da.from_array(rgba, chunks=(200, 250, 2)), frequency=0.15, sigma=0.02, tile=256)
    result = lazy.compute()
    assert numpy.array_equal(result[:, :, 3], rgba[:, :, 3])
    expected = kxfreq.band_reject(rgba, frequency=0.15, sigma=0.02, tile=256)
    assert within_one_grey_level(result, expected)


def test_bad_options_are_refused_before_anything_runs():
    image = da.zeros((3000, 3000), dtype=numpy.uint8, chunks=1000)
    with pytest.raises(kxfreq.InvalidArgumentError, match="at most 31 fits"):
        kd.band_reject(image, frequency=0.1, sigma=0.01, tile=64, margin=40)
    with pytest.raises(kxfreq.InvalidArgumentError):
        kd.band_reject(image, frequency=0.1, sigma=0.01, tile=100)
    with pytest.raises(kxfreq.InvalidSizeError, match=r"must be 2-D \(height, width\), not 4-D with shape"):
        kd.welch_spectrum(da.zeros((10, 10, 10, 10), chunks=5))
    with pytest.raises(kxfreq.InvalidSizeError, match=r"not 4-D with shape \(10, 10, 10, 10\)"):
        kd.band_pass(da.zeros((10, 10, 10, 10), chunks=5), frequency=0.1, sigma=0.01)
    with pytest.raises(kxfreq.InvalidArgumentError, match="channel_axis must be -3 to 2 for a 3-D image, not 5"):
        kd.band_pass(da.zeros((10, 10, 3), chunks=5), frequency=0.1, sigma=0.01, channel_axis=5)


def test_a_pattern_is_found_and_removed_by_reductions(client, rng):
    frequency, angle = 0.0625, numpy.pi / 6
    shape = (2100, 2300)
    image = (sine_image(shape, frequency, angle, amplitude=20.0) + rng.normal(0, 5, shape)).astype(numpy.float32)
    lazy = da.from_array(image, chunks=(1050, 1150))
    spectrum = kd.welch_spectrum(lazy)
    assert (spectrum.width, spectrum.height) == (1024, 1024)
    peaks = kd.find_peaks(lazy, max_peaks=1)
    fx, fy = frequency * numpy.cos(angle), frequency * numpy.sin(angle)
    assert len(peaks) == 1 and numpy.hypot(abs(peaks[0]["fx"]) - fx, peaks[0]["fy"] - fy) < 0.002
    in_memory = kxfreq.find_peaks(image, max_peaks=1)[0]
    assert numpy.hypot(peaks[0]["fx"] - in_memory["fx"], peaks[0]["fy"] - in_memory["fy"]) < 0.002
    cleaned = kd.remove_texture(lazy, max_peaks=1).compute()
    assert cleaned.dtype == numpy.float32 and cleaned.shape == shape
    assert amplitude_of(cleaned.astype(numpy.float64), frequency, angle) < 0.05 * 20.0
