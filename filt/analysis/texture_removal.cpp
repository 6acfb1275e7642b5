// Automatic removal of periodic texture: one transfer function holding a
// Gaussian notch on both lobes of every component and harmonic, applied to
// the image's spectrum in one pass by a kxFrequencyFilterImage.
#include "analysis/analysis_support.h"
#include "fft/buffer_access.h"
#include "fft/frequency_index.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using Access = kx_FrequencyBufferAccess;
constexpr double kPi = 3.14159265358979323846;

// A notch reaches this many standard deviations; beyond, its gain differs
// from 1 by less than 1e-7.
constexpr double kNotchReach = 5.7;

// gain *= 1 - exp(-(du^2 / 2 su^2 + dv^2 / 2 sv^2)) around (cu, cv) bins,
// wrapping around the grid's edges.
void multiplyNotch(std::vector<double>& gain, long W, long H, double cu, double cv, double su, double sv)
{
    const long ru = static_cast<long>(std::ceil(kNotchReach * su)), rv = static_cast<long>(std::ceil(kNotchReach * sv));
    const long u0 = static_cast<long>(std::floor(cu)), v0 = static_cast<long>(std::floor(cv));
    // A notch wider than the grid covers each bin once.
    const long uFrom = std::max(u0 - ru, u0 - W / 2 + 1), uTo = std::min(u0 + ru, u0 + W / 2);
    const long vFrom = std::max(v0 - rv, v0 - H / 2 + 1), vTo = std::min(v0 + rv, v0 + H / 2);
    for (long v = vFrom; v <= vTo; ++v) {
        const double dv = (static_cast<double>(v) - cv) / sv;
        const long row = kf_StorageIndex(v, H);
        for (long u = uFrom; u <= uTo; ++u) {
            const double du = (static_cast<double>(u) - cu) / su;
            const long col = kf_StorageIndex(u, W);
            gain[row * W + col] *= 1.0 - std::exp(-0.5 * (du * du + dv * dv));
        }
    }
}

bool finite(const kxPeriodicComponent& c)
{
    bool ok = std::isfinite(c.fx) && std::isfinite(c.fy) && std::isfinite(c.sigma.x()) && std::isfinite(c.sigma.y());
    for (const auto& h : c.harmonics)
        ok = ok && std::isfinite(h.fx) && std::isfinite(h.fy);
    return ok;
}

}  // namespace

kxFrequencyFilterImage kfPeriodicRejectFilter(const std::vector<kxPeriodicComponent>& components,
                                              const kxPair<long>& size, double widthScale, double minSigma)
{
    using namespace kx_analysis;
    const long W = size.x(), H = size.y();
    kf_Require<kxFrequencyDefs::InvalidArgument>(W >= 1 && W <= 2048 && H >= 1 && H <= 2048 && kf_IsPowerOfTwo(W) &&
                                                     kf_IsPowerOfTwo(H),
                                                 kRejectFilterSize);
    requireWidths(widthScale, minSigma);
    for (const kxPeriodicComponent& c : components)
        kf_Require<kxFrequencyDefs::InvalidArgument>(finite(c), kComponentNotFinite);

    std::vector<double> gain(static_cast<std::size_t>(W * H), 1.0);
    for (const kxPeriodicComponent& c : components) {
        // Widths in bins of each axis.
        const double su = std::min(std::max(widthScale * std::fabs(c.sigma.x()), minSigma), kMaxNotchSigma) * W;
        const double sv = std::min(std::max(widthScale * std::fabs(c.sigma.y()), minSigma), kMaxNotchSigma) * H;
        std::vector<std::pair<double, double>> lobes = {{c.fx, c.fy}};
        for (const auto& h : c.harmonics)
            lobes.emplace_back(h.fx, h.fy);
        for (const auto& f : lobes)
            for (double sign : {1.0, -1.0})
                multiplyNotch(gain, W, H, sign * f.first * W, sign * f.second * H, su, sv);
    }
    gain[0] = 1.0;   // the mean stays

    kxFrequencyBuffer transfer(W, H);
    float* d = Access::data(transfer);
    for (long i = 0; i < W * H; ++i) {
        d[2 * i] = static_cast<float>(gain[i]);
        d[2 * i + 1] = 0.0f;
    }
    return kxFrequencyFilterImage(transfer);
}

