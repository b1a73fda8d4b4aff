#ifndef MEMBLOCK_SERIAL_SERIALIZER_H
#define MEMBLOCK_SERIAL_SERIALIZER_H

// The earlier path of this header.
#include <memblock/core/serializer.h>

#endif // MEMBLOCK_SERIAL_SERIALIZER_H
