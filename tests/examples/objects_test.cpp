#include "measured.h"
#include "program.h"
#include "truth.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <png.h>
#include <random>
#include <regex>

namespace {

using namespace measure;

Options Call(std::vector<std::string> arguments)
{
    arguments.emplace_back("--objects");
    return ReadOptions(arguments);
}

std::vector<TruthRow> RowsOf(std::string const& csv, TestFolder const& folder)
{
    std::string lines = csv;
    std::erase(lines, '\r');
    return ReadRows(folder.File("table.csv", lines));
}

/// One page of a picture with its one-pixel frame set to 0, as a file: in the truth no object lies
/// in it.
std::string ClearFrame(std::string const& name, TestFolder const& folder)
{
    auto [path, skip] = PictureOf(name);
    auto const reader = OpenPicture(path);
    Page page;
    do
        EXPECT_TRUE(ReadPage(*reader, page));
    while (skip-- > 0);
    page = GreyPage(std::move(page), Channel::grey);
    bool const wide = page.type == NKelmic::DataTypeBase::UnsignedShort;
    std::vector<unsigned short> pixels(page.Pixels());
    for (unsigned long i = 0; i < pixels.size(); ++i) {
        unsigned long const x = i % page.width, y = i / page.width;
        bool const frame = x == 0 || y == 0 || x + 1 == page.width || y + 1 == page.height;
        if (!frame)
            pixels[i] =
                wide ? reinterpret_cast<unsigned short const*>(page.bytes.get())[i] : page.bytes[i];
    }
    return WriteTiff(folder.path / "cleared.tif", static_cast<unsigned>(page.width), pixels, {9});
}

TEST(Objects, EverySegmentationOfTheTruthHasItsRows)
{
    NEED_TEST_DATA();
    TestFolder const folder;
    std::pair<char const*, char const*> const columns[] = {
        {"label", "label"}, {"area", "area"}, {"first", "first"}, {"x0", "x0"},
        {"y0", "y0"},       {"x1", "x1"},     {"y1", "y1"},       {"minimum", "min"},
        {"maximum", "max"}, {"sum", "sum"},   {"mean", "mean"}};
    int seen = 0;
    for (auto const& row : ReadRows(TestData() / "truth" / "segmentations.csv")) {
        SCOPED_TRACE(row.at("table"));
        ++seen;
        bool const labels = row.at("segmentation") == "labels";
        Options options =
            labels
                ? Call({ClearFrame("nuclei_dsb_8", folder),
                        "--labels=" + PictureOf(row.at("picture")).first.string()})
                : Call({ClearFrame(row.at("picture"), folder), "--threshold=" + row.at("threshold"),
                        "--touch=" + row.at("connectivity")});
        auto const found = RowsOf(TableOf(options, seen % 2 == 0), folder);
        auto const expected = ReadRows(TestData() / "truth" / row.at("table"));
        ASSERT_EQ(found.size(), expected.size());
        for (std::size_t i = 0; i < found.size(); ++i)
            for (auto const& [own, theirs] : columns)
                if (!expected[i].at(theirs).empty()) { // labels without pixels have no numbers
                    EXPECT_NEAR(Number(found[i].at(own)), Number(expected[i].at(theirs)),
                                1e-12 * Number(expected[i].at("sum")))
                        << own << " of object " << i + 1;
                }
    }
    EXPECT_GE(seen, 21);
}

TEST(Objects, ThresholdsOfWholePicturesAreThoseOfTheTruth)
{
    NEED_TEST_DATA();
    TestFolder const folder;
    for (auto const& row : ReadRows(TestData() / "truth" / "segmentations.csv"))
        if (row.at("segmentation") == "otsu")
            for (bool const cut : {false, true}) {
                auto const path = PictureOf(row.at("picture")).first.string();
                auto const rows = RowsOf(TableOf(Call({path, "--properties=area"}), cut), folder);
                ASSERT_FALSE(rows.empty());
                EXPECT_EQ(Number(rows[0].at("threshold")), Number(row.at("threshold"))) << path;
            }
}

/// Blobs of all sizes, up to the edge, as values of a type.
template <class T>
std::vector<T> Blobs(unsigned width, unsigned height, unsigned seed)
{
    std::mt19937 dice(seed);
    std::vector<T> pixels(width * height);
    for (auto& pixel : pixels)
        pixel = static_cast<T>(dice() % 100);
    for (unsigned i = width + 1; i < pixels.size(); ++i)
        pixels[i] = static_cast<T>((pixels[i] + pixels[i - 1] + pixels[i - width]) / 3);
    return pixels;
}

TEST(Objects, StripsAndWholePagesGiveTheSameTable)
{
    TestFolder const folder;
    std::string const path = folder.path;
    constexpr unsigned width = 150, height = 97;
    std::vector<std::string> const pictures{
        WriteTiff(path + "/byte.tif", width, Blobs<unsigned char>(width, height, 1), {13}),
        WriteTiff(path + "/tiles.tif", width, Blobs<unsigned short>(width, height, 2),
                  {0, COMPRESSION_LZW}),
        WriteTiff(path + "/big.tif", width, Blobs<short>(width, height, 3),
                  {97, COMPRESSION_NONE, "w8"}),
        WriteTiff(path + "/swapped.tif", width, Blobs<int>(width, height, 4),
                  {7, COMPRESSION_NONE, "wb"}),
        WriteTiff(path + "/float.tif", width, Blobs<float>(width, height, 5),
                  {97, COMPRESSION_ADOBE_DEFLATE}),
        WriteTiff(path + "/double.tif", width, Blobs<double>(width, height, 6),
                  {0, COMPRESSION_NONE, "wb"}),
    };
    auto const labels =
        WriteTiff(path + "/labels.tif", width, Blobs<unsigned>(width, height, 7), {10});
    std::vector<std::vector<std::string>> const calls{
        {"--properties=all"},
        {"--dark", "--touch=8", "--edge=drop", "--min-area=3", "--max-area=400"},
        {"--labels=" + labels, "--factor=0.5", "--pixel-size=0.5um,2um", "--properties=all"}};
    for (auto const& call : calls) {
        auto options = Call(call);
        options.files = pictures;
        auto const whole = TableOf(options, false);
        EXPECT_GT(std::ranges::count(whole, '\n'), 60);
        EXPECT_TRUE(TableOf(options, true) == whole) << "cut into strips, " << call[0];
        options.objects.outline_file = "-"; // needs the pixels of each object
        EXPECT_TRUE(TableOf(options, false) == whole) << "by lists of pixels, " << call[0];
    }
}

/// A PNG file, which needs seven passes to be read.
std::string WriteInterlaced(std::string const& path, unsigned width,
                            std::vector<unsigned char> pixels)
{
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    auto const height = static_cast<unsigned>(pixels.size() / width);
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_ADAM7,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    std::vector<unsigned char*> rows(height);
    for (unsigned y = 0; y < height; ++y)
        rows[y] = &pixels[std::size_t{y} * width];
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
    return path;
}

TEST(Objects, PngAndPnmAreReadByRowsToo)
{
    TestFolder const folder;
    auto const blobs = Blobs<unsigned char>(70, 90, 11);
    std::string const path = folder.path;
    auto const plain = WriteTiff(path + "/plain.tif", 70, blobs, {90});
    auto const interlaced = WriteInterlaced(path + "/interlaced.png", 70, blobs);
    std::string const black("P5 1 1 255\n\0", 12);
    auto const grey =
        folder.File("grey.pgm", black + "P5 70 90 255\n" + std::string(blobs.begin(), blobs.end()));
    std::string colours = "P6 70 90 65535\n";
    for (unsigned char const v : blobs)
        colours += {0, static_cast<char>(v), 1, 0, 0, 1}; // red is the blobs
    auto const red = folder.File("red.ppm", colours);
    auto const rows = [&](std::string const& file, bool cut) {
        auto const table = TableOf(Call({file, "--channel=r"}), cut);
        return std::regex_replace(table, std::regex("\n[^,]*,[12],"), "\n");
    };
    for (bool const cut : {false, true})
        for (auto const& file : {interlaced, grey, red})
            EXPECT_EQ(rows(file, cut), rows(plain, false)) << file;
    if (auto const png = TestData() / "retina_rgb.png"; std::filesystem::exists(png)) {
        EXPECT_EQ(TableOf(Call({png}), true), TableOf(Call({png}), false));
        EXPECT_EQ(TableOf(Call({png, "--channel=b"}), true),
                  TableOf(Call({png, "--channel=b"}), false));
    }
}

TEST(Objects, ZonesAndMasksPartThem)
{
    TestFolder const folder;
    std::string const path = folder.path;
    auto const picture = WriteTiff<short>(path + "/p.tif", 4, {-2, 2, 4, 9, -1, -1, -1, -1}, {1});
    auto const mask = WriteTiff<int>(path + "/m.tif", 4, {-7, 0, 200, 1, 1, 1, 1, 1}, {1});
    auto const call = [&](char const* option) {
        return TableOf(Call({picture, "--threshold=1", "--properties=area,mean", option}), false);
    };
    EXPECT_EQ(call("--zones"), "file,page,label,area,mean,dark_area,dark_mean,bright_area,"
                               "bright_mean,threshold\r\n" +
                                   picture + ",1,1,3,5,2,3,1,9,1\r\n");
    EXPECT_EQ(call(("--and=" + mask).c_str()),
              "file,page,label,area,mean,threshold\r\n" + picture + ",1,1,2,6.5,1\r\n");
}

TEST(Objects, FloatsWithoutNumbersAreNeverAboveAThreshold)
{
    TestFolder const folder;
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const inf = std::numeric_limits<float>::infinity();
    std::string const path = folder.path;
    auto const mixed =
        WriteTiff<float>(path + "/mixed.tif", 4, {nan, 5, inf, 0, 0, 6, -inf, 0}, {1});
    auto const none = WriteTiff<float>(path + "/none.tif", 2, {nan, inf}, {1});
    auto const labels = WriteTiff<int>(path + "/labels.tif", 4, {1, 1, 1, 0, 0, 1, 1, 0}, {1});
    for (bool const cut : {false, true}) {
        EXPECT_EQ(TableOf(Call({mixed, "--threshold=1", "--properties=area,mean"}), cut),
                  "file,page,label,area,mean,threshold\r\n" + mixed + ",1,1,2,5.5,1\r\n");
        EXPECT_EQ(TableOf(Call({none, "--properties=area"}), cut),
                  "file,page,label,area,threshold\r\n");
        std::tuple<char const*, char const*> const cases[] = {
            {"exclude", "5.5"}, {"include", "nan"}, {"1", "4"}};
        for (auto const& [policy, mean] : cases)
            EXPECT_EQ(TableOf(Call({mixed, "--labels=" + labels, "--properties=area,mean",
                                    std::string("--nan=") + policy}),
                              cut),
                      "file,page,label,area,mean,threshold\r\n" + mixed + ",1,1,5," + mean +
                          ",\r\n");
    }
}

TEST(Objects, LabelsOfAnyKindAreTakenOrRefusedByName)
{
    TestFolder const folder;
    std::string const path = folder.path;
    auto const picture = WriteTiff<unsigned char>(path + "/p.tif", 3, {1, 2, 3}, {1});
    auto const with = [&](std::vector<unsigned> const& values, char const* gaps, bool cut) {
        auto const labels = WriteTiff(path + "/labels.tif", 3, values, {1});
        return TableOf(Call({picture, "--labels=" + labels, gaps, "--properties=area,mean"}), cut);
    };
    std::string const head = "file,page,label,area,mean,threshold\r\n", start = picture + ",1,";
    for (bool const cut : {false, true}) {
        EXPECT_EQ(with({0, 0, 0}, "--gaps=keep", cut), head);
        EXPECT_EQ(with({0, 4000000000U, 7}, "--gaps=drop", cut),
                  head + start + "7,1,3,\r\n" + start + "4000000000,1,2,\r\n");
        EXPECT_EQ(with({2, 0, 2}, "--gaps=keep", cut),
                  head + start + "1,0,nan,\r\n" + start + "2,2,2,\r\n");
    }
    auto const run = [&](std::string const& file) {
        auto const text = RunMeasure("--objects --labels=" + file + " " + picture, errors).text;
        testing::internal::CaptureStderr();
        TableOf(Call({picture, "--labels=" + file}), true);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), text) << "of strips";
        return text;
    };
    auto const negative = WriteTiff<int>(path + "/n.tif", 3, {1, -2, 0}, {1});
    auto const fractions = WriteTiff<float>(path + "/f.tif", 3, {1, 2, 3}, {1});
    auto const high = WriteTiff<unsigned>(path + "/h.tif", 3, {1, 4000000000U, 3}, {1});
    EXPECT_EQ(run(negative), "measure: " + negative +
                                 ": Labels must be whole numbers from 0 on: found -2 at column 1, "
                                 "row 0.\n");
    EXPECT_EQ(run(fractions), "measure: " + fractions +
                                  ": has pixels of type \"float\": labels are whole numbers\n");
    EXPECT_NE(run(high).find(high + ": Label 4000000000 would make as many rows"),
              std::string::npos);
    EXPECT_NE(RunMeasure("--objects --labels=" + path + "/none.tif " + picture)
                  .text.find("none.tif: No such file"),
              std::string::npos);
}

