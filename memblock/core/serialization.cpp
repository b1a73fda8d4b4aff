#include <memblock/base/appendwhole_internal.h>
#include <memblock/base/raise.h>
#include <memblock/base/safestring.h>
#include <memblock/core/memblock.h>
#include <memblock/core/serializer.h>

namespace NKelmic {

void MemBlock::Serialize(int format, SerializeVisitor& v, safestring const& path,
                         Formatter const& formatter, safestring& output) const
{
    AppendWhole(output, [&] { DoSerialize(format, v, path, formatter, output); });
}

PMemBlock MemBlock::UnSerialize(int format, Formatter const& formatter, char const* text,
                                char const** end) const
{
    return DoUnSerialize(format, formatter, text, end);
}

bool MemBlock::SerialArgs(safestringlist const& list, Formatter& formatter,
                          ThrowHandlerFunc handler) const
{
    if (list.Text().find(',') == safestring::npos)
        return formatter.Init(list, handler);
    return formatter.Init(SplitString(list.Text(), " \t,;", true), handler);
}

void MemBlock::DoSerialize(int format, SerializeVisitor&, safestring const&, Formatter const&,
                           safestring&) const
{
    Raise(err_request, "Serialization format %d not supported for: %s", format, *this);
}

PMemBlock MemBlock::DoUnSerialize(int, Formatter const&, char const*, char const**) const
{
    Raise(err_request, "Unserialization not supported by: %s", *this);
}

} // namespace NKelmic
