#include <memblock/core/dataitem.h>

#include <memblock/core/attempt_internal.h>
#include <memblock/core/subitem_internal.h>

namespace NKelmic {

namespace {

/// A value that a module asked for, by the reader of its type.
void Convert(DataItem const& found, DataItem& out)
{
    out = found;
}
void Convert(DataItem const& found, safestring& out)
{
    out = found.GetString();
}
void Convert(DataItem const& found, double& out)
{
    out = found.GetDouble();
}
void Convert(DataItem const& found, int& out)
{
    out = found.GetInt();
}
void Convert(DataItem const& found, PMemBlock& out)
{
    PMemBlock const block = found.GetMemory();
    if (!block)
        Raise(err_value, "Cannot convert data item to %s: %s", "memblock", found);
    out = block;
}

bool IsLengthKey(safestring const& key)
{
    return key == "length" || key == "size" || key == "@size" || key == "@length";
}

} // namespace

DataItem DataItem::ResolveSubItem(safestring const& key) const
{
    return ResolveSubItem(key, throw_always);
}

DataItem DataItem::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (key.empty())
        return *this;
    if (key == "@creator")
        return GetCreator();
    auto const expression = [&] {
        return AttemptAtDoor(handler,
                             [&](ThrowHandlerFunc) -> DataItem { return GetExpression(); });
    };
    if (key == "@expression")
        return expression();
    if (bits_.type == it_memblock && Block())
        return Block()->GetSubItem(key, handler);
    if (key == "expression")
        return expression();
    if (IsText()) {
        if (IsLengthKey(key))
            return BytePosToCharPos(static_cast<int>(AsText().size()));
        if (key == "buffer" || key == "@buffer")
            return static_cast<void*>(const_cast<char*>(GetStringPointer()));
    }
    return AttemptAtDoor(handler, [&](ThrowHandlerFunc key_handler) {
        DataItem found;
        if (bits_.type == it_sharable)
            found = Load<ThreadSharable*>()->DoVerb("getsubitem", SafeValue(key), SafeValue());
        else if (PMemBlock const block = GetMemory())
            found = block->GetSubItem(key, throw_never);
        if (found.IsUndefined())
            ReportNoSubKeyOfScalar(*this, key, key_handler);
        return found;
    });
}

template <class T>
void DataItemFetchThrow(DataItem const& item, safestring const& key, T& out)
{
    DataItem const found = item.ResolveSubItem(key, throw_always);
    if (found.IsUndefined())
        Raise(err_kind, "No such subitem \"%s\" in: %s", key, item.GetExpression());
    Convert(found, out);
}

template <class T>
bool DataItemFetchNoThrow(DataItem const& item, safestring const& key, T& out, T const& def)
{
    bool ok = true;
    CheckOk handler(ok);
    try {
        if (DataItem const found = item.ResolveSubItem(key, handler); found.IsDefined()) {
            Convert(found, out);
            return true;
        }
    } catch (Exception const&) {
        // a value that does not convert counts as missing
    }
    out = def;
    return false;
}

#define MEMBLOCK_FETCH(T)                                                                          \
    template MEMBLOCK_API void DataItemFetchThrow(DataItem const&, safestring const&, T&);         \
    template MEMBLOCK_API bool DataItemFetchNoThrow(DataItem const&, safestring const&, T&,        \
                                                    T const&);                                     \
    void DataItem::Fetch(safestring const& key, T& out) const                                      \
    {                                                                                              \
        DataItemFetchThrow(*this, key, out);                                                       \
    }                                                                                              \
    bool DataItem::Fetch(safestring const& key, T& out, T const& def) const                        \
    {                                                                                              \
        return DataItemFetchNoThrow(*this, key, out, def);                                         \
    }
MEMBLOCK_FETCH(DataItem)
MEMBLOCK_FETCH(PMemBlock)
MEMBLOCK_FETCH(safestring)
MEMBLOCK_FETCH(double)
MEMBLOCK_FETCH(int)
#undef MEMBLOCK_FETCH

} // namespace NKelmic
