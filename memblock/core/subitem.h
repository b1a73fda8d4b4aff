#ifndef MEMBLOCK_CORE_SUBITEM_H
#define MEMBLOCK_CORE_SUBITEM_H

#include <memblock/core/safevalue.h>

namespace NKelmic {

/// Look into a wrapper: an object that conforms to "attribute" gives its "vector", else its
/// "image"; any other object is given back as it is.
/// Reports: "Attribute does contain neither vector nor image data: %s", code 128; null then.
MEMBLOCK_API PMemBlock ResolveAttribute1(PMemBlock item, ThrowHandlerFunc handler);

/// Tell whether a key is a fact about the object rather than content of it.
///
/// True for a key that begins with '@' and is in the object's key list, and for one that its
/// full list marks with '%'. A key that is in neither is not.
MEMBLOCK_API bool IsSystemSubKey(MemBlock const& object, safestring const& key);

/// The name by which the engine knows an object; "" without the engine.
MEMBLOCK_API safestring GetItemName1(MemBlock const* object);

/// Make a path out of a soft link: `link` is relative to the place `base` of the link itself, its
/// step "<" goes one level up, and `tail` follows as it is.
///
/// False if the link leads above the first step of `base`: `result` is then the part of the link
/// that is left, that "<" included, with the tail.
MEMBLOCK_API bool CollapseSoftLink(char const* base, char const* tail, char const* link,
                                   safestring& result);

/// Gathers what failed on the way, as "first; second; ". Never throws by itself.
class MEMBLOCK_API CollectThrowMessage : public ThrowHandlerBase {
public:
    /// `create_missing` asks containers on the way to make what they miss.
    explicit CollectThrowMessage(bool create_missing = false);
    unsigned int operator()(Exception const& e) override; // returns 0
    bool DoVerb(verb_t verb) override;
    safestring const& Messages() const { return messages_; }

private:
    safestring messages_;
    bool create_missing_;
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_SUBITEM_H
