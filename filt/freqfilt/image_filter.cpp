#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

#include <new>

using ImageFilter = kxFrequencyFilterImage;

kx_Instantiator ImageFilter::sExemplar(typeid(ImageFilter), &ImageFilter::make);

kxPersistent* ImageFilter::make() { return new (std::nothrow) ImageFilter(); }

ImageFilter::kxFrequencyFilterImage() = default;

ImageFilter::kxFrequencyFilterImage(const kxFrequencyBuffer& image) { create(image); }

ImageFilter::kxFrequencyFilterImage(const ImageFilter& other) : kxPersistent(), kxRepBase(), kxFrequencyFilter()
{
    *this = other;
}

ImageFilter& ImageFilter::operator=(const ImageFilter& other)
{
    kxFrequencyFilter::operator=(other);
    transfer_ = other.transfer_;
    return *this;
}

ImageFilter::~kxFrequencyFilterImage() = default;

bool ImageFilter::operator==(const ImageFilter& other) const
{
    return isInitialized() == other.isInitialized() && transfer_ == other.transfer_;
}

kxFrequencyFilter* ImageFilter::clone() const { return new (std::nothrow) ImageFilter(*this); }

void ImageFilter::create(const kxFrequencyBuffer& image)
{
    kxfreq_detail::kf_RequireInitialized(image);
    mutating();
    transfer_ = image;
    setInitialized(true);
}

void ImageFilter::setImage(const kxFrequencyBuffer& image) { create(image); }

long ImageFilter::supportWidth() const { return transfer_.width(); }
long ImageFilter::supportHeight() const { return transfer_.height(); }

// An empty filter reports the buffer message, not the filter one: its
// transfer function is a buffer without data. Long-standing, kept.
void ImageFilter::checkApplicable(const kxFrequencyBuffer& buffer) const
{
    kxfreq_detail::kf_RequireInitialized(buffer);
    kxfreq_detail::kf_RequireInitialized(transfer_);
    kxfreq_detail::kf_RequireFilterSize(buffer, kxPair<long>(transfer_.width(), transfer_.height()));
}

void ImageFilter::apply(kxFrequencyBuffer& buffer) const
{
    checkApplicable(buffer);
    kfFrequencyMultiply(transfer_, buffer);
    maskFrequencyBuffer(buffer, false, 0, 0);
}

void ImageFilter::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const
{
    checkApplicable(src);
    dst = src;
    kfFrequencyMultiply(transfer_, dst);
    maskFrequencyBuffer(dst, false, 0, 0);
}

void ImageFilter::dispatchSerialize(kxArchive& archive)
{
    kfStreamVersioned(archive, this, sizeof(ImageFilter),
                      [&](unsigned char version) { ImageFilter::serialize_(archive, version); });
}

void ImageFilter::serialize_(kxArchive& archive, unsigned char version)
{
    kxfreq_detail::kf_RequireFilterVersion(version, 2853);
    loadAllOrNothing(archive, [&] {
        kxFrequencyFilter::dispatchSerialize(archive);
        archive || transfer_;
    });
}
