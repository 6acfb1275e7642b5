// Display mapping of double images to 8-bit images.
#include "fft/buffer_access.h"
#include "fft/checks.h"

#include <kx/fft.h>

#include <cmath>

namespace {

// Truncates toward zero and keeps the low 8 bits: values outside 0..255
// wrap unless the mapping clamps them first.
unsigned char lowByte(double value) { return static_cast<unsigned char>(kf_TruncateToInt64(value)); }

}  // namespace

kxPelBuffer<unsigned char> kfFrequencyMapImage(const kxPelBuffer_const<double>& src,
                                               kxFrequencyDefs::FrequencyMapping mapping, double low, double high)
{
    using Defs = kxFrequencyDefs;
    kxfreq_detail::kf_RequireBound(src);
    const long w = src.width(), h = src.height();
    auto forEach = [&](auto visit) {
        const double* row = src.pointToOffset();
        for (long y = 0; y < h; ++y, row += src.rowUpdate())
            for (long x = 0; x < w; ++x)
                visit(row[x], x, y);
    };

    double min = static_cast<double>(1e20f);
    double max = static_cast<double>(-1e20f);
    if (mapping == Defs::eMapLinear || mapping == Defs::eMapLog) {
        forEach([&](double v, long, long) {
            if (!(max >= v))
                max = v;
            if (min > v)
                min = v;
        });
    } else if (mapping == Defs::eMapLinearRange) {
        min = low;
        max = high;
    }
    // The range is taken from zero when the data has no negative values.
    double range = min >= 0 ? max : max - min;
    if (!(range > 0))
        range = 1;

    kxPelBuffer<unsigned char> result(w, h, 32);
    result.copyXforms(src);
    unsigned char* out = result.pointToOffset();
    auto write = [&](auto pixel) {
        forEach([&](double v, long x, long y) { out[y * result.rowUpdate() + x] = pixel(v); });
    };
    switch (mapping) {
    case Defs::eMapClip:
        write([](double v) -> unsigned char {
            if (v < 0 || std::isnan(v))
                return 0;
            return v > 255 ? 255 : lowByte(v);
        });
        break;
    // The linear stretches multiply by 255 before dividing by the range
    // (rather than by a precomputed gain 255 / range) so that the top of the
    // range lands exactly on 255: 200 x (255 / 200) is 254.99999999999997.
    case Defs::eMapLinear:
        write([=](double v) { return lowByte((min < 0 ? v - min : v) * 255 / range); });
        break;
    case Defs::eMapLinearRange:
        // Offset by `low` while the range is `high` alone when low >= 0:
        // the mismatch is long-standing behaviour and stays.
        write([=](double v) -> unsigned char {
            const double t = (v - min) * 255 / range;
            if (t > 255)
                return 255;
            if (!(t >= 0))
                return 0;
            return lowByte(t);
        });
        break;
    case Defs::eMapLog: {
        // The gain uses ln(range) but the pixels ln(value + 1), so the largest
        // values land slightly above 255 and wrap; long-standing behaviour.
        if (range < 2)
            range = 2;
        const double gain = 255 / std::log(range);
        write([=](double v) { return lowByte(min < 0 ? std::log(v - min + 1) * gain : std::log(v + 1) * gain); });
        break;
    }
    case Defs::eMapPhase:
        write([](double v) { return lowByte(v * 40.58451); });
        break;
    default:
        break;   // an unknown mapping leaves the new image as made (zero)
    }
    return result;
}
