#pragma once
// Synthetic test content for the analysis tests: natural-looking grey
// images (smoothed random fields at several scales with hard-edged shapes),
// noise, periodic interference, and shifted views. Everything is drawn from
// seeded generators, so every run sees the same pixels.
#include <kx/core/pel_buffer.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

namespace kxsynth {

constexpr double kPi = 3.14159265358979323846;

// A plain row-major double image, easier to build content in than a pel buffer.
struct Field {
    long w = 0, h = 0;
    std::vector<double> v;
    Field(long width, long height, double value = 0.0) : w(width), h(height), v(width * height, value) {}
    double& at(long x, long y) { return v[y * w + x]; }
    double at(long x, long y) const { return v[y * w + x]; }
};

// Separable box blur of radius r with clamped borders.
inline void boxBlur(Field& f, long r)
{
    std::vector<double> line;
    for (int pass = 0; pass < 2; ++pass) {
        const long n = pass == 0 ? f.w : f.h, lines = pass == 0 ? f.h : f.w;
        line.resize(n);
        for (long l = 0; l < lines; ++l) {
            auto get = [&](long i) -> double& { return pass == 0 ? f.at(i, l) : f.at(l, i); };
            for (long i = 0; i < n; ++i)
                line[i] = get(i);
            double sum = 0.0;
            for (long i = -r; i <= r; ++i)
                sum += line[std::clamp(i, 0L, n - 1)];
            for (long i = 0; i < n; ++i) {
                get(i) = sum / static_cast<double>(2 * r + 1);
                sum += line[std::clamp(i + r + 1, 0L, n - 1)] - line[std::clamp(i - r, 0L, n - 1)];
            }
        }
    }
}

// Roughly Gaussian smoothing: three box passes.
inline void smooth(Field& f, long r)
{
    for (int i = 0; i < 3; ++i)
        boxBlur(f, r);
}

// Smoothed noise at four scales, a few dozen soft-edged and hard-edged
// shapes (discs and rotated rectangles) and fine grain: mean about 128,
// spread over most of the 8-bit range.
inline Field naturalImage(long w, long h, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    Field out(w, h, 0.0);
    const long radii[] = {24, 9, 3, 1};
    const double gains[] = {90.0, 45.0, 20.0, 8.0};
    for (int s = 0; s < 4; ++s) {
        Field layer(w, h);
        for (double& p : layer.v)
            p = normal(rng);
        smooth(layer, radii[s]);
        double sd = 0.0;
        for (double p : layer.v)
            sd += p * p;
        sd = std::sqrt(sd / static_cast<double>(layer.v.size()));
        for (std::size_t i = 0; i < out.v.size(); ++i)
            out.v[i] += gains[s] * layer.v[i] / (sd > 0.0 ? sd : 1.0) / 3.0;
    }
    const long shapes = std::max(8L, w * h / 2500);
    for (long k = 0; k < shapes; ++k) {
        const double cx = uniform(rng) * w, cy = uniform(rng) * h;
        const double size = 4.0 + uniform(rng) * 0.12 * static_cast<double>(std::min(w, h));
        const double level = (uniform(rng) - 0.5) * 120.0;
        const bool disc = uniform(rng) < 0.5;
        const double angle = uniform(rng) * kPi, aspect = 0.3 + uniform(rng);
        const double c = std::cos(angle), s = std::sin(angle);
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x) {
                const double u = (x - cx) * c + (y - cy) * s, v = -(x - cx) * s + (y - cy) * c;
                const bool inside = disc ? u * u + v * v < size * size
                                         : std::fabs(u) < size && std::fabs(v) < size * aspect;
                if (inside)
                    out.at(x, y) += level;
            }
    }
    for (double& p : out.v)
        p += 128.0;
    return out;
}

