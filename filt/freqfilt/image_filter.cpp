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
    kf_RequireBufferData(getFrequencyBufferData(image));
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
    kf_RequireBufferData(getFrequencyBufferData(buffer));
    kf_RequireBufferData(getFrequencyBufferData(transfer_));
    if (buffer.width() != transfer_.width() || buffer.height() != transfer_.height())
        throw kxFrequencyDefs::InvalidSize(kf_SizeMismatch);
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
    kf_DispatchFilter(archive, this, sizeof(ImageFilter),
                      [&](unsigned char version) { ImageFilter::serialize_(archive, version); });
}

void ImageFilter::serialize_(kxArchive& archive, unsigned char version)
{
    if (version != 0)
        throw kxArchive::UnknownVersion("filt/freqfilt", 2853);
    kxFrequencyFilter::dispatchSerialize(archive);
    archive || transfer_;
}
