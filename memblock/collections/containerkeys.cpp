#include <memblock/collections/container.h>

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/collections/containerimpl_internal.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/md5.h>
#include <memblock/core/subitem.h>
#include <memblock/vector/vector.h>

#include <algorithm>
#include <vector>

namespace NKelmic {
namespace {

constexpr char const* own_list = "@keys,@length,@isordered,";

DataItem KeyList(Container const& c, ThrowHandlerFunc handler)
{
    return own_list + c.MemBlock::ResolveSubItem("", handler).GetString();
}

DataItem FullList(Container const& c, ThrowHandlerFunc handler)
{
    safestring list = own_list;
    c.ListItems(list);
    list += ',';
    return list + c.MemBlock::ResolveSubItem("!", handler).GetString();
}

DataItem ContentList(Container const& c, ThrowHandlerFunc handler)
{
    safestring list;
    c.ListItems(list);
    list += ',';
    return list + c.MemBlock::ResolveSubItem("*", handler).GetString();
}

DataItem ItemCount(Container const& c, ThrowHandlerFunc)
{
    return c.Count();
}

/// The texts go from `texts` into the vector.
DataItem TextVector(std::vector<safestring>& texts)
{
    auto const vector = Vector::Create(texts.size(), Vector::String, false, 0, 1.0);
    std::swap_ranges(texts.begin(), texts.end(), vector->StringPointer());
    return vector;
}

DataItem Names(Container const& c, ThrowHandlerFunc)
{
    std::vector<safestring> names;
    names.reserve(c.Count());
    ForEachListed(c, [&](ContainerMap::value_type const& item) { names.push_back(item.first); });
    return TextVector(names);
}

/// What hangs below the container, each entry whole even if its name has a comma.
DataItem SubObjects(Container const& c, ThrowHandlerFunc handler)
{
    std::vector<safestring> names;
    ForEachListed(c, [&](ContainerMap::value_type const& item) {
        names.push_back(
            KeyOfItem(item.first, [&](safestring const& name) { return c.exists(name); }));
    });
    AnyKeyOfList(c.MemBlock::ResolveSubItem("*", handler).GetString(),
                 [&](KeyListEntry const& entry) {
                     names.emplace_back(entry.name.data(), entry.name.size());
                     return false;
                 });
    std::sort(names.begin(), names.end());
    return TextVector(names);
}

// The keys that come before the items.
constexpr KeyTable container_keys{std::to_array<Key<Container>>({
    {"", KeyList},
    {"!", FullList},
    {"_", [](Container const& c, ThrowHandlerFunc) -> DataItem { return PMemBlock(&c); }},
    {"*", ContentList},
    {"@length", ItemCount},
    {"@size", ItemCount},
    {"@keys", Names},
    {"@subobjects", SubObjects},
    {"@isordered",
     [](Container const& c, ThrowHandlerFunc) -> DataItem { return c.IsOrdered() ? 1 : 0; },
     [](Container& c, SafeValue const& value, ThrowHandlerFunc) {
         c.SetOrdered(value.GetInt() != 0);
         return true;
     }},
    {"@expression",
     [](Container const& c, ThrowHandlerFunc) -> DataItem { return c.GetExpression(); }},
})};

constexpr KeyTable container_verbs{std::to_array<Verb<Container>>({
    {"md5", 0,
     [](Container& c, int argc, SafeValue const* argv) -> DataItem {
         // A vector would give the address of its elements, which is no visitor.
         bool const told = argc > 0 && argv[0].GetType() == it_pointer;
         UpdateMD5(c, told ? argv[0].GetPointer() : nullptr);
         return 1;
     }},
})};

} // namespace

DataItem Container::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (auto const* const row = container_verbs.Find(verb))
        return row->run(*this, argc, argv);
    return MemBlock::DoVerb(verb, argc, argv);
}

// ---- what a key leads to

ContainerIterator Container::FindItem(safestring const& name_or_position) const
{
    if (!IsPosition(name_or_position))
        return impl_->FindByKey(name_or_position);
    bool ok = true;
    CheckOk check(ok);
    unsigned int const pos = StringToUInt()(name_or_position, check);
    return ok ? impl_->GetAt(pos) : impl_->Map().end();
}

