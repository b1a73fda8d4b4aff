#include <memblock/core/memblock.h>

#include <memblock/base/raise.h>
#include <memblock/base/warning.h>
#include <memblock/collections/container.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/logging/logger.h>
#include <memblock/threads/mutex.h>
#include <memblock/vector/vector.h>

#include <bit>
#include <cstdio>
#include <typeinfo>
#include <vector>

namespace NKelmic {
namespace {

/// The deletions under way on one thread. A long chain of objects, each of which holds the next
/// one, would be deleted by recursion; from some depth on objects wait here until the outermost
/// deletion gets to them.
struct DeletionChain {
    static constexpr unsigned max_depth = 100;
    unsigned depth = 0;
    std::vector<MemBlock const*> waiting;

    bool Wait(MemBlock const* block)
    {
        try {
            waiting.push_back(block);
            return true;
        } catch (std::bad_alloc const&) {
            return false; // then deeper than wished
        }
    }
};

thread_local constinit DeletionChain* deletions = nullptr;

void LogSkippedDeletion(MemBlock const& block)
{
    constexpr int level = 9;
    if (!Logger::Enabled(topic_run, level))
        return;
    // Dropping the cache in ~MemBlock may come back here, when no virtual form is left to ask.
    bool const only_base_left = typeid(block) == typeid(MemBlock);
    Logger::Log(topic_run, "memblock", level,
                Text("MemBlock::Release(): mem_undeletable flag raised, skipping deletion: %p %s",
                     static_cast<void const*>(&block),
                     only_base_left ? safestring("none") : block.GetDescription()));
}

/// Tell of a destructor that threw. Nothing may pass out of a release, so neither here.
void TellOfThrow(char const* line_format, char const* alarm_format, MemBlock const* block,
                 std::exception const* e)
{
    auto const address = static_cast<void const*>(block); // no longer an object
    constexpr int severity = 4;
    try {
        safestring const line =
            e ? Text(line_format, address, e->what()) : Text(line_format, address);
        std::fputs(line.c_str(), stderr);
        SendAlarmMemBlock(e ? Text(alarm_format, address, e->what()) : Text(alarm_format, address),
                          severity, 0, safestring());
    } catch (...) {
    }
}

} // namespace

MemBlock::MemBlock(MemBlock const& o)
    : mb_malloced(o), pimpl_(nullptr), refcount_(0),
      flags_(o.flags_ &
             static_cast<unsigned short>(~(mem_undeletable | mem_const | mem_has_sticky))),
      lg_type_(o.lg_type_)
{
}

MemBlock::~MemBlock() noexcept(false)
{
    DropPimpl();
}

int MemBlock::DoLastRelease() const
{
    if (flags_ & mem_undeletable) {
        try {
            LogSkippedDeletion(*this);
        } catch (...) {
        }
        return 0;
    }
    // A destructor may take a pointer on its own object and drop it: that ends in the branch
    // above and not in a second deletion.
    RaiseFlags(mem_undeletable);
    if (!deletions) {
        DeletionChain chain;
        deletions = &chain;
        DeleteThis();
        while (!chain.waiting.empty()) {
            MemBlock const* const next = chain.waiting.back();
            chain.waiting.pop_back();
            next->DeleteThis();
        }
        deletions = nullptr;
    } else if (deletions->depth < DeletionChain::max_depth || !deletions->Wait(this)) {
        ++deletions->depth;
        DeleteThis();
        --deletions->depth;
    }
    return 0;
}

void MemBlock::DeleteThis() const
{
    try {
        delete this;
    } catch (std::exception const& e) {
        TellOfThrow("MemBlock::Release() (%p): Memblock destructor threw an exception: %s\n",
                    "MemBlock::Release() (%p): Memblock destructor threw an exception: %s", this,
                    &e);
    } catch (...) {
        // Settled: the alarm's %s gets no text, there is none to give.
        TellOfThrow("MemBlock::Release() (%p): hardware-reported exception.\n",
                    "MemBlock::Release() (%p): unknown exception: %s", this, nullptr);
    }
}

namespace {

/// One level of a clone within a clone. An object that holds itself would be cloned for ever; the
/// level that it is met at again need not be the next one, but comes in time.
class CloneLevel {
public:
    explicit CloneLevel(MemBlock const& object)
        : outer_(innermost_), depth_(outer_ ? outer_->depth_ + 1 : 1),
          earlier_(outer_ ? outer_->earlier_ : nullptr)
    {
        if (earlier_ == &object)
            Raise(err_state, "An object that holds itself cannot be cloned: %s", object);
        if (std::has_single_bit(depth_))
            earlier_ = &object;
        innermost_ = this;
    }
    ~CloneLevel() { innermost_ = outer_; }
    CloneLevel(CloneLevel const&) = delete;
    CloneLevel& operator=(CloneLevel const&) = delete;

private:
    static thread_local constinit CloneLevel* innermost_;
    CloneLevel* outer_;
    unsigned long depth_;
    MemBlock const* earlier_; // the object of a level above, further up the deeper this one is
};

thread_local constinit CloneLevel* CloneLevel::innermost_ = nullptr;

} // namespace

PMemBlock MemBlock::Clone(bool share) const
{
    return CloneIn(share ? 1 : 0);
}

PMemBlock MemBlock::CloneIn(int mode) const
{
    CloneLevel const level(*this);
    PMemBlock clone;
    WithEnoughStack([&] { clone = DoClone(mode); });
    if (!clone)
        return clone;
    // The copy may have made a cache of its own; nothing in it is known to hold for the clone.
    PimplFlushSecondary(clone->pimpl_);
    clone->RaiseFlags(flags_ & (mem_has_sticky | mem_clone_kept));
    if ((flags_ & mem_has_sticky) && pimpl_)
        clone->Pimpl()->CloneFrom(pimpl_);
    return clone;
}

void MemBlock::CopyStickyAttributesFrom(MemBlock const& source)
{
    if (!(source.flags_ & mem_has_sticky))
        return;
    MemBlockImpl* const pimpl = Pimpl();
    RaiseFlags(mem_has_sticky);
    pimpl->CloneFrom(source.pimpl_); // last: an item that goes may drop this object
}

safestring Describe(MemBlock const* block)
{
    return block ? block->GetDescription() : safestring("none");
}

safestring MemBlock::GetDescription() const
{
    if (!this) // asked of null objects too, see the compile options of the library
        return "none";
    return DoGetDescription();
}

safestring PMemBlock::GetDescription() const
{
    return Describe(block_);
}

safestring MemBlock::DoGetDescription() const
{
    return Text("{%s} refcount=%d, flags=0x%04x", Class(), refcount_, unsigned(flags_));
}

char const* MemBlock::Class() const
{
    return "memblock";
}

bool MemBlock::Conforms(char const* classname) const
{
    return SameName(classname, "memblock");
}

char const* MemBlock::ClassDescription() const
{
    return "MemBlock - encapsulates a reference-counted memory chunk of undefined content.\n"
           "Subkeys:\n"
           "\t@size - return the size of memory chunk in bytes\n"
           "\t@refcount - return the current reference count\n"
           "\t@data - return pointer to the memory chunk\n"
           "\t@self - return pointer to the MemBlock object\n"
           "\t@class - return the class name\n";
}

bool MemBlock::Consistent(safestring& message, bool) const
{
    if (refcount_ > 0)
        return true;
    // Settled: said of a count of 0 as well, which is how an object on the stack looks.
    message += "Reference count negative. ";
    return false;
}

DataItem MemBlock::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    return Pimpl()->DoVerb(verb, argc, argv);
}