TEST(Objects, APictureThatIsDamagedInALateStripHasNoRows)
{
    TestFolder const folder;
    auto const blobs = Blobs<unsigned char>(60, 200, 8);
    auto const broken =
        WriteTiff(folder.path / "broken.tif", 60, blobs, {20, COMPRESSION_ADOBE_DEFLATE});
    std::fstream file(broken, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<long>(std::filesystem::file_size(broken)) / 2);
    file << std::string(200, '\xFF');
    file.close();
    auto const good = WriteTiff(folder.path / "good.tif", 60, blobs, {20});
    for (bool const cut : {false, true}) {
        bool failed = false, fine = true;
        auto const options = Call({broken, good, "--threshold=40"});
        auto const table = TableOf(options, cut, &failed);
        EXPECT_EQ(table, TableOf(Call({good, "--threshold=40"}), cut, &fine));
        EXPECT_TRUE(failed);
        EXPECT_FALSE(fine);
    }
}

TEST(Objects, AStreamThatIsStoppedHasTheObjectsThatAreComplete)
{
    TestFolder const folder;
    auto const file = WriteTiff(folder.path / "p.tif", 60, Blobs<unsigned char>(60, 200, 12), {20});
    auto options = Call({file, "--threshold=45", "--properties=all"});
    auto const all = RowsOf(TableOf(options, false), folder);
    options.strip_bytes = 600;
    auto const reader = OpenPicture(file);
    PageHeader header;
    ASSERT_TRUE(reader->NextPage(header));
    PageStream stream(*reader, header, nullptr, {}, options);
    std::shared_ptr<Strip> strip;
    for (int strips = 0; strips < 10; ++strips) {
        stream.NextJob(strip)->Run();
        stream.Done(*strip);
    }
    EXPECT_FALSE(stream.Finished());
    auto const page = std::make_shared<PageResult>();
    page->file = file;
    page->found = stream.Result();
    std::ostringstream out;
    options.format = "csv";
    PrintResults(out, {page}, options);
    auto const part = RowsOf(out.str(), folder);
    EXPECT_GT(part.size(), 20U);
    EXPECT_LT(part.size(), all.size());
    for (TruthRow row : part) { // numbers are those of the table that is there
        row.erase("label");
        EXPECT_TRUE(std::ranges::any_of(all, [&](TruthRow other) {
            other.erase("label");
            return other == row;
        })) << row["first"];
    }
}

