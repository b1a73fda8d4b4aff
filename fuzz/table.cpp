// The keys of tables, the names of columns and the words of their forms, on damaged texts.

#include "fuzz.h"

#include <memblock/collections/table.h>
#include <memblock/serial/serializer.h>

#include <cstdlib>

using namespace NKelmic;

namespace {

void CheckTable(Table const& t)
{
    safestring message;
    if (!t.Consistent(message, true))
        std::abort();
}

void Try(Table const& t, auto&& run)
{
    Ignore(run);
    CheckTable(t);
}

} // namespace

void FuzzOne(std::string const& input)
{
    safestring const text(input.data(), input.size());
    auto const t = Table::Create("a", Vector::MakeSequence("1", "3"), "my name",
                                 Vector::Create(3, Vector::Double, true, 0, 1.0));
    auto const column = Vector::MakeSequence("4", "6");
    Try(*t, [&] { t->GetSubItem(text, throw_always); });
    Try(*t, [&] { t->SetSubItem(text, DataItem(column), throw_always); });
    Try(*t, [&] { t->SetSubItem(text, 2, throw_never); });
    Try(*t, [&] { t->SetColumn(text, column); });
    Try(*t, [&] { t->AppendRow(*Cnt("a", text, text, 1, "z", 2), true, true); });
    Try(*t, [&] { SetTableColumnOrder(t, text); });
    Try(*t, [&] {
        Formatter formatter;
        t->SerialArgs(safestringlist(text, ';'), formatter, throw_never);
        SerializeVisitor visitor;
        safestring output;
        for (int const format : {2, 3, formatter.FormatNumber()})
            t->Serialize(format, visitor, "t", formatter, output);
    });
}

std::vector<std::string> FuzzSeeds()
{
    return {"a",
            "@my name@",
            "my name",
            "@columns",
            "column_order",
            "@appendrow",
            "length",
            "1",
            "-1",
            "1e9",
            "@toprow.a",
            "a.@mean",
            "a.length",
            "html;columns=a",
            "ascii, precision=999999",
            "a.@insert:1",
            "0.5",
            "@",
            "@@",
            "precision=-1;html"};
}
