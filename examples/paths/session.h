#ifndef MEMBLOCK_EXAMPLES_PATHS_SESSION_H
#define MEMBLOCK_EXAMPLES_PATHS_SESSION_H

#include <memblock/core/memblock.h>

#include <ostream>
#include <string>

namespace paths {

/// Answers paths into one object.
class Session {
public:
    Session(NKelmic::PMemBlock root, std::ostream& out, bool steps)
        : root_(std::move(root)), out_(out), steps_(steps)
    {
    }

    /// Print what "path" leads to, or write for "path=value". What fails is printed with its
    /// reason and code, and nothing has changed then; false.
    bool Answer(std::string const& line);

private:
    void Read(NKelmic::safestring const& path);
    void Write(NKelmic::safestring const& path, std::string const& value);
    void Walk(NKelmic::safestring const& path);

    NKelmic::PMemBlock root_;
    std::ostream& out_;
    bool steps_;
};

} // namespace paths

#endif // MEMBLOCK_EXAMPLES_PATHS_SESSION_H