TEST(Objects, PicturesOfThemReadBack)
{
    TestFolder const folder;
    std::string const path = folder.path;
    auto const picture = WriteTiff(path + "/p.tif", 90, Blobs<unsigned char>(90, 60, 9), {60});
    ASSERT_EQ(RunMeasure("--objects --threshold=34 --save-labels=" + path + "/l.tif " +
                         "--save-outlines=" + path + "/o.tif " + picture)
                  .status,
              0);
    for (auto const& entry : std::filesystem::directory_iterator(folder.path))
        EXPECT_EQ(entry.path().extension(), ".tif") << "a temporary file is left";
    auto const cut_threshold = [](std::string table) {
        std::string result;
        std::istringstream lines(table);
        for (std::string line; std::getline(lines, line);)
            result += line.substr(0, line.rfind(',')) + '\n';
        return result;
    };
    EXPECT_EQ(cut_threshold(TableOf(Call({picture, "--labels=" + path + "/l.tif"}), false)),
              cut_threshold(TableOf(Call({picture, "--threshold=34"}), false)));
    Page labels, outlines;
    ReadPage(*OpenPicture(path + "/l.tif"), labels);
    ReadPage(*OpenPicture(path + "/o.tif"), outlines);
    auto const* const label = reinterpret_cast<unsigned short const*>(labels.bytes.get());
    for (long i = 0; i < 90L * 60; ++i) {
        bool border = i % 90 == 0 || i % 90 == 89 || i < 90 || i >= 90L * 59;
        for (long const step : {-90L, -1L, 1L, 90L})
            border = border || label[i + step] != label[i];
        ASSERT_EQ(outlines.bytes[static_cast<std::size_t>(i)], label[i] && border ? 255 : 0) << i;
    }
}

