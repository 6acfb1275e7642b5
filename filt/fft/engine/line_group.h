#pragma once
// Internal: a group of lines transformed together on a lane type, each lane
// holding one line. Included only by the variant files; everything here is a
// template on the lane type, whose namespace differs from variant to
// variant, so no instantiation is shared between instruction sets.
//
// A lane type provides: its width; construction from one float (every lane
// the same); +, - and * between lanes, * with a float on either side, and
// unary -, each one lane-wise IEEE operation; load and store of `width`
// floats at a 64-byte aligned address; deinterleave (2 x width floats
// holding (re, im) pairs into a lane of reals and one of imaginaries) and
// interleave, its inverse.
#include "fft/engine/kernel.h"
#include "fft/engine/variants.h"

#include <algorithm>

// Blocks of a line group's scratch that stay in the first-level cache (32 KiB
// of a lane's reals and imaginaries) run their butterflies there, depth first.
template <typename Lane>
constexpr int kf_FitElements()
{
    return static_cast<int>(32768 / (2 * sizeof(Lane)));
}

// An inverse's lines are conjugated on the way into the scratch and on the
// way out (the inverse transform is the conjugate of the forward transform
// of the conjugates), and their butterflies run forward: the kernel's own
// conjugating sweeps over the scratch are saved. Negation is exact, so every
// float is the one those sweeps give.
template <typename Lane>
inline Lane kf_ImaginaryPart(const Lane& v, bool conjugate)
{
    return conjugate ? -v : v;
}

static inline bool kf_Conjugates(const kf_LineGroup& group) { return group.direction == kf_Direction::Inverse; }

template <typename Lane>
void kf_GatherLines(const kf_LineGroup& group, Lane* lanes, int elements)
{
    constexpr int L = Lane::width;
    const float* from = group.source ? group.source : group.base;
    const bool conjugate = kf_Conjugates(group);
    if (group.lineStride == 2) {
        // Adjacent columns (or rows of one element): one element of every line is 2L floats in a row,
        // fetched some rows ahead (the hardware does not follow such strides).
        constexpr int ahead = 8;
        for (int e = 0; e < elements; ++e) {
            if (e + ahead < elements) {
                const char* next = reinterpret_cast<const char*>(from + (e + ahead) * group.elementStride);
                __builtin_prefetch(next);
                __builtin_prefetch(next + 8 * L - 1);
            }
            Lane::deinterleave(from + e * group.elementStride, lanes[2 * e], lanes[2 * e + 1]);
            lanes[2 * e + 1] = kf_ImaginaryPart(lanes[2 * e + 1], conjugate);
        }
        return;
    }
    // Rows: L x L blocks of floats transposed in registers, a shorter tail
    // through a small table.
    const int floats = 2 * elements;
    int f0 = 0;
    for (; f0 + L <= floats; f0 += L) {
        Lane block[L];
        for (int l = 0; l < L; ++l)
            block[l] = Lane::loadu(from + l * group.lineStride + f0);
        Lane::transpose(block);
        for (int f = 0; f < L; f += 2) {
            lanes[f0 + f] = block[f];
            lanes[f0 + f + 1] = kf_ImaginaryPart(block[f + 1], conjugate);
        }
    }
    alignas(64) float table[L * L];
    for (; f0 < floats; f0 += L) {
        const int count = floats - f0 < L ? floats - f0 : L;
        for (int l = 0; l < L; ++l) {
            for (int f = 0; f < count; ++f)
                table[f * L + l] = from[l * group.lineStride + f0 + f];
        }
        for (int f = 0; f < count; f += 2) {
            lanes[f0 + f] = Lane::load(table + f * L);
            lanes[f0 + f + 1] = kf_ImaginaryPart(Lane::load(table + (f + 1) * L), conjugate);
        }
    }
}

