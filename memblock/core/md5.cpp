#include <memblock/core/md5.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>

namespace {

typedef unsigned int word;

constexpr std::size_t block_size = 64;

// The integer part of 2^32 * |sin(i + 1)|.
constexpr word sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};
constexpr int rotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
constexpr word initial_state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

word LoadLittleEndian(unsigned char const* p)
{
    word w;
    std::memcpy(&w, p, sizeof w);
    if constexpr (std::endian::native == std::endian::big)
        w = __builtin_bswap32(w);
    return w;
}

void StoreLittleEndian(unsigned char* p, word w)
{
    if constexpr (std::endian::native == std::endian::big)
        w = __builtin_bswap32(w);
    std::memcpy(p, &w, sizeof w);
}

/// Step I of 64. The four words of the state change places from step to step; with I known at
/// compile time they stay in registers all the same.
template <int I>
[[gnu::always_inline]] inline void Step(word (&state)[4], word const (&m)[16])
{
    constexpr int round = I / 16;
    word& a = state[-I & 3];
    word const b = state[(1 - I) & 3];
    word const c = state[(2 - I) & 3];
    word const d = state[(3 - I) & 3];
    if constexpr (round == 0) {
        a += sines[I] + m[I];
        a += d ^ (b & (c ^ d));
    } else if constexpr (round == 1) {
        a += sines[I] + m[(5 * I + 1) & 15];
        a += c & ~d; // b comes last out of the step before, so it is waited for by one term only
        a += b & d;
    } else if constexpr (round == 2) {
        a += sines[I] + m[(3 * I + 5) & 15];
        a += b ^ (c ^ d);
    } else {
        a += sines[I] + m[(7 * I) & 15];
        a += c ^ (b | ~d);
    }
    a = std::rotl(a, rotations[round][I & 3]) + b;
}

template <int... I>
[[gnu::always_inline]] inline void AllSteps(word (&state)[4], word const (&m)[16],
                                            std::integer_sequence<int, I...>)
{
    (Step<I>(state, m), ...);
}

void Transform(word (&state)[4], unsigned char const* data, std::size_t blocks)
{
    word s[4] = {state[0], state[1], state[2], state[3]};
    for (; blocks > 0; --blocks, data += block_size) {
        word m[16];
        for (int i = 0; i < 16; ++i)
            m[i] = LoadLittleEndian(data + 4 * i);
        word const before[4] = {s[0], s[1], s[2], s[3]};
        AllSteps(s, m, std::make_integer_sequence<int, 64>());
        for (int i = 0; i < 4; ++i)
            s[i] += before[i];
    }
    std::memcpy(state, s, sizeof s);
}

} // namespace

void MD5Init(MD5Context* context)
{
    std::memcpy(context->state, initial_state, sizeof initial_state);
    context->count[0] = context->count[1] = 0;
}

void MD5Update(MD5Context* context, void const* data, unsigned int size)
{
    if (size == 0)
        return;
    auto const* bytes = static_cast<unsigned char const*>(data);
    std::size_t const used = context->count[0] / 8 % block_size;
    context->count[0] += size << 3;
    context->count[1] += (size >> 29) + (context->count[0] < size << 3);

    std::size_t left = size;
    if (used > 0) {
        std::size_t const taken = std::min(left, block_size - used);
        std::memcpy(context->buffer + used, bytes, taken);
        if (used + taken < block_size)
            return;
        Transform(context->state, context->buffer, 1);
        bytes += taken;
        left -= taken;
    }
    Transform(context->state, bytes, left / block_size);
    std::memcpy(context->buffer, bytes + left / block_size * block_size, left % block_size);
}

void MD5Final(unsigned char digest[16], MD5Context* context)
{
    static constexpr unsigned char padding[block_size] = {0x80};
    unsigned char length[8];
    StoreLittleEndian(length, context->count[0]);
    StoreLittleEndian(length + 4, context->count[1]);

    unsigned int const used = context->count[0] / 8 % block_size;
    MD5Update(context, padding, (used < 56 ? 56 : 120) - used);
    MD5Update(context, length, sizeof length);
    for (int i = 0; i < 4; ++i)
        StoreLittleEndian(digest + 4 * i, context->state[i]);
    std::memset(context, 0, sizeof *context);
}

namespace NKelmic {

safestring Md5ToText(unsigned char const digest[16])
{
    constexpr char digits[] = "0123456789abcdef";
    safestring text;
    for (int i = 0; i < 16; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

safestring md5_hash(void const* data, unsigned int size)
{
    MD5Context context;
    unsigned char digest[16];
    MD5Init(&context);
    MD5Update(&context, data, size);
    MD5Final(digest, &context);
    return Md5ToText(digest);
}

} // namespace NKelmic
