#include <measure/tables.h>

#include <memblock/serial/serializer.h>

namespace measure {

using namespace NKelmic;

namespace {

Formatter FormatterOf(std::string const& form)
{
    Formatter formatter;
    safestring const words = form == "text" ? "ascii,precision=12" : "html,precision=12";
    formatter.Init(safestringlist(words, ','), throw_always);
    return formatter;
}

safestring RowsAsXml(Table const& table, SerializeVisitor& visitor, Formatter const& formatter)
{
    safestring text = "<table>\n";
    for (int i = 0; i < table.RowCount(); ++i) {
        safestring row;
        SerializeContainer2Xml(*table.GetRow(i).Pointer(), visitor, "row", formatter, row);
        text += "<row>" + row + "</row>\n";
    }
    return text + "</table>\n";
}

} // namespace

DerivedPointer<Container> PageRow(std::string const& file, int page, unsigned long width,
                                  unsigned long height, Block const& block,
                                  Policies const& policies)
{
    Vector const& vector = cref(block.vector);
    Measures const m = Measure(block.vector, policies);
    auto const row = Container::Create();
    auto const put = [&](char const* name, DataItem const& value) { row->Insert(name, value); };
    put("file", DataItem(safestring(file.c_str())));
    put("page", DataItem(page));
    put("block", DataItem(safestring(block.name.c_str())));
    put("width", DataItem(static_cast<int>(width)));
    put("height", DataItem(static_cast<int>(height)));
    put("type", DataItem(safestring(TypeToString(vector.ElemType()))));
    put("factor", DataItem(vector.Factor()));
    put("minimum", DataItem(m.minimum.value));
    put("minimum_at", DataItem(static_cast<int>(m.minimum.index)));
    put("maximum", DataItem(m.maximum.value));
    put("maximum_at", DataItem(static_cast<int>(m.maximum.index)));
    put("mean", DataItem(m.mean));
    put("stddev", DataItem(m.stddev));
    put("sum", DataItem(m.sum));
    put("lower_quartile", DataItem(m.lower_quartile));
    put("median", DataItem(m.median));
    put("upper_quartile", DataItem(m.upper_quartile));
    return row;
}

DerivedPointer<Table> PageTable(RowTable const& rows)
{
    SetTableColumnOrder(rows.Get(), "file,page,block,width,height,type,factor,minimum,minimum_at,"
                                    "maximum,maximum_at,mean,stddev,sum,lower_quartile,median,"
                                    "upper_quartile");
    return rows.Get();
}

std::string TableForm(Table const& table, std::string const& form)
{
    SerializeVisitor visitor;
    safestring text;
    Formatter const formatter = FormatterOf(form);
    table.Serialize(formatter.FormatNumber(), visitor, "table", formatter, text);
    return text.c_str();
}

void PrintTable(std::ostream& out, Table const& table, std::string const& form)
{
    if (form == "xml") {
        SerializeVisitor visitor;
        out << RowsAsXml(table, visitor, FormatterOf(form)).c_str();
    } else if (form == "html") {
        out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>measure</title></head>"
               "<body>\n"
            << TableForm(table, form) << "</body></html>\n";
    } else { // the form itself has no line of names
        for (int i = 0; i < table.ColumnCount(); ++i)
            out << (i > 0 ? "\t" : "") << table.ColumnName(i).c_str()
                << (i + 1 == table.ColumnCount() ? "\n" : "");
        out << TableForm(table, form);
    }
}

} // namespace measure
