#include <memblock/vector/vector.h>

#include <memblock/base/number.h>
#include <memblock/core/keytable.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/vector/convert.h>
#include <memblock/vector/vectorforms_internal.h>

namespace NKelmic {

namespace {

/// The value of the vector as a scalar: the cooked element, or several as a comma text.
DataItem Scalar(Vector& v, int, SafeValue const*)
{
    if (v.Length() == 0)
        return {};
    if (v.Length() > 1)
        return ElementExpressions(v);
    DataItem const value = v.GetDataItemWithFactor(0);
    // A vector that holds itself has no value: asking for it would never end.
    bool const itself = value.GetType() == it_memblock && value.GetMemory().Pointer() == &v;
    return itself ? DataItem() : value;
}

DataItem DimSize(Vector& v, int argc, SafeValue const* argv)
{
    int const dimension = argc > 0 ? argv[0].GetInt() : -1;
    if (dimension < 0 || dimension >= v.GetRank())
        Raise(err_kind, "No such dimension in Vector: %d", dimension);
    return static_cast<int>(v.GetDimSize(dimension));
}

DataItem Transposed(Vector& v, int, SafeValue const*)
{
    // The vector may live on the stack: a pointer made here must not be its last one.
    KeepAlive const alive(v);
    return TransposeVectorOfVectors(DerivedPointer<Vector>(&v));
}

/// Lose the buffer: a view that nobody ever destroys keeps it.
DataItem Leak(Vector& v, int, SafeValue const*)
{
    // For tests of the tools that look for lost memory.
    [[maybe_unused]] auto* const leaked = new TypedChunk(v.Chunk());
    v.SetTypedChunk(TypedChunk(0, Vector::Int, MemChunk(), 0));
    return 1;
}

[[noreturn]] void RaiseCreateUsage(safestring const& what)
{
    Raise(err_kind,
          "Invalid Create() usage, should be Create(\"vector\", \"datatype\", length, value), e.g. "
          "Create(\"vector\", \"unsigned,short\", 100, 0): %s",
          what);
}

DataType TypeToCreate(SafeValue const& type)
{
    if (type.IsString())
        return Vector::String2Type(type.GetString(), throw_always);
    int const id = type.GetInt();
    if (id < 0 || id > greatest_elem_type_id)
        Raise(err_kind, "Integer type id out of range [0..%d]: %d", greatest_elem_type_id, id);
    return Vector::String2Type(str(id), throw_always); // some ids in between are no types
}

unsigned long LengthToCreate(SafeValue const& length)
{
    // A text of digits is refused, too: with the arguments in the wrong order it would pass.
    bool const number =
        length.GetType() == it_int || length.GetType() == it_int64 || length.GetType() == it_double;
    long long const n = number ? length.GetInt64() : -1;
    if (n < 0)
        RaiseCreateUsage(length.GetDescription());
    return static_cast<unsigned long>(n);
}

DataItem CreateByVerb(Vector&, int argc, SafeValue const* argv)
{
    if (argc != 4)
        RaiseCreateUsage(Text("%d arguments", argc));
    if (!argv[0].IsString() || !SameName(argv[0].GetString().c_str(), "vector"))
        RaiseCreateUsage(argv[0].GetDescription());
    DataType const type = TypeToCreate(argv[1]);
    auto const vector = Vector::Create(LengthToCreate(argv[2]), type, true, 0, 1.0);
    vector->Fill(argv[3]);
    return vector;
}

constexpr KeyTable vector_verbs{std::to_array<Verb<Vector>>({
    {"GetRank", 0, [](Vector& v, int, SafeValue const*) -> DataItem { return v.GetRank(); }},
    {"GetDimSize", 1, DimSize},
    {"expr", 0, [](Vector& v, int, SafeValue const*) -> DataItem { return VectorExpression(v); }},
    {"scalar", 0, Scalar},
    {"Transpose", 0, Transposed},
    {"__leak_memory__", 0, Leak},
    {"create", 4, CreateByVerb},
    {"memusage_self", 0, // without the buffer, which counts by its address
     [](Vector& v, int, SafeValue const*) -> DataItem {
         return static_cast<long long>(sizeof(v));
     }},
    {"notif_elmtyp_chng", 0, // for derived classes
     [](Vector&, int, SafeValue const*) { return DataItem(); }},
})};

} // namespace

DataItem Vector::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (auto const* row = vector_verbs.Find(verb))
        return row->run(*this, argv ? argc : 0, argv);
    return MemBlock::DoVerb(verb, argc, argv);
}

} // namespace NKelmic
