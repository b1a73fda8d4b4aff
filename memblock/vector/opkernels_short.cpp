#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP(short, int)
MEMBLOCK_INSTANTIATE_OP(short, unsigned int)
MEMBLOCK_INSTANTIATE_OP(short, triple)
MEMBLOCK_INSTANTIATE_OP(short, short)
MEMBLOCK_INSTANTIATE_OP(short, unsigned short)
MEMBLOCK_INSTANTIATE_COMPARE(short)

} // namespace NKelmic
