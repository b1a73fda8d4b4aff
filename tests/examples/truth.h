#ifndef MEMBLOCK_TESTS_EXAMPLES_TRUTH_H
#define MEMBLOCK_TESTS_EXAMPLES_TRUTH_H

#include <support/testdata.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

/// One row of a table: column name to text.
using TruthRow = std::map<std::string, std::string>;

/// The rows of a table of the truth, in its order.
inline std::vector<TruthRow> ReadRows(std::filesystem::path const& file)
{
    auto const split = [](std::string const& line) {
        std::vector<std::string> fields;
        std::istringstream stream(line);
        for (std::string field; std::getline(stream, field, ',');)
            fields.push_back(field);
        return fields;
    };
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    auto const names = split(line);
    std::vector<TruthRow> rows;
    while (std::getline(stream, line)) {
        auto const fields = split(line);
        for (std::size_t i = rows.emplace_back().size(); i < fields.size(); ++i)
            rows.back()[names[i]] = fields[i];
    }
    return rows;
}

/// The rows by picture name, such as "mitotic_8", "retina_rgb_r" or "spheres_stack_8_z03".
inline std::map<std::string, TruthRow> ReadTruth(std::filesystem::path const& file)
{
    std::map<std::string, TruthRow> rows;
    for (auto const& row : ReadRows(file))
        rows[row.at("picture")] = row;
    return rows;
}

/// The file that a row of the truth tells of, and which of its pages or planes: 3 of
/// "spheres_stack_8_z03".
inline std::pair<std::filesystem::path, std::size_t> PictureOf(std::string name)
{
    std::size_t page = 0;
    if (auto const z = name.find("_z0"); z != std::string::npos) {
        page = static_cast<std::size_t>(name[z + 3] - '0');
        name.resize(z);
    }
    if (auto const average = name.find("_average"); average != std::string::npos)
        name.resize(average);
    auto path = TestData() / (name + ".pgm");
    if (!exists(path))
        path = TestData() / (name + ".ppm");
    return {path, page};
}

/// Not by strtod: the suite also runs under a decimal comma.
inline double Number(std::string const& text)
{
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

#endif // MEMBLOCK_TESTS_EXAMPLES_TRUTH_H
