#include <measure/results.h>

#include <memblock/measure/properties.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace measure {

using namespace NKelmic;

namespace {

Property const* PropertyOf(std::string name)
{
    for (char const* const zone : {"dark_", "bright_"})
        if (name.starts_with(zone))
            name.erase(0, std::string(zone).size());
    auto const all = Properties();
    auto const found = std::ranges::find(all, name, &Property::name);
    return found == all.end() ? nullptr : &*found;
}

/// The unit of all pages, if they have the same one.
std::string CommonUnit(Results const& results)
{
    std::string const unit = results.empty() ? "" : results.front()->found.scale.unit;
    bool const common = std::ranges::all_of(
        results, [&](auto const& page) { return page->found.scale.unit == unit; });
    return common ? unit : "";
}

/// The columns behind the measured ones: a page has the same values in all of its rows.
class PageEnd {
public:
    PageEnd(Results const& results, Options const& options)
        : scaled_(std::ranges::any_of(results,
                                      [](auto const& page) { return page->found.scale.Known(); })),
          factor_(options.factor)
    {
    }
    void AddColumns(std::vector<Column>& columns) const
    {
        if (scaled_)
            columns.insert(columns.end(),
                           {{"pixel_width", ""}, {"pixel_height", ""}, {"unit", ""}});
        if (factor_ != 1)
            columns.push_back({"factor", ""});
        columns.push_back({"threshold", ""});
    }
    void AddCells(PageObjects const& page, std::vector<Cell>& row) const
    {
        if (scaled_) {
            row.emplace_back(page.scale.x);
            row.emplace_back(page.scale.y);
            row.emplace_back(page.scale.Known() ? page.scale.unit : std::string("pixel"));
        }
        if (factor_ != 1)
            row.emplace_back(factor_);
        if (page.threshold)
            row.emplace_back(*page.threshold);
        else
            row.emplace_back();
    }

private:
    bool scaled_;
    double factor_;
};

/// A column of a table, as cells.
class CellColumn {
public:
    CellColumn(Table const& table, int index)
        : vector_(table.Column(index)), whole_(cref(vector_).ElemType() == DataTypeBase::Int64)
    {
    }
    Cell operator[](int row) const
    {
        Vector const& v = cref(vector_);
        if (whole_)
            return v.TypedPointer<long long>()[row];
        return v.DoublePointer()[row];
    }
    double Number(int row) const
    {
        Vector const& v = cref(vector_);
        return whole_ ? static_cast<double>(v.TypedPointer<long long>()[row])
                      : v.DoublePointer()[row];
    }

private:
    DerivedPointer<Vector> vector_;
    bool whole_;
};

std::vector<CellColumn> ColumnsOf(Table const& table)
{
    std::vector<CellColumn> columns;
    columns.reserve(table.Length());
    for (int c = 0; c < table.ColumnCount(); ++c)
        columns.emplace_back(table, c);
    return columns;
}

/// The values of a column that are numbers.
std::vector<double> NumbersOf(Table const& table, std::string const& name)
{
    std::vector<double> numbers;
    int const index = table.ColumnIndex(name.c_str());
    if (index < 0)
        return numbers;
    CellColumn const column(table, index);
    for (int row = 0; row < table.RowCount(); ++row)
        if (double const value = column.Number(row); !std::isnan(value))
            numbers.push_back(value);
    return numbers;
}

double Sum(std::vector<double> const& values)
{
    double sum = 0;
    for (double const v : values)
        sum += v;
    return sum;
}

double Mean(std::vector<double> const& values)
{
    return Sum(values) / static_cast<double>(values.size()); // NaN of none
}

double Deviation(std::vector<double> const& values)
{
    double const mean = Mean(values);
    double squares = 0;
    for (double const v : values)
        squares += (v - mean) * (v - mean);
    return std::sqrt(squares / (static_cast<double>(values.size()) - 1));
}

double Median(std::vector<double> values)
{
    if (values.empty())
        return std::numeric_limits<double>::quiet_NaN();
    std::ranges::sort(values);
    std::size_t const n = values.size();
    return (values[(n - 1) / 2] + values[n / 2]) / 2;
}

/// Columns whose mean over the objects of a page means something: no places, numbers or angles.
std::vector<std::string> AveragedColumns(Table const& table)
{
    std::vector<std::string> names;
    for (int c = 0; c < table.ColumnCount(); ++c) {
        std::string const name = table.ColumnName(c).c_str();
        Property const* const property = PropertyOf(name);
        bool const place = name == "x" || name == "y" || name == "wx" || name == "wy";
        if (property && !place && property->unit != Property::pixels &&
            property->unit != Property::angle && name != "at_edge")
            names.push_back(name);
    }
    return names;
}

DerivedPointer<Table> AnyTable(Results const& results, Options const& options)
{
    return results.empty() ? NoObjects(options) : results.front()->found.table;
}

} // namespace

