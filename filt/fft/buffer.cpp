#include "fft/buffer_access.h"
#include "fft/checks.h"
#include "fft/frequency_index.h"
#include "fft/stores.h"

#include <kx/fft.h>

#include <cstdint>
#include <cstring>

using namespace kxfreq_detail;

void kf_ClearPadding(long requestedWidth, long requestedHeight, long paddedWidth, long paddedHeight,
                     float* data)
{
    kxAttention::check();
    const long rowFloats = 2 * paddedWidth;
    for (long y = 0; y < requestedHeight; ++y) {
        float* row = data + y * rowFloats;
        for (long f = 2 * requestedWidth; f < rowFloats; ++f)
            row[f] = 0.0f;
    }
    for (long y = requestedHeight; y < paddedHeight; ++y)
        std::memset(data + y * rowFloats, 0, sizeof(float) * rowFloats);
}

kxFrequencyBuffer::kxFrequencyBuffer() = default;

kxFrequencyBuffer::kxFrequencyBuffer(long width, long height)
{
    setAndAllocate(width, height);
    // A recycled store holds old floats; this constructor promises zeros.
    std::memset(data_, 0, sizeof(float) * 2 * paddedWidth_ * paddedHeight_);
    // transform_ and offset_ start as the identity and (0, 0).
}

kxFrequencyBuffer::kxFrequencyBuffer(const kxFrequencyBuffer& src) { *this = src; }

kxFrequencyBuffer::kxFrequencyBuffer(const kxFrequencyBuffer& src, long width, long height)
{
    using Size = kxFrequencyDefs::InvalidSize;
    kf_Require<Size>(width >= 2, kCopiedWidthTooSmall);
    kf_Require<Size>(height >= 2, kCopiedHeightTooSmall);
    kf_Require<Size>(width <= src.width(), kCopiedWidthTooLarge);
    kf_Require<Size>(height <= src.height(), kCopiedHeightTooLarge);
    kf_Require<Size>(kf_IsPowerOfTwo(width), kUnsupportedWidth);
    kf_Require<Size>(kf_IsPowerOfTwo(height), kUnsupportedHeight);

    setAndAllocate(width, height);
    inverseComputed_ = src.inverseComputed_;
    const double scaleX = static_cast<double>(width) / static_cast<double>(src.paddedWidth_);
    const double scaleY = static_cast<double>(height) / static_cast<double>(src.paddedHeight_);
    requestedWidth_ = static_cast<long>(src.requestedWidth_ * scaleX);
    requestedHeight_ = static_cast<long>(src.requestedHeight_ * scaleY);
    if (src.transform_.isLinear()) {
        const kxXform<2> scale(kxMatrix<2>(kxRadian(0), kxRadian(0), scaleX, scaleY), kxVector<2>(0, 0));
        transform_.xform(kx2XformLinear(src.transform_.linearXform() * scale));
    } else {
        transform_ = src.transform_;
    }
    offset_ = src.offset_;

    // Keep frequencies -width/2 .. width/2 - 1 on each axis, each at its own
    // unshifted place: the first hh rows and the last hh rows of the source,
    // and in each of them the first hw and the last hw columns.
    //
    //   source                       destination
    //   +----+------------+----+     +----+----+
    //   | A  |            | B  |     | A  | B  |
    //   +----+            +----+     +----+----+
    //   |                      |     | C  | D  |
    //   +----+            +----+     +----+----+
    //   | C  |            | D  |
    //   +----+------------+----+
    const long hw = width / 2;
    const long hh = height / 2;
    float* out = data_;
    auto copyRow = [&](long sourceRow) {
        const float* row = src.data_ + 2 * sourceRow * src.paddedWidth_;
        std::memcpy(out, row, sizeof(float) * 2 * hw);
        std::memcpy(out + 2 * hw, row + 2 * (src.paddedWidth_ - hw), sizeof(float) * 2 * hw);
        out += 2 * width;
    };
    for (long y = 0; y < hh; ++y)
        copyRow(y);
    for (long y = src.paddedHeight_ - hh; y < src.paddedHeight_; ++y)
        copyRow(y);
}