safestring MemBlock::LgType2String(int lg_type) const
{
    return lg_type == 0 ? "default" : "";
}

int MemBlock::String2LgType(safestring const& text)
{
    return text == "default" ? 0 : -1;
}

void MemBlock::DoSetLgType(int lg_type)
{
    lg_type_ = static_cast<short>(lg_type);
}

void MemBlock::SetLgType(safestring const& text)
{
    int const lg_type = String2LgType(text);
    if (lg_type < 0)
        Raise(err_request, "Invalid lg_type \"%s\" for this object: %s", text, *this);
    DoSetLgType(lg_type);
    ContentHasBeenChanged();
}

bool MemBlock::Equals(MemBlock const&) const
{
    return true;
}

bool MemBlock::operator==(MemBlock const& o) const
{
    return SameName(Class(), o.Class()) && Equals(o);
}

PMemBlock MemBlock::op(char operation, PMemBlock other, op_options const&) const
{
    if (operation != '=' && operation != '#')
        Raise(err_request, "Operation '%c' not supported for object type: %s", int(operation),
              other ? other->Class() : "none");
    bool const equal = other && *this == *other;
    return Vector::CreateFrom(int(equal == (operation == '=')));
}

void MemBlock::ContentHasBeenChanged()
{
    PimplFlushSecondary(pimpl_);
}

MemBlockImpl* MemBlock::DoPimpl() const
{
    return new MemBlockImpl(this);
}

MemBlockImpl* MemBlock::Pimpl() const
{
    if (!pimpl_)
        pimpl_ = DoPimpl();
    return pimpl_;
}

void MemBlock::ResetPimpl()
{
    KeepAlive const alive(*this); // an item that goes may hold the last pointer to this object
    DropPimpl();
}

void MemBlock::DropPimpl()
{
    // An item that goes may ask for the cache again, so look until there is none.
    while (MemBlockImpl* const old = std::exchange(pimpl_, nullptr))
        delete old;
}

PMemBlock MemBlock::GetAttr(bool sticky) const
{
    int const key = sticky ? key_sticky : key_transient;
    DataItem stored;
    if (ExistsSecondaryItem(key, stored))
        return stored.GetMemory();
    PMemBlock const container = Container::Create();
    SetSecondaryItem(key, DataItem(container));
    return container;
}

void MemBlock::CheckThreadId() const
{
    try {
        DataItem recorded;
        if (!pimpl_ || !pimpl_->ExistsSecondaryItem(key_thread_id, recorded)) {
            std::fputs(Text("No thread ID recorded for a: %s\n", *this).c_str(), stderr);
            return;
        }
        auto const id = static_cast<unsigned int>(recorded.GetInt());
        if (id != 0 && id != Mutex::GetCurrentThreadId())
            std::fputs(Text("Recorded thread ID mismatch for a: %s\n", *this).c_str(), stderr);
    } catch (...) { // a check that is made anywhere must not fail
    }
}

} // namespace NKelmic
