// Registration by phase correlation.
//
// Both images are windowed (their mean removed first) and laid into a
// zero image of the padded size, so that the transforms see exactly the
// grid on which the correlation lives:
//
//     +-------------+-----+      the correlation of two W x H grids is
//     | image w x h |  0  |      periodic with period (W, H): a peak at
//     +-------------+     |      column c stands for the shift c when
//     |        0          |      c < W/2 and c - W otherwise, whatever the
//     +-------------------+      image width w is.
//
// Removing the mean matters: the padded image's step from its mean to zero
// would correlate with itself and put a peak at zero shift.
#include "analysis/analysis_support.h"
#include "fft/buffer_access.h"
#include "fft/frequency_index.h"

#include <cmath>
#include <complex>
#include <vector>

namespace {

using Access = kx_FrequencyBufferAccess;
constexpr double kPi = 3.14159265358979323846;

// Cross-power elements below this fraction of the largest magnitude carry
// no phase worth trusting (they are at the level of single-precision
// rounding) and are set to zero instead of being blown up to modulus 1.
constexpr double kMagnitudeFloor = 1e-9;

// Every element divided by its modulus, or zero where the modulus is
// negligible. Done in double, stored as float.
void normaliseToUnitModulus(kxFrequencyBuffer& cross)
{
    float* d = Access::data(cross);
    const long count = Access::paddedWidth(cross) * Access::paddedHeight(cross);
    double largest = 0.0;
    for (long i = 0; i < count; ++i) {
        const double re = d[2 * i], im = d[2 * i + 1];
        const double m2 = re * re + im * im;
        if (m2 > largest)
            largest = m2;
    }
    const double floor = largest * kMagnitudeFloor * kMagnitudeFloor;
    for (long i = 0; i < count; ++i) {
        const double re = d[2 * i], im = d[2 * i + 1];
        const double m2 = re * re + im * im;
        if (m2 > floor && m2 > 0.0) {
            const double inverse = 1.0 / std::sqrt(m2);
            d[2 * i] = static_cast<float>(re * inverse);
            d[2 * i + 1] = static_cast<float>(im * inverse);
        } else {
            d[2 * i] = 0.0f;
            d[2 * i + 1] = 0.0f;
        }
    }
}

// The correlation surface between its samples. The surface is the inverse
// transform of the normalised cross-power P, so at any real position
//
//     c(x, y) = 1/(W H) Re sum_k sum_l P(k, l) exp(2 pi i (k x / W + l y / H))
//
// (k, l the signed frequencies). Along a line of fixed y the inner sum over l
// is done once (one pass over P), after which each x costs W terms. This
// follows the true shape of the peak, sharp (a sinc, when every frequency
// agrees) or broadened (when noise leaves only the low frequencies
// coherent), where a fitted parabola or sinc is biased for one or the other.
class SurfaceInterpolator {
public:
    explicit SurfaceInterpolator(const kxFrequencyBuffer& cross)
        : data_(Access::data(cross)), W_(Access::paddedWidth(cross)), H_(Access::paddedHeight(cross))
    {
    }

    // The position of the surface's maximum along x, at height y, within one
    // pixel of x0; `height` receives the value there.
    double refineX(double x0, double y, double& height) const
    {
        // Plain real arithmetic: std::complex's product checks for NaN on
        // every element.
        std::vector<double> re(static_cast<std::size_t>(W_), 0.0), im(static_cast<std::size_t>(W_), 0.0);
        const std::vector<std::complex<double>> phase = phases(H_, y);
        for (long l = 0; l < H_; ++l) {
            const float* row = data_ + 2 * l * W_;
            const double pr = phase[l].real(), pi = phase[l].imag();
            for (long k = 0; k < W_; ++k) {
                const double a = row[2 * k], b = row[2 * k + 1];
                re[k] += a * pr - b * pi;
                im[k] += a * pi + b * pr;
            }
        }
        std::vector<std::complex<double>> line(static_cast<std::size_t>(W_));
        for (long k = 0; k < W_; ++k)
            line[k] = std::complex<double>(re[k], im[k]);
        return refine(line, W_, x0, height);
    }

