#include <memblock/collections/table.h>

#include <memblock/base/listitems_internal.h>
#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/collections/columnsbyname_internal.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/vector/vectorchunk_internal.h>
#include <memblock/vector/vectorforms_internal.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace NKelmic {

Table::Table() : Vector(TypedChunk(0, PMemory, MemChunk(), 0), 1.0) {}

Table::Table(Table const& o) : Vector(o), row_count_(o.row_count_), names_(o.names_) {}

Table::~Table() {}

DerivedPointer<Table> Table::Create()
{
    return DerivedPointer<Table>(new Table);
}

DerivedPointer<Table> Table::Create(int rows, int cols, DataType type)
{
    if (rows < 0 || cols < 0)
        Raise(err_kind, "Invalid size of a table: %d rows, %d columns", rows, cols);
    DerivedPointer<Table> const table = Create();
    for (int i = 0; i < cols; ++i)
        table->SetColumn(DefaultColName(i), Vector::Create(rows, type, true, 0, 1.0));
    return table;
}

char const* Table::Class() const
{
    return "Table";
}

bool Table::Conforms(char const* classname) const
{
    return SameName(classname, StaticClass()) || Vector::Conforms(classname);
}

char const* Table::ClassDescription() const
{
    return "Table - rows of named columns, which are vectors of one length.\n"
           "Derived from: Vector\n"
           "Subkeys:\n"
           "\t[name] - return the column\n"
           "\t@columns - return the names of the columns\n"
           "\t@columncount - return the number of columns\n"
           "\t@rowcount - return the number of rows\n"
           "\t@toprow - return the first row as a container\n"
           "\t@bottomrow - return the last row as a container\n"
           "Invariants:\n"
           "\tall columns have the length @rowcount\n";
}

PMemBlock Table::DoClone(int mode) const
{
    DerivedPointer<Table> const copy(new Table(*this));
    copy->FinishClone(mode);
    return copy;
}

DerivedPointer<Vector> Table::DoCloneSlice(unsigned int from, unsigned int to) const
{
    DerivedPointer<Table> const slice = Create();
    for (unsigned int i = from; i < to; ++i)
        slice->SetColumn(names_[i], Column(static_cast<int>(i)));
    return slice;
}

bool Table::Equals(MemBlock const& other) const
{
    auto const* const o = dynamic_cast<Table const*>(&other);
    if (o == this)
        return true;
    if (!o || row_count_ != o->row_count_ || names_ != o->names_ || Length() != o->Length())
        return false;
    if (OnTheWay::Is(*this))
        return false; // it holds itself, and equals no other table
    OnTheWay const mark(*this);
    bool equal = true;
    for (int i = 0; equal && i < ColumnCount(); ++i)
        WithEnoughStack([&] { equal = *Column(i) == *o->Column(i); });
    return equal && MemBlock::Equals(other);
}

// ---- columns

DerivedPointer<Vector> Table::Column(int index) const
{
    if (!IsColumn(index))
        Raise(err_kind, "No such column in the table: %d", index);
    DerivedPointer<Vector> const column = PMemoryPointer()[index];
    if (!column)
        Raise(err_kind, "Missing column %d", index);
    return column;
}

DerivedPointer<Vector> Table::Column(safestring const& name) const
{
    int const index = ColumnIndex(name);
    return index < 0 ? DerivedPointer<Vector>() : Column(index);
}

safestring const& Table::ColumnName(int index) const
{
    if (!IsColumn(index))
        Raise(err_kind, "No such column in the table: %d", index);
    return names_[index];
}

int Table::ColumnIndex(safestring const& name) const
{
    auto const found = std::find_if(names_.begin(), names_.end(), [&](safestring const& own) {
        return own.size() == name.size() && own == name;
    });
    return found == names_.end() ? -1 : static_cast<int>(found - names_.begin());
}

void Table::CheckColumn(safestring const& name, PMemBlock const& column) const
{
    CheckColumn(name, column, row_count_);
}

