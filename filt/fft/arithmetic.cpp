// Element-wise arithmetic on spectra. Only the data change: the destination
// keeps its requested size, transform, offset and masked band. Sizes are
// compared by padded size only, so buffers from images of different sizes
// that pad alike combine element by element.
#include "fft/buffer_access.h"
#include "fft/checks.h"

#include <kx/fft.h>

namespace {

using Access = kx_FrequencyBufferAccess;
using namespace kxfreq_detail;

void needSameSize(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b, const char* message)
{
    kf_Require<kxFrequencyDefs::InvalidSize>(a.width() == b.width() && a.height() == b.height(), message);
}

// dst = op(dst, src) over every element of the padded store. src may be dst.
template <typename Op>
void combine(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst, Op op)
{
    const long count = Access::paddedWidth(dst) * Access::paddedHeight(dst);
    const float* s = Access::data(src);
    float* d = Access::data(dst);
    for (long i = 0; i < count; ++i, s += 2, d += 2) {
        const float sr = s[0], si = s[1];
        op(d[0], d[1], sr, si);
    }
}

void multiplyElements(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    combine(src, dst, [](float& dr, float& di, float sr, float si) {
        const float re = dr * sr - di * si;
        di = di * sr + dr * si;
        dr = re;
    });
}

void addElements(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    combine(src, dst, [](float& dr, float& di, float sr, float si) {
        dr += sr;
        di += si;
    });
}

void subtractElements(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    combine(src, dst, [](float& dr, float& di, float sr, float si) {
        dr -= sr;
        di -= si;
    });
}

// The operand checks in the order each form makes them: the data of two
// buffers, the inverse flags of two (the same ones, in a given order), then
// the size. The result forms check (a, b, a, b); the in-place add and
// subtract (dst, src, src, dst); the in-place multiply compares sizes before
// the flags and says so itself.
void checkOperands(const kxFrequencyBuffer& data1, const kxFrequencyBuffer& data2, const kxFrequencyBuffer& flag1,
                   const kxFrequencyBuffer& flag2, const char* sizeMessage)
{
    kf_RequireInitialized(data1);
    kf_RequireInitialized(data2);
    kf_RequireNotInverted(flag1);
    kf_RequireNotInverted(flag2);
    needSameSize(flag1, flag2, sizeMessage);
}

// result = a (op) b for a commutative op: when result is b, b takes a in
// place and keeps its own fields; otherwise result becomes a copy of a.
template <typename Elements>
void commutativeResult(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b, kxFrequencyBuffer& result,
                       Elements elements)
{
    if (&result == &b) {
        elements(a, result);
        return;
    }
    if (&result != &a)
        result = a;
    elements(b, result);
}

}  // namespace

void kfFrequencyMultiply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    kf_RequireInitialized(dst);
    kf_RequireInitialized(src);
    needSameSize(src, dst, kMultiplySize);
    kf_RequireNotInverted(src);
    kf_RequireNotInverted(dst);
    multiplyElements(src, dst);
}

void kfFrequencyAdd(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    checkOperands(dst, src, src, dst, kAddSize);
    addElements(src, dst);
}

void kfFrequencySubtract(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    checkOperands(dst, src, src, dst, kSubtractSize);
    subtractElements(src, dst);
}

void kfFrequencyMultiply(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b, kxFrequencyBuffer& result)
{
    checkOperands(a, b, a, b, kMultiplySize);
    commutativeResult(a, b, result, multiplyElements);
}

void kfFrequencyAdd(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b, kxFrequencyBuffer& result)
{
    checkOperands(a, b, a, b, kAddSize);
    commutativeResult(a, b, result, addElements);
}

// Always a - b with a's fields, also when result is b.
void kfFrequencySubtract(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b, kxFrequencyBuffer& result)
{
    kf_RequireInitialized(a);
    kf_RequireInitialized(b);
    needSameSize(a, b, kSubtractSize);
    kf_RequireNotInverted(a);
    kf_RequireNotInverted(b);
    if (&result == &b) {
        const kxFrequencyBuffer subtrahend = b;
        result = a;
        subtractElements(subtrahend, result);
        return;
    }
    if (&result != &a)
        result = a;
    subtractElements(b, result);
}

void kfFrequencyConjugate(kxFrequencyBuffer& buffer)
{
    kf_RequireInitialized(buffer);
    kf_RequireNotInverted(buffer);
    const long count = Access::paddedWidth(buffer) * Access::paddedHeight(buffer);
    float* d = Access::data(buffer);
    for (long i = 0; i < count; ++i)
        d[2 * i + 1] = -d[2 * i + 1];
}

void kfFrequencyConjugate(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    kf_RequireInitialized(src);
    kf_RequireNotInverted(src);
    if (&src != &dst)
        dst = src;
    kfFrequencyConjugate(dst);
}
