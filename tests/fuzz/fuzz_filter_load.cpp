// Fuzz target: any persistent object loaded from untrusted bytes; a filter is
// then applied, in place and out of place, to a buffer of its size, and
// stored again, which must reproduce a loadable stream.
#include <kx/freqfilt.h>

#include <cstddef>
#include <cstdint>

namespace {

// A buffer of the filter's padded size, within what a fuzz run can afford.
bool bufferFor(const kxFrequencyFilter& filter, kxFrequencyBuffer& buffer)
{
    kxPair<long> size;
    if (auto g = dynamic_cast<const kx_GaborFilter*>(&filter))
        size = g->size();
    else if (auto r = dynamic_cast<const kx_RadialFilter*>(&filter))
        size = r->size();
    else if (auto i = dynamic_cast<const kxFrequencyFilterImage*>(&filter))
        size = kxPair<long>(i->supportWidth(), i->supportHeight());
    if (size.x() < 1 || size.y() < 1 || size.x() > 512 || size.y() > 512)
        return false;
    buffer = kxFrequencyBuffer(size.x(), size.y());
    for (long y = 0; y < buffer.height(); ++y)
        for (long x = 0; x < buffer.width(); ++x)
            buffer.put(x, y, kxPair<double>(1.0 + x, 1.0 - y), false);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::shared_ptr<kxPersistent> object;
    try {
        kxMemoryArchive in(data, size);
        object = in.loadObject();
    } catch (const kxArchive::Error&) {
        return 0;
    }
    auto filter = std::dynamic_pointer_cast<kxFrequencyFilter>(object);
    if (filter) {
        try {
            kxFrequencyBuffer buffer, result;
            if (bufferFor(*filter, buffer)) {
                filter->apply(buffer, result);
                filter->apply(buffer);
            }
        } catch (const kxFrequencyDefs::Errors&) {
        }
    }
    kxMemoryArchive out;
    out.storeObject(object.get());
    kxMemoryArchive again(out.bytes());
    again.loadObject();
    return 0;
}
