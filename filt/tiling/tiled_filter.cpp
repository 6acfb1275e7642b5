// Filtering an image of any size: one transform when it fits in a tile,
// otherwise overlap-save over tiles, streamed band by band.
//
//   band of tiles:   rows [start - margin, start - margin + tileHeight)
//   written:         rows [writeStart, writeEnd) of each tile's core
//
// Each tile is gathered from the mirror-extended image, transformed,
// filtered, transformed back, and the part of its core it owns is converted
// to the output type. A tile is computed the same way whichever thread runs
// it, so the result does not depend on the number of jobs.
#include "tiling/tiling_support.h"

#include <kx/core/attention.h>

#include <cmath>

using namespace kx_tiling;

namespace {

// The pixel type a tile is transformed from: the source's own for 8 and 16
// bits, double for floating point (there is no float forward transform).
template <typename S>
struct TilePixel {
    using type = double;
};
template <>
struct TilePixel<unsigned char> {
    using type = unsigned char;
};
template <>
struct TilePixel<unsigned short> {
    using type = unsigned short;
};

// One result sample from the real and imaginary parts, as the tool's
// --output does it: integers rounded and clamped (non-finite values give 0),
// `signed` adding mid-grey; floating point as it is.
template <typename Out>
Out outputSample(double re, double im, kxTileOptions::Output mode)
{
    double v = mode == kxTileOptions::eMagnitude ? std::sqrt(re * re + im * im) : re;
    if constexpr (std::is_integral<Out>::value) {
        const double top = sizeof(Out) == 1 ? 255.0 : 65535.0;
        const double mid = sizeof(Out) == 1 ? 128.0 : 32768.0;
        if (mode == kxTileOptions::eSigned)
            v += mid;
        if (!std::isfinite(v))
            v = 0;
        return static_cast<Out>(std::min(top, std::max(0.0, std::round(v))));
    } else {
        return static_cast<Out>(v);
    }
}

double fullScaleOf(kxSampleType type) { return type == eSampleU8 ? 255.0 : 65535.0; }

// Index into [0, n) of position p of a padded axis: the image, then its far
// border mirrored, then its near border mirrored, meeting half-way so that
// the grid wraps round smoothly (the tool's --pad mirror).
long paddedMirror(long p, long n, long padded)
{
    if (p < n)
        return p;
    const long fill = padded - n;
    const long j = p - n;
    const long i = j < (fill + 1) / 2 ? n - 1 - j : padded - p - 1;
    return std::min(n - 1, std::max(0L, i));
}

template <typename S, typename Out>
class TiledFilter {
public:
    using P = typename TilePixel<S>::type;

    TiledFilter(kxRowSource& source, const kxFilterDescription& description, kxRowSink& sink,
                const kxTileOptions& options)
        : source_(source), description_(description), sink_(sink), options_(options),
          width_(source.width()), height_(source.height())
    {
    }

    // One transform of the padded size, exactly as forward + apply + inverse.
    kxTileReport single()
    {
        RowWindow<S> window(source_);
        window.cover(0, height_);
        const long pw = kfPaddedSize(width_), ph = kfPaddedSize(height_);
        kxPelBuffer<P> grid(pw, ph);
        for (long y = 0; y < ph; ++y) {
            const S* row = window.row(paddedMirror(y, height_, ph));
            for (long x = 0; x < pw; ++x)
                grid(x, y) = static_cast<P>(row[paddedMirror(x, width_, pw)]);
        }
        kxFrequencyBuffer spectrum;
        kfForwardFFT<P>(grid, spectrum);
        description_.makeFilter(kxPair<long>(pw, ph))->apply(spectrum);
        kxPelBuffer<double> real, imag;
        kfInverseFFT(spectrum, real, imag);
        const double scale = description_.resultScale();
        std::vector<Out> rows(static_cast<std::size_t>(width_ * height_));
        Out* out = rows.data();
        for (long y = 0; y < height_; ++y)
            for (long x = 0; x < width_; ++x) {
                double re = real(x, y), im = imag(x, y);
                if (scale != 1.0) {
                    re *= scale;
                    im *= scale;
                }
                *out++ = outputSample<Out>(re, im, options_.output);
            }
        sink_.write(rows.data(), height_);
        if (options_.progress)
            options_.progress(1, 1);
        return kxTileReport{std::max(pw, ph), 0, 1, true};
    }

