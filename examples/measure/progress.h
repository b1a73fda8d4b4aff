#ifndef MEMBLOCK_EXAMPLES_MEASURE_PROGRESS_H
#define MEMBLOCK_EXAMPLES_MEASURE_PROGRESS_H

#include <cstddef>
#include <string>

namespace measure {

/// Says on standard error how far the program is: a bar on a terminal, which goes at the end, and
/// elsewhere a line a page.
class Progress {
public:
    explicit Progress(bool quiet);
    ~Progress() { Clear(); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void PageDone(std::string const& file, std::size_t pages, std::size_t files_read,
                  std::size_t files);
    /// Within a large page: `done` of `all` rows.
    void RowsDone(std::string const& file, int page, unsigned long done, unsigned long all);
    /// A line of its own, such as where the pixel size is known from.
    void Note(std::string const& text);
    void Clear(); ///< make room for other lines

private:
    void Draw(double share, std::string const& text);

    enum { none, bar, lines } const form_;
    bool drawn_ = false;
    int tenths_ = 0; // of the rows of a page, that a line was written for
};

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_PROGRESS_H
