#include <memblock/vector/convert_internal.h>
#include <memblock/vector/elemtext_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <vector>

namespace NKelmic {

namespace {

/// The one-element numeric vector behind an element; null if it is something else.
Vector const* AsNumber(PMemBlock const& element)
{
    auto const* number = MemCast<Vector>(element.Pointer());
    // One element only: a longer vector has no single value to put in its place.
    bool const is_number =
        number && number->Length() == 1 && IsInSet<NumericTypes>(number->ElemType());
    return is_number ? number : nullptr;
}

template <class T>
T CookedValue(Vector const& number)
{
    return WithElemType<NumericTypes>(
        number.ElemType(), "Function acsv_tmpl not implemented for data type '%s'",
        [&]<class S>(TypeTag<S>) {
            // Without a factor 64-bit integers stay exact; a product goes through double.
            wide_t<S> const raw = number.TypedPointer<S>()[0];
            return number.Factor() == 1.0 ? ToElem<T>(raw) : ToElem<T>(raw * number.Factor());
        });
}

/// The rows of a vector of vectors, all of one length and one numeric type; false if they differ.
bool RowsOf(Vector const& x, std::vector<DerivedPointer<Vector>>& rows)
{
    for (unsigned int i = 0; i < x.Length(); ++i) {
        auto const* row = MemCast<Vector>(x.PMemoryPointer(i)->Pointer());
        if (!row)
            Raise(err_kind, "Transposing is supported only for vectors of vectors.");
        rows.push_back(DerivedPointer<Vector>(row));
    }
    return std::all_of(rows.begin(), rows.end(), [&](DerivedPointer<Vector> const& row) {
        return IsInSet<NumericTypes>(row->ElemType()) && row->Length() == rows[0]->Length() &&
               row->ElemType() == rows[0]->ElemType();
    });
}

/// One factor for all rows: where they differ, the cooked values as Double.
void UnifyFactors(std::vector<DerivedPointer<Vector>>& rows)
{
    // A column takes elements of all rows and has one factor.
    double const factor = rows[0]->Factor();
    bool const same = std::all_of(rows.begin(), rows.end(),
                                  [&](auto const& row) { return row->Factor() == factor; });
    if (same)
        return;
    for (DerivedPointer<Vector>& row : rows) {
        row = PrivateCopy(cref(row).ConvertElemsToType(Vector::Double, true, true));
        row->EnsureFactor(1.0);
    }
}

/// Columns of rows; some rows at a time, so that what is read stays in the cache.
template <class T>
std::vector<DerivedPointer<Vector>> Transposed(std::vector<DerivedPointer<Vector>> const& rows)
{
    unsigned int const outer = static_cast<unsigned int>(rows.size());
    unsigned int const inner = rows[0]->Length();
    std::vector<DerivedPointer<Vector>> columns;
    for (unsigned int c = 0; c < inner; ++c)
        columns.push_back(Vector::Create(OpenChunk(outer, type_of<T>::value), rows[0]->Factor()));
    // Reading along a row and writing down a column at once would miss the cache on each write.
    constexpr unsigned int strip = 16;
    for (unsigned int from = 0; from < outer; from += strip) {
        unsigned int const to = std::min(outer, from + strip);
        T const* src[strip];
        for (unsigned int r = from; r < to; ++r)
            src[r - from] = cref(rows[r]).TypedPointer<T>();
        for (unsigned int c = 0; c < inner; ++c) {
            T* const dst = columns[c]->TypedPointer<T>();
            for (unsigned int r = from; r < to; ++r)
                dst[r] = src[r - from][c];
        }
    }
    return columns;
}

} // namespace

template <class S>
void ConvertToStrings_tmpl(S const* src, unsigned int n, double factor, safestring* dst)
{
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = factor == 1.0 ? ElemText(src[i])
                               : ElemText(static_cast<double>(wide_t<S>(src[i])) * factor);
}

template <class S>
void ConvertToDataItem_tmpl(S const* src, unsigned int n, double factor, DataItem* dst)
{
    for (unsigned int i = 0; i < n; ++i) {
        // Items know int, int64 and double: narrower numbers become one of these, wider ones stay.
        if constexpr (FloatTypes::has<S>)
            dst[i] = DataItem(static_cast<double>(src[i]));
        else if constexpr (sizeof(S) < sizeof(int))
            dst[i] = DataItem(static_cast<int>(wide_t<S>(src[i])));
        else
            dst[i] = DataItem(src[i]);
        if (factor != 1.0)
            ApplyFactor(dst[i], factor);
    }
}

template <class S>
void ConvertToMemBlock_tmpl(S const* src, unsigned int n, double factor, PMemBlock* dst)
{
    for (unsigned int i = 0; i < n; ++i) {
        // Raw value and factor stay apart, so that the object reads as the element did.
        auto const number = memblock_tmpl(src[i]);
        number->SetFactor(factor);
        dst[i] = number;
    }
}

/// Settled: objects hold cooked values, so the factor of the result is 1.
Converted NumbersToObjects(Vector const& v, DataType type)
{
    Converted result{NewChunk(v.Length(), type), 1.0};
    unsigned int const n = v.Length();
    void* const dst = result.chunk.Data();
    if (type == Vector::String)
        WithElemType<NumericTypes>(
            v.ElemType(), "Function ConvertToStrings_tmpl not implemented for data type '%s'",
            [&]<class S>(TypeTag<S>) {
                ConvertToStrings_tmpl(v.TypedPointer<S>(), n, v.Factor(),
                                      static_cast<safestring*>(dst));
            });
    else if (type == Vector::PolyType)
        WithElemType<NumericTypes>(
            v.ElemType(), "Function ConvertToDataItem_tmpl not implemented for data type '%s'",
            [&]<class S>(TypeTag<S>) {
                ConvertToDataItem_tmpl(v.TypedPointer<S>(), n, v.Factor(),
                                       static_cast<DataItem*>(dst));
            });
    else
        WithElemType<NumericTypes>(
            v.ElemType(), "Function ConvertToMemBlock_tmpl not implemented for data type '%s'",
            [&]<class S>(TypeTag<S>) {
                ConvertToMemBlock_tmpl(v.TypedPointer<S>(), n, v.Factor(),
                                       static_cast<PMemBlock*>(dst));
            });
    return result;
}

template <class S>
void ConvertFromObjects_tmpl(S const* src, unsigned int n, Vector& dst)
{
    for (unsigned int i = 0; i < n; ++i)
        dst.SetElem(i, src[i]);
}

Converted ObjectsToNumbers(Vector const& v, DataType type, bool keep_factor)
{
    // By SetElem: what an object is as a number, and what is refused, is then the same here and
    // there.
    auto const numbers = Vector::Create(OpenChunk(v.Length(), type), 1.0);
    WithElemType<ObjectTypes>(
        v.ElemType(), "Function ConvertFromObjects_tmpl not implemented for data type '%s'",
        [&]<class S>(TypeTag<S>) {
            ConvertFromObjects_tmpl(v.TypedPointer<S>(), v.Length(), *numbers);
        });
    // Objects hold cooked values, which go back to raw ones here.
    if (keep_factor)
        numbers->EnsureFactor(v.Factor());
    return {numbers->Chunk(), numbers->Factor()};
}

DerivedPointer<Vector> ConvertToNumericVector(DerivedPointer<Vector> x)
{
    if (!x || x->ElemType() != Vector::String)
        return x;
    unsigned int const n = x->Length();
    safestring const* const texts = cref(x).StringPointer();
    // Both are filled in one pass, for only the last text decides whether all are whole.
    auto const reals = Vector::Create(OpenChunk(n, Vector::Double), 1.0);
    auto const wholes = Vector::Create(OpenChunk(n, Vector::Int), 1.0);
    double* const real = reals->DoublePointer();
    int* const whole = wholes->IntPointer();
    bool all_whole = true;
    for (unsigned int i = 0; i < n; ++i) {
        if (StrToNumber(texts[i], whole[i], real[i]))
            real[i] = whole[i];
        else
            all_whole = false;
    }
    return all_whole ? wholes : reals;
}

template <class T>
DerivedPointer<Vector> acsv_tmpl(PMemBlock const* elements, unsigned int n)
{
    DerivedPointer<Vector> flat = Vector::Create(OpenChunk(n, type_of<T>::value), 1.0);
    T* const dst = flat->template TypedPointer<T>();
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = CookedValue<T>(*AsNumber(elements[i]));
    return flat;
}

DerivedPointer<Vector> AttemptConversionToSimpleVector(DerivedPointer<Vector> const& x)
{
    if (!x || x->ElemType() != Vector::PMemory || x->Length() == 0)
        return nullptr;
    PMemBlock const* const elements = cref(x).PMemoryPointer();
    DataType cover = Vector::NoType;
    for (unsigned int i = 0; i < x->Length(); ++i) {
        Vector const* const number = AsNumber(elements[i]);
        // All or nothing: with one element that is no number the vector stays as it is.
        if (!number)
            return nullptr;
        // The cooked values are what goes into the flat vector, which has no factor.
        DataType const type = number->Factor() == 1.0 ? number->ElemType() : Vector::Double;
        cover = i == 0 ? type : ChooseCoverType(cover, type);
    }
    return WithElemType<NumericTypes>(
        cover, "Function acsv_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) { return acsv_tmpl<T>(elements, x->Length()); });
}

DerivedPointer<Vector> TransposeVectorOfVectors(DerivedPointer<Vector> x)
{
    if (!x || x->ElemType() != Vector::PMemory)
        Raise(err_kind, "Transposing is supported only for vectors of vectors.");
    std::vector<DerivedPointer<Vector>> rows;
    char const* const unequal = "Transposing is supported only for vectors of vectors of the same "
                                "length and same numeric type.";
    if (!RowsOf(cref(x), rows))
        Raise(err_kind, unequal);
    // No row says how many columns there are: the answer is empty, too.
    if (rows.empty())
        return Vector::Create(NewChunk(0, Vector::PMemory), 1.0);
    UnifyFactors(rows);
    auto const columns = WithElemType<NumericTypes>(
        rows[0]->ElemType(), unequal, [&]<class T>(TypeTag<T>) { return Transposed<T>(rows); });
    auto result = Vector::Create(columns.size(), Vector::PMemory, true, 0, 1.0);
    std::copy(columns.begin(), columns.end(), result->PMemoryPointer());
    return result;
}

} // namespace NKelmic
