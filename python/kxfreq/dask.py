"""kxfreq on dask arrays: images larger than one machine's memory, chunk by
chunk, on whatever scheduler is active (a distributed cluster included).

The filters run the in-memory functions of kxfreq on each chunk with
dask.array.map_overlap: each chunk is read with `margin` pixels of its
neighbours (the filter's margin, as the in-memory function would use it),
the image's borders are mirrored with the border sample repeated (dask's
"reflect", the library's own mirror rule), and only the chunk's own pixels
are kept. Results equal the in-memory function's within one grey level
(tiles fall elsewhere; rounding may differ). Chunks smaller than the margin
are merged with their neighbours first; an axis held in one chunk needs no
overlap at all.

welch_spectrum and find_peaks are reductions: each chunk's Welch power is
computed where the chunk lives and only segment x segment sums travel, so a
pattern is found, and removed with remove_texture, without gathering the
image.
"""
import dask
import dask.array as da
import numpy
from dask.array.overlap import ensure_minimum_chunksize

import kxfreq

from . import _arrays

__all__ = ["band_pass", "band_reject", "gabor", "gabor_reject", "reject_components", "welch_spectrum",
           "find_peaks", "remove_texture"]


def _grey_axes(shape, channel_axis, alpha=None):
    """The row and column axes of an image of this shape and whether its last
    channel is kept as alpha, checked as the in-memory functions check them
    (on a view of one zero, without memory)."""
    return kxfreq._kxfreq._image_axes(numpy.broadcast_to(numpy.uint8(0), shape), channel_axis, alpha)


def _output_dtype(image_dtype, dtype):
    """The dtype the in-memory function gives for this input and dtype=."""
    if dtype is not None:
        return numpy.dtype(dtype)
    return numpy.dtype(image_dtype)


def _block_filter(block, function, params, margin, options):
    return getattr(kxfreq, function)(block, **params, margin=margin, **options)


def _filtered(function, image, description, params, tile, margin, jobs, output, dtype, channel_axis, alpha):
    image = da.asarray(image)
    out_dtype = _output_dtype(image.dtype, dtype)
    # Whether the last channel is alpha is decided on the whole image, and
    # each block is told, since a block sees only its own channels.
    rows, columns, alpha = _grey_axes(image.shape, channel_axis, alpha)
    # The margin the in-memory function would use (checked against the tile).
    margin = description.margin(image.dtype, dtype, tile, margin)
    depth, chunks = {a: 0 for a in range(image.ndim)}, list(image.chunks)
    for axis in (rows, columns):
        if len(image.chunks[axis]) == 1:
            continue  # one chunk: the function mirrors the borders itself
        if image.shape[axis] <= 2 * margin:
            chunks[axis] = (image.shape[axis],)  # too short to split: one chunk
            continue
        chunks[axis] = ensure_minimum_chunksize(margin, image.chunks[axis])
        depth[axis] = margin
    if alpha:
        channels = 3 - rows - columns
        chunks[channels] = (image.shape[channels],)  # the alpha channel must stay the last of its block
    image = image.rechunk(tuple(chunks))
    options = dict(tile=tile, jobs=jobs, output=output, dtype=dtype, channel_axis=channel_axis, alpha=alpha)
    return da.map_overlap(_block_filter, image, depth=depth, boundary="reflect", trim=True, dtype=out_dtype,
                          meta=numpy.empty((0,) * image.ndim, dtype=out_dtype), function=function,
                          params=params, margin=margin, options=options)


def band_reject(image, *, frequency, sigma, plateau=0.0, dc_radius=0, tile=_arrays.TILE, margin=None, jobs=1,
                output="real", dtype=None, channel_axis=-1, alpha=None):
    """kxfreq.band_reject over a dask array (a lazy dask array of the result)."""
    params = dict(frequency=frequency, sigma=sigma, plateau=plateau, dc_radius=dc_radius)
    description = _arrays.radial_description(frequency, sigma, plateau, dc_radius, reject=True)
    return _filtered("band_reject", image, description, params, tile, margin, jobs, output, dtype, channel_axis, alpha)


def band_pass(image, *, frequency, sigma, plateau=0.0, dc_radius=0, tile=_arrays.TILE, margin=None, jobs=1,
              output="real", dtype=None, channel_axis=-1, alpha=None):
    """kxfreq.band_pass over a dask array."""
    params = dict(frequency=frequency, sigma=sigma, plateau=plateau, dc_radius=dc_radius)
    description = _arrays.radial_description(frequency, sigma, plateau, dc_radius)
    return _filtered("band_pass", image, description, params, tile, margin, jobs, output, dtype, channel_axis, alpha)