// Writes back the lines' elements 0 .. elements - 1; `order` (nullptr: in
// natural order) gives where in the scratch each element is.
template <typename Lane>
void kf_ScatterLines(const kf_LineGroup& group, const Lane* lanes, int elements, const std::int32_t* order)
{
    // Float f of the lines' results: an element's real or imaginary part.
    auto part = [&](int f) -> const Lane& { return lanes[2 * (order ? order[f / 2] : f / 2) + f % 2]; };
    constexpr int L = Lane::width;
    constexpr unsigned all = L >= 32 ? ~0u : (1u << L) - 1u;
    const bool conjugate = kf_Conjugates(group);
    if (group.lineStride == 2 && (group.keep & all) == all) {
        constexpr int ahead = 8;
        for (int e = 0; e < elements; ++e) {
            if (e + ahead < elements) {
                const char* next = reinterpret_cast<const char*>(group.base + (e + ahead) * group.elementStride);
                __builtin_prefetch(next, 1);
                __builtin_prefetch(next + 8 * L - 1, 1);
            }
            Lane::interleave(group.base + e * group.elementStride, part(2 * e),
                             kf_ImaginaryPart(part(2 * e + 1), conjugate));
        }
        return;
    }
    const int floats = 2 * elements;
    int f0 = 0;
    if (group.lineStride != 2)
        for (; f0 + L <= floats; f0 += L) {
            Lane block[L];
            for (int f = 0; f < L; f += 2) {
                block[f] = part(f0 + f);
                block[f + 1] = kf_ImaginaryPart(part(f0 + f + 1), conjugate);
            }
            Lane::transpose(block);
            for (int l = 0; l < L; ++l)
                if (group.keep & (1u << l))
                    block[l].storeu(group.base + l * group.lineStride + f0);
        }
    alignas(64) float table[L * L];
    for (; f0 < floats; f0 += L) {
        const int count = floats - f0 < L ? floats - f0 : L;
        for (int f = 0; f < count; f += 2) {
            part(f0 + f).store(table + f * L);
            kf_ImaginaryPart(part(f0 + f + 1), conjugate).store(table + (f + 1) * L);
        }
        for (int l = 0; l < L; ++l) {
            if (!(group.keep & (1u << l)))
                continue;
            if (group.lineStride == 2) {
                // A partial group of columns: element by element.
                for (int f = 0; f < count; ++f)
                    group.base[(f0 + f) / 2 * group.elementStride + (f0 + f) % 2 + 2 * l] = table[f * L + l];
                continue;
            }
            float* to = group.base + l * group.lineStride + f0;
            for (int f = 0; f < count; ++f)
                to[f] = table[f * L + l];
        }
    }
}

// The complex line pass on lines already gathered into `lanes`.
template <typename Lane>
void kf_TransformComplexLines(const kf_LineGroup& group, Lane* lanes)
{
    kf_ButterfliesByBlock(kf_RowElements<Lane>{lanes}, group.n, *group.rotation, kf_FitElements<Lane>());
    kf_ScatterLines(group, lanes, group.n, group.bitReversed);
}

template <typename Lane>
void kf_ComplexLines(const kf_LineGroup& group)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_GatherLines(group, lanes, group.n);
    kf_TransformComplexLines(group, lanes);
}

// The real row pass on rows already gathered into `lanes` (2n floats each).
template <typename Lane>
void kf_TransformRealRows(const kf_LineGroup& group, const kf_RealRowConstants& k, Lane* lanes)
{
    const int n = group.n;
    // The untangling writes element n and, for n = 1, reads it first.
    lanes[2 * n] = Lane(0.0f);
    lanes[2 * n + 1] = Lane(0.0f);
    kf_SplitRadixRow<Lane>(lanes, n, kf_Direction::Forward, *group.rotation, group.bitReverse,
                           kf_FitElements<Lane>());
    kf_UntangleRealRow<Lane>(lanes, n, k.c1, k.c2, k.wpr, k.wpi);
    kf_ScatterLines(group, lanes, n + 1, nullptr);
}

template <typename Lane>
void kf_RealRows(const kf_LineGroup& group, const kf_RealRowConstants& k)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_GatherLines(group, lanes, group.n);
    kf_TransformRealRows(group, k, lanes);
}

// The row whose conjugate row r mirrors, (H - r) mod H, without a division.
static inline long kf_MirrorRow(int r, int H) { return r == 0 ? 0 : H - r; }

