#include <memblock/core/typedchunk.h>

#include <memblock/base/alloc.h>
#include <memblock/logging/logger.h>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <utility>

namespace NKelmic {

namespace {

/// Whether `count` elements of `width` bytes fit behind the offset; nothing here wraps.
bool fits(unsigned long size, unsigned long offset, unsigned long count, unsigned long width)
{
    return offset <= size && count <= (size - offset) / width;
}

MemChunk const& checked(MemChunk const& chunk, unsigned long offset, unsigned long count,
                        unsigned long width)
{
    if (!fits(chunk.Size(), offset, count, width))
        Raise(err_kind, "MemChunk too small (%u bytes) to contain %u*%u+%u bytes of data.",
              chunk.Size(), count, width, offset);
    return chunk;
}

MemChunk&& checked(MemChunk&& chunk, unsigned long offset, unsigned long count, unsigned long width)
{
    checked(std::as_const(chunk), offset, count, width);
    return std::move(chunk);
}

} // namespace

TypedChunk::TypedChunk()
{
    chunk_.IncrTypeCount();
}

TypedChunk::TypedChunk(unsigned long length, DataType type, MemChunk const& chunk,
                       unsigned long byte_offset)
    : chunk_(checked(chunk, byte_offset, length, SizeOf(type)),
             MemChunk::one_clone + MemChunk::one_type),
      length_(length), type_(type), elem_size_(static_cast<unsigned char>(SizeOf(type)))
{
    Rebase(byte_offset);
}

TypedChunk::TypedChunk(unsigned long length, DataType type, MemChunk&& chunk,
                       unsigned long byte_offset)
    : chunk_(checked(std::move(chunk), byte_offset, length, SizeOf(type))), length_(length),
      type_(type), elem_size_(static_cast<unsigned char>(SizeOf(type)))
{
    chunk_.IncrTypeCount();
    Rebase(byte_offset);
}

TypedChunk::TypedChunk(TypedChunk&& o) noexcept
    : chunk_(std::move(o.chunk_)), data_(std::exchange(o.data_, nullptr)),
      length_(std::exchange(o.length_, 0)), type_(o.type_), elem_size_(o.elem_size_),
      no_destroy_(o.no_destroy_), delayed_(std::exchange(o.delayed_, nullptr))
{
}

TypedChunk::TypedChunk(TypedChunk const& o, shared_view)
    : chunk_(o.chunk_, MemChunk::one_clone + MemChunk::one_type), data_(o.data_),
      length_(o.length_), type_(o.type_), elem_size_(o.elem_size_), no_destroy_(o.no_destroy_)
{
}

TypedChunk::TypedChunk(TypedChunk const& o) : TypedChunk(o, shared_view())
{
    if (o.delayed_)
        delayed_ = o.delayed_->Clone();
}

TypedChunk& TypedChunk::operator=(TypedChunk const& o)
{
    if (this != &o) {
        TypedChunk copy(o); // first: destroying the old elements may take `o` with it
        swap(copy);
    }
    return *this;
}

TypedChunk::~TypedChunk()
{
    LeaveBuffer();
    delete delayed_;
}

void TypedChunk::swap(TypedChunk& o) noexcept
{
    chunk_.swap(o.chunk_);
    std::swap(data_, o.data_);
    std::swap(length_, o.length_);
    std::swap(type_, o.type_);
    std::swap(elem_size_, o.elem_size_);
    std::swap(no_destroy_, o.no_destroy_);
    std::swap(delayed_, o.delayed_);
}

void TypedChunk::Rebase(unsigned long byte_offset)
{
    data_ = static_cast<char*>(chunk_.Data()) + byte_offset;
}

void* TypedChunk::At(unsigned long index) const
{
    return static_cast<char*>(data_) + index * elem_size_;
}

unsigned long TypedChunk::GetOffset() const
{
    return static_cast<unsigned long>(static_cast<char*>(data_) -
                                      static_cast<char*>(chunk_.Data()));
}

void TypedChunk::Init()
{
    DelayedInitialize();
    // Until all elements live, a failure here must not let the destructor touch them.
    bool no_destroy = std::exchange(no_destroy_, true);
    if (!IsObject(type_)) {
        DetachSharedData();
    } else if (chunk_.IsShared() || chunk_.IsReadOnly()) {
        unsigned long const offset = GetOffset();
        MemChunk fresh(BytesFor(length_));
        ReplaceBuffer(fresh, offset);
        no_destroy = false; // nobody else knows the new buffer
    }
    Initialize_Buffer(data_, length_, type_);
    no_destroy_ = no_destroy;
}

bool TypedChunk::operator==(TypedChunk const& o) const
{
    if (this == &o)
        return true;
    if (length_ != o.length_ || type_ != o.type_)
        return false;
    DelayedInitialize();
    o.DelayedInitialize();
    return length_ == 0 || std::memcmp(data_, o.data_, length_ * elem_size_) == 0;
}

void TypedChunk::DelayedInitialize() const
{
    // The pointer goes first: the initializer reads the array that it fills.
    std::unique_ptr<DelayedInitializer> const pending(std::exchange(delayed_, nullptr));
    if (pending)
        pending->Initialize(const_cast<TypedChunk&>(*this));
}

void TypedChunk::SetDelayed(DelayedInitializer* initializer)
{
    delete std::exchange(delayed_, initializer);
}

/// Destroy the object elements where they lie. What is not ours or not writable stays.
void TypedChunk::DestroyElements()
{
    if (!IsObject(type_) || no_destroy_ || chunk_.IsReadOnly())
        return;
    try {
        DelayedInitialize();
    } catch (...) {
        return; // nobody knows which elements live: rather a leak than a wrong release
    }
    Destroy_Buffer(data_, length_, type_);
}

/// Give up the view on the buffer; the last one takes the object elements along.
void TypedChunk::LeaveBuffer()
{
    if (chunk_.DecrTypeCount() <= 0)
        DestroyElements();
}

void TypedChunk::SetMemChunk(MemChunk const& chunk, unsigned long byte_offset)
{
    MemChunk copy(checked(chunk, byte_offset, length_, elem_size_));
    ReplaceBuffer(copy, byte_offset);
}

void TypedChunk::SwapMemChunk(MemChunk& chunk, unsigned long byte_offset)
{
    checked(chunk, byte_offset, length_, elem_size_);
    ReplaceBuffer(chunk, byte_offset);
}

/// Exchange the buffer for a checked one.
void TypedChunk::ReplaceBuffer(MemChunk& fresh, unsigned long byte_offset)
{
    fresh.IncrTypeCount(); // the only step that can fail
    LeaveBuffer();
    chunk_.swap(fresh);
    Rebase(byte_offset);
    no_destroy_ = false;
}

void TypedChunk::DetachSharedData()
{
    if (!chunk_.IsShared() && !chunk_.IsReadOnly())
        return;
    if (chunk_.IsReadOnly() && Logger::Enabled(topic_conv, 4))
        Logger::Log(topic_conv, "mmap", 4,
                    Text("Performance warning: copying a mmapped memory area for mutable access: "
                         "array of %d elements of type %s",
                         length_, TypeToString(type_)));
    if (IsObject(type_))
        DelayedInitialize(); // only live elements can be copied
    unsigned long const offset = GetOffset();
    unsigned long const size = BytesFor(length_);
    void* const block = mb_malloc(size); // not cleared: the copy covers all but the offset
    if (!block && size > 0)
        throw std::bad_alloc();
    MemChunk fresh(block, mb_free, size);
    if (offset > 0)
        std::memset(block, 0, offset);
    Init_Copy_Buffer(static_cast<char*>(block) + offset, data_, length_, type_);
    ReplaceBuffer(fresh, offset);
}

bool TypedChunk::Consistent(safestring& message) const
{
    bool ok = chunk_.Consistent(message);
    auto const fail = [&](safestring const& text) {
        message += text;
        ok = false;
    };
    if (type_ < 0 || type_ > greatest_elem_type_id)
        fail("Invalid Vector::ElemType(). ");
    if (!IsInSet<AllTypes>(type_) || elem_size_ != SizeOf(type_))
        fail("Vector::elem_type_ and ElemSize() do not match. ");
    if (elem_size_ == 0 || !fits(chunk_.Size(), GetOffset(), length_, elem_size_))
        fail(Text("Vector data size (%d bytes) is larger than MemBlock::Size() (%u bytes). ",
                  length_ * elem_size_, chunk_.Size()));
    return ok;
}

bool IsConsistent(TypedChunk& chunk)
{
    safestring message;
    bool const ok = chunk.Consistent(message);
    if (!message.empty())
        std::cerr << message.c_str();
    return ok;
}

} // namespace NKelmic
