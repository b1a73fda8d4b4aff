#ifndef MEMBLOCK_COLLECTIONS_TABLE_H
#define MEMBLOCK_COLLECTIONS_TABLE_H

#include <memblock/collections/container.h>
#include <memblock/vector/vector.h>

#include <vector>

namespace NKelmic {

/// Rows of named, typed columns: the results of a measurement, a record each.
///
/// A table is a vector of its columns, which are vectors of one length, with their names beside
/// them. What it inherits (length, elements, slices, erasing) therefore means columns. Names are
/// compared without regard to ASCII case; one that is not alphanumeric is kept as `QuoteName`
/// makes it.
///
/// Columns are shared with whoever else holds them until rows are added. A change either happens
/// as a whole or, with the error raised, leaves the table as it was. That goes for what is
/// inherited, too: `SetElem`, `Fill`, `SetTypedChunk` and their like take columns of the right
/// length and refuse all else; and for writes by a path through the table, whatever key of a
/// column would change its length.
///
/// Errors carry code 128 unless another is told.
class MEMBLOCK_API Table : public Vector {
public:
    static char const* StaticClass() { return "table"; }

    static DerivedPointer<Table> Create(); ///< without columns
    /// Make columns of zeros or the like, named as `DefaultColName` does.
    static DerivedPointer<Table> Create(int rows, int cols, DataType type);
    /// Make a table of pairs of name and column, as if by `SetColumn`.
    template <class... Rest>
    requires(sizeof...(Rest) % 2 == 0) static DerivedPointer<Table> Create(
        safestring const& name, DerivedPointer<Vector> const& column, Rest const&... rest)
    {
        DerivedPointer<Table> const table = Create();
        table->SetColumns(name, column, rest...);
        return table;
    }

    // ---- MemBlock and Vector

    char const* Class() const override; ///< "Table", with a capital letter
    bool Conforms(char const* classname) const override;
    DataItem DoVerb(char const* verb, int argc, SafeValue* argv) override;
    bool Consistent(safestring& message, bool deep) const override;
    char const* ClassDescription() const override;
    /// Equal names and equal columns in one order.
    bool Equals(MemBlock const& other) const override;
    /// The own '@' keys come first, then the columns, then the keys of a vector.
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const override;
    /// Change the number of columns: the last ones go, or columns of zeros of type Int come, under
    /// the first names of `DefaultColName` that are free.
    void ResizeVector(unsigned long columns, bool keep, bool init) override;
    /// Put the columns, with their names, into another order; those whose index is left out go.
    /// Throws: "Columns of a table can only be put into another order: %s".
    void Rearrange(int const* idx, unsigned int n, unsigned int newlen,
                   ThrowHandlerFunc handler) override;
    void ShiftVector(int n) override;
    /// Add the columns of another table, or of a vector of columns, under the first names of
    /// `DefaultColName` that are free. Throws as `SetColumn` for what is no column of this length.
    void Append(DerivedPointer<Vector> columns) override;

protected:
    PMemBlock DoClone(int mode) const override;
    bool DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& full_path,
                      ThrowHandlerFunc handler) override;
    safestring DoGetDescription() const override;
    /// Format 2 is the text form, 3 the HTML form; all others are those of a vector.
    ///
    /// Options: "precision", the significant digits of floating numbers, 6 without it; "quotemode",
    /// how texts are quoted ahead of the quotes around them, see `QuoteByMode`, not at all without
    /// it; "columns", the names to be written, in their order. Linear in the number of cells.
    /// Throws: "Column type not supported: %s"; "Could not serialize column %d, at row %d".
    void DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                     Formatter const& formatter, safestring& output) const override;
    DerivedPointer<Vector> DoCloneSlice(unsigned int from, unsigned int to) const override;

