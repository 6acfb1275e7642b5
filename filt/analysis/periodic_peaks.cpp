// Periodic components of a spectrum: isolated peaks of the magnitude that
// stand out of the noise floor of their ring, each refined to a fraction of
// a bin, with harmonics grouped under their fundamental.
//
// Only one half of the spectrum is searched, the other holding the
// conjugate partners (a real image has |F(-u, -v)| = |F(u, v)|):
//
//         v < 0   . . . . . . . . .      not searched
//         v = 0   . . . . 0 * * * *      u > 0 only
//         v > 0   * * * * * * * * *      searched (v up to H/2 - 1)
#include "analysis/analysis_support.h"
#include "fft/buffer_access.h"
#include "fft/frequency_index.h"

#include <algorithm>
#include <cmath>

namespace {

using Access = kx_FrequencyBufferAccess;
constexpr double kPi = 3.14159265358979323846;

// Rings of the noise floor, cycles per pixel.
constexpr double kRingWidth = 1.0 / 64.0;
// A ring needs this many elements for a median worth the name; narrower
// ones are widened.
constexpr long kRingElements = 32;
// Below this fraction of the strongest magnitude nothing is reported, so
// that a spectrum without noise (synthetic images) does not turn the far
// sidelobes of its peaks into components.
constexpr double kDynamicRange = 1e-4;
// Peaks this close (bins) to a predicted harmonic place count as it.
constexpr double kHarmonicTolerance = 1.5;
// Only this many of the strongest local maxima are sorted into peaks and
// harmonics, which bounds the pairwise work on spectra with no noise (a
// synthetic image can have thousands of ripples over the floor).
constexpr std::size_t kMaxCandidates = 1024;
// A weaker peak becomes the fundamental of a stronger one up to this order.
constexpr long kMaxPromotedOrder = 3;

struct Peak {
    long k = 0, l = 0;         // storage indices
    double u = 0.0, v = 0.0;   // refined signed frequency, bins
    double magnitude = 0.0;
    double strength = 0.0;
    double sigmaU = 0.0, sigmaV = 0.0;   // bins
};

class Spectrum {
public:
    explicit Spectrum(const kxFrequencyBuffer& buffer)
        : W(Access::paddedWidth(buffer)), H(Access::paddedHeight(buffer)),
          magnitude(static_cast<std::size_t>(W * H))
    {
        const float* d = Access::data(buffer);
        for (long i = 0; i < W * H; ++i) {
            const double re = d[2 * i], im = d[2 * i + 1];
            magnitude[i] = std::sqrt(re * re + im * im);
        }
        // Main lobe of a windowed image's peak, bins: wider when the image
        // is smaller than the grid.
        const long w = std::max(1L, Access::requestedWidth(buffer)), h = std::max(1L, Access::requestedHeight(buffer));
        lobeU = std::max(3.0, 2.5 * static_cast<double>(W) / static_cast<double>(std::min(w, W)));
        lobeV = std::max(3.0, 2.5 * static_cast<double>(H) / static_cast<double>(std::min(h, H)));
    }

    double at(long k, long l) const { return magnitude[kf_StorageIndex(l, H) * W + kf_StorageIndex(k, W)]; }
    double radius(double u, double v) const { return std::hypot(u / W, v / H); }

    bool inSearchedHalf(long k, long l) const
    {
        const long u = kf_SignedFrequency(k, W), v = kf_SignedFrequency(l, H);
        return v > 0 ? 2 * v < H : (v == 0 && u > 0);
    }

    bool isLocalMaximum(long k, long l) const
    {
        const double m = at(k, l);
        for (long dl = -1; dl <= 1; ++dl)
            for (long dk = -1; dk <= 1; ++dk)
                if ((dk || dl) && at(k + dk, l + dl) > m)
                    return false;
        return true;
    }

    // Within the main lobe of the zero frequency (which the window widens
    // like any other peak).
    bool nearZeroFrequency(long u, long v) const
    {
        return std::fabs(static_cast<double>(u)) < lobeU && std::fabs(static_cast<double>(v)) < lobeV;
    }

