"""Registration, periodic components and texture removal from Python."""
import numpy
import pytest

import kxfreq


def smooth_field(shape, seed):
    """A smoothed random field with a few edges: content a camera would see."""
    rng = numpy.random.default_rng(seed)
    noise = rng.normal(size=shape)
    spectrum = numpy.fft.fft2(noise)
    fy = numpy.fft.fftfreq(shape[0])[:, None]
    fx = numpy.fft.fftfreq(shape[1])[None, :]
    field = numpy.real(numpy.fft.ifft2(spectrum * numpy.exp(-(fx**2 + fy**2) / (2 * 0.03**2))))
    field = 128 + 40 * field / field.std()
    field[shape[0] // 3 :, : shape[1] // 2] += 30
    return field


def crop_pair(shift, size=(180, 200), seed=3):
    """reference and moving crops of one scene with moving(x + dx, y + dy) = reference(x, y)."""
    scene = smooth_field((size[0] + 80, size[1] + 80), seed)
    dx, dy = shift
    reference = scene[40 : 40 + size[0], 40 : 40 + size[1]]
    moving = scene[40 - dy : 40 - dy + size[0], 40 - dx : 40 - dx + size[1]]
    return numpy.clip(reference, 0, 255).astype(numpy.uint8), numpy.clip(moving, 0, 255).astype(numpy.uint8)


@pytest.mark.parametrize("shift", [(0, 0), (7, -4), (-23, 15), (30, 31)])
def test_phase_correlate_finds_integer_shifts(shift):
    reference, moving = crop_pair(shift)
    dx, dy, confidence = kxfreq.phase_correlate(reference, moving)
    assert abs(dx - shift[0]) < 0.5 and abs(dy - shift[1]) < 0.5, (dx, dy)
    assert 0.0 < confidence <= 1.0


def test_phase_correlate_windows_and_types_agree():
    reference, moving = crop_pair((5, -9))
    for window in ("hann", "tukey", "none"):
        dx, dy, _ = kxfreq.phase_correlate(reference, moving, window=window)
        assert abs(dx - 5) < 0.5 and abs(dy + 9) < 0.5, window
    as16 = kxfreq.phase_correlate(reference.astype(numpy.uint16), moving.astype(numpy.uint16))
    as64 = kxfreq.phase_correlate(reference.astype(numpy.float64), moving.astype(numpy.float64))
    assert as16 == kxfreq.phase_correlate(reference, moving)
    assert as64 == as16
    # Strided views are read as the arrays they show.
    assert kxfreq.phase_correlate(numpy.asfortranarray(reference), moving) == as16


def test_phase_correlate_confidence_separates_pairs_from_strangers():
    reference, moving = crop_pair((4, 6))
    # Another scene, turned round so that its edge lies elsewhere.
    stranger = numpy.flip(numpy.clip(smooth_field(reference.shape, 99), 0, 255).astype(numpy.uint8))
    _, _, related = kxfreq.phase_correlate(reference, moving)
    _, _, unrelated = kxfreq.phase_correlate(reference, stranger)
    assert related > 3 * unrelated


def test_phase_correlate_refuses_bad_input():
    reference, moving = crop_pair((1, 1))
    with pytest.raises(ValueError, match="window must be"):
        kxfreq.phase_correlate(reference, moving, window="gauss")
    with pytest.raises(TypeError, match="same dtype"):
        kxfreq.phase_correlate(reference, moving.astype(numpy.uint16))
    with pytest.raises(kxfreq.Error):
        kxfreq.phase_correlate(reference, moving[:-1])
    with pytest.raises(ValueError, match="2-D"):
        kxfreq.phase_correlate(reference[0], moving[0])


def stripes(shape=(256, 256), fx=0.1, fy=0.05, amplitude=30.0):
    y, x = numpy.mgrid[0 : shape[0], 0 : shape[1]]
    return amplitude * numpy.cos(2 * numpy.pi * (fx * x + fy * y))


def test_find_peaks_reports_the_stripes():
    image = 128 + stripes()
    peaks = kxfreq.find_peaks(kxfreq.forward(image), max_peaks=4)
    assert len(peaks) >= 1
    strongest = peaks[0]
    assert abs(strongest["frequency"] - numpy.hypot(0.1, 0.05)) < 0.002
    assert abs(strongest["period"] - 1 / strongest["frequency"]) < 1e-9
    assert set(strongest) == {"fx", "fy", "frequency", "period", "angle", "strength", "sigma", "harmonics"}
    assert strongest["strength"] > 1.0
    inverted = kxfreq.forward(numpy.zeros((8, 8)))
    kxfreq.inverse(inverted, in_place=True)
    with pytest.raises(kxfreq.InvalidBufferError):
        kxfreq.find_peaks(inverted)


def test_remove_texture_takes_the_stripes_away():
    clean = numpy.clip(smooth_field((200, 240), 7), 0, 255)
    textured = clean + stripes((200, 240), 0.11, 0.07)
    result = kxfreq.remove_texture(textured)
    assert result.shape == textured.shape and result.dtype == numpy.float64
    before = numpy.sqrt(numpy.mean((textured - clean) ** 2))
    after = numpy.sqrt(numpy.mean((result - clean) ** 2))
    assert after < before / 5.6, (before, after)   # at least 15 dB
    as8 = kxfreq.remove_texture(numpy.clip(textured, 0, 255).astype(numpy.uint8), max_peaks=2)
    assert as8.dtype == numpy.uint8 and as8.shape == textured.shape
