#include <measure/work.h>

#include <measure/objects.h>
#include <measure/report.h>
#include <measure/reportpage.h>
#include <measure/tables.h>
#include <memblock/collections/container.h>

#include <filesystem>
#include <iostream>
#include <sstream>

namespace measure {

using namespace NKelmic;

namespace {

constexpr char const* made_name = "(a picture made here)";

DerivedPointer<Image> FirstPage(std::string const& path)
{
    std::vector<Page> pages(1);
    if (!OpenPicture(path)->Next(pages[0]) || pages[0].samples != 1)
        throw ReadError("finds no grey picture in '" + path + "'");
    return PlanesOf(std::move(pages))[0];
}

DerivedPointer<Stencil> ObjectsOf(Image const& plane, ObjectOptions const& wanted)
{
    auto const objects = wanted.labels.empty() ? FindObjects(plane, wanted)
                                               : TakeLabels(FirstPage(wanted.labels), plane);
    return wanted.within.empty() ? objects : Within(cref(objects), FirstPage(wanted.within));
}

/// None where the objects come from another picture.
std::optional<double> ShownThreshold(Image const& plane, ObjectOptions const& options)
{
    if (!options.labels.empty())
        return std::nullopt;
    return ThresholdOf(plane, options);
}

} // namespace

WorkSource::WorkSource(Options const& options)
    : options_(options),
      files_(options.files.empty() ? std::vector<std::string>{made_name} : options.files)
{
}

bool WorkSource::Next(Work& work)
{
    for (; !AtEnd(); ++files_read_, number_ = 0, reader_.reset()) {
        std::string const& file = files_[files_read_];
        try {
            if (NextOfFile(work)) {
                work.file = file;
                work.number = ++number_;
                return true;
            }
            continue;
        } catch (std::bad_alloc const&) {
            std::cerr << "measure: " << file << ": not enough memory\n";
        } catch (std::exception const& error) {
            std::cerr << "measure: " << file << ": " << error.what() << '\n';
        }
        failed_ = true;
    }
    return false;
}

bool WorkSource::NextOfFile(Work& work)
{
    work = Work();
    if (!reader_)
        Open();
    if (!options_.objects.wanted)
        return reader_->Next(work.page);
    if (static_cast<std::size_t>(number_) == planes_.size())
        return false;
    work.plane = std::move(planes_[static_cast<std::size_t>(number_)]);
    return true;
}

void WorkSource::Open()
{
    planes_.clear();
    reader_ = options_.files.empty() ? MadePicture() : OpenPicture(files_[files_read_]);
    if (!options_.objects.wanted)
        return;
    std::vector<Page> pages; // all of a file: they may be the planes of one cube
    for (Page page; reader_->Next(page); page = Page())
        pages.push_back(std::move(page));
    planes_ = PlanesOf(std::move(pages));
}

DataItem PageJob::Run()
{
    CheckAbortion();
    if (options_->objects.wanted)
        return Objects();
    if (options_->format.empty())
        return Text();
    return Rows();
}

safestring PageJob::Text()
{
    std::ostringstream out;
    PrintPage(out, work_.file + ", page " + std::to_string(work_.number), std::move(work_.page),
              *options_);
    return out.str().c_str();
}

DataItem PageJob::Rows()
{
    RowTable rows;
    auto const width = work_.page.width, height = work_.page.height;
    for (Block const& block : BlocksOf(work_.page, options_->factor)) {
        CheckAbortion();
        if (block.measured)
            rows.Add(PageRow(work_.file, work_.number, width, height, block, options_->policies));
    }
    return rows.Get();
}

DataItem PageJob::Objects()
{
    Image const& plane = cref(work_.plane);
    auto const objects = ObjectsOf(plane, options_->objects);
    auto const table = ObjectTable(plane, cref(objects));
    if (options_->objects.zones)
        AddZones(*table.Pointer(), plane, ZonesOf(plane, cref(objects)));
    std::ostringstream out;
    bool const plain = options_->format.empty() || options_->format == "text";
    if (plain)
        out << work_.file << ", page " << work_.number << ", " << table->RowCount() << " objects\n";
    PrintTable(out, cref(table), plain ? "text" : options_->format);
    DataItem const text{safestring(out.str().c_str())};
    if (options_->report.empty())
        return text;
    auto const result = Container::Create();
    result->Insert("text", text);
    std::string const section =
        SectionHtml({"page " + std::to_string(work_.number), work_.plane, objects, table,
                     ShownThreshold(plane, options_->objects)});
    result->Insert("section", DataItem(safestring(section.c_str())));
    return result;
}

DataItem OutputJob::Run()
{
    DataItem path{safestring(path_.c_str())};
    if (std::filesystem::exists(path_) && Consult(ask_overwrite, path).IsUndefined())
        throw ReadError("exists and stays as it is");
    return {};
}

} // namespace measure
