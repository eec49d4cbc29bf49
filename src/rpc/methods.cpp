#include "rpc/methods.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/text.h"
#include "rpc/access.h"

namespace vantlow::rpc {
namespace {

constexpr std::string_view multicall_name = "system.multicall";
constexpr std::string_view token_mark = "token:";

std::size_t count_values(const Json& json) {
    std::size_t count = 1;
    if (json.is_structured()) {
        for (const Json& one : json) count += count_values(one);
    }
    return count;
}

// Takes the token off, where the first parameter is one.
std::optional<std::string> take_token(Json& params) {
    if (!params.is_array() || params.empty() || !params[0].is_string()) return std::nullopt;
    const std::string& first = params[0].get_ref<const std::string&>();
    if (!first.starts_with(token_mark)) return std::nullopt;
    std::string token = first.substr(token_mark.size());
    params.erase(params.begin());
    return token;
}

Json bare(Answer answer) {
    if (const Fault* const fault = std::get_if<Fault>(&answer))
        return {{"code", fault->code}, {"message", fault->message}};
    Json alone = Json::array();
    alone.push_back(std::get<Json>(std::move(answer)));
    return alone;
}

std::string place_text(std::size_t at) {
    return "The parameter at " + std::to_string(at);
}

}  // namespace

const Json* Params::need(std::size_t at, bool (Json::*is)() const noexcept, std::string_view kind) {
    const Json* const found = find(at);
    if (found == nullptr) {
        refuse(place_text(at) + " is missing.");
        return nullptr;
    }
    if ((found->*is)()) return found;
    refuse(place_text(at) + " is not " + std::string(kind) + ".");
    return nullptr;
}

std::string Params::text(std::size_t at) {
    const Json* const found = need(at, &Json::is_string, "a text");
    return found == nullptr ? std::string() : found->get<std::string>();
}

std::int64_t Params::number(std::size_t at) {
    const Json* const found = need(at, &Json::is_number_integer, "a whole number");
    if (found == nullptr) return 0;
    const bool is_too_large =
        found->is_number_unsigned() && found->get<std::uint64_t>() > std::numeric_limits<std::int64_t>::max();
    if (is_too_large) refuse(place_text(at) + " is too large.");
    return is_too_large ? 0 : found->get<std::int64_t>();
}

std::optional<std::int64_t> Params::optional_number(std::size_t at) {
    return find(at) == nullptr ? std::nullopt : std::optional(number(at));
}

std::vector<std::string> Params::texts(std::size_t at) {
    const Json* const found = need(at, &Json::is_array, "an array");
    std::vector<std::string> texts;
    if (found == nullptr) return texts;
    for (const Json& one : *found) {
        if (one.is_string()) texts.push_back(one.get<std::string>());
    }
    return texts;
}

std::vector<std::string> Params::optional_texts(std::size_t at) {
    return find(at) == nullptr ? std::vector<std::string>() : texts(at);
}

const Json& Params::options(std::size_t at) const {
    static const Json none = Json::object();
    const Json* const found = find(at);
    return found != nullptr && found->is_object() ? *found : none;
}

MethodTable::MethodTable(std::size_t most_answered) : most_answered_(most_answered) {
    methods_["system.listMethods"] = {[this](Params&) -> Answer {
                                          Json names = Json::array({multicall_name});
                                          for (const auto& [name, entry] : methods_) names.push_back(name);
                                          return names;
                                      },
                                      {},
                                      false};
    methods_["system.listNotifications"] = {
        [this](Params&) -> Answer { return Json(notifications_); }, {}, false};
}

// None where the answer is a list, which follows.
std::optional<Answer> MethodTable::call(const std::string& name, Json& params, Run& run) const {
    const auto token = take_token(params);
    const auto found = methods_.find(name);
    const bool needs_token = found == methods_.end() || found->second.needs_token;
    // A request is one guess: behind a wrong token nothing is compared any more. Methods that need none are
    // no guess at all.
    const bool shown = !run.was_refused && (secret_.empty() || (token && is_same_secret(*token, secret_)));
    if (needs_token && !shown) {
        // A page that is opened asks first without one: only a token can be a guess.
        run.was_refused = run.was_refused || (token && !token->empty());
        return Fault{fault_code::failed, "Unauthorized"};
    }
    run.was_proved = run.was_proved || (needs_token && shown);
    if (found == methods_.end()) return Fault{fault_code::failed, "There is no method " + name + "."};
    Params read(params);
    if (found->second.lister) {
        auto listing = found->second.lister(read);
        if (Fault* const fault = std::get_if<Fault>(&listing)) return std::move(*fault);
        run.listing = std::get<Listing>(std::move(listing));
        return std::nullopt;
    }
    Answer answer = found->second.method(read);
    if (const Json* const result = std::get_if<Json>(&answer)) {
        if (auto fault = bound_fault(*result, run)) return *std::move(fault);
    }
    return answer;
}

std::optional<Fault> MethodTable::bound_fault(const Json& more, Run& run) const {
    run.values += count_values(more);
    if (run.values <= most_answered_) return std::nullopt;
    return Fault{fault_code::failed, "The answers are too large for one request."};
}

// Works on the next item of the list. Its answer when there is none left, or too much.
std::optional<Answer> MethodTable::list_step(Run& run) const {
    std::optional<Json> item = run.listing->next();
    std::optional<Answer> answer;
    if (!item) {
        answer = run.listing->whole ? run.listing->whole(std::move(run.listed)) : std::move(run.listed);
    } else if (auto fault = bound_fault(*item, run)) {
        answer = *std::move(fault);
    } else {
        run.listed.push_back(*std::move(item));
    }
    if (answer) {
        run.listing.reset();
        run.listed = Json::array();
    }
    return answer;
}

std::optional<Answer> MethodTable::multicall_step(Json& entry, Run& run) const {
    if (!entry.is_object() || !entry.contains("methodName") || !entry["methodName"].is_string())
        return Fault{fault_code::failed, "An entry is no call."};
    const std::string name = entry["methodName"].get<std::string>();
    if (name == multicall_name) return Fault{fault_code::failed, "A multicall cannot be within another one."};
    if (!entry.contains("params")) entry["params"] = Json::array();
    if (!entry["params"].is_array()) return Fault{fault_code::failed, "The parameters are not an array."};
    return call(name, entry["params"], run);
}

// Works on the next call, or a part of it.
void MethodTable::step(Run& run) const {
    Call& next = run.request.calls[run.answers.size()];
    const bool is_multicall = next.method == multicall_name && !next.fault;
    std::optional<Answer> answer;
    if (run.listing) {
        answer = list_step(run);
    } else if (next.fault) {
        answer = *next.fault;
    } else if (!is_multicall) {
        answer = call(next.method, next.params, run);
    } else {
        if (run.inner == 0) static_cast<void>(take_token(next.params));
        if (next.params.empty() || !next.params[0].is_array()) {
            run.answers.emplace_back(Fault{fault_code::failed, "The calls are not an array."});
            return;
        }
        if (run.inner == next.params[0].size()) {
            run.answers.emplace_back(std::exchange(run.results, Json::array()));
            run.inner = 0;
            return;
        }
        answer = multicall_step(next.params[0][run.inner++], run);
    }
    if (!answer) return;
    if (is_multicall) {
        run.results.push_back(bare(*std::move(answer)));
    } else {
        run.answers.push_back(*std::move(answer));
    }
}

bool MethodTable::work(Run& run, Time until) const {
    while (run.answers.size() < run.request.calls.size()) {
        step(run);
        if (run.answers.size() < run.request.calls.size() && std::chrono::steady_clock::now() >= until)
            return false;
    }
    return true;
}

}  // namespace vantlow::rpc