    // The median magnitude around a peak, outside its main lobe and within
    // three lobes: a peak must stand out of its own neighbourhood too, not
    // only of its ring (a smooth, noise-free spectrum has a low ring floor
    // and gentle ripples).
    //
    // The same along the peak's own row and column: a streak through the
    // spectrum (the spectrum of content that is separable in x and y, such
    // as a shading or a straight edge) has ripples along it that stand out of
    // the square around them but not of the streak.
    double surroundingMedian(long k, long l) const
    {
        const long ru = static_cast<long>(std::ceil(3.0 * lobeU)), rv = static_cast<long>(std::ceil(3.0 * lobeV));
        std::vector<double> around, row, column;
        for (long dl = -rv; dl <= rv; ++dl)
            for (long dk = -ru; dk <= ru; ++dk) {
                const bool outsideU = std::fabs(static_cast<double>(dk)) >= lobeU;
                const bool outsideV = std::fabs(static_cast<double>(dl)) >= lobeV;
                if (outsideU || outsideV)
                    around.push_back(at(k + dk, l + dl));
                if (dl == 0 && outsideU)
                    row.push_back(at(k + dk, l));
                if (dk == 0 && outsideV)
                    column.push_back(at(k, l + dl));
            }
        return std::max({median(around), median(row), median(column)});
    }

    static double median(std::vector<double>& values)
    {
        std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
        return values[values.size() / 2];
    }

    // Sub-bin position and width from a Gaussian through the peak and its
    // neighbours on each axis (the logarithm of a windowed peak is close to
    // a parabola).
    void refine(Peak& p) const
    {
        auto fit = [&](double left, double centre, double right, double& offset, double& sigma) {
            const double tiny = 1e-300;
            const double a = std::log(std::max(left, tiny)), b = std::log(std::max(centre, tiny)),
                         c = std::log(std::max(right, tiny));
            const double curvature = a - 2.0 * b + c;
            if (curvature < 0.0) {
                offset = std::clamp(0.5 * (a - c) / curvature, -0.5, 0.5);
                sigma = std::sqrt(-1.0 / curvature);
            } else {
                offset = 0.0;
                sigma = 1.0;
            }
        };
        double du = 0.0, dv = 0.0;
        fit(at(p.k - 1, p.l), p.magnitude, at(p.k + 1, p.l), du, p.sigmaU);
        fit(at(p.k, p.l - 1), p.magnitude, at(p.k, p.l + 1), dv, p.sigmaV);
        p.u = static_cast<double>(kf_SignedFrequency(p.k, W)) + du;
        p.v = static_cast<double>(kf_SignedFrequency(p.l, H)) + dv;
    }

    long W, H;
    std::vector<double> magnitude;
    double lobeU = 3.0, lobeV = 3.0;
};

// The median magnitude of each ring around the zero frequency; rings too
// thin for a median are widened.
class NoiseFloor {
public:
    NoiseFloor(const Spectrum& s, double minimum)
    {
        const double minSide = static_cast<double>(std::min(s.W, s.H));
        width_ = std::max(kRingWidth, std::sqrt(static_cast<double>(kRingElements) / kPi) / minSide);
        rings_ = static_cast<long>(0.75 / width_) + 1;
        std::vector<std::vector<double>> members(static_cast<std::size_t>(rings_));
        for (long l = 0; l < s.H; ++l)
            for (long k = 0; k < s.W; ++k)
                members[ring(s.radius(kf_SignedFrequency(k, s.W), kf_SignedFrequency(l, s.H)))].push_back(
                    s.magnitude[l * s.W + k]);
        floor_.assign(static_cast<std::size_t>(rings_), minimum);
        for (long r = 0; r < rings_; ++r) {
            auto& m = members[r];
            if (m.empty())
                continue;
            std::nth_element(m.begin(), m.begin() + m.size() / 2, m.end());
            floor_[r] = std::max(minimum, m[m.size() / 2]);
        }
    }

    double at(double radius) const { return floor_[ring(radius)]; }

private:
    long ring(double radius) const { return std::min(rings_ - 1, static_cast<long>(radius / width_)); }

