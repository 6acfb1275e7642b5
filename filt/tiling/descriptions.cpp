// Filter descriptions: the filters' parameters without a size, the filter
// for any padded size, and the overlap margin their kernel needs.
#include <kx/tiling.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPi = 3.141592653589793;
const double kSqrtTwoPi = std::sqrt(2.0 * kPi);

// The envelope of a Gaussian of standard deviation sigma (cycles per pixel)
// seen in the image: a Gaussian of 1 / (2 pi sigma) pixels.
double envelopeOf(double sigma) { return sigma > 0.0 ? 1.0 / (2.0 * kPi * sigma) : 0.0; }

// The width of a band with a flat top of half-width `plateau` and Gaussian
// flanks of `sigma` (its integral across the band).
double bandWidth(double sigma, double plateau) { return 2.0 * plateau + kSqrtTwoPi * sigma; }

kxRadian radians(double angle) { return kxRadian(angle); }

// The gain of `filter` on every element of a spectrum of `size`: a buffer of
// ones filtered.
kxFrequencyBuffer gainOf(const kxFrequencyFilter& filter, const kxPair<long>& size)
{
    kxFrequencyBuffer ones(size.x(), size.y());
    for (long y = 0; y < size.y(); ++y)
        for (long x = 0; x < size.x(); ++x)
            ones.put(x, y, kxPair<double>(1.0, 0.0), false);
    filter.apply(ones);
    return ones;
}

}  // namespace

kxFilterDescription::~kxFilterDescription() = default;

long kxFilterDescription::margin(double fullScale) const
{
    const double s = kernelWidth();
    const double area = passBandArea() * std::fabs(resultScale());
    // Lost amplitude <= fullScale x area x 2 pi s^2 x exp(-m^2 / (2 s^2)),
    // to be kept under half a grey level.
    const double lost = fullScale * area * 2.0 * kPi * s * s / 0.5;
    if (!(s > 0.0) || !(lost > 1.0))
        return 0;
    return static_cast<long>(std::ceil(s * std::sqrt(2.0 * std::log(lost))));
}

// ---------------------------------------------------------------------------

double kx_GaborShape::kernelWidth() const { return envelopeOf(std::min(sigma.x(), sigma.y())); }

double kx_GaborShape::passBandArea() const
{
    return bandWidth(sigma.x(), plateau.x()) * bandWidth(sigma.y(), plateau.y());
}

std::unique_ptr<kxFilterDescription> kxGaborDescription::clone() const
{
    return std::make_unique<kxGaborDescription>(*this);
}

std::unique_ptr<kxFrequencyFilter> kxGaborDescription::makeFilter(const kxPair<long>& size) const
{
    return std::make_unique<kxFrequencyFilterGabor>(sigma, plateau, radians(angle), frequency, size, dcRadius);
}

// ---------------------------------------------------------------------------

std::unique_ptr<kxFilterDescription> kxGaborRejectDescription::clone() const
{
    return std::make_unique<kxGaborRejectDescription>(*this);
}

std::unique_ptr<kxFrequencyFilter> kxGaborRejectDescription::makeOneLobeFilter(const kxPair<long>& size) const
{
    return std::make_unique<kxFrequencyFilterGaborReject>(sigma, plateau, radians(angle), frequency, size,
                                                          dcRadius);
}

// A real pattern has a second peak at the mirrored frequency: the gain is
// the one-lobe gain times the same gain at (-u, -v).
std::unique_ptr<kxFrequencyFilter> kxGaborRejectDescription::makeFilter(const kxPair<long>& size) const
{
    const long width = size.x(), height = size.y();
    const kxFrequencyBuffer one = gainOf(*makeOneLobeFilter(size), size);
    kxFrequencyBuffer both(width, height);
    for (long y = 0; y < height; ++y)
        for (long x = 0; x < width; ++x) {
            const double g = one.getReal(x, y, false) * one.getReal((width - x) % width, (height - y) % height, false);
            both.put(x, y, kxPair<double>(g, 0.0), false);
        }
    return std::make_unique<kxFrequencyFilterImage>(both);
}

double kxGaborRejectDescription::passBandArea() const { return 2.0 * kx_GaborShape::passBandArea(); }

