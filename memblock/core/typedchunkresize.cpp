#include <memblock/core/typedchunk.h>

#include <memblock/base/alloc.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace NKelmic {

/// Bytes of the buffer that holds `count` elements at the present offset.
unsigned long TypedChunk::BytesFor(unsigned long count) const
{
    unsigned long const offset = GetOffset();
    if (count > (std::numeric_limits<unsigned long>::max() - offset) / elem_size_)
        Raise(err_state, "Cannot allocate %u elements of %u bytes", count, elem_size_);
    return offset + count * elem_size_;
}

void TypedChunk::ResizeVector(unsigned long length, bool keep, bool init)
{
    DelayedInitialize(); // it fills the elements of this length, not those that come
    DetachSharedData();
    // A caller that adds elements one by one: reserve, and use up what was reserved.
    bool const gradual = length_ > 1 && length > length_ && length - length_ <= 2;
    bool const enough = gradual && BytesFor(length) <= chunk_.Size();
    unsigned long const capacity = gradual ? std::max(length, length_ + length_ / 2) : length;
    unsigned long const size = enough ? chunk_.Size() : BytesFor(capacity);
    if (IsObject(type_))
        ResizeObjects(length, keep, size);
    else
        ResizePlain(length, keep, init, size);
}

void TypedChunk::ResizePlain(unsigned long length, bool keep, bool init, unsigned long size)
{
    unsigned long const room = std::min(size, chunk_.Size());
    if (size != chunk_.Size())
        Reallocate(size, keep, init); // clears what lies behind the room
    // Spare room may hold the bytes of earlier elements, or of a growth without `init`.
    unsigned long const first = GetOffset() + (keep ? std::min(length_, length) : 0) * elem_size_;
    unsigned long const end = std::min(GetOffset() + length * elem_size_, room);
    if (init && first < end)
        std::memset(static_cast<char*>(chunk_.Data()) + first, 0, end - first);
    length_ = length;
}

/// The stored length tells at each step which elements live, so that a failure harms nobody.
void TypedChunk::ResizeObjects(unsigned long length, bool keep, unsigned long size)
{
    if (keep && length == length_ && size == chunk_.Size())
        return;
    unsigned long const kept = keep ? std::min(length_, length) : 0;
    if (!no_destroy_)
        Destroy_Buffer(At(kept), length_ - kept, type_);
    length_ = kept;
    try {
        if (size != chunk_.Size())
            Reallocate(size, keep, true);
    } catch (...) {
        if (length > kept || size > chunk_.Size())
            throw;
        // Only memory is not given back: the elements that go have gone.
    }
    Initialize_Buffer(At(kept), length - kept, type_);
    length_ = length;
    if (!keep)
        no_destroy_ = false; // all elements are new, and ours
}

void TypedChunk::Reallocate(unsigned long size, bool keep, bool zero_new)
{
    unsigned long const offset = GetOffset();
    if (type_ == DataTypeBase::String && keep)
        MoveToNewBlock(size);
    else
        chunk_.Resize(size, keep, zero_new);
    Rebase(offset);
    no_destroy_ = false;
}

/// Texts can't be moved as bytes: each points into itself while it is short.
void TypedChunk::MoveToNewBlock(unsigned long size)
{
    void* const block = mb_calloc(size, 1);
    if (!block && size > 0)
        Raise(err_resize, "Cannot reallocate %u bytes", size);
    MemChunk fresh(block, mb_free, size);
    fresh.IncrTypeCount();
    Init_Move_Buffer(static_cast<char*>(block) + GetOffset(), data_, length_, type_);
    chunk_.DecrTypeCount(); // what stays behind is raw
    chunk_.swap(fresh);
}

} // namespace NKelmic
