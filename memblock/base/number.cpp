#include <memblock/base/number.h>

#include <memblock/base/chars_internal.h>
#include <memblock/base/raise.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <numbers>
#include <optional>

#include <langinfo.h>

namespace Ntarnwick {

// ---- to text ------------------------------------------------------------------------------------

namespace {

// to_chars here and from_chars below: unlike printf and strtod they ignore the locale.
template <class T>
safestring Decimal(T v)
{
    char digits[24];
    return safestring(digits, std::to_chars(digits, digits + sizeof digits, v).ptr);
}

} // namespace

safestring str(int v)
{
    return Decimal(v);
}
safestring str(unsigned int v)
{
    return Decimal(v);
}
safestring str(long v)
{
    return Decimal(v);
}
safestring str(unsigned long v)
{
    return Decimal(v);
}
safestring str(long long v)
{
    return Decimal(v);
}
safestring str(unsigned long long v)
{
    return Decimal(v);
}

safestring str(double v, int significant_digits)
{
    if (std::isnan(v))
        return "nan";
    char text[800]; // no double has more than 767 significant digits
    int const digits = std::clamp(significant_digits, 1, 767);
    auto const end = std::to_chars(text, text + sizeof text, v, std::chars_format::general, digits);
    return safestring(text, end.ptr);
}

// ---- classifiers --------------------------------------------------------------------------------

namespace {

// Not isalpha: names must be the same in all locales.
bool IsLetter(char c)
{
    return safestring_traits::fold_up(c) >= 'A' && safestring_traits::fold_up(c) <= 'Z';
}
bool IsWordChar(char c)
{
    return IsLetter(c) || IsDigit(c) || c == '_';
}

/// Read a text that is a number by the rules of `is_numeric`.
std::optional<detail::numeric_t> WholeNumber(safestring const& text)
{
    char const* start = text.c_str();
    if (*start == '-' || *start == '+')
        ++start;
    detail::numeric_t number;
    // Compared with the size of the text: a NUL inside ends the number, but not the text.
    char const* const end = detail::extract_numeric_lowlevel(start, number, '.', ',');
    bool const whole = number.kind != detail::numeric_t::none && end == text.c_str() + text.size();
    if (!whole || (number.kind == detail::numeric_t::floating && std::isinf(number.d)))
        return {};
    return number;
}

bool IsZero(detail::numeric_t const& number)
{
    return number.kind == detail::numeric_t::integer ? number.u == 0 : number.d == 0;
}

bool IsOneOf(safestring const& text, std::initializer_list<char const*> words)
{
    return std::any_of(words.begin(), words.end(), [&](char const* w) { return text == w; });
}

} // namespace

bool is_numeric(safestring const& text)
{
    return WholeNumber(text).has_value();
}

bool is_positive(safestring const& text)
{
    auto const number = WholeNumber(text);
    return number ? !IsZero(*number) : IsOneOf(text, {"true", "yes", "on"});
}

bool is_negative(safestring const& text)
{
    auto const number = WholeNumber(text);
    return number ? IsZero(*number) : IsOneOf(text, {"false", "no", "off"});
}

bool is_alphanumeric(safestring const& text)
{
    if (text.size() >= 2 && text.front() == '@' && text.back() == '@')
        return true;
    return !text.empty() && std::all_of(text.begin(), text.end(), IsWordChar);
}

char CurrentDecimalPoint()
{
    char const* const point = nl_langinfo(RADIXCHAR);
    return *point ? *point : '.';
}

// ---- reading one number -------------------------------------------------------------------------

namespace detail {

namespace {

/// A number that from_chars finds out of range: too great, or too small?
double BeyondRange(char const* first, char const* last)
{
    // from_chars reports both with one code. The place of the first digit other than 0, plus the
    // exponent, decides.
    long place = 0;
    bool behind_point = false, significant = false;
    char const* p = first;
    for (; p != last && safestring_traits::fold_down(*p) != 'e'; ++p) {
        if (*p == '.') {
            behind_point = true;
            continue;
        }
        significant = significant || *p != '0';
        if (significant && !behind_point)
            ++place;
        else if (!significant && behind_point)
            --place;
    }
    bool const negative = p != last && p[1] == '-';
    long exponent = 0;
    for (; p != last; ++p)
        if (IsDigit(*p) && exponent < 1000000000) // far enough to decide, and no overflow
            exponent = exponent * 10 + (*p - '0');
    place += negative ? -exponent : exponent;
    return significant && place > 0 ? HUGE_VAL : 0.0;
}

double ParseDouble(char const* first, char const* last)
{
    double value = 0;
    auto const result = std::from_chars(first, last, value);
    return result.ec == std::errc::result_out_of_range ? BeyondRange(first, last) : value;
}

char const* SkipDigits(char const* p)
{
    while (IsDigit(*p))
        ++p;
    return p;
}

char const* SkipExponent(char const* p)
{
    if (*p != 'e' && *p != 'E')
        return p;
    char const* const digits = p + (p[1] == '-' || p[1] == '+' ? 2 : 1);
    return IsDigit(*digits) ? SkipDigits(digits) : p; // "2e" is 2, followed by a text
}

void SetDouble(numeric_t& out, double d)
{
    out.kind = numeric_t::floating;
    out.d = d;
}

/// Read digits as an integer; those beyond 64 bits as a double.
char const* ReadInteger(char const* first, char const* last, int base, numeric_t& out)
{
    out.kind = numeric_t::integer;
    auto const result = std::from_chars(first, last, out.u, base);
    if (result.ec == std::errc::result_out_of_range) {
        double d = 0;
        if (base == 10)
            d = ParseDouble(first, last);
        else if (std::from_chars(first, last, d, std::chars_format::hex).ec != std::errc())
            d = HUGE_VAL;
        SetDouble(out, d);
    }
    return result.ptr;
}

} // namespace

char const* extract_numeric_lowlevel(char const* text, numeric_t& out, char point1, char point2)
{
    out.kind = numeric_t::none;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        char const* const digits = text + 2;
        char const* const end = digits + std::strspn(digits, "0123456789abcdefABCDEF");
        if (end != digits)
            return ReadInteger(digits, end, 16, out);
    }
    char const* const point = SkipDigits(text);
    char const* end = point;
    bool const has_point = *point && (*point == point1 || *point == point2);
    if (has_point)
        end = SkipDigits(point + 1);
    if (end - text == (has_point ? 1 : 0)) // no digit on either side
        return text;
    end = SkipExponent(end);
    if (end == point)
        return ReadInteger(text, end, 10, out);
    if (!has_point || *point == '.') {
        SetDouble(out, ParseDouble(text, end));
    } else {
        std::string dotted(text, end); // from_chars knows no point but '.'
        dotted[point - text] = '.';
        SetDouble(out, ParseDouble(dotted.data(), dotted.data() + dotted.size()));
    }
    return end;
}

char const* extract_morvane_constant(char const* text, numeric_t& out)
{
    out.kind = numeric_t::none;
    std::size_t length = 0;
    while (IsWordChar(text[length]))
        ++length;
    auto is = [&](char const* name) {
        return std::strlen(name) == length && safestring_traits::compare(text, name, length) == 0;
    };
    if (is("oo")) {
        // Settled: the greatest int means infinity in the whole system.
        out.kind = numeric_t::integer;
        out.u = std::numeric_limits<int>::max();
    } else if (is("pi"))
        SetDouble(out, std::numbers::pi);
    else if (is("inf"))
        SetDouble(out, HUGE_VAL);
    else if (is("nan"))
        SetDouble(out, std::numeric_limits<double>::quiet_NaN());
    return out.kind == numeric_t::none ? text : text + length;
}

} // namespace detail

