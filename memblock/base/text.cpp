#include <memblock/base/text.h>

#include <memblock/base/chars_internal.h>
#include <memblock/base/number.h>

#include <cstring>
#include <ctime>

namespace Ntarnwick {

namespace {

/// How a byte is written between double quotes; null if as it is.
char const* QuotedForm(char c)
{
    switch (c) {
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        return nullptr;
    }
}

char const* XmlForm(char c)
{
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&apos;";
    default:
        return nullptr;
    }
}

} // namespace

safestring QuoteAdd(safestring const& text)
{
    safestring quoted;
    quoted.reserve(text.size());
    for (char c : text) {
        if (char const* form = QuotedForm(c))
            quoted += form;
        else
            quoted += c;
    }
    return quoted;
}

void ApplyQuoting(safestring& text)
{
    text = QuoteAdd(text);
}

void QuoteName(safestring& name)
{
    name.insert(name.begin(), '@');
    name += '@';
}

void UnquoteName(safestring& name)
{
    if (name.size() >= 2 && name.front() == '@' && name.back() == '@')
        name = name.substr(1, name.size() - 2);
}

void EncodeXmlEntities(char const* text, int length, safestring& output)
{
    for (int i = 0; i < length; ++i) {
        char const c = text[i];
        if (char const* form = XmlForm(c))
            output += form;
        else if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n')
            output += "&#" + str(int(c)) + ";";
        else
            output += c;
    }
}

unsigned long find_smart_skip_brackets_and_parens(safestring const& text, safestring const& what,
                                                  unsigned long position)
{
    unsigned long const size = text.size();
    char const* const bytes = text.data();
    if (position > size)
        return safestring::npos;
    unsigned long depth = 0;
    for (unsigned long i = position; i + what.size() <= size; ++i) {
        char const c = bytes[i]; // a null behind the text
        bool const may_begin = what.empty() || safestring_traits::eq(c, what[0]);
        if (depth == 0 && may_begin &&
            (what.size() == 1 ||
             safestring_traits::compare(bytes + i, what.data(), what.size()) == 0))
            return i;
        if (c == '[' || c == '(')
            ++depth;
        else if ((c == ']' || c == ')') && depth > 0)
            --depth;
    }
    return safestring::npos;
}

void apply_trim(safestring& text)
{
    std::size_t from = 0, to = text.size();
    while (from < to && IsBlank(text[from]))
        ++from;
    while (to > from && IsBlank(text[to - 1]))
        --to;
    text.erase(to);
    text.erase(0, from);
}

namespace {

/// Local time of a second. Lines of a log ask for the same one again and again, and finding it
/// takes a lock of the C library.
std::tm const& LocalTime(long time)
{
    struct Last {
        bool known;
        std::time_t seconds;
        std::tm local;
    };
    thread_local constinit Last last{};
    if (!last.known || last.seconds != time) {
        last.seconds = time;
        last.known = localtime_r(&last.seconds, &last.local) != nullptr;
        if (!last.known) // a year beyond an int
            last.local = std::tm{};
    }
    return last.local;
}

} // namespace

safestring FormatLocalTime(long time, char const* format)
{
    std::tm const& local = LocalTime(time);
    char buffer[128];
    if (std::size_t const length = std::strftime(buffer, sizeof buffer, format, &local))
        return safestring(buffer, length);
    if (*format == '\0')
        return {};
    // A length of 0 may be right or too long for the buffer: a blank in front shows which.
    safestring const marked = safestring(" ") + format;
    safestring text(2 * sizeof buffer + 2 * marked.size(), '\0');
    std::size_t length;
    while ((length = std::strftime(text.data(), text.size(), marked.c_str(), &local)) == 0)
        text.resize(2 * text.size());
    return text.substr(1, length - 1);
}

} // namespace Ntarnwick