// The window of `f` whose top-left corner is at (x0, y0), w x h.
inline Field crop(const Field& f, long x0, long y0, long w, long h)
{
    Field out(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            out.at(x, y) = f.at(x0 + x, y0 + y);
    return out;
}

// Averages of 2 x 2 blocks.
inline Field halve(const Field& f)
{
    Field out(f.w / 2, f.h / 2);
    for (long y = 0; y < out.h; ++y)
        for (long x = 0; x < out.w; ++x)
            out.at(x, y) = 0.25 * (f.at(2 * x, 2 * y) + f.at(2 * x + 1, 2 * y) + f.at(2 * x, 2 * y + 1) +
                                   f.at(2 * x + 1, 2 * y + 1));
    return out;
}

// gain x f + offset + Gaussian noise of the given deviation.
inline Field degrade(const Field& f, double gain, double offset, double noise, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> normal(0.0, noise);
    Field out = f;
    for (double& p : out.v)
        p = gain * p + offset + (noise > 0.0 ? normal(rng) : 0.0);
    return out;
}

// One-dimensional DFT in double (sign -1 forward, +1 inverse, unscaled).
inline void dft(std::vector<std::complex<double>>& a, int sign)
{
    const long n = static_cast<long>(a.size());
    std::vector<std::complex<double>> out(n), twiddle(n);
    for (long j = 0; j < n; ++j)
        twiddle[j] = std::polar(1.0, sign * 2.0 * kPi * static_cast<double>(j) / static_cast<double>(n));
    for (long k = 0; k < n; ++k) {
        std::complex<double> s = 0.0;
        for (long j = 0; j < n; ++j)
            s += a[j] * twiddle[(k * j) % n];
        out[k] = s;
    }
    a = out;
}

// f translated by (dx, dy) pixels through its spectrum (a circular shift by
// a fraction of a pixel): out(x + dx, y + dy) = f(x, y). The Nyquist terms
// are dropped so that the result stays real.
inline Field fourierShift(const Field& f, double dx, double dy)
{
    const long w = f.w, h = f.h;
    std::vector<std::complex<double>> grid(w * h), line;
    for (long i = 0; i < w * h; ++i)
        grid[i] = f.v[i];
    auto transform = [&](int sign) {
        line.resize(w);
        for (long y = 0; y < h; ++y) {
            std::copy(grid.begin() + y * w, grid.begin() + (y + 1) * w, line.begin());
            dft(line, sign);
            std::copy(line.begin(), line.end(), grid.begin() + y * w);
        }
        line.resize(h);
        for (long x = 0; x < w; ++x) {
            for (long y = 0; y < h; ++y)
                line[y] = grid[y * w + x];
            dft(line, sign);
            for (long y = 0; y < h; ++y)
                grid[y * w + x] = line[y];
        }
    };
    transform(-1);
    for (long v = 0; v < h; ++v)
        for (long u = 0; u < w; ++u) {
            const long su = u < (w + 1) / 2 ? u : u - w, sv = v < (h + 1) / 2 ? v : v - h;
            if ((w % 2 == 0 && u == w / 2) || (h % 2 == 0 && v == h / 2)) {
                grid[v * w + u] = 0.0;
                continue;
            }
            const double phase = -2.0 * kPi * (su * dx / w + sv * dy / h);
            grid[v * w + u] *= std::polar(1.0, phase);
        }
    transform(+1);
    Field out(w, h);
    for (long i = 0; i < w * h; ++i)
        out.v[i] = grid[i].real() / static_cast<double>(w * h);
    return out;
}

// Rounded and clamped to 8 bits.
inline kxPelBuffer<unsigned char> toPixels(const Field& f)
{
    kxPelBuffer<unsigned char> image(f.w, f.h);
    for (long y = 0; y < f.h; ++y)
        for (long x = 0; x < f.w; ++x)
            image(x, y) = static_cast<unsigned char>(std::clamp(std::floor(f.at(x, y) + 0.5), 0.0, 255.0));
    return image;
}

inline kxPelBuffer<double> toDoubles(const Field& f)
{
    kxPelBuffer<double> image(f.w, f.h);
    for (long y = 0; y < f.h; ++y)
        for (long x = 0; x < f.w; ++x)
            image(x, y) = f.at(x, y);
    return image;
}

}  // namespace kxsynth
