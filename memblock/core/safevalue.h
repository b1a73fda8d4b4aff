#ifndef MEMBLOCK_CORE_SAFEVALUE_H
#define MEMBLOCK_CORE_SAFEVALUE_H

#include <memblock/core/dataitem.h>

namespace NKelmic {

/// A value that its receiver does not trust: the argument of verbs and of sub-item setters.
///
/// Where `DataItem` converts as far as it can, the readers here state which conversions are legal.
/// Each has two forms: with a handler it reports every failure to it and returns 0, 0.0, false, an
/// empty text or null; without one it throws. Failures carry code 512, or the code of the parser
/// for a text that is no number.
///
/// The readers hide those of `DataItem`, and none is virtual: the static type decides.
class MEMBLOCK_API SafeValue : public DataItem {
public:
    using DataItem::DataItem;
    SafeValue() noexcept = default;
    SafeValue(DataItem const& item) : DataItem(item) {}
    SafeValue(DataItem&& item) noexcept : DataItem(std::move(item)) {}

    /// A number, a number in text, or the scalar of an object.
    ///
    /// Reports: "Value is undefined, cannot convert to int.", "Cannot convert to integer: %s".
    int GetInt() const;
    int GetInt(ThrowHandlerFunc handler) const;
    /// The same as a double.
    ///
    /// Reports: "Value is undefined, cannot convert to double.", "Cannot convert to double: %s".
    double GetFloating() const;
    double GetFloating(ThrowHandlerFunc handler) const;
    /// A number other than 0 (a double is rounded first), or a word for yes or no.
    ///
    /// Reports: "Value is undefined, cannot convert to int.", "Cannot convert to boolean: %s",
    ///          the latter for objects too.
    bool GetBool() const;
    bool GetBool(ThrowHandlerFunc handler) const;
    /// A number (doubles with 12 digits), a text, the scalar or else the description of an object.
    ///
    /// Reports: "Value is undefined, cannot convert to string.", "Cannot convert to string: %s".
    safestring GetString() const;
    safestring GetString(ThrowHandlerFunc handler) const;
    /// The object; a number or a text gives a new vector of one element.
    ///
    /// Reports: "Value is undefined, cannot convert to MemBlock.",
    ///          "Cannot convert to MemBlock: %s".
    PMemBlock GetMemory() const;
    PMemBlock GetMemory(ThrowHandlerFunc handler) const;
    /// A raw pointer, or the elements of a vector, detached so that the caller may write.
    ///
    /// Reports: "Value is undefined, cannot convert to naked pointer.",
    ///          "Cannot convert to naked pointer: %s" with the description of another object,
    ///          and what `DataItem::GetPointer` raises for anything else.
    void* GetPointer() const;
    void* GetPointer(ThrowHandlerFunc handler) const;
    /// Reports: "Cannot convert to a Sharable object: %s", for undefined too.
    ThreadSharablePointer<ThreadSharable> GetSharable() const;
    ThreadSharablePointer<ThreadSharable> GetSharable(ThrowHandlerFunc handler) const;
};
static_assert(sizeof(SafeValue) == sizeof(DataItem));

} // namespace NKelmic

#include <memblock/core/options.h>

#endif // MEMBLOCK_CORE_SAFEVALUE_H
