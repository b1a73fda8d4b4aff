#include <memblock/core/subitem.h>

#include <memblock/core/attempt_internal.h>
#include <memblock/core/childwalk_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/core/subitem_internal.h>
#include <memblock/serial/factory.h>
#include <memblock/vector/vector.h>

#include <vector>

namespace NKelmic {
namespace {

typedef bool (*SetStep)(MemBlock& object, safestring const& key, SafeValue const& value,
                        safestring const& full_path, ThrowHandlerFunc handler);

// What hangs on an object beside its content.
bool IsAttribute(safestring const& step)
{
    return step == "@sticky" || step == "@transient" || step == "@type";
}

// Elements in a shared buffer have one count for all who share it, which hides the other owners.
void DetachObjectElements(MemBlock& object)
{
    auto* const vector = dynamic_cast<Vector*>(&object);
    if (vector && Vector::IsObject(vector->ElemType()))
        vector->Pointer();
}

// Do what flushes an object's cache, but for the transient container: that stays.
template <class Change>
bool KeepingTransient(MemBlock& object, Change&& change)
{
    DataItem transient;
    bool const has_transient =
        object.PimplIfAny() && object.ExistsSecondaryItem(MemBlock::key_transient, transient);
    bool const done = change();
    if (has_transient)
        object.SetSecondaryItem(MemBlock::key_transient, transient);
    return done;
}

void DropCachedValues(MemBlock& object)
{
    KeepingTransient(object, [&] {
        object.ContentHasBeenChanged();
        return true;
    });
}

/// The walk of a write along a path. It reaches only objects that are owned along this path:
/// whatever is shared with others on the way is replaced by a clone first.
class WriteWalk {
public:
    WriteWalk(MemBlock& root, safestring const& path, ThrowHandlerFunc handler, SetStep set_step)
        : path_(path), handler_(handler), set_step_(set_step)
    {
        levels_.push_back({PMemBlock(&root), safestring()});
    }

    // To read an attribute makes it. A write that fails behind it must not leave it: hashes cover
    // attributes, empty ones too.
    ~WriteWalk()
    {
        for (auto made = attributes_.rbegin(); !done_ && made != attributes_.rend(); ++made) {
            made->owner->SetSecondaryItem(made->key, {}); // only takes out: nothing can fail
            if (!made->had_sticky)
                made->owner->ClearFlags(MemBlock::mem_has_sticky);
        }
    }

    /// Go down to the object that is asked to set the last step. False after a report.
    bool Descend()
    {
        safestring::size_type from = 0;
        for (auto dot = path_.find('.'); dot != safestring::npos; dot = path_.find('.', from)) {
            if (!StepInto(path_.substr(from, dot - from), dot + 1))
                return false;
            from = dot + 1;
        }
        key_ = path_.substr(from);
        return true;
    }

    bool Write(SafeValue const& value)
    {
        PMemBlock present; // where the write is made aside
        if (levels_.size() > 1) {
            int const answer = AskParent(value);
            if (answer == 0 || !MakeExclusive())
                return false;
            if (answer == write_aside) {
                present = levels_.back().object;
                levels_.back().object = present->Clone(true);
            }
            Target().SetConst(false);
        }
        MemBlockImpl const* const cache = Target().PimplIfAny();
        unsigned int const flushes = cache ? cache->Flushes() : 0;
        if (!set_step_(Target(), key_, value, path_, handler_) || !StoreMissing())
            return false;
        if (present && !PutInPlaceOf(present))
            return false;
        Notify(cache && cache == Target().PimplIfAny() && cache->Flushes() != flushes);
        done_ = true;
        return true;
    }

private:
    struct Level {
        PMemBlock object;
        safestring step; // that led here; empty for the root
    };

    // The answer of a parent that has to see the changed child before it can agree.
    static constexpr int write_aside = 2;

    MemBlock& Target() const { return *levels_.back().object; }
    MemBlock& Parent() const { return *levels_[levels_.size() - 2].object; }

    bool StepInto(safestring const& step, safestring::size_type rest)
    {
        if (!MakeExclusive())
            return false;
        DetachObjectElements(Target());
        NoteNewAttribute(step);
        PMemBlock child;
        {
            DataItem const found = Target().GetSubItem(step, collect_);
            if (found.GetType() == it_memblock) {
                child = found.GetMemory();
            } else if (found.IsDefined()) { // a write into a temporary vector would be lost
                ReportNoSubKeyOfScalar(found, path_.substr(rest), handler_);
                return false;
            }
            if (child.Pointer() == &Target()) // no parent of itself: the one above is to agree
                return true;
        } // the item's own count must be gone before counts are tested
        if (!child)
            child = MakeMissing(step);
        if (!child) {
            Report(handler_, err_kind, "%s", collect_.Messages());
            return false;
        }
        levels_.push_back({child, step});
        return true;
    }

    void NoteNewAttribute(safestring const& step)
    {
        if (step != "@sticky" && step != "@transient")
            return;
        int const key = step == "@sticky" ? MemBlock::key_sticky : MemBlock::key_transient;
        MemBlock const& owner = Target();
        DataItem present;
        if (!owner.PimplIfAny() || !owner.ExistsSecondaryItem(key, present))
            attributes_.push_back(
                {levels_.back().object, key, (owner.Flags() & MemBlock::mem_has_sticky) != 0});
    }

