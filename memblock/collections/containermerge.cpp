#include <memblock/collections/container.h>

#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/collections/containerimpl_internal.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/logging/logger.h>
#include <memblock/vector/vector.h>

#include <tuple>
#include <vector>

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

/// Keeps what stood under the names that are about to be stored to. Unless all goes well, it comes
/// back, which takes no memory.
class Undo {
public:
    explicit Undo(Container& container) : container_(container) {}
    ~Undo()
    {
        for (; !done_ && !old_.empty(); old_.pop_back()) {
            auto& [name, was_there, value] = old_.back();
            auto const item = container_.find(name);
            if (item == container_.end())
                continue;
            if (was_there)
                item->second.swap(value);
            else
                container_.erase(item);
        }
    }
    Undo(Undo const&) = delete;
    Undo& operator=(Undo const&) = delete;

    void Note(safestring const& name)
    {
        auto const item = container_.find(name);
        bool const is_there = item != container_.end();
        old_.emplace_back(name, is_there, is_there ? item->second : SafeValue());
    }
    void Done() { done_ = true; }

private:
    Container& container_;
    std::vector<std::tuple<safestring, bool, SafeValue>> old_;
    bool done_ = false;
};

/// Marks a container that is on its way into some vector. The one it meets may be new each time.
constexpr char merge_into_vector = 0;

} // namespace

void Container::Append(DerivedPointer<Container> other)
{
    ContainerWalk walk(CheckedSource(other));
    KeepAlive const alive(*this);
    Undo undo(*this);
    while (auto const* const item = walk.Next()) {
        undo.Note(item->first);
        Put(item->second, item->first);
    }
    undo.Done();
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
    if (ContainerWalk::IsUnderWay(source_items, &merge_into_vector))
        return; // it holds itself
    ContainerWalk walk(source_items, &merge_into_vector);
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
