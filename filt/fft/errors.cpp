#include <kx/fft.h>

#include <new>

using Defs = kxFrequencyDefs;

Defs::Errors::Errors(const char* message) : kxExceptionWithString(message) {}
Defs::Errors::~Errors() = default;

void Defs::Errors::dispatchSerialize(kxArchive& archive)
{
    kfStreamVersioned(archive, this, sizeof(Errors), [&](unsigned char version) { serialize_(archive, version); });
}

void Defs::Errors::serialize_(kxArchive& archive, unsigned char version)
{
    if (version != 0)
        throw kxArchive::UnknownVersion("kxFrequencyDefs::Errors", 0);
    kxException::dispatchSerialize(archive);
}

// The six concrete classes differ only in their name and number.
#define KX_DEFINE_FREQUENCY_ERROR(Name, Number)                                      \
    Defs::Name::Name(const char* message) : Errors(message) {}                       \
    Defs::Name::~Name() = default;                                                   \
    long Defs::Name::errorNumber() const { return Number; }                          \
    void Defs::Name::suicideAndRethrow()                                             \
    {                                                                                \
        Name local(*this);                                                           \
        delete this;                                                                 \
        throw local;                                                                 \
    }                                                                                \
    void Defs::Name::dispatchSerialize(kxArchive& archive)                           \
    {                                                                                \
        kfStreamVersioned(archive, this, sizeof(Name),                               \
                          [&](unsigned char version) { serialize_(archive, version); }); \
    }                                                                                \
    void Defs::Name::serialize_(kxArchive& archive, unsigned char version)           \
    {                                                                                \
        if (version != 0)                                                            \
            throw kxArchive::UnknownVersion("kxFrequencyDefs::" #Name, 0);           \
        Errors::dispatchSerialize(archive);                                          \
    }                                                                                \
    kxPersistent* Defs::Name::make() { return new (std::nothrow) Name(nullptr); }    \
    kx_Instantiator Defs::Name::sExemplar(typeid(Defs::Name), &Defs::Name::make);

KX_DEFINE_FREQUENCY_ERROR(InvalidArgument, 0x10006300)
KX_DEFINE_FREQUENCY_ERROR(Uninitialized, 0x10006301)
KX_DEFINE_FREQUENCY_ERROR(InvalidSize, 0x10006302)
KX_DEFINE_FREQUENCY_ERROR(UnboundWindow, 0x10006303)
KX_DEFINE_FREQUENCY_ERROR(InvalidBuffer, 0x10006304)
KX_DEFINE_FREQUENCY_ERROR(BadCoord, 0x10006305)
#undef KX_DEFINE_FREQUENCY_ERROR