    long rings_ = 1;
    double width_ = kRingWidth;
    std::vector<double> floor_;
};

// The signed distance, in bins, between two positions on an axis of n
// bins, wrapped into -n/2 .. n/2.
double wrapped(double a, double b, long n)
{
    const double d = std::fmod(a - b, static_cast<double>(n));
    const double half = static_cast<double>(n) / 2.0;
    return d > half ? d - n : (d < -half ? d + n : d);
}

// Whether peak (u, v) sits at order n of the fundamental (fu, fv), or at
// its conjugate, folded into the grid.
bool isHarmonic(double u, double v, double fu, double fv, long n, const Spectrum& s)
{
    const double hu = fu * n, hv = fv * n;
    for (double sign : {1.0, -1.0}) {
        const double du = wrapped(u, sign * hu, s.W), dv = wrapped(v, sign * hv, s.H);
        if (std::fabs(du) <= kHarmonicTolerance && std::fabs(dv) <= kHarmonicTolerance)
            return true;
    }
    return false;
}

struct Group {
    Peak fundamental;
    std::vector<std::pair<long, Peak>> harmonics;   // order, peak
};

kxPeriodicComponent toComponent(const Group& g, const Spectrum& s)
{
    kxPeriodicComponent c;
    c.fx = g.fundamental.u / s.W;
    c.fy = g.fundamental.v / s.H;
    c.frequency = std::hypot(c.fx, c.fy);
    c.period = c.frequency > 0.0 ? 1.0 / c.frequency : 0.0;
    c.angle = std::atan2(c.fy, c.fx);
    if (c.angle < 0.0)
        c.angle += kPi;
    c.strength = g.fundamental.strength;
    c.sigma = kxPair<double>(g.fundamental.sigmaU / s.W, g.fundamental.sigmaV / s.H);
    for (const auto& h : g.harmonics) {
        kxPeriodicHarmonic ph;
        ph.order = h.first;
        ph.fx = h.second.u / s.W;
        ph.fy = h.second.v / s.H;
        ph.strength = h.second.strength;
        c.harmonics.push_back(ph);
    }
    std::sort(c.harmonics.begin(), c.harmonics.end(),
              [](const kxPeriodicHarmonic& a, const kxPeriodicHarmonic& b) { return a.order < b.order; });
    return c;
}

void requireOptions(const kxPeriodicSearchOptions& o)
{
    using namespace kx_analysis;
    kf_Require<kxFrequencyDefs::InvalidArgument>(o.maxComponents >= 1, kMaxComponents);
    kf_Require<kxFrequencyDefs::InvalidArgument>(
        o.threshold > 1.0 && o.harmonicThreshold > 1.0 && std::isfinite(o.threshold) && std::isfinite(o.harmonicThreshold),
        kThresholds);
    kf_Require<kxFrequencyDefs::InvalidArgument>(o.maxHarmonic >= 1 && o.maxHarmonic <= 256, kMaxHarmonic);
    kf_Require<kxFrequencyDefs::InvalidArgument>(o.minFrequency >= 0.0 && o.minFrequency <= 0.5, kMinFrequency);
}

}  // namespace

