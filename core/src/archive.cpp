#include <kx/core/archive.h>

#include <algorithm>
#include <cstring>
#include <istream>
#include <limits>
#include <ostream>

namespace {

std::string describeVersion(const char* source, long line)
{
    std::string text = "kxArchive: unknown version";
    if (source && *source) {
        text += " in ";
        text += source;
        text += ", line ";
        text += std::to_string(line);
    }
    return text;
}

// Class names in a class record are short; a longer count is corrupt data.
constexpr unsigned long kMaxClassNameLength = 1024;

enum ObjectTag : unsigned char { kNullObject = 0, kNewObject = 1, kStoredObject = 2 };

// Texts are read in pieces of at most this many bytes, so that a length
// read from a source that cannot tell its size (a pipe) allocates no more
// than the bytes that actually arrive, plus one piece.
constexpr std::size_t kReadPiece = 65536;

}  // namespace

void kxArchive::readText(std::string& text, unsigned long length)
{
    requireItems(length, 1);
    std::string read;
    while (read.size() < length) {
        const std::size_t piece = std::min<std::size_t>(kReadPiece, length - read.size());
        const std::size_t at = read.size();
        read.resize(at + piece);
        readBytes(&read[at], piece);
    }
    text.swap(read);
}

kxArchive::UnknownVersion::UnknownVersion(const char* source, long line)
    : Error(describeVersion(source, line)), source_(source ? source : ""), line_(line)
{
}

kxArchive::~kxArchive() = default;

template <typename U, std::size_t Bytes>
void kxArchive::streamUnsigned(U& value)
{
    unsigned char bytes[Bytes];
    if (loading_) {
        readBytes(bytes, Bytes);
        U v = 0;
        for (std::size_t i = 0; i < Bytes; ++i)
            v |= static_cast<U>(bytes[i]) << (8 * i);
        value = v;
    } else {
        for (std::size_t i = 0; i < Bytes; ++i)
            bytes[i] = static_cast<unsigned char>(value >> (8 * i));
        writeBytes(bytes, Bytes);
    }
}

kxArchive& kxArchive::operator||(unsigned char& value)
{
    streamUnsigned<unsigned char, 1>(value);
    return *this;
}

kxArchive& kxArchive::operator||(bool& value)
{
    unsigned char byte = value ? 1 : 0;
    *this || byte;
    if (loading_) {
        if (byte > 1)
            throw Error("kxArchive: invalid bool value " + std::to_string(byte));
        value = byte != 0;
    }
    return *this;
}

kxArchive& kxArchive::operator||(long& value)
{
    if (!loading_ && (value < std::numeric_limits<std::int32_t>::min() ||
                      value > std::numeric_limits<std::int32_t>::max()))
        throw Error("kxArchive: long value " + std::to_string(value) + " does not fit in 32 bits");
    std::uint32_t bits = static_cast<std::uint32_t>(static_cast<std::int32_t>(value));
    streamUnsigned<std::uint32_t, 4>(bits);
    if (loading_)
        value = static_cast<std::int32_t>(bits);
    return *this;
}

kxArchive& kxArchive::operator||(unsigned long& value)
{
    if (!loading_ && value > std::numeric_limits<std::uint32_t>::max())
        throw Error("kxArchive: unsigned long value " + std::to_string(value) +
                    " does not fit in 32 bits");
    std::uint32_t bits = static_cast<std::uint32_t>(value);
    streamUnsigned<std::uint32_t, 4>(bits);
    if (loading_)
        value = bits;
    return *this;
}

// Floating-point values travel as their IEEE bit patterns.
template <typename Float, typename Bits>
void kxArchive::streamFloat(Float& value)
{
    static_assert(sizeof(Float) == sizeof(Bits), "float and double must be IEEE binary32 and binary64");
    Bits bits;
    std::memcpy(&bits, &value, sizeof(Bits));
    streamUnsigned<Bits, sizeof(Bits)>(bits);
    if (loading_)
        std::memcpy(&value, &bits, sizeof(Bits));
}

kxArchive& kxArchive::operator||(float& value)
{
    streamFloat<float, std::uint32_t>(value);
    return *this;
}

kxArchive& kxArchive::operator||(double& value)
{
    streamFloat<double, std::uint64_t>(value);
    return *this;
}

kxArchive& kxArchive::operator||(std::string& value)
{
    unsigned long length = value.size();
    *this || length;
    if (loading_) {
        readText(value, length);
    } else if (length > 0) {
        writeBytes(value.data(), length);
    }
    return *this;
}

std::size_t kxArchive::remaining() const
{
    return loading_ ? available() : std::numeric_limits<std::size_t>::max();
}

void kxArchive::requireItems(unsigned long count, std::size_t bytesEach) const
{
    if (!loading_)
        return;
    std::size_t left = available();
    if (bytesEach != 0 && count > left / bytesEach)
        throw Error("kxArchive: count of " + std::to_string(count) +
                    " items exceeds the data left (" + std::to_string(left) + " bytes)");
}

bool kxArchive::visited(const void* object, std::size_t key) const
{
    return visited_.count({object, key}) != 0;
}