kxFrequencyBuffer::kxFrequencyBuffer(const kxPelBuffer_const<double>& real,
                                     const kxPelBuffer_const<double>& imaginary)
{
    kf_RequireBound(real);
    kf_RequireBound(imaginary);
    kf_Require<kxFrequencyDefs::InvalidSize>(real.height() == imaginary.height() && real.width() == imaginary.width() &&
                                                 real.offset() == imaginary.offset(),
                                             kPartsDiffer);
    setAndAllocate(real.width(), real.height());
    transform_ = real.xformCache();
    offset_ = real.offset();
    const double* re = real.pointToOffset();
    const double* im = imaginary.pointToOffset();
    for (long y = 0; y < requestedHeight_; ++y, re += real.rowUpdate(), im += imaginary.rowUpdate()) {
        float* row = data_ + 2 * y * paddedWidth_;
        for (long x = 0; x < requestedWidth_; ++x) {
            row[2 * x] = static_cast<float>(re[x]);
            row[2 * x + 1] = static_cast<float>(im[x]);
        }
    }
    kf_ClearPadding(requestedWidth_, requestedHeight_, paddedWidth_, paddedHeight_, data_);
}

kxFrequencyBuffer::~kxFrequencyBuffer() { kf_ReleaseStore(store_); }

void kxFrequencyBuffer::setAndAllocate(long width, long height)
{
    kf_Require<kxFrequencyDefs::InvalidSize>(width <= kfMaxTransformSide && height <= kfMaxTransformSide,
                                             kSizeTooLarge);
    allocateGrid(kf_PaddedSize(width), kf_PaddedSize(height));
    requestedWidth_ = width;
    requestedHeight_ = height;
}

// Gives the buffer a store for a padded grid and clears its flags. The store
// is sized before any field changes, so a failed allocation leaves the buffer
// as it was.
void kxFrequencyBuffer::allocateGrid(long paddedWidth, long paddedHeight)
{
    if (!data_ || paddedWidth != paddedWidth_ || paddedHeight != paddedHeight_) {
        // A store of the same size is kept (with its address); otherwise a
        // recycled or fresh one is taken. Its floats are not cleared: every
        // caller writes the whole grid, or clears it.
        kf_TakeStore(store_, kf_StoreFloats(paddedWidth, paddedHeight));
        pointAtStore();
    }
    paddedWidth_ = paddedWidth;
    paddedHeight_ = paddedHeight;
    masked_ = 0;
    inverseComputed_ = false;
}

// The data start at the store's first float rounded up to a cache line;
// the store's spare floats leave room for that rounding.
void kxFrequencyBuffer::pointAtStore() { data_ = kf_AlignedStart(store_); }

kxFrequencyBuffer& kxFrequencyBuffer::operator=(const kxFrequencyBuffer& src)
{
    if (this == &src)
        return *this;
    if (!src.data_) {
        masked_ = 0;
        data_ = nullptr;
        return *this;
    }
    // The grid is copied, not derived again from the requested size: a
    // crop-copy's requested size rounds up to less than its grid (513 x 513
    // reduced to 256 x 256 asks for 128 x 128), and a loaded buffer may be
    // larger than a transform makes.
    allocateGrid(src.paddedWidth_, src.paddedHeight_);
    requestedWidth_ = src.requestedWidth_;
    requestedHeight_ = src.requestedHeight_;
    transform_ = src.transform_;
    offset_ = src.offset_;
    inverseComputed_ = src.inverseComputed_;
    masked_ = src.masked_;
    maskedMiny_ = src.maskedMiny_;
    maskedMaxy_ = src.maskedMaxy_;
    std::memcpy(data_, src.data_, sizeof(float) * 2 * paddedWidth_ * paddedHeight_);
    return *this;
}