std::vector<kxPeriodicComponent> kfFindPeriodicComponents(const kxFrequencyBuffer& spectrum,
                                                          const kxPeriodicSearchOptions& options)
{
    using namespace kx_analysis;
    kf_RequireFrequencyData(spectrum);
    kf_Require<kxFrequencyDefs::InvalidSize>(Access::paddedWidth(spectrum) >= 8 && Access::paddedHeight(spectrum) >= 8,
                                             kPeakSearchTooSmall);
    requireOptions(options);

    const Spectrum s(spectrum);
    double strongest = 0.0;
    for (long l = 0; l < s.H; ++l)
        for (long k = 0; k < s.W; ++k)
            if (s.inSearchedHalf(k, l) &&
                s.radius(kf_SignedFrequency(k, s.W), kf_SignedFrequency(l, s.H)) >= options.minFrequency)
                strongest = std::max(strongest, s.magnitude[l * s.W + k]);
    if (!(strongest > 0.0))
        return {};
    const NoiseFloor floor(s, strongest * kDynamicRange);

    // Local maxima over the lower of the two thresholds: fundamentals need
    // the higher one, harmonics at their expected places the lower.
    const double lowest = std::min(options.threshold, options.harmonicThreshold);
    std::vector<Peak> candidates;
    for (long l = 0; l < s.H; ++l)
        for (long k = 0; k < s.W; ++k) {
            if (!s.inSearchedHalf(k, l))
                continue;
            const long u = kf_SignedFrequency(k, s.W), v = kf_SignedFrequency(l, s.H);
            const double r = s.radius(u, v);
            const double m = s.magnitude[l * s.W + k];
            if (r < options.minFrequency || s.nearZeroFrequency(u, v) || m < lowest * floor.at(r) ||
                !s.isLocalMaximum(k, l))
                continue;
            const double localFloor = std::max(floor.at(r), s.surroundingMedian(k, l));
            if (m < lowest * localFloor)
                continue;
            Peak p;
            p.k = k;
            p.l = l;
            p.magnitude = m;
            p.strength = m / localFloor;
            s.refine(p);
            candidates.push_back(p);
        }
    std::sort(candidates.begin(), candidates.end(),
              [](const Peak& a, const Peak& b) { return a.strength > b.strength; });
    if (candidates.size() > kMaxCandidates)
        candidates.resize(kMaxCandidates);

    // Strongest first: a peak inside the main lobe of a stronger one (or of
    // its conjugate) is part of it.
    std::vector<Peak> peaks;
    for (const Peak& p : candidates) {
        bool shadowed = false;
        for (const Peak& q : peaks)
            for (double sign : {1.0, -1.0})
                if (std::fabs(wrapped(p.u, sign * q.u, s.W)) < s.lobeU &&
                    std::fabs(wrapped(p.v, sign * q.v, s.H)) < s.lobeV)
                    shadowed = true;
        if (!shadowed)
            peaks.push_back(p);
    }

    std::vector<Group> groups;
    for (const Peak& p : peaks) {
        bool placed = false;
        // A harmonic of a stronger fundamental?
        for (Group& g : groups) {
            for (long n = 2; n <= options.maxHarmonic && !placed; ++n)
                if (isHarmonic(p.u, p.v, g.fundamental.u, g.fundamental.v, n, s)) {
                    bool taken = false;
                    for (const auto& h : g.harmonics)
                        taken = taken || h.first == n;
                    if (!taken && p.strength >= options.harmonicThreshold)
                        g.harmonics.emplace_back(n, p);
                    placed = true;
                }
            if (placed)
                break;
        }
        if (placed || p.strength < options.threshold)
            continue;
        // The fundamental of a stronger peak, which then becomes its harmonic?
        // Only for low orders: a fundamental far weaker than a high harmonic
        // is not a texture, and high orders meet by chance.
        for (Group& g : groups) {
            for (long n = 2; n <= std::min(kMaxPromotedOrder, options.maxHarmonic) && !placed; ++n)
                if (isHarmonic(g.fundamental.u, g.fundamental.v, p.u, p.v, n, s)) {
                    Group lower;
                    lower.fundamental = p;
                    lower.harmonics.emplace_back(n, g.fundamental);
                    for (const auto& h : g.harmonics)
                        if (h.first * n <= options.maxHarmonic)
                            lower.harmonics.emplace_back(h.first * n, h.second);
                    g = lower;
                    placed = true;
                }
            if (placed)
                break;
        }
        if (!placed && static_cast<long>(groups.size()) < options.maxComponents) {
            Group g;
            g.fundamental = p;
            groups.push_back(g);
        }
    }

    std::sort(groups.begin(), groups.end(),
              [](const Group& a, const Group& b) { return a.fundamental.strength > b.fundamental.strength; });
    std::vector<kxPeriodicComponent> result;
    for (const Group& g : groups)
        result.push_back(toComponent(g, s));
    return result;
}

namespace {

template <typename T>
std::vector<kxPeriodicComponent> findInImage(const kxPelBuffer_const<T>& image, const kxPeriodicSearchOptions& options)
{
    using namespace kx_analysis;
    requireImage(image);
    kf_Require<kxFrequencyDefs::InvalidSize>(image.width() >= 8 && image.height() >= 8, kPeakSearchTooSmall);
    requireOptions(options);
    kxPelBuffer<double> windowed = kfApplyWindow(image, kxWindow::hann(), true);
    windowed.offset(kxPair<long>(0, 0));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(windowed, spectrum);
    return kfFindPeriodicComponents(spectrum, options);
}

}  // namespace

std::vector<kxPeriodicComponent> kf_FindPeriodicComponents(const kxPelBuffer_const<unsigned char>& image,
                                                           const kxPeriodicSearchOptions& options)
{
    return findInImage(image, options);
}

std::vector<kxPeriodicComponent> kf_FindPeriodicComponents(const kxPelBuffer_const<unsigned short>& image,
                                                           const kxPeriodicSearchOptions& options)
{
    return findInImage(image, options);
}

std::vector<kxPeriodicComponent> kf_FindPeriodicComponents(const kxPelBuffer_const<double>& image,
                                                           const kxPeriodicSearchOptions& options)
{
    return findInImage(image, options);
}
