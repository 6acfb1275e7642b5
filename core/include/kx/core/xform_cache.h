#pragma once
#include <kx/core/export.h>
#include <kx/core/geometry.h>

#include <memory>

class kxArchive;

// kx2XformBase: a transform from an image's pixel coordinates to its client
// coordinates.
class KXCORE_API kx2XformBase {
public:
    // A heap copy of the transform, and whether it is affine.
    virtual ~kx2XformBase();
    virtual std::unique_ptr<kx2XformBase> clone() const = 0;
    virtual bool isLinear() const = 0;
    // The affine form (only meaningful when isLinear()), and the image of a
    // point.
    virtual kxXform<2> linearXform() const = 0;
    virtual kxVector<2> mapPoint(const kxVector<2>& p) const = 0;
};

// kx2XformLinear: an affine client-coordinate transform.
class KXCORE_API kx2XformLinear : public kx2XformBase {
public:
    // The identity or the given affine transform, with the operations of
    // kx2XformBase.
    kx2XformLinear() = default;
    explicit kx2XformLinear(const kxXform<2>& xform) : xform_(xform) {}
    std::unique_ptr<kx2XformBase> clone() const override;
    bool isLinear() const override { return true; }
    kxXform<2> linearXform() const override { return xform_; }
    kxVector<2> mapPoint(const kxVector<2>& p) const override { return xform_ * p; }

private:
    kxXform<2> xform_;
};

// kx2XformCache: holds the client-coordinate transform of an image (any
// kx2XformBase, copied on copy). The identity by default.
class KXCORE_API kx2XformCache {
public:
    // The identity; copies copy the held transform, moves move it.
    kx2XformCache();
    kx2XformCache(const kx2XformCache& other);
    kx2XformCache& operator=(const kx2XformCache& other);
    kx2XformCache(kx2XformCache&&) noexcept;
    kx2XformCache& operator=(kx2XformCache&&) noexcept;
    ~kx2XformCache();

    // Whether the transform is affine, its affine form, and the transform
    // itself; xform(t) holds a copy of t.
    bool isLinear() const { return xform_->isLinear(); }
    kxXform<2> linearXform() const { return xform_->linearXform(); }
    const kx2XformBase& xform() const { return *xform_; }
    void xform(const kx2XformBase& xform) { xform_ = xform.clone(); }

    // Equal when both are linear with equal affine forms.
    bool operator==(const kx2XformCache& other) const;
    bool operator!=(const kx2XformCache& other) const { return !(*this == other); }

private:
    std::unique_ptr<kx2XformBase> xform_;
};

// Archive streaming of the transforms. A kxXform<2> is six doubles (matrix
// row by row, then translation). A kx2XformCache is a version byte (0) and
// its linear form; a non-linear transform cannot be stored.
KXCORE_API kxArchive& operator||(kxArchive& archive, kxXform<2>& xform);
KXCORE_API kxArchive& operator||(kxArchive& archive, kx2XformCache& cache);
