#include "program.h"

#include <support/testdata.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

class MeasureProgram : public testing::Test {
protected:
    MeasureProgram() { fs::create_directory(folder_); }
    ~MeasureProgram() override { fs::remove_all(folder_); }

    std::string File(std::string const& name, std::string const& contents) const
    {
        std::ofstream(folder_ / name, std::ios::binary) << contents;
        return (folder_ / name).string();
    }

    fs::path const folder_ =
        fs::temp_directory_path() / ("measure_test." + std::to_string(getpid()));
};

TEST_F(MeasureProgram, PrintsEachPageWithRawAndCookedValues)
{
    auto const path =
        File("two.pgm", "P5 3 1 255\n\x03\x01\x02P5 # one pixel\n1 1\n65535\n\x01\x02");
    auto const outcome = RunMeasure("--factor=0.5 " + path);
    EXPECT_EQ(outcome.status, 0);
    for (char const* line :
         {"two.pgm, page 1, 3 x 1\n", "  element type    byte\n", "  length          3\n",
          "  raw factor      0.5\n", "  minimum         1 at 1  (cooked 0.5)\n",
          "  maximum         3 at 0  (cooked 1.5)\n", "  mean            2  (cooked 1)\n",
          "two.pgm, page 2, 1 x 1\n", "  element type    unsigned short\n",
          "  median          258  (cooked 129)\n"})
        EXPECT_NE(outcome.text.find(line), std::string::npos) << line << "in\n" << outcome.text;
}

TEST_F(MeasureProgram, MeasuresAPictureOfItsOwnWithoutAFile)
{
    auto const outcome = RunMeasure("");
    EXPECT_EQ(outcome.status, 0);
    // 64 x 64 cells have 16 discs; the lowest background is 100, in the first pixel.
    EXPECT_NE(outcome.text.find("minimum         100 at 0\n"), std::string::npos) << outcome.text;
}

TEST_F(MeasureProgram, PrintsTablesInTheFormAskedFor)
{
    auto const path = File("four.pgm", "P5 5 4 255\n" + std::string(6, '\1') + "\x9\7\1\7" +
                                           std::string(10, '\1'));
    std::tuple<char const*, char const*> const cases[] = {
        {"--format=text", "1 grey             5            4 byte            1"},
        {"--format=xml", R"(<a n="block" t="s">grey</a><a n="width" t="i">5</a>)"},
        {"--format=html", "<tr><th>file</th><th>page</th><th>block</th>"},
        {"--format=json", R"("minimum": 1, "minimum_at": 0, "maximum": 9)"},
        {"--format=tsv", "\t1\tgrey\t5\t4\tbyte\t1\t1\t0\t9\t6\t"},
        {"--objects --properties=area,first,sum --format=csv", "four.pgm,1,1,2,6,16,1\r\n"},
        {"--objects --properties=area --format=csv --factor=2", ",1,1,2,2,1\r\n"},
        {"--objects --properties=area,mean --format=csv --factor=2", ",1,1,2,16,2,1\r\n"},
        {"--objects --summary --properties=area --format=csv",
         ",1,5,4,2,3,0.15,1.5,0.7071067811865476,1.5,1\r\n"},
        {"--objects --format=html --threshold=6 --pixel-size=2um",
         "<th>area <small>um2</small></th>"},
        {"--version", "measure (memblock) 2."},
        {"-h", "Usage: measure "},
    };
    for (auto const& [arguments, wanted] : cases) {
        auto const outcome = RunMeasure(std::string(arguments) + " " + path);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.text.find(wanted), std::string::npos) << wanted << "in\n" << outcome.text;
    }
    auto const labels = File("labels.pgm", "P5 2 1 255\n12");
    EXPECT_EQ(RunMeasure("--objects --labels=" + labels + " " + path, errors).text,
              "measure: " + labels + ": has 2 x 1 pixels in page 1, and '" + path +
                  "' has 5 x 4 pixels: give one of the same size\n");
    auto const stack = File("stack.pgm", "P5 2 1 255\n12P5 2 1 255\n34");
    EXPECT_EQ(RunMeasure("--objects --and=" + labels + " " + stack, errors).text,
              "measure: " + labels + ": has 1 page, and '" + stack +
                  "' has 2 pages: give one for each\n");
}

