#include <measure/progress.h>

#include <iostream>
#include <unistd.h>

namespace measure {

Progress::Progress(bool quiet) : form_(quiet ? none : isatty(STDERR_FILENO) ? bar : lines) {}

void Progress::PageDone(std::string const& file, std::size_t pages, std::size_t files_read,
                        std::size_t files)
{
    tenths_ = 0;
    if (form_ == lines)
        std::cerr << "measure: " << file << ": done, " << pages
                  << (pages == 1 ? " page in all\n" : " pages in all\n");
    else if (form_ == bar)
        Draw(static_cast<double>(files_read) / static_cast<double>(files),
             std::to_string(files_read) + " of " + std::to_string(files) + " files, " +
                 std::to_string(pages) + " pages");
}

void Progress::RowsDone(std::string const& file, int page, unsigned long done, unsigned long all)
{
    double const share = static_cast<double>(done) / static_cast<double>(all);
    std::string const text = file + ", page " + std::to_string(page) + ": " +
                             std::to_string(static_cast<int>(share * 100)) + " % of the rows";
    if (form_ == bar)
        Draw(share, text);
    if (int const tenths = static_cast<int>(share * 10); form_ == lines && tenths > tenths_) {
        tenths_ = tenths;
        std::cerr << "measure: " << text << '\n';
    }
}

void Progress::Note(std::string const& text)
{
    Clear();
    if (form_ != none)
        std::cerr << "measure: " << text << '\n';
}

void Progress::Draw(double share, std::string const& text)
{
    constexpr std::size_t width = 30;
    auto const full = static_cast<std::size_t>(share * width);
    std::cerr << "\r\033[K[" << std::string(full, '#') << std::string(width - full, '.') << "] "
              << text << std::flush;
    drawn_ = true;
}

void Progress::Clear()
{
    if (drawn_)
        std::cerr << "\r\033[K" << std::flush;
    drawn_ = false;
}

} // namespace measure