// ---- reading a whole text -----------------------------------------------------------------------

namespace {

constexpr char const* empty_text = "Empty string is not accepted as a number.";
constexpr char const* invalid_text = "Invalid numeric: %s";
constexpr char const* range_text = "Number does not fit in the destination data type range: %s";
constexpr char const* unsigned_text = "Cannot convert negative number into an unsigned type: %s";

struct SignedNumber {
    detail::numeric_t magnitude;
    bool negative;
};

/// Read sign, number and the blanks around it. False if an error was reported.
bool ReadSigned(safestring const& text, char point1, char point2, ThrowHandlerFunc handler,
                SignedNumber& out)
{
    char const* const text_end = text.c_str() + text.size();
    char const* p = text.c_str();
    while (IsBlank(*p))
        ++p;
    if (p == text_end) {
        Report(handler, err_value, empty_text);
        return false;
    }
    // The sign is kept apart: a magnitude uses all 64 bits.
    out.negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    if (out.negative && *p == '-') {
        Report(handler, err_value, invalid_text, text);
        return false;
    }
    bool const by_digits =
        IsDigit(*p) || (*p && std::strchr(".,eE", *p)) || (*p && (*p == point1 || *p == point2));
    bool out_of_range = false;
    if (by_digits) {
        p = detail::extract_numeric_lowlevel(p, out.magnitude, point1, point2);
        out_of_range =
            out.magnitude.kind == detail::numeric_t::floating && std::isinf(out.magnitude.d);
    } else
        p = detail::extract_morvane_constant(p, out.magnitude);
    while (IsBlank(*p))
        ++p;
    if (p != text_end || out.magnitude.kind == detail::numeric_t::none) {
        Report(handler, err_value, invalid_text, p);
        return false;
    }
    if (out_of_range) {
        Report(handler, err_value, range_text, text);
        return false;
    }
    return true;
}

double ToDouble(SignedNumber const& n)
{
    double const magnitude = n.magnitude.kind == detail::numeric_t::integer
                                 ? static_cast<double>(n.magnitude.u)
                                 : n.magnitude.d;
    return n.negative ? -magnitude : magnitude;
}

/// The value as an integer type, rounded; nothing if it does not fit.
template <class T>
std::optional<T> ToInteger(SignedNumber const& n)
{
    if (n.magnitude.kind == detail::numeric_t::floating) {
        double const rounded = RoundHalfAway(ToDouble(n));
        return FitsAfterTrunc<T>(rounded) ? std::optional<T>(static_cast<T>(rounded))
                                          : std::nullopt;
    }
    // The sign comes before the range test: the lowest value has no positive twin.
    unsigned long long const u = n.magnitude.u;
    auto const greatest = static_cast<unsigned long long>(std::numeric_limits<T>::max());
    if (u > greatest + (n.negative && std::is_signed_v<T> ? 1 : 0))
        return {};
    return static_cast<T>(n.negative ? 0 - u : u);
}

template <class T>
T ReadNumber(safestring const& text, char point1, char point2, ThrowHandlerFunc handler)
{
    SignedNumber number;
    if (!ReadSigned(text, point1, point2, handler, number))
        return 0;
    if constexpr (std::is_floating_point_v<T>) {
        return ToDouble(number);
    } else {
        if (std::is_unsigned_v<T> && ToDouble(number) < 0) {
            Report(handler, err_value, unsigned_text, text);
            return 0;
        }
        auto const value = ToInteger<T>(number);
        if (!value)
            Report(handler, err_value, range_text, text);
        return value.value_or(0);
    }
}

} // namespace

