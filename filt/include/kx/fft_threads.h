#pragma once
// kxfreq: transforms that share one call's work among several threads.
//
// The transforms of <kx/fft.h> run on the calling thread alone. These
// overloads take, in addition, the number of threads one call may use:
// the calling thread and helpers started for the call and ended before it
// returns. Results are bit for bit those of the single-threaded forms,
// whatever the count. kxAttention::check() is polled on the calling thread;
// a stop there (a request, or anything else that throws) stops the helpers
// too, and the call then leaves its results as the single-threaded forms
// do. Small transforms use fewer threads than allowed: a helper is worth
// starting only for a few tens of thousands of elements.
#include <kx/fft.h>

// The threads one transform may use, the calling thread included; counts
// below 1 mean 1.
struct kxTransformThreads {
    // At most `threadCount` threads.
    explicit kxTransformThreads(int threadCount) : count(threadCount) {}
    // The number of threads allowed.
    int count;
};

// Non-template workers behind the templates below.
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& image, kxFrequencyBuffer& result,
                              kxTransformThreads threads);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& image, kxFrequencyBuffer& result,
                              kxTransformThreads threads);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<double>& image, kxFrequencyBuffer& result,
                              kxTransformThreads threads);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& realImage,
                              const kxPelBuffer_const<unsigned char>& imagImage, kxFrequencyBuffer& result,
                              kxTransformThreads threads);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& realImage,
                              const kxPelBuffer_const<unsigned short>& imagImage, kxFrequencyBuffer& result,
                              kxTransformThreads threads);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<double>& realImage, const kxPelBuffer_const<double>& imagImage,
                              kxFrequencyBuffer& result, kxTransformThreads threads);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image, bool scale,
                              bool inPlace, kxTransformThreads threads);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image, bool scale,
                              bool inPlace, kxTransformThreads threads);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, bool scale, bool inPlace,
                              kxTransformThreads threads);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image, bool scale,
                              kxTransformThreads threads);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image, bool scale,
                              kxTransformThreads threads);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, bool scale,
                              kxTransformThreads threads);

// kfForwardFFT of one real image (T = unsigned char, unsigned short or
// double), on up to `threads` threads.
template <typename T>
void kfForwardFFT(const kxPelBuffer_const<T>& image, kxFrequencyBuffer& result, kxTransformThreads threads)
{
    kf_ForwardFFT(image, result, threads);
}

// kfForwardFFT of a real and an imaginary image, on up to `threads` threads.
template <typename T>
void kfForwardFFT(const kxPelBuffer_const<T>& realImage, const kxPelBuffer_const<T>& imagImage,
                  kxFrequencyBuffer& result, kxTransformThreads threads)
{
    kf_ForwardFFT(realImage, imagImage, result, threads);
}

// kfInverseFFT to a magnitude image, on up to `threads` threads.
template <typename T>
void kfInverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, bool scale, bool inPlace,
                  kxTransformThreads threads)
{
    kf_InverseFFT(buffer, image, scale, inPlace, threads);
}

// The same, reading the buffer only.
template <typename T>
void kfInverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, bool scale, kxTransformThreads threads)
{
    kf_InverseFFT(buffer, image, scale, threads);
}
