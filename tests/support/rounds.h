#ifndef MEMBLOCK_TESTS_SUPPORT_ROUNDS_H
#define MEMBLOCK_TESTS_SUPPORT_ROUNDS_H

#include <algorithm>
#include <cstdlib>

/// The rounds of a test on random data: the usual number, times the environment variable
/// MEMBLOCK_TEST_ROUNDS. Ten times as many run before and after a change that must not change a
/// result.
inline int Rounds(int usual)
{
    char const* const times = std::getenv("MEMBLOCK_TEST_ROUNDS");
    return usual * std::max(1, times ? std::atoi(times) : 1);
}

#endif // MEMBLOCK_TESTS_SUPPORT_ROUNDS_H
