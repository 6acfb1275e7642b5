"""Type stubs of kxfreq: frequency-domain image processing on numpy arrays."""
from typing import Any, Dict, List, Optional, Sequence, Tuple, Union, overload

import numpy
import numpy.typing

# An image: a 2-D array of a real dtype, or anything numpy.asarray turns into one.
_Image = numpy.typing.ArrayLike
_DTypeLike = numpy.typing.DTypeLike
# One number for both directions, or (along, across).
_Pair = Union[float, Tuple[float, float]]

__version__: str

class Error(Exception):
    """Base of the library's errors; str() is the library's message."""

    error_number: int

class InvalidArgumentError(Error):
    """A parameter out of its range."""

class UninitializedError(Error):
    """A spectrum without data, or a filter without a transfer function."""

class InvalidSizeError(Error):
    """Sizes that do not match or are out of range."""

class UnboundWindowError(Error):
    """An image without pixels (an empty array)."""

class InvalidBufferError(Error):
    """A spectrum whose store holds the result of an in-place inverse."""

class BadCoordError(Error):
    """Element coordinates outside the grid."""

class ArchiveError(Error):
    """Bytes that are not a valid stored spectrum or filter."""

class Spectrum:
    """A complex spectrum on a padded power-of-two grid (single precision)."""

    @overload
    def __init__(self) -> None:
        """Spectrum(): no data."""
    @overload
    def __init__(self, width: int, height: int) -> None:
        """Spectrum(width, height): zeros, padded from that requested size."""
    @property
    def width(self) -> int:
        """Padded width (a power of two)."""
    @property
    def height(self) -> int:
        """Padded height (a power of two)."""
    @property
    def requested_size(self) -> Tuple[int, int]:
        """(width, height) of the image the spectrum was made from."""
    @property
    def initialized(self) -> bool:
        """True when the spectrum has data."""
    @property
    def masked(self) -> bool:
        """True when a filter recorded a band of rows outside which the data are zero."""
    @property
    def band(self) -> Optional[Tuple[int, int]]:
        """(first, last) centred row indices of the masked band, inclusive; None when not masked."""
    @property
    def inverse_computed(self) -> bool:
        """True after an in-place inverse: the store holds the spatial result."""
    @property
    def array(self) -> numpy.ndarray:
        """Writable complex64 view (height, width) on the store, no copy; keeps the spectrum alive."""
    def __array__(self, dtype: Optional[_DTypeLike] = ..., copy: Optional[bool] = ...) -> numpy.ndarray: ...
    def get(self, x: int, y: int, centered: bool = ...) -> complex:
        """Element (x, y); centred: signed frequencies, -(width/2) <= x < (width+1)/2."""
    def put(self, x: int, y: int, value: complex, centered: bool = ...) -> None:
        """Sets element (x, y), rounded to single precision."""
    def copy(self) -> "Spectrum":
        """An independent copy."""
    def real(self, centered: bool = ...) -> numpy.ndarray:
        """Real parts, float64, padded size."""
    def imaginary(self, centered: bool = ...) -> numpy.ndarray:
        """Imaginary parts, float64, padded size."""
    def magnitude(self, centered: bool = ...) -> numpy.ndarray:
        """Magnitudes (single-precision computation), float64, padded size."""
    def phase(self, centered: bool = ...) -> numpy.ndarray:
        """Phases in (-pi, pi], float64, padded size."""
    def to_bytes(self) -> bytes:
        """The library's archive bytes of the spectrum."""
    @staticmethod
    def from_bytes(data: bytes) -> "Spectrum":
        """A spectrum from archive bytes; ArchiveError when malformed."""
    def __eq__(self, other: object) -> bool: ...
    def __copy__(self) -> "Spectrum": ...
    def __deepcopy__(self, memo: Any) -> "Spectrum": ...

def forward(image: _Image, imag: Optional[_Image] = ...) -> Spectrum:
    """Unscaled 2-D FFT of a 2-D image (any strides), zero-padded to powers of two.

    uint8, uint16 and float64 are transformed as they are, bool as uint8 0 and 1, float16, float32 and
    integers as float64, exactly; 64-bit integers beyond 2**53 are refused."""

def inverse(spectrum: Spectrum, dtype: _DTypeLike = ..., scale: bool = ..., in_place: bool = ...) -> numpy.ndarray:
    """Magnitude of the inverse / (width x height), requested size, as uint8 (default), uint16 or float64."""

