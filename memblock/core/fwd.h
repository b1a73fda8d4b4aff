#ifndef MEMBLOCK_CORE_FWD_H
#define MEMBLOCK_CORE_FWD_H

#include <memblock/base/fwd.h>
#include <memblock/base/safestring.h>

namespace NKelmic {
using namespace Ntarnwick;

class MemBlock;
class PMemBlock;
class MemBlockImpl;
class MemBlockFactory;
class MemBlockVisitor;
class TraverseVisitor;
class TraverseNode;
class DataItem;
class SafeValue;
class OptionsBase;
class ConvertOptions;
class op_options;
class Formatter;
class SerializeVisitor;
class ThreadSharable;
class Vector;
class Container;
class MemChunk;
class TypedChunk;
class JobPool;
class JobPoolImpl;
class JobPoolImpl_MT_base;
class ThreadMgr;
template <class T>
class DerivedPointer;
template <class T>
class ThreadSharablePointer;
} // namespace NKelmic

#endif // MEMBLOCK_CORE_FWD_H
