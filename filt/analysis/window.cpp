// Separable windows. The weights are computed once per axis in double; a
// pixel's weight is the product of its column's and its row's.
#include "analysis/analysis_support.h"

#include <cmath>

namespace {

constexpr double kPi = 3.14159265358979323846;

template <typename T>
void windowIntoImpl(const kxPelBuffer_const<T>& image, const kxWindow& window, bool removeMean,
                    const kxPelBuffer<double>& destination);

template <typename T>
kxPelBuffer<double> applyWindow(const kxPelBuffer_const<T>& image, const kxWindow& window, bool removeMean)
{
    kx_analysis::requireImage(image);
    kxPelBuffer<double> result(image.width(), image.height());
    kx_analysis::windowInto(image, window, removeMean, result);
    result.offset(image.offset());
    result.copyXforms(image);
    return result;
}

template <typename T>
void windowIntoImpl(const kxPelBuffer_const<T>& image, const kxWindow& window, bool removeMean,
                    const kxPelBuffer<double>& destination)
{
    const long w = image.width(), h = image.height();
    const std::vector<double> wx = kfWindowWeights(w, window);
    const std::vector<double> wy = kfWindowWeights(h, window);

    // The weighted mean, so that the weighted result sums to zero.
    double mean = 0.0;
    if (removeMean) {
        double sum = 0.0, weights = 0.0;
        const T* row = image.pointToOffset();
        for (long y = 0; y < h; ++y, row += image.rowUpdate())
            for (long x = 0; x < w; ++x) {
                const double weight = wx[x] * wy[y];
                sum += weight * static_cast<double>(row[x]);
                weights += weight;
            }
        mean = weights > 0.0 ? sum / weights : 0.0;
    }

    const T* row = image.pointToOffset();
    double* out = destination.pointToOffset();
    for (long y = 0; y < h; ++y, row += image.rowUpdate(), out += destination.rowUpdate())
        for (long x = 0; x < w; ++x)
            out[x] = (static_cast<double>(row[x]) - mean) * (wx[x] * wy[y]);
}

}  // namespace

void kx_analysis::windowInto(const kxPelBuffer_const<unsigned char>& image, const kxWindow& window, bool removeMean,
                             const kxPelBuffer<double>& destination)
{
    windowIntoImpl(image, window, removeMean, destination);
}

void kx_analysis::windowInto(const kxPelBuffer_const<unsigned short>& image, const kxWindow& window, bool removeMean,
                             const kxPelBuffer<double>& destination)
{
    windowIntoImpl(image, window, removeMean, destination);
}

void kx_analysis::windowInto(const kxPelBuffer_const<double>& image, const kxWindow& window, bool removeMean,
                             const kxPelBuffer<double>& destination)
{
    windowIntoImpl(image, window, removeMean, destination);
}

void kx_analysis::requireWindow(const kxWindow& window)
{
    kf_Require<kxFrequencyDefs::InvalidArgument>(
        window.type == kxWindow::eNone || window.type == kxWindow::eHann || window.type == kxWindow::eTukey,
        kWindowType);
    if (window.type == kxWindow::eTukey)
        kf_Require<kxFrequencyDefs::InvalidArgument>(window.taper >= 0.0 && window.taper <= 1.0, kTukeyTaper);
}

std::vector<double> kfWindowWeights(long length, const kxWindow& window)
{
    kxfreq_detail::kf_Require<kxFrequencyDefs::InvalidArgument>(length >= 1 && length <= 2048,
                                                                kxfreq_detail::kWindowLength);
    kx_analysis::requireWindow(window);
    std::vector<double> weights(static_cast<std::size_t>(length), 1.0);
    if (length == 1 || window.type == kxWindow::eNone)
        return weights;
    const double last = static_cast<double>(length - 1);
    if (window.type == kxWindow::eHann) {
        for (long n = 0; n < length; ++n)
            weights[n] = 0.5 - 0.5 * std::cos(2.0 * kPi * static_cast<double>(n) / last);
        return weights;
    }
    // Tukey: raised-cosine tapers of a = taper (N - 1) / 2 samples at each
    // end, mirrored so that the window is exactly symmetric.
    const double a = window.taper * last / 2.0;
    for (long n = 0; n < length; ++n) {
        const double m = std::fmin(static_cast<double>(n), last - static_cast<double>(n));
        if (m < a)
            weights[n] = 0.5 - 0.5 * std::cos(kPi * m / a);
    }
    return weights;
}

kxPelBuffer<double> kf_ApplyWindow(const kxPelBuffer_const<unsigned char>& image, const kxWindow& window,
                                   bool removeMean)
{
    return applyWindow(image, window, removeMean);
}

kxPelBuffer<double> kf_ApplyWindow(const kxPelBuffer_const<unsigned short>& image, const kxWindow& window,
                                   bool removeMean)
{
    return applyWindow(image, window, removeMean);
}

kxPelBuffer<double> kf_ApplyWindow(const kxPelBuffer_const<double>& image, const kxWindow& window, bool removeMean)
{
    return applyWindow(image, window, removeMean);
}
