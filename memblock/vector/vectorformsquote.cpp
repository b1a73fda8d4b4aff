#include <memblock/vector/vectorforms.h>

#include <memblock/base/text.h>

#include <algorithm>

namespace NKelmic {

namespace {

constexpr char hex_digits[] = "0123456789ABCDEF";

int HexValue(unsigned char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

/// The HTML form of a character; null if it needs none.
char const* HtmlForm(char c)
{
    switch (c) {
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '&':
        return "&amp;";
    case '"':
        return "&quot;";
    case '\t':
        return "&nbsp;&nbsp;&nbsp;&nbsp;";
    default:
        return nullptr;
    }
}

/// The bytes of the line end at this place, 0 if there is none.
std::size_t LineEnd(safestring const& text, std::size_t at)
{
    if (at < text.size() && text[at] == '\n')
        return 1;
    return at + 1 < text.size() && text[at] == '\r' && text[at + 1] == '\n' ? 2 : 0;
}

} // namespace

safestring byte2hex(unsigned char byte)
{
    return {hex_digits[byte >> 4], hex_digits[byte & 15]};
}

unsigned char hex2byte(unsigned char high, unsigned char low)
{
    int const h = HexValue(high);
    int const l = HexValue(low);
    if (h < 0 || l < 0)
        Raise(err_value, "Invalid hexadecimal digits: %s",
              safestring{static_cast<char>(high), static_cast<char>(low)});
    return static_cast<unsigned char>(h << 4 | l);
}

void HtmlQuote(safestring& text, bool full)
{
    // Made aside in one pass: replacing in place would move the rest of the text each time.
    safestring quoted;
    quoted.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        std::size_t const end = full ? LineEnd(text, i) : 0;
        if (end != 0) {
            // An empty line is two line ends of one kind.
            bool const empty_line = LineEnd(text, i + end) == end;
            quoted += empty_line ? "<p>" : "<br>";
            i += empty_line ? 2 * end : end;
        } else {
            if (char const* form = HtmlForm(text[i]))
                quoted += form;
            else
                quoted += text[i];
            ++i;
        }
    }
    text.swap(quoted);
}

void ApplyAsciiQuoting(safestring& text)
{
    ApplyQuoting(text);
}

void NVector::RemoveLineBreaks(safestring& text)
{
    // A lone carriage return breaks a line, too, where old files are read.
    std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
}

void QuoteByMode(safestring& text, int mode)
{
    switch (mode) {
    case 1:
        return ApplyAsciiQuoting(text);
    case 2:
        return HtmlQuote(text, true);
    case 3:
        return NVector::RemoveLineBreaks(text);
    default:
        Raise(err_request, "Quoting mode not supported: %d", mode);
    }
}

void PrintStrings(safestring& output, safestring const* strings, unsigned int n, char separator,
                  int mode)
{
    for (unsigned int i = 0; i < n; ++i) {
        if (mode != 0) {
            safestring quoted = strings[i];
            QuoteByMode(quoted, mode);
            output += quoted;
        } else {
            output += strings[i];
        }
        output += separator;
    }
}

} // namespace NKelmic