void kxArchive::markVisited(const void* object, std::size_t key)
{
    visited_[{object, key}] = true;
}

void kxArchive::storeObject(const kxPersistent* object)
{
    if (loading_)
        throw Error("kxArchive: storeObject on a loading archive");
    unsigned char tag;
    if (!object) {
        tag = kNullObject;
        *this || tag;
        return;
    }
    auto found = storedObjects_.find(object);
    if (found != storedObjects_.end()) {
        tag = kStoredObject;
        unsigned long index = found->second;
        *this || tag || index;
        return;
    }
    tag = kNewObject;
    std::string name = kx_Instantiator::className(typeid(*object));
    *this || tag || name;
    storedObjects_.emplace(object, static_cast<unsigned long>(storedObjects_.size()));
    // Storing reads the object; dispatchSerialize is shared with loading.
    const_cast<kxPersistent*>(object)->dispatchSerialize(*this);
}

std::shared_ptr<kxPersistent> kxArchive::loadObject()
{
    if (!loading_)
        throw Error("kxArchive: loadObject on a storing archive");
    unsigned char tag = 0;
    *this || tag;
    switch (tag) {
    case kNullObject:
        return nullptr;
    case kStoredObject: {
        unsigned long index = 0;
        *this || index;
        if (index >= loadedObjects_.size())
            throw Error("kxArchive: reference to object " + std::to_string(index) +
                        " which has not been loaded");
        return loadedObjects_[index];
    }
    case kNewObject: {
        unsigned long length = 0;
        *this || length;
        if (length > kMaxClassNameLength)
            throw Error("kxArchive: class name of " + std::to_string(length) + " bytes is too long");
        std::string name;
        readText(name, length);
        std::shared_ptr<kxPersistent> object(kx_Instantiator::create(name));
        if (!object)
            throw Error("kxArchive: no class registered as '" + name + "'");
        loadedObjects_.push_back(object);
        object->loadSimple(*this);
        return object;
    }
    default:
        throw Error("kxArchive: invalid object tag " + std::to_string(tag));
    }
}

kxMemoryArchive::kxMemoryArchive() : kxArchive(false) {}

kxMemoryArchive::kxMemoryArchive(std::vector<unsigned char> bytes)
    : kxArchive(true), bytes_(std::move(bytes))
{
}

kxMemoryArchive::kxMemoryArchive(const void* data, std::size_t size)
    : kxArchive(true),
      bytes_(static_cast<const unsigned char*>(data), static_cast<const unsigned char*>(data) + size)
{
}

void kxMemoryArchive::readBytes(void* data, std::size_t size)
{
    if (size > bytes_.size() - position_)
        throw Error("kxArchive: unexpected end of data (needed " + std::to_string(size) +
                    " bytes, " + std::to_string(bytes_.size() - position_) + " left)");
    std::memcpy(data, bytes_.data() + position_, size);
    position_ += size;
}

void kxMemoryArchive::writeBytes(const void* data, std::size_t size)
{
    const unsigned char* p = static_cast<const unsigned char*>(data);
    bytes_.insert(bytes_.end(), p, p + size);
}

std::size_t kxMemoryArchive::available() const { return bytes_.size() - position_; }

kxStreamArchive::kxStreamArchive(std::ostream& out)
    : kxArchive(false), out_(&out), left_(std::numeric_limits<std::size_t>::max())
{
}

kxStreamArchive::kxStreamArchive(std::istream& in)
    : kxArchive(true), in_(&in), left_(std::numeric_limits<std::size_t>::max())
{
    measureInput();
}

kxStreamArchive::kxStreamArchive(std::iostream& stream, Direction direction)
    : kxArchive(direction == eLoad), left_(std::numeric_limits<std::size_t>::max())
{
    if (direction == eLoad) {
        in_ = &stream;
        measureInput();
    } else {
        out_ = &stream;
    }
}

// A seekable stream tells how much data there is, so that counts can be
// checked before anything is sized from them.
void kxStreamArchive::measureInput()
{
    std::istream& in = *in_;
    std::istream::pos_type start = in.tellg();
    if (start != std::istream::pos_type(-1) && in.seekg(0, std::ios::end)) {
        std::istream::pos_type end = in.tellg();
        in.seekg(start);
        if (end != std::istream::pos_type(-1) && end >= start)
            left_ = static_cast<std::size_t>(end - start);
    }
    in.clear(in.rdstate() & ~std::ios::failbit);
}

void kxStreamArchive::readBytes(void* data, std::size_t size)
{
    in_->read(static_cast<char*>(data), static_cast<std::streamsize>(size));
    std::size_t got = static_cast<std::size_t>(in_->gcount());
    if (got != size)
        throw Error("kxArchive: unexpected end of data (needed " + std::to_string(size) +
                    " bytes, " + std::to_string(got) + " read)");
    if (left_ != std::numeric_limits<std::size_t>::max())
        left_ = left_ >= size ? left_ - size : 0;
}

void kxStreamArchive::writeBytes(const void* data, std::size_t size)
{
    out_->write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!*out_)
        throw Error("kxArchive: write to stream failed");
}

std::size_t kxStreamArchive::available() const { return left_; }
