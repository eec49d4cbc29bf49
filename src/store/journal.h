// The journal beside the job database: the changes since the database was written, so that a small change
// becomes safe without writing the whole database. These classes turn bytes into records and back;
// docs/database.md describes them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/mem_file.h"
#include "store/category.h"

namespace vantlow {

inline constexpr std::u16string_view journal_suffix = u".journal";

/// The image of the database that a journal builds on: the SHA-1 of its bytes.
using ImageDigest = std::array<std::byte, 20>;
ImageDigest digest_of(std::span<const std::byte> image);

/// Changes, in the order in which they were made. A batch is replayed whole or not at all.
class JournalBatch {
  public:
    /// Adds the job's fields; a job that is new is filed last in the category.
    void job(const CJobNode& job, const Guid& category);
    void job_removed(const Guid& job);
    /// Adds the job's place in the category; a place behind the end is the last one.
    void job_placed(const Guid& job, const Guid& category, std::size_t place);
    /// Adds the category's name and folder, and its place in the tree.
    void category(const CClassNode& node);
    void category_removed(const Guid& category);
    /// Notes that a save begins: all earlier changes will be in the image of this number.
    void save_begun(std::uint64_t number);
    /// Notes the digest of the image of this number, which is complete now.
    void image_made(std::uint64_t number, const ImageDigest& digest);

    [[nodiscard]] bool is_empty() const noexcept { return payload_.size() == 0; }
    [[nodiscard]] std::size_t size() const noexcept { return payload_.size(); }
    [[nodiscard]] std::span<const std::byte> payload() const noexcept { return payload_.bytes(); }

  private:
    CQoMemFile payload_{4096};
};

/// The frames of one journal file. Each carries a check that is bound to the file and to the place in it, so
/// that neither a torn frame nor one of an earlier file is taken for one of these.
class JournalFrames {
  public:
    /// A new file's: the id tells it from every other one.
    explicit JournalFrames(const Guid& id) : id_(id) {}

    /// The head of the file.
    [[nodiscard]] std::vector<std::byte> head() const;
    /// The bytes of a frame at this offset of the file.
    [[nodiscard]] std::vector<std::byte> frame(std::uint64_t offset,
                                               std::span<const std::byte> payload) const;

    /// The payloads of all frames up to the first that is not whole; they point into `file`. Empty for a file
    /// that is no journal.
    static std::vector<std::span<const std::byte>> read(std::span<const std::byte> file);

  private:
    Guid id_;
};

/// The changes since the image of this digest was made: the payloads that follow. None when the journal
/// builds on other images only.
std::optional<std::span<const std::span<const std::byte>>> journal_since(
    std::span<const std::span<const std::byte>> payloads, const ImageDigest& digest);

/// True when one of them changes anything.
bool has_changes(std::span<const std::span<const std::byte>> payloads);

/// Makes the changes in the tree on which they were made. Repeating changes does no harm.
void replay(std::span<const std::span<const std::byte>> payloads, CategoryTree& tree);

}  // namespace vantlow