def gabor(image, *, frequency, sigma, angle=0.0, plateau=0.0, dc_radius=0, tile=_arrays.TILE, margin=None, jobs=1,
          output="real", dtype=None, channel_axis=-1, alpha=None):
    """kxfreq.gabor over a dask array."""
    params = dict(frequency=frequency, sigma=sigma, angle=angle, plateau=plateau, dc_radius=dc_radius)
    description = _arrays.gabor_description(frequency, sigma, angle, plateau, dc_radius)
    return _filtered("gabor", image, description, params, tile, margin, jobs, output, dtype, channel_axis, alpha)


def gabor_reject(image, *, frequency, sigma, angle=0.0, plateau=0.0, dc_radius=0, tile=_arrays.TILE, margin=None,
                 jobs=1, output="real", dtype=None, channel_axis=-1, alpha=None):
    """kxfreq.gabor_reject over a dask array."""
    params = dict(frequency=frequency, sigma=sigma, angle=angle, plateau=plateau, dc_radius=dc_radius)
    description = _arrays.gabor_description(frequency, sigma, angle, plateau, dc_radius, reject=True)
    return _filtered("gabor_reject", image, description, params, tile, margin, jobs, output, dtype, channel_axis, alpha)


def reject_components(image, components, *, width_scale=1.5, min_sigma=0.01, tile=_arrays.TILE, margin=None,
                      jobs=1, output="real", dtype=None, channel_axis=-1, alpha=None):
    """kxfreq.reject_components over a dask array."""
    components = [dict(c) for c in components]
    params = dict(components=components, width_scale=width_scale, min_sigma=min_sigma)
    description = kxfreq._kxfreq._PeriodicRejectDescription(components, width_scale, min_sigma)
    return _filtered("reject_components", image, description, params, tile, margin, jobs, output, dtype,
                     channel_axis, alpha)


# ---------------------------------------------------------------------------
# Reductions

def _segment_count(length, segment, overlap):
    """How many Welch tiles an axis of `length` holds (as the library places them)."""
    size = min(segment, length)
    step = max(1, int(numpy.floor(size * (1.0 - overlap) + 0.5)))
    count, p = 1, 0
    while p + size < length:
        p += step
        count += 1
    return count


def _block_power(block, segment, overlap, window, taper):
    """A chunk's summed Welch power and the number of tiles in the sum."""
    spectrum = kxfreq.welch_spectrum(block, segment=segment, overlap=overlap, window=window, taper=taper)
    tiles = _segment_count(block.shape[0], segment, overlap) * _segment_count(block.shape[1], segment, overlap)
    return numpy.square(spectrum.real()) * tiles, tiles


def _add(a, b):
    return a[0] + b[0], a[1] + b[1]


def welch_spectrum(image, *, segment=1024, overlap=0.5, window="hann", taper=0.5, jobs=1):
    """kxfreq.welch_spectrum over a 2-D dask array, computed on the active
    scheduler: the average of the power of every chunk's Welch tiles. Chunks
    are made at least segment x segment first; an image smaller than a
    segment is gathered (it is small) and transformed in memory."""
    image = da.asarray(image)
    if image.ndim != 2:
        _arrays.refuse("InvalidSizeError", f"image must be 2-D (height, width), not {image.ndim}-D with shape {image.shape}")
    if min(image.shape) < segment:
        return kxfreq.welch_spectrum(image.compute(), segment=segment, overlap=overlap, window=window,
                                     taper=taper, jobs=jobs)
    image = image.rechunk(tuple(ensure_minimum_chunksize(segment, c) for c in image.chunks))
    parts = [dask.delayed(_block_power)(block, segment, overlap, window, taper)
             for block in image.to_delayed().ravel()]
    while len(parts) > 1:  # a tree of sums: no worker receives every part
        parts = [dask.delayed(_add)(*parts[i:i + 2]) if i + 1 < len(parts) else parts[i]
                 for i in range(0, len(parts), 2)]
    power, tiles = parts[0].compute()
    spectrum = kxfreq.Spectrum(segment, segment)
    spectrum.array[:] = numpy.sqrt(power / tiles)
    return spectrum


def find_peaks(image, max_peaks=8, *, segment=1024):
    """kxfreq.find_peaks of a 2-D dask array, on its Welch spectrum."""
    return kxfreq.find_peaks(welch_spectrum(image, segment=segment), max_peaks)


def remove_texture(image, max_peaks=8, *, tile=_arrays.TILE, margin=None, jobs=1):
    """The image without its periodic texture: components found by
    find_peaks (a reduction) and notched out chunk by chunk. Lazy: the search
    runs now, the filtering when the result is computed."""
    image = da.asarray(image)
    components = find_peaks(image, max_peaks)
    return reject_components(image, components, tile=tile, margin=margin, jobs=jobs)
