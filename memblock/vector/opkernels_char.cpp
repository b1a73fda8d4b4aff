#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP(char, int)
MEMBLOCK_INSTANTIATE_OP(char, unsigned int)
MEMBLOCK_INSTANTIATE_OP(char, triple)
MEMBLOCK_INSTANTIATE_OP(char, short)
MEMBLOCK_INSTANTIATE_OP(char, unsigned short)
MEMBLOCK_INSTANTIATE_OP(char, char)
MEMBLOCK_INSTANTIATE_OP(char, unsigned char)
MEMBLOCK_INSTANTIATE_COMPARE(char)

} // namespace NKelmic