def inverse_angle(
    spectrum: Spectrum, dtype: _DTypeLike = ..., scale: bool = ..., in_place: bool = ...
) -> Tuple[numpy.ndarray, numpy.ndarray]:
    """(image, angle): as inverse(), and each pixel's phase angle in radians (float64)."""

def inverse_quadrant(
    spectrum: Spectrum, dtype: _DTypeLike = ..., scale: bool = ..., in_place: bool = ...
) -> Tuple[numpy.ndarray, numpy.ndarray]:
    """(image, quadrant): as inverse(), and a uint8 code (1: real part negative, +2: imaginary part negative)."""

def inverse_complex(spectrum: Spectrum, in_place: bool = ...) -> Tuple[numpy.ndarray, numpy.ndarray]:
    """(real, imag) float64 arrays of the scaled inverse, requested size."""

def multiply(a: Spectrum, b: Spectrum, out: Optional[Spectrum] = ...) -> Spectrum:
    """a x b element by element, into out (may be a or b) or a new spectrum."""

def add(a: Spectrum, b: Spectrum, out: Optional[Spectrum] = ...) -> Spectrum:
    """a + b, into out or a new spectrum."""

def subtract(a: Spectrum, b: Spectrum, out: Optional[Spectrum] = ...) -> Spectrum:
    """a - b, into out or a new spectrum."""

def conjugate(a: Spectrum, out: Optional[Spectrum] = ...) -> Spectrum:
    """Complex conjugate of a, into out (may be a) or a new spectrum."""

def map_image(array: _Image, mapping: str = ..., low: float = ..., high: float = ...) -> numpy.ndarray:
    """A real 2-D array's float64 values to a uint8 image: "clip", "linear", "range" (low..high), "log" or "phase"."""

def phase_correlate(
    reference: _Image, moving: _Image, window: str = ..., taper: float = ..., remove_mean: bool = ...
) -> Tuple[float, float, float]:
    """(dx, dy, confidence) with moving(x + dx, y + dy) = reference(x, y); window "hann", "tukey" or "none"."""

def find_peaks(spectrum: Union[Spectrum, _Image], max_peaks: int = ...) -> List[Dict[str, Any]]:
    """Periodic components of a spectrum, or of an image of any size (on its Welch spectrum), strongest first:
    fx, fy, frequency, period, angle, strength, sigma, harmonics."""

def remove_texture(
    image: _Image, max_peaks: int = ..., *, tile: int = ..., margin: Optional[int] = ..., jobs: int = ...
) -> numpy.ndarray:
    """The image without its periodic texture (both lobes of every peak and its harmonics rejected); beyond
    2048 x 2048 found on the Welch spectrum and removed in tiles."""

# Images of any size: filtered in overlapping tiles with mirrored borders; 2-D, or 3-D with channels.
def band_reject(
    image: _Image, *, frequency: float, sigma: float, plateau: float = ..., dc_radius: int = ..., tile: int = ...,
    margin: Optional[int] = ..., jobs: int = ..., output: str = ..., dtype: Optional[_DTypeLike] = ...,
    channel_axis: int = ..., alpha: Optional[bool] = ...
) -> numpy.ndarray:
    """The image with a ring of radial frequencies suppressed; the image's shape and dtype unless dtype is given."""

def band_pass(
    image: _Image, *, frequency: float, sigma: float, plateau: float = ..., dc_radius: int = ..., tile: int = ...,
    margin: Optional[int] = ..., jobs: int = ..., output: str = ..., dtype: Optional[_DTypeLike] = ...,
    channel_axis: int = ..., alpha: Optional[bool] = ...
) -> numpy.ndarray:
    """The image's ring of radial frequencies alone (output "real", "signed" or "magnitude")."""

def gabor(
    image: _Image, *, frequency: float, sigma: _Pair, angle: float = ..., plateau: _Pair = ..., dc_radius: int = ...,
    tile: int = ..., margin: Optional[int] = ..., jobs: int = ..., output: str = ...,
    dtype: Optional[_DTypeLike] = ..., channel_axis: int = ..., alpha: Optional[bool] = ...
) -> numpy.ndarray:
    """The image's oriented band at `frequency` cycles per pixel in direction `angle`, doubled."""

def gabor_reject(
    image: _Image, *, frequency: float, sigma: _Pair, angle: float = ..., plateau: _Pair = ..., dc_radius: int = ...,
    tile: int = ..., margin: Optional[int] = ..., jobs: int = ..., output: str = ...,
    dtype: Optional[_DTypeLike] = ..., channel_axis: int = ..., alpha: Optional[bool] = ...
) -> numpy.ndarray:
    """The image without the oriented pattern at `frequency` in direction `angle` (both lobes)."""

