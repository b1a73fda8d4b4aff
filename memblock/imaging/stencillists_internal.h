#ifndef MEMBLOCK_IMAGING_STENCILLISTS_INTERNAL_H
#define MEMBLOCK_IMAGING_STENCILLISTS_INTERNAL_H

#include <memblock/base/alloc.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>

#include <memory>

namespace NKelmic {

struct Freed {
    void operator()(void* block) const { mb_free(block); }
};

/// The pixels of a stencil object by object: object v owns positions start[v] up to start[v + 1] of
/// `pixels`, for v from 1 to `count`.
struct StencilLists {
    static constexpr unsigned long spare = 12; ///< cells of `start` beside those of the objects
    unsigned int count = 0;
    std::unique_ptr<unsigned int[], Freed> start; ///< count + spare cells from `mb_malloc`
    DerivedPointer<IndexVector> pixels;
};

/// Throws: 256 "Too many objects (%d) for a list of the pixels of: %s" where labels are far beyond
/// the number of pixels.
StencilLists ListStencil(Image const& image);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_STENCILLISTS_INTERNAL_H
