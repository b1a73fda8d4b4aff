#include <memblock/collections/container.h>

#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/collections/containerimpl_internal.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/logging/logger.h>
#include <memblock/vector/vector.h>

namespace NKelmic {
namespace {

Container const& CheckedSource(PMemBlock const& other)
{
    Container const* const container = MemCast<Container>(other);
    if (!container)
        Raise(err_kind, "Cannot append from non-container");
    return *container;
}

/// The object of an item as a T; null if it holds none.
template <class T>
DerivedPointer<T> ObjectOf(DataItem const& item)
{
    if (item.GetType() != it_memblock)
        return {};
    PMemBlock const block = item.GetMemory();
    return DerivedPointer<T>(MemCast<T>(block));
}

/// Merge a container into an object that can take it; others stay as they are.
void MergeInto(PMemBlock const& target, DerivedPointer<Container> const& source)
{
    WithEnoughStack([&] {
        if (Container* const container = MemCast<Container>(target))
            container->Merge(source);
        else if (Vector* const vector = MemCast<Vector>(target))
            MergeToVector(DerivedPointer<Vector>(vector), source);
    });
}

bool SetSubItemSoftly(Vector& vector, safestring const& name, SafeValue const& value)
{
    try {
        return vector.SetSubItem(name, value, throw_never);
    } catch (Exception const&) {
        return false; // some setters raise whatever the handler is
    }
}

} // namespace

void Container::Append(DerivedPointer<Container> other)
{
    ContainerWalk walk(CheckedSource(other));
    while (auto const* const item = walk.Next())
        Put(item->second, item->first);
}

void Container::Merge(DerivedPointer<Container> other)
{
    Container const& source = CheckedSource(other);
    if (ContainerWalk::IsUnderWay(source, this))
        return;
    KeepAlive const alive(*this);
    ContainerWalk walk(source, this);
    while (auto const* const item = walk.Next())
        MergeItem(item->first, item->second);
    ContentHasBeenChanged(); // nested ones, too
}

void Container::MergeItem(safestring const& name, SafeValue const& value)
{
    auto const present = find(name);
    auto const source = ObjectOf<Container>(value);
    if (!source || present == end() || present->second.GetType() != it_memblock)
        Put(value, name);
    else
        MergeInto(present->second.DataItem::GetMemory(), source);
}

void MergeToVector(DerivedPointer<Vector> vector, DerivedPointer<Container> container)
{
    Container const& source_items = CheckedSource(container);
    if (ContainerWalk::IsUnderWay(source_items, vector.Pointer()))
        return;
    ContainerWalk walk(source_items, vector.Pointer());
    while (auto const* const item = walk.Next()) {
        safestring name = item->first;
        UnquoteName(name); // leaves a name without quotes alone
        SafeValue const value = item->second;
        DataItem const present = vector->GetSubItem(name, throw_never);
        auto const source = ObjectOf<Container>(value);
        if (source && present.GetType() == it_memblock) {
            MergeInto(present.GetMemory(), source);
        } else if (!SetSubItemSoftly(*vector, name, value)) {
            constexpr int level = 3;
            if (Logger::Enabled(topic_conv, level))
                Logger::Log(topic_conv, "MergeContainer", level,
                            Text("Could not merge into vector (%s): %s", vector, value));
        }
    }
}

} // namespace NKelmic
