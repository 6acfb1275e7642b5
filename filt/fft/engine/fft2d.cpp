// The two 2-D entry points. The scalar engine runs a row pass, a transpose,
// a pass over the former columns and a transpose back. A vectorised variant
// runs the same row and column transforms on groups of rows and of adjacent
// columns, reading the columns where they are, so it needs no transpose.
#include "fft/engine/engine.h"
#include "fft/engine/kernel.h"
#include "fft/engine/shared_work.h"
#include "fft/engine/variants.h"

#include <kx/core/attention.h>
#include <kx/fft.h>

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
// (16: like the frequency buffer's own store). Not initialised: every pass
// writes what it reads, and clearing it cost more than a small transform.
template <std::size_t Alignment>
class AlignedScratch {
public:
    explicit AlignedScratch(std::size_t floats) : store_(new float[floats + Alignment / sizeof(float) - 1])
    {
        std::uintptr_t address = reinterpret_cast<std::uintptr_t>(store_.get());
        address = (address + Alignment - 1) & ~static_cast<std::uintptr_t>(Alignment - 1);
        data_ = reinterpret_cast<float*>(address);
    }
    float* data() { return data_; }

private:
    std::unique_ptr<float[]> store_;
    float* data_;
};

// Whether a driver transposes the matrix between its passes (the scalar
// engine) or reads the columns where they are (the vectorised variants).
enum class Transposes { Yes, No };

const kf_RotationTable& rotationTable(int sign);
const std::int32_t* bitReverseTable(int n);
const std::int32_t* bitReversedOrder(int n);

// The tables and scratch of one call: the tables are shared and built once,
// the scratch is released on every exit.
struct Workspace {
    Workspace(int width, int height, int rotationSign, Transposes transposes = Transposes::Yes)
        : rotation(rotationTable(rotationSign))
    {
        // Non-square matrices are transposed out of place; a single row or
        // column needs no transpose at all.
        if (transposes == Transposes::Yes && width != height && width != 1 && height != 1)
            scratch = std::make_unique<AlignedScratch<16>>(static_cast<std::size_t>(width) * height * 2);
    }

    // Points at the bit-reversal tables for rows of n elements.
    void prepareRows(int n)
    {
        bitReverse = bitReverseTable(n);
        bitReversed = bitReversedOrder(n);
    }

    const kf_RotationTable& rotation;
    const std::int32_t* bitReverse = nullptr;
    const std::int32_t* bitReversed = nullptr;
    std::unique_ptr<AlignedScratch<16>> scratch;
};

// The threads worth starting for a pass over `elements` complex elements:
// a helper costs tens of microseconds to start, so each thread gets at
// least 2^15 elements.
int usefulThreads(int requested, long elements)
{
    const long most = std::max(1L, elements >> 15);
    return static_cast<int>(std::max(1L, std::min<long>(requested, most)));
}

// Scratch for the line groups of each thread: `slots` areas of `floats`
// floats (a multiple of 16), each 64-byte aligned.
class SlotScratch {
public:
    SlotScratch(std::size_t floats, int slots) : floats_(floats), store_(floats * static_cast<std::size_t>(slots)) {}
    float* forSlot(int slot) { return store_.data() + floats_ * static_cast<std::size_t>(slot); }

private:
    std::size_t floats_;
    AlignedScratch<64> store_;
};

// Transforms rows [0, rowCount) of `matrix` (rows of n elements) for which
// `keep(row)` holds, polling before every kept row whose index is a
// multiple of 16.
template <typename Keep>
void transformRows(float* matrix, int n, int rowCount, kf_Direction direction, Workspace& work, Keep keep,
                   int threads)
{
    work.prepareRows(n);
    kf_RunShared(
        threads, rowCount,
        [&](int r, int) {
            if (keep(r))
                kf_SplitRadixRow<float>(matrix + 2 * static_cast<std::size_t>(r) * n, n, direction, work.rotation,
                                        work.bitReverse);
        },
        [&](int r) {
            if (keep(r) && r % 16 == 0)
                kxAttention::check();
        });
}

}  // namespace

