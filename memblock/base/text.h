#ifndef MEMBLOCK_BASE_TEXT_H
#define MEMBLOCK_BASE_TEXT_H

#include <memblock/base/safestring.h>

namespace Ntarnwick {

// ---- quoting ------------------------------------------------------------------------------------

/// Prepare a text for double quotes around it: '"' and '\' get a '\' in front, line feed,
/// carriage return and tab become "\n", "\r" and "\t". The quotes are the caller's to add.
MEMBLOCK_API void ApplyQuoting(safestring& text);
/// The same on a copy.
MEMBLOCK_API safestring QuoteAdd(safestring const& text);

/// Quote a name to distinguish it from a key: '@' name '@'. `is_alphanumeric` accepts the
/// result. Test for the empty name first: its quoted form passes as a name.
MEMBLOCK_API void QuoteName(safestring& name);
/// Undo `QuoteName`; other texts, "@mean" among them, stay as they are.
MEMBLOCK_API void UnquoteName(safestring& name);

/// Append a text to `output` with XML entities for & < > " and '. Control characters other than
/// tab and line feed become numeric entities.
MEMBLOCK_API void EncodeXmlEntities(char const* text, int length, safestring& output);

// ---- searching ----------------------------------------------------------------------------------

/// Find a text from a position on, outside brackets and parentheses; npos if it is not there.
///
/// A bracket that is never closed hides all that follows; one that was never opened counts for
/// nothing. Case is ignored as in every comparison of a safestring.
MEMBLOCK_API unsigned long find_smart_skip_brackets_and_parens(safestring const& text,
                                                               safestring const& what,
                                                               unsigned long position);

/// Remove spaces, tabs, carriage returns and line feeds from both ends.
MEMBLOCK_API void apply_trim(safestring& text);

// ---- encoders -----------------------------------------------------------------------------------

/// Base64 with padding, on one line.
MEMBLOCK_API safestring Encode_base64(void const* data, unsigned long size);

/// The bytes as a gzip file, without name and time: equal data give equal results.
/// Throws: code 256 if zlib has no memory.
MEMBLOCK_API safestring Encode_gzip(void const* data, unsigned long size);

// ---- others -------------------------------------------------------------------------------------

/// A time in seconds since 1970 as local time, in the format of strftime.
MEMBLOCK_API safestring FormatLocalTime(long time, char const* format);

/// Names of code pages.
struct MEMBLOCK_API UtfTranslator {
    enum { cp_utf8 = 65001, cp_ucs2_little_endian = 1200 };
};

/// Stand-in for the string type of the macro engine: a text that only the engine looks into.
class MEMBLOCK_API opaquestring {
public:
    void Assign(char const* data, unsigned long length) { text_.assign(data, length); }
    safestring const& Text() const { return text_; }

private:
    safestring text_;
};

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_TEXT_H