/// Any number of rows will do if `rows` is negative.
void Table::CheckColumn(safestring const& name, PMemBlock const& column, int rows) const
{
    if (!column)
        Raise(err_kind, "Table::SetColumn(): new column pointer is NULL, table unchanged: %s",
              *this);
    auto const* const vector = MemCast<Vector>(column);
    if (!vector || vector == this) // a table can't be its own column
        Raise(err_kind, "Table::SetColumn(): new column \"%s\" is not a vector: %s", name, column);
    if (rows >= 0 && vector->Length() != static_cast<unsigned int>(rows))
        Raise(err_kind,
              "Table::SetColumn(): new column \"%s\" is of different length than other columns, "
              "must be %d: %s",
              name, rows, column);
    if (name.empty())
        Raise(err_kind, "Table column name cannot be empty");
    if (!is_alphanumeric(name))
        Raise(err_kind, "Table column name is not alphanumeric: %s", name);
}

/// Put a checked column into its place.
void Table::Store(int index, PMemBlock const& column)
{
    PMemBlock const old = std::exchange(PMemoryPointer()[index], column); // goes when all is done
    if (row_count_ < 0)
        row_count_ = static_cast<int>(MemCast<Vector>(column)->Length());
    ContentHasBeenChanged();
}

int Table::SetColumn(safestring const& name, DerivedPointer<Vector> const& column)
{
    if (is_numeric(name)) {
        int index = 0;
        double number = 0;
        if (!StrToNumber(name, index, number))
            index = TruncToInt(number);
        if (!IsColumn(index))
            Raise(err_kind, "Column index out of range 0..%d: %d", ColumnCount() - 1, index);
        CheckColumn("dummy", column);
        Store(index, column);
        return index;
    }
    safestring stored = name;
    if (!name.empty() && !is_alphanumeric(name))
        QuoteName(stored);
    CheckColumn(stored, column);
    int index = ColumnIndex(stored);
    if (index < 0) {
        index = ColumnCount();
        names_.reserve(names_.size() + 1);
        Vector::ResizeVector(index + 1ul, true, true);
        names_.push_back(std::move(stored));
    }
    Store(index, column);
    return index;
}

void Table::ReplaceColumn(int index, safestring const& name, DerivedPointer<Vector> const& column)
{
    if (!IsColumn(index))
        Raise(err_kind, "No such column in the table: %d", index);
    CheckColumn(name, column);
    safestring stored = name;
    Store(index, column);
    names_[index].swap(stored);
}

void Table::Erase(int first, int count)
{
    if (IsColumn(first))
        Vector::Erase(first, count); // the names go along by `Rearrange` and `ResizeVector`
}

void Table::DeleteColumn(int index)
{
    Erase(index, 1);
}

void Table::DeleteColumn(safestring const& name)
{
    Erase(ColumnIndex(name), 1);
}

void Table::ResizeVector(unsigned long columns, bool, bool)
{
    CheckNewLength(columns);
    if (columns <= Length() && columns <= names_.size()) { // nothing is made
        Vector::ResizeVector(columns, true, true);
        names_.resize(columns);
        if (columns == 0)
            row_count_ = -1;
        return;
    }
    // The array may be a new one, with columns that have no names yet.
    auto names = names_;
    for (int i = 0; names.size() < columns; ++i)
        if (safestring const name = DefaultColName(i); ColumnIndex(name) < 0)
            names.push_back(name);
    std::vector<PMemBlock> fresh(columns - Length());
    for (PMemBlock& column : fresh)
        column = Vector::Create(std::max(row_count_, 0), Int, true, 0, 1.0);
    Vector::ResizeVector(columns, true, true);
    if (!fresh.empty())
        std::swap_ranges(fresh.begin(), fresh.end(), PMemoryPointer() + (columns - fresh.size()));
    if (row_count_ < 0) {
        auto const* const first = MemCast<Vector>(std::as_const(*this).PMemoryPointer()->Pointer());
        row_count_ = first ? static_cast<int>(first->Length()) : 0;
    }
    names_.swap(names);
}

