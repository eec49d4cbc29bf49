// The files that name jobs, and the links that are more than an address: one table each.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "engine/job_plan.h"

namespace vantlow {

/// What a reader of documents is told beside the bytes.
struct DocumentOptions {
    std::u16string origin;    ///< the document's own address or path
    std::u16string fragment;  ///< what followed the "#" in it, without the "#"
    std::string select;       ///< --select: "1,3-5"; empty: all
};

/// One kind of document. Readers get bytes and give plans; they touch nothing else. Their faults have no
/// subject: who reads a document knows what it is called.
struct DocumentKind {
    std::u16string_view suffix;   ///< of a file's name, lower case, with its dot
    std::string_view media_type;  ///< lower case; empty: none
    JobPlans (*read)(std::span<const std::byte> bytes, const DocumentOptions& options);
};

/// The kind of a document by its name, or by what a server says of it (parameters cut off); null when it is
/// none.
const DocumentKind* document_by_name(std::u16string_view name) noexcept;
const DocumentKind* document_by_type(std::string_view media_type) noexcept;

/// The largest document that is read.
inline constexpr std::size_t largest_document = 64 * 1024 * 1024;

/// The plan of an address of any kind but LinkKind::metafile.
JobPlans plan_link(const std::u16string& address);

}  // namespace vantlow
