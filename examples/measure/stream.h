#ifndef MEMBLOCK_EXAMPLES_MEASURE_STREAM_H
#define MEMBLOCK_EXAMPLES_MEASURE_STREAM_H

#include <measure/search.h>
#include <memblock/measure/measurer.h>
#include <memblock/measure/threshold.h>
#include <memblock/threads/jobpool.h>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace measure {

/// Why one of several files cannot be used.
class FileError : public ReadError {
public:
    FileError(std::string file, std::string const& reason)
        : ReadError(reason), file_(std::move(file))
    {
    }
    std::string const& File() const { return file_; }

private:
    std::string file_;
};

/// What is done with the rows of a page, one after the other: a threshold needs to be found before
/// objects are, and of floats and wide integers the range of values before that.
enum class Pass { range, histogram, objects };

/// Rows of a page, and what a job finds in them; whoever has the strip may use it.
struct Strip {
    std::size_t number = 0; ///< within the pass
    unsigned long first_row = 0, rows = 0;
    Pass pass = Pass::objects;
    std::vector<unsigned char> pixels, labels;
    NKelmic::FiniteRange range;
    std::optional<NKelmic::PixelHistogram> histogram;
    std::optional<NKelmic::Measurer> part;
};

/// Finds the objects of a page that is too large to be held: strips of it are read one by one, jobs
/// work on several at a time, and what they find is put together from top to bottom. All but the
/// jobs belong to one thread.
class PageStream {
public:
    /// The readers have come to a page and to its labels; the latter may be null.
    PageStream(Reader& reader, PageHeader const& header, Reader* labels,
               PageHeader const& label_header, Options const& options);

    /// A job for the next strip; null while those before it must be done first, and at the end.
    /// Throws: ReadError, FileError for the labels.
    std::unique_ptr<NKelmic::Job> NextJob(std::shared_ptr<Strip>& strip);
    void Done(Strip& strip); ///< its job has succeeded
    bool Finished() const { return finished_; }

    /// Rows that are done, of all passes, and how many there are to do.
    unsigned long RowsDone() const { return rows_done_; }
    unsigned long RowsInAll() const;

    /// What is found: all, or before the end the objects that are complete.
    PageObjects Result() const;
    std::string const& LabelFile() const { return options_.objects.labels; }

private:
    std::vector<Pass> Passes() const;
    void StartPass();
    void EndPass();
    void MergeParts();
    NKelmic::PixelHistogram EmptyHistogram() const;
    NKelmic::MeasureSetup Setup() const;

    Reader& reader_;
    Reader* const labels_;
    PageHeader const header_, label_header_;
    Options const& options_;
    std::vector<Pass> const passes_;
    std::size_t pass_ = 0;
    unsigned long strip_rows_ = 1, next_row_ = 0, rows_done_ = 0;
    std::size_t strips_given_ = 0, strips_done_ = 0;
    bool finished_ = false;
    NKelmic::FiniteRange range_;
    std::optional<NKelmic::PixelHistogram> histogram_;
    std::optional<double> threshold_;
    std::optional<NKelmic::Measurer> whole_;
    std::map<std::size_t, NKelmic::Measurer> parts_; // that wait for those above them
    std::size_t merged_ = 0;
};

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_STREAM_H
