#include <memblock/collections/table.h>

#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/core/subitem_internal.h>
#include <memblock/vector/vectorforms_internal.h>

#include <algorithm>
#include <limits>

namespace NKelmic {
namespace {

constexpr char const* own_list =
    "@columns,@columncount,@rowcount,@toprow,@bottomrow,%@length,@rowrange,";

safestring KeyList(Table const& t, char const* head, char const* base, ThrowHandlerFunc handler)
{
    safestring list = head;
    for (int i = 0; i < t.ColumnCount(); ++i) {
        list += t.ColumnName(i);
        list += ',';
    }
    return list + t.Vector::ResolveSubItem(base, handler).GetString();
}

DataItem Names(Table const& t, ThrowHandlerFunc)
{
    auto const names = Vector::Create(t.Length(), Vector::String, true, 0, 1.0);
    for (int i = 0; i < t.ColumnCount(); ++i)
        names->StringPointer()[i] = t.ColumnName(i);
    return names;
}

DataItem Rows(Table const& t, ThrowHandlerFunc)
{
    return t.RowCount();
}

/// The indices of the rows are those of a vector as long as a column.
DataItem RowRange(Table const& t, ThrowHandlerFunc handler)
{
    if (t.ColumnCount() > 0)
        return cref(t.Column(0)).Vector::ResolveSubItem("range", handler);
    return cref(Vector::Create()).ResolveSubItem("range", handler);
}

DataItem RowOrNothing(Table const& t, int row)
{
    auto const values = t.GetRow(row);
    return values ? values : Container::Create();
}

bool AppendRowOrTable(Table& t, SafeValue const& value, ThrowHandlerFunc)
{
    PMemBlock const block = MemoryOrNull(value);
    if (auto const* const row = MemCast<Container>(block.Pointer()))
        t.AppendRow(*row, true, true);
    else if (auto const* const rows = MemCast<Table>(block.Pointer()))
        t.AppendRows(*rows, true);
    else
        Raise(err_kind, "@appendrow requires a container or table argument, this is not: %s",
              value);
    return true;
}

bool SetRows(Table& t, SafeValue const& value, ThrowHandlerFunc)
{
    t.SetRowCount(value.GetInt());
    return true;
}

bool SetOrder(Table& t, SafeValue const& value, ThrowHandlerFunc)
{
    SetTableColumnOrder(DerivedPointer<Table>(&t), value.GetString());
    return true;
}

bool SetNames(Table& t, SafeValue const& value, ThrowHandlerFunc)
{
    PMemBlock const block = MemoryOrNull(value);
    auto const* const names = MemCast<Vector>(block.Pointer());
    if (!names || names->ElemType() != Vector::String)
        Raise(err_kind, "The \"columns\" subkey requires a string vector, this is: %s", value);
    safestring const* const first = names->StringPointer();
    t.RenameColumns(std::vector<safestring>(first, first + names->Length()));
    return true;
}

[[noreturn]] DataItem RefuseFactor(Table const&, ThrowHandlerFunc)
{
    Raise(err_kind, "Table.factor subkey is not supported. Use Table[0].factor instead.");
}

DataItem FullList(Table const& t, ThrowHandlerFunc handler)
{
    return KeyList(t, own_list, "!", handler);
}

// A word without '@' is written only: read, it is the name of a column or a key of a vector.
constexpr KeyTable table_keys{std::to_array<Key<Table>>({
    {"", FullList},
    {"!", FullList},
    {"*",
     [](Table const& t, ThrowHandlerFunc handler) -> DataItem {
         return KeyList(t, "", "*", handler);
     }},
    {"@columns", Names, SetNames},
    {"@columncount", [](Table const& t, ThrowHandlerFunc) -> DataItem { return t.ColumnCount(); }},
    {"@length", Rows, SetRows},
    {"@size", nullptr, SetRows},
    {"@rowcount", Rows, SetRows},
    {"@rowrange", RowRange},
    {"@toprow", [](Table const& t, ThrowHandlerFunc) { return RowOrNothing(t, 0); }},
    {"@bottomrow",
     [](Table const& t, ThrowHandlerFunc) { return RowOrNothing(t, t.RowCount() - 1); }},
    {"@expression", [](Table const& t, ThrowHandlerFunc) -> DataItem { return t.GetExpression(); }},
    {"@factor", RefuseFactor,
     [](Table& t, SafeValue const&, ThrowHandlerFunc handler) -> bool {
         RefuseFactor(t, handler);
     }},
    {"@appendrow", nullptr, AppendRowOrTable},
    {"@column_order", nullptr, SetOrder},
    {"column_order", nullptr, SetOrder},
    {"columns", nullptr, SetNames},
    {"length", nullptr, SetRows},
    {"size", nullptr, SetRows},
})};

/// The length of the columns; with an argument it is set first.
DataItem RowsVerb(Table& t, int argc, SafeValue const* argv)
{
    if (argc > 0)
        t.SetRowCount(argv[0].GetInt());
    return t.RowCount();
}

constexpr KeyTable table_verbs{std::to_array<Verb<Table>>({
    {"expr", 0, [](Table& t, int, SafeValue const*) -> DataItem { return t.GetExpression(); }},
    {"size", 0, RowsVerb},
    {"length", 0, RowsVerb},
    {"notif_elmtyp_chng", 1,
     [](Table& t, int, SafeValue const* argv) -> DataItem {
         if (argv[0].GetInt() != Vector::PMemory)
             Raise(err_kind, "Cannot change the element type of a table: %s", t);
         return {};
     }},
})};

bool SetColumnByName(Table& t, safestring const& name, SafeValue const& value)
{
    PMemBlock const block = MemoryOrNull(value);
    if (!MemCast<Vector>(block))
        Raise(err_kind, "Cannot set column \"%s\" to a non-vector: %s", name, value);
    t.SetColumn(name, block);
    return true;
}

} // namespace

safestring Table::GetExpression() const
{
    if (OnTheWay::Is(*this)) // it holds itself: as objects without an expression
        return MemBlock::ResolveSubItem("@expression", throw_always).GetString();
    OnTheWay const mark(*this);
    safestring text = "tbl(";
    for (int i = 0; i < ColumnCount(); ++i) {
        if (i > 0)
            text += ',';
        text += names_[i];
        text += '=';
        WithEnoughStack([&] { text += DataItem(Column(i)).GetExpression(); });
    }
    text += ')';
    return text;
}

/// Asked before a script writes below a column; the arguments are column, key, flag and value.
///
/// Any key of any class may turn out to change the length. So the write is made to a copy of the
/// column, which the table looks at before it keeps it (2): all but that of an element, where
/// copying the others each time would be too slow.
int Table::AnswerToChange(SafeValue const* argv) const
{
    DataItem const child = ResolveSubItem(argv[0].GetString(), throw_never);
    if (child.GetType() != it_memblock || !HasColumn(child.GetMemory()))
        return 1; // an attribute or the like
    MemBlock const& column = *child.GetMemory();
    bool const keeps_length =
        SameName(column.Class(), "vector") || SameName(column.Class(), "image");
    return keeps_length && is_numeric(argv[1].GetString()) ? 1 : 2;
}

DataItem Table::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (!argv)
        argc = 0;
    if (SameName(verb, "chldchng")) {
        if (!LengthsMatch())
            Raise(err_kind, "Cannot change the length of columns inside a table, change "
                            "table.@rowcount instead!");
        return argc >= 4 ? AnswerToChange(argv) : 1;
    }
    if (SameName(verb, "notif_objects_chng") && argc >= 3)
        return CheckColumns(argv);
    if (auto const* const row = table_verbs.Find(verb); row && argc >= row->argument_count)
        return row->run(*this, argc, argv);
    return Vector::DoVerb(verb, argc, argv);
}

DataItem Table::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* const row = table_keys.Find(key); row && row->read)
        return ReadKey(*row, *this, handler);
    if (int const column = ColumnIndex(key); column >= 0)
        return Column(column);
    if (!key.empty() && key[0] != '@' && !is_alphanumeric(key)) {
        safestring quoted = key;
        QuoteName(quoted);
        if (int const column = ColumnIndex(quoted); column >= 0)
            return Column(column);
    }
    return Vector::ResolveSubItem(key, handler);
}

bool Table::DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& full_path,
                         ThrowHandlerFunc handler)
{
    auto const* const row = table_keys.Find(key);
    bool const own = row && row->write;
    if (!own && !key.empty() && key[0] == '@' && !is_alphanumeric(key))
        return Vector::DoSetSubItem(key, value, full_path, handler);
    return own ? row->write(*this, value, handler) : SetColumnByName(*this, key, value);
}

} // namespace NKelmic
