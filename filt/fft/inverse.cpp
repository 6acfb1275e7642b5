// Inverse transforms: spectra back to images.
//
// Every worker follows the same steps: run the inverse engine (on the
// caller's buffer in place, or on a private copy), make a w x h result image
// with the stored offset and transform, scale each element by 1 / (W x H),
// convert, then give the result back its offset with the periodic copy and
// deliver it into the caller's image (bound: only the overlap changes;
// unbound: the caller's image becomes the result).
#include "fft/buffer_access.h"
#include "fft/checks.h"
#include "fft/engine/engine.h"
#include "fft/periodic_copy.h"

#include <kx/fft.h>

#include <cmath>
#include <cstdint>
#include <memory>

namespace {

using Access = kx_FrequencyBufferAccess;

using kxfreq_detail::kf_RequireInitialized;

// The engine's inverse over the whole buffer, or only over the masked band
// of rows when the buffer has one (rows outside it are zero).
void runInverseEngine(kxFrequencyBuffer& work)
{
    const long H = Access::paddedHeight(work);
    const bool banded = Access::masked(work) != 0;
    kf_ComplexFFT2D(Access::data(work), kxPair<long>(Access::paddedWidth(work), H), -1,
                    banded ? static_cast<int>(Access::maskedMiny(work)) : 0,
                    banded ? static_cast<int>(Access::maskedMaxy(work)) : static_cast<int>(H));
}

// Steps common to every inverse: the buffer whose store holds the spatial
// (unscaled) result afterwards.
class SpatialData {
public:
    SpatialData(kxFrequencyBuffer& buffer, bool inPlace)
        : caller_(buffer), alreadyComputed_(Access::inverseComputed(buffer)),
          inPlace_(inPlace || alreadyComputed_)
    {
        if (!inPlace_)
            copy_ = std::make_unique<kxFrequencyBuffer>(buffer);
        if (!alreadyComputed_)
            runInverseEngine(working());
    }

    kxFrequencyBuffer& working() { return copy_ ? *copy_ : caller_; }
    // Marks the caller's buffer as holding the spatial result, when in place.
    void markComputed()
    {
        if (inPlace_)
            Access::inverseComputed(caller_, true);
    }

private:
    kxFrequencyBuffer& caller_;
    bool alreadyComputed_;
    bool inPlace_;
    std::unique_ptr<kxFrequencyBuffer> copy_;
};

// 1 / (H x W): the product as a signed 32-bit integer, the division in
// double, the result kept as a float.
float inverseScale(const kxFrequencyBuffer& buffer)
{
    const std::int32_t count =
        static_cast<std::int32_t>(Access::paddedHeight(buffer) * Access::paddedWidth(buffer));
    return static_cast<float>(1.0 / count);
}

// Where a result is built and how it is handed over. A bound caller image
// gets the result through kfPelCopy (only the overlap changes); an unbound
// one becomes the result itself.
template <typename T>
class ResultImage {
public:
    // Makes the w x h result with the stored transform and, unless
    // `deferOffset`, the stored offset.
    ResultImage(kxPelBuffer<T>& caller, const kxFrequencyBuffer& buffer, bool deferOffset = false)
        : caller_(caller), bound_(caller.isBound()), storedOffset_(Access::offset(buffer)),
          storedTransform_(Access::transform(buffer))
    {
        image() = kxPelBuffer<T>(Access::requestedWidth(buffer), Access::requestedHeight(buffer), 32);
        if (!deferOffset)
            image().offset(storedOffset_);
        image().xformCache() = storedTransform_;
    }

    kxPelBuffer<T>& image() { return bound_ ? local_ : caller_; }

    // Gives the result back the stored offset: a non-zero offset goes
    // through the periodic copy into a fresh image at (0, 0) that then takes
    // the stored offset. The stored offset is set at the end also when it is
    // (0, 0), for the one worker that defers it.
    void restoreOffset()
    {
        if (storedOffset_ == kxPair<long>(0, 0)) {
            image().offset(storedOffset_);
            return;
        }
        kxPelBuffer<T> laid(image().width(), image().height(), 32);
        kf_PeriodicCopy<T>(image(), laid, true);
        laid.offset(storedOffset_);
        // The caller gets the stored transform whether or not its image was
        // bound: an image that comes back from a transform keeps its client
        // coordinates.
        laid.xformCache() = storedTransform_;
        image() = laid;
    }

