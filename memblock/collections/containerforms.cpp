#include <memblock/collections/container.h>

#include <memblock/base/appendwhole_internal.h>
#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/collections/containerimpl_internal.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/core/serializer.h>
#include <memblock/serial/warning.h>

namespace NKelmic {
namespace {

constexpr int digits = 18; // of a double in both forms

/// The type of a value, with the two kinds of text as one.
ItemType KindOf(DataItem const& value)
{
    return value.GetType() == it_shortstring ? it_string : value.GetType();
}

bool IsNumber(ItemType kind)
{
    return kind == it_int || kind == it_double || kind == it_int64;
}

/// An object or a sharable that has a form of its own.
bool IsNested(DataItem& value)
{
    return value.GetType() == it_sharable || (value.GetType() == it_memblock && value.MemoryRef());
}

void CheckForLoop(Container const& container, SerializeVisitor const& v)
{
    if (ContainerWalk::IsUnderWay(container, &v))
        Raise(err_state, "An object that holds itself cannot be serialized: %s", container);
}

void Descend(DataItem const& value, int format, SerializeVisitor& v, safestring const& path,
             Formatter const& formatter, safestring& output)
{
    WithEnoughStack([&] { v.Descend(value, format, path, formatter, output); });
}

/// Append `name=value` for each item, with commas between.
class ExpressionList {
public:
    ExpressionList(ContainerMap const& items, safestring& text) : items_(items), text_(text) {}
    void Add(ContainerMap::value_type const& item)
    {
        if (!first_)
            text_ += ',';
        first_ = false;
        text_ += KeyOfItem(item.first,
                           [this](safestring const& name) { return items_.count(name) > 0; });
        text_ += '=';
        WithEnoughStack([&] { text_ += item.second.GetExpression(); });
    }

private:
    ContainerMap const& items_;
    safestring& text_;
    bool first_ = true;
};

} // namespace

void ContainerImpl::GetExpression(safestring& expression) const
{
    expression += "cnt(";
    ExpressionList list(map_, expression);
    for (auto const& item : map_)
        list.Add(item);
    expression += ')';
}

void OrderedImpl::GetExpression(safestring& expression) const
{
    expression += "ocnt(";
    ExpressionList list(map_, expression);
    for (ContainerIterator const item : positions_)
        list.Add(*item);
    expression += ')';
}

safestring Container::GetExpression() const
{
    static constexpr char purpose = 0;
    if (ContainerWalk::IsUnderWay(*this, &purpose)) // as objects without an expression
        return MemBlock::ResolveSubItem("@expression", throw_always).GetString();
    ContainerWalk const mark(*this, &purpose);
    safestring expression;
    impl_->GetExpression(expression);
    return expression;
}

namespace {

/// The text of the container itself; that of objects goes to `output` at once.
safestring XmlElements(Container const& container, SerializeVisitor& v, safestring const& path,
                       Formatter const& formatter, safestring& output)
{
    safestring text;
    ContainerWalk walk(container, &v);
    while (auto* const item = walk.Next()) {
        SafeValue& value = item->second;
        ItemType const kind = KindOf(value);
        bool const nested = IsNested(value);
        if (!nested && kind != it_string && !IsNumber(kind))
            continue;
        text += "<a n=\"";
        text += item->first;
        text += "\" t=\"";
        text += Type2XmlType(kind);
        text += '"';
        if (kind == it_memblock) {
            text += " c=\"";
            text += value.MemoryRef()->Class();
            text += '"';
        }
        text += '>';
        if (nested) {
            Descend(value, Formatter::ser_xml, v, path + "." + item->first, formatter, output);
        } else if (kind == it_string) {
            safestring const content = value.DataItem::GetString();
            EncodeXmlEntities(content.data(), static_cast<int>(content.size()), text);
        } else {
            text += value.GetExpression(digits);
        }
        text += "</a>\n";
    }
    return text;
}

/// The values that a script writes as they are. Objects follow in scripts of their own.
void AppendPlainItems(Container const& container, safestring const& path, safestring& output)
{
    ContainerWalk walk(container);
    while (auto const* const item = walk.Next()) {
        ItemType const kind = KindOf(item->second);
        if (kind == it_pointer) {
            Warning(err_request,
                    Text("Serializing of raw pointers not supported: %s.%s", path, item->first));
        } else if (kind == it_string || IsNumber(kind)) {
            output += Text("%s=%s,", item->first, item->second.GetExpression(digits));
        }
    }
}

} // namespace

void SerializeContainer2Xml(Container const& container, SerializeVisitor& v, safestring const& path,
                            Formatter const& formatter, safestring& output)
{
    CheckForLoop(container, v);
    AppendWhole(output, [&] { output += XmlElements(container, v, path, formatter, output); });
}

void Container::SerializeMorvane(SerializeVisitor& v, safestring const& path,
                                 Formatter const& formatter, safestring& output) const
{
    CheckForLoop(*this, v);
    AppendWhole(output, [&] {
        safestring const variable =
            is_alphanumeric(path) ? path : v.name_prefix_ + str(++v.counter_);
        output += Text("set(%s=cnt(", variable);
        AppendPlainItems(*this, path, output);
        output += "))\n";
        // Ahead of what lies below: that goes to places in this container.
        if (path != variable)
            output += Text("Set(%s=%s)\nDelete(%s)\n", path, variable, variable);
        ContainerWalk walk(*this, &v);
        while (auto* const item = walk.Next())
            if (IsNested(item->second))
                Descend(item->second, Formatter::ser_morvane, v, path + "." + item->first,
                        formatter, output);
    });
}

void Container::DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                            Formatter const& formatter, safestring& output) const
{
    switch (format) {
    case Formatter::ser_xml:
        return SerializeContainer2Xml(*this, v, path, formatter, output);
    case Formatter::ser_morvane:
        return SerializeMorvane(v, path, formatter, output);
    default:
        Raise(err_request, "Serialization format %d not supported for: %s", format, *this);
    }
}

} // namespace NKelmic
