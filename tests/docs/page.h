#ifndef MEMBLOCK_TESTS_DOCS_PAGE_H
#define MEMBLOCK_TESTS_DOCS_PAGE_H

// What the programs in the pages of docs/ include, and what their checks use.

#include <memblock/base/carrier.h>
#include <memblock/base/raise.h>
#include <memblock/collections/container.h>
#include <memblock/collections/table.h>
#include <memblock/core/keytable.h>
#include <memblock/core/memchunk.h>
#include <memblock/core/visitor.h>
#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/imaging/stencil.h>
#include <memblock/logging/logger.h>
#include <memblock/measure/objects.h>
#include <memblock/measure/threshold.h>
#include <memblock/serial/loader.h>
#include <memblock/serial/serializer.h>
#include <memblock/serial/warning.h>
#include <memblock/statistic/statistic.h>
#include <memblock/threads/jobpool.h>
#include <memblock/vector/convert.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vector.h>

#include <support/raises.h>
#include <support/vectors.h>
#include <support/warnings.h>

#include <cmath>
#include <gtest/gtest.h>

using namespace NKelmic;

/// The form of a number, with options as scripts write them: "precision=3".
inline safestring Form(MemBlock const& object, int number, char const* options = "")
{
    Formatter formatter;
    formatter.Init(safestringlist(options, ','), throw_never);
    SerializeVisitor visitor;
    safestring text;
    object.Serialize(number, visitor, "x", formatter, text);
    return text;
}

#endif // MEMBLOCK_TESTS_DOCS_PAGE_H
