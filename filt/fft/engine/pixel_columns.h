#pragma once
// Internal: the const inverse's last pass writing pixels. Each column group
// of the 2-D inverse, once its butterflies are done, converts its rows < h
// of its columns < w straight to result pixels, as the inverse's separate
// conversion does bit for bit, instead of writing its floats back into the
// working area for that conversion to read again.
#include "fft/engine/line_group.h"
#include "fft/engine/pixel_target.h"
#include "fft/engine/variants.h"

// One row of a lane group's pixels: `count` lanes from the first, at x0 of
// row y. Through a small table, element by element; a variant with vector
// conversions specialises it for its lane types.
template <typename Lane>
struct kf_PixelRow {
    static void write(const Lane& re, const Lane& im, int count, const kf_PixelTarget& target, long x0, long y)
    {
        alignas(64) float r[Lane::width];
        alignas(64) float i[Lane::width];
        re.store(r);
        im.store(i);
        kf_PixelRun(r, i, count, target, x0, y);
    }
};

// The last pass of one group of adjacent columns (group.base at column
// firstColumn): gathered and transformed as kf_ComplexLines does, then
// converted to pixels where the result has them.
template <typename Lane>
void kf_PixelColumnsOf(const kf_LineGroup& group, int firstColumn, const kf_PixelTarget& target)
{
    constexpr int L = Lane::width;
    if (firstColumn >= target.w)
        return;   // polled and counted as a group, but it has no pixels
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_GatherLines(group, lanes, group.n);
    kf_SplitRadixRow<Lane>(lanes, group.n, group.direction, *group.rotation, group.bitReverse, kf_FitElements<Lane>());
    const long left = target.w - firstColumn;
    const int count = left < L ? static_cast<int>(left) : L;
    for (long y = 0; y < target.h; ++y)
        kf_PixelRow<Lane>::write(lanes[2 * y], lanes[2 * y + 1], count, target, firstColumn, y);
}
