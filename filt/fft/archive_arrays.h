#pragma once
// Internal: streaming of float arrays, shared by the buffer and the filters.
#include <kx/core/archive.h>

#include <algorithm>
#include <vector>

// A float array: a version byte (0), the element count (unsigned long), then
// the floats. Any other version byte throws kxArchive::UnknownVersion with no
// source name and line 0. Loading checks the count against the data left and
// grows the array only as floats actually arrive, so a corrupt count can
// neither overrun nor make a huge allocation.
inline void kf_StreamFloats(kxArchive& archive, std::vector<float>& items)
{
    unsigned char version = 0;
    archive || version;
    if (version != 0)
        throw kxArchive::UnknownVersion(nullptr, 0);
    unsigned long count = static_cast<unsigned long>(items.size());
    archive || count;
    if (archive.isStoring()) {
        for (float& value : items)
            archive || value;
        return;
    }
    archive.requireItems(count, 4);
    items.clear();
    items.reserve(std::min<unsigned long>(count, 1ul << 16));
    for (unsigned long i = 0; i < count; ++i) {
        float value = 0.0f;
        archive || value;
        items.push_back(value);
    }
}