TEST_F(MeasureProgram, ABadFileGetsOneLineAndTheOthersAreStillMeasured)
{
    std::string const png("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);
    std::pair<std::string, std::string> const cases[] = {
        {File("empty", ""), "is empty"},
        {File("text", "hello, world"), "is no TIFF, PNG or binary PNM file"},
        {File("cut.pgm", "P5 4 4 255\n123"),
         "is cut off or damaged: 16 bytes of pixels in 3 bytes of file"},
        {File("huge.pgm", "P5 99999999999 99999 255\n123"),
         "is too large: 2147483648 x 99999 pixels"},
        {File("none.pgm", "P5 0 4 255\n123"), "has no pixels"},
        {File("header.pgm", "P5 4 x 255\n123"), "has a broken PNM header"},
        {File("level.pgm", "P5 1 1 70000\n123"), "has a broken PNM header"},
        {File("cut.png", png), "is cut off or damaged: "},
        {File("cut.tif", std::string("II*\0\x08\0\0\0", 8)), "is cut off or damaged: "},
        {(folder_ / "missing").string(), "No such file or directory"},
        {folder_.string(), "Is a directory"},
    };
    auto const good = File("good.pgm", "P5 1 1 255\n\x05");
    for (auto const& [path, reason] : cases) {
        SCOPED_TRACE(path);
        auto const outcome = RunMeasure(path + " " + good, errors);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.text.find("measure: " + path + ": " + reason), 0u) << outcome.text;
        EXPECT_EQ(outcome.text.find('\n'), outcome.text.size() - 1) << outcome.text;
        EXPECT_NE(RunMeasure(path + " " + good).text.find("maximum         5 at 0"),
                  std::string::npos);
    }
}