    // The same along y, at x.
    double refineY(double x, double y0, double& height) const
    {
        std::vector<std::complex<double>> line(static_cast<std::size_t>(H_), 0.0);
        const std::vector<std::complex<double>> phase = phases(W_, x);
        for (long l = 0; l < H_; ++l) {
            const float* row = data_ + 2 * l * W_;
            double re = 0.0, im = 0.0;
            for (long k = 0; k < W_; ++k) {
                const double a = row[2 * k], b = row[2 * k + 1];
                re += a * phase[k].real() - b * phase[k].imag();
                im += a * phase[k].imag() + b * phase[k].real();
            }
            line[l] = std::complex<double>(re, im);
        }
        return refine(line, H_, y0, height);
    }

private:
    // exp(2 pi i f(k) t / n) for every index k of an axis of n.
    // By recurrence from exact values every 64 steps: the recurrence's
    // rounding stays near 1e-14 and the sines and cosines cost little.
    static std::vector<std::complex<double>> phases(long n, double t)
    {
        std::vector<std::complex<double>> p(static_cast<std::size_t>(n));
        const double step = 2.0 * kPi * t / static_cast<double>(n);
        const std::complex<double> rotation = std::polar(1.0, step);
        std::complex<double> current;
        for (long k = 0; k < n; ++k) {
            if (k % 64 == 0 || k == (n + 1) / 2)
                current = std::polar(1.0, step * static_cast<double>(kf_SignedFrequency(k, n)));
            else
                current = std::complex<double>(current.real() * rotation.real() - current.imag() * rotation.imag(),
                                               current.real() * rotation.imag() + current.imag() * rotation.real());
            p[k] = current;
        }
        return p;
    }

    double value(const std::vector<std::complex<double>>& line, long n, double t) const
    {
        const std::vector<std::complex<double>> p = phases(n, t);
        double sum = 0.0;
        for (long k = 0; k < n; ++k)
            sum += line[k].real() * p[k].real() - line[k].imag() * p[k].imag();
        return sum / (static_cast<double>(W_) * static_cast<double>(H_));
    }

    // A scan in steps of 1/32 pixel within one pixel of t0, then a parabola
    // through the best step and its neighbours (at that spacing the peak is
    // a parabola to well below a hundredth of a pixel).
    double refine(const std::vector<std::complex<double>>& line, long n, double t0, double& height) const
    {
        constexpr int kSteps = 32;
        // Ties keep the sample itself: along an axis of one row the surface
        // is flat and the integer position is the answer.
        std::vector<double> values(2 * kSteps + 1);
        for (int s = -kSteps; s <= kSteps; ++s)
            values[s + kSteps] = value(line, n, t0 + static_cast<double>(s) / kSteps);
        double best = values[kSteps];
        int bestStep = 0;
        for (int s = -kSteps; s <= kSteps; ++s) {
            if (values[s + kSteps] > best) {
                best = values[s + kSteps];
                bestStep = s;
            }
        }
        double t = t0 + static_cast<double>(bestStep) / kSteps;
        height = best;
        if (bestStep > -kSteps && bestStep < kSteps) {
            const double l = values[bestStep + kSteps - 1], c = best, r = values[bestStep + kSteps + 1];
            const double curvature = l - 2.0 * c + r;
            if (curvature < 0.0) {
                const double d = 0.5 * (l - r) / curvature;
                t += d / kSteps;
                height = c - 0.25 * (l - r) * d;
            }
        }
        return t;
    }