// ---------------------------------------------------------------------------

// A ring's area: its circumference (at least that of a disc of its own
// width, for a ring near the zero frequency) times its width.
static double ringArea(double sigma, double plateau, double frequency)
{
    return 2.0 * kPi * std::max(frequency, sigma + plateau) * bandWidth(sigma, plateau);
}

double kx_RingShape::kernelWidth() const { return envelopeOf(sigma); }

double kx_RingShape::passBandArea() const { return ringArea(sigma, plateau, frequency); }

std::unique_ptr<kxFilterDescription> kxBandPassDescription::clone() const
{
    return std::make_unique<kxBandPassDescription>(*this);
}

std::unique_ptr<kxFrequencyFilter> kxBandPassDescription::makeFilter(const kxPair<long>& size) const
{
    return std::make_unique<kxFrequencyFilterBandPass>(sigma, plateau, frequency, size, dcRadius);
}

std::unique_ptr<kxFilterDescription> kxBandRejectDescription::clone() const
{
    return std::make_unique<kxBandRejectDescription>(*this);
}

std::unique_ptr<kxFrequencyFilter> kxBandRejectDescription::makeFilter(const kxPair<long>& size) const
{
    return std::make_unique<kxFrequencyFilterBandReject>(sigma, plateau, frequency, size, dcRadius);
}


// ---------------------------------------------------------------------------

namespace {

// A notch's standard deviation along one axis, as kfPeriodicRejectFilter
// makes it.
double notchSigma(double componentSigma, double widthScale, double minSigma)
{
    return std::min(std::max(widthScale * std::fabs(componentSigma), minSigma), 0.1);
}

}  // namespace

std::unique_ptr<kxFilterDescription> kxPeriodicRejectDescription::clone() const
{
    return std::make_unique<kxPeriodicRejectDescription>(*this);
}

std::unique_ptr<kxFrequencyFilter> kxPeriodicRejectDescription::makeFilter(const kxPair<long>& size) const
{
    return std::make_unique<kxFrequencyFilterImage>(kfPeriodicRejectFilter(components, size, widthScale, minSigma));
}

double kxPeriodicRejectDescription::kernelWidth() const
{
    double narrowest = 0.0;
    for (const kxPeriodicComponent& c : components)
        for (double s : {c.sigma.x(), c.sigma.y()}) {
            const double notch = notchSigma(s, widthScale, minSigma);
            narrowest = narrowest == 0.0 ? notch : std::min(narrowest, notch);
        }
    return envelopeOf(narrowest);
}

// Two notches (both lobes) for each component and each harmonic.
double kxPeriodicRejectDescription::passBandArea() const
{
    double area = 0.0;
    for (const kxPeriodicComponent& c : components) {
        const double one = 2.0 * kPi * notchSigma(c.sigma.x(), widthScale, minSigma) *
                           notchSigma(c.sigma.y(), widthScale, minSigma);
        area += 2.0 * one * static_cast<double>(1 + c.harmonics.size());
    }
    return area;
}

// ---------------------------------------------------------------------------

kxFixedFilterDescription::kxFixedFilterDescription(const kxFrequencyFilter& filter, const kxPair<long>& size)
    : filter_(filter.clone()), size_(size)
{
}

kxFixedFilterDescription::kxFixedFilterDescription(const kxFixedFilterDescription& other)
    : kxFilterDescription(other), filter_(other.filter_->clone()), size_(other.size_)
{
}

kxFixedFilterDescription& kxFixedFilterDescription::operator=(const kxFixedFilterDescription& other)
{
    if (this != &other) {
        filter_.reset(other.filter_->clone());
        size_ = other.size_;
    }
    return *this;
}

kxFixedFilterDescription::~kxFixedFilterDescription() = default;

std::unique_ptr<kxFilterDescription> kxFixedFilterDescription::clone() const
{
    return std::make_unique<kxFixedFilterDescription>(*this);
}

// The filter refuses a spectrum of another size itself when applied.
std::unique_ptr<kxFrequencyFilter> kxFixedFilterDescription::makeFilter(const kxPair<long>&) const
{
    return std::unique_ptr<kxFrequencyFilter>(filter_->clone());
}
