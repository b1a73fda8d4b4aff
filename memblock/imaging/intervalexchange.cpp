#include <memblock/base/alloc.h>
#include <memblock/base/raise.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervallimits_internal.h>
#include <memblock/vector/convert.h>
#include <memblock/vector/vectorchunk_internal.h>

namespace NKelmic {

namespace {

/// Contiguous limits of rows with these lengths.
template <class Length>
LimitArray LimitsOfRows(unsigned int n, Length const& length)
{
    LimitArray limits(n + 1UL);
    unsigned long total = 0;
    limits[0] = 0;
    for (unsigned int k = 0; k < n; ++k) {
        total += length(k);
        // The sum is in 64 bits and checked at each step, so no limit is stored wrapped.
        CheckLength(total);
        limits[k + 1UL] = static_cast<unsigned int>(total);
    }
    return limits;
}

template <class T>
TypedChunk SideBySide(unsigned int n, std::vector<T> const* rows, unsigned int total)
{
    TypedChunk const chunk = OpenChunk(total, type_of<T>::value);
    T* out = static_cast<T*>(chunk.Data());
    for (unsigned int k = 0; k < n; ++k)
        out = std::copy(rows[k].begin(), rows[k].end(), out);
    return chunk;
}

Vector const& RowOf(DerivedPointer<Vector> const& rows, unsigned int k)
{
    PMemBlock const* const elements = cref(rows).PMemoryPointer();
    if (Vector const* const row = MemCast<Vector>(elements[k]))
        return *row;
    Raise(err_kind, "Element %d of input vector is not a vector: %s", k, elements[k]);
}

[[noreturn]] void RaiseElement(unsigned int k, MemBlock const* element)
{
    Raise(err_kind, "Type of vector element %d not supported: %s", k, element);
}

void CheckIsObjects(DerivedPointer<Vector> const& rows)
{
    // Ahead of the rows: the elements of any other type cannot be read as objects.
    if (cref(rows).ElemType() != Vector::PMemory && cref(rows).Length() > 0)
        Raise(err_kind, "Element %d of input vector is not a vector: %s", 0,
              cref(rows).GetDataItem(0).GetDescription());
}

/// The rows of a vector of vectors as one vector of `type`.
DerivedPointer<Vector> Flat(DerivedPointer<Vector> const& rows, unsigned long total, DataType type)
{
    TypedChunk chunk = OpenChunk(total, type);
    auto* out = static_cast<char*>(chunk.Data());
    for (unsigned int k = 0; k < cref(rows).Length(); ++k) {
        Vector const& row = RowOf(rows, k);
        // An empty row has no type to convert; it may be a vector of anything.
        if (row.Length() == 0)
            continue;
        try {
            auto const converted = row.ConvertElemsToType(type, true, true);
            TypedChunk::Copy_Buffer(out, cref(converted).Pointer(), row.Length(), type);
        } catch (Exception const&) { // whose reason says nothing about which row it was
            RaiseElement(k, &row);
        }
        out += static_cast<unsigned long>(row.Length()) * TypedChunk::SizeOf(type);
    }
    return Vector::Create(chunk, 1.0);
}

/// Rows, limits and flat elements of a vector of vectors.
DerivedPointer<IntervalVector> Grouped(DerivedPointer<Vector> const& rows, DataType type,
                                       IndexVector::TargetData const* pixels)
{
    unsigned int const n = cref(rows).Length();
    CheckIsObjects(rows);
    LimitArray limits = LimitsOfRows(n, [&](unsigned int k) { return RowOf(rows, k).Length(); });
    DerivedPointer<Vector> target = Flat(rows, limits[n], type);
    if (pixels)
        target = IndexVector::Create(target, *pixels);
    return IntervalVector::Create(n, LimitArray::base, limits.Take(), mb_free, target);
}

} // namespace

template <class T>
DerivedPointer<IntervalVector> IntervalVector::CreateFromStdVectors(unsigned int n,
                                                                    std::vector<T> const* rows)
{
    LimitArray limits = LimitsOfRows(n, [&](unsigned int k) { return rows[k].size(); });
    auto const values = Vector::Create(SideBySide(n, rows, limits[n]), 1.0);
    return Create(n, LimitArray::base, limits.Take(), mb_free, values);
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template MEMBLOCK_API DerivedPointer<IntervalVector> IntervalVector::CreateFromStdVectors<T>(  \
        unsigned int, std::vector<T> const*);
MEMBLOCK_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

DerivedPointer<IntervalVector>
IntervalVector::CreateFromStdVectors(unsigned int n, std::vector<unsigned int> const* rows,
                                     TargetData const& target)
{
    LimitArray limits = LimitsOfRows(n, [&](unsigned int k) { return rows[k].size(); });
    auto const pixels = IndexVector::Create(0, target);
    pixels->SetTypedChunk(SideBySide(n, rows, limits[n]));
    return Create(n, LimitArray::base, limits.Take(), mb_free, pixels);
}

DerivedPointer<IntervalVector>
IntervalVector::CreateFromVectorOfVectors(DerivedPointer<Vector> rows, DataType type)
{
    return Grouped(rows, type, nullptr);
}

DerivedPointer<IntervalVector>
IntervalVector::CreateFromVectorOfVectors(DerivedPointer<Vector> rows, TargetData const& target)
{
    return Grouped(rows, UnsignedInt, &target);
}

DerivedPointer<IntervalVector> pmemory_vector_to_intervalvector(DerivedPointer<Vector> objects)
{
    unsigned int const n = objects ? cref(objects).Length() : 0;
    // Without a row there is no target to take the sizes from.
    if (n == 0)
        return IntervalVector::Create();
    if (cref(objects).ElemType() != Vector::PMemory)
        Raise(err_kind, "Type of vector element %d not supported: %s", 0, objects);
    PMemBlock const* const elements = cref(objects).PMemoryPointer();
    // Images become lists once and are kept, as both the limits and the pixels are made of them.
    std::vector<DerivedPointer<IndexVector>> lists(n);
    for (unsigned int k = 0; k < n; ++k) {
        Image const* const drawn = MemCast<Image>(elements[k]);
        if (!drawn && !PixelList(elements[k]))
            RaiseElement(k, elements[k].Pointer());
        lists[k] =
            drawn ? drawn->GetMaskVector() : DerivedPointer<IndexVector>(PixelList(elements[k]));
        if (!SameTarget(cref(lists[k]), cref(lists[0])))
            Raise(err_kind, "Incompatible targets: %s AND %s", lists[0], lists[k]);
    }
    LimitArray limits = LimitsOfRows(n, [&](unsigned int k) { return cref(lists[k]).Length(); });
    auto const pixels = OpenIndexVector(limits[n], cref(lists[0]).GetTargetData());
    unsigned int* out = pixels->UnsignedIntPointer();
    for (auto const& list : lists)
        out = std::copy_n(cref(list).UnsignedIntPointer(), cref(list).Length(), out);
    return IntervalVector::Create(n, LimitArray::base, limits.Take(), mb_free, pixels);
}

DerivedPointer<Vector> intervalvector_to_pmemory_vector(DerivedPointer<IntervalVector> v)
{
    IntervalVector const& objects = cref(v);
    auto const target = objects.IndexVectorTarget();
    auto const target_data = cref(target).GetTargetData();
    unsigned int const* const pixels = cref(target).UnsignedIntPointer();
    Intervals const intervals(objects);
    auto result = Vector::Create(intervals.Count(), Vector::PMemory, true, 0, 1.0);
    for (unsigned int k = 0; k < intervals.Count(); ++k) {
        auto const list = OpenIndexVector(intervals.Size(k), target_data);
        std::copy(pixels + intervals.From(k), pixels + intervals.To(k), list->UnsignedIntPointer());
        result->SetElem(k, PMemBlock(list));
    }
    return result;
}

} // namespace NKelmic