kf_RotationTable::kf_RotationTable(int sign)
{
    const double twoPi = 6.283185307179586;
    double power = 1.0;
    for (int k = 0; k < 16; ++k, power *= 2.0) {
        const double t = sign * twoPi / power;
        entry[k][0] = static_cast<float>(std::cos(t));
        entry[k][1] = static_cast<float>(std::sin(t));
        entry[k][2] = static_cast<float>(std::cos(3.0 * t));
        entry[k][3] = static_cast<float>(std::sin(3.0 * t));
    }
}

namespace {

// Built once each, on first use, and only read afterwards (so threads and
// calls share them): the tables depend on nothing but their sign or length.
const kf_RotationTable& rotationTable(int sign)
{
    static const kf_RotationTable positive(1), negative(-1);
    return sign > 0 ? positive : negative;
}

const std::int32_t* bitReverseTable(int n)
{
    static const std::vector<std::vector<std::int32_t>> tables = [] {
        std::vector<std::vector<std::int32_t>> built;
        for (int length = 1; length <= kfMaxTransformSide; length *= 2) {
            built.emplace_back(2 * static_cast<std::size_t>(length), -1);
            kf_BitReverseTable(built.back().data(), length);
        }
        return built;
    }();
    return tables[static_cast<std::size_t>(kf_Log2(n))].data();
}

// Element e's bit-reversed index in rows of n elements, 0-based.
const std::int32_t* bitReversedOrder(int n)
{
    static const std::vector<std::vector<std::int32_t>> tables = [] {
        std::vector<std::vector<std::int32_t>> built;
        for (int length = 1, bits = 0; length <= kfMaxTransformSide; length *= 2, ++bits) {
            std::vector<std::int32_t> order(static_cast<std::size_t>(length));
            for (int e = 0; e < length; ++e) {
                int reversed = 0;
                for (int b = 0; b < bits; ++b)
                    reversed |= ((e >> b) & 1) << (bits - 1 - b);
                order[static_cast<std::size_t>(e)] = reversed;
            }
            built.push_back(std::move(order));
        }
        return built;
    }();
    return tables[static_cast<std::size_t>(kf_Log2(n))].data();
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

// Rows of a complex matrix whose centred index lies inside the band:
// storage row r has centred index r + half below half, r - half above.
struct BandRows {
    int half;
    kf_RowBand band;
    bool operator()(int r) const
    {
        if (r < half)
            return !(r < band.lo - half || r > band.hi - half);
        return !(r < band.lo + half || r > band.hi + half);
    }
};

const auto kEveryLine = [](int) { return true; };

void scalarComplexFFT2D(float* data, kxPair<long> size, kf_Direction direction, kf_RowBand band, int threads)
{
    const int width = static_cast<int>(size.x());
    const int height = static_cast<int>(size.y());
    Workspace work(width, height, 1);

    // Row pass, skipping rows whose centred index is outside the band.
    transformRows(data, width, height, direction, work, BandRows{height / 2, band}, threads);

    float* current = data;
    if (work.scratch) {
        kf_TransposeRect(data, work.scratch->data(), width, height);
        current = work.scratch->data();
    } else if (width > 1 && height > 1) {
        kf_TransposeSquareBanded(data, width, band);
    }

    transformRows(current, height, width, direction, work, kEveryLine, threads);

    if (work.scratch)
        kf_TransposeRect(current, data, height, width);
    else if (width > 1 && height > 1)
        kf_TransposeSquareBanded(data, width, kf_AllRows(width));
}

// The untangling constants of rows of `width` packed reals (forward).
kf_RealRowConstants realRowConstants(int width)
{
    const int n = width / 2;
    const float theta = static_cast<float>(3.141592653589793 / n);
    const float wtemp = std::sin(0.5f * theta);
    kf_RealRowConstants k;
    k.c1 = 0.5f;
    k.c2 = -0.5f;
    k.wpr = -2.0f * wtemp * wtemp;
    k.wpi = -std::sin(theta);
    return k;
}

// The rotation sign of the real path's table: its rows run forward.
constexpr int kForwardRotation = 1;

void scalarRealFFT2D(float* data, kxPair<long> size, int threads)
{
    const int width = static_cast<int>(size.x());
    const int height = static_cast<int>(size.y());
    Workspace work(width, height, kForwardRotation);

    if (width > 1) {
        // Each row's W real samples are read as n = W/2 complex values.
        const int n = width / 2;
        const kf_RealRowConstants k = realRowConstants(width);
        work.prepareRows(n);
        kf_RunShared(
            threads, height,
            [&](int r, int) {
                float* row = data + 2 * static_cast<std::size_t>(r) * width;
                kf_SplitRadixRow<float>(row, n, kf_Direction::Forward, work.rotation, work.bitReverse);
                kf_UntangleRealRow<float>(row, n, k.c1, k.c2, k.wpr, k.wpi);
            },
            [](int r) {
                if (r % 16 == 0)
                    kxAttention::check();
            });
    }

    float* current = data;
    if (work.scratch) {
        kf_TransposeRect(data, work.scratch->data(), width, height);
        current = work.scratch->data();
    } else if (width > 1 && height > 1) {
        kf_TransposeSquare(data, width, kf_DataHalf::LeftColumns);
    }

    // Only the former columns 0 .. W/2 hold the non-redundant half.
    transformRows(current, height, width / 2 + 1, kf_Direction::Forward, work, kEveryLine, threads);

    if (work.scratch)
        kf_TransposeRect(current, data, height, width);
    else if (width > 1 && height > 1)
        kf_TransposeSquare(data, width, kf_DataHalf::TopRows);

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

// How many groups of columns a column pass over `columns` columns walks
// together: blocks only where there are columns enough for one.
int columnBlockGroups(const kf_LaneWidth* widths, int columns)
{
    return columns >= widths->lanes * kf_ColumnBlockGroups ? kf_ColumnBlockGroups : 1;
}

// Scratch for each thread: one group of rows of up to `width` elements (one
// more for the real rows) and one block of groups of columns of `height`
// elements, on the widest lanes.
std::size_t groupScratchFloats(const kf_LaneWidth* widths, int width, int height, int columns)
{
    const std::size_t rows = 2 * (static_cast<std::size_t>(width) + 1) * 16;
    const std::size_t blocks = 2 * (static_cast<std::size_t>(height) + 1) * 16 *
                               static_cast<std::size_t>(columnBlockGroups(widths, columns));
    return std::max(rows, blocks);
}

// Transforms `lineCount` lines of n elements laid out as in `group` (base,
// source, strides, direction and tables set), in groups, for those lines
// that `keep` accepts, shared among `threads` threads, each with its own
// scratch from `scratch`. `runGroup(width, group, block)` transforms a group
// of width.lanes lines, or with `block` (only when `blockGroups` is above 1,
// for columns) blockGroups such groups side by side, every line kept;
// `scalarLine(index, scratch)` transforms a line alone.
template <typename Keep, typename GroupRun, typename ScalarLine>
void runLines(const kf_LaneWidth* widths, kf_LineGroup group, int lineCount, Keep keep, GroupRun runGroup,
              ScalarLine scalarLine, SlotScratch& scratch, int threads, int blockGroups = 1)
{
    // Rows are gathered through register transposes of lanes x lanes
    // floats; rows shorter than that go in narrower groups.
    const int laneLimit = group.elementStride == 2 ? 2 * group.n : lineCount;
    struct Group {
        int first;
        const kf_LaneWidth* width;   // nullptr: one line, scalar
        bool block;
        std::uint64_t kept;          // bit l: line first + l is kept (a block has up to 64 lines)
        int polls;                   // lines of the group whose index is a multiple of 16
    };
    auto linesKept = [&](Group& g, int count) {
        g.kept = 0;
        g.polls = 0;
        for (int l = 0; l < count; ++l)
            if (keep(g.first + l)) {
                g.kept |= std::uint64_t(1) << l;
                g.polls += (g.first + l) % 16 == 0 ? 1 : 0;
            }
        return count;
    };
    std::vector<Group> groups;
    for (int first = 0; first < lineCount;) {
        const kf_LaneWidth* width = widestFor(widths, std::min(lineCount - first, laneLimit));
        const int lanes = width ? width->lanes : 1;
        Group g{first, width, false, 0, 0};
        int count = lanes;
        if (blockGroups > 1 && width && lineCount - first >= lanes * blockGroups) {
            const int blockLines = lanes * blockGroups;
            const std::uint64_t all = blockLines >= 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << blockLines) - 1;
            count = linesKept(g, blockLines);
            g.block = g.kept == all;
        }
        if (!g.block)
            count = linesKept(g, lanes);
        if (g.kept != 0)
            groups.push_back(g);
        first += count;
    }

    float* const base = group.base;
    const float* const source = group.source;
    kf_RunShared(
        threads, static_cast<int>(groups.size()),
        [&](int i, int slot) {
            const Group& g = groups[static_cast<std::size_t>(i)];
            kf_LineGroup mine = group;
            mine.base = base + g.first * group.lineStride;
            mine.source = source ? source + g.first * group.lineStride : nullptr;
            mine.keep = static_cast<unsigned>(g.kept);   // read by single groups, of 16 lines at most
            mine.scratch = scratch.forSlot(slot);
            if (g.width)
                runGroup(*g.width, mine, g.block);
            else
                scalarLine(g.first, mine.scratch);
        },
        [&](int i) {
            for (int p = 0; p < groups[static_cast<std::size_t>(i)].polls; ++p)
                kxAttention::check();
        });
}

// One column of n elements (element stride `stride` floats), transformed by
// the scalar kernel through the scratch.
void scalarColumn(float* column, long stride, int n, kf_Direction direction, const Workspace& work, float* scratch)
{
    for (int e = 0; e < n; ++e) {
        scratch[2 * e] = column[e * stride];
        scratch[2 * e + 1] = column[e * stride + 1];
    }
    kf_SplitRadixRow<float>(scratch, n, direction, work.rotation, work.bitReverse);
    for (int e = 0; e < n; ++e) {
        column[e * stride] = scratch[2 * e];
        column[e * stride + 1] = scratch[2 * e + 1];
    }
}

// The column pass over columns [0, columnCount) of a width x height matrix.
void vectorColumns(const kf_LaneWidth* widths, float* data, int width, int height, int columnCount,
                   kf_Direction direction, Workspace& work, SlotScratch& scratch, int threads)
{
    work.prepareRows(height);
    kf_LineGroup group{data, nullptr, 2L * width, 2, height, direction, 0, &work.rotation, work.bitReverse,
                       nullptr, work.bitReversed};
    auto scalar = [&](int c, float* slotScratch) {
        scalarColumn(data + 2 * c, 2L * width, height, direction, work, slotScratch);
    };
    if (columnCount == width) {
        runLines(
            widths, group, columnCount, kEveryLine,
            [](const kf_LaneWidth& w, const kf_LineGroup& g, bool block) {
                block ? w.complexColumnBlock(g) : w.complexLines(g);
            },
            scalar, scratch, threads, columnBlockGroups(widths, columnCount));
        return;
    }
    // The real path's columns 0 .. W/2, each also written conjugated into
    // the redundant half (kf_FillConjugateHalf's values). The last one alone
    // would go through the scalar kernel, so it goes in a group of its own
    // whose other lanes read the columns after it (never used, never written
    // back); it is its own mirror image. It runs after the others, which
    // write the columns it reads.
    const kf_LaneWidth* whole = widestFor(widths, width);
    if (whole && whole->lanes == width) {
        // A narrow matrix: one group over every column, its redundant half
        // transformed with the rest and then overwritten by the conjugates
        // (one long transform instead of two on narrower lanes). It polls
        // once, as the groups below do for widths up to the widest lanes.
        group.keep = ~0u;
        group.scratch = scratch.forSlot(0);
        kxAttention::check();
        whole->realColumns(group, 0, width);
        return;
    }
    const int last = columnCount - 1;
    runLines(
        widths, group, last, kEveryLine,
        [&](const kf_LaneWidth& w, const kf_LineGroup& g, bool block) {
            const int firstColumn = static_cast<int>((g.base - data) / 2);
            block ? w.realColumnBlock(g, firstColumn, width) : w.realColumns(g, firstColumn, width);
        },
        [&](int c, float* slotScratch) {
            scalar(c, slotScratch);
            if (c < 1 || c > width / 2 - 1)
                return;
            for (int r = 0; r < height; ++r) {
                const float* from = data + 2 * (static_cast<std::size_t>(r) * width + c);
                float* to = data + 2 * (static_cast<std::size_t>((height - r) % height) * width + (width - c));
                to[0] = from[0];
                to[1] = -from[1];
            }
        },
        scratch, threads, columnBlockGroups(widths, last));
    if (last % 16 == 0)
        kxAttention::check();
    const kf_LaneWidth* spare = widestFor(widths, width - last);
    if (!spare) {
        scalar(last, scratch.forSlot(0));
        return;
    }
    group.base = data + 2 * last;
    group.keep = 1;
    group.scratch = scratch.forSlot(0);
    spare->complexLines(group);
}

// source: nullptr in place, otherwise the matrix the row pass reads.
// real, imag: when given (forward, every row, no source), two images whose
// samples the row pass reads as the real and imaginary parts instead.
void vectorComplexFFT2D(const kf_LaneWidth* widths, const float* source, float* data, int width, int height,
                        kf_Direction direction, kf_RowBand band, int threads, const kf_PixelRows* real = nullptr,
                        const kf_PixelRows* imag = nullptr)
{
    Workspace work(width, height, 1, Transposes::No);
    SlotScratch scratch(groupScratchFloats(widths, width, height, width), threads);
    const bool transposePolls = width >= 4 && height >= 4;
    const BandRows inBand{height / 2, band};
    const std::size_t rowFloats = 2 * static_cast<std::size_t>(width);

    // Rows the row pass skips are copied as they are.
    if (source)
        for (int r = 0; r < height; ++r)
            if (!inBand(r))
                std::memcpy(data + r * rowFloats, source + r * rowFloats, rowFloats * sizeof(float));

    work.prepareRows(width);
    kf_LineGroup rows{data, source, 2, 2L * width, width, direction, 0, &work.rotation, work.bitReverse,
                      nullptr, work.bitReversed};
    runLines(
        widths, rows, height, inBand,
        [&](const kf_LaneWidth& w, const kf_LineGroup& g, bool) {
            if (real)
                w.complexRowsFromPixels(g, *real, *imag, static_cast<int>((g.base - data) / (2L * width)));
            else
                w.complexLines(g);
        },
        [&](int r, float*) {
            float* row = data + r * rowFloats;
            if (source)
                std::memcpy(row, source + r * rowFloats, rowFloats * sizeof(float));
            if (real)
                kf_PixelPairsToRow(*real, *imag, r, row, width);
            kf_SplitRadixRow<float>(row, width, direction, work.rotation, work.bitReverse);
        },
        scratch, threads);
    if (transposePolls)
        kxAttention::check();
    vectorColumns(widths, data, width, height, width, direction, work, scratch, threads);
    if (transposePolls)
        kxAttention::check();
}

// pixels: nullptr for the samples in `data`, otherwise the image whose
// samples the row pass reads instead.
void vectorRealFFT2D(const kf_LaneWidth* widths, const kf_PixelRows* pixels, float* data, int width, int height,
                     int threads)
{
    Workspace work(width, height, kForwardRotation, Transposes::No);
    SlotScratch scratch(groupScratchFloats(widths, width, height, width / 2), threads);
    const bool transposePolls = width == height ? width >= 8 : width >= 4 && height >= 4;

    if (width > 1) {
        const int n = width / 2;
        const kf_RealRowConstants k = realRowConstants(width);
        work.prepareRows(n);
        kf_LineGroup rows{data,    nullptr, 2, 2L * width, n, kf_Direction::Forward, 0, &work.rotation,
                          work.bitReverse, nullptr, work.bitReversed};
        runLines(
            widths, rows, height, kEveryLine,
            [&](const kf_LaneWidth& w, const kf_LineGroup& g, bool) {
                if (pixels)
                    w.realRowsFromPixels(g, k, *pixels, static_cast<int>((g.base - data) / (2L * width)));
                else
                    w.realRows(g, k);
            },
            [&](int r, float*) {
                float* row = data + 2 * static_cast<std::size_t>(r) * width;
                if (pixels)
                    kf_PixelsToRow(*pixels, r, row, width);
                kf_SplitRadixRow<float>(row, n, kf_Direction::Forward, work.rotation, work.bitReverse);
                kf_UntangleRealRow<float>(row, n, k.c1, k.c2, k.wpr, k.wpi);
            },
            scratch, threads);
    } else if (pixels) {
        // One column: each row's one element, its imaginary part zero.
        for (int r = 0; r < height; ++r)
            kf_PixelsToRow(*pixels, r, data + 2 * r, 2);
    }
    if (transposePolls)
        kxAttention::check();
    // Only columns 0 .. W/2 hold the non-redundant half.
    vectorColumns(widths, data, width, height, width / 2 + 1, kf_Direction::Forward, work, scratch, threads);
    if (transposePolls)
        kxAttention::check();
    // The conjugate half was written by the column pass; this is the poll
    // of the scalar engine's separate sweep.
    kxAttention::check();
}

}  // namespace

void kf_ComplexFFT2D(float* data, kxPair<long> size, kf_Direction direction, kf_RowBand band, int threads)
{
    threads = usefulThreads(threads, size.x() * size.y());
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths)
        vectorComplexFFT2D(variant.widths, nullptr, data, static_cast<int>(size.x()), static_cast<int>(size.y()),
                           direction, band, threads);
    else
        scalarComplexFFT2D(data, size, direction, band, threads);
}

