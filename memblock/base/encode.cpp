#include <memblock/base/raise.h>
#include <memblock/base/text.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include <zlib.h>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace Ntarnwick {

namespace {

constexpr char base64_letters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The two letters of each 12-bit number, in their order in memory.
constexpr auto base64_pairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (unsigned i = 0; i < pairs.size(); ++i)
        pairs[i] = {base64_letters[i >> 6], base64_letters[i & 63]};
    return pairs;
}();

void EncodeTriple(unsigned char const* in, char* out)
{
    unsigned const bits = in[0] << 16 | in[1] << 8 | in[2];
    std::memcpy(out, base64_pairs[bits >> 12].data(), 2);
    std::memcpy(out + 2, base64_pairs[bits & 4095].data(), 2);
}

#if defined(__x86_64__)
/// Encode 12 bytes a step while 16 can be read; returns how many bytes were encoded. The six bits
/// of each letter are moved into bytes of their own by two multiplications, then one table look-up
/// in a register gives the distance from number to letter.
[[gnu::target("ssse3")]] unsigned long EncodeByTwelve(unsigned char const* in, unsigned long size,
                                                      char* out)
{
    __m128i const spread = _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    __m128i const distance =
        _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    unsigned long done = 0;
    for (; done + 16 <= size; done += 12, out += 16) {
        __m128i const bytes =
            _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const*>(in + done)), spread);
        __m128i const odd = _mm_mulhi_epu16(_mm_and_si128(bytes, _mm_set1_epi32(0x0FC0FC00)),
                                            _mm_set1_epi32(0x04000040));
        __m128i const even = _mm_mullo_epi16(_mm_and_si128(bytes, _mm_set1_epi32(0x003F03F0)),
                                             _mm_set1_epi32(0x01000010));
        __m128i const numbers = _mm_or_si128(odd, even);
        // Row of the distance: 0 for 26 to 51, 1 to 12 for 52 and above, 13 for 0 to 25.
        __m128i const capital = _mm_cmpgt_epi8(_mm_set1_epi8(26), numbers);
        __m128i const row = _mm_or_si128(_mm_subs_epu8(numbers, _mm_set1_epi8(51)),
                                         _mm_and_si128(capital, _mm_set1_epi8(13)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                         _mm_add_epi8(numbers, _mm_shuffle_epi8(distance, row)));
    }
    return done;
}

bool HasVectors()
{
    static bool const has = __builtin_cpu_supports("ssse3");
    return has;
}
#else
unsigned long EncodeByTwelve(unsigned char const*, unsigned long, char*)
{
    return 0;
}
constexpr bool HasVectors()
{
    return false;
}
#endif

} // namespace

safestring Encode_base64(void const* data, unsigned long size)
{
    auto const* in = static_cast<unsigned char const*>(data);
    // Filled with what pads the last group: the encoders overwrite all but that.
    safestring encoded((size + 2) / 3 * 4, '=');
    char* out = encoded.data();
    if (HasVectors()) {
        unsigned long const done = EncodeByTwelve(in, size, out);
        in += done;
        out += done / 3 * 4;
        size -= done;
    }
    for (; size >= 3; size -= 3, in += 3, out += 4)
        EncodeTriple(in, out);
    if (size > 0) {
        unsigned char const last[3] = {in[0], size > 1 ? in[1] : static_cast<unsigned char>(0), 0};
        char letters[4];
        EncodeTriple(last, letters);
        std::memcpy(out, letters, size + 1);
    }
    return encoded;
}

safestring Encode_gzip(void const* data, unsigned long size)
{
    constexpr int gzip_container = 16, window_bits = 15;
    z_stream stream{};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, window_bits + gzip_container, 8,
                     Z_DEFAULT_STRATEGY) != Z_OK)
        Raise(err_state, "Cannot compress %u bytes", size);
    struct Closer {
        z_stream& stream;
        ~Closer() { deflateEnd(&stream); }
    } const closer{stream};

    // The bound holds for input at once as for input by pieces, so the output never has to grow.
    safestring encoded(deflateBound(&stream, size), '\0');
    constexpr unsigned long piece = std::numeric_limits<uInt>::max(); // zlib counts in 32 bits
    stream.next_in = static_cast<Bytef*>(const_cast<void*>(data));
    stream.next_out = reinterpret_cast<Bytef*>(encoded.data());
    unsigned long room = encoded.size();
    int result = Z_OK;
    while (result == Z_OK) {
        if (stream.avail_in == 0) {
            stream.avail_in = static_cast<uInt>(std::min(size, piece));
            size -= stream.avail_in;
        }
        if (stream.avail_out == 0) {
            stream.avail_out = static_cast<uInt>(std::min(room, piece));
            room -= stream.avail_out;
        }
        result = deflate(&stream, size == 0 ? Z_FINISH : Z_NO_FLUSH);
    }
    if (result != Z_STREAM_END)
        Raise(err_state, "Cannot compress %u bytes", size);
    encoded.resize(stream.total_out);
    return encoded;
}

} // namespace Ntarnwick
