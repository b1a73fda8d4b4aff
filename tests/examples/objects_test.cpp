#include "truth.h"

#include <measure/objects.h>
#include <memblock/imaging/intervalvector.h>
#include <support/vectors.h>

#include <gtest/gtest.h>
#include <zlib.h>

namespace {

using namespace measure;
using namespace NKelmic;

/// The plane that a row of the truth tells of.
DerivedPointer<Image> PlaneOf(std::string const& name)
{
    auto const [path, plane] = PictureOf(name);
    auto const reader = OpenPicture(path);
    std::vector<Page> pages;
    for (Page page; reader->Next(page); page = Page())
        pages.push_back(std::move(page));
    return PlanesOf(std::move(pages))[plane];
}

ObjectOptions OptionsOf(TruthRow const& row)
{
    ObjectOptions options;
    if (row.at("segmentation") != "otsu")
        options.threshold = Number(row.at("threshold"));
    options.neighbours = row.at("connectivity") == "8" ? Neighbours::corners : Neighbours::edges;
    return options;
}

void ExpectRows(Table const& table, std::string const& file)
{
    static std::pair<char const*, char const*> const columns[] = {
        {"label", "label"}, {"area", "area"}, {"first", "first"}, {"x0", "x0"},
        {"y0", "y0"},       {"x1", "x1"},     {"y1", "y1"},       {"minimum", "min"},
        {"maximum", "max"}, {"sum", "sum"},   {"mean", "mean"}};
    auto const rows = ReadRows(TestData() / "truth" / file);
    ASSERT_EQ(table.RowCount(), static_cast<int>(rows.size()));
    for (auto const& [own, told] : columns) {
        Vector const& column = cref(table.Column(safestring(own)));
        for (unsigned int i = 0; i < column.Length(); ++i)
            if (!rows[i].at(told).empty()) { // labels without pixels have no numbers
                EXPECT_NEAR(column.GetDouble(static_cast<int>(i)), Number(rows[i].at(told)),
                            1e-12 * Number(rows[i].at("sum")))
                    << own << " of object " << i + 1;
            }
    }
}

TEST(Objects, EverySegmentationOfTheTruthHasItsObjects)
{
    NEED_TEST_DATA();
    int seen = 0;
    for (auto const& row : ReadRows(TestData() / "truth" / "segmentations.csv")) {
        ++seen;
        SCOPED_TRACE(row.at("table"));
        bool const given = row.at("segmentation") == "labels";
        auto const picture = PlaneOf(given ? "nuclei_dsb_8" : row.at("picture"));
        auto const objects = given ? TakeLabels(PlaneOf(row.at("picture")), cref(picture))
                                   : FindObjects(cref(picture), OptionsOf(row));
        ExpectRows(cref(ObjectTable(cref(picture), cref(objects))), row.at("table"));
        // Object by object, the pixels in ascending order.
        auto const pixels =
            DerivedPointer<IntervalVector>(objects->GetVectorRepr())->MergedIndexVector();
        auto const crc =
            crc32(0, reinterpret_cast<unsigned char const*>(cref(pixels).UnsignedIntPointer()),
                  4 * pixels->Length());
        EXPECT_EQ(crc, std::stoul(row.at("index_crc32"), nullptr, 16));
        EXPECT_EQ(pixels->Length(), Number(row.at("foreground")));
        EXPECT_EQ(objects->GetSubItem("itemcount", throw_always).GetInt(), Number(row.at("count")));
    }
    EXPECT_GE(seen, 21);
}

TEST(Objects, ZonesAndMasksPartThem)
{
    auto const picture = Image::Create(6, 3, Vector::Byte, 1.0);
    unsigned char const pixels[] = {0, 0, 0, 0, 0, 0, 0, 2, 4, 9, 0, 0, 0, 0, 0, 0, 0, 0};
    std::copy(std::begin(pixels), std::end(pixels), picture->BytePointer());
    ObjectOptions options;
    options.threshold = 1;
    auto const objects = FindObjects(cref(picture), options);
    auto const zones = ZonesOf(cref(picture), cref(objects)); // the mean is 5
    EXPECT_EQ(zones->LgType(), IntervalVector::subobj);
    auto const table = ObjectTable(cref(picture), cref(objects));
    AddZones(*table.Pointer(), cref(picture), zones);
    std::pair<char const*, double> const expected[] = {
        {"area", 3}, {"dark_area", 2}, {"dark_mean", 3}, {"bright_area", 1}, {"bright_mean", 9}};
    for (auto const& [name, value] : expected)
        EXPECT_EQ(cref(table->Column(safestring(name))).GetDouble(0), value) << name;

    auto const other = Image::Create(6, 3, Vector::Byte, 1.0);
    other->BytePointer()[8] = other->BytePointer()[0] = 200;
    auto const within = ObjectTable(cref(picture), cref(Within(cref(objects), other)));
    EXPECT_EQ(cref(within->Column("area")).GetInt(0), 1);
    EXPECT_EQ(cref(within->Column("minimum")).GetInt(0), 4);
    EXPECT_THROW(Within(cref(objects), Image::Create(3, 6, Vector::Byte, 1.0)), ReadError);
}

} // namespace