TEST(Objects, OutlinesEncloseTheirPixels)
{
    std::mt19937 dice(10);
    for (int round = 0; round < 200; ++round) {
        LabelRuns objects{
            1 + static_cast<unsigned>(dice() % 9), 1 + static_cast<unsigned>(dice() % 9), 3, {}};
        std::vector<long> area(4), enclosed(4);
        for (unsigned y = 0; y < objects.height; ++y)
            for (unsigned x = 0; x < objects.width; ++x)
                if (unsigned const label = dice() % 4) {
                    objects.runs.push_back({y, x, x + 1, label});
                    area[label] += 2;
                }
        for (Loop const& loop : TraceOutlines(objects)) {
            auto const& c = loop.corners;
            for (std::size_t i = 0; i < c.size(); i += 2) {
                std::size_t const j = (i + 2) % c.size();
                EXPECT_TRUE((c[i] == c[j]) != (c[i + 1] == c[j + 1])) << "along the edges";
                enclosed[loop.label] += long{c[i]} * c[j + 1] - long{c[j]} * c[i + 1];
            }
        }
        EXPECT_EQ(enclosed, area); // twice, of holes negative
    }
}

TEST(Objects, AScaleIsReadFromWhatTheFileSays)
{
    char const ome[] = "<OME><Pixels PhysicalSizeX=\"0.65\" PhysicalSizeXUnit=\"\xC2\xB5m\" "
                       "PhysicalSizeY=\"0.7\" PhysicalSizeYUnit=\"\xC2\xB5m\"/></OME>";
    struct {
        TiffResolution resolution;
        char const* description;
        double x, y;
        char const *unit, *source;
    } const cases[] = {
        {{2, 2, 1}, ome, 0.65, 0.7, "um", "its OME description"},
        {{4, 2, 1}, "ImageJ=1.53\nunit=micron\n", 0.25, 0.5, "um", "its ImageJ description"},
        {{4, 4, 1}, "ImageJ=1.53\nunit=mm\n", 0.25, 0.25, "mm", "its ImageJ description"},
        {{254, 508, 2}, "", 100, 50, "um", "its TIFF resolution"},
        {{100, 100, 3}, "", 100, 100, "um", "its TIFF resolution"},
        {{1, 1, 1}, "ImageJ=1.53\nunit=pixel\n", 1, 1, "", ""},
        {{0, 0, 2}, "<OME PhysicalSizeX=\"no\"", 1, 1, "", ""}};
    for (auto const& c : cases) {
        auto const scale = ScaleOfTiff(c.resolution, c.description);
        SCOPED_TRACE(c.description);
        EXPECT_EQ(scale.unit, c.unit);
        EXPECT_EQ(scale.source, c.source);
        EXPECT_DOUBLE_EQ(scale.x, c.x);
        EXPECT_DOUBLE_EQ(scale.y, c.y);
    }
    TestFolder const folder;
    auto const file = WriteTiff<unsigned char>(folder.path / "ome.tif", 2, {9, 9, 0, 0},
                                               {1, COMPRESSION_NONE, "w", ome});
    auto const rows = RowsOf(TableOf(Call({file, "--threshold=1"}), false), folder);
    EXPECT_DOUBLE_EQ(Number(rows[0].at("area")), 2 * 0.65 * 0.7);
    EXPECT_DOUBLE_EQ(Number(rows[0].at("x")), 0.5 * 0.65);
    EXPECT_EQ(rows[0].at("unit"), "um");
    EXPECT_EQ(
        RowsOf(TableOf(Call({file, "--threshold=1", "--pixel-size=none"}), false), folder)[0].at(
            "area"),
        "2");
}

/// skimage and the readers of other forms look at what the program prints.
TEST(Objects, AgreeWithAnotherProgram)
{
    if (RunProgram("/usr/bin/python3 -c 'import skimage, numpy' 2>&1").status != 0)
        GTEST_SKIP() << "python3-skimage is not installed";
    auto const outcome = RunProgram("/usr/bin/python3 -B " MEMBLOCK_SOURCE_ROOT
                                    "/tests/examples/compare_objects.py '" MEASURE_PROGRAM "' '" +
                                    TestData().string() + "' 2>&1");
    EXPECT_EQ(outcome.status, 0) << outcome.text;
}

} // namespace