    // What is missing comes into being by the write: the first of the missing containers waits for
    // its success, and those below are stored in that one.
    PMemBlock MakeMissing(safestring const& step)
    {
        ReportNoSubItem(Target(), step, collect_);
        if (!levels_.back().object.Conforms("container"))
            return {};
        PMemBlock const fresh = MemBlock::Factory().GetInstance("container");
        if (!fresh || (missing_ != 0 && !set_step_(Target(), step, fresh, path_, collect_)))
            return {};
        if (missing_ == 0)
            missing_ = levels_.size();
        return fresh;
    }

    bool StoreMissing()
    {
        if (missing_ == 0)
            return true;
        Level const& made = levels_[missing_];
        MemBlock& parent = *levels_[missing_ - 1].object;
        if (set_step_(parent, made.step, made.object, path_, collect_))
            return true;
        Report(handler_, err_kind, "%s", collect_.Messages());
        return false;
    }

    // 0 cancels the write.
    int AskParent(SafeValue const& value) const
    {
        bool const from_system_key = path_[0] == '@';
        SafeValue arguments[] = {levels_.back().step, key_, static_cast<int>(from_system_key),
                                 value};
        DataItem const answer = Parent().DoVerb("chldchng", 4, arguments);
        return answer.IsUndefined() ? 1 : answer.GetInt();
    }

    // The parent gets the changed copy, and its child back if it does not agree.
    bool PutInPlaceOf(PMemBlock const& present)
    {
        Level const& level = levels_.back();
        if (!ReplaceChild(Parent(), *present, level.object, level.step))
            return set_step_(Parent(), level.step, level.object, path_, handler_);
        try {
            Parent().DoVerb("chldchng", 0, nullptr);
        } catch (...) {
            ReplaceChild(Parent(), *level.object, present, level.step);
            throw;
        }
        return true;
    }

    // Two counts are the slot of the object above and this walk.
    bool MakeExclusive()
    {
        if (levels_.size() < 2)
            return true;
        Level& level = levels_.back();
        if (level.object->RefCount() <= 2 || level.object.Conforms("xmlnode"))
            return true;
        PMemBlock const clone = level.object->Clone(true);
        if (!Store(clone))
            return false;
        level.object = clone;
        return true;
    }

    // Put a clone in the place of the last level's object. A key that can be read need not be one
    // that sets the same: in a table "_0" reads a column by its index and writes one of that name,
    // and what is written to a mask goes to its form. There the object itself is looked for first;
    // elsewhere last, since there may be many to look at.
    bool Store(PMemBlock const& clone)
    {
        Level const& level = levels_.back();
        MemBlock& parent = Parent();
        auto const replace = [&] { return ReplaceChild(parent, *level.object, clone, level.step); };
        if ((IsAttribute(level.step) || parent.Conforms("table")) && replace())
            return true;
        auto const store = [&](ThrowHandlerFunc handler) {
            auto const step = [&] { return set_step_(parent, level.step, clone, path_, handler); };
            // The clone is equal to what it replaces: no change that ends a transient container.
            return IsAttribute(level.step) ? step() : KeepingTransient(parent, step);
        };
        return store(throw_never) || replace() || store(handler_);
    }

    // Hashes and other derived values of all that holds the changed object are out of date. An
    // attribute is no content: the flush of its owner would drop a transient container that was
    // just written, so only the owner's hashes go, and further up only what is computed. A target
    // that has flushed its cache by itself may have put back what still holds: a row of writes
    // would else compute it each time.
    void Notify(bool target_has_flushed)
    {
        bool in_attribute = false;
        safestring const* step = &key_;
        for (auto level = levels_.rbegin(); level != levels_.rend(); ++level) {
            if (IsAttribute(*step)) {
                DropHashes(*level->object);
                in_attribute = true;
            } else if (in_attribute) {
                DropCachedValues(*level->object);
            } else if (level != levels_.rbegin() || !target_has_flushed) {
                level->object->ContentHasBeenChanged();
            }
            step = &level->step;
        }
    }

    safestring const& path_;
    ThrowHandlerFunc handler_;
    SetStep set_step_;
    CollectThrowMessage collect_;
    std::vector<Level> levels_;
    struct NewAttribute {
        PMemBlock owner;
        int key;
        bool had_sticky; // the flag, before
    };
    std::vector<NewAttribute> attributes_;
    bool done_ = false;
    std::size_t missing_ = 0; // the level of the first container that was made; 0: there is none
    safestring key_;
};
} // namespace

void DropHashes(MemBlock& object)
{
    if (!object.PimplIfAny())
        return;
    object.SetSecondaryItem(MemBlock::key_md5, {});
    object.SetSecondaryItem(MemBlock::key_md5_plain, {});
}

bool MemBlock::SetSubItem(safestring const& path, SafeValue const& value, ThrowHandlerFunc handler)
{
    KeepAlive const alive(*this);
    SetStep const set_step = [](MemBlock& object, safestring const& key, SafeValue const& item,
                                safestring const& full_path, ThrowHandlerFunc step_handler) {
        return Attempt(step_handler, [&] { // a writer may raise whatever its handler says
            return object.DoSetSubItem(key, item, full_path, step_handler);
        });
    };
    return AttemptAtDoor(handler, [&](ThrowHandlerFunc step_handler) {
        WriteWalk walk(*this, path, step_handler, set_step);
        return walk.Descend() && walk.Write(value);
    });
}

CollectThrowMessage::CollectThrowMessage(bool create_missing) : create_missing_(create_missing) {}

unsigned int CollectThrowMessage::operator()(Exception const& e)
{
    messages_ += e.what();
    messages_ += "; ";
    return 0;
}

bool CollectThrowMessage::DoVerb(verb_t verb)
{
    return verb == verb_create_missing && create_missing_;
}

} // namespace NKelmic
