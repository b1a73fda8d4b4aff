#ifndef MEMBLOCK_TESTS_SUPPORT_WARNINGS_H
#define MEMBLOCK_TESTS_SUPPORT_WARNINGS_H

#include <memblock/core/subitem.h>
#include <memblock/serial/warning.h>

#include <string>
#include <utility>
#include <vector>

/// Collects the warnings of the library while it lives, through the hook of the macro engine.
class WarningLog {
public:
    WarningLog()
    {
        lines_.clear();
        Install(Collect);
    }
    ~WarningLog() { Install(nullptr); }

    /// Code and text of each warning, in order.
    using Line = std::pair<unsigned int, std::string>;
    static std::vector<Line> const& Lines() { return lines_; }

private:
    typedef void (*Hook)(unsigned int, char const*);

    static void Collect(unsigned int code, char const* text) { lines_.emplace_back(code, text); }
    static void Install(Hook hook)
    {
        using namespace NKelmic;
        MemBlock_DoVerb("set_kelmicwarningfunc",
                        SafeValue(DataItem(reinterpret_cast<void*>(hook))));
    }
    static inline std::vector<Line> lines_;
};

#endif // MEMBLOCK_TESTS_SUPPORT_WARNINGS_H
