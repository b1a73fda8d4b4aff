#ifndef MEMBLOCK_MEASURE_BUFFER_INTERNAL_H
#define MEMBLOCK_MEASURE_BUFFER_INTERNAL_H

#include <memblock/base/alloc.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace NKelmic::measuring {

/// A growing array of plain values. Unlike a `std::vector` it does not clear what is written next,
/// and a large one grows without a copy, on large pages: both cost more than the work on them.
template <class T>
requires std::is_trivially_copyable_v<T>
class Buffer {
public:
    Buffer() = default;
    Buffer(Buffer&& o) noexcept { Swap(o); }
    Buffer& operator=(Buffer&& o) noexcept
    {
        Swap(o);
        return *this;
    }
    ~Buffer() { Ntarnwick::mb_free(data_); }

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T* data() { return data_; }
    T const* data() const { return data_; }
    T* begin() { return data_; }
    T* end() { return data_ + size_; }
    T const* begin() const { return data_; }
    T const* end() const { return data_ + size_; }
    T& operator[](std::size_t i) { return data_[i]; }
    T const& operator[](std::size_t i) const { return data_[i]; }
    T const& front() const { return data_[0]; }
    T const& back() const { return data_[size_ - 1]; }

    void clear() { size_ = 0; }
    /// New values are not set.
    void resize(std::size_t n)
    {
        Reserve(n);
        size_ = n;
    }
    void assign(std::size_t n, T value)
    {
        resize(n);
        std::fill_n(data_, n, value);
    }
    void push_back(T value)
    {
        if (size_ == capacity_)
            Reserve(size_ + 1);
        data_[size_++] = value;
    }
    /// The first of n more values, which are not set.
    T* Extend(std::size_t n)
    {
        resize(size_ + n);
        return data_ + size_ - n;
    }
    void Append(T const* values, std::size_t n)
    {
        if (n > 0)
            std::memcpy(Extend(n), values, n * sizeof(T));
    }

private:
    void Swap(Buffer& o)
    {
        std::swap(data_, o.data_);
        std::swap(size_, o.size_);
        std::swap(capacity_, o.capacity_);
    }
    void Reserve(std::size_t n)
    {
        if (n <= capacity_)
            return;
        std::size_t const wanted = std::max({n, 2 * capacity_, std::size_t{16}});
        void* const grown = Ntarnwick::mb_realloc(data_, wanted * sizeof(T));
        if (!grown)
            throw std::bad_alloc();
        data_ = static_cast<T*>(grown);
        capacity_ = wanted;
    }

    T* data_ = nullptr;
    std::size_t size_ = 0, capacity_ = 0;
};

} // namespace NKelmic::measuring

#endif // MEMBLOCK_MEASURE_BUFFER_INTERNAL_H
