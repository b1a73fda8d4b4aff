#ifndef MEMBLOCK_VECTOR_VALUETYPES_INTERNAL_H
#define MEMBLOCK_VECTOR_VALUETYPES_INTERNAL_H

#include <memblock/core/datatype.h>
#include <memblock/core/memblock.h>

/// The C++ types of elements that are values, for explicit instantiation: all but bare addresses.
#define MEMBLOCK_VALUE_TYPES(X)                                                                    \
    X(int)                                                                                         \
    X(unsigned int)                                                                                \
    X(short)                                                                                       \
    X(unsigned short)                                                                              \
    X(char)                                                                                        \
    X(unsigned char)                                                                               \
    X(float)                                                                                       \
    X(double)                                                                                      \
    X(triple)                                                                                      \
    X(PMemBlock)                                                                                   \
    X(safestring)                                                                                  \
    X(DataItem)                                                                                    \
    X(long long)                                                                                   \
    X(unsigned long long)

#endif // MEMBLOCK_VECTOR_VALUETYPES_INTERNAL_H
