#ifndef MEMBLOCK_EXAMPLES_MEASURE_FORMS_H
#define MEMBLOCK_EXAMPLES_MEASURE_FORMS_H

#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace measure {

/// What a column is called, and what its values are measured in; "" for counts and ratios.
struct Column {
    std::string name, unit;
};

/// Nothing, a text, a whole number or a real one.
using Cell = std::variant<std::monostate, std::string, long long, double>;

/// Writes a table row by row; independent of the locale. But for "text", which is rounded to be
/// read by people, numbers are as short as they read back the same.
class TableForm {
public:
    virtual ~TableForm() = default;
    virtual void Begin(std::vector<Column> const& columns) = 0;
    virtual void Row(std::span<Cell const> cells) = 0;
    virtual void End() {}
};

/// "csv" (RFC 4180), "tsv", "text" (aligned, 6 digits), "html" (a page), "xml" or "json". In JSON
/// NaN is null, and infinities are numbers too large for a double, which readers take as such.
std::unique_ptr<TableForm> MakeForm(std::string const& form, std::string const& title,
                                    std::ostream& out);
bool IsForm(std::string const& form);

/// A number as short as it reads back the same, independent of the locale: whole numbers below
/// 2^53 without exponent, others to 17 digits.
std::string NumberText(double value);

/// A text for HTML and XML.
std::string Encoded(std::string const& text);

/// A text as a JSON string, with its quotes; "</" is safe inside a script.
std::string JsonText(std::string const& text);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_FORMS_H
