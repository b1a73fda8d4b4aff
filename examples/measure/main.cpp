// Measures pictures: what a program does that hands its own pixels to vectors.

#include <measure/options.h>
#include <measure/picture.h>
#include <measure/report.h>

#include <iostream>

namespace {

using namespace measure;

void MeasureAll(Reader& reader, std::string const& name, Options const& options)
{
    Page page;
    for (int number = 1; reader.Next(page); ++number, page = Page())
        PrintPage(std::cout, name + ", page " + std::to_string(number), std::move(page), options);
}

/// False if the file cannot be read to its end; the reason goes to standard error in one line.
bool MeasureFile(std::string const& path, Options const& options)
{
    try {
        MeasureAll(*OpenPicture(path), path, options);
        return true;
    } catch (std::bad_alloc const&) {
        std::cerr << "measure: " << path << ": not enough memory\n";
    } catch (std::exception const& error) {
        std::cerr << "measure: " << path << ": " << error.what() << '\n';
    }
    return false;
}

int Run(std::vector<std::string> const& arguments)
{
    Options const options = ReadOptions(arguments);
    if (options.help) {
        std::cout << usage_text;
        return 0;
    }
    bool ok = true;
    if (options.files.empty())
        MeasureAll(*MadePicture(), "(a picture made here)", options);
    for (std::string const& path : options.files)
        ok = MeasureFile(path, options) && ok;
    if (!std::cout.flush()) {
        std::cerr << "measure: cannot write to standard output\n";
        ok = false;
    }
    return ok ? 0 : 1;
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
