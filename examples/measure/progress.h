#ifndef MEMBLOCK_EXAMPLES_MEASURE_PROGRESS_H
#define MEMBLOCK_EXAMPLES_MEASURE_PROGRESS_H

#include <cstddef>
#include <string>

namespace measure {

/// Tells on standard error how far the program is: a bar on a terminal, which goes at the end, and
/// elsewhere a line a page.
class Progress {
public:
    explicit Progress(bool quiet);
    ~Progress() { Clear(); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void PageDone(std::string const& file, std::size_t pages, std::size_t files_read,
                  std::size_t files);
    void Clear(); ///< make room for other lines

private:
    enum { none, bar, lines } const form_;
    bool drawn_ = false;
};

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_PROGRESS_H
