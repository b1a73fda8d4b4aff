#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP_SIMPLE(float, float)
MEMBLOCK_INSTANTIATE_OP_SIMPLE(float, double)
MEMBLOCK_INSTANTIATE_OP_SIMPLE(double, double)
MEMBLOCK_INSTANTIATE_OP_SIMPLE(float, unsigned char)
MEMBLOCK_INSTANTIATE_OP_SIMPLE(double, unsigned char)

} // namespace NKelmic
