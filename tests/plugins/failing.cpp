// A plug-in whose class table can't be had.
#include <memblock/serial/loader.h>

extern "C" int ExportedClasses(NKelmic::ClassInfo const**, int*)
{
    return 1;
}
