"""kxfreq: frequency-domain image processing on numpy arrays.

Images are 2-D arrays (or anything numpy.asarray turns into one): uint8,
uint16 and float64 are transformed as they are, bool as uint8 0 and 1,
float16, float32 and integers as float64, exactly (64-bit integers beyond
2**53 are refused). forward() turns one into a Spectrum (the unscaled 2-D
FFT on a padded power-of-two grid, at most 2048 x 2048), filters such as
BandReject or Gabor change a spectrum in place or into another one, and
inverse() turns it back into an image of the original size.

    import numpy, kxfreq
    spectrum = kxfreq.forward(image)
    kxfreq.BandReject(0.004, 0.004, 0.125, image.shape[::-1], 1).apply(spectrum)
    clean = kxfreq.inverse(spectrum, dtype=image.dtype)

Images of any size, and colour images (height, width, channels), are
filtered in overlapping tiles by band_reject, band_pass, gabor and
gabor_reject, which take the filter's parameters as keywords and give an
array of the image's shape and dtype:

    clean = kxfreq.band_reject(image, frequency=0.125, sigma=0.004)

welch_spectrum averages the spectra of tiles; find_peaks and remove_texture
take images of any size. kxfreq.dask does the same on dask arrays.

Every failure of the library raises a subclass of kxfreq.Error whose str() is
the library's message. Transforms, filters and the functions for any size
release the GIL.
"""
from ._kxfreq import (  # noqa: F401
    ArchiveError,
    BadCoordError,
    BandPass,
    BandReject,
    Error,
    Filter,
    Gabor,
    GaborReject,
    ImageFilter,
    InvalidArgumentError,
    InvalidBufferError,
    InvalidSizeError,
    Spectrum,
    UnboundWindowError,
    UninitializedError,
    add,
    conjugate,
    find_peaks,
    forward,
    inverse,
    inverse_angle,
    inverse_complex,
    inverse_quadrant,
    map_image,
    multiply,
    phase_correlate,
    remove_texture,
    subtract,
)

from ._arrays import (  # noqa: F401
    band_pass,
    band_reject,
    gabor,
    gabor_reject,
    reject_components,
    welch_spectrum,
)

__version__ = "@PROJECT_VERSION@"


# Pickling goes through the library's archive bytes, the same bytes a C++
# kxArchive reads and writes.
def _load_spectrum(data):
    return Spectrum.from_bytes(data)


def _load_filter(data):
    return Filter.from_bytes(data)


Spectrum.__reduce__ = lambda self: (_load_spectrum, (self.to_bytes(),))
Filter.__reduce__ = lambda self: (_load_filter, (self.to_bytes(),))

__all__ = [
    "ArchiveError", "BadCoordError", "BandPass", "BandReject", "Error", "Filter", "Gabor", "GaborReject",
    "ImageFilter", "InvalidArgumentError", "InvalidBufferError", "InvalidSizeError", "Spectrum",
    "UnboundWindowError", "UninitializedError", "add", "conjugate", "find_peaks", "forward", "inverse",
    "inverse_angle", "inverse_complex", "inverse_quadrant", "map_image", "multiply", "phase_correlate",
    "remove_texture", "subtract", "band_pass", "band_reject", "gabor", "gabor_reject", "reject_components",
    "welch_spectrum",
]