    kxTileReport tiled(long margin)
    {
        margin_ = margin;
        tileWidth_ = std::min(options_.tile, kfPaddedSize(width_ + 2 * margin));
        tileHeight_ = std::min(options_.tile, kfPaddedSize(height_ + 2 * margin));
        const std::vector<TileSpan> columns = tileSpans(width_, tileWidth_ - 2 * margin);
        const std::vector<TileSpan> bands = tileSpans(height_, tileHeight_ - 2 * margin);
        filter_ = description_.makeFilter(kxPair<long>(tileWidth_, tileHeight_));
        paired_ = description_.resultScale() == 1.0 && realAndSymmetric(*filter_, tileWidth_, tileHeight_);

        // The work items of one band: pairs of neighbouring tiles, or single
        // tiles. Which tiles go together depends on the image and the tile
        // only, never on the jobs.
        std::vector<std::pair<long, long>> items;
        const long step = paired_ ? 2 : 1;
        for (long c = 0; c < static_cast<long>(columns.size()); c += step)
            items.emplace_back(c, paired_ && c + 1 < static_cast<long>(columns.size()) ? c + 1 : -1);

        // Bands are read and written in groups of as many bands as jobs, so
        // that every job has work when a band has few tiles.
        const std::size_t group = std::min<std::size_t>(options_.jobs, bands.size());
        buffers_.resize(std::min<std::size_t>(options_.jobs, group * items.size()));
        const long total = static_cast<long>(columns.size() * bands.size());
        long tilesBefore = 0;
        RowWindow<S> window(source_);
        for (std::size_t first = 0; first < bands.size(); first += group) {
            const std::size_t last = std::min(bands.size(), first + group);
            coverBands(window, bands[first], bands[last - 1]);
            const long top = bands[first].writeStart;
            std::vector<Out> rows(static_cast<std::size_t>((bands[last - 1].writeEnd - top) * width_));
            const long count = static_cast<long>((last - first) * items.size());
            const long groupTiles = static_cast<long>((last - first) * columns.size());
            runJobs(
                static_cast<unsigned>(buffers_.size()), count,
                [&](unsigned job, long index) {
                    const TileSpan& band = bands[first + static_cast<std::size_t>(index) / items.size()];
                    const std::pair<long, long>& item = items[static_cast<std::size_t>(index) % items.size()];
                    runItem(window, band, columns, item, buffers_[job], rows.data() + (band.writeStart - top) * width_);
                },
                [&](long ended) {
                    if (options_.progress)
                        options_.progress(tilesBefore + std::min(groupTiles, ended * step), total);
                });
            tilesBefore += groupTiles;
            if (options_.progress)
                options_.progress(tilesBefore, total);
            sink_.write(rows.data(), bands[last - 1].writeEnd - top);
        }
        return kxTileReport{options_.tile, margin, total, false};
    }

private:
    // What each job keeps from tile to tile.
    struct Buffers {
        kxPelBuffer<P> tile, second;
        kxFrequencyBuffer spectrum, spatial;
        std::vector<long> columns;
    };

