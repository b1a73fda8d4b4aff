#include <measure/measurepool.h>

#include <measure/labelfile.h>
#include <measure/output.h>
#include <measure/reportpage.h>
#include <memblock/base/raise.h>

#include <algorithm>
#include <iostream>
#include <map>
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

/// Wait for a line on standard input and say if it begins with y; false when `stopped` comes
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
            Add(std::make_unique<OutputJob>(options_->output), {options_->output, {}, {}, 0});
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
    return source_.AtEnd() && !stream_ && done_ == static_cast<int>(tasks_.size());
}

void MeasurePool::Feed()
{
    static int const ahead = PagesAhead();
    while (!stopped_ && static_cast<int>(tasks_.size()) - done_ < ahead && FeedOne())
        ;
}

/// Add a job if there is one; false while none can be added.
bool MeasurePool::FeedOne()
{
    if (stream_)
        return FeedStrip();
    Work work;
    if (!source_.Next(work))
        return false;
    BeginPage(std::move(work));
    return true;
}

void MeasurePool::BeginPage(Work work)
{
    NoteScale(work);
    auto const page = std::make_shared<PageResult>();
    page->file = work.file;
    page->page = work.number;
    pages_.push_back(page);
    if (work.stream) {
        stream_ = std::move(work.stream);
        streamed_ = page;
        ++streams_;
        return;
    }
    std::string const file = work.file;
    Add(std::make_unique<PageJob>(std::move(work), page, options_), {file, page, {}, 0});
}

bool MeasurePool::FeedStrip()
{
    try {
        Task task{streamed_->file, {}, {}, streams_};
        auto job = stream_->NextJob(task.strip);
        if (!job)
            return false;
        Add(std::move(job), std::move(task));
    } catch (std::exception const& error) {
        if (stopped_) // the job came too late for the pool
            throw;
        progress_.Clear();
        source_.Fail(error);
        EndStream(false);
    }
    return true;
}

void MeasurePool::Add(std::unique_ptr<Job> job, Task task)
{
    AddNewJob(job.get());
    (void)job.release(); // the pool's now
    tasks_.push_back(std::move(task));
}

void MeasurePool::HandleNotify(int job, int code, DataItem& value)
{
    if (code != jp_notify_succeeded && code != jp_notify_failed)
        return;
    ++done_;
    Task task = std::move(tasks_[static_cast<std::size_t>(job)]);
    bool const failed = code == jp_notify_failed;
    bool const late = task.strip && (!stream_ || task.stream != streams_); // its page has failed
    if (failed && !late)
        Report(task, value.GetString().c_str());
    if (asks_ && job == 0) {
        may_write_ = !failed;
        if (failed)
            return Stop();
    } else if (task.strip && !late) {
        if (failed)
            DropStream();
        else
            StripDone(task);
    } else if (task.page) {
        PageDone(task.page, !failed);
    }
    Feed();
}

void MeasurePool::StripDone(Task& task)
{
    try {
        stream_->Done(*task.strip);
        progress_.RowsDone(streamed_->file, streamed_->page, stream_->RowsDone(),
                           stream_->RowsInAll());
        if (stream_->Finished())
            streamed_->found = stream_->Result();
    } catch (std::exception const& error) {
        Report(task, error.what());
        return DropStream();
    }
    if (stream_->Finished())
        EndStream(true);
}

void MeasurePool::DropStream()
{
    source_.SkipFile();
    EndStream(false);
}

void MeasurePool::EndStream(bool found)
{
    auto const page = std::move(streamed_);
    stream_.reset();
    PageDone(page, found);
}

void MeasurePool::PageDone(std::shared_ptr<PageResult> const& page, bool found)
{
    if (!found)
        std::erase(pages_, page);
    else
        finished_.insert(page.get());
    progress_.PageDone(page->file, finished_.size(), source_.FilesRead(), source_.FileCount());
}

/// Say once a file where its pixel size comes from.
void MeasurePool::NoteScale(Work const& work)
{
    PixelScale const& scale = work.header.scale;
    if (!options_->objects.wanted || !scale.Known() || work.number > 1)
        return;
    progress_.Note(work.file + ": pixels of " + NumberText(scale.x) + " x " + NumberText(scale.y) +
                   " " + scale.unit + ", from " + scale.source);
}

void MeasurePool::Report(Task const& task, std::string const& text)
{
    failed_ = true;
    progress_.Clear();
    // What is wrong with values that come as labels is wrong with their file.
    bool const of_labels = text.starts_with("Label") && !options_->objects.labels.empty();
    std::cerr << "measure: " << (of_labels ? options_->objects.labels : task.file) << ": " << text
              << '\n';
}

DataItem MeasurePool::HandleConsult(int, int, DataItem& value)
{
    progress_.Clear();
    std::cerr << "measure: " << value.GetString().c_str() << " exists, overwrite? [y/N] "
              << std::flush;
    return SaysYes(stopped_) ? DataItem(1) : DataItem();
}

/// What is measured; of the page that Ctrl-C has come to the objects that are complete.
Results MeasurePool::Measured() const
{
    Results measured;
    for (auto const& page : pages_)
        if (finished_.contains(page.get()))
            measured.push_back(page);
    if (stream_ && streamed_) {
        auto const part = std::make_shared<PageResult>(*streamed_);
        part->found = stream_->Result();
        measured.push_back(part);
    }
    return measured;
}

void MeasurePool::Print(std::ostream& out) const
{
    PrintResults(out, Measured(), *options_);
}

void MeasurePool::WriteFiles() const
{
    std::map<std::string, std::vector<std::string>> sections;
    if (!options_->report.empty())
        for (auto const& page : Measured())
            sections[page->file].push_back(page->section);
    for (auto const& [file, parts] : sections) {
        bool const made = options_->files.empty();
        WriteReport(options_->report, made ? "picture.html" : ReportName(options_->files, file),
                    file, parts);
    }
    ObjectOptions const& objects = options_->objects;
    if (!objects.label_file.empty() || !objects.outline_file.empty())
        WriteLabelFiles(objects);
}

/// A page of labels for each page of the picture, or no file.
void MeasurePool::WriteLabelFiles(ObjectOptions const& objects) const
{
    if (!Complete() || Failed())
        throw WriteError("pages are missing: no pictures of labels or outlines are written");
    std::vector<LabelRuns const*> labels;
    for (auto const& page : pages_)
        labels.push_back(&*page->found.objects);
    if (!objects.label_file.empty())
        WriteLabels(objects.label_file, labels);
    if (!objects.outline_file.empty())
        WriteOutlines(objects.outline_file, labels);
}

} // namespace measure
