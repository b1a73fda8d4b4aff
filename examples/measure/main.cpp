// Measures pictures: what a program does that hands its own pixels to vectors.

#include <measure/objects.h>
#include <measure/options.h>
#include <measure/picture.h>
#include <measure/report.h>
#include <measure/reportpage.h>
#include <measure/tables.h>

#include <iostream>

namespace {

using namespace measure;

/// Take the pages of one source through what the options ask for.
class Job {
public:
    explicit Job(Options const& options) : options_(options) {}

    void Measure(Reader& reader, std::string const& name)
    {
        if (options_.objects.wanted)
            return MeasureObjects(reader, name);
        Page page;
        for (int number = 1; reader.Next(page); ++number, page = Page()) {
            if (options_.format.empty())
                PrintPage(std::cout, name + ", page " + std::to_string(number), std::move(page),
                          options_);
            else
                AddRows(page, name, number);
        }
    }

    /// Print what was kept for the end.
    void Finish()
    {
        if (!options_.format.empty() && !options_.objects.wanted)
            PrintTable(std::cout, cref(PageTable(rows_)), options_.format);
    }

private:
    void AddRows(Page& page, std::string const& name, int number)
    {
        auto const width = page.width, height = page.height;
        for (Block const& block : BlocksOf(page, options_.factor))
            if (block.measured)
                rows_.Add(PageRow(name, number, width, height, block, options_.policies));
    }

    void MeasureObjects(Reader& reader, std::string const& name)
    {
        std::vector<Page> pages;
        for (Page page; reader.Next(page); page = Page())
            pages.push_back(std::move(page));
        int number = 0;
        std::vector<Section> sections;
        for (auto const& plane : PlanesOf(std::move(pages))) {
            auto const objects = ObjectsOf(cref(plane));
            auto const table = ObjectTable(cref(plane), cref(objects));
            if (options_.objects.zones)
                AddZones(*table.Pointer(), cref(plane), ZonesOf(cref(plane), cref(objects)));
            ++number;
            bool const plain = options_.format.empty() || options_.format == "text";
            if (plain)
                std::cout << name << ", page " << number << ", " << table->RowCount()
                          << " objects\n";
            PrintTable(std::cout, cref(table), plain ? "text" : options_.format);
            if (!options_.report.empty())
                sections.push_back({"page " + std::to_string(number), plane, objects, table,
                                    ShownThreshold(cref(plane))});
        }
        if (!options_.report.empty())
            WriteReport(options_.report,
                        options_.files.empty() ? "picture.html" : ReportName(options_.files, name),
                        name, sections);
    }

    /// None where the objects come from another picture.
    std::optional<double> ShownThreshold(NKelmic::Image const& plane) const
    {
        if (!options_.objects.labels.empty())
            return std::nullopt;
        return ThresholdOf(plane, options_.objects);
    }

    NKelmic::DerivedPointer<NKelmic::Stencil> ObjectsOf(NKelmic::Image const& plane) const
    {
        ObjectOptions const& wanted = options_.objects;
        auto const objects = wanted.labels.empty() ? FindObjects(plane, wanted)
                                                   : TakeLabels(FirstPage(wanted.labels), plane);
        return wanted.within.empty() ? objects : Within(cref(objects), FirstPage(wanted.within));
    }

    static NKelmic::DerivedPointer<NKelmic::Image> FirstPage(std::string const& path)
    {
        std::vector<Page> pages(1);
        if (!OpenPicture(path)->Next(pages[0]) || pages[0].samples != 1)
            throw ReadError("finds no grey picture in '" + path + "'");
        return PlanesOf(std::move(pages))[0];
    }

    Options const& options_;
    RowTable rows_;
};

/// False if the file cannot be read to its end; the reason goes to standard error in one line.
bool MeasureFile(Job& job, std::string const& path)
{
    try {
        job.Measure(*OpenPicture(path), path);
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
    Job job(options);
    bool ok = true;
    if (options.files.empty())
        job.Measure(*MadePicture(), "(a picture made here)");
    for (std::string const& path : options.files)
        ok = MeasureFile(job, path) && ok;
    job.Finish();
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
