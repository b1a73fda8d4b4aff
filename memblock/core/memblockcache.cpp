#include <memblock/core/memblockimpl.h>

namespace NKelmic {

// The doors on the object. A cache does not change the value of an object, so all are const.

DataItem MemBlock::SecondaryItem(int key, ThrowHandlerFunc handler) const
{
    return Pimpl()->SecondaryItem(key, handler);
}

int MemBlock::SecondaryInt(int key, ThrowHandlerFunc handler) const
{
    return (pimpl_ ? pimpl_ : Pimpl())->SecondaryInt(key, handler);
}

double MemBlock::SecondaryDouble(int key, ThrowHandlerFunc handler) const
{
    return (pimpl_ ? pimpl_ : Pimpl())->SecondaryDouble(key, handler);
}

PMemBlock MemBlock::SecondaryMemBlock(int key, ThrowHandlerFunc handler) const
{
    return Pimpl()->SecondaryMemBlock(key, handler);
}

void MemBlock::SetSecondaryItem(int key, DataItem const& item) const
{
    Pimpl()->SetSecondaryItem(key, item);
}

bool MemBlock::ExistsSecondaryItem(int key, DataItem& out) const
{
    return Pimpl()->ExistsSecondaryItem(key, out);
}

bool MemBlock::ExistsSecondaryInt(int key, int& out) const
{
    return Pimpl()->ExistsSecondaryInt(key, out);
}

bool MemBlock::ExistsSecondaryDouble(int key, double& out) const
{
    return Pimpl()->ExistsSecondaryDouble(key, out);
}

} // namespace NKelmic
