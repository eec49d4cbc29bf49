// Links and documents that name jobs: the plans that they are read to, and the table of the kinds of
// documents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/draft.h"
#include "store/job_sources.h"

namespace vantlow {

/// One job that a link or a document asks for.
struct JobPlan {
    std::u16string address;  ///< its scheme tells the kind
    std::u16string name;     ///< of the file, folders with "/" in front; not safe; empty: not known yet
    std::int64_t size = -1;  ///< bytes; -1: unsaid
    std::u16string comment;  ///< for the person; may be empty
    std::shared_ptr<const JobSources> sources;     ///< null: the address is all
    std::shared_ptr<const std::string> torrent{};  ///< the document of the address's info hash, as it is
};

/// The result of reading a link or a document.
struct JobPlans {
    std::vector<JobPlan> plans;
    std::vector<DraftFault> faults;  ///< why there is nothing, or not everything
};

/// The facts that a reader of documents gets beside the bytes.
struct DocumentOptions {
    std::u16string origin;          ///< the document's own address or path
    std::u16string fragment;        ///< the text behind the "#" in it, without the "#"
    std::string select;             ///< --select: "1,3-5"; empty: all
    std::string default_tracker{};  ///< of a torrent that names none
};

/// One kind of document. Readers turn bytes into plans and touch nothing else. Their faults have no subject,
/// since the caller knows the document's name.
struct DocumentKind {
    std::u16string_view suffix;   ///< of a file's name, lower case, with its dot
    std::string_view media_type;  ///< lower case; empty: none
    JobPlans (*read)(std::span<const std::byte> bytes, const DocumentOptions& options);
};

/// The kind of a document by its name, or by a server's media type (parameters cut off); null when it is
/// none.
const DocumentKind* document_by_name(std::u16string_view name) noexcept;
const DocumentKind* document_by_type(std::string_view media_type) noexcept;

/// The address of the document that a link with "metalink://" in front names; without a scheme of its own
/// that is one of an HTTP server. None for other links.
std::optional<std::u16string> document_address(std::u16string_view link);

/// The largest document that is read.
inline constexpr std::size_t largest_document = 64 * 1024 * 1024;

/// The plan of an address of any kind but LinkKind::metafile.
JobPlans plan_link(const std::u16string& address);

}  // namespace vantlow
