#include <memblock/vector/convert.h>

#include <memblock/base/listitems_internal.h>
#include <memblock/vector/convert_internal.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace NKelmic {

namespace {

MinMax<double> LimitsOf(DataType type)
{
    return WithElemType<NumericTypes>(
        type, "Function return std::numeric_limits not implemented for data type '%s'",
        []<class T>(TypeTag<T>) {
            return MinMax<double>{static_cast<double>(elem_lowest<T>),
                                  static_cast<double>(elem_greatest<T>)};
        },
        err_request);
}

/// What a numeric type is made of.
struct TypeForm {
    DataType type;
    int bytes;
    bool is_signed, floating;
};
constexpr TypeForm type_forms[] = {
#define MEMBLOCK_FORM(NAME, ID, T, TEXT)                                                           \
    {Vector::NAME, sizeof(T), SignedTypes::has<T>, FloatTypes::has<T>},
    MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_FORM)
#undef MEMBLOCK_FORM
};

static_assert(
    [] {
        for (TypeForm const& a : type_forms)
            for (TypeForm const& b : type_forms)
                if (&a != &b && a.bytes == b.bytes && a.is_signed == b.is_signed &&
                    a.floating == b.floating)
                    return false;
        return true;
    }(),
    "words cannot distinguish two types of one form");

enum class Kind { open, integer, floating };

/// What one word of an element type says; 0 and `open` where it says nothing.
struct TypeWord {
    char const* text;
    int depth = 0;              ///< bytes
    bool weak_depth = false;    ///< gives way to the depth of another word
    int sign = 0;               ///< 1 signed, -1 unsigned
    bool bare_unsigned = false; ///< unsigned unless a word says otherwise
    Kind kind = Kind::open;
};

constexpr TypeWord type_words[] = {
    {.text = "signed", .sign = 1},
    {.text = "unsigned", .sign = -1},
    {.text = "int", .depth = 4, .weak_depth = true, .kind = Kind::integer},
    {.text = "integer", .depth = 4, .weak_depth = true, .kind = Kind::integer},
    {.text = "decimal", .depth = 8, .weak_depth = true, .kind = Kind::floating},
    {.text = "byte", .depth = 1, .bare_unsigned = true},
    {.text = "char", .depth = 1},
    {.text = "short", .depth = 2},
    {.text = "long", .depth = 4, .weak_depth = true},
    {.text = "float", .depth = 4, .kind = Kind::floating},
    {.text = "double", .depth = 8, .kind = Kind::floating},
    {.text = "int64", .depth = 8, .kind = Kind::integer},
    {.text = "uint64", .depth = 8, .sign = -1, .kind = Kind::integer},
    {.text = "8bpp", .depth = 1, .bare_unsigned = true},
    {.text = "16bpp", .depth = 2, .bare_unsigned = true},
    {.text = "24bpp", .depth = 3, .bare_unsigned = true},
    {.text = "32bpp", .depth = 4, .bare_unsigned = true},
    {.text = "64bpp", .depth = 8, .bare_unsigned = true},
    {.text = "triple", .depth = 3, .bare_unsigned = true},
};

TypeWord const* FindTypeWord(safestring const& text)
{
    auto const found =
        std::find_if(std::begin(type_words), std::end(type_words),
                     [&](TypeWord const& word) { return SameName(word.text, text.c_str()); });
    return found == std::end(type_words) ? nullptr : found;
}

