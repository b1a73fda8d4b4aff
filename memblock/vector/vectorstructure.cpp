#include <memblock/vector/vector.h>

#include <memblock/base/raise.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/vector/elemtypechange_internal.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <numeric>
#include <typeinfo>
#include <utility>
#include <vector>

namespace NKelmic {

namespace {

using MovableTypes = TypeUnion<NumericTypes, TypeSet<safestring, DataItem>>;

char* At(void* data, unsigned long index, unsigned long width)
{
    return static_cast<char*>(data) + index * width;
}

/// Whether all indices point into `length` elements; the first that does not is reported.
bool IndicesAreValid(int const* idx, unsigned int n, unsigned int length, ThrowHandlerFunc handler)
{
    for (unsigned int k = 0; k < n; ++k) {
        if (static_cast<unsigned int>(idx[k]) >= length) {
            Report(handler, err_kind, "Vector index out of bounds (%d): %d", length, idx[k]);
            return false;
        }
    }
    return true;
}

void MoveBytesUp(void* data, unsigned long size, unsigned long distance)
{
    // Plain elements only: objects must not be moved as bytes, see SwapUp.
    std::memmove(At(data, distance, 1), data, size);
    std::memset(data, 0, distance);
}

/// Exchange the first `count` elements with those `distance` places up.
template <class T>
void SwapUp(T* data, unsigned long count, unsigned long distance)
{
    // From the last one down, since both ranges may overlap. Swapping leaves every element alive,
    // so nothing is counted and nothing can fail.
    for (unsigned long i = count; i-- > 0;)
        std::swap(data[i], data[i + distance]);
}

template <class T>
void Gather(T* __restrict dst, T const* __restrict src, int const* __restrict idx, unsigned int n)
{
    for (unsigned int k = 0; k < n; ++k)
        dst[k] = src[idx[k]];
}

void KeepAllBut(Vector& v, unsigned int from, unsigned int count)
{
    // Through Rearrange, which derived classes override to keep what belongs to each element.
    std::vector<int> kept(v.Length() - count);
    std::iota(kept.begin(), kept.begin() + from, 0);
    std::iota(kept.begin() + from, kept.end(), static_cast<int>(from + count));
    auto const n = static_cast<unsigned int>(kept.size());
    v.Rearrange(kept.data(), n, n, throw_always);
}

} // namespace

void Vector::CheckNewLength(unsigned long n) const
{
    CheckLength(n);
    if (n != Length())
        CheckLengthIsFree(*this);
    unsigned long remaining = n;
    // The inner sizes stay, so the outermost one must come out whole.
    for (int i = GetRank() - 2; i >= 0; --i) { // all but the outermost
        unsigned int const size = GetDimSize(i);
        bool const fits = size == 0 ? n == 0 : remaining % size == 0;
        if (!fits)
            Raise(err_kind, "Cannot set total length %u for object: %s", n, *this);
        remaining = size == 0 ? 0 : remaining / size;
    }
}

/// Set the outermost dimension of a class with a shape to what the length leaves for it.
void Vector::FollowLength(unsigned long n)
{
    int const rank = GetRank();
    if (rank < 2)
        return;
    std::vector<unsigned int> sizes(rank);
    unsigned long inner = 1;
    for (int i = 0; i < rank; ++i) {
        sizes[i] = GetDimSize(i);
        if (i < rank - 1)
            inner *= sizes[i];
    }
    if (inner == 0)
        // Nothing can be divided by it.
        return; // the outermost size of an empty shape is free
    if (std::exchange(sizes[rank - 1], static_cast<unsigned int>(n / inner)) != n / inner)
        ChangeDimSizes(sizes.data(), rank);
}

void Vector::ResizeVector(unsigned long n, bool keep, bool init)
{
    CheckNewLength(n);
    // An unchanged length must not copy a shared buffer.
    if (n != chunk_.Length()) {
        std::as_const(*this).Pointer(); // a delayed initialization is for the old length
        chunk_.ResizeVector(n, keep, init);
    }
    Changed();
    // Also for an unchanged length: after an exchange of the buffer this is what fits the shape.
    FollowLength(n);
}

/// Give up the last elements, whose place the others have left already. Memory that can't be
/// given back must not count as a failure then: the old block is kept.
void Vector::Shorten(unsigned long n)
{
    auto const keep_block = [&] {
        if (chunk_.Length() != n)
            chunk_ = TypedChunk(n, ElemType(), MemChunk(chunk_.Chunk()), chunk_.GetOffset());
        Changed();
        FollowLength(n);
    };
    try {
        ResizeVector(n, true, true);
    } catch (std::bad_alloc const&) {
        keep_block();
    } catch (Exception const& e) {
        if (e.Code() != err_resize)
            throw;
        keep_block();
    }
}

void Vector::ChangeDimSizes(unsigned int const* dims, int n)
{
    if (n != 1)
        Raise(err_kind,
              "Vector::ChangeDimSizes() is called with an invalid number of dimensions %d for: %s",
              n, *this);
    ResizeVector(dims[0], true, true);
}

void Vector::ShiftVector(int n)
{
    if (n == 0 || EditPacked(*this, [n](Vector& limits) { limits.ShiftVector(n); }))
        return;
    unsigned long const length = Length();
    if (n < 0)
        return Erase(0, static_cast<int>(std::min<long>(-static_cast<long>(n), Length())));
    // Longer first: it is the only step that can fail.
    ResizeVector(length + n, true, true);
    WithElemTypeOr<ObjectTypes>(
        ElemType(), [&] { MoveBytesUp(Pointer(), length * ElemSize(), n * long(ElemSize())); },
        [&]<class T>(TypeTag<T>) { SwapUp(TypedPointer<T>(), length, n); });
    Changed();
}

template <class T>
void move_range_to_end_by_swap(T* data, unsigned int pos, unsigned int count, unsigned int length)
{
    // The elements to go end up at the end, alive, where the resize destroys them.
    for (unsigned long i = pos; i + count < length; ++i)
        std::swap(data[i], data[i + count]);
}

void Vector::Erase(int pos, int count)
{
    if (pos < 0 || count < 0)
        Raise(err_kind, "Vector::Erase() called with illegal parameters: %d, %d", pos, count);
    if (EditPacked(*this, [&](Vector& limits) { limits.Erase(pos, count); }))
        return;
    unsigned int const length = Length();
    unsigned int const from = static_cast<unsigned int>(pos);
    if (from >= length || count == 0)
        return;
    // A count beyond the end means the rest.
    unsigned int const gone = std::min(static_cast<unsigned int>(count), length - from);
    CheckNewLength(length - gone);
    if (ElemType() == PMemory && from + gone < length) // a class may keep names beside its objects
        return KeepAllBut(*this, from, gone);
    if (IsObject(ElemType())) {
        WithElemType<ObjectTypes>(
            ElemType(), "Function move_range_to_end_by_swap not implemented for data type '%s'",
            [&]<class T>(TypeTag<T>) {
                move_range_to_end_by_swap(TypedPointer<T>(), from, gone, length);
            });
    } else {
        void* const data = Pointer();
        std::memmove(At(data, from, ElemSize()), At(data, from + gone, ElemSize()),
                     static_cast<unsigned long>(length - from - gone) * ElemSize());
    }
    Shorten(length - gone);
}

template <class T>
void movebyone_tmpl(T* data, unsigned int pos, unsigned int length)
{
    if constexpr (ObjectTypes::has<T>)
        std::rotate(data + pos, data + length - 1, data + length);
    else
        std::memmove(data + pos + 1, data + pos, (length - 1ul - pos) * sizeof(T));
}

void Vector::Insert(int pos, DataItem const& item)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.Insert(pos, item); }))
        return;
    unsigned int const length = Length();
    if (pos < 0 || static_cast<unsigned int>(pos) > length)
        Raise(err_kind, "Cannot insert element at position %d into: %s", pos, *this);
    WithElemType<MovableTypes>(
        ElemType(), "Function movebyone_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            DataItem const value(item); // it may be an element that is about to move
            ResizeVector(length + 1ul, true, true);
            movebyone_tmpl(TypedPointer<T>(), static_cast<unsigned int>(pos), length + 1);
            // SetElem converts and refuses as in an assignment. After a refusal the place that was
            // made for it goes again.
            try {
                SetElem(static_cast<unsigned int>(pos), value);
            } catch (...) {
                Erase(pos, 1);
                throw;
            }
        });
}

