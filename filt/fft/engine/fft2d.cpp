// The two 2-D entry points: a row pass, a transpose, a pass over the former
// columns, and a transpose back.
#include "fft/engine/engine.h"
#include "fft/engine/kernel.h"

#include <kx/core/attention.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace {

// A float array whose working pointer is rounded up to 16 bytes, like the
// frequency buffer's own store.
class AlignedScratch {
public:
    explicit AlignedScratch(std::size_t floats) : store_(floats + 7)
    {
        std::uintptr_t address = reinterpret_cast<std::uintptr_t>(store_.data());
        address = (address + 15) & ~static_cast<std::uintptr_t>(15);
        data_ = reinterpret_cast<float*>(address);
    }
    float* data() { return data_; }

private:
    std::vector<float> store_;
    float* data_;
};

// The working tables of one call, released on every exit.
struct Workspace {
    Workspace(int width, int height, int rotationSign)
        : rotation(rotationSign), bitReverse(2 * static_cast<std::size_t>(std::max(width, height)))
    {
        // Non-square matrices are transposed out of place; a single row or
        // column needs no transpose at all.
        if (width != height && width != 1 && height != 1)
            scratch = std::make_unique<AlignedScratch>(static_cast<std::size_t>(width) * height * 2);
    }

    // Builds the bit-reversal table for n unless it is already built for n.
    void prepareRows(int n)
    {
        if (n != tableLength) {
            kf_BitReverseTable(bitReverse.data(), n);
            tableLength = n;
        }
    }

    kf_RotationTable rotation;
    std::vector<std::int32_t> bitReverse;
    int tableLength = 0;
    std::unique_ptr<AlignedScratch> scratch;
};

// Transforms rows [0, rowCount) of `matrix` (rows of n elements) for which
// `keep(row)` holds, polling every 16 rows.
template <typename Keep>
void transformRows(float* matrix, int n, int rowCount, int direction, Workspace& work, Keep keep)
{
    work.prepareRows(n);
    for (int r = 0; r < rowCount; ++r) {
        if (!keep(r))
            continue;
        if (r % 16 == 0)
            kxAttention::check();
        kf_SplitRadixRow<float>(matrix + 2 * static_cast<std::size_t>(r) * n, n, direction,
                                work.rotation, work.bitReverse.data());
    }
}

}  // namespace

void kf_BitReverseTable(std::int32_t* table, int n)
{
    int j = 1;
    for (int i = 1; i < n; ++i) {
        if (i < j) {
            table[i] = 2 * j;
            table[j] = -1;
        } else if (i == j) {
            table[i] = -1;
        }
        int m = n / 2;
        while (m < j && m > 0) {
            j -= m;
            m /= 2;
        }
        j += m;
    }
}

void kf_ComplexFFT2D(float* data, kxPair<long> size, int direction, int bandLo, int bandHi)
{
    const int width = static_cast<int>(size.x());
    const int height = static_cast<int>(size.y());
    Workspace work(width, height, 1);

    // Row pass, skipping rows whose centred index is outside the band:
    // storage row r has centred index r + half below half, r - half above.
    const int half = height / 2;
    transformRows(data, width, height, direction, work, [&](int r) {
        if (r < half)
            return !(r < bandLo - half || r > bandHi - half);
        return !(r < bandLo + half || r > bandHi + half);
    });

    float* current = data;
    if (work.scratch) {
        kf_TransposeRect(data, work.scratch->data(), width, height);
        current = work.scratch->data();
    } else if (width > 1 && height > 1) {
        kf_TransposeSquareBanded(data, width, bandLo, bandHi);
    }

    transformRows(current, height, width, direction, work, [](int) { return true; });

    if (work.scratch)
        kf_TransposeRect(current, data, height, width);
    else if (width > 1 && height > 1)
        kf_TransposeSquareBanded(data, width, 0, width);
}