/// A type by its own name: the enumerator, or the one text that differs from it.
DataType FindTypeName(safestring const& text)
{
    if (SameName(text.c_str(), "memblock"))
        return Vector::PMemory;
#define MEMBLOCK_NAME(NAME, ID, T, TEXT)                                                           \
    if (SameName(text.c_str(), #NAME))                                                             \
        return Vector::NAME;
    MEMBLOCK_ELEM_TYPES(MEMBLOCK_NAME)
#undef MEMBLOCK_NAME
    return Vector::NoType;
}

/// What all words together say; false if two of them can't both hold.
bool Combine(TypeWord& sum, TypeWord const& word)
{
    if (word.sign != 0 && sum.sign != 0 && word.sign != sum.sign)
        return false;
    if (word.kind != Kind::open && sum.kind != Kind::open && word.kind != sum.kind)
        return false;
    // A weak depth gives way: "unsigned short int" is a short, as in C.
    bool const both_strong = word.depth && sum.depth && !word.weak_depth && !sum.weak_depth;
    if (both_strong && word.depth != sum.depth)
        return false;
    sum.sign = sum.sign != 0 ? sum.sign : word.sign;
    sum.kind = sum.kind != Kind::open ? sum.kind : word.kind;
    sum.bare_unsigned = sum.bare_unsigned || word.bare_unsigned;
    bool const take_depth = word.depth && (!sum.depth || (sum.weak_depth && !word.weak_depth));
    if (take_depth) {
        sum.depth = word.depth;
        sum.weak_depth = word.weak_depth;
    }
    return true;
}

/// The type that the words name; `NoType` for a combination that does not exist.
DataType Resolve(TypeWord const& sum)
{
    // Words may contradict each other in ways that no single pair shows.
    bool const floating = sum.kind == Kind::floating;
    if (floating && sum.sign != 0)
        return Vector::NoType;
    if (sum.depth == 3 && (floating || sum.sign > 0))
        return Vector::NoType;
    bool const is_signed = sum.sign != 0 ? sum.sign > 0 : !sum.bare_unsigned;
    return TypeOfDepth(sum.depth ? sum.depth : 4, is_signed, floating);
}

bool IsId(safestring const& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

DataType TypeOfId(safestring const& text, ThrowHandlerFunc handler)
{
    // What is too long for it comes out as its greatest value, which is out of range as well.
    unsigned long const id = std::strtoul(text.c_str(), nullptr, 10);
    if (id > greatest_elem_type_id) {
        Report(handler, err_kind, "Type value out of range: %u.", id);
        return Vector::NoType;
    }
    auto const type = static_cast<DataType>(id);
    if (!IsInSet<AllTypes>(type)) {
        Report(handler, err_kind, "Type not supported: \"%s\".", text);
        return Vector::NoType;
    }
    return type;
}

} // namespace

DataType TypeOfDepth(int bytes, bool is_signed, bool floating)
{
    DataType found = Vector::NoType;
    for (TypeForm const& form : type_forms) {
        bool const fits = form.bytes == bytes && form.floating == floating;
        // A type without a counterpart of the other sign serves for both.
        if (fits && (found == Vector::NoType || form.is_signed == is_signed))
            found = form.type;
    }
    return found;
}

/// Settled: the lower bounds are min > -128 for Char and min > -32767.5 for Short, so that -128
/// takes Short. Each test is one that NaN fails.
DataType Vector::MinMax2Type(double min, double max)
{
    static_assert(type_count<TypesUpTo<IntegerTypes, 4>> == 7, "a type that is not chosen here");
    if (max < 255.5 && min >= 0)
        return Byte;
    if (max < 127.5 && min > -128)
        return Char;
    if (max < 65535.5 && min >= 0)
        return UnsignedShort;
    if (max < 32767.5 && min > -32767.5)
        return Short;
    if (min >= 0 && max <= 4294967295.0)
        return UnsignedInt;
    if (min >= -2147483648.0 && max <= 2147483647.0)
        return Int;
    return Double;
}

DataType ChooseCoverType(DataType a, DataType b)
{
    static_assert(type_count<FloatTypes> == 2, "the wider one of two has to be found otherwise");
    if (a == b)
        return a;
    if (IsInSet<ObjectTypes>(b))
        return b;
    if (a == Vector::String)
        return a;
    if (IsInSet<FloatTypes>(a))
        return b == Vector::Double ? b : a;
    if (IsInSet<FloatTypes>(b))
        return b;
    if (IsInSet<UnsignedTypes>(a) == IsInSet<UnsignedTypes>(b))
        return Vector::SizeOf(a) > Vector::SizeOf(b) ? a : b;
    MinMax<double> both = LimitsOf(a);
    both.Merge(LimitsOf(b));
    return Vector::MinMax2Type(both.min, both.max);
}

DataType Vector::String2Type(safestring const& text, ThrowHandlerFunc handler)
{
    auto const words = ItemsOf(SplitString(text, ",; \t", true));
    if (words.empty()) {
        Report(handler, err_kind, "Elemtype spec missing.");
        return NoType;
    }
    // A number among other words is no id.
    if (words.size() == 1 && IsId(words[0]))
        return TypeOfId(words[0], handler);
    TypeWord sum{.text = ""};
    DataType named = NoType;
    bool possible = true;
    for (safestring const& spec : words) {
        if (TypeWord const* word = FindTypeWord(spec)) {
            possible = possible && Combine(sum, *word);
        } else if ((named = FindTypeName(spec)) != NoType) {
            possible = possible && words.size() == 1;
        } else {
            Report(handler, err_kind, "Unrecognized elemtype spec: \"%s\".", spec);
            return NoType;
        }
    }
    DataType const type = !possible ? NoType : named != NoType ? named : Resolve(sum);
    if (type == NoType)
        Report(handler, err_kind, "Type not supported: \"%s\".", text);
    return type;
}

} // namespace NKelmic
