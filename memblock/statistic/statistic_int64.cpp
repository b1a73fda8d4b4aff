#include <memblock/statistic/statisticimpl_internal.h>

namespace NKelmic {
MEMBLOCK_STATISTIC_FACTORIES(long long)
} // namespace NKelmic
