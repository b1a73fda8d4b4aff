// A library that links this one and exports nothing of what the environment asks for.
#include <memblock/core/memblock.h>

__attribute__((visibility("default"))) int KeepsTheDependency()
{
    return NKelmic::IsNaturalInteger("5", 0);
}
