#include <memblock/core/memchunk.h>

#include <memblock/base/alloc.h>
#include <memblock/base/raise.h>
#include <memblock/base/warning.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

namespace NKelmic {

namespace {

using word_ref = std::atomic_ref<unsigned long>;
static_assert(word_ref::is_always_lock_free && sizeof(unsigned long) == 2 * sizeof(int));

int clones_of(unsigned long counts)
{
    return static_cast<int>(static_cast<unsigned int>(counts));
}

int types_of(unsigned long counts)
{
    return static_cast<int>(static_cast<unsigned int>(counts >> 32));
}

/// Whether a chunk is the only one on its buffer. No other thread has one then that it could copy
/// or drop, and the owner may do without atomic additions.
bool alone(unsigned long& counts)
{
    return clones_of(word_ref(counts).load(std::memory_order_acquire)) == 1;
}

void* checked(void* block, unsigned long size)
{
    if (!block && size > 0)
        throw std::bad_alloc();
    return block;
}

/// Warn about a release function that threw. A hook that throws in its turn is swallowed: the
/// chunk dies in a destructor.
template <class... Arg>
void warn_of_release(char const* text, Arg const&... arg) noexcept
{
    try {
        Warning(err_kind, Text(text, arg...));
    } catch (...) {
    }
}

} // namespace

MemChunk::counts_t* MemChunk::NewCounts(counts_t value)
{
    return new (checked(mb_malloc(sizeof(counts_t)), sizeof(counts_t))) counts_t(value);
}

MemChunk::MemChunk() : counts_(NewCounts(one_clone)) {}

MemChunk::MemChunk(unsigned long size) : release_(mb_free), size_(size)
{
    counts_ = NewCounts(one_clone);
    data_ = mb_calloc(size, 1);
    if (!data_ && size > 0) {
        mb_free(counts_);
        throw std::bad_alloc();
    }
}

MemChunk::MemChunk(void* data, release_t release, unsigned long size)
    : release_(release), data_(data), size_(size)
{
    try {
        counts_ = NewCounts(one_clone);
    } catch (...) {
        ReleaseData();
        throw;
    }
}

MemChunk::MemChunk(void* data, release2_t release, void* user_data, unsigned long size)
    : release2_(release), user_data_(user_data), data_(data), size_(size)
{
    try {
        counts_ = NewCounts(one_clone);
    } catch (...) {
        ReleaseData();
        throw;
    }
}

MemChunk::MemChunk(Carrier const& carrier)
    : release_(carrier.release), release2_(carrier.release2), user_data_(carrier.user_data),
      counts_(NewCounts(one_clone)), data_(carrier.data), size_(carrier.size),
      read_only_(carrier.read_only)
{
    carrier.data = nullptr; // the buffer has one owner from here on
    carrier.size = 0;
    carrier.release = nullptr;
    carrier.release2 = nullptr;
}

MemChunk::MemChunk(MemChunk const& o) : MemChunk(o, one_clone) {}

MemChunk::MemChunk(MemChunk const& o, counts_t added)
    : release_(o.release_), release2_(o.release2_), user_data_(o.user_data_), counts_(o.counts_),
      data_(o.data_), size_(o.size_), read_only_(o.read_only_)
{
    if (counts_)
        word_ref(*counts_).fetch_add(added, std::memory_order_relaxed);
    else
        counts_ = o.counts_ = NewCounts(one_clone + added);
}

MemChunk::MemChunk(MemChunk&& o) noexcept
    : release_(o.release_), release2_(o.release2_), user_data_(o.user_data_),
      counts_(std::exchange(o.counts_, nullptr)), data_(o.data_), size_(o.size_),
      read_only_(o.read_only_)
{
    o.Forget();
}

MemChunk& MemChunk::operator=(MemChunk const& o)
{
    if (this != &o) {
        MemChunk copy(o); // first: letting the old buffer go may take `o` with it
        swap(copy);
    }
    return *this;
}

MemChunk::~MemChunk()
{
    Cleanup();
}

void MemChunk::swap(MemChunk& o) noexcept
{
    std::swap(release_, o.release_);
    std::swap(release2_, o.release2_);
    std::swap(user_data_, o.user_data_);
    std::swap(counts_, o.counts_);
    std::swap(data_, o.data_);
    std::swap(size_, o.size_);
    std::swap(read_only_, o.read_only_);
}

/// Leave the counts block, and free it if nobody else is there. Returns whether this was the last.
bool MemChunk::DropClone() noexcept
{
    counts_t* const counts = std::exchange(counts_, nullptr);
    if (!counts)
        return true;
    if (!alone(*counts) &&
        clones_of(word_ref(*counts).fetch_sub(one_clone, std::memory_order_acq_rel)) > 1)
        return false;
    mb_free(counts);
    return true;
}

void MemChunk::ReleaseData() const noexcept
{
    try {
        if (release_)
            release_(data_);
        else if (release2_)
            release2_(data_, user_data_);
    } catch (std::exception const& e) {
        warn_of_release("Exception while releasing MemChunk memory: %s", e.what());
    } catch (...) {
        warn_of_release("Unknown exception while releasing MemChunk memory");
    }
}

void MemChunk::Cleanup() noexcept
{
    if (DropClone())
        ReleaseData();
}

void MemChunk::Forget() noexcept
{
    release_ = nullptr;
    release2_ = nullptr;
    user_data_ = nullptr;
    data_ = nullptr;
    size_ = 0;
}

void MemChunk::Dismiss()
{
    DropClone();
    Forget();
}

bool MemChunk::operator==(MemChunk const& o) const
{
    return size_ == o.size_ &&
           (data_ == o.data_ || size_ == 0 || std::memcmp(data_, o.data_, size_) == 0);
}

int MemChunk::IncrTypeCount() const
{
    if (!counts_)
        counts_ = NewCounts(one_clone);
    if (!alone(*counts_))
        return types_of(word_ref(*counts_).fetch_add(one_type, std::memory_order_relaxed)) + 1;
    *counts_ += one_type;
    return types_of(*counts_);
}

int MemChunk::DecrTypeCount() const
{
    if (!counts_)
        return 0;
    if (!alone(*counts_))
        return types_of(word_ref(*counts_).fetch_sub(one_type, std::memory_order_acq_rel)) - 1;
    *counts_ -= one_type;
    return types_of(*counts_);
}

bool MemChunk::IsDataTyped() const
{
    return counts_ && types_of(word_ref(*counts_).load(std::memory_order_acquire)) > 0;
}

void MemChunk::InitCloneCount()
{
    counts_t* const fresh = NewCounts(one_clone);
    DropClone();
    counts_ = fresh;
}

int MemChunk::CloneCount() const
{
    return counts_ ? clones_of(word_ref(*counts_).load(std::memory_order_acquire)) : 0;
}

void MemChunk::Resize(unsigned long size, bool keep, bool zero_new)
{
    bool const in_place = release_ == mb_free && !IsShared();
    void* const fresh = in_place ? mb_realloc(data_, size) : mb_malloc(size);
    if (!fresh && size > 0)
        Raise(err_resize, "Cannot reallocate %u bytes", size);
    unsigned long const kept = keep && data_ ? std::min(size_, size) : 0;
    if (!in_place)
        MoveTo(fresh, kept);
    data_ = fresh;
    size_ = size;
    if (zero_new && kept < size)
        std::memset(static_cast<char*>(data_) + kept, 0, size - kept);
}

/// Copy the first bytes to a new block of our own and leave the old buffer.
void MemChunk::MoveTo(void* fresh, unsigned long kept)
{
    counts_t* counts = nullptr;
    if (IsShared()) {
        try {
            counts = NewCounts(one_clone);
        } catch (...) {
            mb_free(fresh);
            throw;
        }
    }
    if (kept > 0)
        std::memcpy(fresh, data_, kept);
    if (counts) {
        Cleanup();
        counts_ = counts;
    } else {
        ReleaseData(); // the block stays, and with it the count of the typed view
    }
    release_ = mb_free;
    release2_ = nullptr;
    user_data_ = nullptr;
}

Carrier MemChunk::TransferToCarrier()
{
    Carrier out;
    if (!IsShared()) {
        out.data = data_;
        out.size = size_;
        out.release = release_;
        out.release2 = release2_;
        out.user_data = user_data_;
        out.read_only = read_only_;
        Dismiss();
        read_only_ = false;
        return out;
    }
    MemChunk empty;
    out.data = checked(mb_malloc(size_ + 1), size_ + 1);
    if (size_ > 0)
        std::memcpy(out.data, data_, size_);
    static_cast<char*>(out.data)[size_] = '\0';
    out.size = size_;
    out.release = mb_free;
    out.copied = true;
    swap(empty);
    return out;
}

bool MemChunk::Consistent(safestring& message) const
{
    if (data_ && size_ > 0) {
        char const volatile* const bytes = static_cast<char const*>(data_);
        static_cast<void>(bytes[0]);
        static_cast<void>(bytes[size_ - 1]);
    }
    if (release_ && release2_) {
        message += "Multiple release functions registered for the MemChunk.\n";
        return false;
    }
    return true;
}

} // namespace NKelmic
