#pragma once
#include <kx/core/export.h>
#include <kx/core/persistent.h>

#include <exception>
#include <iosfwd>
#include <string>

// kxException: base of every exception of the kx libraries. It is a
// std::exception (what() gives the message) and a persistent object, so an
// exception can be archived and rebuilt elsewhere.
class KXCORE_API kxException : public std::exception, public kxPersistent {
public:
    ~kxException() override;

    // A number that identifies the failure; 0 for the core's own exceptions.
    virtual long errorNumber() const;
    // The message; what() returns it as a C string.
    std::string message() const;
    // The message as a C string. It is made on the first call and never
    // changed afterwards, so one exception may be read from several threads.
    const char* what() const noexcept override;

    // Streams: the visited check, a version byte (0), the kxPersistent part
    // and the message text (through streamText_()).
    void dispatchSerialize(kxArchive& archive) override;

protected:
    kxException() = default;
    kxException(const kxException&) = default;
    kxException& operator=(const kxException&) = default;

    // Writes the message; empty here.
    virtual void message_(std::ostream& out) const;
    // Streams the message text; kxException has none.
    virtual void streamText_(kxArchive& archive);

private:
    mutable std::string what_;
    mutable bool whatMade_ = false;
};

// kxExceptionWithString: an exception that carries a message text. A null
// message is allowed and reads as an empty string.
class KXCORE_API kxExceptionWithString : public kxException {
public:
    // With a message text (null: none), and copyable.
    explicit kxExceptionWithString(const char* message = nullptr);
    explicit kxExceptionWithString(const std::string& message);
    kxExceptionWithString(const kxExceptionWithString&) = default;
    kxExceptionWithString& operator=(const kxExceptionWithString&) = default;
    ~kxExceptionWithString() override;

    // True when the exception was made with a null message; the text
    // (empty without one).
    bool hasMessage() const { return hasMessage_; }
    const std::string& text() const { return text_; }
    // The text itself: nothing is built, nothing changes.
    const char* what() const noexcept override { return text_.c_str(); }

protected:
    void message_(std::ostream& out) const override;
    void streamText_(kxArchive& archive) override;

private:
    std::string text_;
    bool hasMessage_;
};