public:
    // ---- Columns

    int ColumnCount() const { return static_cast<int>(Length()); }
    int RowCount() const { return row_count_; } ///< -1 while there is no column
    /// Throws: "No such column in the table: %d".
    DerivedPointer<Vector> Column(int index) const;
    DerivedPointer<Vector> Column(safestring const& name) const; ///< null if absent
    /// Throws: "No such column in the table: %d".
    safestring const& ColumnName(int index) const;
    int ColumnIndex(safestring const& name) const; ///< -1 if absent
    /// Store a column under a name, or under its index if the name is numeric; the index is given
    /// back. A new name becomes the last column.
    ///
    /// Throws: "Column index out of range 0..%d: %d" with the last index, "Table column name cannot
    /// be empty", "Table::SetColumn(): new column pointer is NULL, table unchanged: %s",
    /// "Table::SetColumn(): new column \"%s\" is not a vector: %s", "Table::SetColumn(): new column
    /// \"%s\" is of different length than other columns, must be %d: %s".
    int SetColumn(safestring const& name, DerivedPointer<Vector> const& column);
    /// Store column and name in the place of others.
    /// Throws: "No such column in the table: %d", "Table column name is not alphanumeric: %s", and
    /// as `SetColumn`.
    void ReplaceColumn(int index, safestring const& name, DerivedPointer<Vector> const& column);
    void DeleteColumn(int index);              ///< nothing happens if there is none
    void DeleteColumn(safestring const& name); ///< the same
    /// Take out columns, not rows. Nothing happens for a `first` that is none; a negative count
    /// throws as `Vector::Erase` does.
    void Erase(int first, int count);

    // ---- Rows

    /// Add a row of the values that stand under the names of the columns.
    ///
    /// A column that can't hold its value changes its type. Without a value the element is zero, or
    /// the like, or with `nan_for_missing` a NaN. With `add_columns` further values get columns.
    /// Amortized linear in the number of columns.
    void AppendRow(Container const& row, bool add_columns, bool nan_for_missing);
    /// Add the rows of another table, which may be this one. What `other` lacks becomes NaN.
    void AppendRows(Table const& other, bool add_columns);
    /// The values of a row under the names of the columns; null if there is no such row.
    DerivedPointer<Container> GetRow(int row) const;
    /// Change the length of all columns. Throws: "Cannot add columns to the table by setting
    /// table.length=%d: %s", "Number of table rows cannot be negative: %d".
    void SetRowCount(int rows);

    /// Give all columns new names at once. A name that is not alphanumeric is quoted.
    /// Throws: "Column name cannot be numeric (column index %d): %s", "Duplicate column name: %s",
    /// "Number of columns (%d) and column names (%d) does not match. ".
    void RenameColumns(std::vector<safestring> const& names);

    /// "tbl(" name "=" expression of the column, and so on, ")".
    safestring GetExpression() const;

protected:
    Table();
    Table(Table const& o); ///< the same columns
    ~Table() override;
    /// Throw what `SetColumn` and `ReplaceColumn` tell.
    void CheckColumn(safestring const& name, PMemBlock const& column) const;

private:
    class Growth;
    void SetColumns() {}
    template <class... Rest>
    void SetColumns(safestring const& name, DerivedPointer<Vector> const& column,
                    Rest const&... rest)
    {
        SetColumn(name, column);
        SetColumns(rest...);
    }
    void CheckColumn(safestring const& name, PMemBlock const& column, int rows) const;
    DataItem CheckColumns(SafeValue const* argv) const;
    void Store(int index, PMemBlock const& column);
    bool IsColumn(int index) const { return index >= 0 && index < ColumnCount(); }
    bool LengthsMatch() const;
    bool HasColumn(PMemBlock const& column) const;
    int AnswerToChange(SafeValue const* argv) const;
    std::vector<int> SelectColumns(Formatter const& formatter) const;

    int row_count_ = -1;
    std::vector<safestring> names_;
};

/// The name of a column by its index, as spreadsheets have it: "A" to "Z", "AA" and so on; "" for a
/// negative one.
MEMBLOCK_API safestring DefaultColName(int index);
/// Exchange two columns with their names. Throws: "No such column in the table: %d".
MEMBLOCK_API void SwapTableColumns(DerivedPointer<Table> const& table, int a, int b);
/// Bring the named columns to the front, in the order told; the others keep theirs. Names are
/// separated by any of ", \t"; unknown ones are passed over.
MEMBLOCK_API void SetTableColumnOrder(DerivedPointer<Table> const& table, safestring const& names);

/// Whether a value of that item type goes into elements of that type as it is.
///
/// Settled: type 0, a short text, fits as any value does; who means a text passes 6 for it.
MEMBLOCK_API bool DataTypeFitting(int item_type, DataType elem_type);
/// The element type to which a column is converted for a value that does not fit.
MEMBLOCK_API DataType FindCoverTypeForNonFittingType2(int item_type, DataType elem_type);

/// The texts of a stretch of a column: cooked numbers in decimal, whole floating ones with ".0",
/// texts, quoted by `QuoteByMode` unless the mode is 0, between double quotes, with inner ones
/// doubled.
/// Throws: "Column type not supported: %s"; 4096 "Quoting mode not supported: %d".
MEMBLOCK_API void table_serialize_aux1(Vector const& column, std::vector<safestring>& strings,
                                       int first, int count, int precision = 6, int quotemode = 0);

} // namespace NKelmic

#endif // MEMBLOCK_COLLECTIONS_TABLE_H
