// The engine's variants, best first, and the choice among them.
#include "fft/engine/variants.h"
#include "freqfilt/ring_row.h"

#include <cstring>

namespace {

#ifdef KF_ENGINE_X86
bool hasAvx512() { return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq"); }
bool hasAvx2() { return __builtin_cpu_supports("avx2"); }
bool hasSse2() { return __builtin_cpu_supports("sse2"); }
#endif
bool always() { return true; }

const kf_EngineVariant kVariants[] = {
#ifdef KF_ENGINE_X86
    {"avx512", hasAvx512, kf_Avx512Widths, kf_Avx512Magnitudes8, kf_Avx512Magnitudes16, kf_Avx512MagnitudesDouble,
     kf_Avx512RingRow},
    {"avx2", hasAvx2, kf_Avx2Widths, nullptr, nullptr, kf_Avx2MagnitudesDouble, kf_Avx2RingRow},
    {"sse2", hasSse2, kf_Sse2Widths, nullptr, nullptr, nullptr, nullptr},
#endif
    {"scalar", always, nullptr, nullptr, nullptr, nullptr, nullptr},
};

const kf_EngineVariant& bestUsable()
{
#ifdef KF_ENGINE_X86
    __builtin_cpu_init();
#endif
    for (const kf_EngineVariant& v : kVariants)
        if (v.usable())
            return v;
    return kVariants[sizeof kVariants / sizeof kVariants[0] - 1];
}

// Set by tests only, per thread.
thread_local const kf_EngineVariant* forced = nullptr;

}  // namespace

const kf_EngineVariant* kf_EngineVariants(int& count)
{
    count = static_cast<int>(sizeof kVariants / sizeof kVariants[0]);
    return kVariants;
}

const kf_EngineVariant& kf_ActiveEngineVariant()
{
    if (forced)
        return *forced;
    static const kf_EngineVariant& best = bestUsable();
    return best;
}

bool kf_ForceEngineVariant(const char* name)
{
    if (!name) {
        forced = nullptr;
        return true;
    }
    for (const kf_EngineVariant& v : kVariants)
        if (std::strcmp(v.name, name) == 0 && v.usable()) {
            forced = &v;
            return true;
        }
    return false;
}
