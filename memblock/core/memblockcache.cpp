#include <memblock/core/memblockimpl.h>

namespace NKelmic {

namespace {
/// The cache of an object, made if there is none.
MemBlockImpl& CacheOf(MemBlock const& block)
{
    MemBlockImpl* const cache = block.PimplIfAny(); // inline, unlike the making of one
    return cache ? *cache : *block.Pimpl();
}
} // namespace

// The doors on the object. A cache does not change the value of an object, so all are const.

DataItem MemBlock::SecondaryItem(int key, ThrowHandlerFunc handler) const
{
    return CacheOf(*this).SecondaryItem(key, handler);
}

int MemBlock::SecondaryInt(int key, ThrowHandlerFunc handler) const
{
    return CacheOf(*this).SecondaryInt(key, handler);
}

double MemBlock::SecondaryDouble(int key, ThrowHandlerFunc handler) const
{
    return CacheOf(*this).SecondaryDouble(key, handler);
}

PMemBlock MemBlock::SecondaryMemBlock(int key, ThrowHandlerFunc handler) const
{
    return CacheOf(*this).SecondaryMemBlock(key, handler);
}

void MemBlock::SetSecondaryItem(int key, DataItem const& item) const
{
    CacheOf(*this).SetSecondaryItem(key, item);
}

bool MemBlock::ExistsSecondaryItem(int key, DataItem& out) const
{
    return CacheOf(*this).ExistsSecondaryItem(key, out);
}

bool MemBlock::ExistsSecondaryInt(int key, int& out) const
{
    return CacheOf(*this).ExistsSecondaryInt(key, out);
}

bool MemBlock::ExistsSecondaryDouble(int key, double& out) const
{
    return CacheOf(*this).ExistsSecondaryDouble(key, out);
}

} // namespace NKelmic
