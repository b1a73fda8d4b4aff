#ifndef MEMBLOCK_CORE_MD5_H
#define MEMBLOCK_CORE_MD5_H

#include <memblock/core/visitor.h>

/// State of one MD5 digest (RFC 1321) under way.
struct MEMBLOCK_API MD5Context {
    unsigned int state[4];
    unsigned int count[2]; ///< bits fed so far, low word first
    unsigned char buffer[64];
};

extern "C" {
MEMBLOCK_API void MD5Init(MD5Context* context);
MEMBLOCK_API void MD5Update(MD5Context* context, void const* data, unsigned int size);
/// Give the digest and wipe the context.
MEMBLOCK_API void MD5Final(unsigned char digest[16], MD5Context* context);
}

namespace NKelmic {

/// For use from a debugger; nothing reads it.
MEMBLOCK_API extern int g_debug_md5_log;

/// Feeds the content of each visited object into one digest.
///
/// The caller calls `MD5Init` and `MD5Final` on the context. The digest is a fingerprint of
/// content and no protection against forgery.
class MEMBLOCK_API md5_visitor : public MemBlockVisitor {
public:
    /// needs_valid_data: arrays that wait for their initialization get it first; otherwise their
    /// memory is taken as it is.
    explicit md5_visitor(bool needs_valid_data) : needs_valid_data_(needs_valid_data)
    {
        reads_paths_ = false;
    }
    using MemBlockVisitor::Visit;
    int Visit(safestring const& path, PMemBlock& block) override;
    bool NeedsValidData() override { return needs_valid_data_; }
    MD5Context context;

private:
    bool needs_valid_data_;
};

/// The MD5 digest of some bytes as 32 lower-case hexadecimal digits.
MEMBLOCK_API safestring md5_hash(void const* data, unsigned int size);

/// Feed one object into the digest, without its children.
///
/// First comes its description with the NUL, so a class keeps in its description only what
/// defines the object. Of a vector the elements follow: the bytes of numbers, the texts of
/// strings without NUL, the descriptions of polytype values with it. An array without elements
/// gives a fixed text, so that it differs from no array. Of a container the names follow with the
/// NUL, each with its value unless that is an object; an empty one gives a fixed text, too.
/// context: an `MD5Context`.
/// Throws: 128 "Cannot cast data array into requested type: %s".
MEMBLOCK_API void Md5UpdateThisObject(MemBlockVisitor* visitor, safestring const& path,
                                      PMemBlock const& item, void* context);

/// Pass a `MemBlockVisitor`, given by its address, over a container and what hangs below it.
///
/// Throws an assertion for null.
MEMBLOCK_API void UpdateMD5(Container& container, void* visitor);

/// A digest as 32 lower-case hexadecimal digits.
MEMBLOCK_API safestring Md5ToText(unsigned char const digest[16]);

} // namespace NKelmic

#endif // MEMBLOCK_CORE_MD5_H
