#include <kx/core/archive.h>
#include <kx/core/exception.h>

#include <mutex>
#include <ostream>
#include <sstream>

kxException::~kxException() = default;

long kxException::errorNumber() const { return 0; }

std::string kxException::message() const
{
    std::ostringstream out;
    message_(out);
    return out.str();
}

// One lock for every exception: what() is rare, and a lock per object would
// make exceptions uncopyable.
const char* kxException::what() const noexcept
{
    static std::mutex lock;
    std::lock_guard<std::mutex> guard(lock);
    if (!whatMade_) {
        try {
            what_ = message();
        } catch (...) {
            what_.clear();
        }
        whatMade_ = true;
    }
    return what_.c_str();
}

void kxException::message_(std::ostream&) const {}

void kxException::streamText_(kxArchive&) {}

void kxException::dispatchSerialize(kxArchive& archive)
{
    kfStreamVersioned(archive, this, sizeof(kxException), [&](unsigned char version) {
        if (version != 0)
            throw kxArchive::UnknownVersion("kxException", 0);
        kxPersistent::dispatchSerialize(archive);
        streamText_(archive);
    });
}

kxExceptionWithString::kxExceptionWithString(const char* message)
    : text_(message ? message : ""), hasMessage_(message != nullptr)
{
}

kxExceptionWithString::kxExceptionWithString(const std::string& message)
    : text_(message), hasMessage_(true)
{
}

kxExceptionWithString::~kxExceptionWithString() = default;

void kxExceptionWithString::message_(std::ostream& out) const { out << text_; }

void kxExceptionWithString::streamText_(kxArchive& archive)
{
    archive || hasMessage_ || text_;
}
