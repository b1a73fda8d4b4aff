#include <memblock/core/md5.h>

#include <memblock/base/raise.h>
#include <memblock/collections/container.h>
#include <memblock/vector/packedlimits_internal.h>

#include <algorithm>
#include <limits>

namespace NKelmic {

int g_debug_md5_log = 0;

namespace {

/// Fed for an array without elements and for a container without items, so that they differ from
/// no array and no container. Hashes are compared between installations: never change them.
constexpr char empty_array_text[] = "4e1d0c7a93f2568bb0d6e3a1c97f2e48";
constexpr char empty_container_text[] = "qv7xk20915lmzt[]hgrpn-=-bcsa#%$!@&";
constexpr char undefined_text[] = "undef\xff";

void Feed(MD5Context& context, void const* data, unsigned long size)
{
    auto const* bytes = static_cast<unsigned char const*>(data);
    constexpr unsigned long most = std::numeric_limits<unsigned int>::max() / 64 * 64;
    while (size > 0) {
        auto const part = static_cast<unsigned int>(std::min(size, most));
        MD5Update(&context, bytes, part);
        bytes += part;
        size -= part;
    }
}

void FeedWithNul(MD5Context& context, safestring const& text)
{
    Feed(context, text.c_str(), text.size() + 1);
}

void CheckCast(Vector const& vector, DataType type)
{
    if (!vector.CanBeCast(type))
        Raise(err_kind, "Cannot cast data array into requested type: %s", vector);
}

/// needs_valid_data: let elements that wait for their initialization get it.
void FeedElements(MD5Context& context, Vector const& vector, bool needs_valid_data)
{
    unsigned long const length = vector.Length();
    if (length == 0) {
        Feed(context, empty_array_text, sizeof empty_array_text - 1);
        return;
    }
    DataType const type = vector.ElemType();
    if (type == DataTypeBase::PMemory)
        return; // the objects are children
    if (type == DataTypeBase::String || type == DataTypeBase::PolyType)
        CheckCast(vector, type);
    if (needs_valid_data)
        vector.Chunk().DelayedInitialize();
    void const* const data = vector.Chunk().Data();
    if (type == DataTypeBase::String) {
        auto const* texts = static_cast<safestring const*>(data);
        for (unsigned long i = 0; i < length; ++i)
            Feed(context, texts[i].data(), texts[i].size());
    } else if (type == DataTypeBase::PolyType) {
        auto const* items = static_cast<DataItem const*>(data);
        for (unsigned long i = 0; i < length; ++i)
            FeedWithNul(context, items[i].GetDescription());
    } else {
        Feed(context, data, length * vector.ElemSize());
    }
}

template <class T>
void FeedBytes(MD5Context& context, T word)
{
    Feed(context, &word, sizeof word);
}

void FeedSharable(MD5Context& context, ThreadSharable& sharable)
{
    DataItem const answer =
        sharable.DoVerb("md5", SafeValue(static_cast<void*>(&context)), SafeValue());
    if (answer.IsUndefined()) // it has not fed itself
        FeedWithNul(context, sharable.GetDescription());
}

void FeedValue(MD5Context& context, DataItem const& value)
{
    switch (value.GetType()) {
    case it_shortstring:
    case it_string: {
        safestring const text = value.GetString();
        return Feed(context, text.data(), text.size());
    }
    case it_int:
        return FeedBytes(context, value.GetInt());
    case it_double:
        return FeedBytes(context, value.GetDouble());
    case it_int64:
        return FeedBytes(context, value.GetInt64());
    case it_undefined:
        return Feed(context, undefined_text, sizeof undefined_text - 1);
    case it_sharable:
        return FeedSharable(context, *value.GetSharable());
    default:
        return; // objects are children
    }
}

void FeedItems(MD5Context& context, Container const& container)
{
    if (container.Count() == 0)
        return Feed(context, empty_container_text, sizeof empty_container_text - 1);
    for (auto const& [name, value] : container) {
        FeedWithNul(context, name);
        FeedValue(context, value);
    }
}

} // namespace

int md5_visitor::Visit(safestring const& path, PMemBlock& block)
{
    Md5UpdateThisObject(this, path, block, &context);
    return go_on;
}

void Md5UpdateThisObject(MemBlockVisitor* visitor, safestring const&, PMemBlock const& item,
                         void* context)
{
    auto& digest = *static_cast<MD5Context*>(context);
    FeedWithNul(digest, item.GetDescription());
    if (Vector const* const vector = MemCast<Vector>(item)) {
        auto const packed = PackedLimits(*vector); // both forms of the limits have one hash
        FeedElements(digest, packed ? cref(packed) : *vector, visitor->NeedsValidData());
    } else if (Container const* const container = MemCast<Container>(item))
        FeedItems(digest, *container);
}

void UpdateMD5(Container& container, void* visitor)
{
    constexpr int line = 204; // the place that callers know this failure by
    if (!visitor)
        ThrowAssertException("memblockimpl", line, "visitor");
    container.Entertain(*static_cast<MemBlockVisitor*>(visitor), safestring(), MemBlock::em_all);
}

void MemBlock::CheckSum(safestring const&, ThrowHandlerFunc) const {}

} // namespace NKelmic
