#include <memblock/imaging/numrange.h>

#include <memblock/core/attempt_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <numeric>

namespace NKelmic {

namespace {

TypedChunk TwoNumbers(int begin, int end)
{
    TypedChunk chunk = NewChunk(2, Vector::Int);
    int* const numbers = static_cast<int*>(chunk.Data());
    numbers[0] = begin;
    numbers[1] = end;
    return chunk;
}

constexpr KeyTable range_keys{std::to_array<Key<NumRange>>({
    {"begin", [](NumRange const& r, ThrowHandlerFunc) -> DataItem { return r.Begin(); }},
    {"end", [](NumRange const& r, ThrowHandlerFunc) -> DataItem { return r.End(); }},
    {"exclusive",
     [](NumRange const& r, ThrowHandlerFunc) -> DataItem { return r.Exclusive() ? 1 : 0; }},
    {"exploded", [](NumRange const& r, ThrowHandlerFunc) -> DataItem { return r.Exploded(); }},
})};

} // namespace

NumRange::NumRange(int begin, int end) : Vector(TwoNumbers(begin, end), 1.0) {}

DerivedPointer<NumRange> NumRange::Create()
{
    return Create(0, 0);
}

DerivedPointer<NumRange> NumRange::Create(int begin, int end)
{
    return DerivedPointer<NumRange>(new NumRange(begin, end));
}

DerivedPointer<NumRange> NumRange::Create(int begin, int end, bool exclusive)
{
    DerivedPointer<NumRange> range = Create(begin, end);
    // Kept beside the elements: arithmetic on a range works on its two numbers.
    range->exclusive_ = exclusive ? 1 : 0;
    return range;
}

char const* NumRange::Class() const
{
    return StaticClass();
}

bool NumRange::Conforms(char const* classname) const
{
    return SameName(classname, "numrange") || Vector::Conforms(classname);
}

char const* NumRange::ClassDescription() const
{
    return "NumRange - encapsulates a range of integers.\n"
           "Derived from: Vector\n"
           "Subkeys:\n"
           "\tbegin - return the first integer\n"
           "\tend - return the last integer, or the one behind it if the range is exclusive\n"
           "\texclusive - return 1 if the end does not belong to the range\n"
           "\texploded - return all integers of the range\n";
}

PMemBlock NumRange::DoClone(int) const
{
    return DerivedPointer<NumRange>(new NumRange(*this));
}

/// The elements are a vector's, so scripts may have taken them away or made them texts.
int NumRange::At(unsigned int i) const
{
    return i < Length() && IsInSet<NumericTypes>(ElemType()) ? (*this)[i] : 0;
}

safestring NumRange::DoGetDescription() const
{
    return Text(Exclusive() ? "[%d..%d)" : "%d..%d", Begin(), End());
}

DerivedPointer<Vector> NumRange::Exploded() const
{
    // In 64 bits: the whole range of int has more numbers than an int counts.
    long const length = static_cast<long>(End()) - Begin() + (Exclusive() ? 0 : 1);
    DerivedPointer<Vector> numbers =
        Vector::Create(OpenChunk(static_cast<unsigned long>(std::max(length, 0L)), Int), 1.0);
    int* const first = numbers->IntPointer();
    std::iota(first, first + numbers->Length(), static_cast<long>(Begin())); // goes one beyond
    return numbers;
}

DataItem NumRange::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* row = range_keys.Find(key))
        return ReadKey(*row, *this, handler);
    if (key.empty() || key == "!")
        return "begin,end,exclusive,exploded," + Vector::ResolveSubItem(key, handler).GetString();
    return Vector::ResolveSubItem(key, handler);
}

DataItem NumRange::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (SameName(verb, "scalar"))
        // The key by which a script cuts a vector: there the end never belongs to the slice.
        return Text("@slice:%d:%d", Begin(), static_cast<long>(End()) + (Exclusive() ? 0 : 1));
    return Vector::DoVerb(verb, argc, argv);
}

/// One of the two numbers is no range.
DerivedPointer<Vector> NumRange::DoCloneSlice(unsigned int from, unsigned int to) const
{
    return Vector::Create(CopyOfRange(Chunk(), from, to - from), Factor());
}

} // namespace NKelmic
