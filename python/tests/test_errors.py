"""Every error class with the library's message, and the argument checks of
the module itself."""
import numpy
import pytest

import kxfreq

LIBRARY_ERRORS = {
    "InvalidArgumentError": 0x10006300,
    "UninitializedError": 0x10006301,
    "InvalidSizeError": 0x10006302,
    "UnboundWindowError": 0x10006303,
    "InvalidBufferError": 0x10006304,
    "BadCoordError": 0x10006305,
}


def raised(call):
    with pytest.raises(kxfreq.Error) as info:
        call()
    return info.value


def test_hierarchy():
    assert issubclass(kxfreq.Error, Exception)
    for name in [*LIBRARY_ERRORS, "ArchiveError"]:
        cls = getattr(kxfreq, name)
        assert issubclass(cls, kxfreq.Error) and cls is not kxfreq.Error
        assert cls.__module__ == "kxfreq" and cls.__doc__


def check(call, cls, message):
    error = raised(call)
    assert type(error) is cls
    assert str(error) == message
    assert error.error_number == LIBRARY_ERRORS[cls.__name__]


def test_uninitialized():
    check(lambda: kxfreq.Spectrum().height, kxfreq.UninitializedError, "FrequencyBuffer has not been initialized")
    check(lambda: kxfreq.inverse(kxfreq.Spectrum()), kxfreq.UninitializedError,
          "FrequencyBuffer has not been initialized")
    check(lambda: kxfreq.BandPass(0.01, 0.0, 0.25, (8, 8), 0).apply(kxfreq.Spectrum()), kxfreq.UninitializedError,
          "FrequencyBuffer has not been initialized")


def test_invalid_size():
    check(lambda: kxfreq.forward(numpy.zeros((10, 2049), dtype=numpy.uint8)), kxfreq.InvalidSizeError,
          "Width and Height must be no larger than 2048.")
    check(lambda: kxfreq.BandReject(0.01, 0.0, 0.1, (12, 10), 1), kxfreq.InvalidSizeError,
          "Size must be a power of 2.")
    spectrum = kxfreq.forward(numpy.zeros((16, 16)))
    check(lambda: kxfreq.BandReject(0.01, 0.0, 0.1, (32, 16), 1).apply(spectrum), kxfreq.InvalidSizeError,
          "Size of frequency buffer does not match size of filter.")


def test_invalid_argument():
    check(lambda: kxfreq.Gabor((0.01, 0.01), (0, 0), 0, 0.6, (8, 8), 0), kxfreq.InvalidArgumentError,
          "Frequency must be between 0.0 and 0.5.")
    check(lambda: kxfreq.Gabor((0.0, 0.01), (0, 0), 0, 0.1, (8, 8), 0), kxfreq.InvalidArgumentError,
          "Sigma values must be positive.")
    check(lambda: kxfreq.BandPass(-1.0, 0.0, 0.1, (8, 8), 0), kxfreq.InvalidArgumentError,
          "Sigma must be positive.")
    check(lambda: kxfreq.BandPass(0.01, 0.0, 0.1, (8, 8), -1), kxfreq.InvalidArgumentError,
          "DC Removal Radius cannot be negative.")


def test_refusals_of_values_are_also_value_errors():
    for name in ["InvalidArgumentError", "InvalidSizeError", "UnboundWindowError"]:
        assert issubclass(getattr(kxfreq, name), ValueError)
    for name in ["UninitializedError", "InvalidBufferError", "BadCoordError", "ArchiveError"]:
        assert not issubclass(getattr(kxfreq, name), ValueError)
    error = raised(lambda: kxfreq.forward(numpy.zeros((2, 2, 2))))
    assert type(error) is kxfreq.InvalidSizeError and error.error_number == LIBRARY_ERRORS["InvalidSizeError"]
    error = raised(lambda: kxfreq.band_pass(numpy.zeros((8, 8)), frequency=0.1, sigma=0.01, jobs=0))
    assert type(error) is kxfreq.InvalidArgumentError and error.error_number == LIBRARY_ERRORS["InvalidArgumentError"]
    error = raised(lambda: kxfreq.gabor(numpy.zeros((8, 8)), frequency=0.1, sigma=(1, 2, 3)))
    assert type(error) is kxfreq.InvalidArgumentError and error.error_number == LIBRARY_ERRORS["InvalidArgumentError"]