SafeValue Container::Get(safestring const& key) const
{
    auto const none = impl_->Map().end();
    auto const colon = key.find(':');
    if (colon == safestring::npos) {
        auto const item = FindItem(key);
        return item == none ? SafeValue() : item->second;
    }
    if (IsQuotedName(key)) // the colon may be one of the name
        if (auto const item = impl_->FindByKey(key); item != none)
            return item->second;
    safestring const head = key.substr(0, colon);
    safestring const question = key.substr(colon + 1);
    if (question == "@name") {
        auto const item = FindItem(head);
        return SafeValue(item == none ? safestring() : item->first);
    }
    if (question == "@pos") {
        auto const item = FindItem(head);
        return item == none ? SafeValue(-1) : SafeValue(GetPos(item));
    }
    auto const item = impl_->FindByKey(head);
    return item == none ? SafeValue() : item->second;
}

PMemBlock Container::GetMemory(safestring const& name, char const* classname) const
{
    auto const item = impl_->Find(name);
    if (item == impl_->Map().end() || item->second.GetType() != it_memblock)
        return {};
    PMemBlock const block = item->second.DataItem::GetMemory();
    if (!classname || block.Conforms(classname))
        return block;
    if (!block.Conforms("attribute"))
        return {};
    PMemBlock const inner = ResolveAttribute1(block, throw_never);
    return inner.Conforms(classname) ? inner : PMemBlock();
}

DataItem Container::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (key.size() <= 1 || key[0] == '@')
        if (auto const* const row = container_keys.Find(key))
            return ReadKey(*row, *this, handler);
    if (DataItem value = Get(key); value.IsDefined())
        return value;
    if (!is_alphanumeric(key)) {
        safestring quoted = key;
        QuoteName(quoted);
        if (DataItem value = Get(quoted); value.IsDefined())
            return value;
    }
    if (DataItem value = MemBlock::ResolveSubItem(key, handler); value.IsDefined())
        return value;
    if (!handler.DoVerb(ThrowHandlerBase::verb_create_missing))
        return {};
    DerivedPointer<Container> const fresh = Create();
    bool const stored =
        const_cast<Container*>(this)->MemBlock::SetSubItem(key, DataItem(fresh), handler);
    return stored ? DataItem(fresh) : DataItem();
}

// ---- what a key says of the place

/// The position that a location tells; `colon` is the first one in the key.
unsigned int Container::PlaceOf(safestring const& key, safestring::size_type colon) const
{
    auto const second = key.find(':', colon + 1);
    bool const has_anchor = second != safestring::npos;
    safestring const word = key.substr(colon + 1, has_anchor ? second - colon - 1 : second);
    if (!has_anchor) {
        if (word == "@first")
            return 0;
        if (word == "@last")
            return Count();
    } else if (word == "@before" || word == "@after") {
        safestring const anchor = key.substr(second + 1);
        unsigned int pos = Count();
        if (IsPosition(anchor))
            pos = StringToUInt()(anchor);
        else if (auto const item = impl_->FindByKey(anchor); item != impl_->Map().end())
            pos = GetPos(item);
        return word == "@after" && pos < Count() ? pos + 1 : pos;
    }
    Raise(err_precondition, "Invalid location specificator: %s", key);
}

void Container::Insert(safestring const& key, SafeValue const& value)
{
    auto const colon = key.find(':');
    bool const is_name = colon == safestring::npos ||
                         (IsQuotedName(key) && impl_->FindByKey(key) != impl_->Map().end());
    if (!is_name) {
        InsertAt(PlaceOf(key, colon), NameByKey(key.substr(0, colon)), value);
    } else if (IsPosition(key)) {
        ReplaceValueAt(StringToUInt()(key), value);
    } else {
        KeepAlive const alive(*this);
        impl_->Put(NameByKey(key), value);
        ContentHasBeenChanged();
    }
}

/// The name of the item that a key leads to; without one the key itself.
safestring Container::NameByKey(safestring const& key) const
{
    auto const item = IsQuotedName(key) ? impl_->FindByKey(key) : impl_->Map().end();
    return item == impl_->Map().end() ? key : item->first;
}

bool Container::DoSetSubItem(safestring const& key, SafeValue const& value,
                             safestring const& full_path, ThrowHandlerFunc handler)
{
    // A quoted name is no fact, which saves the search in a list of all items.
    bool const is_item =
        key.empty() || key[0] != '@' || is_alphanumeric(key) || !IsSystemSubKey(*this, key);
    auto const* const row = is_item ? nullptr : container_keys.Find(key);
    if (!is_item && !(row && row->write))
        return MemBlock::DoSetSubItem(key, value, full_path, handler);
    if (row)
        return row->write(*this, value, handler);
    if (value.IsUndefined())
        Delete(NameByKey(key));
    else
        Insert(key, value);
    return true;
}

} // namespace NKelmic