    // Copies the result into a bound caller image.
    void deliver()
    {
        if (bound_)
            kfPelCopy<T>(local_, caller_);
    }

private:
    kxPelBuffer<T>& caller_;
    bool bound_;
    kxPelBuffer<T> local_;
    kxPair<long> storedOffset_;
    kx2XformCache storedTransform_;
};

// Visits the first h rows and first w elements of the spatial data, with the
// result pixel pointer of each row.
template <typename T, typename Visit>
void forEachElement(const kxFrequencyBuffer& buffer, const kxPelBuffer<T>& image, Visit visit)
{
    const long W = Access::paddedWidth(buffer);
    const long w = Access::requestedWidth(buffer);
    const long h = Access::requestedHeight(buffer);
    const float* row = Access::data(buffer);
    T* out = image.pointToOffset();
    for (long y = 0; y < h; ++y, row += 2 * W, out += image.rowUpdate())
        for (long x = 0; x < w; ++x)
            visit(row[2 * x], row[2 * x + 1], out[x]);
}

// Pixel conversion of a magnitude, per pixel type. Integer pixels truncate
// toward zero and keep their low bits, without clamping: a value above the
// range wraps.
template <typename T> struct Magnitude;

template <typename Integer, long Range>
struct IntegerMagnitude {
    static constexpr float kRange = static_cast<float>(Range);
    static Integer store(double value) { return static_cast<Integer>(kf_TruncateToInt64(value)); }

    static void fill(const kxFrequencyBuffer& buffer, const kxPelBuffer<Integer>& image, float s, bool scale)
    {
        if (!scale) {
            forEachElement(buffer, image, [s](float re, float im, Integer& pixel) {
                const float m = std::sqrt(re * re + im * im) * s;
                pixel = store(m + 0.5);
            });
            return;
        }
        // Stretch the image's own range of magnitudes to the full pixel range.
        float minimum = 1e20f, maximum = -1e20f;
        forEachElement(buffer, image, [&](float re, float im, Integer&) {
            const float squared = re * re + im * im;
            if (!(squared >= minimum))
                minimum = squared;
            if (squared > maximum)
                maximum = squared;
        });
        const float lo = std::sqrt(minimum) * s;
        const float hi = std::sqrt(maximum) * s;
        const float gain = hi == lo ? kRange : static_cast<float>(Range / static_cast<double>(hi - lo));
        forEachElement(buffer, image, [=](float re, float im, Integer& pixel) {
            const float m = std::sqrt(re * re + im * im) * s;
            pixel = store((m - lo) * gain + 0.5);
        });
    }
};

template <> struct Magnitude<unsigned char> : IntegerMagnitude<unsigned char, 255> {};
template <> struct Magnitude<unsigned short> : IntegerMagnitude<unsigned short, 65535> {};

template <> struct Magnitude<double> {
    // Double pixels take the magnitude as it is; `scale` does not apply.
    static void fill(const kxFrequencyBuffer& buffer, const kxPelBuffer<double>& image, float s, bool)
    {
        forEachElement(buffer, image, [s](float re, float im, double& pixel) {
            pixel = static_cast<double>(std::sqrt(re * re + im * im) * s);
        });
    }
};

// The magnitude workers with an optional angle image, and the 8- and 16-bit
// quadrant workers: they differ only in their pixel type and second image.
// The 8-bit angle worker alone sets the stored offset at the end instead of
// at the start, so its periodic copy starts from offset (0, 0).
template <typename T, typename SecondImage>
void inverseWorker(kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, SecondImage second, bool scale,
                   bool inPlace, bool deferOffset)
{
    kf_RequireInitialized(buffer);
    SpatialData spatial(buffer, inPlace);
    const kxFrequencyBuffer& data = spatial.working();
    ResultImage<T> result(image, data, deferOffset);
    kxAttention::check();
    Magnitude<T>::fill(data, result.image(), inverseScale(data), scale);
    second(data);
    spatial.markComputed();
    result.restoreOffset();
    result.deliver();
}

struct AngleImage {
    kxPelBuffer<double>* angle;
    void operator()(const kxFrequencyBuffer& data) const
    {
        if (angle)
            kf_ComputeAngleImage(data, *angle);
    }
};

struct QuadrantImage {
    kxPelBuffer<unsigned char>& quadrant;
    void operator()(const kxFrequencyBuffer& data) const { kf_ComputeQuadrantImage(data, quadrant); }
};

// A second image computed from the spatial data, pixel by pixel.
template <typename T, typename Compute>
void computeSecondImage(const kxFrequencyBuffer& buffer, kxPelBuffer<T>& destination, Compute compute)
{
    ResultImage<T> result(destination, buffer);
    forEachElement(buffer, result.image(), [&](float re, float im, T& pixel) { pixel = compute(re, im); });
    result.restoreOffset();
    result.deliver();
}

}  // namespace

void kf_ComputeAngleImage(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& angle)
{
    computeSecondImage(buffer, angle, [](float re, float im) { return static_cast<double>(std::atan2(im, re)); });
}

