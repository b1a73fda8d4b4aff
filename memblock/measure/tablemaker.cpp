#include <memblock/measure/measurerstate_internal.h>

#include <algorithm>

namespace NKelmic::measuring {
namespace {

/// The places of the keys in ascending order.
///
/// Nearly all rows come in order; the few objects that lay across a cut come late. They are put
/// aside, sorted, and merged in.
std::vector<std::size_t> OrderOf(Buffer<std::int64_t> const& keys)
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
        MeasureOptions const& options = plan.setup.options;
        bool const filtered = options.min_pixels > 0 || options.max_pixels < INT64_MAX ||
                              options.drop_at_edge; // what was left out is no gap
        if (plan.ByLabels() && options.keep_gaps && !filtered)
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
        std::vector<DerivedPointer<Vector>> columns;
        std::vector<Cell*> out;
        for (ColumnPlan const& column : plan_.columns) {
            bool const whole = column.row->IsWhole(plan_.source);
            columns.push_back(NewColumn(whole ? DataTypeBase::Int64 : DataTypeBase::Double));
            out.push_back(static_cast<Cell*>(columns.back()->Pointer()));
        }
        CopyCells(out);
        for (std::size_t c = 0; c < columns.size(); ++c)
            table.SetColumn(prefix + NameOf(plan_.columns[c]), columns[c]);
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
        auto const column = NewColumn(DataTypeBase::Int64);
        long long* const out = column->TypedPointer<long long>();
        for (std::size_t k = 0; k < order_.size(); ++k)
            out[k] = plan_.ByLabels() && order_[k] != gap ? rows_.keys[order_[k]]
                                                          : static_cast<long long>(k) + 1;
        return column;
    }
    DerivedPointer<Vector> NewColumn(DataType type) const
    {
        return Vector::Create(order_.size(), type, true, 0, 1.0);
    }
    /// From rows to columns, by stretches of rows that stay in the cache. Cells are the bits of
    /// the elements.
    void CopyCells(std::span<Cell* const> out) const
    {
        constexpr std::size_t stretch = 64;
        std::size_t const width = out.size();
        for (std::size_t from = 0; from < order_.size(); from += stretch) {
            std::size_t const to = std::min(from + stretch, order_.size());
            for (std::size_t c = 0; c < width; ++c)
                for (std::size_t k = from; k < to; ++k) {
                    std::size_t const i = order_[k];
                    out[c][k] = i == gap ? empty_.cells[c] : rows_.cells[i * width + c];
                }
        }
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
        sorted.cells.Append(rows.cells.data() + i * width, width);
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
