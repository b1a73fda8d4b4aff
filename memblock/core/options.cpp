#include <memblock/core/options.h>

namespace NKelmic {

DataItem OptionsBase::GetValue(safestring const& key, DataItem const& def) const
{
    auto const found = values_.find(key);
    return found == values_.end() ? def : found->second;
}

void OptionsBase::SetValue(safestring const& key, DataItem const& value)
{
    values_.insert_or_assign(key, value);
}

void OptionsBase::SetOutput(safestring const& key, DataItem const& value) const
{
    values_.insert_or_assign(key, value);
}

bool OptionsBase::GetFlag(safestring const& key, bool def) const
{
    auto const found = values_.find(key);
    if (found == values_.end())
        return def;
    DataItem const& value = found->second;
    switch (value.GetType()) {
    case it_int:
    case it_int64:
        return value.GetInt64() != 0;
    case it_double:
        return value.GetDouble() != 0;
    case it_undefined:
        return false;
    default:
        return true;
    }
}

void OptionsBase::SetFlag(safestring const& key, bool value)
{
    SetValue(key, int(value));
}

void OptionsBase::Clear()
{
    values_.clear();
}

} // namespace NKelmic
