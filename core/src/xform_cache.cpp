#include <kx/core/archive.h>
#include <kx/core/xform_cache.h>

kx2XformBase::~kx2XformBase() = default;

std::unique_ptr<kx2XformBase> kx2XformLinear::clone() const
{
    return std::make_unique<kx2XformLinear>(*this);
}

kx2XformCache::kx2XformCache() : xform_(std::make_unique<kx2XformLinear>()) {}
kx2XformCache::kx2XformCache(const kx2XformCache& other) : xform_(other.xform_->clone()) {}
kx2XformCache& kx2XformCache::operator=(const kx2XformCache& other)
{
    if (this != &other)
        xform_ = other.xform_->clone();
    return *this;
}
// A moved-from cache is the identity again, never empty.
kx2XformCache::kx2XformCache(kx2XformCache&& other) noexcept : xform_(std::move(other.xform_))
{
    other.xform_ = std::make_unique<kx2XformLinear>();
}
kx2XformCache& kx2XformCache::operator=(kx2XformCache&& other) noexcept
{
    if (this != &other) {
        xform_.swap(other.xform_);
    }
    return *this;
}
kx2XformCache::~kx2XformCache() = default;

bool kx2XformCache::operator==(const kx2XformCache& other) const
{
    return isLinear() && other.isLinear() && linearXform() == other.linearXform();
}

kxArchive& operator||(kxArchive& archive, kxXform<2>& xform)
{
    double m00 = xform.matrix().element(0, 0), m01 = xform.matrix().element(0, 1);
    double m10 = xform.matrix().element(1, 0), m11 = xform.matrix().element(1, 1);
    double tx = xform.translation().x(), ty = xform.translation().y();
    archive || m00 || m01 || m10 || m11 || tx || ty;
    if (archive.isLoading())
        xform = kxXform<2>(kxMatrix<2>(m00, m01, m10, m11), kxVector<2>(tx, ty));
    return archive;
}

kxArchive& operator||(kxArchive& archive, kx2XformCache& cache)
{
    unsigned char version = 0;
    archive || version;
    if (version != 0)
        throw kxArchive::UnknownVersion("kx2XformCache", 0);
    if (archive.isStoring() && !cache.isLinear())
        throw kxArchive::Error("kxArchive: a non-linear transform cannot be stored");
    kxXform<2> xform = cache.linearXform();
    archive || xform;
    if (archive.isLoading())
        cache.xform(kx2XformLinear(xform));
    return archive;
}
