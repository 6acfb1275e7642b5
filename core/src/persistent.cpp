#include <kx/core/archive.h>
#include <kx/core/persistent.h>

#include <map>
#include <mutex>

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, kx_Instantiator::Factory> factories;
};

// Constructed on first use, so registrations made during static
// initialisation of any library find it ready.
Registry& registry()
{
    static Registry instance;
    return instance;
}

}  // namespace

kxPersistent::~kxPersistent() = default;

void kxPersistent::dispatchSerialize(kxArchive& archive)
{
    kfStreamVersioned(archive, this, sizeof(kxPersistent), [](unsigned char version) {
        if (version != 0)
            throw kxArchive::UnknownVersion("kxPersistent", 0);
    });
}

void kxPersistent::reInit() {}

void kxPersistent::loadSimple(kxArchive& archive)
{
    dispatchSerialize(archive);
    reInit();
}

bool kxPersistent::haveVisited(kxArchive& archive, const void* object, std::size_t key)
{
    return archive.visited(object, key);
}

void kxPersistent::setVisited(kxArchive& archive, const void* object, std::size_t key)
{
    archive.markVisited(object, key);
}

kxRepBase::~kxRepBase() = default;

kx_Instantiator::kx_Instantiator(const std::type_info& type, Factory factory) : name_(className(type))
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.factories[name_] = factory;
}

kx_Instantiator::~kx_Instantiator()
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.factories.erase(name_);
}

std::string kx_Instantiator::className(const std::type_info& type)
{
    // The mangled name: fixed by the platform ABI, so stable between builds.
    return type.name();
}

kxPersistent* kx_Instantiator::create(const std::string& className)
{
    Factory factory = nullptr;
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        auto found = r.factories.find(className);
        if (found != r.factories.end())
            factory = found->second;
    }
    return factory ? factory() : nullptr;
}

bool kx_Instantiator::isRegistered(const std::string& className)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.factories.count(className) != 0;
}
