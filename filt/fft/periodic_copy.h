#pragma once
// Internal: the periodic copy shared by the forward and inverse transforms.
#include <kx/core/pel_buffer.h>

// Lays `source` down into `destination` with period (px, py), the larger of
// the two widths and heights (negated when `negate`), as four placements at
// offsets (ox - px, oy - py), (ox, oy - py), (ox - px, oy) and (ox, oy), each
// copied with kfPelCopy in that order, (ox, oy) being the source's offset.
// Destination pixels that no placement covers keep their value.
template <typename T>
void kf_PeriodicCopy(const kxPelBuffer_const<T>& source, const kxPelBuffer<T>& destination, bool negate);

extern template void kf_PeriodicCopy<unsigned char>(const kxPelBuffer_const<unsigned char>&,
                                                    const kxPelBuffer<unsigned char>&, bool);
extern template void kf_PeriodicCopy<unsigned short>(const kxPelBuffer_const<unsigned short>&,
                                                     const kxPelBuffer<unsigned short>&, bool);
extern template void kf_PeriodicCopy<double>(const kxPelBuffer_const<double>&, const kxPelBuffer<double>&,
                                             bool);
