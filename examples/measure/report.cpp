#include <measure/report.h>

#include <measure/forms.h>

namespace measure {
namespace {

/// Prints "  name          value", and with a factor the cooked value beside it.
class Lines {
public:
    Lines(std::ostream& out, double factor) : out_(out), factor_(factor) {}

    void Text(std::string name, std::string const& value)
    {
        constexpr std::size_t column = 16;
        name.resize(column, ' ');
        out_ << "  " << name << value << '\n';
    }

    void Value(std::string const& name, double raw, std::string const& place = "")
    {
        std::string const cooked =
            factor_ == 1 ? "" : "  (cooked " + NumberText(raw * factor_) + ")";
        Text(name, NumberText(raw) + place + cooked);
    }

private:
    std::ostream& out_;
    double factor_;
};

std::string Place(Extreme const& extreme)
{
    return " at " + std::to_string(extreme.index);
}

void PrintMeasures(Lines& lines, Measures const& measures)
{
    if (measures.minimum.index >= 0) {
        lines.Value("minimum", measures.minimum.value, Place(measures.minimum));
        lines.Value("maximum", measures.maximum.value, Place(measures.maximum));
    } else {
        lines.Text("minimum", "none");
        lines.Text("maximum", "none");
    }
    lines.Value("mean", measures.mean);
    lines.Value("stddev", measures.stddev);
    lines.Value("sum", measures.sum);
    lines.Value("lower quartile", measures.lower_quartile);
    lines.Value("median", measures.median);
    lines.Value("upper quartile", measures.upper_quartile);
}

void PrintBlock(std::ostream& out, Block const& block, Policies const& policies)
{
    NKelmic::Vector const& vector = cref(block.vector);
    Lines lines(out, vector.Factor());
    lines.Text("description", vector.GetDescription().c_str());
    lines.Text("element type", NKelmic::TypeToString(vector.ElemType()));
    lines.Text("length", std::to_string(vector.Length()));
    lines.Text("raw factor", NumberText(vector.Factor()));
    if (block.measured)
        PrintMeasures(lines, Measure(block.vector, policies));
}

} // namespace

void PrintPage(std::ostream& out, std::string const& title, Page page, Options const& options)
{
    out << title << ", " << page.width << " x " << page.height << '\n';
    for (Block const& block : BlocksOf(page, options.factor)) {
        out << ' ' << block.name << '\n';
        PrintBlock(out, block, options.policies);
    }
}

} // namespace measure
