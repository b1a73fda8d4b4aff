#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP(unsigned short, int)
MEMBLOCK_INSTANTIATE_OP(unsigned short, unsigned int)
MEMBLOCK_INSTANTIATE_OP(unsigned short, triple)
MEMBLOCK_INSTANTIATE_OP(unsigned short, short)
MEMBLOCK_INSTANTIATE_OP(unsigned short, unsigned short)
MEMBLOCK_INSTANTIATE_COMPARE(unsigned short)

} // namespace NKelmic
