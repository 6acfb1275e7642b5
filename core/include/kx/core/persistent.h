#pragma once
#include <kx/core/export.h>

#include <cstddef>
#include <string>
#include <typeinfo>

class kxArchive;

// kxPersistent: base of every object that can be written to and rebuilt from
// a kxArchive.
//
// A class streams itself in dispatchSerialize(): it asks haveVisited() first,
// streams a version byte and its fields, and ends with setVisited(). The marks
// are kept by the archive, keyed by the address and the size of the part being
// streamed, and live as long as that archive object: a part reached twice
// through a graph of (virtual) bases is streamed once per archive.
class KXCORE_API kxPersistent {
public:
    virtual ~kxPersistent();

    // Streams this object's own part: one version byte (0).
    virtual void dispatchSerialize(kxArchive& archive);
    // Called after an object has been loaded; nothing by default.
    virtual void reInit();
    // Loads this object from the archive: dispatchSerialize(), then reInit().
    virtual void loadSimple(kxArchive& archive);

    // Records that the object is about to change. Counted, for observers that
    // need to know whether an object changed since they last looked.
    void mutating() { ++changeCount_; }
    // How many times mutating() was called on this object.
    unsigned long changeCount() const { return changeCount_; }

    // Whether the part (object, key) was already streamed through this archive,
    // and marking it so.
    static bool haveVisited(kxArchive& archive, const void* object, std::size_t key);
    static void setVisited(kxArchive& archive, const void* object, std::size_t key);

protected:
    kxPersistent() = default;
    // A copy is a new persistent object: it does not share the change count.
    kxPersistent(const kxPersistent&) : changeCount_(0) {}
    kxPersistent& operator=(const kxPersistent&) { return *this; }

private:
    unsigned long changeCount_ = 0;
};

// kxRepBase: marker base for objects that are handled through a base pointer
// and copied with clone(). It has no state.
class KXCORE_API kxRepBase {
public:
    virtual ~kxRepBase();

protected:
    kxRepBase() = default;
    kxRepBase(const kxRepBase&) = default;
    kxRepBase& operator=(const kxRepBase&) = default;
};

// kx_Instantiator: registers a factory for a persistent class, so that an
// archive can make an empty object of the class it finds named in its data.
// Define one static instance per class:
//
//     kx_Instantiator MyClass::sExemplar(typeid(MyClass), &MyClass::make);
class KXCORE_API kx_Instantiator {
public:
    // A function making an empty object of the class, on the heap.
    using Factory = kxPersistent* (*)();

    // Registers `factory` under the class name of `type`, for as long as the
    // instantiator lives.
    kx_Instantiator(const std::type_info& type, Factory factory);
    ~kx_Instantiator();
    kx_Instantiator(const kx_Instantiator&) = delete;
    kx_Instantiator& operator=(const kx_Instantiator&) = delete;

    // The name under which a class is recorded in archives.
    static std::string className(const std::type_info& type);
    // A new object of the named class, or null when none is registered; and
    // whether one is.
    static kxPersistent* create(const std::string& className);
    static bool isRegistered(const std::string& className);

private:
    std::string name_;
};
