// Work for all processors, with progress told to the thread that waits.
#include <memblock/threads/jobpool.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vector.h>

#include <cstdio>

using namespace NKelmic;

namespace {

/// Adds up one strip of a picture. The strip is the job's own: nobody else holds it.
class StripJob : public Job {
public:
    explicit StripJob(PMemBlock strip) : strip_(std::move(strip)) {}
    DataItem Run() override
    {
        CheckAbortion(); // a long job asks now and then
        return strip_->SecondaryDouble(key_sum, throw_always);
    }
    void OnFinished() override { delete this; }

private:
    PMemBlock strip_;
};

/// Its handlers run on the waiting thread and nowhere else: no lock is needed.
class StripPool : public JobPool {
public:
    void HandleNotify(int, int code, DataItem&) override
    {
        if (code == jp_notify_succeeded)
            std::printf("%d of %d done\n", ++done_, GetJobCount());
    }

private:
    int done_ = 0;
};

} // namespace

int main()
{
    auto const picture = Vector::Create(400000, Vector::Byte, true, 0, 1.0);
    picture->Fill(DataItem(3));

    StripPool pool;
    for (unsigned from = 0; from < 400000; from += 100000) {
        auto* const job = new StripJob(cref(picture).CloneSlice(from, from + 100000));
        pool.AddNewJob(job); // a statement of its own: no pointer of this thread is left by now
    }
    pool.Wait();

    double sum = 0;
    for (DataItem const& result : pool.GetResults()) // in the order in which the jobs were added
        sum += result.GetDouble();
    std::printf("sum %g\n", sum);
}
