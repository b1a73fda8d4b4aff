#ifndef MEMBLOCK_LOGGING_LOGFORMAT_INTERNAL_H
#define MEMBLOCK_LOGGING_LOGFORMAT_INTERNAL_H

#include <memblock/logging/logger.h>

#include <vector>

namespace NKelmic {

/// What a log line is made of.
struct LogFields {
    safestring const& topic;
    safestring const& subtopic;
    level_t level;
    safestring const& message;
    safestring const& threadname;
    int threadno;
    int sessionid;
    long time; // seconds since 1970
};

/// A placeholder by its letter, and what appends its value.
struct LogPlaceholder {
    char letter; // lower case
    void (*append)(LogFields const&, safestring& output);
};

/// The rule of `FormatLogMessage`, one placeholder after the other.
void FormatByReplacement(safestring const& format, LogFields const& fields, safestring& output);

/// A log format taken apart, for many lines. Gives what `FormatByReplacement` gives, and asks it
/// wherever one pass over the format could come out differently.
class LogFormat {
public:
    explicit LogFormat(safestring const& format);
    safestring const& Text() const { return format_; }
    void Format(LogFields const& fields, safestring& output);

private:
    struct Piece {
        LogPlaceholder const* placeholder; // null for plain text
        unsigned long begin;               // of the plain text in the format
        unsigned long length;
    };
    bool TakeApart();
    bool HoldsPercent(LogFields const& fields) const;
    void AppendValue(LogPlaceholder const& placeholder, LogFields const& fields,
                     safestring& output);
    void LookAtClock(long time);

    safestring format_;
    std::vector<Piece> pieces_;
    bool one_pass_;
    long second_ = -1; // of the two texts below
    safestring date_, time_;
};

} // namespace NKelmic

#endif // MEMBLOCK_LOGGING_LOGFORMAT_INTERNAL_H
