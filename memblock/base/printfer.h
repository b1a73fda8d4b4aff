#ifndef MEMBLOCK_BASE_PRINTFER_H
#define MEMBLOCK_BASE_PRINTFER_H

#include <memblock/base/safestring.h>

namespace Ntarnwick {

/// Format builder: one call an argument, in the order of the conversions.
///
///     safestring text = Printf("%s: %d of %u").operator()(name)(i)(n).Finalize();
///
/// Conversions are those of the C language, with flags, width and precision, in the C locale; the
/// flag '#' counts for integers only.
/// A length modifier is read and dropped: each argument is formatted by its own type, so "%d" and
/// "%u" print 64-bit numbers whole. Where type and conversion differ:
/// - a signed number under %u, %x or %o prints the bit pattern of its own width;
/// - a number under %s prints as a number, a double with 12 digits;
/// - a double under an integer conversion is truncated, an integer under a floating one converted;
/// - a text under any conversion but %p prints as text, null as "(null)".
///
/// "%%" is '%'. A conversion without argument prints nothing, a surplus argument is ignored, an
/// unknown conversion is copied as it is. What arguments print is never scanned for conversions.
class MEMBLOCK_API printfer {
public:
    explicit printfer(safestring const& format);

    /// A builder over a format that outlives it, which saves a copy.
    static printfer Over(char const* format) { return printfer(format, nullptr); }

    printfer& operator()(char const* v);
    printfer& operator()(double v);
    printfer& operator()(int v); ///< also the character of %c
    printfer& operator()(long v);
    printfer& operator()(long long v);
    printfer& operator()(unsigned int v);
    printfer& operator()(unsigned long v);
    printfer& operator()(unsigned long long v);
    printfer& operator()(void const* v);
    printfer& operator()(safestring const& v);

    /// End the chain: what follows the last argument is added. Never fails.
    printfer& Finalize();

    operator safestring const&() const { return out_; }

    /// Finalize and move the text out.
    safestring Take();

private:
    printfer(char const* format, std::nullptr_t);
    void ToNextConversion();
    template <class V>
    printfer& Feed(V const& v);

    safestring format_;
    char const* over_ = nullptr; // the format, if it is not format_
    unsigned long size_;         // of the format
    unsigned long pos_ = 0;      // at the '%' of the next conversion, or at the end
    safestring out_;
};

/// Start a chain with a format.
MEMBLOCK_API printfer Printf(safestring const& format);

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_PRINTFER_H