void kf_ComplexFFT2DFrom(const float* source, float* data, kxPair<long> size, kf_Direction direction,
                         kf_RowBand band, int threads)
{
    threads = usefulThreads(threads, size.x() * size.y());
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths) {
        vectorComplexFFT2D(variant.widths, source, data, static_cast<int>(size.x()), static_cast<int>(size.y()),
                           direction, band, threads);
    } else {
        std::memcpy(data, source, 2 * static_cast<std::size_t>(size.x()) * size.y() * sizeof(float));
        scalarComplexFFT2D(data, size, direction, band, threads);
    }
}

void kf_RealFFT2D(float* data, kxPair<long> size, int threads)
{
    threads = usefulThreads(threads, size.x() * size.y());
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths)
        vectorRealFFT2D(variant.widths, nullptr, data, static_cast<int>(size.x()), static_cast<int>(size.y()),
                        threads);
    else
        scalarRealFFT2D(data, size, threads);
}

void kf_RealFFT2DFromPixels(const kf_PixelRows& pixels, float* data, kxPair<long> size, int threads)
{
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths) {
        vectorRealFFT2D(variant.widths, &pixels, data, static_cast<int>(size.x()), static_cast<int>(size.y()),
                        usefulThreads(threads, size.x() * size.y()));
        return;
    }
    // The readable reference: the samples written row by row (for W = 1
    // the only element's imaginary part too), in blocks of rows shared among
    // the threads, then transformed.
    const long W = size.x();
    const long H = size.y();
    constexpr long kBlockRows = 64;
    const int blocks = static_cast<int>((H + kBlockRows - 1) / kBlockRows);
    kf_RunShared(
        threads, blocks,
        [&](int block, int) {
            const long y1 = std::min(H, (block + 1) * kBlockRows);
            for (long y = block * kBlockRows; y < y1; ++y)
                kf_PixelsToRow(pixels, y, data + 2 * W * y, W == 1 ? 2 : W);
        },
        [](int) {});
    kf_RealFFT2D(data, size, threads);
}

void kf_ComplexFFT2DFromPixels(const kf_PixelRows& real, const kf_PixelRows& imag, float* data, kxPair<long> size,
                               int threads)
{
    const kf_EngineVariant& variant = kf_ActiveEngineVariant();
    if (variant.widths) {
        vectorComplexFFT2D(variant.widths, nullptr, data, static_cast<int>(size.x()), static_cast<int>(size.y()),
                           kf_Direction::Forward, kf_AllRows(size.y()), usefulThreads(threads, size.x() * size.y()),
                           &real, &imag);
        return;
    }
    // The readable reference: the rows of (real, imaginary) pairs written
    // first, then transformed.
    for (long y = 0; y < size.y(); ++y)
        kf_PixelPairsToRow(real, imag, y, data + 2 * size.x() * y, size.x());
    kf_ComplexFFT2D(data, size, kf_Direction::Forward, kf_AllRows(size.y()), threads);
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
