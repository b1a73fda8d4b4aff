#ifndef MEMBLOCK_EXAMPLES_MEASURE_WORK_H
#define MEMBLOCK_EXAMPLES_MEASURE_WORK_H

#include <measure/options.h>
#include <measure/picture.h>
#include <memblock/imaging/image.h>
#include <memblock/threads/jobpool.h>

#include <memory>
#include <string>
#include <vector>

namespace measure {

/// One page to measure; where objects are wanted, it comes as a plane.
struct Work {
    std::string file;
    int number = 1;
    Page page;
    NKelmic::DerivedPointer<NKelmic::Image> plane;
};

/// The pages of all files of a call, one after the other. A file that cannot be read to its end is
/// told of in one line on standard error, and the next one follows.
class WorkSource {
public:
    explicit WorkSource(Options const& options);
    bool Next(Work& work); ///< false when all is read

    bool AtEnd() const { return files_read_ == files_.size(); }
    bool Failed() const { return failed_; }
    std::size_t FilesRead() const { return files_read_; }
    std::size_t FileCount() const { return files_.size(); }

private:
    bool NextOfFile(Work& work);
    void Open();

    Options const& options_;
    std::vector<std::string> const files_;
    std::size_t files_read_ = 0;
    bool failed_ = false;
    int number_ = 0;                 // of the page that was read last
    std::unique_ptr<Reader> reader_; // null before a file is opened
    std::vector<NKelmic::DerivedPointer<NKelmic::Image>> planes_;
};

/// Measures one page. The result is the text to print; for a table of pages one with its rows; and
/// with a report a container of both, "text" and "section", which the page to look at takes.
class PageJob : public NKelmic::Job {
public:
    PageJob(Work work, std::shared_ptr<Options const> options)
        : work_(std::move(work)), options_(std::move(options))
    {
    }
    NKelmic::DataItem Run() override;
    void OnFinished() override { delete this; }

private:
    NKelmic::DataItem Rows();
    NKelmic::safestring Text();
    NKelmic::DataItem Objects();

    Work work_; // nobody else's: the page has come with its last reference
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
