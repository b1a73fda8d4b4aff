#include <memblock/core/dataitem.h>

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/core/safevalue.h>

#include <climits>
#include <cmath>

namespace NKelmic {

namespace {

// The greatest int stands for infinity throughout, so that macros can write it as a number.
safestring IntExpression(int v)
{
    return v == INT_MAX ? safestring("oo") : str(v);
}

safestring DoubleExpression(double v, int precision)
{
    return std::fabs(v - 2147483647.0) < 0.001 ? safestring("oo") : str(v, precision);
}

safestring DescribeText(safestring const& text)
{
    if (text.size() <= 80)
        return Text("\"%s\" (string)", text);
    return Text("\"%s...\" (string, %d bytes)", text.substr(0, 77), text.size());
}

safestring ScalarText(MemBlock& block)
{
    DataItem const scalar = block.DoVerb("scalar", 0, nullptr);
    bool const itself = scalar.GetType() == it_memblock && scalar.GetMemory().Pointer() == &block;
    return scalar.IsUndefined() || itself ? block.GetDescription() : scalar.GetString();
}

safestring DescribeSharable(ThreadSharable* sharable)
{
    return sharable ? sharable->GetDescription() : safestring("missing Sharable object");
}

} // namespace

safestring DataItem::GetString() const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string:
        return safestring(AsText());
    case it_int:
        return str(Load<int>());
    case it_double:
        return str(Load<double>(), 12);
    case it_pointer:
        return Text("<Pointer> %p", Load<void const*>());
    case it_memblock:
        return Block() ? ScalarText(*Block()) : safestring("missing");
    case it_sharable:
        return DescribeSharable(Load<ThreadSharable*>());
    case it_int64:
        return str(Load<long long>());
    default:
        return "{Undefined}";
    }
}

void DataItem::GetStringTo(safestring& out) const
{
    out = GetString();
}

void DataItem::GetString(opaquestring& out) const
{
    View text;
    if (FindText(text))
        return out.Assign(text.data(), text.size());
    safestring const other = GetString();
    out.Assign(other.data(), other.size());
}

safestring DataItem::GetExpression(int precision) const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string:
        return Text("\"%s\"", QuoteAdd(GetString()));
    case it_int:
        return IntExpression(Load<int>());
    case it_double:
        return DoubleExpression(Load<double>(), precision);
    case it_pointer:
        return Text("%p", Load<void const*>());
    case it_memblock:
        return Block() ? Block()->GetSubItem("@expression", throw_always).GetString()
                       : safestring("none");
    case it_sharable:
        return "{Pointer to a ThreadSharable object.}";
    case it_int64:
        return str(Load<long long>());
    default:
        Raise(err_value, "Data item has no expression: %s", *this);
    }
}

safestring DataItem::GetDescription() const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string:
        return DescribeText(GetString());
    case it_int:
        return Text("%s (integer)", IntExpression(Load<int>()));
    case it_double:
        return Text("%s (floating-point)", DoubleExpression(Load<double>(), 12));
    case it_pointer:
        return Text("%p (naked pointer)", Load<void const*>());
    case it_memblock:
        return Block() ? Block()->GetDescription() : safestring("missing memblock");
    case it_sharable:
        return DescribeSharable(Load<ThreadSharable*>());
    case it_int64:
        return Text("%s (integer64)", str(Load<long long>()));
    default:
        return "{Undefined}";
    }
}

} // namespace NKelmic
