#include <kx/core/pel_buffer.h>

#include <limits>

namespace {

constexpr long kMaxCoordinate = 2147483647;

}  // namespace

kx_PelBuffer::kx_PelBuffer(long width, long height, long alignment, std::size_t pixelBytes)
{
    if (width < 0 || height < 0)
        throw Error("kxPelBuffer: width and height cannot be negative");
    if (width > kMaxCoordinate || height > kMaxCoordinate)
        throw Error("kxPelBuffer: image too large");
    if (alignment < 1 || alignment > 4096 || (alignment & (alignment - 1)) != 0)
        throw Error("kxPelBuffer: alignment must be a power of two from 1 to 4096");
    const std::size_t align = static_cast<std::size_t>(alignment);
    const std::size_t maxBytes = std::numeric_limits<std::size_t>::max() / 4;
    if (static_cast<std::size_t>(width) > maxBytes / pixelBytes)
        throw Error("kxPelBuffer: image too large");
    // Row length in bytes: a multiple of the alignment and of the pixel size.
    std::size_t rowBytes = static_cast<std::size_t>(width) * pixelBytes;
    rowBytes = (rowBytes + align - 1) / align * align;
    rowBytes = (rowBytes + pixelBytes - 1) / pixelBytes * pixelBytes;
    if (height != 0 && rowBytes > maxBytes / static_cast<std::size_t>(height))
        throw Error("kxPelBuffer: image too large");
    const std::size_t base = std::max(align, pixelBytes);
    storage_ = std::make_shared<std::vector<unsigned char>>(rowBytes * height + base, 0);
    std::uintptr_t address = reinterpret_cast<std::uintptr_t>(storage_->data());
    address = (address + base - 1) / base * base;
    first_ = reinterpret_cast<unsigned char*>(address);
    width_ = width;
    height_ = height;
    rowUpdate_ = static_cast<long>(rowBytes / pixelBytes);
}

void kx_PelBuffer::offset(const kxPair<long>& offset)
{
    auto inRange = [](long v) { return v >= -kMaxCoordinate - 1 && v <= kMaxCoordinate; };
    if (!inRange(offset.x()) || !inRange(offset.y()))
        throw Error("kxPelBuffer: offset outside -2^31 .. 2^31 - 1");
    offset_ = offset;
}

void kx_PelBuffer::throwIfUnbound() const
{
    if (!isBound())
        throw Error("kxPelBuffer: image is not bound");
}