bool kxFrequencyBuffer::operator==(const kxFrequencyBuffer& other) const
{
    if (!data_ || !other.data_)
        return !data_ && !other.data_;
    if (paddedWidth_ != other.paddedWidth_ || paddedHeight_ != other.paddedHeight_ ||
        requestedWidth_ != other.requestedWidth_ || requestedHeight_ != other.requestedHeight_ ||
        inverseComputed_ != other.inverseComputed_ || masked_ != other.masked_)
        return false;
    if (masked_ != 0 && (maskedMiny_ != other.maskedMiny_ || maskedMaxy_ != other.maskedMaxy_))
        return false;
    if (offset_ != other.offset_)
        return false;
    const long count = 2 * paddedWidth_ * paddedHeight_;
    for (long i = 0; i < count; ++i)
        if (data_[i] < other.data_[i] || data_[i] > other.data_[i])
            return false;
    return true;
}

long kxFrequencyBuffer::width() const
{
    kf_RequireInitialized(*this);
    return paddedWidth_;
}

long kxFrequencyBuffer::height() const
{
    kf_RequireInitialized(*this);
    return paddedHeight_;
}

long kxFrequencyBuffer::elementIndex(long x, long y, bool centered) const
{
    kf_RequireFrequencyData(*this);
    bool inside;
    if (centered) {
        inside = kf_IsAxisFrequency(x, paddedWidth_) && kf_IsAxisFrequency(y, paddedHeight_);
        x = kf_StorageIndex(x, paddedWidth_);
        y = kf_StorageIndex(y, paddedHeight_);
    } else {
        inside = x >= 0 && x < paddedWidth_ && y >= 0 && y < paddedHeight_;
    }
    kf_Require<kxFrequencyDefs::BadCoord>(inside, kCoordinatesOutOfBounds);
    return 2 * (y * paddedWidth_ + x);
}

kxPair<double> kxFrequencyBuffer::get(long x, long y, bool centered) const
{
    const float* e = data_ + elementIndex(x, y, centered);
    return kxPair<double>(e[0], e[1]);
}

double kxFrequencyBuffer::getReal(long x, long y, bool centered) const
{
    return data_[elementIndex(x, y, centered)];
}

double kxFrequencyBuffer::getImaginary(long x, long y, bool centered) const
{
    return data_[elementIndex(x, y, centered) + 1];
}

void kxFrequencyBuffer::put(long x, long y, kxPair<double> value, bool centered)
{
    float* e = data_ + elementIndex(x, y, centered);
    e[0] = static_cast<float>(value.x());
    e[1] = static_cast<float>(value.y());
}

void kxFrequencyBuffer::putReal(long x, long y, double value, bool centered)
{
    data_[elementIndex(x, y, centered)] = static_cast<float>(value);
}

void kxFrequencyBuffer::putImaginary(long x, long y, double value, bool centered)
{
    data_[elementIndex(x, y, centered) + 1] = static_cast<float>(value);
}

// Both element views, from the one store; data_ is a float* whichever view
// asks for it.
template <typename Float>
kxFrequencyBuffer::ElementView<Float> kxFrequencyBuffer::elementView() const
{
    ElementView<Float> v;
    if (!data_)
        return v;
    v.data = data_;
    v.width = paddedWidth_;
    v.height = paddedHeight_;
    v.rowStride = 2 * paddedWidth_;
    v.requestedWidth = requestedWidth_;
    v.requestedHeight = requestedHeight_;
    v.inverseComputed = inverseComputed_;
    v.masked = masked_ != 0;
    if (v.masked) {
        v.bandFirst = maskedMiny_;
        v.bandLast = maskedMaxy_;
    }
    return v;
}

kxFrequencyBuffer::ElementView<float> kxFrequencyBuffer::elements() { return elementView<float>(); }

kxFrequencyBuffer::ElementView<const float> kxFrequencyBuffer::elements() const
{
    return elementView<const float>();
}

long kfPaddedSize(long side) { return kf_PaddedSize(side); }
