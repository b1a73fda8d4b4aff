#ifndef MEMBLOCK_CORE_OPTIONS_H
#define MEMBLOCK_CORE_OPTIONS_H

#include <memblock/core/dataitem.h>

#include <map>

namespace NKelmic {

/// Named values. Names are compared without regard to ASCII case.
class MEMBLOCK_API OptionsBase : public mb_malloced {
public:
    /// The stored value, or the default.
    DataItem GetValue(safestring const& key, DataItem const& def) const;
    void SetValue(safestring const& key, DataItem const& value);
    /// The value as a switch: `def` if absent, false for undefined and for a number equal to 0.
    ///
    /// Settled: any text is true, "false" too; NaN is true.
    bool GetFlag(safestring const& key, bool def) const;
    void SetFlag(safestring const& key, bool value);
    /// Leave a result for the owner of the table.
    ///
    /// An operation takes its options as const and may still answer through them, so a table
    /// belongs to one call at a time and is never a shared constant.
    void SetOutput(safestring const& key, DataItem const& value) const;
    void Clear();

protected:
    mutable std::map<safestring, DataItem> values_;
};

/// Options of `MemBlock::Convert`; the classes define their keys.
class MEMBLOCK_API ConvertOptions : public OptionsBase {};

/// Options of `MemBlock::op`.
class MEMBLOCK_API op_options : public OptionsBase {};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_OPTIONS_H