// The conjugates of a group of adjacent columns firstColumn .. (their
// transforms in `lanes`, element r at order[r]) written while the columns are at hand: element
// (r, c) with 1 <= c <= W/2 - 1 also goes conjugated to ((H - r) mod H,
// W - c), the spectrum's redundant half. Negation is the lane's sign flip,
// the same bits as the scalar negation.
template <typename Lane>
void kf_WriteConjugates(const Lane* lanes, const std::int32_t* order, float* data, int firstColumn, int width, int H)
{
    constexpr int L = Lane::width;
    const long rowFloats = 2L * width;
    if (firstColumn >= 1 && firstColumn + L - 1 <= width / 2 - 1) {
        // Columns W - firstColumn - L + 1 .. W - firstColumn, in reverse.
        constexpr int ahead = 8;
        for (int r = 0; r < H; ++r) {
            float* to = data + kf_MirrorRow(r, H) * rowFloats + 2 * (width - firstColumn - L + 1);
            if (r + ahead < H) {
                const char* next = reinterpret_cast<const char*>(to - ahead * rowFloats);
                __builtin_prefetch(next, 1);
                __builtin_prefetch(next + 8 * L - 1, 1);
            }
            Lane::interleave(to, lanes[2 * order[r]].reversed(), (-lanes[2 * order[r] + 1]).reversed());
        }
        return;
    }
    // Lanes partly outside the range (the group of column 0, or the last
    // group of a narrow matrix): the reversed piece is built aside and only
    // its part inside the range is copied. Lane k of the piece is column
    // firstColumn + L - 1 - k and lands at column W - firstColumn - L + 1 + k.
    const int kFirst = std::max(0, firstColumn + L - width / 2);
    const int kEnd = std::min(L, firstColumn + L - 1);
    if (kFirst >= kEnd)
        return;
    alignas(64) float piece[2 * L];
    for (int r = 0; r < H; ++r) {
        Lane::interleave(piece, lanes[2 * order[r]].reversed(), (-lanes[2 * order[r] + 1]).reversed());
        float* to = data + kf_MirrorRow(r, H) * rowFloats + 2 * (width - firstColumn - L + 1);
        for (int f = 0; f < 2 * L; ++f)   // a fixed count: no call to a library copy
            if (f >= 2 * kFirst && f < 2 * kEnd)
                to[f] = piece[f];
    }
}

template <typename Lane>
void kf_RealColumns(const kf_LineGroup& group, int firstColumn, int width)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    const int H = group.n;
    kf_GatherLines(group, lanes, H);
    kf_ButterfliesByBlock(kf_RowElements<Lane>{lanes}, H, *group.rotation, kf_FitElements<Lane>());
    kf_ScatterLines(group, lanes, H, group.bitReversed);

    kf_WriteConjugates(lanes, group.bitReversed, group.base - 2 * firstColumn, firstColumn, width, H);
}

// Column blocks: kf_ColumnBlockGroups adjacent groups of columns walked down
// the matrix together, so that each row is read and written in one piece of
// whole cache lines instead of one smaller piece per group: fewer strided
// walks, each of them fetching more per row. Every group then runs alone in
// its own part of the scratch, so each lane meets exactly the operations it
// meets in a group of its own.

template <typename Lane>
Lane* kf_BlockGroupLanes(const kf_LineGroup& group, int g)
{
    return reinterpret_cast<Lane*>(group.scratch) + static_cast<long>(g) * 2 * (group.n + 1);
}

// Asks for the piece of a row that a block of columns covers (2L floats per
// group) some rows before it is used: the hardware does not follow a walk
// down the columns.
template <typename Lane, bool ForWrite>
inline void kf_PrefetchPiece(const float* piece)
{
    constexpr int bytes = kf_ColumnBlockGroups * 2 * Lane::width * static_cast<int>(sizeof(float));
    const char* p = reinterpret_cast<const char*>(piece);
    for (int b = 0; b < bytes; b += 64)
        __builtin_prefetch(p + b, ForWrite ? 1 : 0);
}

template <typename Lane>
void kf_GatherColumnBlock(const kf_LineGroup& group)
{
    constexpr int L = Lane::width, G = kf_ColumnBlockGroups, ahead = 8;
    const float* from = group.source ? group.source : group.base;
    const bool conjugate = kf_Conjugates(group);
    for (int e = 0; e < group.n; ++e) {
        const float* row = from + e * group.elementStride;
        if (e + ahead < group.n)
            kf_PrefetchPiece<Lane, false>(row + ahead * group.elementStride);
        for (int g = 0; g < G; ++g) {
            Lane* lanes = kf_BlockGroupLanes<Lane>(group, g);
            Lane::deinterleave(row + 2 * L * g, lanes[2 * e], lanes[2 * e + 1]);
            lanes[2 * e + 1] = kf_ImaginaryPart(lanes[2 * e + 1], conjugate);
        }
    }
}

