#pragma once
#include <kx/core/exception.h>
#include <kx/core/export.h>
#include <kx/core/pair.h>
#include <kx/core/xform_cache.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

// Pel buffers: grey images as windows onto reference-counted pixel storage.
//
// Copying or assigning a pel buffer shares its pixels; each object keeps its
// own offset (the position of its first pixel in the client image plane) and
// its own client-coordinate transform. Rows start on multiples of the
// alignment given at construction, so rowUpdate() (the distance from one row
// to the next, in pixels) may exceed width().
//
//   kx_PelBuffer               untyped part: size, stride, offset, transform
//   kxPelBuffer_const<T>       read-only view of T pixels
//   kxPelBuffer<T>             writable image; converts to the read-only view
class KXCORE_API kx_PelBuffer {
public:
    // An error of the pel buffers themselves (bad size, unbound image, ...).
    class KXCORE_API Error : public kxExceptionWithString {
    public:
        // With its message.
        explicit Error(const char* message) : kxExceptionWithString(message) {}
    };

    // Whether the image has pixels; its size; the row stride in pixels; its
    // offset in the client plane, read and written.
    bool isBound() const { return static_cast<bool>(storage_); }
    long width() const { return width_; }
    long height() const { return height_; }
    long rowUpdate() const { return rowUpdate_; }
    kxPair<long> offset() const { return offset_; }
    // Offsets are client positions in -2^31 .. 2^31 - 1 (the archive's
    // range), so that offset plus size can never overflow; others throw
    // Error.
    void offset(const kxPair<long>& offset);

    // The client-coordinate transform, read and written, and copied from
    // another image.
    const kx2XformCache& xformCache() const { return xforms_; }
    kx2XformCache& xformCache() { return xforms_; }
    void copyXforms(const kx_PelBuffer& other) { xforms_ = other.xforms_; }

    // True when both share the same pixel storage.
    bool sharesPixels(const kx_PelBuffer& other) const { return storage_ && storage_ == other.storage_; }

protected:
    kx_PelBuffer() = default;
    // New zero pixels. alignment: row alignment in bytes, a power of two from
    // 1 to 4096. Throws Error for a negative size, a side above 2^31 - 1 or a
    // bad alignment.
    kx_PelBuffer(long width, long height, long alignment, std::size_t pixelBytes);

    unsigned char* firstPixelBytes() const { return first_; }
    void throwIfUnbound() const;

private:
    std::shared_ptr<std::vector<unsigned char>> storage_;
    unsigned char* first_ = nullptr;
    long width_ = 0;
    long height_ = 0;
    long rowUpdate_ = 0;
    kxPair<long> offset_;
    kx2XformCache xforms_;
};

// A read-only image of T pixels (unsigned char, unsigned short, double).
template <typename T>
class kxPelBuffer_const : public kx_PelBuffer {
public:
    // An unbound image.
    kxPelBuffer_const() = default;

    // Pointer to the first pixel of the window (null when unbound).
    const T* pointToOffset() const { return reinterpret_cast<const T*>(firstPixelBytes()); }

    // Pixel (x, y) of the window, (0, 0) being its first pixel. Unchecked.
    T operator()(long x, long y) const { return pointToOffset()[y * rowUpdate() + x]; }
    // The same, checked: throws kx_PelBuffer::Error outside the window.
    T at(long x, long y) const { return pointToOffset()[checkedIndex(x, y)]; }

protected:
    kxPelBuffer_const(long width, long height, long alignment)
        : kx_PelBuffer(width, height, alignment, sizeof(T))
    {
    }
    long checkedIndex(long x, long y) const
    {
        throwIfUnbound();
        if (x < 0 || y < 0 || x >= width() || y >= height())
            throw Error("kxPelBuffer: pixel coordinates outside the image");
        return y * rowUpdate() + x;
    }
};

// A writable image of T pixels; it converts to kxPelBuffer_const<T>.
template <typename T>
class kxPelBuffer : public kxPelBuffer_const<T> {
public:
    // An unbound image.
    kxPelBuffer() = default;
    // A new image of zero pixels; alignment as in kx_PelBuffer.
    kxPelBuffer(long width, long height, long alignment = 32)
        : kxPelBuffer_const<T>(width, height, alignment)
    {
    }

    // As in kxPelBuffer_const, writable: the first pixel, pixel (x, y)
    // unchecked, and checked.
    T* pointToOffset() const { return reinterpret_cast<T*>(this->firstPixelBytes()); }
    T& operator()(long x, long y) const { return pointToOffset()[y * this->rowUpdate() + x]; }
    T& at(long x, long y) const { return pointToOffset()[this->checkedIndex(x, y)]; }
};

// Sets every pixel of the window to `value`.
template <typename T>
void kfPelSet(const kxPelBuffer<T>& image, T value)
{
    if (!image.isBound())
        throw kx_PelBuffer::Error("kfPelSet: image is not bound");
    T* row = image.pointToOffset();
    for (long y = 0; y < image.height(); ++y, row += image.rowUpdate())
        std::fill(row, row + image.width(), value);
}

// Copies the pixels where the two windows, each placed at its offset, cover
// the same client position; no other destination pixel changes.
template <typename T>
void kfPelCopy(const kxPelBuffer_const<T>& src, const kxPelBuffer<T>& dst)
{
    if (!src.isBound() || !dst.isBound())
        throw kx_PelBuffer::Error("kfPelCopy: image is not bound");
    const long x0 = std::max(src.offset().x(), dst.offset().x());
    const long y0 = std::max(src.offset().y(), dst.offset().y());
    const long x1 = std::min(src.offset().x() + src.width(), dst.offset().x() + dst.width());
    const long y1 = std::min(src.offset().y() + src.height(), dst.offset().y() + dst.height());
    if (x0 >= x1 || y0 >= y1)
        return;
    const long columns = x1 - x0;
    // Windows onto the same pixels may overlap in memory: go through a copy.
    std::vector<T> staged;
    const T* from = src.pointToOffset() + (y0 - src.offset().y()) * src.rowUpdate() +
                    (x0 - src.offset().x());
    long fromStride = src.rowUpdate();
    if (src.sharesPixels(dst)) {
        staged.resize(static_cast<std::size_t>(columns) * static_cast<std::size_t>(y1 - y0));
        for (long y = 0; y < y1 - y0; ++y)
            std::copy(from + y * fromStride, from + y * fromStride + columns, staged.data() + y * columns);
        from = staged.data();
        fromStride = columns;
    }
    T* to = dst.pointToOffset() + (y0 - dst.offset().y()) * dst.rowUpdate() + (x0 - dst.offset().x());
    for (long y = y0; y < y1; ++y, from += fromStride, to += dst.rowUpdate())
        std::copy(from, from + columns, to);
}
