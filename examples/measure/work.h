#ifndef MEMBLOCK_EXAMPLES_MEASURE_WORK_H
#define MEMBLOCK_EXAMPLES_MEASURE_WORK_H

#include <measure/results.h>
#include <measure/stream.h>
#include <memblock/threads/jobpool.h>

#include <memory>
#include <string>
#include <vector>

namespace measure {

/// One page to measure: all in memory, or where it is too large and the work allows it, as a stream
/// of strips.
struct Work {
    std::string file;
    int number = 1;
    PageHeader header;
    Page page, labels, within; ///< the latter two without bytes if they are not asked for
    std::unique_ptr<PageStream> stream;
};

/// The pages of all files of a call, one after the other. A file that cannot be read to its end is
/// reported in one line on standard error, and the next one follows.
class WorkSource {
public:
    explicit WorkSource(Options const& options);
    bool Next(Work& work); ///< false when all is read
    /// Report why a file cannot be read; go on with the next one.
    void Fail(std::exception const& error);
    void SkipFile(); ///< go on with the next one

    bool AtEnd() const { return files_read_ == files_.size(); }
    bool Failed() const { return failed_; }
    std::size_t FilesRead() const { return files_read_; }
    std::size_t FileCount() const { return files_.size(); }

private:
    /// A picture that is read beside the one to measure, page by page.
    struct Side {
        std::string const path; ///< empty: there is none
        std::unique_ptr<Reader> reader;
        PageHeader header;
    };

    bool NextOfFile(Work& work);
    void Open();
    void Open(Side& side);
    void NextSide(Side& side, PageHeader const& header);
    Page ReadSide(Side& side);
    void ReadObjectsPage(Work& work);
    std::string const& File() const { return files_[files_read_]; }

    Options const& options_;
    std::vector<std::string> const files_;
    std::size_t files_read_ = 0;
    bool failed_ = false;
    int number_ = 0;                 // of the page that was read last
    std::unique_ptr<Reader> reader_; // null before a file is opened
    Side labels_, within_;
};

/// Measures one page, into a result that nobody reads before the job is done.
class PageJob : public NKelmic::Job {
public:
    PageJob(Work work, std::shared_ptr<PageResult> result, std::shared_ptr<Options const> options)
        : work_(std::move(work)), result_(std::move(result)), options_(std::move(options))
    {
    }
    NKelmic::DataItem Run() override;
    void OnFinished() override { delete this; }

private:
    void Measure();
    void FindObjects();

    Work work_; // nobody else's: the page has come with its last reference
    std::shared_ptr<PageResult> result_;
    std::shared_ptr<Options const> const options_; // a job may outlive its pool and more
};

constexpr int ask_overwrite = 1; ///< a question of `OutputJob`; its value is the path

/// Asks whether a file may be overwritten, if there is one. Fails if it may not.
class OutputJob : public NKelmic::Job {
public:
    explicit OutputJob(std::string path) : path_(std::move(path)) {}
    NKelmic::DataItem Run() override;
    void OnFinished() override { delete this; }

private:
    std::string path_;
};

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_WORK_H
