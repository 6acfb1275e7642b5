"""kxfreq: frequency-domain image processing on numpy arrays.

Images are 2-D numpy arrays of dtype uint8, uint16 or float64. forward() turns
one into a Spectrum (the unscaled 2-D FFT on a padded power-of-two grid),
filters such as BandReject or Gabor change a spectrum in place or into another
one, and inverse() turns it back into an image of the original size.

    import numpy, kxfreq
    spectrum = kxfreq.forward(image)
    kxfreq.BandReject(0.004, 0.004, 0.125, image.shape[::-1], 1).apply(spectrum)
    clean = kxfreq.inverse(spectrum, dtype=image.dtype)

Every failure of the library raises a subclass of kxfreq.Error whose str() is
the library's message. Transforms and filter applications release the GIL.
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
