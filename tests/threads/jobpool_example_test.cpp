// The example of docs/threads.md: the code between the marks stands there too.

#include <memblock/threads/jobpool.h>
#include <memblock/vector/summary.h>

#include <support/vectors.h>

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

using namespace NKelmic;

namespace {

// begin
/// Adds up one part of a vector. The job owns its part: nobody else holds it.
struct SumJob : Job {
    explicit SumJob(PMemBlock p) : part(std::move(p)) {}
    DataItem Run() override
    {
        CheckAbortion(); // a long job asks now and then
        DataItem const sum = part->SecondaryDouble(key_sum, throw_always);
        DataItem note("part done");
        Notify(1, note);
        return sum;
    }
    void OnFinished() override { delete this; }
    PMemBlock part;
};

struct SumPool : JobPool {
    void HandleNotify(int, int code, DataItem&) override { done += code == 1; }
    int done = 0; // no lock: handlers run on the thread that waits
};

double SumOf(std::vector<PMemBlock> parts)
{
    SumPool pool;
    for (auto& part : parts) {
        DataItem own(part);
        part = PMemBlock();
        own.MakeCopy(); // whoever else holds the part keeps his, this one is ours
        auto* const job = new SumJob(own.GetMemory());
        own = DataItem(); // and now the job's alone
        pool.AddNewJob(job);
    }
    pool.Wait();
    double sum = 0;
    for (DataItem const& result : pool.GetResults())
        sum += result.GetDouble();
    return sum;
}
// end

std::string Read(std::string const& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

TEST(JobPoolExample, AddsUpAndIsTheOneOfTheDocumentation)
{
    PMemBlock const shared = Bytes({1, 2, 3});
    EXPECT_EQ(SumOf({shared, Doubles({0.5, 1.5}), shared}), 14.0);

    std::string const root = MEMBLOCK_SOURCE_ROOT;
    std::string const source = Read(root + "/tests/threads/jobpool_example_test.cpp");
    auto const begin = source.find("// begin\n") + 9;
    auto const code = source.substr(begin, source.find("// end\n") - begin);
    EXPECT_NE(Read(root + "/docs/threads.md").find(code), std::string::npos);
}