    const float* data_;
    long W_, H_;
};

template <typename T>
kxPhaseCorrelation phaseCorrelate(const kxPelBuffer_const<T>& reference, const kxPelBuffer_const<T>& moving,
                                  const kxPhaseCorrelationOptions& options, kxPelBuffer<double>* surface)
{
    using namespace kx_analysis;
    requireImage(reference);
    requireImage(moving);
    kf_Require<kxFrequencyDefs::InvalidSize>(
        reference.width() == moving.width() && reference.height() == moving.height(), kImageSizesDiffer);
    requireWindow(options.window);

    const long W = kf_PaddedSize(reference.width());
    const long H = kf_PaddedSize(reference.height());
    // One zero image of the padded size takes each windowed image in turn;
    // the second overwrites exactly the pixels of the first.
    kxPelBuffer<double> padded(W, H);
    kxFrequencyBuffer cross, inverse;
    windowInto(reference, options.window, options.removeMean, padded);
    kfForwardFFT<double>(padded, cross);
    windowInto(moving, options.window, options.removeMean, padded);
    kfForwardFFT<double>(padded, inverse);
    // conj(R) x M: its inverse peaks at the shift of moving against reference.
    kfFrequencyConjugate(cross);
    kfFrequencyMultiply(inverse, cross);
    normaliseToUnitModulus(cross);

    // The unscaled inverse into the spent buffer (same size: its store is
    // reused, nothing is allocated), so that the normalised spectrum stays
    // for the sub-pixel refinement. Its real parts, divided by W x H, are
    // the correlation surface.
    kfInverseFFT(static_cast<const kxFrequencyBuffer&>(cross), inverse);
    const float* samples = Access::data(inverse);
    const double scale = 1.0 / (static_cast<double>(W) * static_cast<double>(H));
    auto c = [&](long column, long row) { return static_cast<double>(samples[2 * (row * W + column)]) * scale; };

    long px = 0, py = 0;
    double peak = c(0, 0);
    for (long y = 0; y < H; ++y)
        for (long x = 0; x < W; ++x)
            if (c(x, y) > peak) {
                peak = c(x, y);
                px = x;
                py = y;
            }

    // Integer peak first, then two rounds of refinement along x and y.
    kxPhaseCorrelation result;
    double x = static_cast<double>(kf_SignedFrequency(px, W));
    double y = static_cast<double>(kf_SignedFrequency(py, H));
    double height = peak;
    if (height > 0.0) {
        const SurfaceInterpolator surfaceAt(cross);
        const double x0 = x, y0 = y;
        for (int round = 0; round < 2; ++round) {
            x = surfaceAt.refineX(x0, y, height);
            y = surfaceAt.refineY(x, y0, height);
        }
    }
    result.dx = x;
    result.dy = y;
    result.confidence = height > 1.0 ? 1.0 : (height > 0.0 ? height : 0.0);

    if (surface) {
        // Centred: zero shift at (W/2, H/2).
        kxPelBuffer<double> centred(W, H);
        for (long row = 0; row < H; ++row)
            for (long column = 0; column < W; ++column)
                centred(kf_CentredIndex(column, W), kf_CentredIndex(row, H)) = c(column, row);
        *surface = centred;
    }
    return result;
}

}  // namespace

kxPhaseCorrelation kf_PhaseCorrelate(const kxPelBuffer_const<unsigned char>& reference,
                                     const kxPelBuffer_const<unsigned char>& moving,
                                     const kxPhaseCorrelationOptions& options, kxPelBuffer<double>* surface)
{
    return phaseCorrelate(reference, moving, options, surface);
}

kxPhaseCorrelation kf_PhaseCorrelate(const kxPelBuffer_const<unsigned short>& reference,
                                     const kxPelBuffer_const<unsigned short>& moving,
                                     const kxPhaseCorrelationOptions& options, kxPelBuffer<double>* surface)
{
    return phaseCorrelate(reference, moving, options, surface);
}

kxPhaseCorrelation kf_PhaseCorrelate(const kxPelBuffer_const<double>& reference,
                                     const kxPelBuffer_const<double>& moving,
                                     const kxPhaseCorrelationOptions& options, kxPelBuffer<double>* surface)
{
    return phaseCorrelate(reference, moving, options, surface);
}
