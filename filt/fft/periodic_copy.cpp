#include "fft/periodic_copy.h"

#include <algorithm>

template <typename T>
void kf_PeriodicCopy(const kxPelBuffer_const<T>& source, const kxPelBuffer<T>& destination, bool negate)
{
    const long ox = source.offset().x();
    const long oy = source.offset().y();
    long px = std::max(source.width(), destination.width());
    long py = std::max(source.height(), destination.height());
    if (negate) {
        px = -px;
        py = -py;
    }
    const kxPair<long> placements[4] = {
        kxPair<long>(ox - px, oy - py), kxPair<long>(ox, oy - py), kxPair<long>(ox - px, oy),
        kxPair<long>(ox, oy)};
    for (const kxPair<long>& at : placements) {
        kxPelBuffer_const<T> view = source;
        view.offset(at);
        kfPelCopy(view, destination);
    }
}

template void kf_PeriodicCopy<unsigned char>(const kxPelBuffer_const<unsigned char>&,
                                             const kxPelBuffer<unsigned char>&, bool);
template void kf_PeriodicCopy<unsigned short>(const kxPelBuffer_const<unsigned short>&,
                                              const kxPelBuffer<unsigned short>&, bool);
template void kf_PeriodicCopy<double>(const kxPelBuffer_const<double>&, const kxPelBuffer<double>&, bool);