namespace {

// The image's support along one axis (1 on samples 0..n-1 of a periodic
// grid of N) after the low-pass whose gain at signed frequency k (bins) is
// exp(-k^2 / 2 s^2): the envelope of one notch's pass lobe. The kernel is
// the exact inverse transform of the sampled gains, so that the blur is the
// one the notches apply.
std::vector<double> blurredSupport(long n, long N, double s)
{
    // Gains beyond kNotchReach deviations are below 1e-7 and left out.
    const long reach = std::min(N / 2, static_cast<long>(std::ceil(kNotchReach * s)));
    std::vector<double> kernel(static_cast<std::size_t>(N), 0.0);
    for (long k = -reach; k <= reach; ++k) {
        if (k == N / 2 && k != 0 && -k >= -reach)
            continue;   // on a short axis the Nyquist bin is met once, as -N/2
        const double f = static_cast<double>(k);
        const double g = std::exp(-0.5 * f * f / (s * s));
        for (long x = 0; x < N; ++x)
            kernel[x] += g * std::cos(2.0 * kPi * f * static_cast<double>(x) / static_cast<double>(N));
    }
    std::vector<double> support(static_cast<std::size_t>(n), 0.0);
    for (long x = 0; x < n; ++x)
        for (long t = 0; t < n; ++t)
            support[x] += kernel[((x - t) % N + N) % N];
    for (double& v : support)
        v /= static_cast<double>(N);
    return support;
}

template <typename T>
T toPixel(double value)
{
    if (std::numeric_limits<T>::is_integer) {
        const double top = static_cast<double>(std::numeric_limits<T>::max());
        return static_cast<T>(std::isnan(value) ? 0.0 : std::clamp(std::floor(value + 0.5), 0.0, top));
    }
    return static_cast<T>(value);
}

template <typename T>
kxPelBuffer<T> removeTexture(const kxPelBuffer_const<T>& image, const kxTextureRemovalOptions& options,
                             std::vector<kxPeriodicComponent>* found)
{
    using namespace kx_analysis;
    requireImage(image);
    kf_Require<kxFrequencyDefs::InvalidSize>(image.width() >= 8 && image.height() >= 8, kPeakSearchTooSmall);
    requireWidths(options.widthScale, options.minSigma);
    const std::vector<kxPeriodicComponent> components = kfFindPeriodicComponents(image, options.search);
    const long w = image.width(), h = image.height();

    // The image without its mean, at offset (0, 0): the zero padding then
    // meets the image without a step that the notches would turn into
    // ripples along the borders.
    double mean = 0.0;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            mean += static_cast<double>(image(x, y));
    mean /= static_cast<double>(w) * static_cast<double>(h);
    kxPelBuffer<double> centred(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            centred(x, y) = static_cast<double>(image(x, y)) - mean;

    kxPelBuffer<double> real = centred;
    if (!components.empty()) {
        // One width for every notch: the widest asked for. The border
        // correction below needs a single width.
        double sx = options.minSigma, sy = options.minSigma;
        for (const kxPeriodicComponent& c : components) {
            sx = std::max(sx, options.widthScale * std::fabs(c.sigma.x()));
            sy = std::max(sy, options.widthScale * std::fabs(c.sigma.y()));
        }
        sx = std::min(sx, kMaxNotchSigma);
        sy = std::min(sy, kMaxNotchSigma);
        std::vector<kxPeriodicComponent> notches = components;
        for (kxPeriodicComponent& c : notches)
            c.sigma = kxPair<double>(sx, sy);

        // The correction assumes that the texture ends at the borders, with
        // zeros beyond as far as the notch's envelope reaches (about three
        // standard deviations, 1 / (2 pi sigma) pixels each); on a grid
        // with less padding the envelope would reach round to the other
        // side. So the grid is enlarged when the 2048 limit allows.
        const long reachX = static_cast<long>(std::ceil(3.0 / (2.0 * kPi * sx)));
        const long reachY = static_cast<long>(std::ceil(3.0 / (2.0 * kPi * sy)));
        const long W = kf_PaddedSize(w + reachX) <= 2048 ? kf_PaddedSize(w + reachX) : kf_PaddedSize(w);
        const long H = kf_PaddedSize(h + reachY) <= 2048 ? kf_PaddedSize(h + reachY) : kf_PaddedSize(h);
        kxPelBuffer<double> grid(W, H);
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x)
                grid(x, y) = centred(x, y);
        kxFrequencyBuffer spectrum;
        kfForwardFFT<double>(grid, spectrum);
        kfPeriodicRejectFilter(notches, kxPair<long>(W, H), 1.0, options.minSigma).apply(spectrum);
        kxPelBuffer<double> notched, imaginary;
        kfInverseFFT(spectrum, notched, imaginary, true);

        // What the notches took out is the texture times the image's
        // support blurred by the notch's envelope: near the borders, where
        // the zero padding begins, only part of it. Dividing by that
        // blurred support gives the whole texture there too.
        const std::vector<double> mx = blurredSupport(w, W, sx * static_cast<double>(W));
        const std::vector<double> my = blurredSupport(h, H, sy * static_cast<double>(H));
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x) {
                const double removed = centred(x, y) - notched(x, y);
                real(x, y) = centred(x, y) - removed / (mx[x] * my[y]);
            }
    }

    kxPelBuffer<T> result(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            result(x, y) = toPixel<T>(real(x, y) + mean);
    result.offset(image.offset());
    result.copyXforms(image);
    if (found)
        *found = components;
    return result;
}

}  // namespace

kxPelBuffer<unsigned char> kf_RemovePeriodicTexture(const kxPelBuffer_const<unsigned char>& image,
                                                    const kxTextureRemovalOptions& options,
                                                    std::vector<kxPeriodicComponent>* found)
{
    return removeTexture(image, options, found);
}

kxPelBuffer<unsigned short> kf_RemovePeriodicTexture(const kxPelBuffer_const<unsigned short>& image,
                                                     const kxTextureRemovalOptions& options,
                                                     std::vector<kxPeriodicComponent>* found)
{
    return removeTexture(image, options, found);
}

kxPelBuffer<double> kf_RemovePeriodicTexture(const kxPelBuffer_const<double>& image,
                                             const kxTextureRemovalOptions& options,
                                             std::vector<kxPeriodicComponent>* found)
{
    return removeTexture(image, options, found);
}
