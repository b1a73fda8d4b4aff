#include <memblock/logging/logformat_internal.h>

#include <memblock/base/text.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace NKelmic {

namespace {

constexpr char const* date_format = "%Y-%m-%d";
constexpr char const* time_format = "%H:%M:%S";
constexpr char const* placeholders = "dtnpairmlsh"; // in the order of their replacement

bool IsPlaceholder(char lower)
{
    return lower != 0 && std::strchr(placeholders, lower) != nullptr;
}

bool HasPercent(safestring const& text)
{
    return std::memchr(text.data(), '%', text.size()) != nullptr;
}

template <class Match>
void ReplacePairs(safestring& text, safestring const& value, Match matches)
{
    safestring out;
    std::size_t done = 0;
    for (std::size_t i = 0; i + 1 < text.size();) {
        if (text[i] != '%' || !matches(text[i + 1])) {
            ++i;
            continue;
        }
        out.append(text, done, i - done).append(value);
        done = i += 2;
    }
    if (done == 0)
        return;
    out.append(text, done);
    text.swap(out);
}

void AppendNumber(int value, safestring& output)
{
    char digits[16];
    auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    output.append(digits, end - digits);
}

safestring Number(int value)
{
    safestring text;
    AppendNumber(value, text);
    return text;
}

void BlankLineBreaks(char* begin, char* end)
{
    std::replace_if(
        begin, end, [](char c) { return c == '\r' || c == '\n'; }, ' ');
}

safestring OneLine(safestring text)
{
    NLogger::RemoveLineBreaks(text);
    return text;
}

safestring Quoted(safestring text)
{
    ApplyQuoting(text);
    return '"' + text + '"';
}

void ReplaceMessage(safestring const& message, safestring& text)
{
    // The quoted form goes first and by its exact letter: the plain one takes either case.
    ReplacePairs(text, Quoted(message), [](char c) { return c == 'M'; });
    ReplaceWildCard('m', OneLine(message), text);
}

} // namespace

void NLogger::RemoveLineBreaks(safestring& text)
{
    BlankLineBreaks(text.data(), text.data() + text.size());
}

void ReplaceWildCard(char c, safestring const& value, safestring& text)
{
    ReplacePairs(text, value, [c](char x) { return safestring_traits::eq(x, c); });
}

void FormatLogMessage(safestring const& format, safestring const& topic, safestring const& subtopic,
                      level_t level, safestring const& message, safestring const& threadname,
                      int threadno, int sessionid, safestring& output)
{
    FormatByReplacement(
        format,
        {topic, subtopic, level, message, threadname, threadno, sessionid, std::time(nullptr)},
        output);
}

void FormatByReplacement(safestring const& format, LogFields const& fields, safestring& output)
{
    bool named[256] = {}; // a value is made only if the format names it
    for (std::size_t i = 0; i + 1 < format.size(); ++i)
        if (format[i] == '%')
            named[static_cast<unsigned char>(safestring_traits::fold_down(format[i + 1]))] = true;

    output = format;
    auto replace = [&](char c, auto value) {
        if (named[static_cast<unsigned char>(c)])
            ReplaceWildCard(c, value(), output);
    };
    // Settled: this order, each step over the whole text, so that a topic or a message which holds
    // a later placeholder has it replaced too. Formats in use rest on it.
    replace('d', [&] { return FormatLocalTime(fields.time, date_format); });
    replace('t', [&] { return FormatLocalTime(fields.time, time_format); });
    replace('n', [&] { return fields.topic + "/" + fields.subtopic; });
    replace('p', [&] { return Number(getpid()); });
    replace('a', [&] { return Number(fields.sessionid); });
    replace('i', [&] { return Number(fields.threadno); });
    replace('r', [&] { return fields.threadname; });
    if (named[static_cast<unsigned char>('m')])
        ReplaceMessage(fields.message, output);
    replace('l', [&] { return Number(fields.level); });
    replace('s', [&] { return fields.subtopic; });
    replace('h', [&] { return fields.topic; });
    ReplaceWildCard('%', "%", output);
}

LogFormat::LogFormat(safestring const& format) : format_(format), one_pass_(TakeApart()) {}

/// False if the format can't be worked off in one pass. It can if no value holds a '%' and every
/// '%' of the format stands before a placeholder or before something that is neither a letter of
/// one nor a '%': then no step finds more than it would in the format.
bool LogFormat::TakeApart()
{
    unsigned long plain = 0; // begin of the plain text not yet taken
    auto take_plain = [&](unsigned long end) {
        if (end > plain)
            pieces_.push_back({0, plain, end - plain});
    };
    for (unsigned long i = 0; i + 1 < format_.size(); ++i) {
        if (format_[i] != '%')
            continue;
        char const letter = format_[i + 1];
        if (letter == '%' || letter == 'M')
            return false;
        char const field = safestring_traits::fold_down(letter);
        if (!IsPlaceholder(field))
            continue;
        take_plain(i);
        pieces_.push_back({field, 0, 0});
        plain = ++i + 1;
    }
    take_plain(format_.size());
    return true;
}

void LogFormat::Format(LogFields const& fields, safestring& output)
{
    if (!one_pass_ || HoldsPercent(fields)) {
        FormatByReplacement(format_, fields, output);
        return;
    }
    output.clear();
    for (Piece const& piece : pieces_) {
        if (piece.field)
            AppendField(piece.field, fields, output);
        else
            output.append(format_, piece.begin, piece.length);
    }
}

bool LogFormat::HoldsPercent(LogFields const& fields) const
{
    return HasPercent(fields.message) || HasPercent(fields.subtopic) || HasPercent(fields.topic) ||
           HasPercent(fields.threadname);
}

void LogFormat::AppendField(char field, LogFields const& fields, safestring& output)
{
    switch (field) {
    case 'd':
        LookAtClock(fields.time);
        output += date_;
        break;
    case 't':
        LookAtClock(fields.time);
        output += time_;
        break;
    case 'n':
        output.append(fields.topic).append(1, '/').append(fields.subtopic);
        break;
    case 'p':
        AppendNumber(getpid(), output);
        break;
    case 'a':
        AppendNumber(fields.sessionid, output);
        break;
    case 'i':
        AppendNumber(fields.threadno, output);
        break;
    case 'r':
        output += fields.threadname;
        break;
    case 'm':
        output += fields.message;
        BlankLineBreaks(output.data() + output.size() - fields.message.size(),
                        output.data() + output.size());
        break;
    case 'l':
        AppendNumber(fields.level, output);
        break;
    case 's':
        output += fields.subtopic;
        break;
    case 'h':
        output += fields.topic;
        break;
    }
}

void LogFormat::LookAtClock(long time)
{
    if (time == second_)
        return;
    date_ = FormatLocalTime(time, date_format);
    time_ = FormatLocalTime(time, time_format);
    second_ = time;
}

} // namespace NKelmic
