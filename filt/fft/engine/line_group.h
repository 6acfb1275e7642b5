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

// Blocks of a line group's scratch that stay in the first-level cache (32 KiB
// of a lane's reals and imaginaries) run their butterflies there, depth first.
template <typename Lane>
constexpr int kf_FitElements()
{
    return static_cast<int>(32768 / (2 * sizeof(Lane)));
}

template <typename Lane>
void kf_GatherLines(const kf_LineGroup& group, Lane* lanes, int elements)
{
    constexpr int L = Lane::width;
    const float* from = group.source ? group.source : group.base;
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
        for (int f = 0; f < L; ++f)
            lanes[f0 + f] = block[f];
    }
    alignas(64) float table[L * L];
    for (; f0 < floats; f0 += L) {
        const int count = floats - f0 < L ? floats - f0 : L;
        for (int l = 0; l < L; ++l) {
            for (int f = 0; f < count; ++f)
                table[f * L + l] = from[l * group.lineStride + f0 + f];
        }
        for (int f = 0; f < count; ++f)
            lanes[f0 + f] = Lane::load(table + f * L);
    }
}

template <typename Lane>
void kf_ScatterLines(const kf_LineGroup& group, const Lane* lanes, int elements)
{
    constexpr int L = Lane::width;
    constexpr unsigned all = L >= 32 ? ~0u : (1u << L) - 1u;
    if (group.lineStride == 2 && (group.keep & all) == all) {
        constexpr int ahead = 8;
        for (int e = 0; e < elements; ++e) {
            if (e + ahead < elements) {
                const char* next = reinterpret_cast<const char*>(group.base + (e + ahead) * group.elementStride);
                __builtin_prefetch(next, 1);
                __builtin_prefetch(next + 8 * L - 1, 1);
            }
            Lane::interleave(group.base + e * group.elementStride, lanes[2 * e], lanes[2 * e + 1]);
        }
        return;
    }
    const int floats = 2 * elements;
    int f0 = 0;
    if (group.lineStride != 2)
        for (; f0 + L <= floats; f0 += L) {
            Lane block[L];
            for (int f = 0; f < L; ++f)
                block[f] = lanes[f0 + f];
            Lane::transpose(block);
            for (int l = 0; l < L; ++l)
                if (group.keep & (1u << l))
                    block[l].storeu(group.base + l * group.lineStride + f0);
        }
    alignas(64) float table[L * L];
    for (; f0 < floats; f0 += L) {
        const int count = floats - f0 < L ? floats - f0 : L;
        for (int f = 0; f < count; ++f)
            lanes[f0 + f].store(table + f * L);
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

template <typename Lane>
void kf_ComplexLines(const kf_LineGroup& group)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_GatherLines(group, lanes, group.n);
    kf_SplitRadixRow<Lane>(lanes, group.n, group.direction, *group.rotation, group.bitReverse,
                           kf_FitElements<Lane>());
    kf_ScatterLines(group, lanes, group.n);
}

// The real row pass on rows already gathered into `lanes` (2n floats each).
template <typename Lane>
void kf_TransformRealRows(const kf_LineGroup& group, const kf_RealRowConstants& k, Lane* lanes)
{
    const int n = group.n;
    // The untangling writes element n and, for n = 1, reads it first.
    lanes[2 * n] = Lane(0.0f);
    lanes[2 * n + 1] = Lane(0.0f);
    kf_SplitRadixRow<Lane>(lanes, n, group.direction, *group.rotation, group.bitReverse,
                           kf_FitElements<Lane>());
    kf_UntangleRealRow<Lane>(lanes, n, k.c1, k.c2, k.wpr, k.wpi);
    kf_ScatterLines(group, lanes, n + 1);
}

template <typename Lane>
void kf_RealRows(const kf_LineGroup& group, const kf_RealRowConstants& k)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_GatherLines(group, lanes, group.n);
    kf_TransformRealRows(group, k, lanes);
}

template <typename Lane>
void kf_RealColumns(const kf_LineGroup& group, int firstColumn, int width)
{
    constexpr int L = Lane::width;
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    const int H = group.n;
    kf_GatherLines(group, lanes, H);
    kf_SplitRadixRow<Lane>(lanes, H, group.direction, *group.rotation, group.bitReverse,
                           kf_FitElements<Lane>());
    kf_ScatterLines(group, lanes, H);

    // The conjugates, written while the columns are at hand. Negation is the
    // lane's sign flip, the same bits as the scalar negation.
    float* const data = group.base - 2 * firstColumn;
    const long rowFloats = 2L * width;
    if (firstColumn >= 1 && firstColumn + L - 1 <= width / 2 - 1) {
        // Columns W - firstColumn - L + 1 .. W - firstColumn, in reverse.
        constexpr int ahead = 8;
        for (int r = 0; r < H; ++r) {
            float* to = data + ((H - r) % H) * rowFloats + 2 * (width - firstColumn - L + 1);
            if (r + ahead < H) {
                const char* next = reinterpret_cast<const char*>(to - ahead * rowFloats);
                __builtin_prefetch(next, 1);
                __builtin_prefetch(next + 8 * L - 1, 1);
            }
            Lane::interleave(to, lanes[2 * r].reversed(), (-lanes[2 * r + 1]).reversed());
        }
        return;
    }
    alignas(64) float re[L];
    alignas(64) float im[L];
    for (int r = 0; r < H; ++r) {
        lanes[2 * r].store(re);
        (-lanes[2 * r + 1]).store(im);
        float* row = data + ((H - r) % H) * rowFloats;
        for (int l = 0; l < L; ++l) {
            const int c = firstColumn + l;
            if (c >= 1 && c <= width / 2 - 1) {
                row[2 * (width - c)] = re[l];
                row[2 * (width - c) + 1] = im[l];
            }
        }
    }
}
