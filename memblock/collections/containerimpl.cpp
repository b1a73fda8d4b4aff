#include <memblock/collections/containerimpl_internal.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace NKelmic {

ContainerImpl::~ContainerImpl() noexcept(false)
{
    for (ContainerWalk* walk = walks_; walk; walk = walk->outer_) {
        walk->gone_ = true;
        walk->impl_ = nullptr;
    }
}

ContainerImpl* ContainerImpl::Clone() const
{
    return new ContainerImpl(*this);
}

ContainerIterator ContainerImpl::Put(safestring const& name, SafeValue const& value)
{
    SafeValue incoming(value); // then holds what was stored before, and goes last
    auto const item = Add(name).first;
    item->second.swap(incoming);
    return item;
}

std::pair<ContainerIterator, bool> ContainerImpl::Add(safestring const& name)
{
    auto const result = map_.try_emplace(name);
    if (result.second)
        index_.Added(result.first);
    return result;
}

ContainerIterator ContainerImpl::FindByKey(safestring const& key)
{
    auto item = Find(key);
    if (item != map_.end() || !IsQuotedName(key))
        return item;
    safestring name = key;
    UnquoteName(name);
    item = Find(name);
    if (item != map_.end() || !IsQuotedName(name))
        return item;
    std::size_t pairs = 0; // all of them go, see KeyOfItem
    while (2 * pairs + 2 <= name.size() && name[pairs] == '@' &&
           name[name.size() - 1 - pairs] == '@')
        ++pairs;
    return Find(name.substr(pairs, name.size() - 2 * pairs));
}

unsigned int ContainerImpl::GetPos(ContainerConstIterator item) const
{
    return static_cast<unsigned int>(std::distance(map_.begin(), item));
}

ContainerIterator ContainerImpl::GetAt(unsigned int pos)
{
    return pos < map_.size() ? std::next(map_.begin(), pos) : map_.end();
}

bool ContainerImpl::Delete(safestring const& name)
{
    auto const item = Find(name);
    if (item == map_.end())
        return false;
    Delete(item);
    return true;
}

void ContainerImpl::Delete(ContainerIterator item)
{
    Unlink(item);
}

bool ContainerImpl::IsOrdered() const
{
    return false;
}

void ContainerImpl::Clear()
{
    index_.Drop();
    ContainerMap dropped;
    dropped.swap(map_);
    for (ContainerWalk* walk = walks_; walk; walk = walk->outer_) {
        walk->gone_ = true;
        walk->item_ = map_.end();
    }
}

ContainerMap::node_type ContainerImpl::Unlink(ContainerIterator item)
{
    for (ContainerWalk* walk = walks_; walk; walk = walk->outer_) {
        if (walk->item_ != item)
            continue;
        ++walk->item_;
        walk->gone_ = true;
    }
    index_.Removed(item);
    return map_.extract(item);
}

void ContainerImpl::TakeItems(ContainerImpl& other)
{
    walks_ = std::exchange(other.walks_, nullptr);
    for (ContainerWalk* walk = walks_; walk; walk = walk->outer_) {
        walk->impl_ = this;
        if (walk->item_ == other.map_.end())
            walk->item_ = map_.end();
    }
    index_.Drop();
    other.index_.Drop();
    map_.swap(other.map_); // nodes stay where they are
}

ContainerImpl* OrderedImpl::Clone() const
{
    auto clone = std::make_unique<OrderedImpl>();
    clone->map_ = map_;
    clone->positions_.reserve(positions_.size());
    for (ContainerIterator const item : positions_)
        clone->positions_.push_back(clone->map_.find(item->first));
    return clone.release();
}

ContainerIterator OrderedImpl::Put(safestring const& name, SafeValue const& value)
{
    MakeRoom();
    SafeValue incoming(value);
    auto const [item, is_new] = Add(name);
    item->second.swap(incoming);
    if (is_new)
        positions_.push_back(item);
    return item;
}

unsigned int OrderedImpl::GetPos(ContainerConstIterator item) const
{
    auto const place = std::find(positions_.begin(), positions_.end(), item);
    return place == positions_.end() ? Count()
                                     : static_cast<unsigned int>(place - positions_.begin());
}

ContainerIterator OrderedImpl::GetAt(unsigned int pos)
{
    return pos < positions_.size() ? positions_[pos] : map_.end();
}

void OrderedImpl::Delete(ContainerIterator item)
{
    auto const place = std::find(positions_.begin(), positions_.end(), item);
    if (place != positions_.end())
        positions_.erase(place);
    Unlink(item);
}

bool OrderedImpl::IsOrdered() const
{
    return true;
}

void OrderedImpl::Clear()
{
    positions_.clear();
    ContainerImpl::Clear();
}

OrderedImpl* OrderedImpl::CreateFrom(ContainerImpl& items)
{
    auto ordered = std::make_unique<OrderedImpl>();
    ordered->positions_.reserve(items.Count());
    ordered->TakeItems(items);
    for (auto item = ordered->map_.begin(); item != ordered->map_.end(); ++item)
        ordered->positions_.push_back(item);
    return ordered.release();
}

/// Room for one more, so that nothing fails once the item is in the map.
void OrderedImpl::MakeRoom()
{
    constexpr std::size_t least = 8;
    if (positions_.size() == positions_.capacity())
        positions_.reserve(std::max(least, 2 * positions_.size()));
}

ContainerIterator OrderedImpl::InsertAt(unsigned int pos, safestring const& name,
                                        SafeValue const& value)
{
    MakeRoom();
    SafeValue incoming(value);
    auto const [item, is_new] = Add(name);
    item->second.swap(incoming);
    unsigned int const old = is_new ? Count() : GetPos(item);
    auto const size = static_cast<unsigned int>(positions_.size());
    if (old < size)
        Move(old, pos);
    else
        positions_.insert(positions_.begin() + std::min(pos, size), item);
    return item;
}

/// Move an entry ahead of the one that stands at `pos`.
void OrderedImpl::Move(unsigned int from, unsigned int pos)
{
    auto const at = positions_.begin();
    if (pos < from) {
        std::rotate(at + pos, at + from, at + from + 1);
    } else if (pos > from) {
        auto const last = static_cast<unsigned int>(positions_.size()) - 1;
        std::rotate(at + from, at + from + 1, at + std::min(pos - 1, last) + 1);
    }
}

bool OrderedImpl::ReplaceAt(unsigned int pos, safestring const& name, SafeValue const& value)
{
    ContainerMap fresh;
    fresh.try_emplace(name, value);
    // Goes last: the name and the value that came in may be those of the item that goes.
    auto const dropped = Unlink(positions_[pos]);
    auto const result = map_.insert(fresh.extract(fresh.begin()));
    if (result.inserted) {
        index_.Added(result.position);
        positions_[pos] = result.position;
    } else {
        positions_.erase(positions_.begin() + pos);
    }
    return result.inserted;
}

} // namespace NKelmic
