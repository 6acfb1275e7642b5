#include "windowing.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace kxcli {

const OptionEntry kTaperOption{"--taper", nullptr, "F",
                               "tukey only: fraction of each side inside the tapers,\n"
                               "0 to 1 (default 0.5)"};

kxWindow windowOption(const Options& options, const char* fallback)
{
    const std::string name = options.choice("--window", {"hann", "tukey", "none"}, fallback);
    if (name != "tukey") {
        options.refuse("--taper", "used only with --window tukey");
        return name == "hann" ? kxWindow::hann() : kxWindow::none();
    }
    const double taper = options.number("--taper", 0.5);
    if (!(taper >= 0 && taper <= 1))
        optionError("--taper", "expects a fraction from 0 to 1, not '" + options.value("--taper") + "'");
    return kxWindow::tukey(taper);
}

void forwardWindowed(const kxio::GreyImage& image, const kxWindow& window, kxFrequencyBuffer& spectrum)
{
    kxPelBuffer<double> windowed = image.bits == 8 ? kfApplyWindow<unsigned char>(image.pixels8, window, true)
                                                   : kfApplyWindow<unsigned short>(image.pixels16, window, true);
    windowed.offset(kxPair<long>(0, 0));   // a region keeps its place; the transform wants the pixels
    kfForwardFFT<double>(windowed, spectrum);
}

namespace {

constexpr double kPi = 3.14159265358979323846;

// How a window's peak looks along one axis: |W(f)|, the magnitude of the
// transform of its weights at f bins of a grid of `grid` bins from the
// middle of the lobe, and the inverse of the neighbours' imbalance.
class LobeShape {
public:
    LobeShape(const std::vector<double>& weights, long grid) : weights_(weights), grid_(grid)
    {
        // The imbalance (right - left) / centre of the three bins around a
        // peak at offset d (bins) from the middle one, on a fine grid of d;
        // inverted by interpolation between its samples.
        for (int i = 0; i <= kSteps; ++i) {
            const double d = -0.5 + static_cast<double>(i) / kSteps;
            imbalance_[i] = (magnitude(1 - d) - magnitude(-1 - d)) / magnitude(-d);
        }
        for (int i = 0; i < kSteps; ++i)
            monotonic_ = monotonic_ && imbalance_[i] < imbalance_[i + 1];
    }

    // The peak's offset from the middle bin, -0.5 to 0.5, from its three
    // magnitudes; false when this lobe's shape gives no unique answer.
    bool offset(double left, double centre, double right, double* d) const
    {
        if (!monotonic_ || !(centre > 0))
            return false;
        const double r = (right - left) / centre;
        if (r <= imbalance_[0]) {
            *d = -0.5;
            return true;
        }
        if (r >= imbalance_[kSteps]) {
            *d = 0.5;
            return true;
        }
        const double* upper = std::upper_bound(imbalance_, imbalance_ + kSteps + 1, r);
        const long i = upper - imbalance_ - 1;
        const double t = (r - imbalance_[i]) / (imbalance_[i + 1] - imbalance_[i]);
        *d = -0.5 + (static_cast<double>(i) + t) / kSteps;
        return true;
    }

private:
    static constexpr int kSteps = 200;

    double magnitude(double f) const
    {
        std::complex<double> sum = 0.0;
        for (std::size_t n = 0; n < weights_.size(); ++n)
            sum += weights_[n] * std::polar(1.0, -2 * kPi * f * static_cast<double>(n) / static_cast<double>(grid_));
        return std::abs(sum);
    }

    std::vector<double> weights_;
    long grid_;
    double imbalance_[kSteps + 1];
    bool monotonic_ = true;
};

// A frequency (cycles per pixel) re-measured along one axis of the
// magnitudes: `at(j)` is the magnitude j bins along the axis from the
// nearest bin.
template <typename At>
double remeasured(double frequency, long grid, const LobeShape& lobe, At at)
{
    double d = 0;
    if (!lobe.offset(at(-1), at(0), at(1), &d))
        return frequency;
    return (std::round(frequency * static_cast<double>(grid)) + d) / static_cast<double>(grid);
}

}  // namespace

void refineForWindow(std::vector<kxPeriodicComponent>& components, const kxFrequencyBuffer& spectrum, long width,
                     long height, const kxWindow& window)
{
    if (window.type == kxWindow::eHann || components.empty())
        return;   // the library's own fit is made for it
    const long gw = spectrum.width(), gh = spectrum.height();
    const kxPelBuffer<double> magnitude = spectrum.getMagnitudeImage(false);
    const LobeShape lobeX(kfWindowWeights(width, window), gw), lobeY(kfWindowWeights(height, window), gh);
    auto wrap = [](long i, long n) { return ((i % n) + n) % n; };
    auto refine = [&](double& fx, double& fy) {
        const long k = std::lround(fx * static_cast<double>(gw)), l = std::lround(fy * static_cast<double>(gh));
        const double newFx = remeasured(fx, gw, lobeX, [&](long j) { return magnitude(wrap(k + j, gw), wrap(l, gh)); });
        const double newFy = remeasured(fy, gh, lobeY, [&](long j) { return magnitude(wrap(k, gw), wrap(l + j, gh)); });
        fx = newFx;
        fy = newFy;
    };
    for (kxPeriodicComponent& c : components) {
        refine(c.fx, c.fy);
        if (c.fy < 0 || (c.fy == 0 && c.fx < 0)) {   // stay on the reported side
            c.fx = -c.fx;
            c.fy = -c.fy;
        }
        c.frequency = std::hypot(c.fx, c.fy);
        c.period = c.frequency > 0 ? 1 / c.frequency : 0;
        c.angle = std::atan2(c.fy, c.fx);
        for (kxPeriodicHarmonic& h : c.harmonics)
            refine(h.fx, h.fy);
    }
}

}  // namespace kxcli
