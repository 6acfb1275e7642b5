#pragma once
// What the studio knows about its one image: the image, its spectrum, a
// reduced copy for previews, the spectrum picture and the periodic
// components found. Everything is computed once at start and only read
// afterwards, so requests on several threads share it; full-size work runs
// one request at a time (each holds several buffers of the padded size, and
// the machine's cores are better spent on one).
#include "filter_set.h"

#include "../commands.h"

#include <mutex>
#include <string>
#include <vector>

namespace kxstudio {

// The longest side of the preview image.
constexpr long kPreviewSide = 512;
// The longest side of an image or result sent to be looked at; larger ones
// are sent reduced (the exports keep the full size).
constexpr long kDisplaySide = 2048;
// The side of the tiles whose spectra are averaged (Welch) into the
// spectrum of an image too large for one transform.
constexpr long kWelchSegment = 1024;

class Session {
public:
    // Prepares everything for `image`, read from `path` (the name exports
    // use) or from the `region` of it; library errors are thrown as they come.
    Session(const std::string& path, const kxio::Region& region, kxio::GreyImage image);

    const std::string& path() const { return path_; }
    const kxio::Region& region() const { return region_; }
    const kxio::GreyImage& image() const { return image_; }
    // Whether the image is larger than one transform: its full-size result
    // is then filtered in tiles (see tiled_result.h), its spectrum is the
    // Welch spectrum and there is no padded size.
    bool tiled() const { return tiled_; }
    long paddedWidth() const { return tiled_ ? 0 : spectrum_.width(); }
    long paddedHeight() const { return tiled_ ? 0 : spectrum_.height(); }

    // The image filtered by the set: at full size exactly as 'kxfreq filter
    // --load' gives it with the archive of combined() (a tiled image: as
    // filterTiled gives it); with `preview` the reduced image filtered with
    // one combined filter. BadRequest for bad filters.
    kxio::GreyImage render(const FilterSet& filters, bool preview) const;
    // The one filter that does what the set does, for the full-size spectrum
    // (BadRequest for a tiled image: a filter of one size cannot be tiled).
    std::unique_ptr<kxFrequencyFilter> combined(const FilterSet& filters) const;
    // `image` as it is sent to be looked at: reduced if it is larger than
    // kDisplaySide.
    static kxio::GreyImage forDisplay(const kxio::GreyImage& image);

    // Encoded pictures, made at start: the image and the centred spectrum
    // (log magnitude, 8-bit, stretched from spectrumLow() to spectrumHigh()
    // in log10(1 + |F|)).
    const std::vector<unsigned char>& imagePng() const { return imagePng_; }
    const std::vector<unsigned char>& spectrumPng() const { return spectrumPng_; }
    // The page's facts: sizes, the spectrum's scale, the components found.
    const std::string& infoJson() const { return infoJson_; }

private:
    std::string path_;
    kxio::Region region_;
    kxio::GreyImage image_;
    bool tiled_ = false;
    kxFrequencyBuffer spectrum_;   // empty when tiled
    long previewFactor_ = 1;
    kxio::GreyImage preview_;
    kxFrequencyBuffer previewSpectrum_;
    std::vector<unsigned char> imagePng_, spectrumPng_;
    std::string infoJson_;
    mutable std::mutex fullSize_;
};

}  // namespace kxstudio
