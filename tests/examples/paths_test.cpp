#include "program.h"

#include <support/testdata.h>

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <tuple>

namespace {

Outcome RunPaths(std::string const& arguments)
{
    return RunProgram("'" PATHS_PROGRAM "' " + arguments + " 2>&1");
}

std::string Documentation()
{
    std::ostringstream text;
    text << std::ifstream(std::string(MEMBLOCK_SOURCE_ROOT) + "/docs/paths.md").rdbuf();
    return text.str();
}

TEST(PathsProgram, AnswersWhatItIsGiven)
{
    std::tuple<char const*, char const*> const cases[] = {
        {"table.a.@mean", "3.5 (floating-point)\n"},
        {"'table.a.0=7' table.a.0", "done\n7 (floating-point)\n"},
        {"'note=\"12\"' note", "done\n12\n"},
        {"table.a.@class=x",
         "failed: Cannot set item \"@class\" (\"x\" (string)) in a vector object. (code 128)\n"},
        {"image.width", "8 (integer)\n"},
        {"'image.@slice:0:3'", "Vector of 3 elements of type byte: 0, 1, 2\n"},
        {"'image.0=0' image.type=mask image.vector.area", "done\ndone\n47 (integer)\n"},
        {"nothing image.width", "failed: Subkey not found: nothing (code 256)\n8 (integer)\n"},
    };
    for (auto const& [arguments, wanted] : cases) {
        auto const outcome = RunPaths(std::string("- ") + arguments);
        EXPECT_EQ(outcome.text, wanted);
        EXPECT_EQ(outcome.status, outcome.text.find("failed") == std::string::npos ? 0 : 1);
    }
}

TEST(PathsProgram, AnswersLinesUntilTheirEnd)
{
    auto const outcome = RunProgram("printf ' note.length \\n\\nnothing\\nimage.3,4' | "
                                    "'" PATHS_PROGRAM "' - 2>&1");
    EXPECT_EQ(outcome.text,
              "6 (integer)\nfailed: Subkey not found: nothing (code 256)\n35 (integer)\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST(PathsProgram, ShowsTheStepsAsThePageOfPathsDoes)
{
    auto const outcome = RunPaths("--steps - table.a.@mean");
    std::istringstream lines(outcome.text);
    std::string block;
    for (std::string line; std::getline(lines, line);)
        block += "    " + line + '\n';
    EXPECT_NE(Documentation().find(block), std::string::npos) << block;
}

TEST(PathsProgram, OpensPicturesAndStacks)
{
    NEED_TEST_DATA();
    std::tuple<char const*, char const*, char const*> const cases[] = {
        {"nuclei_dsb_8.png", "@class width", "image\n256 (integer)\n"},
        {"nuclei_dsb_8.png", "type=mask vector.area", "done\n65536 (integer)\n"},
        {"retina_rgb.png", "elemsize", "3 (integer)\n"},
        {"spheres_stack_8.tif", "@class depth 2,3,4", "datacube\n6 (integer)\n137 (integer)\n"},
    };
    for (auto const& [file, paths, wanted] : cases)
        EXPECT_EQ(RunPaths("'" + (TestData() / file).string() + "' " + paths).text, wanted);
}

TEST(PathsProgram, TellsWhatItCannotOpenAndWhatItDoesNotUnderstand)
{
    EXPECT_EQ(RunPaths("/nowhere x").text, "paths: /nowhere: No such file or directory\n");
    EXPECT_EQ(RunPaths("/nowhere x").status, 1);
    for (char const* arguments : {"", "--colour", "--steps"})
        EXPECT_EQ(RunPaths(arguments).status, 2);
    EXPECT_EQ(RunPaths("--help").status, 0);
}

} // namespace
