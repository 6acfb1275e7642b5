// Transposes of complex matrices (two floats per element), in 4 x 4 blocks
// for cache behaviour.
#include "fft/engine/engine.h"

#include <kx/core/attention.h>

#include <cassert>
#include <utility>

namespace {

constexpr int kBlock = 4;

void swapElements(float* a, float* b)
{
    std::swap(a[0], b[0]);
    std::swap(a[1], b[1]);
}

// Element-by-element in-place transpose of an n x n matrix.
void transposePlain(float* data, int n)
{
    for (int r = 0; r < n; ++r)
        for (int c = r + 1; c < n; ++c)
            swapElements(data + 2 * (r * n + c), data + 2 * (c * n + r));
}

// Transposes the 4 x 4 block at (rowStart, colStart) within itself.
void transposeBlockInPlace(float* data, int n, int rowStart, int colStart)
{
    for (int r = 0; r < kBlock; ++r)
        for (int c = r + 1; c < kBlock; ++c)
            swapElements(data + 2 * ((rowStart + r) * n + colStart + c),
                         data + 2 * ((rowStart + c) * n + colStart + r));
}

// Transposes blocks (i, j) and (j, i) and exchanges them.
void exchangeBlockPair(float* data, int n, int i, int j)
{
    transposeBlockInPlace(data, n, i, j);
    transposeBlockInPlace(data, n, j, i);
    for (int r = 0; r < kBlock; ++r)
        for (int c = 0; c < kBlock; ++c)
            swapElements(data + 2 * ((i + r) * n + j + c), data + 2 * ((j + r) * n + i + c));
}

// Copies block (j, i) transposed into block (i, j), one way only.
void copyBlockTransposed(float* data, int n, int i, int j)
{
    for (int r = 0; r < kBlock; ++r)
        for (int c = 0; c < kBlock; ++c) {
            const float* from = data + 2 * ((j + c) * n + i + r);
            float* to = data + 2 * ((i + r) * n + j + c);
            to[0] = from[0];
            to[1] = from[1];
        }
}

}  // namespace

void kf_TransposeRect(const float* src, float* dst, int columnCount, int rowCount)
{
    auto move = [&](int r, int c) {
        const float* from = src + 2 * (r * columnCount + c);
        float* to = dst + 2 * (c * rowCount + r);
        to[0] = from[0];
        to[1] = from[1];
    };
    if (columnCount < kBlock || rowCount < kBlock) {
        for (int r = 0; r < rowCount; ++r)
            for (int c = 0; c < columnCount; ++c)
                move(r, c);
        return;
    }
    kxAttention::check();
    for (int r0 = 0; r0 < rowCount; r0 += kBlock)
        for (int c0 = 0; c0 < columnCount; c0 += kBlock)
            for (int r = r0; r < r0 + kBlock; ++r)
                for (int c = c0; c < c0 + kBlock; ++c)
                    move(r, c);
}

// After a half-spectrum pass only part of the matrix holds data:
//
//   LeftColumns: columns 0..n/2           TopRows: rows 0..n/2
//   +------+-----+                       +------------+
//   | data |stale|                       |    data    |
//   |      |     |                       +------------+
//   |      |     |                       |   stale    |
//   +------+-----+                       +------------+
//
// The walk covers block rows (or block columns) 0 .. n/2 + 4; a block whose
// mirror lies beyond the walk is filled one way from it, and the stale part
// is left for the following pass to overwrite or never read.
void kf_TransposeSquare(float* data, int n, kf_DataHalf half)
{
    const bool leftColumns = half == kf_DataHalf::LeftColumns;
    if (n == 1)
        return;
    if (n < 8) {
        transposePlain(data, n);
        return;
    }
    assert(n % kBlock == 0);
    kxAttention::check();
    const int walked = n / 2 + kBlock;
    const int rowEnd = leftColumns ? walked : n;
    const int colEnd = leftColumns ? n : walked;
    for (int i = 0; i < rowEnd; i += kBlock)
        for (int j = 0; j < colEnd; j += kBlock) {
            if (i == j)
                transposeBlockInPlace(data, n, i, i);
            else if ((leftColumns && j >= walked) || (!leftColumns && i >= walked))
                copyBlockTransposed(data, n, i, j);
            else if (j <= i)
                exchangeBlockPair(data, n, i, j);
        }
}

// Rows outside the band were not transformed and hold zeros, so a block pair
// whose rows all lie outside it is zero on both sides and can stay as it is.
// Centred row index of storage row r: r + n/2 below n/2, r - n/2 from n/2 on.
//
// A block starting at c covers rows c..c+3. For n of 8 or more blocks never
// straddle row n/2, and the test below judges them conservatively. For n = 4
// the single block holds both halves, so nothing is skipped there.
void kf_TransposeSquareBanded(float* data, int n, kf_RowBand band)
{
    const int bandLo = band.lo, bandHi = band.hi;
    if (n == 1)
        return;
    if (n < kBlock) {
        transposePlain(data, n);
        return;
    }
    assert(n % kBlock == 0);
    kxAttention::check();
    const int h = n / 2;
    const bool skipping = n >= 8 && !(bandLo < 1 && bandHi >= n);
    auto outside = [&](int c) {
        if (c >= h)
            return c + kBlock < bandLo + h || c > bandHi + h;
        return c + kBlock < bandLo - h || c > bandHi - h;
    };
    for (int i = 0; i <= n - kBlock; i += kBlock)
        for (int j = 0; j <= i; j += kBlock) {
            if (skipping && outside(i) && outside(j))
                continue;
            if (i == j)
                transposeBlockInPlace(data, n, i, i);
            else
                exchangeBlockPair(data, n, i, j);
        }
}
