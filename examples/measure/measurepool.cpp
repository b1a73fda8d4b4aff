#include <measure/measurepool.h>

#include <measure/reportpage.h>
#include <measure/tables.h>
#include <memblock/base/raise.h>
#include <memblock/collections/container.h>

#include <algorithm>
#include <iostream>
#include <poll.h>
#include <unistd.h>

namespace measure {

using namespace NKelmic;

namespace {

constexpr bool continue_on_error = true;
constexpr int no_limit = 0x7FFFFFFF;

int PagesAhead()
{
    int cores = 0, desired = 0, busy = 0, threads = 0;
    JobPool::GetInfo(cores, desired, busy, threads);
    return 2 * std::max(desired, 1); // one to measure and one in reserve for each worker
}

/// Wait for a line on standard input and tell if it begins with y; false when `stopped` comes
/// first.
bool SaysYes(std::atomic<bool> const& stopped)
{
    constexpr int look_around_ms = 100;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (poll(&input, 1, look_around_ms) == 0)
        if (stopped)
            return false;
    std::string answer;
    return std::getline(std::cin, answer) && (answer.starts_with('y') || answer.starts_with('Y'));
}

/// A part of a result that is a container of several; another result is its own text.
DataItem Part(DataItem const& result, char const* name)
{
    auto const* const parts = result.GetType() == it_memblock
                                  ? MemCast<Container>(result.GetMemory().Pointer())
                                  : nullptr;
    return parts ? parts->Get(name) : result;
}

} // namespace

MeasurePool::MeasurePool(std::shared_ptr<Options const> options)
    : JobPool(continue_on_error), options_(std::move(options)), source_(*options_),
      progress_(options_->quiet), asks_(!options_->output.empty() && !options_->force),
      may_write_(!asks_)
{
}

void MeasurePool::Measure()
{
    try {
        if (asks_)
            Add(std::make_unique<OutputJob>(options_->output), options_->output);
        Feed();
        Wait(no_limit);
    } catch (Exception const&) {
        if (!stopped_) // else a page came too late for the pool
            throw;
    }
    progress_.Clear();
}

void MeasurePool::Stop()
{
    stopped_ = true;
    Abort("stopped");
}

bool MeasurePool::Complete() const
{
    return source_.AtEnd() && done_ == static_cast<int>(files_.size());
}

void MeasurePool::Feed()
{
    static int const ahead = PagesAhead();
    Work work;
    while (!stopped_ && static_cast<int>(files_.size()) - done_ < ahead && source_.Next(work)) {
        std::string const file = work.file;
        Add(std::make_unique<PageJob>(std::move(work), options_), file);
    }
}

void MeasurePool::Add(std::unique_ptr<Job> job, std::string file)
{
    AddNewJob(job.get());
    (void)job.release(); // the pool's now
    files_.push_back(std::move(file));
}

void MeasurePool::HandleNotify(int job, int code, DataItem& value)
{
    if (code != jp_notify_succeeded && code != jp_notify_failed)
        return;
    ++done_;
    if (code == jp_notify_failed)
        Tell(job, value);
    if (IsOutputJob(job)) {
        may_write_ = code == jp_notify_succeeded;
        if (!may_write_)
            return Stop();
    } else {
        if (code == jp_notify_succeeded)
            results_[job] = value;
        progress_.PageDone(files_[static_cast<std::size_t>(job)], results_.size(),
                           source_.FilesRead(), source_.FileCount());
    }
    Feed();
}

void MeasurePool::Tell(int job, DataItem const& message)
{
    failed_ = true;
    progress_.Clear();
    std::cerr << "measure: " << files_[static_cast<std::size_t>(job)] << ": "
              << message.GetString().c_str() << '\n';
}

DataItem MeasurePool::HandleConsult(int, int, DataItem& value)
{
    progress_.Clear();
    std::cerr << "measure: " << value.GetString().c_str() << " exists, overwrite? [y/N] "
              << std::flush;
    return SaysYes(stopped_) ? DataItem(1) : DataItem();
}

void MeasurePool::Print(std::ostream& out) const
{
    if (options_->format.empty() || options_->objects.wanted) {
        for (auto const& [job, result] : results_)
            out << Part(result, "text").GetString().c_str();
        return;
    }
    RowTable rows;
    for (auto const& [job, table] : results_)
        rows.Add(DerivedPointer<Table>(table.GetMemory()));
    PrintTable(out, cref(PageTable(rows)), options_->format);
}

void MeasurePool::WriteReports() const
{
    if (options_->report.empty())
        return;
    std::map<std::string, std::vector<std::string>> sections;
    for (auto const& [job, result] : results_)
        sections[files_[static_cast<std::size_t>(job)]].push_back(
            Part(result, "section").GetString().c_str());
    for (auto const& [file, parts] : sections) {
        bool const made = options_->files.empty();
        WriteReport(options_->report, made ? "picture.html" : ReportName(options_->files, file),
                    file, parts);
    }
}

} // namespace measure
