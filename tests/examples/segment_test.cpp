#include "truth.h"

#include <measure/picture.h>
#include <measure/segment.h>

#include <cstring>
#include <gtest/gtest.h>
#include <zlib.h>

namespace {

using namespace measure;

/// The samples of a grey page, whatever their width; of colours the rounded average.
std::vector<unsigned> Values(Page const& page)
{
    std::vector<unsigned> values(page.Pixels());
    bool const wide = page.type == NKelmic::DataTypeBase::UnsignedShort;
    auto const sample = [&](unsigned long i) -> unsigned {
        unsigned short v = 0;
        std::memcpy(&v, &page.bytes[i * (wide ? 2 : 1)], wide ? 2 : 1);
        return v;
    };
    for (unsigned long i = 0; i < values.size(); ++i)
        values[i] = page.samples == 1
                        ? sample(i)
                        : (sample(3 * i) + sample(3 * i + 1) + sample(3 * i + 2) + 2) / 3;
    return values;
}

unsigned Otsu(std::vector<unsigned> const& values)
{
    std::vector<unsigned long> histogram(65536);
    for (unsigned const v : values)
        ++histogram[v];
    return OtsuThreshold(histogram);
}

Page PageOf(std::string const& name)
{
    auto [path, skip] = PictureOf(name);
    auto const reader = OpenPicture(path);
    Page page;
    while (reader->Next(page) && skip-- > 0)
        ;
    return page;
}

TEST(Segment, ThresholdsAndObjectsAreThoseOfTheTruth)
{
    NEED_TEST_DATA();
    int seen = 0;
    for (auto const& row : ReadRows(TestData() / "truth" / "segmentations.csv")) {
        if (row.at("connectivity").empty())
            continue; // labels that came as a picture
        ++seen;
        Page const page = PageOf(row.at("picture"));
        auto const values = Values(page);
        auto const threshold = static_cast<unsigned>(Number(row.at("threshold")));
        SCOPED_TRACE(row.at("picture") + " " + row.at("segmentation") + row.at("connectivity"));
        if (row.at("segmentation") == "otsu") {
            EXPECT_EQ(Otsu(values), threshold);
        }
        std::vector<unsigned char> mask(values.size());
        for (unsigned long i = 0; i < mask.size(); ++i) {
            unsigned long const x = i % page.width, y = i / page.width;
            bool const frame = x == 0 || y == 0 || x == page.width - 1 || y == page.height - 1;
            mask[i] = !frame && values[i] > threshold;
        }
        std::vector<unsigned> labels(values.size());
        auto const neighbours =
            row.at("connectivity") == "8" ? Neighbours::corners : Neighbours::edges;
        EXPECT_EQ(LabelObjects(mask, page.width, neighbours, labels), Number(row.at("count")));
        auto const crc = crc32(0, reinterpret_cast<unsigned char const*>(labels.data()),
                               static_cast<unsigned>(4 * labels.size()));
        EXPECT_EQ(crc, std::stoul(row.at("labels_crc32"), nullptr, 16));
    }
    EXPECT_GE(seen, 20);
}

TEST(Segment, PicturesWithoutContrastOrPixelsHaveAnAnswer)
{
    EXPECT_EQ(Otsu({7, 7, 7}), 0u);
    EXPECT_EQ(Otsu({}), 0u);
    EXPECT_EQ(LabelObjects({}, 0, Neighbours::edges, {}), 0u);
}

} // namespace
