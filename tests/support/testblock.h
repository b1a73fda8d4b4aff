#ifndef MEMBLOCK_TESTS_SUPPORT_TESTBLOCK_H
#define MEMBLOCK_TESTS_SUPPORT_TESTBLOCK_H

#include <memblock/core/safevalue.h>
#include <memblock/core/visitor.h>

#include <functional>
#include <map>

namespace NKelmic {

/// A small concrete object for tests: named values as children, a scalar, and a few switches.
///
/// The fields are public: a test sets up what it needs and looks at what became of it.
class TestBlock : public MemBlock {
public:
    static char const* StaticClass() { return "testblock"; }
    static DerivedPointer<TestBlock> Create() { return DerivedPointer<TestBlock>(new TestBlock); }
    static DerivedPointer<TestBlock> Create(std::map<safestring, DataItem> const& items)
    {
        auto block = Create();
        block->items = items;
        return block;
    }

    std::map<safestring, DataItem> items; ///< sub-items by name; objects among them are children
    safestring class_name = "testblock";  ///< what `Class()` says
    safestring conforms;                  ///< one more name that `Conforms` accepts
    DataItem scalar;                      ///< the answer to the verb "scalar"
    DataItem memusage_self;               ///< the answer to the verb "memusage_self"
    int* destroyed = nullptr;             ///< counts destructions
    std::function<void(TestBlock&)> on_destroy; ///< run by the destructor, may throw
    mutable int equals_calls = 0;
    bool equals = true;        ///< what `Equals` answers
    int clone_mode = -1;       ///< the mode that `DoClone` made this object with
    safestring last_full_path; ///< the last argument of `DoSetSubItem`

    // On a local or a member the test itself raises mem_undeletable before pointers are taken.
    TestBlock() = default;
    ~TestBlock() override
    {
        if (destroyed)
            ++*destroyed;
        if (on_destroy)
            on_destroy(*this);
    }

    char const* Class() const override { return class_name.c_str(); }
    bool Conforms(char const* name) const override
    {
        return class_name == name || (!conforms.empty() && conforms == name) ||
               MemBlock::Conforms(name);
    }
    bool Entertain(MemBlockVisitor& v, safestring const& path, entertainmode_t mode) override
    {
        if (!MemBlock::Entertain(v, path, mode))
            return false;
        for (auto& [name, item] : items) {
            safestring const below = TraverseNode(TraverseNode(path), name).Path();
            if (item.GetType() == it_memblock) {
                if (!EntertainChild(item.MemoryRef(), v, below, mode))
                    return false;
            } else if (mode == em_traverse && v.Visit(below, item) == MemBlockVisitor::stop) {
                return false;
            }
        }
        return true;
    }
    DataItem DoVerb(char const* verb, int argc, SafeValue* argv) override
    {
        if (safestring("scalar") == verb)
            return scalar;
        if (safestring("memusage_self") == verb)
            return memusage_self;
        return MemBlock::DoVerb(verb, argc, argv);
    }
    bool AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                       ThrowHandlerFunc handler) const override
    {
        return MemBlock::AddConvertArg(key, value, options, handler);
    }
    bool Consistent(safestring& message, bool deep) const override
    {
        return MemBlock::Consistent(message, deep);
    }
    char const* ClassDescription() const override { return MemBlock::ClassDescription(); }
    bool Equals(MemBlock const&) const override
    {
        ++equals_calls;
        return equals;
    }
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const override
    {
        auto const found = items.find(key);
        return found != items.end() ? found->second : MemBlock::ResolveSubItem(key, handler);
    }

protected:
    TestBlock(TestBlock const& o)
        : MemBlock(o), items(o.items), class_name(o.class_name), conforms(o.conforms),
          scalar(o.scalar), memusage_self(o.memusage_self), equals(o.equals)
    {
    }
    /// Mode 0: children are copied too; 1 and 2: they are shared.
    PMemBlock DoClone(int mode) const override
    {
        DerivedPointer<TestBlock> const clone(new TestBlock(*this));
        clone->clone_mode = mode;
        if (mode <= 0) {
            for (auto& [name, item] : clone->items) {
                if (item.GetType() == it_memblock && item.MemoryRef())
                    item.MemoryRef() = item.MemoryRef()->Clone(false);
            }
        }
        return clone;
    }
    bool DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& full_path,
                      ThrowHandlerFunc handler) override
    {
        last_full_path = full_path;
        if (!key.empty() && key[0] == '@')
            return MemBlock::DoSetSubItem(key, value, full_path, handler);
        if (value.IsUndefined())
            items.erase(key);
        else
            items[key] = value;
        return true;
    }
    safestring DoGetDescription() const override { return MemBlock::DoGetDescription(); }
};

/// An item that is a test block itself.
inline DerivedPointer<TestBlock> Child(DerivedPointer<TestBlock> const& block, char const* name)
{
    return DerivedPointer<TestBlock>(block->items[name].GetMemory());
}

/// Whether the cache of an object has something under a key.
inline bool Cached(PMemBlock const& block, int key)
{
    DataItem item;
    return block->ExistsSecondaryItem(key, item);
}

/// A shared object that counts its lives and answers one key.
class TestSharable : public ThreadSharable {
public:
    static inline int alive = 0;
    TestSharable() { ++alive; }
    ~TestSharable() override { --alive; }
    safestring GetDescription() const override { return "a sharable"; }
    ThreadSharablePointer<ThreadSharable> DoClone() const override { return new TestSharable; }
    DataItem DoVerb(char const* verb, SafeValue const& key, SafeValue const&) override
    {
        bool const known = safestring(verb) == "getsubitem" && key == DataItem("answer");
        return known ? DataItem(42) : DataItem();
    }
};

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_SUPPORT_TESTBLOCK_H