template <typename Lane>
void kf_ScatterColumnBlock(const kf_LineGroup& group)
{
    constexpr int L = Lane::width, G = kf_ColumnBlockGroups, ahead = 8;
    const bool conjugate = kf_Conjugates(group);
    for (int e = 0; e < group.n; ++e) {
        float* row = group.base + e * group.elementStride;
        if (e + ahead < group.n)
            kf_PrefetchPiece<Lane, true>(row + ahead * group.elementStride);
        for (int g = 0; g < G; ++g) {
            const Lane* lanes = kf_BlockGroupLanes<Lane>(group, g);
            const int at = group.bitReversed[e];
            Lane::interleave(row + 2 * L * g, lanes[2 * at], kf_ImaginaryPart(lanes[2 * at + 1], conjugate));
        }
    }
}

template <typename Lane>
void kf_ComplexColumnBlock(const kf_LineGroup& group)
{
    kf_GatherColumnBlock<Lane>(group);
    for (int g = 0; g < kf_ColumnBlockGroups; ++g)
        kf_ButterfliesByBlock(kf_RowElements<Lane>{kf_BlockGroupLanes<Lane>(group, g)}, group.n, *group.rotation,
                              kf_FitElements<Lane>());
    kf_ScatterColumnBlock<Lane>(group);
}

template <typename Lane>
void kf_RealColumnBlock(const kf_LineGroup& group, int firstColumn, int width)
{
    constexpr int L = Lane::width, G = kf_ColumnBlockGroups, ahead = 8;
    kf_ComplexColumnBlock<Lane>(group);

    float* const data = group.base - 2 * firstColumn;
    const int H = group.n;
    if (!(firstColumn >= 1 && firstColumn + G * L - 1 <= width / 2 - 1)) {
        for (int g = 0; g < G; ++g)
            kf_WriteConjugates(kf_BlockGroupLanes<Lane>(group, g), group.bitReversed, data, firstColumn + g * L,
                               width, H);
        return;
    }
    // The whole block's conjugates, columns W - firstColumn - GL + 1 ..
    // W - firstColumn, in one piece per row: group g lands g groups from
    // the piece's right end, its lanes reversed.
    const long rowFloats = 2L * width;
    float* const piece = data + 2 * (width - firstColumn - G * L + 1);
    for (int r = 0; r < H; ++r) {
        float* to = piece + kf_MirrorRow(r, H) * rowFloats;
        if (r + ahead < H)
            kf_PrefetchPiece<Lane, true>(piece + (H - r - ahead) * rowFloats);
        for (int g = 0; g < G; ++g) {
            const Lane* lanes = kf_BlockGroupLanes<Lane>(group, g);
            const int at = group.bitReversed[r];
            Lane::interleave(to + 2 * L * (G - 1 - g), lanes[2 * at].reversed(), (-lanes[2 * at + 1]).reversed());
        }
    }
}

// Defined in pixel_rows.h, which every variant file includes.
template <typename Lane>
void kf_RealRowsFromPixels(const kf_LineGroup& group, const kf_RealRowConstants& k, const kf_PixelRows& pixels,
                           int firstRow);
template <typename Lane>
void kf_ComplexRowsFromPixels(const kf_LineGroup& group, const kf_PixelRows& real, const kf_PixelRows& imag,
                              int firstRow);

// The entry of a variant's table for one lane type.
template <typename Lane>
constexpr kf_LaneWidth kf_LaneWidthOf()
{
    return kf_LaneWidth{Lane::width,           kf_ComplexLines<Lane>,       kf_RealRows<Lane>,
                        kf_RealColumns<Lane>, kf_ComplexColumnBlock<Lane>, kf_RealColumnBlock<Lane>,
                        kf_RealRowsFromPixels<Lane>, kf_ComplexRowsFromPixels<Lane>};
}
