// The options that a front end sends with a download, and the engine's records: each made from the other.
#pragma once

#include <optional>
#include <string>

#include "engine/draft.h"
#include "engine/engine.h"
#include "rpc/downloads.h"

namespace vantlow {

/// The draft of a download. `folder`: where it goes when it asks for no folder, and what a folder that is not
/// absolute lies below. A value that cannot be used is a problem.
struct DraftRequest {
    JobDraft draft;
    rpc::Problem problem{};
};
DraftRequest draft_of(const rpc::NewJob& asked, const std::u16string& folder);

/// The change of a job that there is. What cannot be changed any more is a problem, unless it is as it was.
struct EditRequest {
    JobEdit edit;
    std::optional<std::u16string> name;    ///< that its file is to have
    std::optional<std::u16string> folder;  ///< where its files are to go
    rpc::Problem problem{};
};
EditRequest edit_of(const rpc::JobOptions& asked, const CJobNode& job);

/// The options that would make the job again, with login and cookies.
rpc::JobOptions options_of(const CJobNode& job);

}  // namespace vantlow
