#pragma once
// Shared helpers of the tests that force the engine's variants.
#include "fft/engine/variants.h"
#include "reference_dft.h"

#include <cstddef>
#include <vector>

namespace kxtest {

// Runs the rest of the scope with the named variant, then returns to the
// automatic choice.
class ForcedVariant {
public:
    explicit ForcedVariant(const char* name) : ok_(kf_ForceEngineVariant(name)) {}
    ~ForcedVariant() { kf_ForceEngineVariant(nullptr); }
    ForcedVariant(const ForcedVariant&) = delete;
    ForcedVariant& operator=(const ForcedVariant&) = delete;
    bool ok() const { return ok_; }

private:
    bool ok_;
};

// The usable variants of the table that `wanted` accepts, in table order.
template <typename Wanted>
std::vector<const kf_EngineVariant*> usableVariantsWhere(Wanted wanted)
{
    int count = 0;
    const kf_EngineVariant* table = kf_EngineVariants(count);
    std::vector<const kf_EngineVariant*> found;
    for (int i = 0; i < count; ++i)
        if (table[i].usable() && wanted(table[i]))
            found.push_back(&table[i]);
    return found;
}

// Names of the usable variants, the scalar engine included.
inline std::vector<const char*> usableVariants()
{
    std::vector<const char*> names;
    for (const kf_EngineVariant* v : usableVariantsWhere([](const kf_EngineVariant&) { return true; }))
        names.push_back(v->name);
    return names;
}

// Names of the usable vectorised variants (the scalar engine left out).
inline std::vector<const char*> vectorVariants()
{
    std::vector<const char*> names;
    for (const kf_EngineVariant* v : usableVariantsWhere([](const kf_EngineVariant& e) { return e.widths != nullptr; }))
        names.push_back(v->name);
    return names;
}

// `count` fixed-seed floats in [-100, 100).
inline std::vector<float> randomData(std::size_t count, unsigned seed)
{
    return randomFloats(count, seed, -100.0f, 100.0f);
}

}  // namespace kxtest
