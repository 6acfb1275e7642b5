// The two 2-D entry points. The scalar engine runs a row pass, a transpose,
// a pass over the former columns and a transpose back. A vectorised variant
// runs the same row and column transforms on groups of rows and of adjacent
// columns, reading the columns where they are, so it needs no transpose.
#include "fft/engine/engine.h"
#include "fft/engine/kernel.h"
#include "fft/engine/variants.h"

#include <kx/core/attention.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

// A float array whose working pointer is rounded up to `Alignment` bytes
// (16: like the frequency buffer's own store).
template <std::size_t Alignment>
class AlignedScratch {
public:
    explicit AlignedScratch(std::size_t floats) : store_(floats + Alignment / sizeof(float) - 1)
    {
        std::uintptr_t address = reinterpret_cast<std::uintptr_t>(store_.data());
        address = (address + Alignment - 1) & ~static_cast<std::uintptr_t>(Alignment - 1);
        data_ = reinterpret_cast<float*>(address);
    }
    float* data() { return data_; }

private:
    std::vector<float> store_;
    float* data_;
};

// The working tables of one call, released on every exit.
struct Workspace {
    Workspace(int width, int height, int rotationSign, bool transposes = true)
        : rotation(rotationSign), bitReverse(2 * static_cast<std::size_t>(std::max(width, height)))
    {
        // Non-square matrices are transposed out of place; a single row or
        // column needs no transpose at all.
        if (transposes && width != height && width != 1 && height != 1)
            scratch = std::make_unique<AlignedScratch<16>>(static_cast<std::size_t>(width) * height * 2);
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
    std::unique_ptr<AlignedScratch<16>> scratch;
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

namespace {

// Rows of a complex matrix whose centred index lies inside [bandLo, bandHi]:
// storage row r has centred index r + half below half, r - half above.
struct BandRows {
    int half, bandLo, bandHi;
    bool operator()(int r) const
    {
        if (r < half)
            return !(r < bandLo - half || r > bandHi - half);
        return !(r < bandLo + half || r > bandHi + half);
    }
};

void scalarComplexFFT2D(float* data, kxPair<long> size, int direction, int bandLo, int bandHi)
{
    const int width = static_cast<int>(size.x());
    const int height = static_cast<int>(size.y());
    Workspace work(width, height, 1);

    // Row pass, skipping rows whose centred index is outside the band.
    transformRows(data, width, height, direction, work, BandRows{height / 2, bandLo, bandHi});

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

// The untangling constants of rows of `width` packed reals.
kf_RealRowConstants realRowConstants(int width, int direction)
{
    const int n = width / 2;
    const float theta = static_cast<float>(direction >= 1 ? 3.141592653589793 / n : -(3.141592653589793 / n));
    const float wtemp = std::sin(0.5f * theta);
    kf_RealRowConstants k;
    k.c1 = 0.5f;
    k.c2 = direction >= 1 ? -0.5f : 0.5f;
    k.wpr = -2.0f * wtemp * wtemp;
    k.wpi = -std::sin(theta);
    return k;
}

void scalarRealFFT2D(float* data, kxPair<long> size, int direction)
{
    const int width = static_cast<int>(size.x());
    const int height = static_cast<int>(size.y());
    Workspace work(width, height, direction);

    if (width > 1) {
        // Each row's W real samples are read as n = W/2 complex values.
        const int n = width / 2;
        const kf_RealRowConstants k = realRowConstants(width, direction);
        work.prepareRows(n);
        for (int r = 0; r < height; ++r) {
            if (r % 16 == 0)
                kxAttention::check();
            float* row = data + 2 * static_cast<std::size_t>(r) * width;
            kf_SplitRadixRow<float>(row, n, direction, work.rotation, work.bitReverse.data());
            kf_UntangleRealRow<float>(row, n, direction, k.c1, k.c2, k.wpr, k.wpi);
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

// The vectorised drivers. They poll where the scalar engine polls: before
// every kept line whose index is a multiple of 16, once between the passes
// and once after the last wherever the scalar engine's transposes poll, and
// once for the real path's conjugate half, so that the polling contract does
// not depend on the variant.

// The widest lane width of `widths` not above `lines`, or nullptr.
const kf_LaneWidth* widestFor(const kf_LaneWidth* widths, int lines)
{
    for (; widths->lanes != 0; ++widths)
        if (widths->lanes <= lines)
            return widths;
    return nullptr;
}

// Scratch for one group of lines of up to n elements (n + 1 for the real
// rows), for the widest lanes.
std::size_t groupScratchFloats(int n) { return 2 * (static_cast<std::size_t>(n) + 1) * 16; }

// Transforms `lineCount` lines of n elements laid out as in `group` (base,
// source, strides, direction, tables and scratch set), in groups, for those
// lines that `keep` accepts. `scalarLine(index)` transforms a line alone.
template <typename Keep, typename GroupRun, typename ScalarLine>
void runLines(const kf_LaneWidth* widths, kf_LineGroup group, int lineCount, Keep keep, GroupRun runGroup,
              ScalarLine scalarLine)
{
    // Rows are gathered through register transposes of lanes x lanes
    // floats; rows shorter than that go in narrower groups.
    const int laneLimit = group.elementStride == 2 ? 2 * group.n : lineCount;
    float* const base = group.base;
    const float* const source = group.source;
    for (int first = 0; first < lineCount;) {
        const kf_LaneWidth* width = widestFor(widths, std::min(lineCount - first, laneLimit));
        const int lanes = width ? width->lanes : 1;
        unsigned kept = 0;
        bool poll = false;
        for (int l = 0; l < lanes; ++l)
            if (keep(first + l)) {
                kept |= 1u << l;
                poll = poll || (first + l) % 16 == 0;
            }
        if (kept != 0) {
            if (poll)
                kxAttention::check();
            group.base = base + first * group.lineStride;
            group.source = source ? source + first * group.lineStride : nullptr;
            group.keep = kept;
            if (width)
                runGroup(*width, group);
            else
                scalarLine(first);
        }
        first += lanes;
    }
}

// One column of n elements (element stride `stride` floats), transformed by
// the scalar kernel through the scratch.
void scalarColumn(float* column, long stride, int n, int direction, Workspace& work, float* scratch)
{
    for (int e = 0; e < n; ++e) {
        scratch[2 * e] = column[e * stride];
        scratch[2 * e + 1] = column[e * stride + 1];
    }
    kf_SplitRadixRow<float>(scratch, n, direction, work.rotation, work.bitReverse.data());
    for (int e = 0; e < n; ++e) {
        column[e * stride] = scratch[2 * e];
        column[e * stride + 1] = scratch[2 * e + 1];
    }
}

// The column pass over columns [0, columnCount) of a width x height matrix.
void vectorColumns(const kf_LaneWidth* widths, float* data, int width, int height, int columnCount,
                   int direction, Workspace& work, float* scratch)
{
    work.prepareRows(height);
    kf_LineGroup group{data, nullptr, 2L * width, 2, height, direction, 0, &work.rotation, work.bitReverse.data(),
                       scratch};
    auto scalar = [&](int c) { scalarColumn(data + 2 * c, 2L * width, height, direction, work, scratch); };
    auto lanes = [](const kf_LaneWidth& w, const kf_LineGroup& g) { w.complexLines(g); };
    if (columnCount == width) {
        runLines(widths, group, columnCount, [](int) { return true; }, lanes, scalar);
        return;
    }
    // The real path's columns 0 .. W/2, each also written conjugated into
    // the redundant half (kf_FillConjugateHalf's values). The last one alone
    // would go through the scalar kernel, so it goes in a group of its own
    // whose other lanes read the columns after it (never used, never written
    // back); it is its own mirror image.
    const int last = columnCount - 1;
    runLines(
        widths, group, last, [](int) { return true; },
        [&](const kf_LaneWidth& w, const kf_LineGroup& g) {
            w.realColumns(g, static_cast<int>((g.base - data) / 2), width);
        },
        [&](int c) {
            scalar(c);
            if (c < 1 || c > width / 2 - 1)
                return;
            for (int r = 0; r < height; ++r) {
                const float* from = data + 2 * (static_cast<std::size_t>(r) * width + c);
                float* to = data + 2 * (static_cast<std::size_t>((height - r) % height) * width + (width - c));
                to[0] = from[0];
                to[1] = -from[1];
            }
        });
    if (last % 16 == 0)
        kxAttention::check();
    const kf_LaneWidth* spare = widestFor(widths, width - last);
    if (!spare) {
        scalar(last);
        return;
    }
    group.base = data + 2 * last;
    group.keep = 1;
    spare->complexLines(group);
}

// source: nullptr in place, otherwise the matrix the row pass reads.
void vectorComplexFFT2D(const kf_LaneWidth* widths, const float* source, float* data, int width, int height,
                        int direction, int bandLo, int bandHi)
{
    Workspace work(width, height, 1, false);
    AlignedScratch<64> scratch(groupScratchFloats(std::max(width, height)));
    const bool transposePolls = width >= 4 && height >= 4;
    const BandRows band{height / 2, bandLo, bandHi};
    const std::size_t rowFloats = 2 * static_cast<std::size_t>(width);

    // Rows the row pass skips are copied as they are.
    if (source)
        for (int r = 0; r < height; ++r)
            if (!band(r))
                std::memcpy(data + r * rowFloats, source + r * rowFloats, rowFloats * sizeof(float));

    work.prepareRows(width);
    kf_LineGroup rows{data, source, 2, 2L * width, width, direction, 0, &work.rotation, work.bitReverse.data(),
                      scratch.data()};
    runLines(
        widths, rows, height, band, [](const kf_LaneWidth& w, const kf_LineGroup& g) { w.complexLines(g); },
        [&](int r) {
            float* row = data + r * rowFloats;
            if (source)
                std::memcpy(row, source + r * rowFloats, rowFloats * sizeof(float));
            kf_SplitRadixRow<float>(row, width, direction, work.rotation, work.bitReverse.data());
        });
    if (transposePolls)
        kxAttention::check();
    vectorColumns(widths, data, width, height, width, direction, work, scratch.data());
    if (transposePolls)
        kxAttention::check();
}

void vectorRealFFT2D(const kf_LaneWidth* widths, float* data, int width, int height, int direction)
{
    Workspace work(width, height, direction, false);
    AlignedScratch<64> scratch(groupScratchFloats(std::max(width, height)));
    const bool transposePolls = width == height ? width >= 8 : width >= 4 && height >= 4;

    if (width > 1) {
        const int n = width / 2;
        const kf_RealRowConstants k = realRowConstants(width, direction);
        work.prepareRows(n);
        kf_LineGroup rows{data, nullptr, 2, 2L * width, n, direction, 0, &work.rotation, work.bitReverse.data(),
                          scratch.data()};
        runLines(
            widths, rows, height, [](int) { return true; },
            [&k](const kf_LaneWidth& w, const kf_LineGroup& g) { w.realRows(g, k); },
            [&](int r) {
                float* row = data + 2 * static_cast<std::size_t>(r) * width;
                kf_SplitRadixRow<float>(row, n, direction, work.rotation, work.bitReverse.data());
                kf_UntangleRealRow<float>(row, n, direction, k.c1, k.c2, k.wpr, k.wpi);
            });
    }
    if (transposePolls)
        kxAttention::check();
    // Only columns 0 .. W/2 hold the non-redundant half.
    vectorColumns(widths, data, width, height, width / 2 + 1, direction, work, scratch.data());
    if (transposePolls)
        kxAttention::check();
    // The conjugate half was written by the column pass; this is the poll
    // of the scalar engine's separate sweep.
    kxAttention::check();
}

}  // namespace

void kf_ComplexFFT2D(float* data, kxPair<long> size, int direction, int bandLo, int bandHi)
{
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths)
        vectorComplexFFT2D(variant.widths, nullptr, data, static_cast<int>(size.x()), static_cast<int>(size.y()),
                           direction, bandLo, bandHi);
    else
        scalarComplexFFT2D(data, size, direction, bandLo, bandHi);
}

void kf_ComplexFFT2DFrom(const float* source, float* data, kxPair<long> size, int direction, int bandLo,
                         int bandHi)
{
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths) {
        vectorComplexFFT2D(variant.widths, source, data, static_cast<int>(size.x()), static_cast<int>(size.y()),
                           direction, bandLo, bandHi);
    } else {
        std::memcpy(data, source, 2 * static_cast<std::size_t>(size.x()) * size.y() * sizeof(float));
        scalarComplexFFT2D(data, size, direction, bandLo, bandHi);
    }
}

void kf_RealFFT2D(float* data, kxPair<long> size, int direction, int /*bandLo*/, int /*bandHi*/)
{
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths)
        vectorRealFFT2D(variant.widths, data, static_cast<int>(size.x()), static_cast<int>(size.y()), direction);
    else
        scalarRealFFT2D(data, size, direction);
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
        long k = 1;
#ifdef __SSE2__
        // Two elements at a time: the imaginary parts' signs flipped (as the
        // negation below does) and the pair's order reversed.
        const __m128 imaginarySigns = _mm_castsi128_ps(_mm_set_epi32(INT32_MIN, 0, INT32_MIN, 0));
        for (; k + 1 < width / 2; k += 2) {
            const __m128 pair = _mm_xor_ps(_mm_loadu_ps(partner + 2 * k), imaginarySigns);
            _mm_storeu_ps(row + 2 * (width - k - 1), _mm_shuffle_ps(pair, pair, _MM_SHUFFLE(1, 0, 3, 2)));
        }
#endif
        for (; k < width / 2; ++k) {
            row[2 * (width - k)] = partner[2 * k];
            row[2 * (width - k) + 1] = -partner[2 * k + 1];
        }
    }
}
