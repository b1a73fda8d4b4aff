#include <measure/stream.h>

#include <memblock/core/typedchunk.h>

#include <algorithm>

namespace measure {

using namespace NKelmic;

namespace {

/// Counts, or finds objects, in one strip.
class StripJob : public Job {
public:
    StripJob(std::shared_ptr<Strip> strip, PageHeader const& header, Channel channel)
        : strip_(std::move(strip)), header_(header), channel_(channel)
    {
    }
    DataItem Run() override
    {
        CheckAbortion();
        unsigned long const count = strip_->rows * header_.width;
        if (header_.samples > 1) // to the front of the same bytes
            TakeChannel(header_, channel_, count, strip_->pixels.data(), strip_->pixels.data());
        void const* const pixels = strip_->pixels.data();
        if (strip_->pass == Pass::range)
            strip_->range.Add(header_.type, pixels, count);
        else if (strip_->pass == Pass::histogram)
            strip_->histogram->Add(pixels, count);
        else
            strip_->part->Feed(static_cast<std::int64_t>(strip_->rows),
                               strip_->labels.empty() ? pixels : strip_->labels.data(), {pixels});
        strip_.reset(); // before the pool knows: then the strip is the stream's alone
        return {};
    }
    void OnFinished() override { delete this; }

private:
    std::shared_ptr<Strip> strip_;
    PageHeader const header_;
    Channel const channel_;
};

} // namespace

PageStream::PageStream(Reader& reader, PageHeader const& header, Reader* labels,
                       PageHeader const& label_header, Options const& options)
    : reader_(reader), labels_(labels), header_(header), label_header_(label_header),
      options_(options), passes_(Passes()), threshold_(options.objects.threshold)
{
    unsigned long const row = header.RowBytes() + (labels ? label_header.RowBytes() : 0);
    strip_rows_ = std::max(1UL, options.strip_bytes / row);
    StartPass();
}

std::vector<Pass> PageStream::Passes() const
{
    if (options_.objects.threshold || labels_)
        return {Pass::objects};
    if (TypedChunk::SizeOf(header_.type) <= 2)
        return {Pass::histogram, Pass::objects};
    return {Pass::range, Pass::histogram, Pass::objects};
}

unsigned long PageStream::RowsInAll() const
{
    return passes_.size() * header_.height;
}

void PageStream::StartPass()
{
    next_row_ = 0;
    strips_given_ = strips_done_ = 0;
    if (pass_ > 0)
        reader_.Rewind();
    if (passes_[pass_] == Pass::histogram)
        histogram_ = EmptyHistogram();
    if (passes_[pass_] != Pass::objects)
        return;
    whole_.emplace(Setup());
}

PixelHistogram PageStream::EmptyHistogram() const
{
    return passes_.front() == Pass::range ? PixelHistogram(header_.type, range_)
                                          : PixelHistogram(header_.type);
}

MeasureSetup PageStream::Setup() const
{
    PageHeader grey = header_;
    grey.samples = 1;
    return SetupFor(grey, labels_ ? std::optional(label_header_.type) : std::nullopt,
                    threshold_.value_or(0), options_);
}

std::unique_ptr<Job> PageStream::NextJob(std::shared_ptr<Strip>& strip)
{
    if (finished_ || next_row_ == header_.height)
        return nullptr;
    strip = std::make_shared<Strip>();
    strip->number = strips_given_;
    strip->first_row = next_row_;
    strip->rows = std::min(strip_rows_, header_.height - next_row_);
    strip->pass = passes_[pass_];
    strip->pixels.resize(strip->rows * header_.RowBytes());
    reader_.ReadRows(strip->rows, strip->pixels.data());
    if (labels_) {
        strip->labels.resize(strip->rows * label_header_.RowBytes());
        try {
            labels_->ReadRows(strip->rows, strip->labels.data());
        } catch (ReadError const& error) {
            throw FileError(LabelFile(), error.what());
        }
    }
    if (strip->pass == Pass::histogram) {
        strip->histogram = EmptyHistogram();
    } else if (strip->pass == Pass::objects) {
        strip->part.emplace(Setup(), static_cast<std::int64_t>(next_row_));
    }
    next_row_ += strip->rows;
    ++strips_given_;
    return std::make_unique<StripJob>(strip, header_, options_.objects.channel);
}

void PageStream::Done(Strip& strip)
{
    ++strips_done_;
    rows_done_ += strip.rows;
    if (strip.pass == Pass::range)
        range_.Add(strip.range);
    else if (strip.pass == Pass::histogram)
        histogram_->Add(*strip.histogram);
    else
        parts_.emplace(strip.number, std::move(*strip.part));
    MergeParts();
    if (next_row_ == header_.height && strips_done_ == strips_given_)
        EndPass();
}

void PageStream::MergeParts()
{
    for (auto next = parts_.find(merged_); next != parts_.end(); next = parts_.find(++merged_)) {
        whole_->Merge(next->second);
        parts_.erase(next);
    }
}

void PageStream::EndPass()
{
    if (passes_[pass_] == Pass::histogram)
        threshold_ = histogram_->OtsuThreshold();
    if (++pass_ == passes_.size())
        finished_ = true;
    else
        StartPass();
}

PageObjects PageStream::Result() const
{
    PageObjects result;
    result.width = header_.width;
    result.height = header_.height;
    result.scale = header_.scale;
    if (!labels_)
        result.threshold = threshold_;
    result.table = whole_ ? whole_->Complete() : NoObjects(options_);
    return result;
}

} // namespace measure
