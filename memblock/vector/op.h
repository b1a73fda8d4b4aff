#ifndef MEMBLOCK_VECTOR_OP_H
#define MEMBLOCK_VECTOR_OP_H

// The header has moved; this path stays for its includers.
#include <memblock/vector/arithmetic/op.h>

#endif // MEMBLOCK_VECTOR_OP_H