template <class T>
void rearrange_swap(T* dst, T* src, int const* idx, unsigned int n, unsigned int srclen)
{
    // Swapped, since each object has one place only: of an index that comes twice the second gets
    // the empty element that the first one left.
    for (unsigned int k = 0; k < n; ++k)
        if (static_cast<unsigned int>(idx[k]) < srclen)
            std::swap(dst[k], src[idx[k]]);
}

void Vector::Rearrange(int const* idx, unsigned int n, unsigned int newlen,
                       ThrowHandlerFunc handler)
{
    CheckNewLength(newlen);
    n = std::min(n, newlen); // further entries have no place
    if (!IndicesAreValid(idx, n, Length(), handler))
        return;
    // An element ahead of index 0 survives.
    bool const ahead = chunk_.GetOffset() >= ElemSize() && !IsObject(ElemType());
    // Aside, and installed at the end: until then the vector is as it was.
    TypedChunk fresh = ahead ? NewChunk(newlen + 1ul, ElemType()) : NewChunk(newlen, ElemType());
    if (ahead) {
        std::memcpy(fresh.Data(),
                    static_cast<char const*>(std::as_const(*this).Pointer()) - ElemSize(),
                    ElemSize());
        fresh = TypedChunk(newlen, ElemType(), MemChunk(fresh.Chunk()), ElemSize());
    }
    AskForContent(*this, chunk_); // or what moves to the new buffer would be lost
    if (IsObject(ElemType()))
        WithElemType<ObjectTypes>(
            ElemType(), "Function rearrange_swap not implemented for data type '%s'",
            [&]<class T>(TypeTag<T>) {
                rearrange_swap(static_cast<T*>(fresh.Data()), TypedPointer<T>(), idx, n, Length());
            });
    else
        WithElemType<PlainTypes>(ElemType(), "Vector::Rearrange(): element type not supported: %s",
                                 [&]<class T>(TypeTag<T>) {
                                     Gather(static_cast<T*>(fresh.Data()),
                                            std::as_const(*this).TypedPointer<T>(), idx, n);
                                 });
    SetTypedChunk(fresh);
}

