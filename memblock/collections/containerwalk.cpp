#include <memblock/collections/container.h>

#include <memblock/base/raise.h>
#include <memblock/collections/containerimpl_internal.h>
#include <memblock/core/childwalk_internal.h>

#include <utility>

namespace NKelmic {

ContainerWalk::ContainerWalk(Container const& container, void const* purpose)
    : alive_(container), impl_(container.impl_), outer_(std::exchange(impl_->walks_, this)),
      purpose_(purpose), item_(impl_->map_.begin())
{
}

bool ContainerWalk::IsUnderWay(Container const& container, void const* purpose)
{
    ContainerWalk const* walk = container.impl_->walks_;
    while (walk && walk->purpose_ != purpose)
        walk = walk->outer_;
    return walk != nullptr;
}

ContainerWalk::~ContainerWalk()
{
    if (impl_)
        impl_->walks_ = outer_;
}

ContainerMap::value_type* ContainerWalk::Next()
{
    if (!impl_)
        return nullptr;
    if (!std::exchange(gone_, false))
        ++item_;
    return item_ == impl_->map_.end() ? nullptr : &*item_;
}

ItemVisitor::~ItemVisitor() {}

void Container::ScanItems(ItemVisitor& v) const
{
    ContainerWalk walk(*this);
    while (auto const* const item = walk.Next()) {
        auto const [name, value] = *item; // the visitor may remove the item and read on
        v.Visit(name, value);
    }
}

void Container::ScanItems(MemBlockVisitor& v, char const* classname)
{
    ContainerWalk walk(*this);
    bool changed = false;
    while (auto* const item = walk.Next()) {
        SafeValue& value = item->second;
        if (value.GetType() != it_memblock)
            continue;
        MemBlock const* const before = value.MemoryRef().Pointer();
        if (classname && !value.MemoryRef().Conforms(classname)) // which may convert it
            continue;
        v.Visit(safestring(item->first), value.MemoryRef());
        if (walk.HasGone() || value.GetType() != it_memblock)
            continue;
        changed |= value.MemoryRef().Pointer() != before;
        if (!value.MemoryRef())
            value = SafeValue();
    }
    if (changed)
        ContentHasBeenChanged();
}

void Container::ScanItems(MemBlockVisitor& v, char const* classname) const
{
    const_cast<Container*>(this)->ScanItems(v, classname);
}

namespace {

// False ends the walk. In a traversal all that is no object is a value of the container itself.
bool EntertainValue(DataItem& value, MemBlockVisitor& v, safestring const& path,
                    MemBlock::entertainmode_t mode)
{
    if (mode == MemBlock::em_traverse)
        return v.Visit(path, value) != MemBlockVisitor::stop;
    if (value.GetType() != it_sharable)
        return true;
    auto const sharable = value.GetSharable();
    DataItem const answer =
        sharable->DoVerb("entertain", SafeValue(static_cast<void*>(&v)), SafeValue(path));
    return answer.GetType() != it_int || answer.GetInt() != 0;
}

} // namespace

bool Container::Entertain(MemBlockVisitor& v, safestring const& path, entertainmode_t mode)
{
    KeepAlive const alive(*this);
    if (!MemBlock::Entertain(v, path, mode))
        return false;
    if (mode == em_no_attr || ContainerWalk::IsUnderWay(*this, &v))
        return true;
    ContainerWalk walk(*this, &v);
    safestring const prefix = path.empty() ? path : path + ".";
    while (auto* const item = walk.Next()) {
        SafeValue& value = item->second;
        auto const find = [&]() -> PMemBlock* {
            bool const is_object = !walk.HasGone() && value.GetType() == it_memblock;
            return is_object ? &value.MemoryRef() : nullptr;
        };
        PMemBlock* const child = find();
        bool const go_on = child ? EntertainPlace(*child, find, v, prefix + item->first, mode)
                                 : EntertainValue(value, v, prefix + item->first, mode);
        if (!go_on)
            return false;
    }
    return true;
}

bool Container::Consistent(safestring& message, bool deep) const
{
    static constexpr char purpose = 0;
    if (ContainerWalk::IsUnderWay(*this, &purpose))
        return true; // it is looked at further up
    bool ok = true;
    ContainerWalk walk(*this, &purpose);
    while (auto* const item = walk.Next()) {
        if (item->second.GetType() != it_memblock || !item->second.MemoryRef())
            continue;
        safestring found;
        bool good = true;
        WithEnoughStack([&] { good = item->second.MemoryRef()->Consistent(found, deep); });
        if (good)
            continue;
        message += Text("{%s: %s}", item->first, found);
        ok = false;
    }
    return ok;
}

bool Container::Equals(MemBlock const& other) const
{
    auto const* const container = MemCast<Container>(&other);
    if (!container || Count() != container->Count())
        return false;
    if (ContainerWalk::IsUnderWay(*this, &other))
        return true; // unless another item tells them apart
    ContainerWalk const mark(*this, &other);
    bool equal = true;
    auto theirs = container->begin();
    for (auto mine = begin(); equal && mine != end(); ++mine, ++theirs)
        WithEnoughStack([&] { equal = mine->second == theirs->second; });
    return equal;
}

PMemBlock Container::DoClone(int mode) const
{
    DerivedPointer<Container> const clone(new Container(*this));
    if (mode > 1 && mode != deep_copy_mode)
        return clone;
    ContainerWalk walk(*clone);
    while (auto* const item = walk.Next()) {
        SafeValue& value = item->second;
        if (value.GetType() == it_sharable)
            value = SafeValue(DataItem(value.GetSharable()->DoClone()));
        else if (mode != deep_copy_mode && value.GetType() == it_memblock && value.MemoryRef())
            value.MemoryRef() = value.MemoryRef()->Clone(mode == 1);
    }
    return clone;
}

} // namespace NKelmic
