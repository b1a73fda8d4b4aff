#include <measure/tables.h>

#include <memblock/serial/serializer.h>

namespace measure {

using namespace NKelmic;

namespace {

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

void PrintTable(std::ostream& out, Table const& table, std::string const& form)
{
    Formatter formatter;
    safestring const words = form == "text" ? "ascii,precision=12" : "html,precision=12";
    formatter.Init(safestringlist(words, ','), throw_always);
    SerializeVisitor visitor;
    safestring text;
    if (form == "xml") {
        text = RowsAsXml(table, visitor, formatter);
    } else {
        if (form == "text") // the form itself has no line of names
            for (int i = 0; i < table.ColumnCount(); ++i)
                text += (i > 0 ? "\t" : "") + table.ColumnName(i) +
                        (i + 1 == table.ColumnCount() ? "\n" : "");
        table.Serialize(formatter.FormatNumber(), visitor, "table", formatter, text);
    }
    if (form == "html")
        out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>measure</title></head>"
               "<body>\n"
            << text.c_str() << "</body></html>\n";
    else
        out << text.c_str();
}

} // namespace measure
