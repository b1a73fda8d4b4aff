#include <memblock/measure/measurer.h>

#include <measure/pictures.h>
#include <memblock/measure/objects.h>
#include <memblock/measure/properties.h>
#include <support/raises.h>

#include <cstring>

namespace NKelmic {
namespace {

/// Values as they are fed: of one plane that makes the objects and is measured, too.
struct Fed {
    MeasureSetup setup;
    DerivedPointer<Image> image;

    template <class T>
    static Fed Of(model::Picture const& p, Segmentation const& by)
    {
        Fed fed;
        fed.image = ImageOf<T>(p);
        fed.setup.width = static_cast<unsigned>(p.width);
        fed.setup.height = p.height;
        fed.setup.type = type_of<T>::value;
        fed.setup.segmentation = by;
        fed.setup.planes = {{"", type_of<T>::value, 1.0}};
        fed.setup.options.properties = "all";
        return fed;
    }
    void Rows(Measurer& measurer, std::int64_t count) const
    {
        auto const* const at =
            static_cast<char const*>(cref(image).Pointer()) +
            static_cast<std::size_t>(measurer.EndRow()) * setup.width * cref(image).ElemSize();
        measurer.Feed(count, at, {at});
    }
    DerivedPointer<Table> Whole() const
    {
        Measurer measurer(setup);
        Rows(measurer, setup.height);
        return measurer.Finish();
    }
    /// Cut into parts, each fed in strips, some of them sent, and merged in random order.
    DerivedPointer<Table> InParts(std::mt19937& dice) const
    {
        std::vector<Measurer> parts;
        for (std::int64_t row = 0; row < setup.height;) {
            std::int64_t const end =
                row + 1 + static_cast<std::int64_t>(dice() % (setup.height - row));
            Measurer& part = parts.emplace_back(setup, row);
            for (; row < end; row = part.EndRow())
                Rows(part, 1 + static_cast<std::int64_t>(dice() % (end - row)));
            if (dice() % 2)
                part = Measurer::Load(part.Save());
        }
        while (parts.size() > 1) {
            std::size_t const i = dice() % (parts.size() - 1);
            parts[i].Merge(parts[i + 1]);
            parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(i) + 1);
        }
        return parts.front().Finish();
    }
};

void ExpectEqual(Table const& table, std::vector<model::Object> const& objects,
                 model::Picture const& values)
{
    ASSERT_EQ(table.RowCount(), static_cast<int>(objects.size()));
    for (int k = 0; k < table.RowCount(); ++k) {
        SCOPED_TRACE(k);
        EXPECT_EQ(CellOf(table, "label", k), k + 1);
        for (auto const& [name, wanted] :
             model::Measure(objects[static_cast<std::size_t>(k)], values)) {
            double const found = CellOf(table, name, k);
            EXPECT_EQ(std::isnan(found), std::isnan(wanted)) << name;
            if (!std::isnan(wanted)) { // a sum in another order may differ in its last bits
                EXPECT_NEAR(found, wanted, 1e-9 * std::max(1.0, std::fabs(wanted))) << name;
            }
        }
    }
}

template <class T>
void CheckPictures(unsigned seed, int pictures)
{
    std::mt19937 dice(seed);
    for (int i = 0; i < pictures; ++i) {
        SCOPED_TRACE(Text("%s %d", TypeToString(type_of<T>::value), i).c_str());
        model::Picture p = RandomPicture(dice);
        if constexpr (std::is_floating_point_v<T>)
            for (int n = static_cast<int>(dice() % 20); n > 0; --n)
                p.values[dice() % p.values.size()] = n % 3 ? NAN : n % 2 ? INFINITY : -INFINITY;
        if constexpr (std::is_signed_v<T>)
            for (double& v : p.values)
                v -= 100;
        bool const dark = dice() % 3 == 0;
        Segmentation by{dark ? Segmentation::up_to : Segmentation::above,
                        p.values[dice() % p.values.size()],
                        dice() % 2 ? Neighbours::corners : Neighbours::edges};
        if (!std::isfinite(by.threshold))
            by.threshold = 0.5;
        Fed const fed = Fed::Of<T>(p, by);
        auto const table = fed.Whole();
        ExpectEqual(*table, Find(p, by.threshold, dark, static_cast<int>(by.neighbours)), p);
        std::string const bytes = BytesOf(*table);
        for (int cut = 0; cut < 5; ++cut)
            EXPECT_EQ(BytesOf(*fed.InParts(dice)), bytes);
        int const threads = 1 + static_cast<int>(dice() % 8);
        EXPECT_EQ(
            BytesOf(*FindAndMeasure(*fed.image, by, {{"", fed.image}}, fed.setup.options, threads)),
            bytes);
        auto const lists = FindObjects(*fed.image, by);
        EXPECT_EQ(BytesOf(*MeasureObjects(lists, {{"", fed.image}}, fed.setup.options)), bytes);
    }
}

TEST(Measurer, FindsWhatTheDefinitionsSayWhateverTheCut)
{
    CheckPictures<unsigned char>(1, 25);
    CheckPictures<short>(2, 12);
    CheckPictures<triple>(3, 6);
    CheckPictures<int>(4, 6);
    CheckPictures<long long>(5, 6);
    CheckPictures<float>(6, 12);
    CheckPictures<double>(7, 12);
}

TEST(Measurer, LabelsMakeObjectsOfPixelsThatNeedNotTouch)
{
    std::mt19937 dice(8);
    for (int i = 0; i < 20; ++i) {
        SCOPED_TRACE(i);
        model::Picture p = RandomPicture(dice);
        for (double& v : p.values)
            v = std::max(0.0, std::floor(v / 20) - 3);
        std::map<int, model::Object> by_label;
        for (long y = 0; y < p.height; ++y)
            for (long x = 0; x < p.width; ++x)
                if (p.At({y, x}) > 0)
                    by_label[static_cast<int>(p.At({y, x}))].insert({y, x});
        Fed fed = Fed::Of<unsigned short>(p, {Segmentation::labels});
        auto const table = fed.Whole();
        std::string const bytes = BytesOf(*table);
        EXPECT_EQ(BytesOf(*fed.InParts(dice)), bytes);
        EXPECT_EQ(table->RowCount(), by_label.empty() ? 0 : by_label.rbegin()->first);
        for (int k = 0; k < table->RowCount(); ++k) {
            EXPECT_EQ(CellOf(*table, "label", k), k + 1);
            EXPECT_EQ(CellOf(*table, "area", k), by_label[k + 1].size());
            if (by_label[k + 1].empty()) {
                EXPECT_EQ(CellOf(*table, "first", k), -1);
                continue;
            }
            EXPECT_EQ(CellOf(*table, "holes", k), model::Measure(by_label[k + 1], p)["holes"]);
        }
        fed.setup.options.min_pixels = 1; // what a filter leaves out does not come back as a gap
        EXPECT_EQ(fed.Whole()->RowCount(), std::ranges::count_if(by_label, [](auto const& one) {
                      return !one.second.empty();
                  }));
        fed.setup.options.min_pixels = 0;
        fed.setup.options.keep_gaps = false;
        std::erase_if(by_label, [](auto const& one) { return one.second.empty(); });
        EXPECT_EQ(fed.Whole()->RowCount(), static_cast<int>(by_label.size()));
    }
}

TEST(Measurer, KeepsObjectsBySizeAndPlace)
{
    // Objects of 1, 2 and 4 pixels, the last at the edge.
    model::Picture const p{6, 3, {0, 0, 0, 0, 9, 9, 0, 9, 0, 0, 9, 9, 0, 0, 0, 0, 0, 0}};
    auto const areas = [&](auto change) {
        Fed fed = Fed::Of<unsigned char>(p, {Segmentation::above, 5});
        change(fed.setup.options);
        auto const table = fed.Whole();
        std::string text;
        for (int k = 0; k < table->RowCount(); ++k)
            text += std::to_string(static_cast<int>(CellOf(*table, "label", k))) + ":" +
                    std::to_string(static_cast<int>(CellOf(*table, "area", k))) + " ";
        return text;
    };
    EXPECT_EQ(areas([](MeasureOptions&) {}), "1:4 2:1 ");
    EXPECT_EQ(areas([](MeasureOptions& o) { o.min_pixels = 2; }), "1:4 ");
    EXPECT_EQ(areas([](MeasureOptions& o) { o.max_pixels = 2; }), "1:1 ");
    EXPECT_EQ(areas([](MeasureOptions& o) { o.drop_at_edge = true; }), "1:1 ");
}

TEST(Measurer, UnitsAndFactorsEnterTheCells)
{
    // A ring of 4 x 3 pixels around a hole of two.
    model::Picture const p{6, 5, {0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 0, 0, 5, 0,
                                  0, 7, 0, 0, 8, 9, 1, 2, 0, 0, 0, 0, 0, 0, 0}};
    Fed fed = Fed::Of<unsigned char>(p, {Segmentation::above, 0});
    fed.setup.planes[0].factor = -0.5;
    fed.setup.planes[0].name = "dye";
    fed.setup.options.pixel_size = {2, 3, 1, "um"};
    auto const table = fed.Whole();
    auto const cell = [&](char const* name) { return CellOf(*table, name, 0); };
    EXPECT_EQ(table->Column("area")->ElemType(), Vector::Double) << "in units, no count";
    EXPECT_DOUBLE_EQ(cell("area"), 10 * 6);
    EXPECT_DOUBLE_EQ(cell("diameter"), std::sqrt(4 * 60 / M_PI));
    EXPECT_DOUBLE_EQ(cell("x"), 2 * (10 + 5 + 10) / 10.0);
    EXPECT_EQ(cell("x0"), 1) << "places of pixels have no unit";
    EXPECT_DOUBLE_EQ(cell("feret_max"), std::hypot(2 * 3, 3 * 3));
    EXPECT_EQ(cell("dye_minimum"), -4.5);
    EXPECT_EQ(cell("dye_maximum"), -0.5);
    EXPECT_EQ(cell("dye_sum"), -21);
    EXPECT_EQ(cell("dye_upper_quartile"), -1);
    EXPECT_EQ(cell("holes"), 1);
}

TEST(Measurer, RefusesWhatItCannotMeasure)
{
    model::Picture const p{2, 2, {1, 2, 3, 4}};
    Fed const good = Fed::Of<unsigned char>(p, {Segmentation::above, 0});
    struct Case {
        void (*spoil)(MeasureSetup&);
        unsigned code;
        char const* text;
    } const cases[] = {
        {[](MeasureSetup& s) { s.segmentation.threshold = NAN; }, err_value,
         "A threshold must be a number."},
        {[](MeasureSetup& s) { s.options.pixel_size.y = 0; }, err_value,
         "A pixel size must be above 0."},
        {[](MeasureSetup& s) { s.options.properties = "z"; }, err_kind,
         "Property \"z\" is not defined for images."},
        {[](MeasureSetup& s) { s.planes.clear(), s.options.properties = "mean"; }, err_kind,
         "Property \"mean\" needs an intensity image."},
        {[](MeasureSetup& s) { s.planes[0].type = Vector::String; }, err_kind,
         "Pixels of type \"string\" cannot be measured."},
        {[](MeasureSetup& s) {
             s.segmentation.kind = Segmentation::labels;
             s.type = Vector::Float;
         },
         err_kind, "Labels must be whole numbers, not elements of type \"float\"."},
    };
    for (Case const& c : cases) {
        MeasureSetup setup = good.setup;
        c.spoil(setup);
        EXPECT_RAISES(Measurer{setup}, c.code, c.text);
    }
    EXPECT_RAISES(Measurer(good.setup, 3), err_value,
                  "A picture of 2 x 2 pixels cannot be measured from row 3 on.");

    Measurer upper(good.setup), lower(good.setup, 1);
    EXPECT_RAISES(good.Rows(upper, 3), err_value,
                  "3 rows from row 0 on are more than the picture has, which is 2.");
    EXPECT_RAISES(upper.Feed(1, "", {}), err_value, "Rows of 1 planes are needed, not of 0.");
    EXPECT_RAISES(upper.Merge(lower), err_value,
                  "The part from row 1 on does not follow one that ends at row 0.");
    EXPECT_RAISES(upper.Finish(), err_state, "Rows 0 to 1 of the picture were not measured.");
    good.Rows(upper, 1);
    MeasureSetup other = good.setup;
    other.options.min_pixels = 1;
    Measurer stranger(other, 1);
    EXPECT_RAISES(upper.Merge(stranger), err_value, "Parts of different setups cannot be merged.");
    EXPECT_RAISES(lower.Finish(), err_state, "Rows 0 to 0 of the picture were not measured.");
    good.Rows(lower, 1);
    upper.Merge(lower);
    EXPECT_EQ(upper.Finish()->RowCount(), 1) << "nothing of the above has changed it";

    Fed negative = Fed::Of<short>({2, 1, {0, -7}}, {Segmentation::labels});
    EXPECT_RAISES(negative.Whole(), err_value,
                  "Labels must be whole numbers from 0 on: found -7 at column 1, row 0.");
    Fed huge = Fed::Of<unsigned int>({2, 1, {0, 4e9}}, {Segmentation::labels});
    EXPECT_RAISES(huge.Whole(), err_value,
                  "Label 4000000000 would make as many rows; leave out the gaps between labels to "
                  "have a row for each label that occurs.");
    huge.setup.options.keep_gaps = false;
    EXPECT_EQ(CellOf(*huge.Whole(), "label", 0), 4e9);
}

TEST(Measurer, AnUnknownPropertyIsNamedWithAllThatThereAre)
{
    MeasureSetup setup;
    setup.options.properties = "area, roundness";
    try {
        Measurer{setup};
        FAIL();
    } catch (Exception const& e) {
        std::string const text = e.what();
        EXPECT_TRUE(text.starts_with("No such property of objects: \"roundness\"; there are: "));
        for (Property const& property : Properties())
            EXPECT_NE(text.find(property.name), std::string::npos) << property.name;
    }
}

TEST(Measurer, ADamagedStateIsNotTaken)
{
    std::mt19937 dice(9);
    model::Picture const p = RandomPicture(dice);
    Fed const fed = Fed::Of<unsigned char>(p, {Segmentation::above, 90});
    Measurer measurer(fed.setup);
    fed.Rows(measurer, p.height / 2);
    safestring const state = measurer.Save();
    for (std::size_t i = 0; i < state.size(); ++i) {
        safestring damaged = state;
        damaged[i] = static_cast<char>(damaged[i] ^ 1 << dice() % 8);
        EXPECT_THROW(Measurer::Load(damaged), Exception) << i;
        EXPECT_THROW(Measurer::Load(state.substr(0, i)), Exception) << i;
    }
    EXPECT_THROW(Measurer::Load(state + " "), Exception);
    EXPECT_TRUE(std::strcmp(Measurer::Load(state).Save().c_str(), state.c_str()) == 0);
}

} // namespace
} // namespace NKelmic
