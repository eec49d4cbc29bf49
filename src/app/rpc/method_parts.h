// The parts that our own methods share: jobs and categories by their identities, and the answers of
// operations.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "rpc/downloads.h"
#include "rpc/methods.h"

namespace vantlow {

/// "OK", or the sentence of the operation that failed.
rpc::Answer answer_of(const Done& done, const std::string& subject);

/// The job whose identity begins so, or the torrent whose description has this gid; null, and a fault among
/// the parameters, where there is none or more than one.
const CJobNode* find_job(const Engine& engine, rpc::Params& params, const std::string& id);

/// The jobs of the array at this place. All of them are there where params.fault() is none.
std::vector<Guid> find_jobs(const Engine& engine, rpc::Params& params, std::size_t at);

/// The category of this identity; none, and a fault, where there is no such category.
std::optional<Guid> find_category(const Engine& engine, rpc::Params& params, std::size_t at);

/// Does something with each of these jobs; the answer is the last fault, or "OK".
template <typename Operation>
rpc::Answer for_all(const std::vector<Guid>& jobs, const Operation& operation) {
    rpc::Answer all = rpc::Json("OK");
    for (const Guid& job : jobs) {
        rpc::Answer one = answer_of(operation(job), rpc::gid_of(job));
        if (std::holds_alternative<rpc::Fault>(one)) all = std::move(one);
    }
    return all;
}

}  // namespace vantlow
