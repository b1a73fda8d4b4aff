#ifndef MEMBLOCK_BASE_CHARS_INTERNAL_H
#define MEMBLOCK_BASE_CHARS_INTERNAL_H

namespace Ntarnwick {

// What numbers and words are made of; the same in every locale.

constexpr bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}
constexpr bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_CHARS_INTERNAL_H
