#ifndef MEMBLOCK_TESTS_COLLECTIONS_CONTAINER_FIXTURE_H
#define MEMBLOCK_TESTS_COLLECTIONS_CONTAINER_FIXTURE_H

#include <memblock/base/raise.h>
#include <memblock/collections/container.h>

#include <string>

namespace NKelmic {

/// A sharable that answers verbs as it is told and writes "{name format path}".
class NamedSharable : public ThreadSharable {
public:
    explicit NamedSharable(safestring const& text) : name(text) {}
    safestring GetDescription() const override { return name; }
    ThreadSharablePointer<ThreadSharable> DoClone() const override
    {
        return new NamedSharable(name + "'");
    }
    void DoSerialize(int format, SerializeVisitor&, safestring const& path, Formatter const&,
                     safestring& output) const override
    {
        output += Text("{%s %d %s}", name, format, path);
    }
    DataItem DoVerb(char const* verb, SafeValue const& a, SafeValue const& b) override
    {
        asked = std::string(verb) + ' ' + (b.IsDefined() ? b.GetString().c_str() : "");
        argument = a;
        return answer;
    }

    safestring name;
    DataItem answer;    ///< to every verb
    std::string asked;  ///< the last verb and its second argument
    SafeValue argument; ///< the first one
};

/// Names and values in the order that lists go by, as "a=1 b=text".
inline std::string Listed(DerivedPointer<Container> const& c)
{
    std::string text;
    for (unsigned i = 0; i < c->Count(); ++i) {
        if (i > 0)
            text += ' ';
        text += c->GetNameByPos(static_cast<int>(i)).c_str();
        text += '=';
        text += c->GetAt(i).DataItem::GetString().c_str();
    }
    return text;
}

/// An ordered container of one-letter items, each with its place as value.
inline DerivedPointer<Container> Ordered(std::string const& names)
{
    auto const c = Container::CreateOrdered();
    for (std::size_t i = 0; i < names.size(); ++i)
        c->Put(static_cast<int>(i), safestring(1, names[i]));
    return c;
}

/// Containers in each other under the name "a", the innermost with the number 1 as "leaf".
inline DerivedPointer<Container> Nested(int depth)
{
    DerivedPointer<Container> c = Cnt("leaf", 1);
    for (int i = 1; i < depth; ++i)
        c = Cnt("a", DataItem(c));
    return c;
}

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_COLLECTIONS_CONTAINER_FIXTURE_H
