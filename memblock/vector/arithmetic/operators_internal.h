#ifndef MEMBLOCK_VECTOR_ARITHMETIC_OPERATORS_INTERNAL_H
#define MEMBLOCK_VECTOR_ARITHMETIC_OPERATORS_INTERNAL_H

#include <memblock/vector/range_kernels.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace NKelmic {
class op_options;
}

/// The operators of `Vector::op`, a row each: all that is known of one outside the loops. The table
/// in docs/arithmetic.md is written from it.
namespace NKelmic::ops {

enum class OpKind { none, arithmetic, comparison, negation, logical, bits, point, text };

/// What is done to the raw factors of the operands first.
enum class OperandFactors {
    as_is,
    equal,   ///< both get the same one
    dropped, ///< the raw values become the cooked ones
};

/// The raw factor of the result.
enum class ResultFactor { product, quotient, common, of_x, one };

/// The raw extremes of an operand or a result.
using Range = MinMax<double>;

/// How the range of an integer result follows from those of the operands.
struct RangeRule {
    Range (*predict)(Range x, Range y, op_options const& options) = nullptr;
    char const* words = "";
};
Range SumRange(Range x, Range y, op_options const&);
Range DifferenceRange(Range x, Range y, op_options const& options);
Range ProductRange(Range x, Range y, op_options const&);
Range QuotientRange(Range x, Range y, op_options const&);
Range RemainderRange(Range x, Range y, op_options const&);
Range UnionRange(Range x, Range y, op_options const&);
Range LeftShiftRange(Range x, Range y, op_options const&);
Range RightShiftRange(Range x, Range y, op_options const&);
Range PixelRange(Range x, Range y, op_options const&);

constexpr RangeRule no_range{nullptr, "`Byte`, 0 or 1"};
constexpr RangeRule sum_range{SumRange, "min x + min y to max x + max y"};
constexpr RangeRule difference_range{
    DifferenceRange, "min x - max y to max x - min y; from 0 with \"neg_abs\" or \"neg_zero\""};
constexpr RangeRule product_range{ProductRange, "the least to the greatest product of extremes"};
constexpr RangeRule quotient_range{
    QuotientRange, "`Double`; of a requested integer type: minus to plus the greatest magnitude"};
constexpr RangeRule remainder_range{
    RemainderRange,
    "0 to max y where nothing is negative, otherwise minus to plus the greatest divisor"};
constexpr RangeRule union_range{UnionRange, "the lesser minimum to the greater maximum"};
constexpr RangeRule left_shift_range{LeftShiftRange, union_range.words};
constexpr RangeRule right_shift_range{RightShiftRange, union_range.words};
constexpr RangeRule pixel_range{PixelRange, "`UnsignedInt`, an index into the image"};

struct Operator {
    char name = '\0';
    OpKind kind = OpKind::none;
    OperandFactors operands = OperandFactors::as_is;
    ResultFactor result = ResultFactor::one;
    RangeRule range{};
    bool stays_integer = false; ///< never computed in `Double`, however large the operands are
    bool floats = false;        ///< has a meaning for floating elements; 'p' converts them first
    bool strings = false;       ///< has a meaning for texts
    bool commutes = false;      ///< x op y is y op x
    char mirror = '\0';         ///< the comparison whose operands are exchanged
    char const* words = "";
};

constexpr bool yes = true, no = false;

// clang-format off
inline constexpr std::array operators = std::to_array<Operator>({
//   name kind                 operands                  result                   range              int  flt  str  comm mirror
    {'+', OpKind::arithmetic,  OperandFactors::equal,    ResultFactor::common,   sum_range,         no,  yes, no,  yes, '\0', "sum"},
    {'-', OpKind::arithmetic,  OperandFactors::equal,    ResultFactor::common,   difference_range,  no,  yes, no,  no,  '\0', "difference"},
    {'*', OpKind::arithmetic,  OperandFactors::as_is,    ResultFactor::product,  product_range,     no,  yes, no,  yes, '\0', "product"},
    {'/', OpKind::arithmetic,  OperandFactors::as_is,    ResultFactor::quotient, quotient_range,    no,  yes, no,  no,  '\0', "quotient"},
    {'~', OpKind::arithmetic,  OperandFactors::dropped,  ResultFactor::one,      remainder_range,   yes, yes, no,  no,  '\0', "remainder"},
    {'=', OpKind::comparison,  OperandFactors::equal,    ResultFactor::one,      no_range,          no,  yes, yes, yes, '=',  "equal"},
    {'#', OpKind::comparison,  OperandFactors::equal,    ResultFactor::one,      no_range,          no,  yes, yes, yes, '#',  "not equal"},
    {'<', OpKind::comparison,  OperandFactors::equal,    ResultFactor::one,      no_range,          no,  yes, yes, no,  '>',  "less"},
    {'>', OpKind::comparison,  OperandFactors::equal,    ResultFactor::one,      no_range,          no,  yes, yes, no,  '<',  "greater"},
    {'(', OpKind::comparison,  OperandFactors::equal,    ResultFactor::one,      no_range,          no,  yes, yes, no,  ')',  "less or equal"},
    {')', OpKind::comparison,  OperandFactors::equal,    ResultFactor::one,      no_range,          no,  yes, yes, no,  '(',  "greater or equal"},
    {'!', OpKind::negation,    OperandFactors::as_is,    ResultFactor::one,      no_range,          no,  yes, no,  no,  '\0', "not x; y gives only its length"},
    {'&', OpKind::logical,     OperandFactors::as_is,    ResultFactor::of_x,     union_range,       yes, yes, no,  no,  '\0', "x where both are not 0, otherwise 0"},
    {'|', OpKind::logical,     OperandFactors::as_is,    ResultFactor::of_x,     union_range,       yes, yes, no,  no,  '\0', "x where it is not 0, otherwise y"},
    {'^', OpKind::logical,     OperandFactors::as_is,    ResultFactor::of_x,     union_range,       yes, yes, no,  yes, '\0', "the one that is not 0, 0 for both or none"},
    {'a', OpKind::bits,        OperandFactors::dropped,  ResultFactor::one,      union_range,       yes, no,  no,  yes, '\0', "bitwise and"},
    {'o', OpKind::bits,        OperandFactors::dropped,  ResultFactor::one,      union_range,       yes, no,  no,  yes, '\0', "bitwise or"},
    {'x', OpKind::bits,        OperandFactors::dropped,  ResultFactor::one,      union_range,       yes, no,  no,  yes, '\0', "bitwise exclusive or"},
    {'l', OpKind::bits,        OperandFactors::dropped,  ResultFactor::one,      left_shift_range,  yes, no,  no,  no,  '\0', "x shifted left by y bits"},
    {'r', OpKind::bits,        OperandFactors::dropped,  ResultFactor::one,      right_shift_range, yes, no,  no,  no,  '\0', "x shifted right by y bits"},
    {'p', OpKind::point,       OperandFactors::dropped,  ResultFactor::one,      pixel_range,       yes, yes, no,  no,  '\0', "index of pixel (x, y): x + width * y"},
    {'c', OpKind::text,        OperandFactors::as_is,    ResultFactor::one,      no_range,          no,  no,  yes, no,  '\0', "x followed by y"},
});
// clang-format on

/// Stands for every character that is no operator.
inline constexpr Operator no_operator{};

/// Where each character has its row, counted from 1; 0 for none.
inline constexpr auto operator_places = [] {
    std::array<unsigned char, 128> places{};
    for (std::size_t i = 0; i < operators.size(); ++i)
        places[static_cast<std::size_t>(operators[i].name)] = static_cast<unsigned char>(i + 1);
    return places;
}();

/// The row of an operator; `no_operator` for a character that is none.
constexpr Operator const& Find(char name)
{
    std::size_t const place = name > 0 ? operator_places[static_cast<std::size_t>(name)] : 0;
    return place == 0 ? no_operator : operators[place - 1];
}

static_assert(std::ranges::all_of(operators,
                                  [](Operator const& row) { return &Find(row.name) == &row; }),
              "an operator has two rows");

/// Whether the result is a truth value, 0 or 1, of type `Byte` unless the caller wants another.
constexpr bool GivesTruth(Operator const& op)
{
    return op.kind == OpKind::comparison || op.kind == OpKind::negation;
}

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_ARITHMETIC_OPERATORS_INTERNAL_H
