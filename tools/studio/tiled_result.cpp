#include "tiled_result.h"

#include <cmath>

namespace kxstudio {

namespace {

kxTileOptions tileOptions(unsigned jobs)
{
    kxTileOptions options;   // the default tile and margin, as the tool and the Python module use them
    options.jobs = jobs;
    return options;
}

// One filter from `in` into `out` (views of the same size), with library
// errors reported against the filter's number.
template <typename In, typename Out>
void applyOne(const kxImageView<In>& in, const StudioFilter& filter, std::size_t number,
              const kxImageView<Out>& out, unsigned jobs)
{
    try {
        kfFilterTiled(in, *describeForTiles(filter), out, tileOptions(jobs));
    } catch (const kxException& e) {
        throw BadRequest("filter " + std::to_string(number) + ": " + e.what());
    }
}

kxio::GreyImage asImage(const kxPelBuffer<unsigned char>& pixels) { return kxio::makeImage8(pixels); }
kxio::GreyImage asImage(const kxPelBuffer<unsigned short>& pixels) { return kxio::makeImage16(pixels); }

template <typename T>
kxio::GreyImage filterChain(const kxPelBuffer<T>& image, int bits, const FilterSet& filters, unsigned jobs)
{
    const long w = image.width(), h = image.height();
    if (filters.size() == 1) {
        kxPelBuffer<T> result(w, h);
        applyOne(kfImageView<T>(image), filters[0], 1, kfImageView<T>(result), jobs);
        return asImage(result);
    }
    kxPelBuffer<double> work(w, h), next(w, h);
    applyOne(kfImageView<T>(image), filters[0], 1, kfImageView<double>(work), jobs);
    for (std::size_t i = 1; i < filters.size(); ++i) {
        applyOne(kfImageView<double>(work), filters[i], i + 1, kfImageView<double>(next), jobs);
        std::swap(work, next);
    }
    return kxio::roundedImage(bits, w, h, [&](long x, long y) {
        const double v = work(x, y);
        return std::isfinite(v) ? v : 0.0;
    });
}

}  // namespace

std::unique_ptr<kxFilterDescription> describeForTiles(const StudioFilter& f)
{
    if (f.kind == StudioFilter::BandReject) {
        auto d = std::make_unique<kxBandRejectDescription>();
        d->sigma = f.sigma[0], d->plateau = f.plateau[0], d->frequency = f.frequency, d->dcRadius = f.dcRadius;
        return d;
    }
    auto d = std::make_unique<kxGaborRejectDescription>();
    d->sigma = kxPair<double>(f.sigma[0], f.sigma[1]);
    d->plateau = kxPair<double>(f.plateau[0], f.plateau[1]);
    d->angle = angleRadians(f);
    d->frequency = f.frequency, d->dcRadius = f.dcRadius;
    return d;
}

kxio::GreyImage filterTiled(const kxio::GreyImage& image, const FilterSet& filters, unsigned jobs)
{
    if (filters.empty())
        return image;
    return image.bits == 8 ? filterChain(image.pixels8, 8, filters, jobs)
                           : filterChain(image.pixels16, 16, filters, jobs);
}

}  // namespace kxstudio
