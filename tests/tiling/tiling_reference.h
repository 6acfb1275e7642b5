#pragma once
// Test oracle for tiled filtering: the band-reject filter's continuous gain
// applied to the whole mirror-extended image, in double precision, as a
// direct convolution at chosen pixels. No transform is involved.
//
// The gain is 1 - ring(rho), ring(rho) = exp(-(rho - f0)^2 / (2 sigma^2));
// its kernel is delta - h(r) with the ring's Hankel transform
//     h(r) = integral of ring(rho) 2 pi rho J0(2 pi rho r) d rho,
// integrated by Simpson's rule over f0 +- 9 sigma, and cut at a radius
// where the envelope exp(-2 pi^2 sigma^2 r^2) is below 1e-12 of its peak.
#include <cmath>
#include <cstdint>
#include <vector>

namespace kxtest {

class RingReference {
public:
    RingReference(double sigma, double frequency)
        : reach_(static_cast<long>(std::ceil(std::sqrt(2.0 * std::log(1e12)) / (2.0 * kPiRef * sigma))))
    {
        // One kernel value per distinct squared distance.
        kernel_.resize(static_cast<std::size_t>(reach_ * reach_ + 1), 0.0);
        const double lo = std::max(0.0, frequency - 9.0 * sigma), hi = frequency + 9.0 * sigma;
        const int steps = 400;
        const double h = (hi - lo) / steps;
        // Only distances that are sums of two squares occur.
        std::vector<char> needed(kernel_.size(), 0);
        for (long dy = 0; dy <= reach_; ++dy)
            for (long dx = 0; dx * dx + dy * dy <= reach_ * reach_; ++dx)
                needed[static_cast<std::size_t>(dx * dx + dy * dy)] = 1;
        for (long r2 = 0; r2 <= reach_ * reach_; ++r2) {
            if (!needed[static_cast<std::size_t>(r2)])
                continue;
            const double r = std::sqrt(static_cast<double>(r2));
            double sum = 0.0;
            for (int i = 0; i <= steps; ++i) {
                const double rho = lo + h * i;
                const double d = rho - frequency;
                const double value = std::exp(-d * d / (2.0 * sigma * sigma)) * 2.0 * kPiRef * rho *
                                     std::cyl_bessel_j(0.0, 2.0 * kPiRef * rho * r);
                sum += value * (i == 0 || i == steps ? 1.0 : (i % 2 ? 4.0 : 2.0));
            }
            kernel_[static_cast<std::size_t>(r2)] = sum * h / 3.0;
        }
    }

    long reach() const { return reach_; }

    // The band-rejected value at (x, y) of an image given by `pixel`, read
    // with the mirror at its borders (border sample repeated). The ring has
    // no gain at the zero frequency (exp(-f0^2 / (2 sigma^2)), below 1e-14
    // for the rings tested), so the kernel sums to 0 and is applied to the
    // differences from the centre pixel: the integration's small error in
    // that sum is not multiplied by the image's mean.
    template <typename Pixel>
    double at(long x, long y, long width, long height, const Pixel& pixel) const
    {
        const double centre = pixel(x, y);
        double ring = 0.0;
        for (long dy = -reach_; dy <= reach_; ++dy) {
            const long sy = mirror(y - dy, height);
            for (long dx = -reach_; dx <= reach_; ++dx) {
                const long r2 = dx * dx + dy * dy;
                if (r2 > reach_ * reach_)
                    continue;
                ring += kernel_[static_cast<std::size_t>(r2)] * (pixel(mirror(x - dx, width), sy) - centre);
            }
        }
        return centre - ring;
    }

    static long mirror(long p, long n)
    {
        const long period = 2 * n;
        long q = p % period;
        if (q < 0)
            q += period;
        return q < n ? q : period - 1 - q;
    }

private:
    static constexpr double kPiRef = 3.141592653589793;
    long reach_;
    std::vector<double> kernel_;
};

// A deterministic test scene: smooth shapes, fine noise and a periodic
// pattern of `amplitude` at `frequency` cycles per pixel in direction
// `angle`, the same at every position whatever part of it is asked for.
inline double sceneValue(long x, long y, double frequency, double angle, double amplitude)
{
    std::uint64_t h = static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15ull ^
                      static_cast<std::uint64_t>(y) * 0xC2B2AE3D27D4EB4Full;
    h ^= h >> 29;
    h *= 0xBF58476D1CE4E5B9ull;
    h ^= h >> 32;
    const double noise = static_cast<double>(h % 2001) / 1000.0 - 1.0;
    const double shapes = 40.0 * std::sin(x * 0.013) * std::cos(y * 0.009) + 25.0 * std::sin((x + 2 * y) * 0.004);
    const double pattern =
        amplitude * std::cos(2.0 * 3.141592653589793 * frequency * (x * std::cos(angle) + y * std::sin(angle)));
    return 120.0 + shapes + 6.0 * noise + pattern;
}

}  // namespace kxtest
