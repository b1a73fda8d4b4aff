#ifndef MEMBLOCK_VECTOR_VECTORFORMS_H
#define MEMBLOCK_VECTOR_VECTORFORMS_H

#include <memblock/vector/vector.h>

namespace NKelmic {

/// Append the bytes of all elements, first to last in memory, as pairs of `byte2hex`.
///
/// Throws: 4096 "Serialization format %d not supported for: %s" for object elements.
MEMBLOCK_API void SerializeHexa(Vector const* vector, safestring& output);

/// Append each text with the separator behind it. A mode other than 0 quotes by `QuoteByMode`.
MEMBLOCK_API void PrintStrings(safestring& output, safestring const* strings, unsigned int n,
                               char separator, int mode);

/// Quote a text: mode 1 for a script literal, 2 for HTML, 3 to fit on one line.
///
/// Throws: 4096 "Quoting mode not supported: %d".
MEMBLOCK_API void QuoteByMode(safestring& text, int mode);

/// Make a text fit between the quotes of a script literal, see `ApplyQuoting`.
MEMBLOCK_API void ApplyAsciiQuoting(safestring& text);

/// Replace < > & and the double quote by entities and a tab by four non-breaking spaces.
///
/// full: an empty line becomes "<p>", another line end "<br>".
MEMBLOCK_API void HtmlQuote(safestring& text, bool full);

/// Two digits, high half first, in capitals.
MEMBLOCK_API safestring byte2hex(unsigned char byte);
/// The reverse, for letters of either case. Throws: 512 "Invalid hexadecimal digits: %s".
MEMBLOCK_API unsigned char hex2byte(unsigned char high, unsigned char low);

/// Append raw numbers in text form, one a line, floats with 6 significant digits.
template <class T>
MEMBLOCK_API void serialize1_tmpl(void const* data, int length, safestring& output);

namespace NVector {
/// Take out carriage returns and line feeds.
MEMBLOCK_API void RemoveLineBreaks(safestring& text);
} // namespace NVector

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_VECTORFORMS_H
