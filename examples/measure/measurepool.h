#ifndef MEMBLOCK_EXAMPLES_MEASURE_MEASUREPOOL_H
#define MEMBLOCK_EXAMPLES_MEASURE_MEASUREPOOL_H

#include <measure/progress.h>
#include <measure/work.h>

#include <atomic>
#include <map>
#include <memory>
#include <ostream>

namespace measure {

/// Measures the pages of a call as jobs. Only a few pages are in memory at a time: each job that is
/// done makes room for the next page, which the waiting thread reads.
class MeasurePool : public NKelmic::JobPool {
public:
    explicit MeasurePool(std::shared_ptr<Options const> options);

    void Measure();
    void Stop(); ///< from any thread: leave `Measure` with what is done by now
    /// Print what is measured, in the order of the pages.
    void Print(std::ostream& out) const;
    /// Write the pages to look at, if they are wanted. Throws: WriteError.
    void WriteReports() const;

    bool Complete() const; ///< all pages are measured, or told of as failed
    bool Failed() const { return failed_ || source_.Failed(); }
    bool MayWrite() const { return may_write_; } ///< the output file

    void HandleNotify(int job, int code, NKelmic::DataItem& value) override;
    NKelmic::DataItem HandleConsult(int job, int code, NKelmic::DataItem& value) override;

private:
    void Feed();
    void Add(std::unique_ptr<NKelmic::Job> job, std::string file);
    void Tell(int job, NKelmic::DataItem const& message);
    bool IsOutputJob(int job) const { return asks_ && job == 0; }

    std::shared_ptr<Options const> const options_;
    WorkSource source_;
    Progress progress_;
    std::vector<std::string> files_; // by job
    std::map<int, NKelmic::DataItem> results_;
    int done_ = 0;
    bool failed_ = false;
    bool const asks_; // the first job asks whether it may write
    bool may_write_;
    std::atomic<bool> stopped_{false};
};

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_MEASUREPOOL_H