std::string UnitOf(std::string const& column, std::string const& length_unit)
{
    Property const* const property = PropertyOf(column);
    if (!property)
        return "";
    switch (property->unit) {
    case Property::length:
        return length_unit;
    case Property::size:
        return length_unit.empty() ? "" : length_unit + "2";
    case Property::angle:
        return "rad";
    case Property::number:
    case Property::pixels:
    case Property::value:
        break;
    }
    return "";
}

std::vector<Column> PageColumns()
{
    std::vector<Column> columns;
    for (char const* const name : {"file", "page", "block", "width", "height", "type", "factor",
                                   "minimum", "minimum_at", "maximum", "maximum_at", "mean",
                                   "stddev", "sum", "lower_quartile", "median", "upper_quartile"})
        columns.push_back({name, ""});
    return columns;
}

std::vector<Cell> PageRow(std::string const& file, int page, PageHeader const& header,
                          Block const& block, Policies const& policies)
{
    Vector const& vector = cref(block.vector);
    Measures const m = Measure(block.vector, policies);
    return {file,
            static_cast<long long>(page),
            block.name,
            static_cast<long long>(header.width),
            static_cast<long long>(header.height),
            std::string(TypeToString(vector.ElemType())),
            vector.Factor(),
            m.minimum.value,
            static_cast<long long>(m.minimum.index),
            m.maximum.value,
            static_cast<long long>(m.maximum.index),
            m.mean,
            m.stddev,
            m.sum,
            m.lower_quartile,
            m.median,
            m.upper_quartile};
}

void WriteObjects(Results const& results, Options const& options, TableForm& form)
{
    PageEnd const end(results, options);
    std::string const unit = CommonUnit(results);
    std::vector<Column> columns{{"file", ""}, {"page", ""}};
    auto const any = AnyTable(results, options);
    Table const& first = cref(any);
    for (int c = 0; c < first.ColumnCount(); ++c) {
        std::string const name = first.ColumnName(c).c_str();
        columns.push_back({name, UnitOf(name, unit)});
    }
    end.AddColumns(columns);
    form.Begin(columns);
    std::vector<Cell> row;
    for (auto const& page : results) {
        Table const& table = cref(page->found.table);
        auto const measured = ColumnsOf(table);
        for (int r = 0; r < table.RowCount(); ++r) {
            row.clear();
            row.emplace_back(page->file);
            row.emplace_back(static_cast<long long>(page->page));
            for (CellColumn const& column : measured)
                row.push_back(column[r]);
            end.AddCells(page->found, row);
            form.Row(row);
        }
    }
    form.End();
}

void WriteSummary(Results const& results, Options const& options, TableForm& form)
{
    PageEnd const end(results, options);
    std::string const unit = CommonUnit(results), area_unit = UnitOf("area", unit);
    std::vector<Column> columns{
        {"file", ""}, {"page", ""}, {"width", ""}, {"height", ""}, {"objects", ""}};
    auto const any = AnyTable(results, options);
    auto const averaged = AveragedColumns(cref(any));
    bool const has_area = std::ranges::find(averaged, "area") != averaged.end();
    if (has_area)
        columns.insert(columns.end(), {{"total_area", area_unit},
                                       {"covered", ""},
                                       {"median_area", area_unit},
                                       {"stddev_area", area_unit}});
    for (std::string const& name : averaged)
        columns.push_back({"mean_" + name, UnitOf(name, unit)});
    end.AddColumns(columns);
    form.Begin(columns);
    for (auto const& page : results) {
        PageObjects const& found = page->found;
        Table const& table = cref(found.table);
        std::vector<Cell> row;
        row.emplace_back(page->file);
        for (auto const whole : {static_cast<unsigned long>(page->page), found.width, found.height,
                                 static_cast<unsigned long>(std::max(0, table.RowCount()))})
            row.emplace_back(static_cast<long long>(whole));
        if (has_area) {
            auto const areas = NumbersOf(table, "area");
            double const pixel = found.scale.x * found.scale.y;
            double const whole =
                static_cast<double>(found.width) * static_cast<double>(found.height) * pixel;
            for (double const value :
                 {Sum(areas), Sum(areas) / whole, Median(areas), Deviation(areas)})
                row.emplace_back(value);
        }
        for (std::string const& name : averaged)
            row.emplace_back(Mean(NumbersOf(table, name)));
        end.AddCells(found, row);
        form.Row(row);
    }
    form.End();
}

void PrintResults(std::ostream& out, Results const& results, Options const& options)
{
    bool const objects = options.objects.wanted;
    if (!objects && options.format.empty()) {
        for (auto const& page : results)
            out << page->lines;
        return;
    }
    std::string const title = options.files.size() == 1 ? options.files.front() : "measure";
    auto const form = MakeForm(options.format.empty() ? "text" : options.format, title, out);
    if (objects)
        return options.objects.summary ? WriteSummary(results, options, *form)
                                       : WriteObjects(results, options, *form);
    form->Begin(PageColumns());
    for (auto const& page : results)
        for (auto const& row : page->rows)
            form->Row(row);
    form->End();
}

} // namespace measure
