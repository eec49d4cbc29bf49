#include "app/rpc/method_parts.h"

#include "app/cli/engine_texts.h"
#include "app/rpc/magnet_links.h"

namespace vantlow {

rpc::Answer answer_of(const Done& done, const std::string& subject) {
    if (const Complaint complaint = text_of(done, subject))
        return rpc::Fault{rpc::fault_code::failed, *complaint};
    return rpc::Json("OK");
}

const CJobNode* find_job(const Engine& engine, rpc::Params& params, const std::string& id) {
    const auto digits = guid_digits(id);
    const auto found =
        digits && !digits->empty() ? engine.find_by_digits(*digits) : std::vector<const CJobNode*>();
    if (found.size() == 1) return found.front();
    const CJobNode* const torrent = digits ? torrent_of_description(engine, *digits) : nullptr;
    if (torrent != nullptr && found.empty()) return torrent;
    params.refuse(found.empty() ? "There is no job " + id + "."
                                : "More than one job begins with " + id + ".");
    return nullptr;
}

std::vector<Guid> find_jobs(const Engine& engine, rpc::Params& params, std::size_t at) {
    std::vector<Guid> jobs;
    for (const std::string& id : params.texts(at)) {
        if (const CJobNode* const found = find_job(engine, params, id)) jobs.push_back(found->identity);
    }
    return jobs;
}

std::optional<Guid> find_category(const Engine& engine, rpc::Params& params, std::size_t at) {
    const std::string id = params.text(at);
    const auto digits = guid_digits(id);
    const auto guid = digits ? guid_from_digits(*digits) : std::nullopt;
    if (guid && engine.find_category(*guid) != nullptr) return guid;
    params.refuse("There is no category " + id + ".");
    return std::nullopt;
}

}  // namespace vantlow
