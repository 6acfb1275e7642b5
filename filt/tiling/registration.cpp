// Registration of images of any size: a coarse shift from reduced copies,
// refined to a fraction of a pixel on full-resolution windows.
#include "tiling/tiling_support.h"

#include <cmath>

using namespace kx_tiling;

namespace {

// The image averaged over factor x factor blocks (the last ones partial).
template <typename T>
kxPelBuffer<double> reduced(const kxImageView<const T>& image, long factor)
{
    const long w = (image.width + factor - 1) / factor, h = (image.height + factor - 1) / factor;
    kxPelBuffer<double> out(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            double sum = 0.0;
            long n = 0;
            for (long v = y * factor; v < std::min(image.height, (y + 1) * factor); ++v)
                for (long u = x * factor; u < std::min(image.width, (x + 1) * factor); ++u, ++n)
                    sum += static_cast<double>(image(u, v));
            out(x, y) = sum / static_cast<double>(n);
        }
    return out;
}

// A side x side window of the image from (left, top), as doubles.
template <typename T>
kxPelBuffer<double> windowOf(const kxImageView<const T>& image, long left, long top, long side)
{
    kxPelBuffer<double> out(side, side);
    for (long y = 0; y < side; ++y)
        for (long x = 0; x < side; ++x)
            out(x, y) = static_cast<double>(image(left + x, top + y));
    return out;
}

// The part of an axis of `length` both images share when the moving one is
// displaced by `shift`: [max(0, -shift), min(length, length - shift)).
long sharedFrom(long shift) { return std::max(0L, -shift); }
long sharedLength(long length, long shift) { return std::min(length, length - shift) - sharedFrom(shift); }

// The largest power of two not above n (0 for n below 1).
long powerOfTwoBelow(long n)
{
    long p = 1;
    while (p * 2 <= n)
        p *= 2;
    return n >= 1 ? p : 0;
}

template <typename T>
kxPhaseCorrelation correlateLarge(const kxImageView<const T>& reference, const kxImageView<const T>& moving,
                                  const kxLargeRegistrationOptions& options)
{
    if (!reference.data || !moving.data)
        throw kxFrequencyDefs::UnboundWindow();
    if (reference.width != moving.width || reference.height != moving.height || reference.width < 1 ||
        reference.height < 1)
        throw kxFrequencyDefs::InvalidSize("The images must have the same size, at least 1 x 1.");
    checkTileSide(options.window, "Window");
    const long w = reference.width, h = reference.height;
    const long largest = std::max(w, h);
    const long factor = (largest + kfMaxTransformSide - 1) / kfMaxTransformSide;
    if (factor == 1)
        return kfPhaseCorrelate<double>(reduced(reference, 1), reduced(moving, 1), options.correlation);

    const kxPhaseCorrelation coarse =
        kfPhaseCorrelate<double>(reduced(reference, factor), reduced(moving, factor), options.correlation);
    const long cx = std::lround(coarse.dx * static_cast<double>(factor));
    const long cy = std::lround(coarse.dy * static_cast<double>(factor));
    // The window, as large as asked for where the images share that much,
    // in the middle of what they share.
    const long side = std::min(options.window, powerOfTwoBelow(std::min(sharedLength(w, cx), sharedLength(h, cy))));
    if (side < kfMinTileSide)
        throw kxFrequencyDefs::InvalidSize("The images share less than a 64 x 64 window.");
    const long left = sharedFrom(cx) + (sharedLength(w, cx) - side) / 2;
    const long top = sharedFrom(cy) + (sharedLength(h, cy) - side) / 2;
    kxPhaseCorrelation fine = kfPhaseCorrelate<double>(
        windowOf(reference, left, top, side), windowOf(moving, left + cx, top + cy, side), options.correlation);
    fine.dx += static_cast<double>(cx);
    fine.dy += static_cast<double>(cy);
    return fine;
}

}  // namespace

kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const unsigned char>& reference,
                                          const kxImageView<const unsigned char>& moving,
                                          const kxLargeRegistrationOptions& options)
{
    return correlateLarge(reference, moving, options);
}
kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const unsigned short>& reference,
                                          const kxImageView<const unsigned short>& moving,
                                          const kxLargeRegistrationOptions& options)
{
    return correlateLarge(reference, moving, options);
}
kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const float>& reference,
                                          const kxImageView<const float>& moving,
                                          const kxLargeRegistrationOptions& options)
{
    return correlateLarge(reference, moving, options);
}
kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const double>& reference,
                                          const kxImageView<const double>& moving,
                                          const kxLargeRegistrationOptions& options)
{
    return correlateLarge(reference, moving, options);
}
