#pragma once
#include <kx/core/exception.h>
#include <kx/core/export.h>
#include <kx/core/pair.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

// kxArchive: a byte stream that objects are written to (storing) or read from
// (loading) with one operator, `archive || value`, that goes both ways.
//
// Wire format, little-endian and fixed width whatever the host:
//   bool, unsigned char   1 byte (bool: 0 or 1; any other byte is refused)
//   long                  4 bytes, two's complement signed 32-bit
//   unsigned long         4 bytes, unsigned 32-bit
//   float                 4 bytes IEEE 754 binary32
//   double                8 bytes IEEE 754 binary64
//   string                unsigned long length, then the bytes
// Storing a long or unsigned long outside 32 bits throws kxArchive::Error.
//
// Loading treats the data as untrusted: reading past the end, a malformed
// value or a count larger than the data left throws kxArchive::Error, and no
// read allocates more than the bytes actually present.
class KXCORE_API kxArchive {
public:
    // Every failure of the archive itself.
    class KXCORE_API Error : public kxExceptionWithString {
    public:
        // With its message.
        explicit Error(const std::string& message) : kxExceptionWithString(message) {}
    };
    // A version byte that the reading code does not know.
    class KXCORE_API UnknownVersion : public Error {
    public:
        // Names the reading code: a source name (null: none) and a line.
        UnknownVersion(const char* source, long line);
        // The source name given at the throw site ("" when none) and line.
        const std::string& source() const { return source_; }
        long line() const { return line_; }

    private:
        std::string source_;
        long line_;
    };

    // Archives are not copyable.
    virtual ~kxArchive();
    kxArchive(const kxArchive&) = delete;
    kxArchive& operator=(const kxArchive&) = delete;

    // The direction of the archive.
    bool isLoading() const { return loading_; }
    bool isStoring() const { return !loading_; }

    // Writes the value when storing, reads it when loading; returns the
    // archive, so that fields chain: archive || a || b.
    kxArchive& operator||(bool& value);
    kxArchive& operator||(unsigned char& value);
    kxArchive& operator||(long& value);
    kxArchive& operator||(unsigned long& value);
    kxArchive& operator||(float& value);
    kxArchive& operator||(double& value);
    kxArchive& operator||(std::string& value);

    // Bytes left to read, or SIZE_MAX when the source cannot tell.
    std::size_t remaining() const;
    // Throws Error unless `count` items of at least `bytesEach` bytes can
    // still be in the data. Call it before sizing anything from a count.
    void requireItems(unsigned long count, std::size_t bytesEach) const;

    // A whole object by its dynamic type: a class record, then the object's
    // own dispatchSerialize(). The same object stored twice is written once
    // and loads as the same object. A null pointer is allowed.
    void storeObject(const kxPersistent* object);
    std::shared_ptr<kxPersistent> loadObject();

    template <typename T>
    // loadObject(), checked to be a T: another class throws Error.
    std::shared_ptr<T> loadObjectAs()
    {
        std::shared_ptr<kxPersistent> object = loadObject();
        std::shared_ptr<T> typed = std::dynamic_pointer_cast<T>(object);
        if (object && !typed)
            throw Error("kxArchive: stored object is not of the expected class");
        return typed;
    }

    // Marks kept for kxPersistent::haveVisited()/setVisited().
    bool visited(const void* object, std::size_t key) const;
    void markVisited(const void* object, std::size_t key);

protected:
    explicit kxArchive(bool loading) : loading_(loading) {}

    // Reads exactly `size` bytes or throws Error.
    virtual void readBytes(void* data, std::size_t size) = 0;
    virtual void writeBytes(const void* data, std::size_t size) = 0;
    virtual std::size_t available() const = 0;

private:
    template <typename U, std::size_t Bytes> void streamUnsigned(U& value);
    template <typename Float, typename Bits> void streamFloat(Float& value);
    // `length` bytes into `text`, in bounded pieces; `text` changes only
    // when all of them arrived.
    void readText(std::string& text, unsigned long length);

    bool loading_;
    std::map<std::pair<const void*, std::size_t>, bool> visited_;
    std::map<const kxPersistent*, unsigned long> storedObjects_;
    std::vector<std::shared_ptr<kxPersistent>> loadedObjects_;
};

// An archive in memory.
class KXCORE_API kxMemoryArchive : public kxArchive {
public:
    // Storing into an empty byte array.
    kxMemoryArchive();
    // Loading from a copy of `bytes`.
    explicit kxMemoryArchive(std::vector<unsigned char> bytes);
    kxMemoryArchive(const void* data, std::size_t size);

    // The bytes stored so far (or loaded from).
    const std::vector<unsigned char>& bytes() const { return bytes_; }

protected:
    void readBytes(void* data, std::size_t size) override;
    void writeBytes(const void* data, std::size_t size) override;
    std::size_t available() const override;

private:
    std::vector<unsigned char> bytes_;
    std::size_t position_ = 0;
};

// An archive on a standard stream. The stream must outlive the archive.
class KXCORE_API kxStreamArchive : public kxArchive {
public:
    // Which way a read-write stream is used.
    enum Direction { eStore, eLoad };

    // Storing to `out`, or loading from `in`.
    explicit kxStreamArchive(std::ostream& out);
    explicit kxStreamArchive(std::istream& in);
    // For a stream that reads and writes, the direction is said.
    kxStreamArchive(std::iostream& stream, Direction direction);

protected:
    void readBytes(void* data, std::size_t size) override;
    void writeBytes(const void* data, std::size_t size) override;
    std::size_t available() const override;

private:
    void measureInput();

    std::istream* in_ = nullptr;
    std::ostream* out_ = nullptr;
    std::size_t left_;   // bytes from the start position to the end, when seekable
};

// The shape of every dispatchSerialize(): unless this part of `object`
// (told apart by `key`, usually the size of the class) was streamed through
// this archive already, stream its version byte, then `serialize(version)`,
// then mark the part as streamed.
template <typename Serialize>
void kfStreamVersioned(kxArchive& archive, const void* object, std::size_t key, Serialize serialize)
{
    if (kxPersistent::haveVisited(archive, object, key))
        return;
    unsigned char version = 0;
    archive || version;
    serialize(version);
    kxPersistent::setVisited(archive, object, key);
}

// kxPair streaming: a version byte (0), then x and y. Any other version byte
// throws kxArchive::UnknownVersion with no source name and line 0.
template <typename T>
kxArchive& operator||(kxArchive& archive, kxPair<T>& pair)
{
    unsigned char version = 0;
    archive || version;
    if (version != 0)
        throw kxArchive::UnknownVersion(nullptr, 0);
    T x = pair.x(), y = pair.y();
    archive || x || y;
    pair = kxPair<T>(x, y);
    return archive;
}
