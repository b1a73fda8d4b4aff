#include <memblock/collections/container.h>

#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/collections/containerimpl_internal.h>

#include <utility>

namespace NKelmic {
namespace {

constexpr char const* missing_name_text = "Missing item name.";
constexpr char const* out_of_range_text = "Container element index %u is out of range for: %s.";

} // namespace

// ---- life

Container::Container(bool ordered)
    : impl_(ordered ? static_cast<ContainerImpl*>(new OrderedImpl) : new ContainerImpl)
{
}

Container::Container(ContainerImpl* impl) : impl_(impl) {}

Container::Container(Container const& o) : MemBlock(o), impl_(o.impl_->Clone()) {}

Container::~Container()
{
    delete impl_;
}

DerivedPointer<Container> Container::Create()
{
    return DerivedPointer<Container>(new Container(false));
}

DerivedPointer<Container> Container::CreateOrdered()
{
    return DerivedPointer<Container>(new Container(true));
}

// ---- items by name

void Container::Put(SafeValue const& value, safestring const& name)
{
    if (name.empty())
        Raise(err_precondition, missing_name_text);
    KeepAlive const alive(*this);
    impl_->Put(name, value);
    ContentHasBeenChanged();
}

bool Container::Delete(safestring const& name)
{
    KeepAlive const alive(*this);
    bool const deleted = impl_->Delete(name);
    if (deleted)
        ContentHasBeenChanged();
    return deleted;
}

void Container::erase(ContainerIterator item)
{
    KeepAlive const alive(*this);
    impl_->Delete(item);
    ContentHasBeenChanged();
}

void Container::clear()
{
    KeepAlive const alive(*this);
    impl_->Clear();
    ContentHasBeenChanged();
}

void Container::Swap(Container& other)
{
    std::swap(impl_, other.impl_);
    ContentHasBeenChanged();
    other.ContentHasBeenChanged();
}

void Container::MoveInto(safestring const& name, SafeValue& value)
{
    impl_->Add(name).first->second.swap(value);
    ContentHasBeenChanged();
}

unsigned int Container::Count() const
{
    return impl_->Count();
}

bool Container::exists(safestring const& name) const
{
    return find(name) != end();
}

ContainerIterator Container::begin()
{
    return impl_->Map().begin();
}

ContainerIterator Container::end()
{
    return impl_->Map().end();
}

ContainerConstIterator Container::begin() const
{
    return impl_->Map().begin();
}

ContainerConstIterator Container::end() const
{
    return impl_->Map().end();
}

ContainerIterator Container::find(safestring const& name)
{
    return impl_->Find(name);
}

ContainerConstIterator Container::find(safestring const& name) const
{
    return impl_->Find(name);
}

// ---- items by position

bool Container::IsOrdered() const
{
    return impl_->IsOrdered();
}

void Container::SetOrdered(bool ordered)
{
    if (ordered == IsOrdered())
        return;
    ContainerImpl* fresh;
    if (ordered) {
        fresh = OrderedImpl::CreateFrom(*impl_);
    } else {
        fresh = new ContainerImpl;
        fresh->TakeItems(*impl_);
    }
    delete std::exchange(impl_, fresh);
    ContentHasBeenChanged();
}

OrderedImpl* Container::GetOrderedImplIfOrdered() const
{
    return dynamic_cast<OrderedImpl*>(impl_);
}

OrderedImpl* Container::GetOrderedImpl()
{
    SetOrdered(true);
    return GetOrderedImplIfOrdered();
}

unsigned int Container::GetPos(ContainerConstIterator item) const
{
    return impl_->GetPos(item);
}

void Container::CheckPosition(unsigned int pos, unsigned int count) const
{
    if (pos >= count)
        Raise(err_precondition, out_of_range_text, pos, *this);
}

SafeValue Container::GetAt(unsigned int pos) const
{
    CheckPosition(pos, Count());
    auto const item = impl_->GetAt(pos);
    return item == impl_->Map().end() ? SafeValue() : item->second; // fewer positions than items
}

safestring Container::GetNameByPos(int pos) const
{
    auto const item = pos < 0 ? impl_->Map().end() : impl_->GetAt(static_cast<unsigned int>(pos));
    return item == impl_->Map().end() ? safestring() : item->first;
}

ContainerIterator Container::InsertAt(unsigned int pos, safestring const& name,
                                      SafeValue const& value)
{
    KeepAlive const alive(*this);
    OrderedImpl& ordered = *GetOrderedImpl();
    // Settled: a place makes the container ordered before anything is refused.
    if (name.empty())
        Raise(err_precondition, missing_name_text);
    auto const item = ordered.InsertAt(pos, name, value);
    ContentHasBeenChanged();
    return item;
}

void Container::ReplaceAt(unsigned int pos, safestring const& name, SafeValue const& value)
{
    CheckPosition(pos, Count());
    KeepAlive const alive(*this);
    OrderedImpl& ordered = *GetOrderedImpl();
    CheckPosition(pos, static_cast<unsigned int>(ordered.Positions().size()));
    safestring const own_name = name; // it may be that of the item which goes
    bool const replaced = ordered.ReplaceAt(pos, name, value);
    ContentHasBeenChanged();
    if (!replaced)
        Raise(err_precondition,
              "Cannot replace element %u of an ordered container, because an item with the same "
              "name already exists in the container: %s",
              pos, own_name);
}

void Container::ReplaceValueAt(unsigned int pos, SafeValue const& value)
{
    CheckPosition(pos, Count());
    KeepAlive const alive(*this);
    OrderedImpl& ordered = *GetOrderedImpl();
    CheckPosition(pos, static_cast<unsigned int>(ordered.Positions().size()));
    ordered.GetAt(pos)->second = value;
    ContentHasBeenChanged();
}

// ---- lists

void Container::ListItems(safestring& list) const
{
    bool first = true;
    ForEachListed(*this, [&](ContainerMap::value_type const& item) {
        if (!std::exchange(first, false))
            list += ", ";
        list += KeyOfItem(item.first, [this](safestring const& name) { return exists(name); });
    });
}

void Container::ListItems(safestring* names) const
{
    ForEachListed(*this, [&](ContainerMap::value_type const& item) { *names++ = item.first; });
}

int Container::List(safestringlist& names) const
{
    for (auto const& item : *this)
        names.push_back(item.first);
    return static_cast<int>(Count());
}

safestring Container::DoGetDescription() const
{
    safestring text = Text(
        IsOrdered() ? "Ordered container: %d elements: " : "Container: %d elements: ", Count());
    ForEachListed(*this, [&text](ContainerMap::value_type const& item) {
        text += item.first;
        text += ", ";
    });
    text.replace(text.size() - 2, 2, ".");
    return text;
}

// ---- the class

char const* Container::Class() const
{
    return "container";
}

bool Container::Conforms(char const* classname) const
{
    return SameName(classname, "container") || MemBlock::Conforms(classname);
}

char const* Container::ClassDescription() const
{
    return "Container - containes any number of polytype values, named or unnamed.\n"
           "Derived from: MemBlock\n"
           "Subkeys:\n"
           "\tlength - return the number of objects in the container\n"
           "\tkeys   - return a vector containing item names\n"
           "\t[index] - return reference to the contained item by zero-based index\n"
           "\tname (any other string than \"length\") - return reference to the named contained "
           "item\n";
}

bool Container::AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                              ThrowHandlerFunc handler) const
{
    return MemBlock::AddConvertArg(key, value, options, handler);
}

PMemBlock Container::ConvertFrom(PMemBlock source, ConvertOptions const& options) const
{
    if (!source || source.Conforms("container"))
        return source;
    return Cnt(options.GetValue("itemname", "x").GetString(), DataItem(source));
}

} // namespace NKelmic