void Table::Append(DerivedPointer<Vector> columns)
{
    if (MemCast<Vector>(columns)) // all else is up to the base
        AskForContent(*this, cref(columns).Chunk());
    Vector::Append(columns);
    if (row_count_ <= 0 && Length() > 0) // as the empty columns had it that held the place
        row_count_ = static_cast<int>(Column(0)->Length());
}

/// What the notice of new objects says: the index of the first, their number, their place.
DataItem Table::CheckColumns(SafeValue const* argv) const
{
    int const first = argv[0].GetInt();
    int const count = argv[1].GetInt();
    if (argv[2].GetType() != it_pointer)
        return {};
    auto const* const columns = static_cast<PMemBlock const*>(argv[2].GetPointer());
    int rows = row_count_;
    for (int i = 0; i < count; ++i) {
        bool const named = static_cast<std::size_t>(first + i) < names_.size();
        CheckColumn(named ? names_[first + i] : DefaultColName(first + i), columns[i], rows);
        rows = static_cast<int>(MemCast<Vector>(columns[i])->Length());
    }
    return 1;
}

void Table::ShiftVector(int n)
{
    Vector::ShiftVector(n);
    if (n > 0) // the fresh columns, which come last with their names, stand in front now
        std::rotate(names_.begin(), names_.end() - n, names_.end());
}

void Table::Rearrange(int const* idx, unsigned int n, unsigned int newlen, ThrowHandlerFunc handler)
{
    std::vector<bool> seen(Length());
    bool each_once = newlen == n;
    for (unsigned int k = 0; each_once && k < n; ++k) {
        each_once = IsColumn(idx[k]) && !seen[idx[k]];
        if (each_once)
            seen[idx[k]] = true;
    }
    if (!each_once) {
        Report(handler, err_kind, "Columns of a table can only be put into another order: %s",
               *this);
        return;
    }
    std::vector<safestring> names(n);
    for (unsigned int k = 0; k < n; ++k)
        names[k] = names_[idx[k]];
    Vector::Rearrange(idx, n, newlen, handler);
    names_.swap(names);
}

void Table::RenameColumns(std::vector<safestring> const& names)
{
    if (names.size() != names_.size())
        Raise(err_kind, "Number of columns (%d) and column names (%d) does not match. ",
              names_.size(), names.size());
    std::vector<safestring> stored;
    for (safestring name : names) {
        if (name.empty())
            Raise(err_kind, "Table column name cannot be empty");
        if (is_numeric(name))
            Raise(err_kind, "Column name cannot be numeric (column index %d): %s", stored.size(),
                  name);
        if (!is_alphanumeric(name))
            QuoteName(name);
        if (std::find(stored.begin(), stored.end(), name) != stored.end())
            Raise(err_kind, "Duplicate column name: %s", name);
        stored.push_back(name);
    }
    names_.swap(stored);
    ContentHasBeenChanged();
}

safestring DefaultColName(int index)
{
    char letters[8]; // 26^7 exceeds an int
    char* const end = letters + sizeof letters;
    char* at = end;
    for (long k = index + 1l; k > 0; k = (k - 1) / 26)
        *--at = static_cast<char>('A' + (k - 1) % 26);
    return safestring(at, static_cast<std::size_t>(end - at));
}

void SwapTableColumns(DerivedPointer<Table> const& table, int a, int b)
{
    table->Column(a);
    table->Column(b);
    std::vector<int> order(table->ColumnCount());
    std::iota(order.begin(), order.end(), 0);
    std::swap(order[a], order[b]);
    table->Rearrange(order.data(), table->Length(), table->Length(), throw_always);
}

void SetTableColumnOrder(DerivedPointer<Table> const& table, safestring const& names)
{
    ColumnsByName const columns(*table);
    std::vector<int> order;
    std::vector<bool> placed(table->ColumnCount());
    auto const place = [&](int column) {
        if (column >= 0 && !placed[column]) {
            placed[column] = true;
            order.push_back(column);
        }
    };
    for (safestring const& name : ItemsOf(SplitString(names, ", \t", true)))
        place(columns.Find(name));
    for (int column = 0; column < table->ColumnCount(); ++column)
        place(column);
    table->Rearrange(order.data(), table->Length(), table->Length(), throw_always);
}

