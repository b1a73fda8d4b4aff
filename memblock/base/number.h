#ifndef MEMBLOCK_BASE_NUMBER_H
#define MEMBLOCK_BASE_NUMBER_H

#include <memblock/base/exception.h>

#include <limits>
#include <type_traits>

namespace Ntarnwick {

// Numbers are read and written in the C locale, whatever the host has set, except where the
// current locale is named.

MEMBLOCK_API safestring str(int v);
MEMBLOCK_API safestring str(unsigned int v);
MEMBLOCK_API safestring str(long v);
MEMBLOCK_API safestring str(unsigned long v);
MEMBLOCK_API safestring str(long long v);
MEMBLOCK_API safestring str(unsigned long long v);

/// The text of a double with so many significant digits, as "%g" writes it: no trailing zeros,
/// an exponent where that is shorter. NaN is "nan" whatever its sign bit.
MEMBLOCK_API safestring str(double v, int significant_digits);

/// Whether the whole text is a number: an optional sign, then digits with at most one '.' or ','
/// and an optional exponent, or "0x" with at least one hexadecimal digit.
///
/// No blanks and no named constants. What is accepted can be parsed: "1e999" is not accepted.
MEMBLOCK_API bool is_numeric(safestring const& text);

/// Whether a text says yes: "true", "yes", "on", or a number other than 0.
MEMBLOCK_API bool is_positive(safestring const& text);
/// Whether a text says no: "false", "no", "off", or a number that is 0.
MEMBLOCK_API bool is_negative(safestring const& text);

/// Whether a text can be a name without quoting: ASCII letters, digits and '_' only, at
/// least one, or a name that `QuoteName` has quoted.
MEMBLOCK_API bool is_alphanumeric(safestring const& text);

/// Read a number; true if it is an integer that fits an int, which is then in `i`, else it is in
/// `d`. Blanks around it, a sign, and the named constants are accepted as `StringToNumber` does.
/// Throws: code 512, as `StringToNumber<double, ...>`.
MEMBLOCK_API bool StrToNumber(safestring const& text, int& i, double& d);

/// Read an int; a text with a fraction is rounded. Throws: code 512, as `StringToNumber`.
MEMBLOCK_API int StrToInt(safestring const& text);
MEMBLOCK_API double StrToDouble(safestring const& text);

/// The decimal point of the current locale.
MEMBLOCK_API char CurrentDecimalPoint();

// ---- from double to integer ---------------------------------------------------------------------

/// Round to the nearest whole number, halves away from zero, by adding 0.5 and truncating.
///
/// Settled: nothing better, also just below 0.5 (0.49999999999999994 gives 1) and above 2^52;
/// scripts compare the results.
inline double RoundHalfAway(double v)
{
    return __builtin_trunc(v > 0 ? v + 0.5 : v - 0.5);
}

/// Whether `v`, truncated towards zero, is in the range of the integer type T.
///
/// False for NaN. The bounds are exact doubles: 2^63 does not fit a signed and 2^64 not an
/// unsigned 64-bit type, though comparing with their greatest value would let them through.
template <class T>
constexpr bool FitsAfterTrunc(double v)
{
    static_assert(std::is_integral_v<T>);
    using limits = std::numeric_limits<T>;
    constexpr double above = 2.0 * static_cast<double>(T(1) << (limits::digits - 1));
    if constexpr (!limits::is_signed)
        return v > -1.0 && v < above;
    else if constexpr (limits::digits < 53)
        return v > -above - 1.0 && v < above; // what is above lowest - 1 truncates to lowest
    else
        return v >= -above && v < above;
}

/// Truncate without a check; NaN and what does not fit give the lowest value, as the processor
/// does.
constexpr int TruncToInt(double v)
{
    return FitsAfterTrunc<int>(v) ? static_cast<int>(v) : std::numeric_limits<int>::min();
}
constexpr long long TruncToInt64(double v)
{
    return FitsAfterTrunc<long long>(v) ? static_cast<long long>(v)
                                        : std::numeric_limits<long long>::min();
}

// ---- parsing ------------------------------------------------------------------------------------

namespace detail {

/// A number as it was read, without its sign.
struct numeric_t {
    enum kind_t { none = 0, floating = 1, integer = 2 } kind;
    union {
        double d;             ///< of kind `floating`; infinite if the digits exceed the range
        unsigned long long u; ///< of kind `integer`
    };
};

/// Read an unsigned number at the start of a text: decimal with one of two decimal points and an
/// exponent, or hexadecimal behind "0x". Without point and exponent it is an integer, unless it
/// exceeds 64 bits. Returns the first position behind it, or `text` and kind `none`.
MEMBLOCK_API char const* extract_numeric_lowlevel(char const* text, numeric_t& out, char point1,
                                                  char point2);

/// Read a named constant at the start of a text, in any letter case, as a whole word: "oo", which
/// is the integer 2147483647, "pi", "nan", "inf". Returns as above.
MEMBLOCK_API char const* extract_morvane_constant(char const* text, numeric_t& out);

} // namespace detail

/// Policies of `StringToNumber`.
namespace NStnPol { // exported: a template is as visible as what it is made over
/// An integer result from a text with a fraction is rounded and not refused.
struct MEMBLOCK_API Rounding_Supported {};
/// '.' or ',' begins a fraction.
struct MEMBLOCK_API DecimalPoint_Dot_And_Comma {
    static char First() { return '.'; }
    static char Second() { return ','; }
};
/// '.' or the decimal point of the current locale begins a fraction.
struct MEMBLOCK_API DecimalPoint_Current_Locale_And_Dot {
    static char First() { return '.'; }
    static char Second() { return CurrentDecimalPoint(); }
};
struct MEMBLOCK_API Morvane_Keywords_Supported {};
struct MEMBLOCK_API Empty_String_Is_Error {};
/// Spaces, tabs, carriage returns and line feeds may surround the number.
struct MEMBLOCK_API Padding_Allow_Whitespace {};
} // namespace NStnPol

/// Function object that reads a whole text as a number of type T.
///
/// Errors, all of code 512:
/// - "Empty string is not accepted as a number."
/// - "Invalid numeric: %s" with the part that is none
/// - "Number does not fit in the destination data type range: %s" with the text
/// - "Cannot convert negative number into an unsigned type: %s" with the text
///
/// Instances exist for the three typedefs below.
template <class T, class Rounding, class DecimalPoint, class Keywords, class EmptyPolicy,
          class Padding>
struct MEMBLOCK_API StringToNumber {
    T operator()(safestring const& text) const;
    T operator()(safestring const& text, ThrowHandlerFunc handler) const; ///< 0 on failure
};

typedef StringToNumber<long long, NStnPol::Rounding_Supported, NStnPol::DecimalPoint_Dot_And_Comma,
                       NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
                       NStnPol::Padding_Allow_Whitespace>
    StringToInt64;
typedef StringToNumber<double, NStnPol::Rounding_Supported, NStnPol::DecimalPoint_Dot_And_Comma,
                       NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
                       NStnPol::Padding_Allow_Whitespace>
    StringToDouble;
typedef StringToNumber<unsigned int, NStnPol::Rounding_Supported,
                       NStnPol::DecimalPoint_Current_Locale_And_Dot,
                       NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
                       NStnPol::Padding_Allow_Whitespace>
    StringToUInt;

extern template struct StringToNumber<
    long long, NStnPol::Rounding_Supported, NStnPol::DecimalPoint_Dot_And_Comma,
    NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
    NStnPol::Padding_Allow_Whitespace>;
extern template struct StringToNumber<
    double, NStnPol::Rounding_Supported, NStnPol::DecimalPoint_Dot_And_Comma,
    NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
    NStnPol::Padding_Allow_Whitespace>;
extern template struct StringToNumber<
    unsigned int, NStnPol::Rounding_Supported, NStnPol::DecimalPoint_Current_Locale_And_Dot,
    NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
    NStnPol::Padding_Allow_Whitespace>;

} // namespace Ntarnwick

namespace NKelmic {

/// True for a text of decimal digits, not empty, in which `extra` may also stand anywhere.
MEMBLOCK_API bool IsNaturalInteger(char const* text, char extra);
/// True for a text of decimal digits only, also the empty one.
MEMBLOCK_API bool NumericNonNegativeInteger(char const* text);

} // namespace NKelmic

#endif // MEMBLOCK_BASE_NUMBER_H
