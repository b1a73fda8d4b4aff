#include "program.h"

#include <measure/reportpage.h>
#include <support/testdata.h>

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class MeasureReport : public testing::Test {
protected:
    MeasureReport() { fs::create_directory(folder_); }
    ~MeasureReport() override { fs::remove_all(folder_); }

    static std::string Contents(fs::path const& path)
    {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    fs::path const folder_ =
        fs::temp_directory_path() / ("report_test." + std::to_string(getpid()));
};

/// What a browser without a window makes of a page, its scripts run, and what its console says.
Outcome Browse(fs::path const& page)
{
    return RunProgram("chromium --headless --no-sandbox --disable-gpu --user-data-dir='" +
                      (page.parent_path() / "profile").string() +
                      "' --enable-logging=stderr --virtual-time-budget=5000 --dump-dom 'file://" +
                      page.string() + "' 2>&1");
}

bool HasBrowser()
{
    return RunProgram("command -v chromium").status == 0;
}

std::ptrdiff_t Count(std::string const& text, std::string const& pattern)
{
    std::regex const regex(pattern);
    return std::distance(std::sregex_iterator(text.begin(), text.end(), regex), {});
}

TEST_F(MeasureReport, IsOnePageAFileWithASectionAPlaneAndARowAnObject)
{
    auto const picture = folder_ / "a<b&c.pgm";
    std::ofstream(picture, std::ios::binary) << "P5 6 4 255\n" + std::string(6, '\0') +
                                                    std::string("\0\5\0\0\7\0", 6) +
                                                    std::string(12, '\0') + "P5 1 1 255\n\3";
    auto const pages = (folder_ / "new/pages").string();
    EXPECT_EQ(RunMeasure("--report='" + pages + "' '" + picture.string() + "'").status, 0);
    std::string const page = Contents(fs::path(pages) / "a<b&c.pgm.html");
    EXPECT_EQ(Count(page, "<section>"), 2);
    EXPECT_EQ(Count(page, "\"outlines\":\\[\\[\\["), 2) << "an object in each";
    EXPECT_EQ(Count(page, "a&lt;b&amp;c.pgm"), 2) << "in the title and above the page";
    EXPECT_EQ(Count(page, "(src|href)=\"(?!data:)"), 0) << "needs another file";

    auto const blocked =
        RunMeasure("--report='" + picture.string() + "' '" + picture.string() + "'", errors);
    EXPECT_EQ(blocked.status, 1);
    EXPECT_NE(blocked.text.find("cannot write to "), std::string::npos) << blocked.text;
}

TEST_F(MeasureReport, PagesOfNamesakesDiffer)
{
    std::vector<std::string> const files{"x/a.png", "y/a.png", "a.tif", "x/a.png", "z/a.png"};
    EXPECT_EQ(measure::ReportName(files, "x/a.png"), "a.png.html");
    EXPECT_EQ(measure::ReportName(files, "y/a.png"), "a.png-2.html");
    EXPECT_EQ(measure::ReportName(files, "z/a.png"), "a.png-3.html");
    EXPECT_EQ(measure::ReportName(files, "a.tif"), "a.tif.html");
}

TEST_F(MeasureReport, OpensInABrowserAndSortsItsRows)
{
    NEED_TEST_DATA();
    if (!HasBrowser()) {
        ASSERT_EQ(std::getenv("CI"), nullptr) << "no browser to look at the page with";
        GTEST_SKIP() << "no browser to look at the page with";
    }
    auto const path = folder_ / "nuclei_dsb_8.png.html";
    ASSERT_EQ(RunMeasure("--report='" + folder_.string() + "' '" +
                         (TestData() / "nuclei_dsb_8.png").string() + "'")
                  .status,
              0);
    // The same page, whose reader sorts by area twice, clicks on the first row, then into the
    // picture after zooming.
    std::ofstream(path, std::ios::app) << R"~(<script>
const section = document.querySelector("section"), {model, picture} = section;
const head = section.querySelectorAll("th")[1];
head.click();
head.click();
const row = section.querySelector("tr[data-row]");
row.cells[0].click();
const selected = model.cells[0][model.selected];
const before = picture.zoom;
section.querySelector(".buttons button").click();
const zoomed = picture.zoom > before;
const box = picture.canvas.getBoundingClientRect();
const wanted = 7; // its first pixel is inside
const first = model.cells[model.names.indexOf("first")][wanted];
const at = {clientX: box.left + picture.x + (first % 256 + 0.5) * picture.zoom,
            clientY: box.top + picture.y + (Math.floor(first / 256) + 0.5) * picture.zoom,
            pointerId: 1, bubbles: true};
picture.canvas.dispatchEvent(new PointerEvent("pointerdown", at));
picture.canvas.dispatchEvent(new PointerEvent("pointerup", at));
document.title = [section.querySelector(".rows").dataset.objects, row.cells[1].textContent,
                  row.cells[0].textContent == selected, zoomed, model.selected === wanted,
                  document.title].join(" ");
</script>)~";
    auto const seen = Browse(path);
    EXPECT_EQ(Count(seen.text, ":CONSOLE"), 0) << "messages on the console:\n" << seen.text;
    EXPECT_EQ(Count(seen.text, "<title>50 848 true true true nuclei_dsb_8.png</title>"), 1)
        << seen.text.substr(seen.text.find("<title>"), 100);
}

} // namespace
