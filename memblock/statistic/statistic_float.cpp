#include <memblock/statistic/statisticimpl_internal.h>

namespace NKelmic {
MEMBLOCK_STATISTIC_FACTORIES(float)
} // namespace NKelmic