    // Whether the filter's gain is real and the same at f and -f: then it
    // filters two real tiles at once, one as the real and one as the
    // imaginary part of a transform, and gives each back in its own part.
    static bool realAndSymmetric(const kxFrequencyFilter& filter, long w, long h)
    {
        kxFrequencyBuffer gain(w, h);
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x)
                gain.put(x, y, kxPair<double>(1.0, 0.0), false);
        filter.apply(gain);
        const kxPelBuffer<double> re = gain.getRealImage(false), im = gain.getImaginaryImage(false);
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x)
                if (im(x, y) != 0.0 || re(x, y) != re((w - x) % w, (h - y) % h))
                    return false;
        return true;
    }

    // Reads the rows the tiles of bands first .. last reach (mirrored back
    // into the image).
    void coverBands(RowWindow<S>& window, const TileSpan& firstBand, const TileSpan& lastBand) const
    {
        long first = height_, last = 0;
        for (const TileSpan* band : {&firstBand, &lastBand})
            for (long y = band->start - margin_; y < band->start - margin_ + tileHeight_; ++y) {
                const long row = mirrorIndex(y, height_);
                first = std::min(first, row);
                last = std::max(last, row + 1);
            }
        window.cover(first, last);
    }

    // The tile at `column` of `band`, read from the mirror-extended image.
    void gather(const RowWindow<S>& window, const TileSpan& band, const TileSpan& column, kxPelBuffer<P>& tile,
                std::vector<long>& columns) const
    {
        if (!tile.isBound())
            tile = kxPelBuffer<P>(tileWidth_, tileHeight_);
        columns.resize(static_cast<std::size_t>(tileWidth_));
        for (long x = 0; x < tileWidth_; ++x)
            columns[static_cast<std::size_t>(x)] = mirrorIndex(column.start - margin_ + x, width_);
        for (long y = 0; y < tileHeight_; ++y) {
            const S* row = window.row(mirrorIndex(band.start - margin_ + y, height_));
            P* to = &tile(0, y);
            for (long x = 0; x < tileWidth_; ++x)
                to[x] = static_cast<P>(row[columns[static_cast<std::size_t>(x)]]);
        }
    }

    // One tile, or two as the real and imaginary parts of one transform
    // (item.second < 0: the first alone, paired with zeros when pairing).
    void runItem(const RowWindow<S>& window, const TileSpan& band, const std::vector<TileSpan>& columns,
                 const std::pair<long, long>& item, Buffers& b, Out* rows) const
    {
        const TileSpan& first = columns[static_cast<std::size_t>(item.first)];
        gather(window, band, first, b.tile, b.columns);
        if (paired_) {
            if (item.second >= 0) {
                gather(window, band, columns[static_cast<std::size_t>(item.second)], b.second, b.columns);
            } else {
                if (!b.second.isBound())
                    b.second = kxPelBuffer<P>(tileWidth_, tileHeight_);
                kfPelSet<P>(b.second, P(0));
            }
            kfForwardFFT<P>(b.tile, b.second, b.spectrum);
        } else {
            kfForwardFFT<P>(b.tile, b.spectrum);
        }
        filter_->apply(b.spectrum);
        // Unscaled into a buffer kept from tile to tile: no new result images
        // per tile, and the scale (a power of two) is exact afterwards.
        kfInverseFFT(b.spectrum, b.spatial, true);
        if (paired_) {
            writeCore(band, first, b.spatial, ePairedReal, rows);
            if (item.second >= 0)
                writeCore(band, columns[static_cast<std::size_t>(item.second)], b.spatial, ePairedImaginary, rows);
        } else {
            writeCore(band, first, b.spatial, eComplex, rows);
        }
    }

    // Which part of the spatial result a tile's pixels are.
    enum Part { eComplex, ePairedReal, ePairedImaginary };

    // The part of a tile's core that it owns, converted into the band's
    // rows. A paired tile is one part of the result; its own imaginary part
    // (zero for a real symmetric gain) counts as 0.
    void writeCore(const TileSpan& band, const TileSpan& column, const kxFrequencyBuffer& spatial, Part part,
                   Out* rows) const
    {
        const double inverseScale = 1.0 / static_cast<double>(tileWidth_ * tileHeight_);
        const double scale = description_.resultScale();
        const long dx = margin_ - column.start, dy = margin_ - band.start;
        for (long y = band.writeStart; y < band.writeEnd; ++y) {
            Out* out = rows + (y - band.writeStart) * width_;
            for (long x = column.writeStart; x < column.writeEnd; ++x) {
                const kxPair<double> value = spatial.get(x + dx, y + dy, false);
                double re = (part == ePairedImaginary ? value.y() : value.x()) * inverseScale;
                double im = part == eComplex ? value.y() * inverseScale : 0.0;
                if (scale != 1.0) {
                    re *= scale;
                    im *= scale;
                }
                out[x] = outputSample<Out>(re, im, options_.output);
            }
        }
    }

    kxRowSource& source_;
    const kxFilterDescription& description_;
    kxRowSink& sink_;
    const kxTileOptions& options_;
    long width_, height_;
    long margin_ = 0, tileWidth_ = 0, tileHeight_ = 0;
    std::unique_ptr<kxFrequencyFilter> filter_;
    bool paired_ = false;
    std::vector<Buffers> buffers_;
};