DerivedPointer<Vector> Vector::CloneSlice(unsigned int from, unsigned int to) const
{
    if (from != to) {
        unsigned int const length = LimitCount(*this);
        if (from >= length)
            Raise(err_precondition, "Vector::CloneSlice(): start index invalid (%d): %s",
                  static_cast<int>(from), *this);
        unsigned int const end = to == 0 ? from + 1 : std::min(to, length);
        if (from < end)
            return DoCloneSlice(from, end);
    }
    return DoCloneSlice(0, 0);
}

DerivedPointer<Vector> Vector::DoCloneSlice(unsigned int from, unsigned int to) const
{
    return CloneWith(CopyOfRange(chunk_, from, to - from), factor_);
}

void Vector::SetFirstIndex(int n)
{
    if (IsObject(ElemType()))
        ThrowAssertException(__FILE__, __LINE__, "!IsObject(ElemType())");
    if (EditPacked(*this, [n](Vector& limits) { limits.SetFirstIndex(n); }))
        return;
    // The view moves on the same buffer, no byte is copied.
    long const width = ElemSize();
    long const offset = static_cast<long>(chunk_.GetOffset()) + n * width;
    long const length = static_cast<long>(Length()) - n;
    if (offset < 0 || length < 0)
        Raise(err_kind, "Vector index out of bounds (%d): %d", Length(), n);
    std::as_const(*this).Pointer(); // a delayed initialization is for the old extent
    SetTypedChunk(TypedChunk(length, ElemType(), chunk_.Chunk(), offset));
}

void Vector::SetTypedChunk(TypedChunk const& chunk)
{
    KeepAlive const alive(*this); // the cached values that go may hold the last pointer to it
    if (EditPacked(*this, [&](Vector& limits) { limits.SetTypedChunk(chunk); }))
        return;
    CheckChunk(chunk);
    if (chunk.Length() != chunk_.Length())
        CheckNewLength(chunk.Length());
    AskForContent(*this, chunk);
    // Asked before anything is changed: a class may refuse the type.
    if (chunk.Type() != ElemType())
        NotifyElemType(chunk.Type());
    ElemTypeChange const change(*this);
    auto const install = [&](TypedChunk const& content) {
        bool const retyped = content.Type() != ElemType();
        chunk_ = content;
        if (retyped)
            ResetPimpl();
        ContentHasBeenChanged();
        if (retyped)
            change.PutBack();
    };
    // Keeps the old buffer alive, and brings it back if a derived class refuses the length.
    TypedChunk const old = chunk_;
    install(chunk);
    try {
        if (old.Length() != chunk_.Length())
            ResizeVector(chunk_.Length(), true, true);
    } catch (...) {
        install(old);
        throw;
    }
    CountObjects(*this);
}

bool Vector::UseMemoryOf(Vector const& other)
{
    bool as_large = false;
    if (EditPacked(*this, [&](Vector& limits) { as_large = limits.UseMemoryOf(other); }))
        return as_large;
    if (auto const limits = PackedLimits(other))
        return UseMemoryOf(cref(limits));
    // A view destroys its objects as what it takes them for, and as many as it knows of.
    bool const objects = IsObject(ElemType()) || IsObject(other.ElemType());
    if (objects && (ElemType() != other.ElemType() || Length() != other.Length()))
        Raise(err_kind, "Cannot cast data array into requested type: %s", other);
    AskForContent(*this, other.chunk_);
    other.Pointer(); // what the other has put off must be done now
    bool const same_size = chunk_.Chunk().Size() == other.chunk_.Chunk().Size();
    // The element type stays: the bytes of the other are read as this vector's elements.
    chunk_.SetMemChunk(other.chunk_.Chunk(), other.chunk_.GetOffset());
    chunk_.SetDelayed(nullptr); // it was meant for the memory that went
    Changed();
    CountObjects(*this);
    return same_size;
}

bool Vector::UseMemoryOf(DerivedPointer<Vector> const& other)
{
    return UseMemoryOf(cref(other));
}

void Vector::TransferOwnerShip(DerivedPointer<Vector> target)
{
    // Given to itself a vector would lose what it holds.
    if (!target || target.Pointer() == this)
        return;
    TypedChunk const nothing;
    // Asked before the target takes over, so that a refusal leaves both as they were.
    AskForContent(*this, nothing);
    target->UseMemoryOf(*this);
    SetTypedChunk(nothing);
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template void rearrange_swap<T>(T*, T*, int const*, unsigned int, unsigned int);               \
    template void move_range_to_end_by_swap<T>(T*, unsigned int, unsigned int, unsigned int);
MEMBLOCK_OBJECT_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template void movebyone_tmpl<T>(T*, unsigned int, unsigned int);
MEMBLOCK_VALUE_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

} // namespace NKelmic
