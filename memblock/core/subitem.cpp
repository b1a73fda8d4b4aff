#include <memblock/core/subitem.h>

#include <memblock/base/text.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/subitem_internal.h>
#include <memblock/serial/loader.h>
#include <memblock/vector/vector.h>

namespace NKelmic {
namespace {

// A value that can stand as a vector of one element, and be asked for its sub-items so.
bool StandsAsVector(DataItem const& item)
{
    switch (item.GetType()) {
    case it_shortstring:
    case it_int:
    case it_double:
    case it_string:
    case it_int64:
        return true;
    default:
        return false;
    }
}

/// The walk of a read along a path. It goes on by itself behind scalars that stand as vectors,
/// as `DataItem::ResolveSubItem` would by calling back, so that a long path costs no stack.
class ReadWalk {
public:
    ReadWalk(MemBlock const& start, safestring const& path, ThrowHandlerFunc handler)
        : current_(&start), path_(path), handler_(handler), step_handler_(handler)
    {
    }

    DataItem Run()
    {
        for (;;) {
            auto const dot = find_smart_skip_brackets_and_parens(path_, mark_, position_);
            if (dot == safestring::npos)
                return Finish(ResolveLast());
            DataItem const item =
                current_->ResolveSubItem(path_.substr(position_, dot - position_), step_handler_);
            if (item.IsUndefined())
                return Finish({}); // the step has reported it
            position_ = dot + 1;
            PMemBlock next = item.GetType() == it_memblock ? item.GetMemory() : EnterScalar(item);
            if (!next)
                return Finish(item.ResolveSubItem(Rest(), step_handler_));
            held_.swap(next); // the one above goes only now
            current_ = held_.Pointer();
        }
    }

private:
    // A path of one step is handed on as it is: a miss then copies nothing.
    DataItem ResolveLast() const
    {
        if (position_ == 0)
            return current_->ResolveSubItem(path_, step_handler_);
        return current_->ResolveSubItem(Rest(), step_handler_);
    }

    safestring Rest() const { return path_.substr(position_); }

    // Only a rest of several steps is walked here: one step is the item's own affair.
    PMemBlock EnterScalar(DataItem const& item)
    {
        if (!StandsAsVector(item) ||
            find_smart_skip_brackets_and_parens(path_, mark_, position_) == safestring::npos)
            return {};
        if (scalar_.IsUndefined()) {
            scalar_ = item;
            scalar_rest_ = position_;
        }
        step_handler_ = throw_never; // all that fails from here on is told of the first scalar
        return item.GetMemory();
    }

    DataItem Finish(DataItem result) const
    {
        if (result.IsUndefined() && scalar_.IsDefined() && handler_ != throw_never)
            ReportNoSubKeyOfScalar(scalar_, path_.substr(scalar_rest_), handler_);
        return result;
    }

    MemBlock const* current_;
    PMemBlock held_; // keeps `current_`, once that is not the start
    safestring const& path_;
    safestring const mark_ = "."; // between two steps
    safestring::size_type position_ = 0;
    ThrowHandlerFunc handler_;
    ThrowHandlerFunc step_handler_;
    DataItem scalar_; // the first scalar that was entered
    safestring::size_type scalar_rest_ = 0;
};

// An object that conforms as it is, or holds a conforming one as an attribute does.
PMemBlock AsClass(PMemBlock const& object, DataItem const& item, char const* classname)
{
    if (!object || object.Conforms(classname))
        return object;
    if (!object.Conforms("attribute"))
        return {};
    try {
        return item.GetMemoryOfClass(classname, true);
    } catch (Exception const&) {
        return {}; // told by the caller in its own words
    }
}

bool StandsIn(safestring const& list, safestring const& key, bool marked_only)
{
    return AnyKeyOfList(list, [&](KeyListEntry const& entry) {
        return (entry.marked || !marked_only) && SameName(entry.name, {key.data(), key.size()});
    });
}
} // namespace

DataItem MemBlock::GetSubItem(safestring const& path, ThrowHandlerFunc handler) const
{
    KeepAlive const alive(*this);
    return AttemptAtDoor(handler, [&](ThrowHandlerFunc step_handler) {
        return ReadWalk(*this, path, step_handler).Run();
    });
}

PMemBlock MemBlock::GetSubItemMemBlock(safestring const& path, ThrowHandlerFunc handler,
                                       char const* classname) const
{
    DataItem const item = GetSubItem(path, handler);
    if (item.IsUndefined()) {
        ReportNoSubItem(*this, path, handler);
        return {};
    }
    PMemBlock const object = item.GetMemory();
    if (!classname) {
        if (!object)
            Report(handler, err_value, "Subitem not found: \"%s\"", path);
        return object;
    }
    PMemBlock const wanted = AsClass(object, item, classname);
    if (!wanted)
        Report(handler, err_value, "Subitem (%s) not found or could not be converted to \"%s\": %s",
               path, classname, object);
    return wanted;
}

DerivedPointer<Vector> MemBlock::GetSubItemVector(safestring const& path, ThrowHandlerFunc handler,
                                                  char const* classname,
                                                  safestring const& key) const
{
    PMemBlock object = GetSubItemMemBlock(path, handler, classname);
    if (object && !key.empty())
        object = object->GetSubItemMemBlock(key, handler, nullptr);
    PMemBlock const found = AsClass(object, object, "vector");
    Vector* const vector = MemCast<Vector>(found);
    if (!vector)
        Report(handler, err_kind, "Not a vector: %s", object);
    return DerivedPointer<Vector>(vector);
}

PMemBlock ResolveAttribute1(PMemBlock item, ThrowHandlerFunc handler)
{
    if (!item.Conforms("attribute"))
        return item;
    for (char const* content : {"vector", "image"})
        if (PMemBlock const found = item->GetSubItemMemBlock(content, throw_never, nullptr))
            return found;
    Report(handler, err_kind, "Attribute does contain neither vector nor image data: %s", item);
    return {};
}

bool IsSystemSubKey(MemBlock const& object, safestring const& key)
{
    if (key.empty())
        return false;
    // The list of "" holds facts alone; that of "!" may hold the names of stored items too.
    if (key[0] == '@' && StandsIn(object.GetSubItem("", throw_always).GetString(), key, false))
        return true;
    return StandsIn(object.GetSubItem("!", throw_always).GetString(), key, true);
}

safestring GetItemName1(MemBlock const* object)
{
    static constinit EngineFunction<GetItemNameFunc> get_item_name{"GetItemName"};
    auto const function = get_item_name.Find();
    char const* const name = function ? function(object) : nullptr;
    return name ? name : "";
}

bool CollapseSoftLink(char const* base, char const* tail, char const* link, safestring& result)
{
    auto const cut_last_step = [](safestring& path) {
        auto const dot = path.rfind('.');
        path.erase(dot == safestring::npos ? 0 : dot);
    };
    safestring path = base;
    cut_last_step(path); // the link's own name
    safestring const steps = link;
    for (safestring::size_type from = 0; from < steps.size();) {
        auto const dot = std::min(steps.find('.', from), steps.size());
        safestring const step = steps.substr(from, dot - from);
        if (step != "<") {
            if (!path.empty())
                path += '.';
            path += step;
        } else if (!path.empty()) {
            cut_last_step(path);
        } else {
            result = steps.substr(from) + tail;
            return false;
        }
        from = dot + 1;
    }
    result = path + tail;
    return true;
}

} // namespace NKelmic
