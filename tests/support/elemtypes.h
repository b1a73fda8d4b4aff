#ifndef MEMBLOCK_TESTS_SUPPORT_ELEMTYPES_H
#define MEMBLOCK_TESTS_SUPPORT_ELEMTYPES_H

#include <memblock/core/dataitem.h>
#include <memblock/core/datatype.h>

#include <gtest/gtest.h>

namespace NKelmic {

// Lists for typed tests, from the one list: a new element type is tested as all others are.
#define MEMBLOCK_LISTED(NAME, ID, T, TEXT) , T
template <class None, class... T>
using TestedTypes = testing::Types<T...>; // a list begins with a comma
using NumericElemTypes = TestedTypes<void MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_LISTED)>;
using AllElemTypes = TestedTypes<void MEMBLOCK_ELEM_TYPES(MEMBLOCK_LISTED)>;
#undef MEMBLOCK_LISTED

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_SUPPORT_ELEMTYPES_H
