#include <memblock/vector/op_apply_kernels.h>

namespace NKelmic {

MEMBLOCK_INSTANTIATE_OP(triple, int)
MEMBLOCK_INSTANTIATE_OP(triple, unsigned int)
MEMBLOCK_INSTANTIATE_OP(triple, triple)
MEMBLOCK_INSTANTIATE_COMPARE(triple)

} // namespace NKelmic
