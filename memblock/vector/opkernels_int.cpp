#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP(int, int)
MEMBLOCK_INSTANTIATE_OP(int, unsigned int)
MEMBLOCK_INSTANTIATE_COMPARE(int)

} // namespace NKelmic
