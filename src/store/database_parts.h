// Parts that the files which read and write the job database and its journal share: tags, widths, the numbers
// of fields without a meaning, and single records. docs/database.md describes the whole file. Private to
// these files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>

#include "base/digest.h"
#include "store/category.h"
#include "store/field_reader.h"
#include "store/field_writer.h"

namespace vantlow::database_fields {

inline constexpr std::size_t header_size = 4;
inline constexpr std::size_t marker_size = 16;

inline constexpr std::uint8_t category_tag = 0x3C;     // <
inline constexpr std::uint8_t job_tag = 0x5B;          // [
inline constexpr std::uint8_t job_end_tag = 0x5D;      // ]
inline constexpr std::uint8_t segment_tag = 0x28;      // (
inline constexpr std::uint8_t segment_end_tag = 0x29;  // )
inline constexpr std::uint8_t schedule_tag = 0x7B;     // {
inline constexpr std::uint8_t bit_map_tag = 0x42;      // B
inline constexpr std::uint8_t state_tag = 0x54;        // T

// Inside the block tagged T: one byte for the kind of the value, a 32-bit length and the bytes.
inline constexpr std::uint8_t etag_value = 0x45;           // E
inline constexpr std::uint8_t last_modified_value = 0x4D;  // M
inline constexpr std::uint8_t strong_date_value = 0x44;    // D: one byte, 1
inline constexpr std::uint8_t media_type_value = 0x49;     // I
inline constexpr std::uint8_t partial_mark_value =
    0x58;                                                // X: i64 length, i64 begin, i64 end, then the digest
inline constexpr std::uint8_t cookie_value = 0x43;       // C, UTF-16LE
inline constexpr std::uint8_t proxy_value = 0x50;        // P, UTF-16LE
inline constexpr std::uint8_t mirror_value = 0x41;       // A, UTF-16LE, one for each address
inline constexpr std::uint8_t size_value = 0x53;         // S, i64
inline constexpr std::uint8_t hash_value = 0x48;         // H: u8 kind of digest, then the digest
inline constexpr std::uint8_t map_mark_value = 0x4B;     // K: bit_map_mark
inline constexpr std::uint8_t pieces_value = 0x47;       // G: u8 kind, i64 length, then the digests
inline constexpr std::uint8_t error_value = 0x52;        // R, UTF-8
inline constexpr std::uint8_t overwrite_value = 0x4F;    // O, i32
inline constexpr std::uint8_t limit_value = 0x4C;        // L, i64
inline constexpr std::uint8_t ca_file_value = 0x46;      // F, UTF-16LE
inline constexpr std::uint8_t key_file_value = 0x59;     // Y, UTF-16LE
inline constexpr std::uint8_t select_value = 0x57;       // W: numbers and ranges
inline constexpr std::uint8_t switches_value = 0x4E;     // N, i32: the sum of those below
inline constexpr std::uint8_t share_ratio_value = 0x56;  // V, i64: thousandths
inline constexpr std::uint8_t share_time_value = 0x51;   // Q, i64: seconds
inline constexpr std::uint8_t high_value = 0x68;         // h: numbers and ranges
inline constexpr std::uint8_t low_value = 0x6C;          // l: likewise
inline constexpr std::uint8_t upload_limit_value = 0x75;  // u, i64
inline constexpr std::uint8_t tally_value = 0x55;         // U: i64 received, sent, seconds shared; u8: shares
inline constexpr std::uint8_t most_peers_value = 0x70;    // p, i64
inline constexpr std::uint8_t form_value = 0x66;          // f: the media type, a zero byte, the body
inline constexpr std::size_t tally_size = 3 * 8 + 1;

inline constexpr std::int32_t skip_existing_switch = 1;
inline constexpr std::int32_t insecure_switch = 2;
inline constexpr std::int32_t accept_host_key_switch = 4;
inline constexpr std::int32_t asks_which_switch = 8;
inline constexpr std::int32_t sequential_switch = 16;
inline constexpr std::int32_t ends_first_switch = 32;

// Bytes of the second group that have no meaning: zero.
inline constexpr std::size_t unused_block = 16;            // field 2
inline constexpr std::size_t unused_numbers = 13 * 4;      // fields 17 to 29
inline constexpr std::size_t unused_last_number = 4;       // field 31
inline constexpr std::size_t unused_segment_pair = 2 * 8;  // segment fields 6 and 7, then 9 and 10

// The smallest size of a record in the file, with all of its texts empty: a count that claims more records
// than fit in the rest of the file is wrong.
inline constexpr std::size_t smallest_segment = 118;
inline constexpr std::size_t schedule_size = 1 + 4 + 4 + 8;

// The number of a kind of digest in the file: its place here, from 1 on.
inline constexpr DigestKind numbered_digests[] = {DigestKind::md5, DigestKind::sha1,   DigestKind::sha256,
                                                  DigestKind::md4, DigestKind::sha384, DigestKind::sha512};
constexpr std::uint8_t digest_number(DigestKind kind) noexcept {
    std::uint8_t number = 1;
    for (const DigestKind other : numbered_digests) {
        if (other == kind) return number;
        ++number;
    }
    return 0;
}
constexpr std::optional<DigestKind> digest_of_number(std::uint8_t number) noexcept {
    if (number < 1 || number > std::size(numbered_digests)) return std::nullopt;
    return numbered_digests[number - 1];
}

/// The size of a bit map in bytes.
constexpr std::size_t bit_map_size(std::int32_t bits) noexcept {
    return bits > 0 ? (static_cast<std::size_t>(bits) + 7) / 8 : 0;
}

}  // namespace vantlow::database_fields

namespace vantlow {

/// Writes one whole job record, filed under this category.
void write_job(FieldWriter& out, const CJobNode& job, const Guid& category);
/// Writes a category record up to its jobs, which follow.
void write_category_head(FieldWriter& out, const CClassNode& node, std::size_t jobs);
/// Called behind each category's head, to write its jobs.
using WriteJobs = std::function<void(const CClassNode&)>;
/// Writes a whole database except for the jobs.
void write_categories(FieldWriter& out, const CategoryTree& tree, const WriteJobs& write_jobs);
/// Reads a job record; null when it is cut short or damaged.
std::unique_ptr<CJobNode> read_job(FieldReader& in);

}  // namespace vantlow
