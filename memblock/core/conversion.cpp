#include <memblock/core/memblock.h>

#include <memblock/base/listitems_internal.h>
#include <memblock/core/conversion_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/safevalue.h>
#include <memblock/serial/factory.h>

namespace NKelmic {
namespace {
bool ConvertArg(MemBlock const& target, safestring const& argument, ConvertOptions& options,
                ThrowHandlerFunc handler)
{
    auto const equals = argument.find('=');
    if (equals == safestring::npos)
        return target.AddConvertArg(argument, 1, options, handler); // a bare word is a flag
    return target.AddConvertArg(Trimmed(argument.substr(0, equals)),
                                NumberOrText(Trimmed(argument.substr(equals + 1))), options,
                                handler);
}
} // namespace

bool MemBlock::ConvertArgs(safestringlist const& arguments, ConvertOptions& options,
                           ThrowHandlerFunc handler) const
{
    for (safestring const& item : ItemsOf(arguments)) {
        safestring const argument = Trimmed(item);
        if (!argument.empty() && !ConvertArg(*this, argument, options, handler))
            return false;
    }
    return true;
}

bool MemBlock::AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                             ThrowHandlerFunc) const
{
    options.SetValue(key, value);
    return true;
}

PMemBlock MemBlock::ConvertFrom(PMemBlock, ConvertOptions const&) const
{
    return {};
}

PMemBlock MemBlock::ConvertTo(safestring const&) const
{
    return {};
}

PMemBlock MemBlock::Convert(safestringlist const& arguments, safestring const& classname,
                            ThrowHandlerFunc handler) const
{
    KeepAlive const alive(*this);
    ConvertOptions options;
    if (classname.empty() || classname == Class()) {
        if (!ConvertArgs(arguments, options, handler))
            return {};
        PMemBlock const result = ConvertFrom(this, options);
        if (!result)
            Report(handler, err_kind, "Representation conversion failed for class \"%s\".",
                   Class());
        return result;
    }
    PMemBlock const prototype = Factory().GetInstance(classname);
    if (!prototype) {
        Report(handler, err_kind,
               "The class \"%s\" has not been registered, unable to convert object to that class.",
               classname);
        return {};
    }
    if (!prototype->ConvertArgs(arguments, options, handler))
        return {};
    if (PMemBlock const result = prototype->ConvertFrom(this, options))
        return result;
    if (PMemBlock const turned = ConvertTo(classname))
        if (PMemBlock const result = turned->ConvertFrom(turned, options))
            return result;
    Report(handler, err_kind, "Conversion from \"%s\" to \"%s\" is not supported.", Class(),
           classname);
    return {};
}

} // namespace NKelmic
