#include <memblock/logging/logformat_internal.h>

#include <memblock/base/text.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace NKelmic {

namespace {

// Fixed, whatever the locale: programs read log files.
constexpr char const* date_format = "%Y-%m-%d";
constexpr char const* time_format = "%H:%M:%S";
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

void BlankLineBreaks(char* begin, char* end)
{
    std::replace_if(
        begin, end, [](char c) { return c == '\r' || c == '\n'; }, ' ');
}

void AppendOneLine(safestring const& text, safestring& output)
{
    output += text;
    BlankLineBreaks(output.data() + output.size() - text.size(), output.data() + output.size());
}

safestring Quoted(safestring text)
{
    ApplyQuoting(text);
    return '"' + text + '"';
}

// Settled: replaced in this order, each step over the whole text, so that a topic or a message that
// contains a later placeholder has it replaced too. Formats in use rest on it.
constexpr LogPlaceholder placeholders[] = {
    {'d', [](auto& f, auto& out) { out += FormatLocalTime(f.time, date_format); }},
    {'t', [](auto& f, auto& out) { out += FormatLocalTime(f.time, time_format); }},
    {'n', [](auto& f, auto& out) { out.append(f.topic).append(1, '/').append(f.subtopic); }},
    {'p', [](auto&, auto& out) { AppendNumber(getpid(), out); }},
    {'a', [](auto& f, auto& out) { AppendNumber(f.sessionid, out); }},
    {'i', [](auto& f, auto& out) { AppendNumber(f.threadno, out); }},
    {'r', [](auto& f, auto& out) { out += f.threadname; }},
    {'m', [](auto& f, auto& out) { AppendOneLine(f.message, out); }},
    {'l', [](auto& f, auto& out) { AppendNumber(f.level, out); }},
    {'s', [](auto& f, auto& out) { out += f.subtopic; }},
    {'h', [](auto& f, auto& out) { out += f.topic; }},
};

LogPlaceholder const* FindPlaceholder(char lower)
{
    for (LogPlaceholder const& row : placeholders)
        if (row.letter == lower)
            return &row;
    return nullptr;
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
    for (LogPlaceholder const& row : placeholders) {
        if (!named[static_cast<unsigned char>(row.letter)])
            continue;
        // The quoted form comes first and by its exact letter: the plain one matches either case.
        if (row.letter == 'm')
            ReplacePairs(output, Quoted(fields.message), [](char c) { return c == 'M'; });
        safestring value;
        row.append(fields, value);
        ReplaceWildCard(row.letter, value, output);
    }
    ReplaceWildCard('%', "%", output);
}

LogFormat::LogFormat(safestring const& format) : format_(format), one_pass_(TakeApart()) {}

/// False if the format needs the replacement step by step. One pass gives the same text if no
/// value contains a '%', and each '%' of the format precedes a placeholder, or something that is
/// neither the letter of one nor a '%': then no step finds more than is in the format.
bool LogFormat::TakeApart()
{
    unsigned long plain = 0; // begin of the plain text not yet taken
    auto take_plain = [&](unsigned long end) {
        if (end > plain)
            pieces_.push_back({nullptr, plain, end - plain});
    };
    for (unsigned long i = 0; i + 1 < format_.size(); ++i) {
        if (format_[i] != '%')
            continue;
        char const letter = format_[i + 1];
        // "%%" is replaced last, so it may become part of another pair; 'M' needs quoting.
        if (letter == '%' || letter == 'M')
            return false;
        auto const* const placeholder = FindPlaceholder(safestring_traits::fold_down(letter));
        if (!placeholder)
            continue;
        take_plain(i);
        pieces_.push_back({placeholder, 0, 0});
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
        if (piece.placeholder)
            AppendValue(*piece.placeholder, fields, output);
        else
            output.append(format_, piece.begin, piece.length);
    }
}

bool LogFormat::HoldsPercent(LogFields const& fields) const
{
    return HasPercent(fields.message) || HasPercent(fields.subtopic) || HasPercent(fields.topic) ||
           HasPercent(fields.threadname);
}

void LogFormat::AppendValue(LogPlaceholder const& placeholder, LogFields const& fields,
                            safestring& output)
{
    if (placeholder.letter == 'd' || placeholder.letter == 't') {
        LookAtClock(fields.time);
        output += placeholder.letter == 'd' ? date_ : time_;
    } else {
        placeholder.append(fields, output);
    }
}

/// Many lines have the same second, and making date and time costs more than the rest of a line.
void LogFormat::LookAtClock(long time)
{
    if (time == second_)
        return;
    date_ = FormatLocalTime(time, date_format);
    time_ = FormatLocalTime(time, time_format);
    second_ = time;
}

} // namespace NKelmic