TEST_F(MeasureProgram, ACallThatIsNotUnderstoodExitsWith2)
{
    for (char const* arguments : {"--factor=0",
                                  "--factor",
                                  "--factor=-1",
                                  "--factor=x",
                                  "--nan=perhaps",
                                  "--colour=red",
                                  "--threshold=high",
                                  "--touch=6",
                                  "--format=pdf",
                                  "--threads=-1",
                                  "--threads=2x",
                                  "--threads=1025",
                                  "--dark",
                                  "--labels=x.pgm",
                                  "--summary",
                                  "--objects --properties=size",
                                  "--objects --pixel-size=0.5",
                                  "--objects --min-area=-1",
                                  "--objects --save-labels=x.png",
                                  "--objects --save-labels=x.tif a b",
                                  "--objects --labels=a --dark",
                                  "--quiet=1"}) {
        SCOPED_TRACE(arguments);
        auto const outcome = RunMeasure(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_NE(outcome.text.find("see measure --help"), std::string::npos) << outcome.text;
    }
}

TEST_F(MeasureProgram, EveryCutOfARealFileFailsCleanly)
{
    NEED_TEST_DATA();
    for (char const* name : {"mitotic_8.tif", "nuclei_dsb_8.png", "spheres_stack_8.pgm"}) {
        auto const path = (folder_ / name).string();
        fs::copy_file(TestData() / name, path);
        for (double const share : {0.999, 0.5, 0.01}) {
            fs::resize_file(path, static_cast<std::uintmax_t>(fs::file_size(path) * share));
            for (char const* const objects : {"", "--objects "}) {
                auto const outcome = RunMeasure(objects + path, errors);
                SCOPED_TRACE(outcome.text);
                EXPECT_EQ(outcome.status, 1);
                EXPECT_EQ(outcome.text.find("measure: " + path + ": is cut off or damaged: "), 0u);
                EXPECT_EQ(outcome.text.find('\n'), outcome.text.size() - 1);
            }
        }
    }
}

std::string Read(fs::path const& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(MeasureProgram, AnyNumberOfThreadsGivesTheSame)
{
    std::string pages;
    for (int i = 0; i < 40; ++i)
        pages += "P5 5 4 255\n" + std::string(6, '\1') + static_cast<char>(40 + i) + "\7\1\7" +
                 std::string(10, '\2');
    auto const files = File("many.pgm", pages) + " " + File("cut.pgm", pages + "P5 9 9") + " " +
                       File("rgb.ppm", "P6 1 1 255\nabc");
    for (std::string const form : {"", "--format=text", "--format=xml", "--objects --zones",
                                   "--objects --summary --format=json"}) {
        auto const one = RunMeasure("--threads=1 " + form + " " + files);
        EXPECT_EQ(one.status, 1);
        EXPECT_GT(one.text.size(), 1000U);
        for (std::string const threads : {"0", "4"}) {
            auto const other = RunMeasure("--threads=" + threads + " " + form + " " + files);
            EXPECT_EQ(other.text, one.text) << threads << " threads, " << form;
        }
    }
}

TEST_F(MeasureProgram, AsksOnceBeforeItOverwritesAFile)
{
    auto const file = File("out.txt", "old");
    struct {
        char const *answer, *option;
        int status;
        bool asked, written;
    } const cases[] = {{"n", "", 1, true, false},
                       {"", "", 1, true, false},
                       {"yes", "", 0, true, true},
                       {"", "--force", 0, false, true}};
    for (auto const& c : cases)
        for (char const* threads : {"0", "2"}) {
            File("out.txt", "old");
            auto const input = File("in.txt", c.answer);
            auto const outcome =
                RunMeasure(std::string(c.option) + " --threads=" + threads + " --output=" + file,
                           ("2>&1 <" + input).c_str());
            SCOPED_TRACE(outcome.text);
            EXPECT_EQ(outcome.status, c.status);
            auto const question = outcome.text.find("exists, overwrite? [y/N] ");
            EXPECT_EQ(question != std::string::npos, c.asked);
            EXPECT_EQ(outcome.text.find("overwrite?"), outcome.text.rfind("overwrite?"));
            EXPECT_EQ(Read(file).find("(a picture made here)") == 0, c.written);
        }
}

TEST_F(MeasureProgram, CtrlCPrintsTheRowsThatAreFinished)
{
    constexpr int many = 4000;
    auto const file = File("page.pgm", "P5 300 300 255\n" + std::string(90'000, 'x'));
    for (char const* threads : {"--threads=0", "--threads=2"}) {
        int messages[2];
        ASSERT_EQ(pipe(messages), 0);
        auto const rows = File("rows.txt", "");
        pid_t const child = fork();
        if (child == 0) {
            dup2(messages[1], STDERR_FILENO);
            dup2(open(rows.c_str(), O_WRONLY), STDOUT_FILENO);
            close(messages[0]);
            std::vector<char const*> arguments(many, file.c_str());
            arguments.insert(arguments.begin(), {"measure", "--format=text", threads});
            arguments.push_back(nullptr);
            execv(MEASURE_PROGRAM, const_cast<char* const*>(arguments.data()));
            _exit(99);
        }
        close(messages[1]);
        std::FILE* const lines = fdopen(messages[0], "r");
        char line[1000] = "", last[1000] = "";
        EXPECT_TRUE(std::fgets(line, sizeof line, lines)); // one page is measured
        EXPECT_NE(std::string(line).find("done, 1 page in all"), std::string::npos) << line;
        kill(child, SIGINT);
        while (std::fgets(line, sizeof line, lines))
            std::copy(line, line + sizeof line, last);
        std::fclose(lines);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), 130);
        EXPECT_STREQ(last, "measure: interrupted\n");
        auto const text = Read(rows);
        auto const count = std::count(text.begin(), text.end(), '\n') - 1; // but for the names
        EXPECT_GE(count, 1);
        EXPECT_LT(count, many);
    }
}

} // namespace
