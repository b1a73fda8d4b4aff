#include <memblock/core/memblockimpl.h>

#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/core/childwalk_internal.h>
#include <memblock/core/md5.h>
#include <memblock/core/safevalue.h>
#include <memblock/core/summarykeys.h>
#include <memblock/logging/logger.h>
#include <memblock/threads/mutex.h>

namespace NKelmic {
namespace {

constexpr char const* not_implemented_text =
    "MemBlockImpl::CalculateSecondaryItem(): key not implemented:%d";
/// Its address marks that report, see `NumberHandler`.
constexpr char not_implemented_mark = 0;

/// Handler for the two scalar keys asked for as numbers: an object without a scalar is then told
/// of in the words of the key, not of its number. All else passes on.
class NumberHandler : public ThrowHandlerBase {
public:
    explicit NumberHandler(ThrowHandlerFunc outer) : outer_(outer) {}
    unsigned int operator()(Exception const& e) override
    {
        return e.Extra() == &not_implemented_mark ? e.Code() : outer_(e);
    }
    bool DoVerb(verb_t verb) override { return outer_.DoVerb(verb); }

private:
    ThrowHandlerFunc outer_;
};

DataItem ReportNotImplemented(int key, ThrowHandlerFunc handler)
{
    if (handler == ThrowHandlerFunc(throw_never))
        return {};
    bool const wordless = handler.DoVerb(ThrowHandlerBase::verb_only_fact);
    Throw(Exception(err_request, wordless ? safestring() : Text(not_implemented_text, key),
                    &not_implemented_mark),
          handler);
    return {};
}

safestring ContentHash(MemBlock& block, bool needs_valid_data)
{
    md5_visitor visitor(needs_valid_data);
    unsigned char digest[16];
    MD5Init(&visitor.context);
    block.Entertain(visitor, safestring(), MemBlock::em_all);
    MD5Final(digest, &visitor.context);
    return Md5ToText(digest);
}

DataItem ItemForNumber(MemBlockImpl& impl, int key, ThrowHandlerFunc handler)
{
    if ((key != MemBlock::key_int && key != MemBlock::key_double) ||
        handler == ThrowHandlerFunc(throw_never))
        return impl.SecondaryItem(key, handler);
    NumberHandler number_handler(handler);
    return impl.SecondaryItem(key, number_handler);
}

/// A key in error texts; its name is made only if somebody reads it.
struct KeyName {
    int key;
};

safestring TextArg(KeyName const& name)
{
    char const* const known = SummaryKeyName(name.key);
    return known ? safestring(known) : str(name.key);
}

template <class Number>
Number CalculateNumber(MemBlockImpl& impl, int key, ThrowHandlerFunc handler)
{
    SafeValue const item(ItemForNumber(impl, key, handler));
    if (item.IsUndefined())
        Report(handler, err_kind, "Cannot calculate subkey: %s", KeyName{key});
    else if constexpr (std::is_integral_v<Number>)
        return item.GetInt(handler);
    else
        return item.GetFloating(handler);
    return 0;
}

} // namespace

MemBlockImpl::MemBlockImpl(MemBlock const* owner) : owner_(const_cast<MemBlock*>(owner)) {}

MemBlockImpl::~MemBlockImpl() noexcept(false) {}

void MemBlockImpl::FlushSecondary()
{
    std::map<int, DataItem> dropped;
    if (!(owner_->Flags() & MemBlock::mem_has_sticky)) {
        dropped.swap(items_);
    } else {
        while (!items_.empty() && items_.begin()->first <= MemBlock::key_last_volatile)
            dropped.insert(dropped.end(), items_.extract(items_.begin()));
    }
}

void MemBlockImpl::CloneFrom(MemBlockImpl const* source)
{
    if (!source)
        return;
    auto const first_sticky = source->items_.upper_bound(MemBlock::key_last_volatile);
    std::map<int, DataItem> fresh(first_sticky, source->items_.end());
    // Nodes are moved, so from here on nothing fails; what was replaced goes last.
    fresh.merge(items_);
    fresh.swap(items_);
}

DataItem MemBlockImpl::DoVerb(char const*, int, SafeValue*)
{
    return {};
}

DataItem MemBlockImpl::CalculateSecondaryItem(int key, ThrowHandlerFunc handler) const
{
    switch (key) {
    case MemBlock::key_md5:
    case MemBlock::key_md5_plain:
        return DataItem(ContentHash(*owner_, key == MemBlock::key_md5));
    case MemBlock::key_int:
    case MemBlock::key_double:
        if (DataItem scalar = owner_->DoVerb("scalar", 0, nullptr); scalar.IsDefined())
            return scalar;
        break;
    case MemBlock::key_thread_id:
        // As an int: the item of an unsigned number of 0x80000000 and more would be a double.
        return DataItem(static_cast<int>(Mutex::GetCurrentThreadId()));
    default:
        break;
    }
    return ReportNotImplemented(key, handler);
}

DataItem MemBlockImpl::SecondaryItem(int key, ThrowHandlerFunc handler)
{
    if (DataItem const* const stored = Find(key))
        return *stored;
    DataItem item = CalculateSecondaryItem(key, handler);
    SetSecondaryItem(key, item);
    return item;
}

int MemBlockImpl::CalculateInt(int key, ThrowHandlerFunc handler)
{
    return CalculateNumber<int>(*this, key, handler);
}

double MemBlockImpl::CalculateDouble(int key, ThrowHandlerFunc handler)
{
    return CalculateNumber<double>(*this, key, handler);
}

PMemBlock MemBlockImpl::SecondaryMemBlock(int key, ThrowHandlerFunc handler)
{
    DataItem const item = SecondaryItem(key, handler);
    PMemBlock block = item.IsDefined() ? item.GetMemory() : PMemBlock();
    if (!block)
        Report(handler, err_kind, "Could not calculate key %d for: %s", key, *owner_);
    return block;
}

void MemBlockImpl::SetSecondaryItem(int key, DataItem const& item)
{
    DataItem value(item); // then holds what was stored before, and goes last
    if (value.IsUndefined()) {
        if (auto const found = items_.find(key); found != items_.end()) {
            value.swap(found->second);
            items_.erase(found);
        }
        return;
    }
    items_[key].swap(value);
    if (key > MemBlock::key_last_volatile)
        owner_->RaiseFlags(MemBlock::mem_has_sticky);
}

bool MemBlockImpl::ExistsSecondaryItem(int key, DataItem& out) const
{
    DataItem const* const stored = Find(key);
    if (stored)
        out = *stored;
    return stored != nullptr;
}

bool MemBlockImpl::ExistsSecondaryInt(int key, int& out) const
{
    DataItem const* const stored = Find(key);
    if (stored)
        out = stored->GetInt();
    return stored != nullptr;
}

bool MemBlockImpl::ExistsSecondaryDouble(int key, double& out) const
{
    DataItem const* const stored = Find(key);
    if (stored)
        out = stored->GetDouble();
    return stored != nullptr;
}

void MemBlockImpl::TakeDerivedObjects(std::vector<DataItem>& out, bool keep_transient)
{
    auto const end = items_.upper_bound(MemBlock::key_last_volatile);
    for (auto at = items_.begin(); at != end;) {
        bool const stays = at->second.GetType() != it_memblock ||
                           (keep_transient && at->first == MemBlock::key_transient);
        if (!stays)
            out.push_back(at->second);
        at = stays ? std::next(at) : items_.erase(at);
    }
}

// A visitor may store and erase items, flush the cache or have the owner drop it. So each item is
// looked up anew, in the cache that the owner has then.

PMemBlock* MemBlockImpl::FindObject(MemBlock const& owner, int key)
{
    MemBlockImpl* const cache = owner.PimplIfAny();
    if (!cache)
        return nullptr;
    auto const found = cache->items_.find(key);
    bool const is_object = found != cache->items_.end() && found->second.GetType() == it_memblock;
    return is_object ? &found->second.MemoryRef() : nullptr;
}

bool MemBlockImpl::Entertain(MemBlockVisitor& v, safestring const& path,
                             MemBlock::entertainmode_t mode)
{
    static constexpr std::pair<int, char const*> attributes[] = {
        {MemBlock::key_transient, "@transient"}, {MemBlock::key_sticky, "@sticky"}};
    MemBlock const& owner = *owner_;
    KeepAlive const alive(owner);
    for (auto const& [key, name] : attributes) {
        auto const find = [&, key = key] { return FindObject(owner, key); };
        PMemBlock* const attribute = find();
        if (attribute && !EntertainPlace(*attribute, find, v,
                                         TraverseNode(TraverseNode(path), name).Path(), mode))
            return false;
    }
    return !v.SeesStickyItems() || EntertainSticky(owner, v, path, mode);
}

/// The objects among the sticky items, beside the attribute.
bool MemBlockImpl::EntertainSticky(MemBlock const& owner, MemBlockVisitor& v,
                                   safestring const& path, MemBlock::entertainmode_t mode)
{
    int key = MemBlock::key_last_volatile;
    while (MemBlockImpl* const cache = owner.PimplIfAny()) {
        auto const next = cache->items_.upper_bound(key);
        if (next == cache->items_.end())
            break;
        key = next->first;
        auto const find = [&] { return FindObject(owner, key); };
        PMemBlock* const item = key == MemBlock::key_sticky ? nullptr : find();
        if (item &&
            !EntertainPlace(*item, find, v,
                            TraverseNode(TraverseNode(path), Text("@sticky:%d", key)).Path(), mode))
            return false;
    }
    return true;
}

void MemBlockImpl::Traverse(TraverseVisitor& v, TraverseNode const& node)
{
    MemBlock const& owner = *owner_;
    KeepAlive const alive(owner);
    int key = MemBlock::key_last_volatile;
    while (MemBlockImpl* const cache = owner.PimplIfAny()) {
        auto const next = cache->items_.upper_bound(key);
        if (next == cache->items_.end())
            break;
        key = next->first;
        next->second.Traverse(v, TraverseNode(node, Text("@sticky:%d", key)));
    }
}

void PimplFlushSecondary(MemBlockImpl* pimpl)
{
    if (!pimpl)
        return;
    pimpl->CountFlush(); // first: what is flushed may end the owner
    pimpl->FlushSecondary();
}

safestring MemKey2String(int key)
{
    switch (key) {
    case key_histogram:
        return "histogram";
    case MemBlock::key_sticky:
        return "@sticky";
    case MemBlock::key_transient:
        return "@transient";
    default:
        break;
    }
    constexpr int level = 4;
    if (Logger::Enabled(topic_run, level))
        Logger::Log(topic_run, "key", level,
                    Text("MBI501: No translation for MemBlock key: %d", key));
    return Text("@key%d", key);
}

} // namespace NKelmic
