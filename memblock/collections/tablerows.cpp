#include <memblock/collections/table.h>

#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/base/text.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace NKelmic {

namespace {

/// The element type that stands for an item type.
int MappedType(int item_type)
{
    switch (item_type) {
    case it_int:
        return Vector::Int;
    case it_double:
        return Vector::Double;
    case it_pointer:
        return Vector::VoidStar;
    case it_memblock:
        return Vector::PMemory;
    case it_string:
        return Vector::String;
    case it_int64:
        return Vector::Int64;
    default:
        return Vector::PolyType;
    }
}

/// Both kinds of text are one here.
int KindOf(DataItem const& value)
{
    return value.GetType() == it_shortstring ? it_string : value.GetType();
}

/// Floating numbers that nobody told are NaN; elements of other types stay as they are.
void FillWithNaN(Vector& column, int from, int to)
{
    WithElemTypeOr<FloatTypes>(
        column.ElemType(), [] {},
        [&]<class T>(TypeTag<T>) {
            T* const data = column.TypedPointer<T>();
            std::fill(data + from, data + to, std::numeric_limits<T>::quiet_NaN());
        });
}

} // namespace

bool DataTypeFitting(int item_type, DataType elem_type)
{
    switch (int const mapped = MappedType(item_type)) {
    case Vector::Int:
        return true;
    case Vector::Double:
        return !IsInSet<IntegerTypes>(elem_type);
    case Vector::String:
        return elem_type == Vector::String || elem_type == Vector::PMemory;
    case Vector::Int64:
        return elem_type != Vector::Int;
    default:
        return elem_type == mapped;
    }
}

DataType FindCoverTypeForNonFittingType2(int item_type, DataType elem_type)
{
    switch (MappedType(item_type)) {
    case Vector::Int:
        return Vector::NoType;
    case Vector::Double:
        return IsInSet<IntegerTypes>(elem_type) ? Vector::Double : elem_type;
    case Vector::PMemory:
        return Vector::PMemory;
    case Vector::String:
        return Vector::String;
    case Vector::Int64:
        return elem_type == Vector::Int ? Vector::Int64 : elem_type;
    default:
        return Vector::PolyType;
    }
}

/// Makes a table longer. Unless it is committed, the table is then as it was.
class Table::Growth {
public:
    Growth(Table& table, int added)
        : table_(table), old_rows_(table.row_count_), old_columns_(table.ColumnCount()),
          first_(std::max(old_rows_, 0)), added_(added)
    {
        if (added > std::numeric_limits<int>::max() - first_)
            Raise(err_state, "Vector length %u is above the limit of %u elements.",
                  static_cast<unsigned long>(first_) + added, std::numeric_limits<int>::max());
    }
    ~Growth()
    {
        if (!committed_)
            Undo();
    }
    Growth(Growth const&) = delete;
    Growth& operator=(Growth const&) = delete;

    int First() const { return first_; } ///< of the new rows
    int OldColumns() const { return old_columns_; }

    void GrowColumns()
    {
        for (int i = 0; i < old_columns_; ++i) {
            Vector& column = MakePrivate(i);
            private_ = i + 1;
            column.ResizeVector(static_cast<unsigned long>(first_) + added_, true, true);
        }
        table_.row_count_ = first_ + added_;
    }

    Vector& Column(int i) const
    {
        return static_cast<Vector&>(*std::as_const(table_).PMemoryPointer()[i]);
    }

    /// Write a value into a column, which changes its type if it has to.
    void Put(int i, int row, DataItem const& value)
    {
        if (!DataTypeFitting(KindOf(value), Column(i).ElemType()))
            ConvertColumn(i, KindOf(value));
        Column(i).SetElem(static_cast<unsigned int>(row), value);
    }

    DerivedPointer<Vector> NewColumn(DataType type) const
    {
        auto const column =
            Vector::Create(static_cast<unsigned long>(first_) + added_, type, true, 0, 1.0);
        FillWithNaN(*column, 0, first_);
        return column;
    }

    void Commit()
    {
        committed_ = true;
        table_.ContentHasBeenChanged();
    }

private:
    Vector& MakePrivate(int i)
    {
        DerivedPointer<Vector> column = table_.Column(i);
        PMemBlock& slot = table_.PMemoryPointer()[i];
        if (column->RefCount() > 2) { // the slot and the pointer here are two
            slot = column->Clone(true);
            return Column(i);
        }
        if (column->PimplIfAny())
            column->ContentHasBeenChanged();
        if (column->Flags() & mem_const)
            column->SetConst(false);
        return *column;
    }

    void ConvertColumn(int i, int kind)
    {
        DerivedPointer<Vector> const old = table_.Column(i);
        DataType const type = FindCoverTypeForNonFittingType2(kind, old->ElemType());
        auto const converted = old->ConvertElemsToType(type, true, false);
        replaced_.emplace_back(i, old);
        table_.ReplaceColumn(i, safestring(table_.names_[i]), converted);
    }