// ---- description and checks

namespace {

/// What hangs on the object as a sticky attribute; undefined without, and nothing is made for it.
DataItem StickyItem(MemBlock const& object, char const* name)
{
    DataItem sticky;
    if (!object.PimplIfAny() || !object.ExistsSecondaryItem(MemBlock::key_sticky, sticky))
        return {};
    if (sticky.GetType() != it_memblock)
        return {};
    auto const* const items = MemCast<Container>(sticky.GetMemory());
    return items ? items->Get(name) : DataItem();
}

safestring DescribeSparseMatrix(Table const& table)
{
    auto const value = table.Column("Value");
    if (!value || table.ColumnIndex("Left") < 0 || table.ColumnIndex("Right") < 0)
        return "Sparse matrix: invalid (Left or Right column is missing)";
    DataItem const item = StickyItem(table, "max_size");
    auto const* const size =
        item.GetType() == it_memblock ? MemCast<Vector>(item.GetMemory().Pointer()) : nullptr;
    auto const entry = [&](unsigned int i) {
        return size && i < size->Length() ? size->GetString(static_cast<int>(i)) : safestring("?");
    };
    return Text("Sparse matrix %sx%s of type %s", entry(0), entry(1),
                TypeToString(value->ElemType()));
}

} // namespace

safestring Table::DoGetDescription() const
{
    if (StickyItem(*this, "is_sparsematrix").IsDefined())
        return DescribeSparseMatrix(*this);
    safestring text = Text("Table, %d rows, %d cols: ", row_count_, ColumnCount());
    for (std::size_t i = 0; i < names_.size(); ++i) {
        if (i > 0)
            text += ", ";
        text += names_[i];
    }
    return text;
}

bool Table::LengthsMatch() const
{
    PMemBlock const* const columns = PMemoryPointer();
    return std::all_of(columns, columns + Length(), [&](PMemBlock const& column) {
        auto const* const vector = MemCast<Vector>(column.Pointer());
        return vector && static_cast<int>(vector->Length()) == row_count_;
    });
}

bool Table::HasColumn(PMemBlock const& column) const
{
    PMemBlock const* const columns = PMemoryPointer();
    return column && std::find(columns, columns + Length(), column) != columns + Length();
}

bool Table::Consistent(safestring& message, bool deep) const
{
    if (OnTheWay::Is(*this))
        return true; // it holds itself, and is looked at further up
    OnTheWay const mark(*this);
    auto const old_size = message.size();
    bool const base_ok = Vector::Consistent(message, false);
    if (names_.size() != Length())
        message += Text("Number of columns (%d) and column names (%d) does not match. ", Length(),
                        names_.size());
    if (row_count_ < 0 && Length() > 0)
        message += Text("Uninitialized rowcount for table of %d columns", Length());
    PMemBlock const* const columns = PMemoryPointer();
    for (unsigned int i = 0; i < Length(); ++i) {
        safestring const name = i < names_.size() ? names_[i] : safestring();
        if (name.empty())
            message += Text("Missing name for column %d", i);
        else if (!is_alphanumeric(name))
            message += Text("Name for column %d is not alphanumeric: %s", i, name);
        if (!columns[i]) {
            message += Text("Missing column %d", i);
            continue;
        }
        auto const* const vector = MemCast<Vector>(columns[i].Pointer());
        if (!vector) {
            message += Text("Column %d is not a vector: %s", i, columns[i]);
            continue;
        }
        if (static_cast<int>(vector->Length()) != row_count_)
            message += Text("Invalid column length %d, must be %d", vector->Length(), row_count_);
        safestring inner;
        bool column_ok = false;
        WithEnoughStack([&] { column_ok = vector->Consistent(inner, deep); });
        if (!column_ok)
            message += Text("{{Column %d invalid: %s}} ", i, inner);
    }
    return base_ok && message.size() == old_size;
}

} // namespace NKelmic