// Bit 1: the real part is negative; bit 2: the imaginary part is. A NaN part
// counts as not negative here.
void kf_ComputeQuadrantImage(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& quadrant)
{
    computeSecondImage(buffer, quadrant, [](float re, float im) {
        return static_cast<unsigned char>((0 > re ? 1 : 0) + (0 > im ? 2 : 0));
    });
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image, kxPelBuffer<double>* angle,
                   bool scale, bool inPlace)
{
    inverseWorker(buffer, image, AngleImage{angle}, scale, inPlace, true);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image, kxPelBuffer<double>* angle,
                   bool scale, bool inPlace)
{
    inverseWorker(buffer, image, AngleImage{angle}, scale, inPlace, false);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, kxPelBuffer<double>* angle, bool scale,
                   bool inPlace)
{
    inverseWorker(buffer, image, AngleImage{angle}, scale, inPlace, false);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image,
                   kxPelBuffer<unsigned char>& quadrant, bool scale, bool inPlace)
{
    inverseWorker(buffer, image, QuadrantImage{quadrant}, scale, inPlace, false);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image,
                   kxPelBuffer<unsigned char>& quadrant, bool scale, bool inPlace)
{
    inverseWorker(buffer, image, QuadrantImage{quadrant}, scale, inPlace, false);
}

// The double-quadrant worker computes the quadrant code in the magnitude
// loop, with its own test: a bit is set when the part is not greater than or
// equal to zero, so a NaN part counts as negative here.
void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, kxPelBuffer<unsigned char>& quadrant,
                   bool /*scale*/, bool inPlace)
{
    kf_RequireInitialized(buffer);
    SpatialData spatial(buffer, inPlace);
    const kxFrequencyBuffer& data = spatial.working();
    ResultImage<double> magnitude(image, data);
    ResultImage<unsigned char> codes(quadrant, data);
    kxAttention::check();
    const float s = inverseScale(data);
    const long W = Access::paddedWidth(data);
    const float* row = Access::data(data);
    double* out = magnitude.image().pointToOffset();
    unsigned char* code = codes.image().pointToOffset();
    for (long y = 0; y < Access::requestedHeight(data);
         ++y, row += 2 * W, out += magnitude.image().rowUpdate(), code += codes.image().rowUpdate())
        for (long x = 0; x < Access::requestedWidth(data); ++x) {
            const float re = row[2 * x], im = row[2 * x + 1];
            out[x] = static_cast<double>(std::sqrt(re * re + im * im) * s);
            code[x] = static_cast<unsigned char>((!(re >= 0) ? 1 : 0) + (!(im >= 0) ? 2 : 0));
        }
    codes.restoreOffset();
    codes.deliver();
    spatial.markComputed();
    magnitude.restoreOffset();
    magnitude.deliver();
}

void kfInverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& real, kxPelBuffer<double>& imag, bool inPlace)
{
    kf_RequireInitialized(buffer);
    SpatialData spatial(buffer, inPlace);
    const kxFrequencyBuffer& data = spatial.working();
    ResultImage<double> re(real, data);
    ResultImage<double> im(imag, data);
    kxAttention::check();
    const float s = inverseScale(data);
    const long W = Access::paddedWidth(data);
    const float* row = Access::data(data);
    double* reRow = re.image().pointToOffset();
    double* imRow = im.image().pointToOffset();
    for (long y = 0; y < Access::requestedHeight(data);
         ++y, row += 2 * W, reRow += re.image().rowUpdate(), imRow += im.image().rowUpdate())
        for (long x = 0; x < Access::requestedWidth(data); ++x) {
            reRow[x] = static_cast<double>(row[2 * x] * s);
            imRow[x] = static_cast<double>(row[2 * x + 1] * s);
        }
    real.xformCache() = Access::transform(data);
    imag.xformCache() = Access::transform(data);
    if (Access::offset(data) != kxPair<long>(0, 0)) {
        re.restoreOffset();
        im.restoreOffset();
    }
    spatial.markComputed();
    re.deliver();
    im.deliver();
}

void kfInverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& real, kxPelBuffer<double>& imag)
{
    kfInverseFFT(const_cast<kxFrequencyBuffer&>(buffer), real, imag, false);
}

void kfInverseFFT(kxFrequencyBuffer& src, kxFrequencyBuffer& dst, bool inPlace)
{
    kf_RequireInitialized(src);
    const bool alreadyComputed = Access::inverseComputed(src);
    inPlace = inPlace || alreadyComputed;
    if (!inPlace)
        dst = src;
    if (!alreadyComputed)
        runInverseEngine(inPlace ? src : dst);
    if (inPlace)
        dst = src;
    Access::inverseComputed(dst, false);
    Access::masked(dst, 0);
    if (inPlace)
        Access::inverseComputed(src, true);
}

void kfInverseFFT(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    kfInverseFFT(const_cast<kxFrequencyBuffer&>(src), dst, false);
}
