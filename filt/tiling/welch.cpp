// The Welch-averaged spectrum: the power of overlapping windowed tiles,
// averaged, read band by band from a row source.
//
// Tiles are computed on the jobs in rounds of one tile per job and their
// powers added in tile order by the calling thread, so the sum is the same
// whatever the number of jobs.
#include "tiling/tiling_support.h"

#include <cmath>

using namespace kx_tiling;

namespace {

// Tile starts along an axis: every `step`, the last one moved in to end at
// the border.
std::vector<long> segmentStarts(long length, long segment, long step)
{
    std::vector<long> starts;
    for (long p = 0;; p += step) {
        if (p + segment >= length) {
            starts.push_back(length - segment);
            return starts;
        }
        starts.push_back(p);
    }
}

template <typename S>
kxFrequencyBuffer welch(kxRowSource& source, const kxWelchOptions& options)
{
    const long width = source.width(), height = source.height();
    const long sx = std::min(options.segment, width), sy = std::min(options.segment, height);
    const long stepX = std::max(1L, std::lround(static_cast<double>(sx) * (1.0 - options.overlap)));
    const long stepY = std::max(1L, std::lround(static_cast<double>(sy) * (1.0 - options.overlap)));
    const std::vector<long> columns = segmentStarts(width, sx, stepX);
    const std::vector<long> bands = segmentStarts(height, sy, stepY);
    const long px = kfPaddedSize(sx), py = kfPaddedSize(sy);

    const unsigned jobs = static_cast<unsigned>(std::min<std::size_t>(options.jobs, columns.size()));
    std::vector<std::vector<double>> powers(jobs, std::vector<double>(static_cast<std::size_t>(px * py)));
    std::vector<double> sum(static_cast<std::size_t>(px * py), 0.0);
    RowWindow<S> window(source);
    for (long top : bands) {
        window.cover(top, top + sy);
        for (std::size_t round = 0; round < columns.size(); round += jobs) {
            const long inRound = static_cast<long>(std::min<std::size_t>(jobs, columns.size() - round));
            runJobs(
                jobs, inRound,
                [&](unsigned, long slot) {
                    const long left = columns[round + static_cast<std::size_t>(slot)];
                    kxPelBuffer<double> tile(sx, sy);
                    for (long y = 0; y < sy; ++y) {
                        const S* row = window.row(top + y);
                        for (long x = 0; x < sx; ++x)
                            tile(x, y) = static_cast<double>(row[left + x]);
                    }
                    kxFrequencyBuffer spectrum;
                    kfForwardFFT<double>(kfApplyWindow<double>(tile, options.window, true), spectrum);
                    const kxPelBuffer<double> re = spectrum.getRealImage(false);
                    const kxPelBuffer<double> im = spectrum.getImaginaryImage(false);
                    double* power = powers[static_cast<std::size_t>(slot)].data();
                    for (long y = 0; y < py; ++y)
                        for (long x = 0; x < px; ++x) {
                            const double a = re(x, y), b = im(x, y);
                            *power++ = a * a + b * b;
                        }
                },
                {});
            for (long slot = 0; slot < inRound; ++slot)
                for (std::size_t i = 0; i < sum.size(); ++i)
                    sum[i] += powers[static_cast<std::size_t>(slot)][i];
        }
    }

    const double tiles = static_cast<double>(columns.size() * bands.size());
    kxPelBuffer<double> amplitude(px, py), zero(px, py);
    for (long y = 0; y < py; ++y)
        for (long x = 0; x < px; ++x)
            amplitude(x, y) = std::sqrt(sum[static_cast<std::size_t>(y * px + x)] / tiles);
    return kxFrequencyBuffer(amplitude, zero);
}

}  // namespace

kxFrequencyBuffer kfWelchSpectrum(kxRowSource& source, const kxWelchOptions& options)
{
    checkTileSide(options.segment, "Segment");
    checkJobs(options.jobs);
    if (!(options.overlap >= 0.0 && options.overlap <= 0.75))
        throw kxFrequencyDefs::InvalidArgument("Overlap must be from 0 to 0.75.");
    kfWindowWeights(1, options.window);   // refuses a bad window before any work
    checkSourceSize(source, 8);
    return withSampleType(source.type(),
                          [&](auto* sample) { return welch<std::remove_pointer_t<decltype(sample)>>(source, options); });
}

namespace {

template <typename T>
kxFrequencyBuffer welchOfView(const kxImageView<const T>& image, const kxWelchOptions& options)
{
    if (!image.data)
        throw kxFrequencyDefs::UnboundWindow();
    ViewSource<T> source(image);
    return kfWelchSpectrum(source, options);
}

}  // namespace

kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const unsigned char>& image, const kxWelchOptions& options)
{
    return welchOfView(image, options);
}
kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const unsigned short>& image, const kxWelchOptions& options)
{
    return welchOfView(image, options);
}
kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const float>& image, const kxWelchOptions& options)
{
    return welchOfView(image, options);
}
kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const double>& image, const kxWelchOptions& options)
{
    return welchOfView(image, options);
}