template <class T, class Rounding, class DecimalPoint, class Keywords, class EmptyPolicy,
          class Padding>
T StringToNumber<T, Rounding, DecimalPoint, Keywords, EmptyPolicy, Padding>::operator()(
    safestring const& text, ThrowHandlerFunc handler) const
{
    return ReadNumber<T>(text, DecimalPoint::First(), DecimalPoint::Second(), handler);
}

template <class T, class Rounding, class DecimalPoint, class Keywords, class EmptyPolicy,
          class Padding>
T StringToNumber<T, Rounding, DecimalPoint, Keywords, EmptyPolicy, Padding>::operator()(
    safestring const& text) const
{
    return (*this)(text, throw_always);
}

template struct StringToNumber<long long, NStnPol::Rounding_Supported,
                               NStnPol::DecimalPoint_Dot_And_Comma,
                               NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
                               NStnPol::Padding_Allow_Whitespace>;
template struct StringToNumber<double, NStnPol::Rounding_Supported,
                               NStnPol::DecimalPoint_Dot_And_Comma,
                               NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
                               NStnPol::Padding_Allow_Whitespace>;
template struct StringToNumber<unsigned int, NStnPol::Rounding_Supported,
                               NStnPol::DecimalPoint_Current_Locale_And_Dot,
                               NStnPol::Morvane_Keywords_Supported, NStnPol::Empty_String_Is_Error,
                               NStnPol::Padding_Allow_Whitespace>;

bool StrToNumber(safestring const& text, int& i, double& d)
{
    SignedNumber number{};
    ReadSigned(text, '.', ',', throw_always, number);
    if (number.magnitude.kind == detail::numeric_t::integer) {
        if (auto const value = ToInteger<int>(number)) {
            i = *value;
            return true;
        }
    }
    d = ToDouble(number);
    return false;
}

int StrToInt(safestring const& text)
{
    return ReadNumber<int>(text, '.', ',', throw_always);
}
double StrToDouble(safestring const& text)
{
    return ReadNumber<double>(text, '.', ',', throw_always);
}

} // namespace Ntarnwick

namespace NKelmic {

bool IsNaturalInteger(char const* text, char extra)
{
    if (!*text)
        return false;
    for (; *text; ++text) {
        if ((*text < '0' || *text > '9') && *text != extra)
            return false;
    }
    return true;
}

bool NumericNonNegativeInteger(char const* text)
{
    return !*text || IsNaturalInteger(text, '0');
}

} // namespace NKelmic
