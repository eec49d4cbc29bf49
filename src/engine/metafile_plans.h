// Metalink, ASX and SMIL files to plans of jobs.
#pragma once

#include <span>

#include "engine/documents.h"
#include "meta/metalink.h"

namespace vantlow {

/// A job for each selected file, with all of its mirrors and hashes.
JobPlans read_metalink(std::span<const std::byte> bytes, const DocumentOptions& options);
/// A job for each selected clip.
JobPlans read_asx(std::span<const std::byte> bytes, const DocumentOptions& options);
JobPlans read_smil(std::span<const std::byte> bytes, const DocumentOptions& options);

/// The indexes of the files that a fragment (a number from 1 on, or a name) or, without one, --select
/// chooses; none when that is nothing.
std::optional<std::vector<std::size_t>> choose_files(const std::vector<CMetalinkNode>& files,
                                                     const DocumentOptions& options);

/// What kinds of metafile there are.
enum class MetafileKind { metalink, asx, smil };
/// By the name's extension, else by the tags in it.
std::optional<MetafileKind> metafile_kind(std::u16string_view name, std::span<const std::byte> bytes);

}  // namespace vantlow
