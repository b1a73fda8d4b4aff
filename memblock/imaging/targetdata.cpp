#include <memblock/imaging/targetdata_internal.h>

#include <memblock/base/number.h>
#include <memblock/core/keytable.h>
#include <memblock/core/visitor.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/vector/convert.h>
#include <memblock/vector/packedlimits_internal.h>

namespace NKelmic {

namespace {

using TargetData = IndexVector::TargetData;

constexpr char const size_key[] = "target_dimsize";

int CheckedRank(int rank)
{
    constexpr int most = 255; // far beyond any array, and little memory
    if (rank < 0 || rank > most)
        Raise(err_kind, "Invalid rank of a target: %d", rank);
    return rank;
}

bool SetData(TargetData& target, SafeValue const& value, ThrowHandlerFunc handler)
{
    PMemBlock const block = value.GetType() == it_memblock ? value.GetMemory() : PMemBlock();
    auto* const sizes = MemCast<Vector>(block);
    if (!sizes) {
        Report(handler, err_kind, "Setting target_data: this is not a vector: %s", value);
        return false;
    }
    DerivedPointer<Vector> const indices = AsIndices(DerivedPointer<Vector>(sizes));
    target = TargetData(static_cast<int>(indices->Length()), cref(indices).UnsignedIntPointer());
    return true;
}

bool SetRank(TargetData& target, int rank)
{
    // The same rank again must not clear sizes that came first.
    if (static_cast<std::size_t>(CheckedRank(rank)) != target.dims.size())
        target.dims.assign(static_cast<std::size_t>(rank), 0);
    return true;
}

bool SetSize(TargetData& target, unsigned long i, SafeValue const& value)
{
    int const size = value.GetInt();
    // Settled: a size of a dimension that is not there is taken and ignored.
    if (i < target.dims.size())
        target.dims[i] = static_cast<unsigned int>(size);
    return true;
}

} // namespace

safestring MakeDefaultIndexVectorTargetDataDescr(int rank, unsigned int const* dims)
{
    switch (rank) {
    case 1:
        return Text("Vector of %u elements", dims[0]);
    case 2:
        return Text("Image %ux%u", dims[0], dims[1]);
    case 3:
        return Text("Datacube %ux%ux%u", dims[0], dims[1], dims[2]);
    default:
        break;
    }
    safestring text = Text("%d-cube ", rank);
    for (int i = 0; i < rank; ++i)
        text += Text(i ? "x%u" : "%u", dims[i]);
    return text;
}

TargetData::TargetData(int rank, unsigned int const* sizes)
    // Null sizes are a target of rank 0, whatever the rank says.
    : dims(sizes, sizes + (sizes ? CheckedRank(rank) : 0))
{
    descr = MakeDefaultIndexVectorTargetDataDescr(static_cast<int>(dims.size()), dims.data());
}

std::vector<unsigned int> TargetData::Padded(int rank, std::vector<unsigned int> sizes)
{
    sizes.resize(static_cast<std::size_t>(CheckedRank(rank)) + 1); // never null
    return sizes;
}

std::optional<bool> SetTargetKey(TargetData& target, safestring const& key, SafeValue const& value,
                                 ThrowHandlerFunc handler)
{
    constexpr std::size_t prefix = sizeof(size_key) - 1;
    bool const of_size = key.size() > prefix && SameName(key.substr(0, prefix).c_str(), size_key);
    // A minus is read over, so that the number behind it is found and the key known.
    std::size_t const at = of_size && key[prefix] == '-' ? prefix + 1 : prefix;
    Coordinates const number =
        of_size ? ReadCoordinates(key.c_str() + at, key.size() - at) : Coordinates();
    if (number.count == 1 && at > prefix)
        return true; // as any number that no dimension has
    if (number.count == 1)
        return SetSize(target, number.at[0], value);
    if (SameName(key.c_str(), "target_data"))
        return SetData(target, value, handler);
    if (SameName(key.c_str(), "target_rank"))
        return SetRank(target, value.GetInt());
    if (SameName(key.c_str(), "target_descr")) {
        target.descr = value.GetString();
        return true;
    }
    if (SameName(key.c_str(), "factor") || SameName(key.c_str(), "@factor"))
        return true; // taken and ignored: the factor of indices and coordinates is 1.0
    return std::nullopt;
}

void VisitTarget(TargetData const& target, MemBlockVisitor& visitor, safestring const& path)
{
    TraverseNode const node(path);
    auto const offer = [&](safestring const& name, DataItem item) {
        visitor.Visit(TraverseNode(node, name).Path(), item);
    };
    offer("target_descr", target.descr);
    offer("target_rank", static_cast<int>(target.dims.size()));
    for (std::size_t i = 0; i < target.dims.size(); ++i)
        offer(Text("%s%u", size_key, i), static_cast<int>(target.dims[i]));
}

DerivedPointer<Vector> AsIndices(DerivedPointer<Vector> v)
{
    // Of an interval vector the limits are meant, in the form that has them all.
    if (auto limits = PackedLimits(cref(v)))
        v = limits;
    v = cref(v).ConvertElemsToType(Vector::UnsignedInt, true, false);
    // Indices are cooked values. The conversion may have returned its source, which is not ours to
    // change.
    if (v->Factor() != 1.0) {
        v = PrivateCopy(std::move(v));
        v->EnsureFactor(1.0);
    }
    return v;
}

} // namespace NKelmic
