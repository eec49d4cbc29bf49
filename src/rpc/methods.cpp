#include "rpc/methods.h"

#include <algorithm>

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

Json bare(const Answer& answer) {
    if (const Fault* const fault = std::get_if<Fault>(&answer))
        return {{"code", fault->code}, {"message", fault->message}};
    return Json::array({std::get<Json>(answer)});
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
    return found == nullptr ? 0 : found->get<std::int64_t>();
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
                                      false};
    methods_["system.listNotifications"] = {[this](Params&) -> Answer { return Json(notifications_); },
                                            false};
}

Answer MethodTable::call(const std::string& name, Json& params, Run& run) const {
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
    return found->second.method(read);
}

Answer MethodTable::within_bounds(Answer answer, Run& run) const {
    if (const Json* const result = std::get_if<Json>(&answer)) run.values += count_values(*result);
    if (run.values <= most_answered_) return answer;
    return Fault{fault_code::failed, "The answers are too large for one request."};
}

// Works on the next one within a multicall. True when there is none left.
bool MethodTable::multicall_step(const Json& entries, Run& run) const {
    if (run.inner == entries.size()) return true;
    const Json& entry = entries[run.inner++];
    Answer answer = Fault{fault_code::failed, "An entry is no call."};
    if (entry.is_object() && entry.contains("methodName") && entry["methodName"].is_string()) {
        const std::string name = entry["methodName"].get<std::string>();
        Json params = entry.value("params", Json::array());
        if (name == multicall_name) {
            answer = Fault{fault_code::failed, "A multicall cannot be within another one."};
        } else if (!params.is_array()) {
            answer = Fault{fault_code::failed, "The parameters are not an array."};
        } else {
            answer = within_bounds(call(name, params, run), run);
        }
    }
    run.results.push_back(bare(answer));
    return run.inner == entries.size();
}

// Works on the next call. True when it is answered.
bool MethodTable::step(Run& run) const {
    Call& next = run.request.calls[run.answers.size()];
    if (next.fault) {
        run.answers.emplace_back(*next.fault);
        return true;
    }
    if (next.method != multicall_name) {
        run.answers.push_back(within_bounds(call(next.method, next.params, run), run));
        return true;
    }
    if (run.inner == 0) static_cast<void>(take_token(next.params));
    if (next.params.empty() || !next.params[0].is_array()) {
        run.answers.emplace_back(Fault{fault_code::failed, "The calls are not an array."});
        return true;
    }
    if (!multicall_step(next.params[0], run)) return false;
    run.answers.emplace_back(std::exchange(run.results, Json::array()));
    run.inner = 0;
    return true;
}

bool MethodTable::work(Run& run, Time until) const {
    while (run.answers.size() < run.request.calls.size()) {
        static_cast<void>(step(run));
        if (run.answers.size() < run.request.calls.size() && std::chrono::steady_clock::now() >= until)
            return false;
    }
    return true;
}

}  // namespace vantlow::rpc
