// Forward transforms: images (or a buffer holding spatial data) to spectra.
// A result buffer that already has the padded size keeps its store; a
// transform stopped part way leaves its result not initialized.
#include "fft/buffer_access.h"
#include "fft/checks.h"
#include "fft/engine/engine.h"
#include "fft/periodic_copy.h"

#include <kx/fft.h>
#include <kx/fft_threads.h>

namespace {

using Access = kx_FrequencyBufferAccess;

// The pixels a forward transform reads: the image itself at offset (0, 0),
// otherwise a zero-filled image of the padded size with the image's offset,
// into which the periodic copy lays the image's pixels at its top-left.
template <typename T>
kxPelBuffer_const<T> pixelsToRead(const kxPelBuffer_const<T>& image, long paddedWidth, long paddedHeight)
{
    if (image.offset() == kxPair<long>(0, 0))
        return image;
    kxPelBuffer<T> padded(paddedWidth, paddedHeight, 32);
    padded.offset(image.offset());
    kfPelSet<T>(padded, T(0));
    kf_PeriodicCopy<T>(image, padded, false);
    return padded;
}

// Sizes the result and records the image's transform and offset.
template <typename T>
void prepareResult(const kxPelBuffer_const<T>& image, kxFrequencyBuffer& result)
{
    Access::setAndAllocate(result, image.width(), image.height());
    Access::transform(result, image.xformCache());
    Access::offset(result, image.offset());
}

// One image: its pixels as the samples of the real-input engine.
template <typename T>
void forwardOne(const kxPelBuffer_const<T>& image, kxFrequencyBuffer& result, int threads)
{
    if (!image.isBound())
        throw kxFrequencyDefs::UnboundWindow();
    prepareResult(image, result);
    kf_ResetUnlessDone written(&result);
    const long W = Access::paddedWidth(result);
    const long H = Access::paddedHeight(result);
    const kxPelBuffer_const<T> read = pixelsToRead(image, W, H);
    kf_RealFFT2DFromPixels(kf_PixelRowsOf(read.pointToOffset(), read.rowUpdate(), read.width(), read.height()),
                           Access::data(result), kxPair<long>(W, H), threads);
    written.done();
}

// Two images: their pixels as the real and imaginary parts of the
// complex engine's samples.
template <typename T>
void forwardTwo(const kxPelBuffer_const<T>& real, const kxPelBuffer_const<T>& imag, kxFrequencyBuffer& result,
                int threads)
{
    if (!real.isBound() || !imag.isBound())
        throw kxFrequencyDefs::UnboundWindow();
    if (real.width() != imag.width() || real.height() != imag.height() || real.offset() != imag.offset())
        throw kxFrequencyDefs::InvalidSize("Real and Imaginary buffers must have the same size and offset.");
    prepareResult(real, result);
    kf_ResetUnlessDone written(&result);
    const long W = Access::paddedWidth(result);
    const long H = Access::paddedHeight(result);
    const kxPelBuffer_const<T> re = pixelsToRead(real, W, H);
    const kxPelBuffer_const<T> im = pixelsToRead(imag, W, H);
    kf_ComplexFFT2DFromPixels(kf_PixelRowsOf(re.pointToOffset(), re.rowUpdate(), re.width(), re.height()),
                              kf_PixelRowsOf(im.pointToOffset(), im.rowUpdate(), im.width(), im.height()),
                              Access::data(result), kxPair<long>(W, H), threads);
    written.done();
}

}  // namespace

void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& image, kxFrequencyBuffer& result)
{
    forwardOne(image, result, kf_CallingThreadOnly);
}

void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& image, kxFrequencyBuffer& result)
{
    forwardOne(image, result, kf_CallingThreadOnly);
}

void kf_ForwardFFT(const kxPelBuffer_const<double>& image, kxFrequencyBuffer& result)
{
    forwardOne(image, result, kf_CallingThreadOnly);
}

void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& real, const kxPelBuffer_const<unsigned char>& imag,
                   kxFrequencyBuffer& result)
{
    forwardTwo(real, imag, result, kf_CallingThreadOnly);
}

void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& real, const kxPelBuffer_const<unsigned short>& imag,
                   kxFrequencyBuffer& result)
{
    forwardTwo(real, imag, result, kf_CallingThreadOnly);
}

void kf_ForwardFFT(const kxPelBuffer_const<double>& real, const kxPelBuffer_const<double>& imag,
                   kxFrequencyBuffer& result)
{
    forwardTwo(real, imag, result, kf_CallingThreadOnly);
}

void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& image, kxFrequencyBuffer& result,
                   kxTransformThreads threads)
{
    forwardOne(image, result, threads.count);
}

void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& image, kxFrequencyBuffer& result,
                   kxTransformThreads threads)
{
    forwardOne(image, result, threads.count);
}

void kf_ForwardFFT(const kxPelBuffer_const<double>& image, kxFrequencyBuffer& result, kxTransformThreads threads)
{
    forwardOne(image, result, threads.count);
}

void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& real, const kxPelBuffer_const<unsigned char>& imag,
                   kxFrequencyBuffer& result, kxTransformThreads threads)
{
    forwardTwo(real, imag, result, threads.count);
}

void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& real, const kxPelBuffer_const<unsigned short>& imag,
                   kxFrequencyBuffer& result, kxTransformThreads threads)
{
    forwardTwo(real, imag, result, threads.count);
}

void kf_ForwardFFT(const kxPelBuffer_const<double>& real, const kxPelBuffer_const<double>& imag,
                   kxFrequencyBuffer& result, kxTransformThreads threads)
{
    forwardTwo(real, imag, result, threads.count);
}

void kfForwardFFT(const kxFrequencyBuffer& source, kxFrequencyBuffer& result)
{
    kxfreq_detail::kf_RequireInitialized(source);
    result = source;
    kf_ResetUnlessDone written(&result);
    Access::inverseComputed(result, false);
    Access::masked(result, 0);
    const long W = Access::paddedWidth(result);
    const long H = Access::paddedHeight(result);
    kf_ComplexFFT2D(Access::data(result), kxPair<long>(W, H), kf_Direction::Forward, kf_AllRows(H));
    written.done();
}
