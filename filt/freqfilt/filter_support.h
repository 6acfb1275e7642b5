#pragma once
// Internal: checks and helpers shared by the filters.
#include <kx/freqfilt.h>

#include <cstdint>
#include <vector>

extern const char* const kf_BufferNotInitialized;   // "FrequencyBuffer has not been initialized"
extern const char* const kf_FilterNotInitialized;   // "FrequencyFilter has not been initialized"
extern const char* const kf_SizeMismatch;           // "Size of frequency buffer does not match size of filter."

void kf_RequireBufferData(const float* data);
void kf_RequireTransferFunction(const void* table);
// The buffer's padded width against size.x, then its height against size.y.
void kf_RequireFilterSize(const kxFrequencyBuffer& buffer, const kxPair<long>& size);

// The library's power-of-two test for filter sizes ("Size must be a power of
// 2."), x first.
void kf_RequirePowerOfTwoSize(const kxPair<long>& size);

// Resizes `store` to `count` + `spare` floats and returns its first 16-byte
// aligned address.
float* kf_AlignedTable(std::vector<float>& store, std::size_t count, std::size_t spare);

// The square of frequencies -(radius - 1) .. radius - 1 on both axes around
// the zero frequency, row by row (y outer, x inner), in centred addressing.
// Coordinates outside the buffer make the buffer throw BadCoord.
void kf_ClearDcSquare(kxFrequencyBuffer& buffer, long radius);
std::vector<kxPair<double>> kf_SaveDcSquare(const kxFrequencyBuffer& buffer, long radius);
void kf_RestoreDcSquare(kxFrequencyBuffer& buffer, long radius, const std::vector<kxPair<double>>& saved);

// Loading a gain table: the rule of the filters (empty without a table;
// otherwise the larger of the expected and the loaded count, plus 3 spare
// floats, zero-filled, the loaded gains at the start). An archive is
// untrusted: a table smaller than `expected` gains, or an expected count of
// zero, is refused with kxArchive::Error before anything is sized.
float* kf_LoadTable(std::vector<float>& store, bool hasTable, unsigned long expected,
                    const std::vector<float>& loaded);

// Streams the versioned dispatch of one filter class: the visited check,
// the version byte, then `serialize(version)`, then the visited mark.
template <typename Serialize>
void kf_DispatchFilter(kxArchive& archive, const void* object, std::size_t key, Serialize serialize)
{
    if (kxPersistent::haveVisited(archive, object, key))
        return;
    unsigned char version = 0;
    archive || version;
    serialize(version);
    kxPersistent::setVisited(archive, object, key);
}

// How the setters compare a new value with the stored one: pairs, angles and
// integers by inequality, doubles by a less-or-greater test (so a NaN never
// counts as a change).
template <typename T>
bool kf_Differs(const T& a, const T& b)
{
    return a != b;
}
inline bool kf_Differs(double a, double b) { return a < b || a > b; }
inline bool kf_Differs(float a, float b) { return a < b || a > b; }

// What the filters do to one element (a (real, imaginary) float pair) as they
// walk a buffer: scale it by a gain, clear it, or copy it.
inline void kf_ScaleElement(const float* src, float* dst, float gain)
{
    dst[0] = src[0] * gain;
    dst[1] = src[1] * gain;
}
inline void kf_ClearElement(const float*, float* dst)
{
    dst[0] = 0.0f;
    dst[1] = 0.0f;
}
inline void kf_CopyElement(const float* src, float* dst)
{
    dst[0] = src[0];
    dst[1] = src[1];
}
