#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP(unsigned char, int)
MEMBLOCK_INSTANTIATE_OP(unsigned char, unsigned int)
MEMBLOCK_INSTANTIATE_OP(unsigned char, triple)
MEMBLOCK_INSTANTIATE_OP(unsigned char, short)
MEMBLOCK_INSTANTIATE_OP(unsigned char, unsigned short)
MEMBLOCK_INSTANTIATE_OP(unsigned char, char)
MEMBLOCK_INSTANTIATE_OP(unsigned char, unsigned char)
MEMBLOCK_INSTANTIATE_COMPARE(unsigned char)

} // namespace NKelmic