def reject_components(
    image: _Image, components: Sequence[Dict[str, Any]], *, width_scale: float = ..., min_sigma: float = ...,
    tile: int = ..., margin: Optional[int] = ..., jobs: int = ..., output: str = ...,
    dtype: Optional[_DTypeLike] = ..., channel_axis: int = ..., alpha: Optional[bool] = ...
) -> numpy.ndarray:
    """The image with the given periodic components (as find_peaks gives them) notched out, in tiles."""

def welch_spectrum(
    image: _Image, *, segment: int = ..., overlap: float = ..., window: str = ..., taper: float = ..., jobs: int = ...
) -> Spectrum:
    """The Welch-averaged spectrum (segment x segment, real parts the root of the averaged power) of any size."""


class Filter:
    """Base of the frequency filters."""

    def apply(self, spectrum: Spectrum, out: Optional[Spectrum] = ...) -> Spectrum:
        """Multiplies by the transfer function, in place or into out; returns the filtered spectrum."""
    def to_bytes(self) -> bytes:
        """The library's archive bytes of the filter (class record and parameters)."""
    @staticmethod
    def from_bytes(data: bytes) -> "Filter":
        """A filter of whatever class the bytes hold."""
    def __eq__(self, other: object) -> bool: ...

class _GaborFilter(Filter):
    """What Gabor and GaborReject share."""

    def __init__(
        self,
        sigma: Tuple[float, float],
        plateau: Tuple[float, float],
        angle: float,
        frequency: float,
        size: Tuple[int, int],
        dc_radius: int,
    ) -> None: ...
    @property
    def sigma(self) -> Tuple[float, float]: ...
    @property
    def plateau(self) -> Tuple[float, float]: ...
    @property
    def angle(self) -> float: ...
    @property
    def frequency(self) -> float: ...
    @property
    def size(self) -> Tuple[int, int]: ...
    @property
    def dc_radius(self) -> int: ...
    @property
    def support_width(self) -> int: ...
    @property
    def support_height(self) -> int: ...

class Gabor(_GaborFilter):
    """Oriented one-sided Gaussian lobe at `frequency` cycles per pixel in direction `angle` (radians)."""

    def __copy__(self) -> "Gabor": ...
    def __deepcopy__(self, memo: Any) -> "Gabor": ...
    @staticmethod
    def from_bytes(data: bytes) -> "Gabor": ...

class GaborReject(_GaborFilter):
    """The complement of Gabor: the lobe is suppressed, the rest passes."""

    def __copy__(self) -> "GaborReject": ...
    def __deepcopy__(self, memo: Any) -> "GaborReject": ...
    @staticmethod
    def from_bytes(data: bytes) -> "GaborReject": ...

class _RadialFilter(Filter):
    """What BandPass and BandReject share."""

    def __init__(self, sigma: float, plateau: float, frequency: float, size: Tuple[int, int], dc_radius: int) -> None: ...
    @property
    def sigma(self) -> float: ...
    @property
    def plateau(self) -> float: ...
    @property
    def frequency(self) -> float: ...
    @property
    def size(self) -> Tuple[int, int]: ...
    @property
    def dc_radius(self) -> int: ...
    @property
    def support_width(self) -> int: ...

class BandPass(_RadialFilter):
    """Radial band-pass: a ring at `frequency` cycles per pixel with Gaussian flanks."""

    def __copy__(self) -> "BandPass": ...
    def __deepcopy__(self, memo: Any) -> "BandPass": ...
    @staticmethod
    def from_bytes(data: bytes) -> "BandPass": ...

class BandReject(_RadialFilter):
    """The complement of BandPass: the ring is suppressed, the rest passes."""

    def __copy__(self) -> "BandReject": ...
    def __deepcopy__(self, memo: Any) -> "BandReject": ...
    @staticmethod
    def from_bytes(data: bytes) -> "BandReject": ...

class ImageFilter(Filter):
    """A filter whose transfer function is a copy of a spectrum."""

    def __init__(self, spectrum: Spectrum) -> None: ...
    @property
    def size(self) -> Tuple[int, int]: ...
    @property
    def support_width(self) -> int: ...
    @property
    def support_height(self) -> int: ...
    def __copy__(self) -> "ImageFilter": ...
    def __deepcopy__(self, memo: Any) -> "ImageFilter": ...
    @staticmethod
    def from_bytes(data: bytes) -> "ImageFilter": ...
