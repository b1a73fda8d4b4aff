#include <memblock/core/dataitem.h>

#include <memblock/base/chars_internal.h>
#include <memblock/base/number.h>
#include <memblock/vector/vector.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <strings.h>

namespace NKelmic {

namespace {

constexpr int unordered = -2;

int Sign(int v)
{
    return (v > 0) - (v < 0);
}

template <class T>
int Order(T left, T right)
{
    return (left > right) - (left < right);
}

int OrderDoubles(double left, double right)
{
    return std::isnan(left) || std::isnan(right) ? unordered : Order(left, right);
}

int OrderTexts(safestring const& left, safestring const& right)
{
    return Sign(left.compare(right));
}

/// Parse without throwing: comparisons meet texts that only look like numbers.
template <class Parser>
auto TryParse(safestring const& text) -> std::optional<decltype(Parser()(text))>
{
    bool ok = true;
    CheckOk handler(ok);
    auto const v = Parser()(text, handler);
    return ok ? std::optional(v) : std::nullopt;
}

bool IsNumberWord(safestring const& text)
{
    constexpr std::array words{"pi", "oo", "nan", "inf", "-inf"};
    return std::any_of(words.begin(), words.end(), [&](char const* word) { return text == word; });
}

bool ReadsAsNumber(safestring const& text)
{
    return is_numeric(text) || IsNumberWord(text);
}

/// Compare an integer with a text: as integers, else as doubles, else as texts.
int OrderIntegerText(long long left, safestring const& right)
{
    bool is_integer = false;
    if (is_numeric_ex(right.c_str(), is_integer)) {
        if (is_integer)
            if (auto const v = TryParse<StringToInt64>(right))
                return Order(left, *v);
        if (auto const v = TryParse<StringToDouble>(right))
            return OrderDoubles(static_cast<double>(left), *v);
    }
    return Sign(strcasecmp(str(left).c_str(), right.c_str()));
}

/// Independent of NDEBUG: going on would give the caller an order that does not exist.
[[noreturn]] void EndProcess(int line)
{
    std::fprintf(stderr, "dataitem:%d: Assertion `false' failed.\n", line);
    std::abort();
}

bool IsHexDigit(char c)
{
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Settled: all infinities are equal, and all NaNs.
bool EqualDoubles(double left, double right)
{
    if (std::isfinite(left))
        return left == right;
    return !std::isfinite(right) && std::isnan(left) == std::isnan(right);
}

} // namespace

bool is_numeric_ex(char const* text, bool& is_integer)
{
    if (!IsDigit(*text) && *text != '+' && *text != '-' && *text != '.')
        return false;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        char const* c = text + 2;
        while (IsHexDigit(*c))
            ++c;
        if (*c != '\0')
            return false;
        is_integer = true;
        return true;
    }
    bool dot = *text == '.';
    bool exponent = false;
    if (dot && text[1] == '\0')
        return false;
    for (char const* c = text + 1; *c; ++c) {
        bool const behind_e = c[-1] == 'e' || c[-1] == 'E';
        if (*c == '.' && !dot)
            dot = true;
        else if ((*c == 'e' || *c == 'E') && !exponent)
            exponent = true;
        else if (!IsDigit(*c) && !((*c == '+' || *c == '-') && behind_e))
            return false;
    }
    is_integer = !dot && !exponent;
    return true;
}

/// The text of a text item or of a string vector of one element, without a copy.
bool DataItem::FindText(View& text) const
{
    if (IsText()) {
        text = AsText();
        return true;
    }
    Vector const* const vector = AsVector(); // read only: shared data stays shared
    if (!vector || vector->ElemType() != Vector::String || vector->Length() != 1)
        return false;
    text = *vector->StringPointer();
    return true;
}

int string_compare(safestring const& left, DataItem const& rhs)
{
    bool const numeric = ReadsAsNumber(left);
    DataItem::View text;
    if (!numeric && rhs.FindText(text))
        return Sign(DataItem::View(left).compare(text));
    safestring const right = rhs.GetString();
    if (numeric && ReadsAsNumber(right))
        return rhs.GetType() == it_sharable // a number in words, and none to compare with
                   ? unordered
                   : OrderDoubles(StringToDouble()(left), rhs.GetDouble());
    return OrderTexts(left, right);
}

/// For an int or an int64 on the left.
int DataItem::CompareInteger(DataItem const& rhs) const
{
    long long const left = GetInt64();
    switch (rhs.bits_.type) {
    case it_int:
        return Order(left, rhs.GetInt64());
    case it_int64:
        if (bits_.type == it_int64)
            return Order(left, rhs.GetInt64());
        break;
    case it_double:
        return OrderDoubles(static_cast<double>(left), rhs.Load<double>());
    case it_shortstring:
    case it_string:
        return OrderIntegerText(left, rhs.GetString());
    default:
        break;
    }
    return string_compare(str(left), rhs);
}

int DataItem::CompareDouble(DataItem const& rhs) const
{
    double const left = Load<double>();
    switch (rhs.bits_.type) {
    case it_int:
    case it_double:
    case it_int64:
        return OrderDoubles(left, rhs.GetDouble());
    default:
        return std::isnan(left) ? unordered : string_compare(str(left, 6), rhs);
    }
}

int DataItem::Compare(DataItem const& rhs) const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string:
    case it_pointer:
    case it_memblock:
    case it_sharable:
        return string_compare(GetString(), rhs);
    case it_int:
    case it_int64:
        return CompareInteger(rhs);
    case it_double:
        return CompareDouble(rhs);
    default:
        EndProcess(__LINE__);
    }
}

bool DataItem::operator==(DataItem const& o) const
{
    if (bits_.type != o.bits_.type)
        return false;
    switch (bits_.type) {
    case it_shortstring:
        return strcasecmp(Chars(), o.Chars()) == 0;
    case it_int:
        return Load<int>() == o.Load<int>();
    case it_double:
        return EqualDoubles(Load<double>(), o.Load<double>());
    case it_pointer:
    case it_sharable:
        return Load<void*>() == o.Load<void*>();
    case it_memblock:
        return Block() && o.Block() ? *Block() == *o.Block() : Block() == o.Block();
    case it_string:
        return Long() == o.Long();
    case it_int64:
        return Load<long long>() == o.Load<long long>();
    case it_undefined:
        return true;
    default:
        ThrowAssertException("dataitem", __LINE__, "false");
    }
}

bool DataItem::operator<(DataItem const& o) const
{
    auto const is_narrow = [](DataItem const& item) {
        return item.bits_.type == it_int || item.bits_.type == it_double;
    };
    if (bits_.type == it_int64 || (is_narrow(*this) && is_narrow(o)))
        return GetDouble() < o.GetDouble();
    return strcasecmp(GetString().c_str(), o.GetString().c_str()) < 0;
}

} // namespace NKelmic
