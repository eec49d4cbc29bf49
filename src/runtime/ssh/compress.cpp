// Inflate and deflate over zlib.
#define ZLIB_CONST
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

#include "runtime/operations.h"

struct VantlowZStream {
    enum class Direction { inflating, deflating };

    z_stream zlib{};
    Direction direction = Direction::inflating;
    int state = VANTLOW_Z_MORE;  // END and BAD are for good
};

namespace {

using Direction = VantlowZStream::Direction;

constexpr int largest_window = 15;  // bits: 32 KiB, what every stream may ask for (RFC 1950, 2.2)
constexpr int gzip_wrapping = 16;   // zlib's mark for it, added to the window
constexpr int standard_memory = 8;  // zlib's own default

VantlowZStream* begin_inflate(int window) noexcept {
    auto* const stream = new (std::nothrow) VantlowZStream;
    if (stream == nullptr) return nullptr;
    if (inflateInit2(&stream->zlib, window) == Z_OK) return stream;
    delete stream;
    return nullptr;
}

void end(VantlowZStream* stream) noexcept {
    if (stream == nullptr) return;
    if (stream->direction == Direction::inflating) {
        inflateEnd(&stream->zlib);
    } else {
        deflateEnd(&stream->zlib);
    }
    delete stream;
}

uInt clamped(std::size_t size) noexcept {
    return static_cast<uInt>(std::min<std::size_t>(size, std::numeric_limits<uInt>::max()));
}

int state_for(int zlib_result) noexcept {
    switch (zlib_result) {
        case Z_OK:
        case Z_BUF_ERROR:  // no input or no room: the next call goes on
            return VANTLOW_Z_MORE;
        case Z_STREAM_END:
            return VANTLOW_Z_END;
        default:
            return VANTLOW_Z_BAD;
    }
}

// Makes one step in either direction; sizes as in operations.h.
template <class Step>
int step(VantlowZStream* stream, Direction direction, const void* in, std::size_t* in_size, void* out,
         std::size_t* out_size, Step zlib_step) noexcept {
    if (in_size == nullptr || out_size == nullptr) return VANTLOW_Z_BAD;
    const uInt in_room = in == nullptr ? 0 : clamped(*in_size);
    const uInt out_room = out == nullptr ? 0 : clamped(*out_size);
    *in_size = 0;
    *out_size = 0;
    if (stream == nullptr || stream->direction != direction) return VANTLOW_Z_BAD;
    if (stream->state != VANTLOW_Z_MORE) return stream->state;
    Bytef nowhere = 0;  // zlib refuses a null pointer even where there is no room
    z_stream& zlib = stream->zlib;
    zlib.next_in = static_cast<const Bytef*>(in);
    zlib.avail_in = in_room;
    zlib.next_out = out == nullptr ? &nowhere : static_cast<Bytef*>(out);
    zlib.avail_out = out_room;
    stream->state = state_for(zlib_step(&zlib));
    *in_size = in_room - zlib.avail_in;
    *out_size = out_room - zlib.avail_out;
    return stream->state;
}

}  // namespace

extern "C" {

VANTLOW_EXPORT ZLib_InflateInit_t ZLib_InflateInit;
VANTLOW_EXPORT GZ_InflateInit_t GZ_InflateInit;
VANTLOW_EXPORT Raw_InflateInit_t Raw_InflateInit;
VANTLOW_EXPORT ZLib_Inflate_t ZLib_Inflate;
VANTLOW_EXPORT ZLib_InflateEnd_t ZLib_InflateEnd;
VANTLOW_EXPORT ZLib_DeflateInit_t ZLib_DeflateInit;
VANTLOW_EXPORT ZLib_Deflate_t ZLib_Deflate;
VANTLOW_EXPORT ZLib_DeflateEnd_t ZLib_DeflateEnd;
VANTLOW_EXPORT ZLib_Free_t ZLib_Free;

VantlowZStream* ZLib_InflateInit() {
    return begin_inflate(largest_window);
}

VantlowZStream* GZ_InflateInit() {
    return begin_inflate(largest_window + gzip_wrapping);
}

VantlowZStream* Raw_InflateInit() {
    return begin_inflate(-largest_window);  // zlib's mark for a stream without wrapping
}

int ZLib_Inflate(VantlowZStream* stream, const void* in, std::size_t* in_size, void* out,
                 std::size_t* out_size) {
    return step(stream, Direction::inflating, in, in_size, out, out_size,
                [](z_stream* zlib) { return inflate(zlib, Z_NO_FLUSH); });
}

void ZLib_InflateEnd(VantlowZStream* stream) {
    end(stream);
}

VantlowZStream* ZLib_DeflateInit(int level) {
    if (level < Z_BEST_SPEED || level > Z_BEST_COMPRESSION) return nullptr;
    auto* const stream = new (std::nothrow) VantlowZStream;
    if (stream == nullptr) return nullptr;
    stream->direction = Direction::deflating;
    if (deflateInit2(&stream->zlib, level, Z_DEFLATED, largest_window, standard_memory, Z_DEFAULT_STRATEGY) ==
        Z_OK) {
        return stream;
    }
    delete stream;
    return nullptr;
}

int ZLib_Deflate(VantlowZStream* stream, const void* in, std::size_t* in_size, void* out,
                 std::size_t* out_size, int finish) {
    return step(stream, Direction::deflating, in, in_size, out, out_size,
                [finish](z_stream* zlib) { return deflate(zlib, finish != 0 ? Z_FINISH : Z_NO_FLUSH); });
}

void ZLib_DeflateEnd(VantlowZStream* stream) {
    end(stream);
}

void ZLib_Free(void* memory) {
    std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc): what C code takes and gives
}

}  // extern "C"
