#include <memblock/base/printfer.h>

#include <memblock/base/chars_internal.h>
#include <memblock/base/number.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

namespace Ntarnwick {

namespace {

/// A conversion of a format, read from its '%' on.
struct Conversion {
    char letter = 0; // 0: not a conversion
    bool left = false, plus = false, blank = false, alternate = false, zero = false;
    int width = 0;
    int precision = -1;
    unsigned long length = 0; // in the format
};

// Of width and precision, so that a format can't ask for any amount of memory.
constexpr int size_max = 4095;

bool TakeFlag(Conversion& c, char flag)
{
    switch (flag) {
    case '-':
        return c.left = true;
    case '+':
        return c.plus = true;
    case ' ':
        return c.blank = true;
    case '#':
        return c.alternate = true;
    case '0':
        return c.zero = true;
    default:
        return false;
    }
}

int TakeSize(char const*& p, char const* end)
{
    int n = 0;
    for (; p != end && IsDigit(*p); ++p)
        n = std::min(n * 10 + (*p - '0'), size_max);
    return n;
}

Conversion Parse(char const* const start, char const* const end)
{
    Conversion c;
    char const* p = start + 1;
    if (p != end && (*p == 's' || *p == 'd' || *p == 'u')) { // nearly all that texts hold
        c.letter = *p;
        c.length = 2;
        return c;
    }
    while (p != end && TakeFlag(c, *p))
        ++p;
    c.width = TakeSize(p, end);
    if (p != end && *p == '.') {
        ++p;
        c.precision = TakeSize(p, end);
    }
    // Lengths are skipped: the argument knows its own type.
    while (p != end && std::memchr("hlLqjzt", *p, 7))
        ++p;
    if (p == end || !std::memchr("diuoxXcspeEfFgGaA", *p, 17))
        return {};
    c.letter = *p;
    c.length = p + 1 - start;
    return c;
}

bool IsFloating(char letter)
{
    return std::memchr("eEfFgGaA", letter, 8) != nullptr;
}

// ---- output -------------------------------------------------------------------------------------

void AppendPadded(safestring& out, Conversion const& c, std::string_view text)
{
    std::size_t const width = c.width;
    std::size_t const pad = width > text.size() ? width - text.size() : 0;
    if (!c.left)
        out.append(pad, ' ');
    out.append(text.data(), text.size());
    if (c.left)
        out.append(pad, ' ');
}

/// Sign or base prefix, zeros, digits, padded to the width; `zeros` says that zeros may pad.
void AppendNumber(safestring& out, Conversion const& c, std::string_view prefix,
                  std::size_t leading_zeros, std::string_view digits, bool zeros)
{
    std::size_t const width = c.width;
    std::size_t const used = prefix.size() + leading_zeros + digits.size();
    std::size_t pad = width > used ? width - used : 0;
    if (zeros && !c.left) {
        leading_zeros += pad;
        pad = 0;
    }
    if (!c.left)
        out.append(pad, ' ');
    out.append(prefix.data(), prefix.size());
    out.append(leading_zeros, '0');
    out.append(digits.data(), digits.size());
    if (c.left)
        out.append(pad, ' ');
}

std::string_view SignOf(Conversion const& c, bool negative)
{
    return negative ? "-" : c.plus ? "+" : c.blank ? " " : "";
}

void ToUpper(char* first, char* last)
{
    std::transform(first, last, first, safestring_traits::fold_up);
}

// ---- integers -----------------------------------------------------------------------------------

void AppendDigits(safestring& out, Conversion const& c, std::string_view prefix,
                  unsigned long long magnitude, int base)
{
    char digits[24];
    // Zero with precision 0 has no digits, and '#' makes an octal number begin with 0: as printf.
    char* end = std::to_chars(digits, digits + sizeof digits, magnitude, base).ptr;
    if (c.precision == 0 && magnitude == 0)
        end = digits;
    if (c.letter == 'X')
        ToUpper(digits, end);
    std::size_t const count = end - digits;
    std::size_t const wanted = c.precision > 0 ? c.precision : 0;
    std::size_t zeros = wanted > count ? wanted - count : 0;
    if (c.alternate && base == 8 && zeros == 0 && (count == 0 || digits[0] != '0'))
        zeros = 1;
    AppendNumber(out, c, prefix, zeros, {digits, count}, c.zero && c.precision < 0);
}

void AppendPattern(safestring& out, Conversion const& c, unsigned long long bits)
{
    if (c.letter == 'o')
        AppendDigits(out, c, "", bits, 8);
    else if (c.letter == 'x' || c.letter == 'X')
        AppendDigits(out, c, c.alternate && bits != 0 ? (c.letter == 'x' ? "0x" : "0X") : "", bits,
                     16);
    else
        AppendDigits(out, c, "", bits, 10);
}

void AppendAddress(safestring& out, Conversion const& c, unsigned long long address)
{
    if (address == 0) {
        AppendPadded(out, c, "(nil)");
        return;
    }
    Conversion as_hex = c;
    as_hex.letter = 'x';
    as_hex.precision = -1;
    AppendDigits(out, as_hex, "0x", address, 16);
}

void AppendDouble(safestring& out, Conversion const& c, double v);

template <class V>
void AppendInteger(safestring& out, Conversion const& c, V v)
{
    auto const bits = static_cast<std::make_unsigned_t<V>>(v);
    if (c.letter == 'c') {
        char const character = static_cast<char>(v);
        AppendPadded(out, c, {&character, 1});
    } else if (c.letter == 'p') {
        AppendAddress(out, c, bits);
    } else if (IsFloating(c.letter)) {
        AppendDouble(out, c, static_cast<double>(v));
    } else if (c.letter == 'd' || c.letter == 'i') {
        bool const negative = v < V(0);
        AppendDigits(out, c, SignOf(c, negative), negative ? 0ull - v : v, 10);
    } else if (c.letter == 's') {
        Conversion as_decimal = c;
        as_decimal.letter = 'd';
        as_decimal.precision = -1;
        AppendInteger(out, as_decimal, v);
    } else {
        AppendPattern(out, c, bits);
    }
}

// ---- floating numbers ---------------------------------------------------------------------------

/// The digits of %e, %f, %g or %a of a finite value without sign, into `buffer`.
char* DoubleDigits(Conversion const& c, double v, char* first, char* last)
{
    int const precision = c.precision < 0 ? 6 : c.precision;
    switch (safestring_traits::fold_down(c.letter)) {
    case 'e':
        return std::to_chars(first, last, v, std::chars_format::scientific, precision).ptr;
    case 'f':
        return std::to_chars(first, last, v, std::chars_format::fixed, precision).ptr;
    case 'g':
        return std::to_chars(first, last, v, std::chars_format::general, precision).ptr;
    default:
        if (c.precision < 0)
            return std::to_chars(first, last, v, std::chars_format::hex).ptr;
        return std::to_chars(first, last, v, std::chars_format::hex, precision).ptr;
    }
}

void AppendFinite(safestring& out, Conversion const& c, double v)
{
    // Nearly all numbers fit the stack; only a great precision needs an allocation.
    char small[400];
    safestring large;
    char* first = small;
    char* last = small + sizeof small;
    if (c.precision > 80) { // the widest number has 309 digits before its point
        large.resize(c.precision + 400);
        first = large.data();
        last = first + large.size();
    }
    char* const end = DoubleDigits(c, std::fabs(v), first, last);
    bool const hex = c.letter == 'a' || c.letter == 'A';
    if (c.letter >= 'A' && c.letter <= 'Z')
        ToUpper(first, end);
    char prefix[4];
    std::size_t length = SignOf(c, std::signbit(v)).copy(prefix, 1);
    if (hex) {
        prefix[length++] = '0';
        prefix[length++] = c.letter == 'a' ? 'x' : 'X';
    }
    AppendNumber(out, c, {prefix, length}, 0, {first, std::size_t(end - first)}, c.zero);
}

void AppendDouble(safestring& out, Conversion const& c, double v)
{
    if (c.letter == 's') {
        AppendPadded(out, c, str(v, 12).c_str());
    } else if (!std::isfinite(v)) {
        // Settled: NaN bears no sign. The processor's own NaN has its sign bit set.
        bool const upper = IsFloating(c.letter) && c.letter >= 'A' && c.letter <= 'Z';
        char const* const word = std::isnan(v) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
        AppendNumber(out, c, SignOf(c, v < 0), 0, word, false);
    } else if (IsFloating(c.letter)) {
        AppendFinite(out, c, v);
    } else if (FitsAfterTrunc<long long>(v)) {
        AppendInteger(out, c, static_cast<long long>(v));
    } else if (FitsAfterTrunc<unsigned long long>(v)) {
        AppendInteger(out, c, static_cast<unsigned long long>(v));
    } else { // no integer has room for it
        Conversion as_fixed = c;
        as_fixed.letter = 'f';
        as_fixed.precision = 0;
        AppendFinite(out, as_fixed, v);
    }
}

// ---- one door for all argument types ------------------------------------------------------------

void AppendText(safestring& out, Conversion const& c, std::string_view text)
{
    AppendPadded(out, c, c.precision < 0 ? text : text.substr(0, c.precision));
}

template <class V>
requires std::is_integral_v<V>
void Append(safestring& out, Conversion const& c, V v)
{
    AppendInteger(out, c, v);
}

void Append(safestring& out, Conversion const& c, double v)
{
    AppendDouble(out, c, v);
}

void Append(safestring& out, Conversion const& c, void const* v)
{
    auto const address = reinterpret_cast<unsigned long>(v);
    if (c.letter == 'p' || c.letter == 's' || c.letter == 'c')
        AppendAddress(out, c, address);
    else
        AppendInteger(out, c, address);
}

void Append(safestring& out, Conversion const& c, char const* v)
{
    if (c.letter == 'p')
        return Append(out, c, static_cast<void const*>(v));
    if (!v)
        return AppendText(out, c, "(null)");
    // With a precision the text need not end in a NUL.
    std::size_t const size = c.precision < 0 ? std::strlen(v) : strnlen(v, c.precision);
    AppendPadded(out, c, {v, size});
}

void Append(safestring& out, Conversion const& c, safestring const& v)
{
    AppendText(out, c, {v.data(), v.size()});
}

} // namespace

printfer::printfer(safestring const& format) : format_(format), size_(format.size())
{
    ToNextConversion();
}

printfer::printfer(char const* format, std::nullptr_t) : over_(format), size_(std::strlen(format))
{
    out_.reserve(size_ + 64); // most texts come to no more: one allocation
    ToNextConversion();
}

/// Add the plain text up to the next conversion.
void printfer::ToNextConversion()
{
    char const* const format = over_ ? over_ : format_.data();
    char const* const end = format + size_;
    char const* from = format + pos_;
    char const* p = from;
    for (; p != end; ++p) {
        p = static_cast<char const*>(std::memchr(p, '%', end - p));
        if (!p) {
            p = end;
            break;
        }
        if (p + 1 != end && p[1] == '%') {
            out_.append(from, p + 1);
            from = ++p + 1;
        } else if (Parse(p, end).letter != 0) {
            break;
        }
    }
    out_.append(from, p);
    pos_ = p - format;
}

template <class V>
printfer& printfer::Feed(V const& v)
{
    if (pos_ == size_)
        return *this;
    char const* const format = over_ ? over_ : format_.data();
    Conversion const c = Parse(format + pos_, format + size_);
    Append(out_, c, v);
    pos_ += c.length;
    ToNextConversion();
    return *this;
}

printfer& printfer::operator()(char const* v)
{
    return Feed(v);
}
printfer& printfer::operator()(double v)
{
    return Feed(v);
}
printfer& printfer::operator()(int v)
{
    return Feed(v);
}
printfer& printfer::operator()(long v)
{
    return Feed(v);
}
printfer& printfer::operator()(long long v)
{
    return Feed(v);
}
printfer& printfer::operator()(unsigned int v)
{
    return Feed(v);
}
printfer& printfer::operator()(unsigned long v)
{
    return Feed(v);
}
printfer& printfer::operator()(unsigned long long v)
{
    return Feed(v);
}
printfer& printfer::operator()(void const* v)
{
    return Feed(v);
}
printfer& printfer::operator()(safestring const& v)
{
    return Feed(v);
}

printfer& printfer::Finalize()
{
    while (pos_ != size_) {
        char const* const format = over_ ? over_ : format_.data();
        pos_ += Parse(format + pos_, format + size_).length;
        ToNextConversion();
    }
    return *this;
}

safestring printfer::Take()
{
    Finalize();
    return std::move(out_);
}

printfer Printf(safestring const& format)
{
    return printfer(format);
}

} // namespace Ntarnwick
