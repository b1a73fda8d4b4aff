#include <memblock/vector/convert.h>

#include <memblock/collections/containerimpl_internal.h>
#include <memblock/vector/convert_internal.h>

#include <vector>

namespace NKelmic {

namespace {

/// One word of a conversion: the option that it sets.
struct ConvertWord {
    char const* text;
    char const* option;
    int value;
};

/// Words without a value of their own.
constexpr ConvertWord convert_words[] = {
    {"char", "bpp", 8},
    {"short", "bpp", 16},
    {"int", "bpp", 32},
    {"long", "bpp", 32},
    {"signed", "sign", 1},
    {"unsigned", "sign", 0},
    {"pmemory", "elemtype", Vector::PMemory},
    {"text", "elemtype", Vector::String},
    {"dataitem", "elemtype", Vector::PolyType},
};

/// Keys that bring their value, as a bare word 1.
constexpr char const* convert_keys[] = {
    "bpp", "sign", "floating", "elemtype", "stretchdynamic", "multilayered", "grey"};

} // namespace

bool Vector::AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                           ThrowHandlerFunc handler) const
{
    for (ConvertWord const& word : convert_words)
        if (SameName(word.text, key.c_str()))
            return MemBlock::AddConvertArg(word.option, DataItem(word.value), options, handler);
    for (char const* known : convert_keys) {
        if (!SameName(known, key.c_str()))
            continue;
        if (!SameName(known, "elemtype") || !value.IsString())
            return MemBlock::AddConvertArg(known, value, options, handler);
        DataType const type = String2Type(value.GetString(), handler);
        return type != NoType &&
               MemBlock::AddConvertArg(known, DataItem(static_cast<int>(type)), options, handler);
    }
    Report(handler, err_kind, "Unrecognized conversion option: %s", key);
    return false;
}

DataType FindDataType(ConvertOptions const& options)
{
    DataItem const undefined;
    DataItem const direct = options.GetValue("elemtype", undefined);
    if (direct.IsDefined()) {
        auto const type = static_cast<DataType>(direct.GetInt());
        if (!IsInSet<AllTypes>(type))
            Raise(err_kind, "DataType id out of range: %d", static_cast<int>(type));
        return type;
    }
    DataItem const bits = options.GetValue("bpp", undefined);
    bool const floating = options.GetFlag("floating", false);
    bool const sign_told = options.GetValue("sign", undefined).IsDefined();
    // Nothing in the options is about the element type: it stays as it is.
    if (bits.IsUndefined() && !floating && !sign_told)
        return Vector::NoType;
    int const depth = bits.IsDefined() ? bits.GetInt() / 8 : floating ? 8 : 4;
    // Signed unless stated otherwise: "short" is. Pixel formats such as 16bpp say "unsigned".
    DataType const type = TypeOfDepth(depth, options.GetFlag("sign", true), floating);
    if (type == Vector::NoType)
        Raise(err_kind, "Unsupported byte depth: %d", depth);
    return type;
}

namespace {

// One kind of item gives its own type; numbers go together, and all else is kept as it is.
DataType TypeForKinds(unsigned kinds)
{
    auto const only = [kinds](unsigned allowed) { return (kinds & ~allowed) == 0; };
    constexpr unsigned texts = 1U << it_shortstring | 1U << it_string;
    constexpr unsigned whole = 1U << it_int | 1U << it_int64;
    if (only(1U << it_int))
        return Vector::Int;
    if (only(whole))
        return Vector::Int64;
    if (only(whole | 1U << it_double))
        return Vector::Double;
    if (only(texts))
        return Vector::String;
    return only(1U << it_memblock) ? Vector::PMemory : Vector::PolyType;
}

/// The items as elements, in the order in which lists name them.
DerivedPointer<Vector> VectorOfItems(Container const& container)
{
    // One pass: the kinds decide the type of the vector, and the items are kept until it exists.
    unsigned kinds = 0;
    std::vector<DataItem const*> items;
    ForEachListed(container, [&](ContainerMap::value_type const& item) {
        ItemType const type = item.second.GetType();
        if (type == it_pointer || type == it_sharable || type == it_undefined)
            Raise(err_kind, "Converting container into a vector not supported for item type: %s",
                  type == it_undefined ? "undefined" : Type2XmlType(type));
        kinds |= 1U << type;
        items.push_back(&item.second);
    });
    auto const vector = Vector::Create(items.size(), TypeForKinds(kinds), true, 0, 1.0);
    for (unsigned int i = 0; i < vector->Length(); ++i)
        vector->SetElem(i, *items[i]);
    return vector;
}

} // namespace

PMemBlock Vector::ConvertFrom(PMemBlock source, ConvertOptions const& options) const
{
    if (auto const* const container = MemCast<Container>(source.Pointer()))
        source = VectorOfItems(*container);
    auto const* vector = MemCast<Vector>(source.Pointer());
    if (!vector)
        return nullptr;
    // An object for each number is seldom meant; SetElemType makes them.
    DataType const type = FindDataType(options);
    if (type == PMemory && IsInSet<NumericTypes>(vector->ElemType()))
        Raise(err_kind, "Cowardly refusing to convert into a vector of memblocks: %s", *vector);
    return vector->ConvertElemsToType(type, true, false);
}

} // namespace NKelmic
