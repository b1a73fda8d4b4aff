#include <memblock/core/memblock.h>

#include <memblock/base/raise.h>
#include <memblock/core/imageclass.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/memblockimpl.h>

namespace NKelmic {
namespace {

/// Logic classes of images in files of earlier versions, and what they are now.
struct OldLogicClass {
    char const* classname;
    int old_lg_type;
    int lg_type;
};
constexpr OldLogicClass old_logic_classes[] = {{"stencil", lg_old_stencil, lg_stencil},
                                               {"mask", lg_old_mask, lg_mask}};
} // namespace

void MakeExclusive(PMemBlock const& block)
{
    if (block->RefCount() < 2) {
        PimplFlushSecondary(block->PimplIfAny());
        block->SetConst(false);
    } else {
        block.Assign(block->Clone(true).Pointer());
    }
}

bool PMemBlock::MakeBackwardCompatAutoConversionsToConform(char const* classname) const
{
    if (!block_)
        return false;
    for (auto const& row : old_logic_classes) {
        if (!SameName(classname, row.classname))
            continue;
        if (!block_->Conforms("image") || block_->LgType() != row.old_lg_type)
            return false;
        MakeExclusive(*this);
        block_->DoSetLgType(row.lg_type);
        return true;
    }
    return false;
}

bool PMemBlock::Conforms(char const* classname) const
{
    return block_ &&
           (block_->Conforms(classname) || MakeBackwardCompatAutoConversionsToConform(classname));
}

PMemBlock::PMemBlock(PMemBlock const& source, char const* classname) : block_(nullptr)
{
    if (!source.Conforms(classname))
        NCast::RaiseNotConforming(source, classname);
    Assign(source.block_);
}

bool PMemBlock::do_dereference_check()
{
    return false;
}

bool MemBlockConformsInternal(PMemBlock const& block, char const* classname)
{
    if (!block.Conforms(classname))
        NCast::RaiseIllegalCast(block, classname);
    return true;
}

namespace NCast {

void RaiseIllegalCast(PMemBlock const& block, char const* classname)
{
    Raise(err_kind, "Illegal MemBlock cast: %s --> %s", block->Class(), classname);
}

void RaiseNotConforming(PMemBlock const& block, char const* classname)
{
    Raise(err_value, "Data does not conform to \"%s\" class: %s", classname, block);
}

} // namespace NCast
} // namespace NKelmic
