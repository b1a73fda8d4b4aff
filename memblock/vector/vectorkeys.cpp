#include <memblock/vector/vector.h>

namespace NKelmic {

namespace {

/// The value that the vector stands for: the cooked element, or several as a comma text.
DataItem Scalar(Vector const& v)
{
    if (v.Length() == 0)
        return DataItem();
    if (v.Length() == 1) {
        DataItem const value = v.GetDataItemWithFactor(0);
        // A vector that holds itself has no value: whoever asks it would come back for ever.
        bool const itself = value.GetType() == it_memblock && value.GetMemory().Pointer() == &v;
        return itself ? DataItem() : value;
    }
    safestring text;
    for (unsigned int i = 0; i < v.Length(); ++i) {
        if (i > 0)
            text += ',';
        text += v.GetDataItemWithFactor(static_cast<int>(i)).GetExpression();
    }
    return DataItem(text);
}

} // namespace

DataItem Vector::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (SameName(verb, "scalar"))
        return Scalar(*this);
    if (SameName(verb, "memusage_self"))
        return DataItem(static_cast<long long>(sizeof(*this))); // the buffer counts by its address
    if (SameName(verb, "notif_elmtyp_chng"))
        return DataItem(); // for derived classes
    return MemBlock::DoVerb(verb, argc, argv);
}

DataItem Vector::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    return MemBlock::ResolveSubItem(key, handler);
}

bool Vector::DoSetSubItem(safestring const& key, SafeValue const& value,
                          safestring const& full_path, ThrowHandlerFunc handler)
{
    return MemBlock::DoSetSubItem(key, value, full_path, handler);
}

bool Vector::Entertain(MemBlockVisitor& visitor, safestring const& key, entertainmode_t mode)
{
    return MemBlock::Entertain(visitor, key, mode);
}

void Vector::DoSerialize(int format, SerializeVisitor& visitor, safestring const& path,
                         Formatter const& formatter, safestring& output) const
{
    MemBlock::DoSerialize(format, visitor, path, formatter, output);
}

} // namespace NKelmic
