#ifndef MEMBLOCK_EXAMPLES_MEASURE_MEASUREPOOL_H
#define MEMBLOCK_EXAMPLES_MEASURE_MEASUREPOOL_H

#include <measure/progress.h>
#include <measure/work.h>

#include <atomic>
#include <memory>
#include <ostream>
#include <set>
#include <vector>

namespace measure {

/// Measures the pages of a call as jobs: a job a page, or of a page that is too large a job a
/// strip. Only a few are in memory at a time: each job that is done makes room for the next one,
/// which the waiting thread reads.
class MeasurePool : public NKelmic::JobPool {
public:
    explicit MeasurePool(std::shared_ptr<Options const> options);

    void Measure();
    void Stop(); ///< from any thread: leave `Measure` with what is done by now
    /// Print what is measured, in the order of the pages.
    void Print(std::ostream& out) const;
    /// Write the pages to look at, and the pictures of labels, that are wanted. Throws: WriteError.
    void WriteFiles() const;

    bool Complete() const; ///< all pages are measured, or reported as failed
    bool Failed() const { return failed_ || source_.Failed(); }
    bool MayWrite() const { return may_write_; } ///< the output file

    void HandleNotify(int job, int code, NKelmic::DataItem& value) override;
    NKelmic::DataItem HandleConsult(int job, int code, NKelmic::DataItem& value) override;

private:
    /// What a job works on: a page, a strip of the page that is read now, or the output file.
    struct Task {
        std::string file;
        std::shared_ptr<PageResult> page;
        std::shared_ptr<Strip> strip;
        std::size_t stream = 0;
    };

    void Feed();
    bool FeedOne();
    bool FeedStrip();
    void BeginPage(Work work);
    void Add(std::unique_ptr<NKelmic::Job> job, Task task);
    void StripDone(Task& task);
    void EndStream(bool found);
    void DropStream();
    void PageDone(std::shared_ptr<PageResult> const& page, bool found);
    void NoteScale(Work const& work);
    void Report(Task const& task, std::string const& text);
    void WriteLabelFiles(ObjectOptions const& objects) const;
    Results Measured() const;

    std::shared_ptr<Options const> const options_;
    WorkSource source_;
    Progress progress_;
    std::vector<Task> tasks_; // by job
    Results pages_;           // in their order
    std::set<PageResult const*> finished_;
    std::unique_ptr<PageStream> stream_;   // of the page that is read now
    std::shared_ptr<PageResult> streamed_; // its result
    std::size_t streams_ = 0;              // begun by now
    int done_ = 0;
    bool failed_ = false;
    bool const asks_; // the first job asks whether it may write
    bool may_write_;
    std::atomic<bool> stopped_{false};
};

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_MEASUREPOOL_H