template <typename S, typename Out>
kxTileReport filterAs(kxRowSource& source, const kxFilterDescription& filter, kxRowSink& sink,
                      const kxTileOptions& options)
{
    TiledFilter<S, Out> run(source, filter, sink, options);
    const long w = source.width(), h = source.height();
    if (kfPaddedSize(w) <= options.tile && kfPaddedSize(h) <= options.tile)
        return run.single();
    if (!filter.tileable())
        throw kxFrequencyDefs::InvalidArgument(
            ("A filter of one fixed size cannot be tiled: the image is " + std::to_string(w) + " x " +
             std::to_string(h) + ", larger than one tile of " + std::to_string(options.tile) +
             "; describe the filter by its parameters instead.")
                .c_str());
    return run.tiled(kfTileMargin(filter, sampleTypeOf<Out>(), options));
}

}  // namespace

namespace {

// A margin leaves a core of at least one pixel in the tile, or is refused
// with the largest that fits.
long fittingMargin(long margin, long tile)
{
    const long largest = tile / 2 - 1;
    if (margin > largest)
        throw kxFrequencyDefs::InvalidArgument(("A margin of " + std::to_string(margin) +
                                                " pixels leaves no room in a tile of " + std::to_string(tile) +
                                                ": at most " + std::to_string(largest) + " fits.")
                                                   .c_str());
    return margin;
}

}  // namespace

long kfTileMargin(const kxFilterDescription& filter, kxSampleType outputType, const kxTileOptions& options)
{
    checkTileSide(options.tile, "Tile");
    return fittingMargin(options.margin >= 0 ? options.margin : filter.margin(fullScaleOf(outputType)),
                         options.tile);
}

kxTileReport kfFilterTiled(kxRowSource& source, const kxFilterDescription& filter, kxRowSink& sink,
                           kxSampleType outputType, const kxTileOptions& options)
{
    checkTileSide(options.tile, "Tile");
    if (options.margin >= 0)   // the caller's margin must fit even where one transform will do
        fittingMargin(options.margin, options.tile);
    checkJobs(options.jobs);
    if (options.output != kxTileOptions::eReal && options.output != kxTileOptions::eSigned &&
        options.output != kxTileOptions::eMagnitude)
        throw kxFrequencyDefs::InvalidArgument("Unknown output.");
    checkSourceSize(source, 1);
    return withSampleType(source.type(), [&](auto* in) {
        using S = std::remove_pointer_t<decltype(in)>;
        return withSampleType(outputType, [&](auto* out) {
            return filterAs<S, std::remove_pointer_t<decltype(out)>>(source, filter, sink, options);
        });
    });
}

// ---------------------------------------------------------------------------
// In memory: the view read and written as rows.

namespace {

template <typename In, typename Out>
kxTileReport filterView(const kxImageView<const In>& image, const kxFilterDescription& filter,
                        const kxImageView<Out>& result, const kxTileOptions& options)
{
    if (!image.data || !result.data)
        throw kxFrequencyDefs::UnboundWindow();
    if (result.width != image.width || result.height != image.height)
        throw kxFrequencyDefs::InvalidSize("The result must have the image's size.");
    ViewSource<In> source(image);
    ViewSink<Out> sink(result);
    return kfFilterTiled(source, filter, sink, sampleTypeOf<Out>(), options);
}

}  // namespace

#define KX_TILED_WORKER(In, Out)                                                                             \
    kxTileReport kf_FilterTiled(const kxImageView<const In>& image, const kxFilterDescription& filter,      \
                                const kxImageView<Out>& result, const kxTileOptions& options)               \
    {                                                                                                        \
        return filterView(image, filter, result, options);                                                   \
    }
#define KX_TILED_WORKERS(In)             \
    KX_TILED_WORKER(In, unsigned char)   \
    KX_TILED_WORKER(In, unsigned short)  \
    KX_TILED_WORKER(In, float)           \
    KX_TILED_WORKER(In, double)
KX_TILED_WORKERS(unsigned char)
KX_TILED_WORKERS(unsigned short)
KX_TILED_WORKERS(float)
KX_TILED_WORKERS(double)
#undef KX_TILED_WORKERS
#undef KX_TILED_WORKER
