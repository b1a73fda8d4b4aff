// Measures pictures: what a program does that hands its own pixels to vectors, and its work to a
// pool of jobs.

#include <measure/interrupt.h>
#include <measure/measurepool.h>
#include <measure/options.h>
#include <measure/output.h>
#include <memblock/base/exception.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <memory>

namespace {

using namespace measure;

void Print(std::string const& path, MeasurePool const& pool)
{
    if (!path.empty())
        return PrintAside(path, [&](std::ostream& out) { pool.Print(out); });
    pool.Print(std::cout);
    if (!std::cout.flush())
        throw WriteError("cannot write to standard output");
}

/// Unknown properties are better reported before all pictures are read.
void CheckProperties(Options const& options)
{
    if (options.objects.wanted)
        try {
            NoObjects(options);
        } catch (Ntarnwick::Exception const& error) {
            throw UsageError(std::string("--properties: ") + error.what());
        }
}

int Run(std::vector<std::string> const& arguments)
{
    auto const options = std::make_shared<Options const>(ReadOptions(arguments));
    if (options->help || options->version) {
        std::cout << (options->help ? usage_text : "measure (memblock) " MEMBLOCK_VERSION "\n");
        return 0;
    }
    CheckProperties(*options);
    if (options->threads) // before the first pool, which makes the workers
        setenv("MORVANE_NUM_THREADS", std::to_string(*options->threads).c_str(), 1);
    InterruptsHeld const held; // the workers' too
    MeasurePool pool(options);
    std::atomic<bool> interrupted{false};
    {
        Interrupter const interrupter([&] {
            interrupted = true;
            pool.Stop();
        });
        pool.Measure();
    }
    if (pool.MayWrite())
        Print(options->output, pool);
    pool.WriteFiles();
    if (interrupted && !pool.Complete()) {
        std::cerr << "measure: interrupted\n";
        return interrupted_status;
    }
    return pool.MayWrite() && !pool.Failed() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return Run({argv + 1, argv + argc});
    } catch (UsageError const& error) {
        std::cerr << "measure: " << error.what() << " (see measure --help)\n";
        return 2;
    } catch (std::bad_alloc const&) {
        std::cerr << "measure: there is not enough memory for the table\n";
        return 1;
    } catch (std::exception const& error) {
        std::cerr << "measure: " << error.what() << '\n';
        return 1;
    }
}
