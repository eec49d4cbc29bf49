// The operations that the run-time libraries export: their shapes, for the libraries and for their callers.
//
// A C interface: no exception crosses it, no memory is owned across it except the handles that its own pairs
// of operations make and free. Sizes are in bytes. A handle belongs to one thread at a time.
#pragma once

// NOLINTBEGIN(modernize-*): C reads this too
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- libssh: compression (RFC 1950, 1951, 1952) ---- */

/* A running inflate or deflate. */
typedef struct VantlowZStream VantlowZStream;

/* What a step of a stream answers. */
enum {
    VANTLOW_Z_MORE = 0, /* go on: give more input or more room */
    VANTLOW_Z_END = 1,  /* the stream is complete; input behind its end was not taken */
    VANTLOW_Z_BAD =
        -1, /* the input is not such a stream, or is damaged; also when memory runs out. It stays so */
};

/* Begin to inflate a gzip stream, or a zlib stream. NULL without memory. */
typedef VantlowZStream* GZ_InflateInit_t(void);
typedef VantlowZStream* ZLib_InflateInit_t(void);
/* Inflates from `in` (*in_size bytes; set to the number taken) into `out` (room for *out_size; set to the
   number written). VANTLOW_Z_MORE with nothing taken and nothing written says that input or room is needed; a
   stream that is cut short never gets to VANTLOW_Z_END. A gzip stream is one member (RFC 1952, 2.2): what
   follows it needs a new one. */
typedef int ZLib_Inflate_t(VantlowZStream* stream, const void* in, size_t* in_size, void* out,
                           size_t* out_size);
typedef void ZLib_InflateEnd_t(VantlowZStream* stream); /* NULL is fine */

/* Begin to deflate into a zlib stream; level 1 (fast) to 9 (small). NULL without memory and for another
 * level. */
typedef VantlowZStream* ZLib_DeflateInit_t(int level);
/* As ZLib_Inflate; with `finish` the stream is brought to its end (call until VANTLOW_Z_END). */
typedef int ZLib_Deflate_t(VantlowZStream* stream, const void* in, size_t* in_size, void* out,
                           size_t* out_size, int finish);
typedef void ZLib_DeflateEnd_t(VantlowZStream* stream); /* NULL is fine */
/* Frees memory that an operation of this library returned; none does yet, NULL is fine. */
typedef void ZLib_Free_t(void* memory);

/* ---- libsecur: Diffie-Hellman ---- */

/* One side's keys, and the secret once the other side's key was taken. */
typedef struct VantlowDh VantlowDh;

/* New random keys over the group of this prime and generator (big-endian; the prime at most 1024 bytes). NULL
   for arguments that name no group and without memory. All keys have as many bytes as the prime. */
typedef VantlowDh* DH_Create_t(const void* prime, size_t prime_size, const void* generator,
                               size_t generator_size);
typedef void DH_Delete_t(VantlowDh* dh); /* NULL is fine */
/* Writes the public key, big-endian, zeroes in front. `size` is the prime's; returned on success, else 0. */
typedef int DH_GetPublicKey_t(VantlowDh* dh, void* buffer, size_t size);
/* Takes the other side's public key. `size` on success; 0 for a key that would make the secret known to
   anybody (0, 1, the prime less one) or that is not below the prime. */
typedef int DH_ComputeSecret_t(VantlowDh* dh, const void* key, size_t size);
/* Writes the shared secret like the public key. 0 while there is none. */
typedef int DH_GetSecret_t(VantlowDh* dh, void* buffer, size_t size);

/* ---- libsecur: RC4 ---- */

/* A running key stream. */
typedef struct VantlowRc4 VantlowRc4;

/* The key stream of a key (5 to 256 bytes) without its first `discarded` bytes. NULL for other keys and
   without memory. */
typedef VantlowRc4* RC4_Create_t(const void* key, size_t key_size, size_t discarded);
typedef void RC4_Delete_t(VantlowRc4* stream); /* NULL is fine */
/* Encrypts, or decrypts, from `source` into `destination`, which are the same or do not overlap. */
typedef void RC4_4_t(VantlowRc4* stream, void* destination, const void* source, size_t size);
/* The same in place. */
typedef void RC4_3_t(VantlowRc4* stream, void* buffer, size_t size);

#ifdef __cplusplus
}
#endif
// NOLINTEND(modernize-*)