namespace {

// Turns the half-length complex transform of a packed real row into the
// row's spectrum for frequencies 0 .. 2n (the standard untangling of the two
// interleaved half-sequences). d is addressed 1-based: d(1) is the row's
// first float.
void untangleRealRow(float* row, int n, int direction, float c1, float c2, float wpr, float wpi)
{
    auto d = [row](int i) -> float& { return row[i - 1]; };
    float wr = 1.0f + wpr;
    float wi = wpi;
    const int np3 = 2 * n + 3;
    for (int i = 2; i <= n / 2; ++i) {
        const int i1 = 2 * i - 1, i2 = 2 * i, i3 = np3 - i2, i4 = i3 + 1;
        const float h1r = c1 * (d(i1) + d(i3));
        const float h1i = c1 * (d(i2) - d(i4));
        const float h2r = -c2 * (d(i2) + d(i4));
        const float h2i = c2 * (d(i1) - d(i3));
        d(i1) = h1r + wr * h2r - wi * h2i;
        d(i2) = h1i + wr * h2i + wi * h2r;
        d(i3) = h1r - wr * h2r + wi * h2i;
        d(i4) = -h1i + wr * h2i + wi * h2r;
        const float wtemp = wr;
        wr = wr + (wr * wpr - wi * wpi);
        wi = wi + (wi * wpr + wtemp * wpi);
    }
    // Element n/2 is its own partner.
    d(n + 2) = -d(n + 2);
    // Zero frequency at complex index 0, Nyquist at complex index n.
    const float h1r = d(1);
    if (direction >= 1) {
        d(1) = h1r + d(2);
        d(2 * n + 1) = h1r - d(2);
    } else {
        d(1) = c1 * (h1r + d(2));
        d(2 * n + 1) = c1 * (h1r - d(2));
    }
    d(2) = 0.0f;
    d(2 * n + 2) = 0.0f;
}

}  // namespace

void kf_RealFFT2D(float* data, kxPair<long> size, int direction, int /*bandLo*/, int /*bandHi*/)
{
    const int width = static_cast<int>(size.x());
    const int height = static_cast<int>(size.y());
    Workspace work(width, height, direction);

    if (width > 1) {
        // Each row's W real samples are read as n = W/2 complex values.
        const int n = width / 2;
        const float c1 = 0.5f;
        const float c2 = direction >= 1 ? -0.5f : 0.5f;
        const float theta = static_cast<float>(direction >= 1 ? 3.141592653589793 / n
                                                              : -(3.141592653589793 / n));
        const float wtemp = std::sin(0.5f * theta);
        const float wpr = -2.0f * wtemp * wtemp;
        const float wpi = -std::sin(theta);
        work.prepareRows(n);
        for (int r = 0; r < height; ++r) {
            if (r % 16 == 0)
                kxAttention::check();
            float* row = data + 2 * static_cast<std::size_t>(r) * width;
            kf_SplitRadixRow<float>(row, n, direction, work.rotation, work.bitReverse.data());
            untangleRealRow(row, n, direction, c1, c2, wpr, wpi);
        }
    }

    float* current = data;
    if (work.scratch) {
        kf_TransposeRect(data, work.scratch->data(), width, height);
        current = work.scratch->data();
    } else if (width > 1 && height > 1) {
        kf_TransposeSquare(data, width, true);
    }

    // Only the former columns 0 .. W/2 hold the non-redundant half.
    transformRows(current, height, width / 2 + 1, direction, work, [](int) { return true; });

    if (work.scratch)
        kf_TransposeRect(current, data, height, width);
    else if (width > 1 && height > 1)
        kf_TransposeSquare(data, width, false);

    kf_FillConjugateHalf(data, size);
}

void kf_FillConjugateHalf(float* data, kxPair<long> size)
{
    kxAttention::check();
    const long width = size.x();
    const long height = size.y();
    for (long r = 0; r < height; ++r) {
        const long partnerRow = (height - r) % height;
        float* row = data + 2 * r * width;
        const float* partner = data + 2 * partnerRow * width;
        for (long k = 1; k < width / 2; ++k) {
            row[2 * (width - k)] = partner[2 * k];
            row[2 * (width - k) + 1] = -partner[2 * k + 1];
        }
    }
}
