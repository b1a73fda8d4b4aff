#include <measure/work.h>

#include <measure/images.h>
#include <measure/report.h>
#include <measure/reportpage.h>

#include <filesystem>
#include <iostream>
#include <sstream>

namespace measure {

using namespace NKelmic;

namespace {

constexpr char const* made_name = "(a picture made here)";

std::string Pages(unsigned long count)
{
    return std::to_string(count) + (count == 1 ? " page" : " pages");
}

DerivedPointer<Image> ImageOrNone(Page& page)
{
    return page.bytes ? GreyImage(page) : DerivedPointer<Image>();
}

} // namespace

WorkSource::WorkSource(Options const& options)
    : options_(options),
      files_(options.files.empty() ? std::vector<std::string>{made_name} : options.files),
      labels_{options.objects.labels, nullptr, {}}, within_{options.objects.within, nullptr, {}}
{
}

bool WorkSource::Next(Work& work)
{
    while (!AtEnd())
        try {
            if (NextOfFile(work))
                return true;
            SkipFile();
        } catch (std::exception const& error) {
            Fail(error);
        }
    return false;
}

void WorkSource::Fail(std::exception const& error)
{
    auto const* const of_file = dynamic_cast<FileError const*>(&error);
    bool const memory = dynamic_cast<std::bad_alloc const*>(&error);
    std::cerr << "measure: " << (of_file ? of_file->File() : File()) << ": "
              << (memory ? "needs more memory than there is" : error.what()) << '\n';
    failed_ = true;
    SkipFile();
}

void WorkSource::SkipFile()
{
    ++files_read_;
    number_ = 0;
    reader_.reset();
}

bool WorkSource::NextOfFile(Work& work)
{
    work = Work();
    if (!reader_)
        Open();
    if (!reader_->NextPage(work.header))
        return false;
    work.file = File();
    work.number = ++number_;
    if (options_.objects.wanted)
        ReadObjectsPage(work);
    else
        work.page = ReadAll(*reader_, work.header);
    return true;
}

void WorkSource::ReadObjectsPage(Work& work)
{
    if (options_.objects.scale)
        work.header.scale = *options_.objects.scale;
    NextSide(labels_, work.header);
    NextSide(within_, work.header);
    if (!options_.NeedWholePages() && work.header.Bytes() > options_.hold_bytes) {
        work.stream = std::make_unique<PageStream>(*reader_, work.header, labels_.reader.get(),
                                                   labels_.header, options_);
        return;
    }
    work.page = GreyPage(ReadAll(*reader_, work.header), options_.objects.channel);
    work.labels = ReadSide(labels_);
    work.within = ReadSide(within_);
}

void WorkSource::Open()
{
    reader_ = options_.files.empty() ? MadePicture() : OpenPicture(File());
    if (options_.objects.wanted) {
        Open(labels_);
        Open(within_);
    }
}

/// Pages belong to each other by their numbers, so both have as many.
void WorkSource::Open(Side& side)
{
    if (side.path.empty())
        return;
    unsigned long const pages = options_.files.empty() ? 1 : CountPages(File());
    try {
        side.reader = OpenPicture(side.path);
        unsigned long const own = CountPages(side.path);
        if (own != pages)
            throw ReadError("has " + Pages(own) + ", and '" + File() + "' has " + Pages(pages) +
                            ": give one for each");
    } catch (ReadError const& error) {
        throw FileError(side.path, error.what());
    }
}

void WorkSource::NextSide(Side& side, PageHeader const& header)
{
    if (!side.reader)
        return;
    try {
        bool const more = side.reader->NextPage(side.header);
        if (!more || side.header.samples != 1)
            throw ReadError("has colours: pictures of one value a pixel are needed");
        if (side.header.width != header.width || side.header.height != header.height)
            throw ReadError("has " + side.header.SizeText() + " in page " +
                            std::to_string(number_) + ", and '" + File() + "' has " +
                            header.SizeText() + ": give one of the same size");
        if (&side == &labels_ && IsInSet<FloatTypes>(side.header.type))
            throw ReadError(std::string("has pixels of type \"") + TypeToString(side.header.type) +
                            "\": labels are whole numbers");
    } catch (ReadError const& error) {
        throw FileError(side.path, error.what());
    }
}

Page WorkSource::ReadSide(Side& side)
{
    if (!side.reader)
        return {};
    try {
        return ReadAll(*side.reader, side.header);
    } catch (ReadError const& error) {
        throw FileError(side.path, error.what());
    }
}

DataItem PageJob::Run()
{
    CheckAbortion();
    try {
        Measure();
    } catch (std::bad_alloc const&) {
        throw ReadError("needs more memory than there is for " + work_.header.SizeText());
    }
    work_ = Work();
    result_.reset(); // before the pool knows: then the result is the pool's alone
    return {};
}

void PageJob::Measure()
{
    if (options_->objects.wanted)
        return FindObjects();
    if (options_->format.empty()) {
        std::ostringstream out;
        PrintPage(out, work_.file + ", page " + std::to_string(work_.number), std::move(work_.page),
                  *options_);
        result_->lines = out.str();
        return;
    }
    for (Block const& block : BlocksOf(work_.page, options_->factor)) {
        CheckAbortion();
        if (block.measured)
            result_->rows.push_back(
                PageRow(work_.file, work_.number, work_.header, block, options_->policies));
    }
}

void PageJob::FindObjects()
{
    SearchedPage page{GreyImage(work_.page), ImageOrNone(work_.labels), ImageOrNone(work_.within),
                      work_.header.scale};
    page.picture->SetFactor(options_->factor);
    result_->found = SearchPage(page, *options_);
    if (!options_->report.empty())
        result_->section =
            SectionHtml("page " + std::to_string(work_.number), cref(page.picture), result_->found);
}

DataItem OutputJob::Run()
{
    DataItem path{safestring(path_.c_str())};
    if (std::filesystem::exists(path_) && Consult(ask_overwrite, path).IsUndefined())
        throw ReadError("exists and stays as it is");
    return {};
}

} // namespace measure
