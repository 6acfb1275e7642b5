#pragma once
// Internal: what the filters share besides the filter base and the gain
// table: the square around the zero frequency, persistence and the per-element
// operations of their walks.
#include "fft/checks.h"

#include <kx/freqfilt.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

namespace kxfreq_detail {

// The square of frequencies -(radius - 1) .. radius - 1 on both axes around
// the zero frequency, row by row (y outer, x inner), in centred addressing.
// Callers check it against the buffer first (kf_RequireDcSquareInside).
void kf_ClearDcSquare(kxFrequencyBuffer& buffer, long radius);
std::vector<kxPair<double>> kf_SaveDcSquare(const kxFrequencyBuffer& buffer, long radius);
void kf_RestoreDcSquare(kxFrequencyBuffer& buffer, long radius, const std::vector<kxPair<double>>& saved);

// Refuses a load with kxArchive::Error naming what is wrong.
[[noreturn]] void kf_RefuseLoad(const std::string& why);

// Runs a filter's parameter checks on values read from an archive: a
// library error becomes kxArchive::Error with the library's message.
template <typename Check>
auto kf_CheckLoaded(Check check) -> decltype(check())
{
    try {
        return check();
    } catch (const kxFrequencyDefs::Errors& e) {
        kf_RefuseLoad(std::string("stored parameters are not valid: ") + e.what());
    }
}

// Every filter class checks its version byte the same way.
void kf_RequireFilterVersion(unsigned char version, long line);

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

// A setter's step: stores `value` and tells whether it differs from the
// value it replaces.
template <typename T>
bool kf_Assign(T& field, const T& value)
{
    const bool differs = kf_Differs(value, field);
    field = value;
    return differs;
}

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

// The filters' long loops poll for cancellation every 16 rows, like the
// engine's passes.
inline void kf_PollEvery16(long row)
{
    if (row % 16 == 0)
        kxAttention::check();
}

}  // namespace kxfreq_detail

// The members every concrete filter class defines the same way: factory,
// copy, comparison, the DC radius under the class's own name, and the
// versioned persistence around the body's fields (all or nothing on load).
#define KX_DEFINE_FILTER_CLASS(Class, Body, Role, Radius)                                          \
    kx_Instantiator Class::sExemplar(typeid(Class), &Class::make);                                \
    kxPersistent* Class::make() { return new (std::nothrow) Class(); }                            \
    Class::Class() : Body(Role) {}                                                                \
    Class::Class(const Class& other) : kxPersistent(), kxRepBase(), Body(other) {}                \
    Class& Class::operator=(const Class& other)                                                   \
    {                                                                                             \
        Body::operator=(other);                                                                   \
        return *this;                                                                             \
    }                                                                                             \
    Class::~Class() = default;                                                                    \
    kxFrequencyFilter* Class::clone() const { return new Class(*this); }                          \
    bool Class::operator==(const Class& other) const { return equals(other); }                    \
    void Class::Radius(long value) { dcRadius(value); }                                           \
    long Class::Radius() const { return dcRadius(); }                                             \
    void Class::dispatchSerialize(kxArchive& archive)                                             \
    {                                                                                             \
        kfStreamVersioned(archive, this, sizeof(Class), [&](unsigned char version) { serialize_(archive, version); }); \
    }                                                                                             \
    void Class::serialize_(kxArchive& archive, unsigned char version)                             \
    {                                                                                             \
        kxfreq_detail::kf_RequireFilterVersion(version, __LINE__);                                \
        loadAllOrNothing(archive, [&] {                                                           \
            kxFrequencyFilter::dispatchSerialize(archive);                                        \
            streamFields(archive);                                                                \
        });                                                                                       \
    }
