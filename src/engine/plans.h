// Torrents, magnet links and the files that name other files (Metalink, ASX, SMIL) become plans of jobs.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/documents.h"
#include "meta/metalink.h"

namespace vantlow {

/// The job of a torrent document. Its address is the torrent's magnet link, which is all that a job keeps of
/// it.
JobPlans read_torrent_plan(std::span<const std::byte> bytes, const DocumentOptions& options);
/// The job of a magnet link.
JobPlans plan_magnet(const std::u16string& address);

/// A torrent job's address, to be shown: without its trackers, whose addresses may hold keys.
std::u16string shown_torrent(std::u16string_view address);

/// A job for each selected file, with all of its mirrors and hashes.
JobPlans read_metalink(std::span<const std::byte> bytes, const DocumentOptions& options);
/// A job for each selected clip.
JobPlans read_asx(std::span<const std::byte> bytes, const DocumentOptions& options);
JobPlans read_smil(std::span<const std::byte> bytes, const DocumentOptions& options);

/// The indexes of the files that a fragment (a number from 1 on, or a name) chooses or, without a fragment,
/// --select; none when nothing is chosen.
std::optional<std::vector<std::size_t>> choose_files(const std::vector<CMetalinkNode>& files,
                                                     const DocumentOptions& options);

/// The kinds of metafiles.
enum class MetafileKind { metalink, asx, smil };
/// The kind of a metafile, by the name's extension, else by the tags in it; none when it is none.
std::optional<MetafileKind> metafile_kind(std::u16string_view name, std::span<const std::byte> bytes);

}  // namespace vantlow
