#ifndef MEMBLOCK_BASE_WARNING_H
#define MEMBLOCK_BASE_WARNING_H

#include <memblock/base/exception.h>

/// What every folder may report to the host. The hooks behind it are in serial/warning.h.
namespace NKelmic {
using namespace Ntarnwick;

/// Report a condition that ends nothing: to the host's hook, else "Warning: ..." on standard
/// error. An exception of the hook passes to the caller.
MEMBLOCK_API void Warning(unsigned int code, safestring const& text);

/// Raise an alarm: to the host's hook, else one line on standard error.
///
/// The two forms differ in the line alone: "ALARM (level %d): ..." for a `safestring`, "ALARM
/// (severity %d/5): ..." for a `char const*`. A literal takes the second form.
MEMBLOCK_API void SendAlarmMemBlock(safestring const& text, int severity, int code,
                                    safestring const& source);
MEMBLOCK_API void SendAlarmMemBlock(char const* text, int severity, int code, char const* source);

/// Handler that turns failures into warnings and lets the operation go on.
class MEMBLOCK_API LogWarnings_ : public ThrowHandlerBase {
public:
    unsigned int operator()(Exception const& e) override;
};
MEMBLOCK_API LogWarnings_& LogWarnings(); // converts to ThrowHandlerFunc

} // namespace NKelmic

#endif // MEMBLOCK_BASE_WARNING_H
