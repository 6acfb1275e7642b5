"""Filters for images of any size, on numpy arrays.

Each function builds the filter's size-independent description and filters
the image in overlapping tiles (overlap-save) with mirrored borders; an image
that fits in one tile is filtered by one transform of its padded size. The
GIL is released while the tiles are computed.
"""
from . import _kxfreq  # type: ignore[attr-defined]  # compiled; typed by __init__.pyi

TILE = 2048


_ERROR_NUMBERS = {"InvalidArgumentError": 0x10006300, "InvalidSizeError": 0x10006302}


def refuse(kind, message):
    """The module's refusal of a value (kind: "InvalidArgumentError" or
    "InvalidSizeError"), as the compiled functions raise it."""
    error = getattr(_kxfreq, kind)(message)
    error.error_number = _ERROR_NUMBERS[kind]
    raise error


def _pair(value, name):
    """A Gabor parameter given as one number (both directions) or a pair."""
    try:
        along, across = value
    except TypeError:
        along = across = value
    except ValueError:
        refuse("InvalidArgumentError", f"{name} must be a number or a pair (along, across), not {value!r}")
    return float(along), float(across)


def gabor_description(frequency, sigma, angle, plateau=0.0, dc_radius=0, reject=False):
    kind = _kxfreq._GaborRejectDescription if reject else _kxfreq._GaborDescription
    return kind(_pair(sigma, "sigma"), _pair(plateau, "plateau"), angle, frequency, dc_radius)


def radial_description(frequency, sigma, plateau=0.0, dc_radius=0, reject=False):
    kind = _kxfreq._BandRejectDescription if reject else _kxfreq._BandPassDescription
    return kind(sigma, plateau, frequency, dc_radius)


def band_reject(image, *, frequency, sigma, plateau=0.0, dc_radius=0, tile=TILE, margin=None, jobs=1,
                output="real", dtype=None, channel_axis=-1, alpha=None):
    """The image with a ring of radial frequencies suppressed.

    frequency: the ring's radius and sigma: its Gaussian flanks' standard
    deviation, in cycles per pixel; plateau: the half-width of its flat
    part; dc_radius: the square of grid elements around the zero frequency
    kept as it is (0: none). See band_pass for the other arguments."""
    return radial_description(frequency, sigma, plateau, dc_radius, reject=True).filter(
        image, tile, margin, jobs, output, dtype, channel_axis, alpha)


def band_pass(image, *, frequency, sigma, plateau=0.0, dc_radius=0, tile=TILE, margin=None, jobs=1,
              output="real", dtype=None, channel_axis=-1, alpha=None):
    """The image's ring of radial frequencies alone.

    image: a 2-D array of any size (uint8, uint16, float32, float64, or a
    dtype converted exactly: see forward), or a 3-D one whose `channel_axis`
    holds channels, each filtered alone. frequency, sigma, plateau: the
    ring, in cycles per pixel; dc_radius: the square of grid elements around
    the zero frequency cleared (0: none). tile: the tile side, a power of two
    from 64 to 2048; margin: the overlap in pixels (None: what the kernel
    needs for the output's depth); jobs: threads. output: "real" (default),
    "signed" (mid-grey added to integer results) or "magnitude". alpha: the
    last channel is an alpha channel, copied as it is (None: when there are
    two or four channels, as the tool keeps a file's alpha). The result
    has the image's shape and, unless dtype (float32 or float64, unrounded)
    is given, its dtype: integers rounded and clipped."""
    return radial_description(frequency, sigma, plateau, dc_radius).filter(
        image, tile, margin, jobs, output, dtype, channel_axis, alpha)


def gabor(image, *, frequency, sigma, angle=0.0, plateau=0.0, dc_radius=0, tile=TILE, margin=None, jobs=1,
          output="real", dtype=None, channel_axis=-1, alpha=None):
    """The image's oriented band around `frequency` cycles per pixel in
    direction `angle` (radians): a one-sided Gaussian lobe whose result is
    doubled, so that "real" gives the pattern and "magnitude" its envelope.
    sigma and plateau: one number or (along, across) the direction. See
    band_pass for the other arguments."""
    return gabor_description(frequency, sigma, angle, plateau, dc_radius).filter(
        image, tile, margin, jobs, output, dtype, channel_axis, alpha)


def gabor_reject(image, *, frequency, sigma, angle=0.0, plateau=0.0, dc_radius=0, tile=TILE, margin=None, jobs=1,
                 output="real", dtype=None, channel_axis=-1, alpha=None):
    """The image without the oriented pattern at `frequency` cycles per pixel
    in direction `angle` (radians): both lobes of the real pattern are
    rejected. dc_radius: the square around the zero frequency kept as it
    is. See gabor and band_pass for the other arguments."""
    return gabor_description(frequency, sigma, angle, plateau, dc_radius, reject=True).filter(
        image, tile, margin, jobs, output, dtype, channel_axis, alpha)


def welch_spectrum(image, *, segment=1024, overlap=0.5, window="hann", taper=0.5, jobs=1):
    """The Welch-averaged spectrum of a 2-D image of any size, as a Spectrum
    of segment x segment (smaller images: one tile of their padded size).

    The image is cut into segment x segment tiles overlapping by `overlap`
    (a fraction, 0 to 0.75), each freed of its mean, windowed ("hann",
    "tukey" with `taper`, or "none") and transformed; the real parts are the
    square root of the averaged power, the imaginary parts 0, so that
    find_peaks reads it as one tile's spectrum."""
    return _kxfreq._welch_spectrum(image, segment, overlap, window, taper, jobs)


def reject_components(image, components, *, width_scale=1.5, min_sigma=0.01, tile=TILE, margin=None, jobs=1,
                      output="real", dtype=None, channel_axis=-1, alpha=None):
    """The image with the periodic components `components` (dicts as
    find_peaks gives them) and their harmonics notched out, both lobes of
    each, in tiles: what remove_texture does after its search."""
    description = _kxfreq._PeriodicRejectDescription(list(components), width_scale, min_sigma)
    return description.filter(image, tile, margin, jobs, output, dtype, channel_axis, alpha)
