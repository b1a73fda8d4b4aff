// Measures pictures: what a program does that hands its own pixels to vectors, and its work to a
// pool of jobs.

#include <measure/interrupt.h>
#include <measure/measurepool.h>
#include <measure/options.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>

namespace {

using namespace measure;

bool PrintTo(std::string const& path, MeasurePool const& pool)
{
    std::ofstream file;
    if (!path.empty())
        file.open(path);
    std::ostream& out = path.empty() ? std::cout : file;
    if (out)
        pool.Print(out);
    if (out.flush())
        return true;
    std::cerr << "measure: cannot write to " << (path.empty() ? "standard output" : path) << '\n';
    return false;
}

int Run(std::vector<std::string> const& arguments)
{
    auto const options = std::make_shared<Options const>(ReadOptions(arguments));
    if (options->help) {
        std::cout << usage_text;
        return 0;
    }
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
    bool const written = pool.MayWrite() && PrintTo(options->output, pool);
    pool.WriteReports();
    if (interrupted && !pool.Complete()) {
        std::cerr << "measure: interrupted\n";
        return interrupted_status;
    }
    return written && !pool.Failed() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return Run({argv + 1, argv + argc});
    } catch (UsageError const& error) {
        std::cerr << "measure: " << error.what() << " (see measure --help)\n";
        return 2;
    } catch (std::exception const& error) {
        std::cerr << "measure: " << error.what() << '\n';
        return 1;
    }
}
