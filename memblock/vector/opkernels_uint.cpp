#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP(unsigned int, int)
MEMBLOCK_INSTANTIATE_OP(unsigned int, unsigned int)
MEMBLOCK_INSTANTIATE_COMPARE(unsigned int)

} // namespace NKelmic
