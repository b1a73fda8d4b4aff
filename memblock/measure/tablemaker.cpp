#include <memblock/measure/measurerstate_internal.h>

#include <algorithm>

namespace NKelmic::measuring {
namespace {

/// The places of the keys in ascending order.
///
/// Nearly all rows come in order; the few objects that lay across a cut come late. They are put
/// aside, sorted, and merged in.
std::vector<std::size_t> OrderOf(std::vector<std::int64_t> const& keys)
{
    std::vector<std::size_t> order, late;
    order.reserve(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i)
        (order.empty() || keys[order.back()] <= keys[i] ? order : late).push_back(i);
    auto const key = [&](std::size_t i) { return keys[i]; };
    std::ranges::sort(late, {}, key);
    std::vector<std::size_t> merged(keys.size());
    std::ranges::merge(order, late, merged.begin(), {}, key, key);
    return merged;
}

/// The rows sorted by their keys, and gaps of labels filled with rows of no pixels.
class TableMaker {
public:
    TableMaker(Plan const& plan, ResultRows const& rows)
        : plan_(plan), rows_(rows), order_(OrderOf(rows.keys))
    {
        if (plan.ByLabels() && plan.setup.options.keep_gaps)
            FillGaps();
    }

    DerivedPointer<Table> Make() const
    {
        auto const table = Table::Create();
        table->SetColumn("label", Labels());
        AppendTo(*table, "");
        return table;
    }
    void AppendTo(Table& table, safestring const& prefix) const
    {
        for (std::size_t c = 0; c < plan_.columns.size(); ++c)
            table.SetColumn(prefix + NameOf(plan_.columns[c]), Column(c));
    }

private:
    static constexpr std::size_t gap = SIZE_MAX;

    void FillGaps()
    {
        if (order_.empty())
            return;
        std::uint64_t const greatest = static_cast<std::uint64_t>(rows_.keys[order_.back()]);
        if (greatest >
            MostLabels(static_cast<std::uint64_t>(plan_.frame.Rows()) * plan_.frame.width))
            Raise(err_value,
                  "Label %u would make as many rows; leave out the gaps between labels to have a "
                  "row for each label that occurs.",
                  static_cast<unsigned long long>(greatest));
        std::vector<std::size_t> filled(greatest, gap);
        for (std::size_t const i : order_)
            filled[static_cast<std::size_t>(rows_.keys[i]) - 1] = i;
        order_ = std::move(filled);
        MakeEmptyRow();
    }
    void MakeEmptyRow()
    {
        RunList nobody;
        nobody.EndObject();
        std::vector<Plane> planes;
        for (PlaneFormat const& plane : plan_.setup.planes)
            planes.push_back({plane.type, nullptr});
        Plan all = plan_;
        all.setup.options.min_pixels = 0;
        RowMaker().Make(all, nobody, planes, {}, empty_);
    }

    DerivedPointer<Vector> Labels() const
    {
        auto const column = Vector::Create(order_.size(), DataTypeBase::Int64, true, 0, 1.0);
        long long* const out = column->TypedPointer<long long>();
        for (std::size_t k = 0; k < order_.size(); ++k)
            out[k] = plan_.ByLabels() && order_[k] != gap ? rows_.keys[order_[k]]
                                                          : static_cast<long long>(k) + 1;
        return column;
    }
    DerivedPointer<Vector> Column(std::size_t c) const
    {
        bool const whole = plan_.columns[c].row->IsWhole(plan_.source);
        auto const column = Vector::Create(
            order_.size(), whole ? DataTypeBase::Int64 : DataTypeBase::Double, true, 0, 1.0);
        if (whole)
            CopyCells(c, column->TypedPointer<long long>());
        else
            CopyCells(c, column->DoublePointer());
        return column;
    }
    template <class T>
    void CopyCells(std::size_t c, T* out) const
    {
        std::size_t const width = plan_.columns.size();
        for (std::size_t const i : order_)
            *out++ = std::bit_cast<T>(i == gap ? empty_.cells[c] : rows_.cells[i * width + c]);
    }
    safestring NameOf(ColumnPlan const& column) const
    {
        safestring const name = column.row->property.name;
        if (column.plane < 0)
            return name;
        safestring const& prefix = plan_.setup.planes[column.plane].name;
        return prefix == "" ? name : prefix + "_" + name;
    }

    Plan const& plan_;
    ResultRows const& rows_;
    std::vector<std::size_t> order_; // of the rows, or `gap`
    ResultRows empty_;
};

} // namespace

ResultRows Sorted(ResultRows const& rows, std::size_t width)
{
    ResultRows sorted;
    for (std::size_t const i : OrderOf(rows.keys)) {
        sorted.keys.push_back(rows.keys[i]);
        auto const cells = rows.cells.begin() + static_cast<std::ptrdiff_t>(i * width);
        sorted.cells.insert(sorted.cells.end(), cells, cells + static_cast<std::ptrdiff_t>(width));
    }
    return sorted;
}

DerivedPointer<Table> TableOf(Plan const& plan, ResultRows const& rows)
{
    return TableMaker(plan, rows).Make();
}

void AppendColumns(Plan const& plan, ResultRows const& rows, safestring const& prefix, Table& table)
{
    TableMaker(plan, rows).AppendTo(table, prefix);
}

} // namespace NKelmic::measuring
