// Archive format of a kxFrequencyBuffer (little-endian, see kxArchive):
//
//   version       unsigned char   1 (0 is read too: its transform is a plain kxXform<2>)
//   paddedWidth   long
//   paddedHeight  long
//   requestedW    long
//   requestedH    long
//   masked        long
//   maskedMiny    long
//   maskedMaxy    long
//   inverse       bool
//   transform     kx2XformCache (version 1) or kxXform<2> (version 0)
//   offset        kxPair<long>: version byte 0, x, y
//   hasData       bool
//   data          float array: version byte 0, count, floats (count 0 without data)
//
// Loading is all or nothing: the fields are read into a temporary buffer and
// committed only when everything read is consistent, so a failed load leaves
// the buffer as it was. An archive is untrusted input; with data present it
// must hold power-of-two padded sizes not below the requested sizes and
// exactly paddedWidth x paddedHeight x 2 floats, or the load is refused with
// kxArchive::Error before anything is sized from it; so are a masked flag
// other than 0 or 1, a band row beyond 2^30 in magnitude and a negative
// requested size. Sizes are otherwise taken as they stand (no 2048 limit).
#include "fft/archive_arrays.h"
#include "fft/buffer_access.h"
#include "fft/stores.h"

#include <cstring>
#include <string>

namespace {

void refuse(const std::string& why) { throw kxArchive::Error("kxFrequencyBuffer: " + why); }

// A band's rows are centred row indices; a filter's band reaches at most the
// height of its table beyond the buffer (a table holds fewer than 2^28
// gains), so anything farther is corrupt, and refusing it keeps the
// arithmetic on band limits far from overflow.
constexpr long kMaxBandRow = 1L << 30;

void checkLoaded(long pw, long ph, long rw, long rh, long masked, long miny, long maxy, bool hasData,
                 const std::vector<float>& floats)
{
    if (masked != 0 && masked != 1)
        refuse("stored masked flag " + std::to_string(masked) + " is neither 0 nor 1");
    if (miny < -kMaxBandRow || miny > kMaxBandRow || maxy < -kMaxBandRow || maxy > kMaxBandRow)
        refuse("stored masked band " + std::to_string(miny) + " .. " + std::to_string(maxy) + " is out of range");
    if (!hasData) {
        if (!floats.empty())
            refuse("data stored for a buffer without data");
        return;
    }
    if (!kf_IsPowerOfTwo(pw) || !kf_IsPowerOfTwo(ph))
        refuse("stored padded size " + std::to_string(pw) + " x " + std::to_string(ph) +
               " is not a power of two");
    if (rw < 0 || rh < 0 || rw > pw || rh > ph)
        refuse("stored requested size is negative or exceeds the padded size");
    if (static_cast<unsigned long>(pw) * static_cast<unsigned long>(ph) * 2 != floats.size())
        refuse("stored float count " + std::to_string(floats.size()) + " does not match the size " +
               std::to_string(pw) + " x " + std::to_string(ph));
}

}  // namespace

kxArchive& operator||(kxArchive& archive, kxFrequencyBuffer& buffer)
{
    unsigned char version = 1;
    archive || version;
    if (version >= 2)
        throw kxArchive::UnknownVersion("filt/fft", 572);

    std::vector<float> floats;
    if (archive.isStoring() && buffer.data_)
        floats.assign(buffer.data_, buffer.data_ + 2 * buffer.paddedWidth_ * buffer.paddedHeight_);

    long pw = buffer.paddedWidth_, ph = buffer.paddedHeight_;
    long rw = buffer.requestedWidth_, rh = buffer.requestedHeight_;
    long masked = buffer.masked_, miny = buffer.maskedMiny_, maxy = buffer.maskedMaxy_;
    bool inverse = buffer.inverseComputed_;
    archive || pw || ph || rw || rh || masked || miny || maxy || inverse;

    kx2XformCache transform = buffer.transform_;
    if (version == 1) {
        archive || transform;
    } else {
        kxXform<2> xform = transform.isLinear() ? transform.linearXform() : kxXform<2>();
        archive || xform;
        transform.xform(kx2XformLinear(xform));
    }
    kxPair<long> offset = buffer.offset_;
    bool hasData = buffer.data_ != nullptr;
    archive || offset || hasData;
    kf_StreamFloats(archive, floats);

    if (archive.isStoring())
        return archive;

    checkLoaded(pw, ph, rw, rh, masked, miny, maxy, hasData, floats);
    std::vector<float> store;
    if (hasData)
        store.assign(kf_StoreFloats(pw, ph), 0.0f);
    buffer.paddedWidth_ = pw;
    buffer.paddedHeight_ = ph;
    buffer.requestedWidth_ = rw;
    buffer.requestedHeight_ = rh;
    buffer.masked_ = masked;
    buffer.maskedMiny_ = miny;
    buffer.maskedMaxy_ = maxy;
    buffer.inverseComputed_ = inverse;
    buffer.transform_ = transform;
    buffer.offset_ = offset;
    buffer.store_.swap(store);
    if (hasData) {
        buffer.pointAtStore();
        std::memcpy(buffer.data_, floats.data(), sizeof(float) * floats.size());
    } else {
        buffer.data_ = nullptr;
    }
    return archive;
}
