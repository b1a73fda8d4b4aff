#ifndef MEMBLOCK_TESTS_SUPPORT_EXACT_H
#define MEMBLOCK_TESTS_SUPPORT_EXACT_H

#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>

/// What an operator gives, by arithmetic wider than the library's: `long double` for cooked values,
/// `long long` for what integer kernels store modulo 2^32. Points are in images 7 pixels wide.
template <class V>
V Exact(char op, V x, V y)
{
    constexpr bool whole = std::is_integral_v<V>;
    switch (op) {
    case '+':
        return x + y;
    case '-':
        return x - y;
    case '*':
        if constexpr (whole) // of unsigned 32-bit factors, which the signed product can't hold
            return static_cast<V>(static_cast<unsigned long long>(x) *
                                  static_cast<unsigned long long>(y));
        return x * y;
    case '=':
        return x == y;
    case '#':
        return x != y;
    case '<':
        return x < y;
    case '>':
        return x > y;
    case '(':
        return x <= y;
    case ')':
        return x >= y;
    case '!':
        return x == 0;
    case '&':
        return x != 0 && y != 0 ? x : 0;
    case '|':
        return x != 0 ? x : y;
    case '^':
        return x != 0 && y == 0 ? x : x == 0 ? y : 0;
    default:
        break;
    }
    if constexpr (whole) {
        bool const shifts_out = y < 0 || y > 31;
        switch (op) {
        case '~':
            return y == 0 ? 0 : (y > 0 ? x : -x) % y;
        case 'a':
            return x & y;
        case 'o':
            return x | y;
        case 'x':
            return x ^ y;
        case 'l':
            return shifts_out ? 0 : static_cast<unsigned int>(x) << y;
        case 'r':
            return shifts_out ? 0 : x >> y;
        case 'p':
            return x + 7 * y;
        default:
            break;
        }
    } else if (op == '/') {
        return x / y;
    } else if (op == '~') {
        return y == 0 ? 0 : std::fmod(y > 0 ? x : -x, y);
    }
    ADD_FAILURE() << op;
    return 0;
}

#endif // MEMBLOCK_TESTS_SUPPORT_EXACT_H
