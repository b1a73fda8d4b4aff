#ifndef MEMBLOCK_EXAMPLES_MEASURE_TABLES_H
#define MEMBLOCK_EXAMPLES_MEASURE_TABLES_H

#include <measure/measures.h>
#include <measure/options.h>
#include <memblock/collections/table.h>

#include <ostream>

namespace measure {

/// Rows that come one by one: containers of values under the names of the columns.
class RowTable {
public:
    RowTable() : table_(NKelmic::Table::Create()) {}
    void Add(NKelmic::DerivedPointer<NKelmic::Container> const& row)
    {
        table_->AppendRow(*row.Pointer(), true, true);
    }
    void Add(NKelmic::DerivedPointer<NKelmic::Table> const& rows)
    {
        table_->AppendRows(cref(rows), true);
    }
    NKelmic::DerivedPointer<NKelmic::Table> const& Get() const { return table_; }

private:
    NKelmic::DerivedPointer<NKelmic::Table> table_;
};

/// The row of one measured block of a page.
NKelmic::DerivedPointer<NKelmic::Container> PageRow(std::string const& file, int page,
                                                    unsigned long width, unsigned long height,
                                                    Block const& block, Policies const& policies);

/// The table of all page rows, with its columns in the order of reading.
NKelmic::DerivedPointer<NKelmic::Table> PageTable(RowTable const& rows);

/// A table in the library's own text or HTML form ("text", "html"), with 12 digits.
std::string TableForm(NKelmic::Table const& table, std::string const& form);

/// Write a table in one of the library's own forms: "text", a line a row below a line of names;
/// "html", a page; "xml", a row element a row.
void PrintTable(std::ostream& out, NKelmic::Table const& table, std::string const& form);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_TABLES_H
