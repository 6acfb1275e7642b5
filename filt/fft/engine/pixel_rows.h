#pragma once
// Internal: the real row pass reading an image's pixels, so that the floats
// it transforms are never stored and read back. Included only by the
// variant files; templates on the lane type, as in line_group.h.
#include "fft/engine/line_group.h"
#include "fft/engine/pixels.h"

#include <algorithm>

// Rows firstRow .. firstRow + L - 1 of the samples of `pixels`, `floats`
// (a multiple of L) of each, into lanes[0 .. floats): L x L blocks of
// pixels converted to floats one by one and transposed in registers, as
// kf_GatherLines does with floats. Blocks wholly past the image are zeros.
template <typename Lane, typename T>
void kf_GatherPixelRows(const T* first, const kf_PixelRows& pixels, int firstRow, Lane* lanes, int floats)
{
    constexpr int L = Lane::width;
    const long rows = std::min<long>(L, pixels.height - firstRow);
    for (int f0 = 0; f0 < floats; f0 += L) {
        const long count = std::min<long>(L, pixels.width - f0);
        if (rows <= 0 || count <= 0) {
            for (int f = 0; f < L; ++f)
                lanes[f0 + f] = Lane(0.0f);
            continue;
        }
        alignas(64) float block[L * L];
        for (int l = 0; l < L; ++l) {
            float* to = block + l * L;
            long f = 0;
            if (l < rows) {
                const T* from = first + (firstRow + l) * pixels.stride + f0;
                if (count == L) {
                    // A whole block row: a fixed count the compiler turns into vector conversions.
                    for (int g = 0; g < L; ++g)
                        to[g] = static_cast<float>(from[g]);
                    continue;
                }
                for (; f < count; ++f)
                    to[f] = static_cast<float>(from[f]);
            }
            for (; f < L; ++f)
                to[f] = 0.0f;
        }
        Lane loaded[L];
        for (int l = 0; l < L; ++l)
            loaded[l] = Lane::load(block + l * L);
        Lane::transpose(loaded);
        for (int f = 0; f < L; ++f)
            lanes[f0 + f] = loaded[f];
    }
}

template <typename Lane>
void kf_RealRowsFromPixels(const kf_LineGroup& group, const kf_RealRowConstants& k, const kf_PixelRows& pixels,
                           int firstRow)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_WithPixels(pixels,
                  [&](const auto* first) { kf_GatherPixelRows(first, pixels, firstRow, lanes, 2 * group.n); });
    kf_TransformRealRows(group, k, lanes);
}
