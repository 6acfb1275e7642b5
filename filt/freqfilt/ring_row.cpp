// The scalar ring row: the reference for the vectorised ones.
#include "freqfilt/ring_row.h"

#include "fft/frequency_index.h"

#include <cmath>

void kf_RingRowScalar(const kf_RingRow& row, long from, long to)
{
    for (long x = from; x < to; ++x) {
        const float* s = row.src + 2 * x;
        float* d = row.dst + 2 * x;
        const std::int32_t u = static_cast<std::int32_t>(kf_RingFrequency(x, row.width));
        const std::int32_t r2 = u * u + row.yterm;
        if (r2 <= row.inner || r2 >= row.outer) {
            d[0] = row.clearOutside ? 0.0f : s[0];
            d[1] = row.clearOutside ? 0.0f : s[1];
            continue;
        }
        long index = static_cast<long>((std::sqrt(static_cast<double>(r2)) - row.f0) * 32);
        if (index < 0)
            index = -index;
        const float gain = row.profile[index];
        d[0] = s[0] * gain;
        d[1] = s[1] * gain;
    }
}