    // Whatever is made smaller here belongs to this table alone, so nothing is allocated. Further
    // columns have not been looked at: one that is null or no vector may have been the failure.
    void Undo()
    {
        table_.Erase(old_columns_, table_.ColumnCount() - old_columns_);
        for (; !replaced_.empty(); replaced_.pop_back())
            table_.PMemoryPointer()[replaced_.back().first] = replaced_.back().second;
        for (int i = 0; i < private_; ++i)
            if (Column(i).Length() > static_cast<unsigned int>(first_))
                Column(i).Erase(first_, static_cast<int>(Column(i).Length()) - first_);
        table_.row_count_ = old_rows_;
        table_.ContentHasBeenChanged();
    }

    Table& table_;
    int old_rows_;
    int old_columns_;
    int first_;
    int added_;
    int private_ = 0; ///< so many columns belong to this table alone
    bool committed_ = false;
    std::vector<std::pair<int, PMemBlock>> replaced_;
};

namespace {

/// The value of a row for a column. A container may know a quoted name by what it was before.
SafeValue const* FindValue(Container const& row, safestring const& name)
{
    auto found = row.find(name);
    if (found == row.end() && name[0] == '@') {
        safestring plain = name;
        UnquoteName(plain);
        found = row.find(plain);
    }
    return found == row.end() || found->second.IsUndefined() ? nullptr : &found->second;
}

safestring NameOfColumn(safestring const& item)
{
    safestring name = item;
    if (!name.empty() && !is_alphanumeric(name))
        QuoteName(name);
    return name;
}

} // namespace

void Table::AppendRow(Container const& row, bool add_columns, bool nan_for_missing)
{
    Growth growth(*this, 1);
    growth.GrowColumns();
    int const last = growth.First();
    for (int i = 0; i < growth.OldColumns(); ++i) {
        if (SafeValue const* const value = FindValue(row, names_[i]))
            growth.Put(i, last, *value);
        else if (nan_for_missing)
            FillWithNaN(growth.Column(i), last, last + 1);
    }
    if (add_columns && row.Count() > Length()) {
        for (auto const& [item, value] : row) {
            safestring const name = NameOfColumn(item);
            if (ColumnIndex(name) >= 0)
                continue;
            if (is_numeric(name)) // would be the index of a column
                Raise(err_kind, "Column name cannot be numeric (column index %d): %s",
                      ColumnCount(), name);
            auto const column = growth.NewColumn(static_cast<DataType>(MappedType(KindOf(value))));
            column->SetElem(static_cast<unsigned int>(last), static_cast<DataItem const&>(value));
            SetColumn(name, column);
        }
    }
    row_count_ = last + 1; // a row without a single column counts, too
    if (Length() == 0)
        row_count_ = -1;
    growth.Commit();
}

void Table::AppendRows(Table const& other, bool add_columns)
{
    int const added = std::max(other.row_count_, 0);
    int const other_columns = other.ColumnCount();
    Growth growth(*this, added);
    growth.GrowColumns();
    int const first = growth.First();
    if (Length() == 0)
        row_count_ = -1;
    for (int i = 0; i < growth.OldColumns(); ++i) {
        int const k = other.ColumnIndex(names_[i]);
        if (k < 0) {
            FillWithNaN(growth.Column(i), first, first + added);
            continue;
        }
        auto const source = other.Column(k);
        for (int row = 0; row < added; ++row)
            growth.Put(i, first + row, cref(source).GetDataItemWithFactor(row));
    }
    if (add_columns && other_columns > ColumnCount()) {
        for (int k = 0; k < other_columns; ++k) {
            if (ColumnIndex(other.ColumnName(k)) >= 0)
                continue;
            auto const source = other.Column(k);
            auto const column = growth.NewColumn(source->ElemType());
            for (int row = 0; row < added; ++row) // raw: times and by the factor is not exact
                column->SetElem(static_cast<unsigned int>(first + row),
                                cref(source).GetDataItem(row));
            column->SetFactor(source->Factor());
            SetColumn(other.ColumnName(k), column);
        }
    }
    growth.Commit();
}

DerivedPointer<Container> Table::GetRow(int row) const
{
    if (row < 0 || row >= row_count_)
        return {};
    DerivedPointer<Container> const values = Container::Create();
    for (int i = 0; i < ColumnCount(); ++i)
        values->Put(cref(Column(i)).GetDataItemWithFactor(row), names_[i]);
    return values;
}

void Table::SetRowCount(int rows)
{
    if (rows < 0)
        Raise(err_kind, "Number of table rows cannot be negative: %d", rows);
    if (Length() == 0)
        Raise(err_kind, "Cannot add columns to the table by setting table.length=%d: %s", rows,
              *this);
    std::vector<PMemBlock> resized;
    for (int i = 0; i < ColumnCount(); ++i) {
        DerivedPointer<Vector> const column(Column(i)->Clone(true));
        column->ResizeVector(static_cast<unsigned long>(rows), true, true);
        resized.push_back(column);
    }
    std::swap_ranges(resized.begin(), resized.end(), PMemoryPointer());
    row_count_ = rows;
    ContentHasBeenChanged();
}

} // namespace NKelmic
