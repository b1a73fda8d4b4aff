#include <measure/progress.h>

#include <iostream>
#include <unistd.h>

namespace measure {

Progress::Progress(bool quiet) : form_(quiet ? none : isatty(STDERR_FILENO) ? bar : lines) {}

void Progress::PageDone(std::string const& file, std::size_t pages, std::size_t files_read,
                        std::size_t files)
{
    if (form_ == lines) {
        std::cerr << "measure: " << file << ": done, " << pages
                  << (pages == 1 ? " page in all\n" : " pages in all\n");
    } else if (form_ == bar) {
        constexpr std::size_t width = 30;
        std::string cells(width, '.');
        cells.replace(0, width * files_read / files, width * files_read / files, '#');
        std::cerr << "\r[" << cells << "] " << files_read << " of " << files << " files, " << pages
                  << " pages" << std::flush;
        drawn_ = true;
    }
}

void Progress::Clear()
{
    if (drawn_)
        std::cerr << "\r\033[K" << std::flush;
    drawn_ = false;
}

} // namespace measure