def test_unbound_window():
    error = raised(lambda: kxfreq.forward(numpy.zeros((0, 5), dtype=numpy.uint8)))
    assert type(error) is kxfreq.UnboundWindowError
    assert error.error_number == LIBRARY_ERRORS["UnboundWindowError"]
    assert str(error) == "image has no pixels (shape (0, 5))"
    error = raised(lambda: kxfreq.remove_texture(numpy.zeros((3, 0))))
    assert type(error) is kxfreq.UnboundWindowError and str(error) == "image has no pixels (shape (3, 0))"


def test_invalid_buffer():
    spectrum = kxfreq.forward(numpy.ones((4, 4)))
    kxfreq.inverse(spectrum, in_place=True)
    check(lambda: spectrum.get(0, 0), kxfreq.InvalidBufferError,
          "Cannot access frequency data once inverse has been computed.")
    check(lambda: spectrum.real(), kxfreq.InvalidBufferError,
          "Cannot access frequency data once inverse has been computed.")


def test_bad_coord():
    spectrum = kxfreq.forward(numpy.ones((4, 4)))
    check(lambda: spectrum.put(-3, 0, 1j, centered=True), kxfreq.BadCoordError, "Coordinates are out of bounds")


def test_archive_error_message():
    with pytest.raises(kxfreq.ArchiveError) as info:
        kxfreq.Spectrum.from_bytes(b"\x01\x02")
    assert str(info.value)


@pytest.mark.parametrize("dtype", [numpy.complex128, numpy.complex64, numpy.longdouble, "U3", object,
                                   "datetime64[s]"])
def test_dtypes_without_an_exact_conversion_are_type_errors_naming_them(dtype):
    name = str(numpy.dtype(dtype))
    with pytest.raises(TypeError, match="must have a real dtype") as info:
        kxfreq.forward(numpy.zeros((4, 4), dtype=dtype))
    assert str(info.value).endswith("not " + name)
    with pytest.raises(TypeError, match="not " + name.replace("[", "\\[")):
        kxfreq.map_image(numpy.zeros((4, 4), dtype=dtype))


def test_wrong_dimensions_are_value_errors():
    for shape in [(4,), (2, 3, 4), ()]:
        with pytest.raises(ValueError, match="must be 2-D") as info:
            kxfreq.forward(numpy.zeros(shape))
        assert str(info.value).endswith("with shape " + repr(shape))
    with pytest.raises(ValueError, match="must be 2-D"):
        kxfreq.map_image(numpy.zeros(5))


def test_other_argument_errors():
    with pytest.raises(TypeError, match="numpy.asarray accepts; a list was refused"):
        kxfreq.forward([[1, 2], [3]])   # ragged
    with pytest.raises(TypeError, match="same dtype"):
        kxfreq.forward(numpy.zeros((4, 4)), numpy.zeros((4, 4), dtype=numpy.uint8))
    with pytest.raises(TypeError, match="dtype must be uint8, uint16 or float64"):
        kxfreq.inverse(kxfreq.forward(numpy.zeros((4, 4))), dtype=numpy.int32)
    with pytest.raises(ValueError, match="mapping must be one of"):
        kxfreq.map_image(numpy.zeros((4, 4)), "sqrt")
    with pytest.raises(TypeError, match="kxfreq.Spectrum"):
        kxfreq.BandPass(0.01, 0.0, 0.1, (8, 8), 0).apply(kxfreq.forward(numpy.zeros((8, 8))), out="x")
    with pytest.raises(TypeError):
        kxfreq.Gabor(0.01, (0, 0), 0, 0.1, (8, 8), 0)
    with pytest.raises(TypeError):
        kxfreq.Filter()
    with pytest.raises(ValueError, match="at least 1"):
        kxfreq.Spectrum(0, 4)
