// Ends in the way that its argument names while jobs run. Exit code 0: all that jobs and static
// destructors did until the end went well, and the end came.
#include <memblock/collections/container.h>
#include <memblock/logging/logger.h>
#include <memblock/serial/factory.h>
#include <memblock/threads/jobpool.h>
#include <memblock/vector/vector.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <unistd.h>

using namespace NKelmic;

namespace {

// All of this is there to the last: nothing here has a destructor but `Last`.
enum end_t { by_return, by_job, by_note, by_answer };
constinit std::atomic<bool> may_end{false};
constinit std::atomic<int> rounds{0};
constinit JobPool* old_pool = nullptr;
constinit boost::thread* waiting = nullptr;
constinit int held_jobs = 0; // that the end interrupts

void Check(bool good, char const* what)
{
    if (good)
        return;
    std::fprintf(stderr, "failed: %s\n", what);
    _exit(1);
}

struct Task : Job {
    explicit Task(std::function<DataItem(Task&)> w) : work(std::move(w)) {}
    DataItem Run() override { return work(*this); }
    void OnFinished() override { delete this; }
    std::function<DataItem(Task&)> work;
};

struct CountingSink : LogSink {
    void Log(safestring const&, safestring const&, level_t, safestring const&,
             safestring const&) override
    {
        ++lines;
    }
    std::atomic<int> lines{0};
};

/// Reaches whatever the library keeps for the process.
void UseAll()
{
    static auto& sink = *new CountingSink;
    Logger::AddLogSink(sink);
    Logger::SetLogging("thread", 8);
    int const before = sink.lines;
    Logger::Log(topic_thread, "exits", 8, "a line");
    Check(sink.lines > before, "logger");

    auto const vector = Vector::CreateFrom(200);
    Check(bool(vector->Convert(safestringlist(), "image", throw_always)), "Convert");
    PMemBlock const container = MemBlock::Factory().GetInstance("container");
    Check(bool(container), "GetInstance");
    container->SetSubItem("a.b.c", 5, throw_always); // makes the containers on the way
    Check(container->GetSubItem("a.b.c", throw_always).GetInt() == 5, "SetSubItem");
    op_options options;
    options.SetValue("fixed_result_type", true);
    options.SetValue("result_type", DataTypeBase::Double);
    PMemBlock const sum = vector->op('+', vector, options);
    Check(MemCast<Vector>(sum)->ElemType() == DataTypeBase::Double, "fixed_result_type");
}

struct Pool : JobPool {
    explicit Pool(end_t e) : JobPool(true), end(e) {}
    void HandleNotify(int, int code, DataItem&) override
    {
        if (code == 1 && end == by_note)
            std::exit(0);
    }
    DataItem HandleConsult(int, int, DataItem& value) override
    {
        if (end == by_answer)
            std::exit(0);
        return value;
    }
    end_t const end;
};

DataItem RunToTheEnd(Task& job)
{
    while (!may_end) {
        UseAll();
        ++rounds;
    }
    return job.GetIndex();
}

DataItem End(Task& job, end_t end)
{
    while (rounds < 10)
        boost::this_thread::yield();
    if (end == by_job)
        std::exit(0);
    DataItem value(7);
    if (end == by_note)
        job.Notify(1, value);
    return end == by_answer ? job.Consult(2, value) : DataItem(job.GetIndex());
}

/// Pools do their work in static destructors too, on the thread of these.
void UsePoolsAtTheEnd()
{
    unsigned const home = GetCurrentThreadId();
    for (bool headless : {false, true}) {
        JobPool pool(false, headless);
        for (int i = 0; i < 5; ++i)
            pool.AddNewJob(new Task([home](Task& job) {
                job.SetThreadSpecificItem("last", DataItem(job.GetIndex()));
                UseAll();
                Check(job.GetThreadId() == home, "a pool of the end is single-threaded");
                return job.GetThreadSpecificItem("last");
            }));
        pool.Wait();
        Check(pool.GetResults()[4].GetInt() == 4, "a pool of the end");
    }
}

/// Made before the library keeps anything, and so destroyed after all of it.
struct Last {
    ~Last()
    {
        UseAll();
        UsePoolsAtTheEnd();
        may_end = true;
        if (waiting)
            waiting->join();
        else if (old_pool)
            CheckResults();
    }
    static void CheckResults()
    {
        Check(old_pool->Wait(1) == held_jobs, "jobs that are left");
        for (int i = held_jobs; i < old_pool->GetJobCount(); ++i)
            Check(old_pool->GetResults()[i].GetInt() == i, "results");
    }
} const last;

} // namespace

int main(int argc, char** argv)
{
    alarm(60); // kills a process that hangs
    char const* const way = argc > 1 ? argv[1] : "";
    auto const is = [way](char const* name) { return std::strcmp(way, name) == 0; };
    end_t const end = is("job")      ? by_job
                      : is("note")   ? by_note
                      : is("answer") ? by_answer
                                     : by_return;
    setenv("MORVANE_NUM_THREADS", "2", 1);
    if (is("factory_first"))
        UseAll();
    old_pool = new Pool(end);
    if (end != by_return) {
        held_jobs = end != by_note; // a note doesn't keep its job
        old_pool->AddNewJob(new Task([end](Task& job) { return End(job, end); }));
    }
    for (int i = 0; i < 20; ++i) // more than are posted at once
        old_pool->AddNewJob(new Task(RunToTheEnd));
    if (is("waiting"))
        waiting = new boost::thread(Last::CheckResults);
    if (end == by_note || end == by_answer)
        old_pool->Wait();
    while (rounds < 10 || end == by_job)
        boost::this_thread::yield();
    return 0;
}
