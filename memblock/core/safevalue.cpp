#include <memblock/core/safevalue.h>

#include <memblock/base/number.h>
#include <memblock/core/attempt_internal.h>

namespace NKelmic {

namespace {

/// Names a value in a message by its expression, built only if somebody reads the message.
struct Expression {
    DataItem const& item;
};

safestring TextArg(Expression const& e)
{
    return e.item.IsUndefined() ? e.item.GetDescription() : e.item.GetExpression();
}

/// What can be read as a number: numbers, texts and, by their scalar, objects.
bool HasNumber(DataItem const& item)
{
    switch (item.GetType()) {
    case it_shortstring:
    case it_string:
    case it_int:
    case it_double:
    case it_int64:
    case it_memblock:
        return true;
    default:
        return false;
    }
}

constexpr char const* undefined_int = "Value is undefined, cannot convert to int.";

} // namespace

int SafeValue::GetInt() const
{
    return GetInt(throw_always);
}
double SafeValue::GetFloating() const
{
    return GetFloating(throw_always);
}
bool SafeValue::GetBool() const
{
    return GetBool(throw_always);
}
safestring SafeValue::GetString() const
{
    return GetString(throw_always);
}
PMemBlock SafeValue::GetMemory() const
{
    return GetMemory(throw_always);
}
void* SafeValue::GetPointer() const
{
    return GetPointer(throw_always);
}

ThreadSharablePointer<ThreadSharable> SafeValue::GetSharable() const
{
    return GetSharable(throw_always);
}

int SafeValue::GetInt(ThrowHandlerFunc handler) const
{
    if (HasNumber(*this))
        return Attempt(handler, [&] { return DataItem::GetInt(); });
    if (IsUndefined())
        Report(handler, err_value, undefined_int);
    else
        Report(handler, err_value, "Cannot convert to integer: %s", Expression{*this});
    return 0;
}

double SafeValue::GetFloating(ThrowHandlerFunc handler) const
{
    if (GetType() == it_memblock) {
        if (PMemBlock const block = DataItem::GetMemory())
            return block->SecondaryDouble(MemBlock::key_double, handler);
    } else if (HasNumber(*this)) {
        return Attempt(handler, [&] { return GetDouble(); });
    }
    if (IsUndefined())
        Report(handler, err_value, "Value is undefined, cannot convert to double.");
    else
        Report(handler, err_value, "Cannot convert to double: %s", Expression{*this});
    return 0.0;
}

bool SafeValue::GetBool(ThrowHandlerFunc handler) const
{
    switch (GetType()) {
    case it_shortstring:
    case it_string: {
        safestring const text = DataItem::GetString();
        if (is_positive(text))
            return true;
        if (is_negative(text))
            return false;
        break;
    }
    case it_int64:
        return GetInt64() != 0;
    case it_int:
    case it_double:
        return Attempt(handler, [&] { return DataItem::GetInt(); }) != 0;
    case it_undefined:
        Report(handler, err_value, undefined_int);
        return false;
    default:
        break;
    }
    Report(handler, err_value, "Cannot convert to boolean: %s", Expression{*this});
    return false;
}

safestring SafeValue::GetString(ThrowHandlerFunc handler) const
{
    if (HasNumber(*this))
        return Attempt(handler, [&] { return DataItem::GetString(); });
    if (IsUndefined())
        Report(handler, err_value, "Value is undefined, cannot convert to string.");
    else
        Report(handler, err_value, "Cannot convert to string: %s", Expression{*this});
    return {};
}

PMemBlock SafeValue::GetMemory(ThrowHandlerFunc handler) const
{
    if (HasNumber(*this))
        return Attempt(handler, [&] { return DataItem::GetMemory(); });
    if (IsUndefined())
        Report(handler, err_value, "Value is undefined, cannot convert to MemBlock.");
    else
        Report(handler, err_value, "Cannot convert to MemBlock: %s", Expression{*this});
    return {};
}

void* SafeValue::GetPointer(ThrowHandlerFunc handler) const
{
    if (IsUndefined()) {
        Report(handler, err_value, "Value is undefined, cannot convert to naked pointer.");
        return nullptr;
    }
    if (GetType() != it_memblock || DataItem::GetMemory().Conforms("vector"))
        return Attempt(handler, [&] { return DataItem::GetPointer(); });
    Report(handler, err_value, "Cannot convert to naked pointer: %s", *this);
    return nullptr;
}

ThreadSharablePointer<ThreadSharable> SafeValue::GetSharable(ThrowHandlerFunc handler) const
{
    if (GetType() != it_sharable)
        Report(handler, err_value, "Cannot convert to a Sharable object: %s", Expression{*this});
    return DataItem::GetSharable();
}

} // namespace NKelmic
