#ifndef MEMBLOCK_CORE_VISITOR_H
#define MEMBLOCK_CORE_VISITOR_H

#include <memblock/core/datatype.h>
#include <memblock/core/memblock.h>

#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace NKelmic {
/// A position in a walk. Its text is the path that leads there.
class MEMBLOCK_API TraverseNode {
public:
    TraverseNode() {}
    explicit TraverseNode(safestring const& path) : path_(path) {}
    /// The node of that name below `parent`: a dot goes between, but not before a bracket.
    TraverseNode(TraverseNode const& parent, safestring const& name);
    safestring const& Path() const { return path_; }
    operator safestring const&() const { return path_; }

private:
    safestring path_;
};

/// Passed over a graph of objects by `MemBlock::Entertain`.
///
/// The answer of a visit steers the walk. The pointer that a visit gets is the one in the parent:
/// a visitor may put another object there, which is then the one that the walk goes into. It may
/// also remove or overwrite the child, or change its parent in any other way: the walk goes on
/// behind the place that it was at.
class MEMBLOCK_API MemBlockVisitor : public mb_malloced {
public:
    enum { stop = 0, go_on = 1, skip_children = 2 };
    virtual int Visit(safestring const& path, PMemBlock& block) = 0;
    /// Pass an object item on to the other form; go on with any other.
    virtual int Visit(safestring const& path, DataItem& item);
    /// Tell if elements are read, so that arrays must be initialized before the visit.
    virtual bool NeedsValidData();
    virtual ~MemBlockVisitor();
    /// Tell if paths are read. Where they are not, a walk starts them anew at each level: the paths
    /// of a deep tree take memory with the square of its depth.
    bool ReadsPaths() const { return reads_paths_; }
    /// Tell if all sticky items that are objects are visited, and not the attributes alone.
    bool SeesStickyItems() const { return sees_sticky_items_; }

protected:
    bool reads_paths_ = true; ///< not a virtual function: plug-ins are built against the slots
    bool sees_sticky_items_ = false;
};

/// A fuller walk with a start and an end event for each node, and data events in between.
///
/// The two `Visit` forms are what drives it: they walk what they are given and have it skipped.
class MEMBLOCK_API TraverseVisitor : public MemBlockVisitor {
public:
    int Visit(safestring const& path, PMemBlock& block) override;
    int Visit(safestring const& path, DataItem& item) override;
    virtual void VisitStart(TraverseNode const& node, DataItem& item);
    virtual void VisitStart(TraverseNode const& node, MemBlock& block);
    virtual void VisitStart(TraverseNode const& node, ThreadSharable& sharable);
    virtual void VisitVData(TraverseNode const& node, DataType type, void const* data, int length,
                            Vector* vector);
    virtual void VisitEnd(TraverseNode const& node, DataItem& item);
    virtual void VisitEnd(TraverseNode const& node, MemBlock& block);
    virtual void VisitEnd(TraverseNode const& node, ThreadSharable& sharable);
    /// Whether the walk goes into this object; asked ahead of its start event. True here.
    virtual bool Enters(MemBlock& block);
};

/// Marks objects as not to be changed, or takes the mark and the read-only cache away.
///
/// Objects that conform to "xmlnode" are never marked.
class MEMBLOCK_API SetConstVisitor : public MemBlockVisitor {
public:
    explicit SetConstVisitor(bool on) : on_(on) { reads_paths_ = false; }
    using MemBlockVisitor::Visit;
    int Visit(safestring const& path, PMemBlock& block) override;
    bool NeedsValidData() override { return false; }

private:
    bool on_;
};

/// Counts bytes. What is met twice counts once, so shared objects and cycles are harmless.
class MEMBLOCK_API MemUsageVisitor : public TraverseVisitor {
public:
    MemUsageVisitor() { reads_paths_ = false; }
    bool Enters(MemBlock& block) override; // at the first sight only
    bool NeedsValidData() override { return false; }
    using TraverseVisitor::VisitStart;
    void VisitStart(TraverseNode const& node, DataItem& item) override;
    void VisitStart(TraverseNode const& node, MemBlock& block) override;
    void VisitStart(TraverseNode const& node, ThreadSharable& sharable) override;
    void VisitVData(TraverseNode const& node, DataType type, void const* data, int length,
                    Vector* vector) override;
    long long Bytes() const { return bytes_; }
    void SetActive(bool on) { active_ = on; } ///< off: objects are noted, nothing is added

private:
    void Add(long long bytes);
    void AddAnswer(DataItem const& answer);
    long long bytes_ = 0;
    std::unordered_set<MemBlock*> blocks_;
    std::unordered_set<ThreadSharable*> sharables_;
    std::unordered_set<void const*> buffers_;
    bool active_ = true;
};

/// The two passes of `MemBlock::MakeDeepCopy`.
///
/// The first one counts how many references to each object are inside the tree, so that the rest
/// are known to be outside. What outsiders reach, directly or through another object of the tree,
/// is exposed; the second pass puts a copy in its place, one for all places. Derived values that
/// are objects are dropped: others may have them too, and copies have none.
class MEMBLOCK_API DeepCopier : public MemBlockVisitor {
public:
    /// What is known of one object of the tree.
    struct refcount_entry {
        int unseen = -1; ///< references not met in the tree; -1 before the first sight
        bool exposed = false;
        bool done = false; ///< met by the second pass
        PMemBlock replacement;
    };
    /// root: is left alone itself. report: gets paths, see `MakeDeepCopy`; may be null.
    DeepCopier(MemBlock* root, safestring* report);
    using MemBlockVisitor::Visit;
    int Visit(safestring const& path, PMemBlock& block) override;
    bool NeedsValidData() override { return false; }
    /// End the counting pass and begin the copying one.
    void BeginCopying();
    bool counting = true;
    bool keeps_transient =
        true; ///< that attribute is copied, and not dropped as derived values are

private:
    class ExposureMarker;
    void DropDerivedObjects(MemBlock& block);
    int Count(MemBlock* block);
    int Replace(safestring const& path, PMemBlock& block);
    MemBlock* root_;
    std::unordered_map<MemBlock*, refcount_entry> table_;
    safestring* report_;
    std::vector<DataItem> dropped_; // to the end: the table knows objects by their address
};
} // namespace NKelmic

#endif // MEMBLOCK_CORE_VISITOR_H
