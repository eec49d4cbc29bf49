#include "rpc/json_rpc.h"

#include <algorithm>

#include "base/codes.h"
#include "base/text.h"

namespace vantlow::rpc {
namespace {

constexpr std::size_t longest_callback = 128;

// Looks whether the text nests and counts no more than it may, without reading it: the parser itself has no
// bounds.
bool is_within_bounds(std::string_view text) {
    std::size_t depth = 0;
    std::size_t values = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        switch (text[i]) {
            case '"':
                for (++i; i < text.size() && text[i] != '"'; ++i) {
                    if (text[i] == '\\') ++i;
                }
                break;
            case '[':
            case '{':
                if (++depth > deepest_nesting) return false;
                ++values;
                break;
            case ']':
            case '}':
                if (depth > 0) --depth;
                break;
            case ',':
                ++values;
                break;
            default:
                break;
        }
    }
    return values <= most_values;
}

Call fault_call(int code, std::string message, Json id = nullptr) {
    return {std::move(id), {}, Json::array(), Fault{code, std::move(message)}};
}

Call read_call(Json& object) {
    if (!object.is_object()) return fault_call(fault_code::invalid_request, "Invalid Request.");
    const auto id = object.find("id");
    if (id == object.end()) return fault_call(fault_code::invalid_request, "Invalid Request.");
    Call call;
    call.id = std::move(*id);
    const auto method = object.find("method");
    if (method == object.end() || !method->is_string())
        return fault_call(fault_code::invalid_request, "Invalid Request.", std::move(call.id));
    call.method = std::move(method->get_ref<std::string&>());
    const auto params = object.find("params");
    if (params == object.end()) return call;
    if (!params->is_array())
        return fault_call(fault_code::invalid_params, "Invalid params.", std::move(call.id));
    call.params = std::move(*params);
    return call;
}

std::string value_of(std::string_view query, std::string_view name) {
    for (const std::string_view part : split(query, '&')) {
        const auto equals = part.find('=');
        if (part.substr(0, equals) == name && equals != std::string_view::npos)
            return percent_decode(part.substr(equals + 1));
    }
    return {};
}

bool is_function_name(std::string_view name) {
    const auto fits = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
               c == '$' || c == '.';
    };
    return !name.empty() && name.size() <= longest_callback && std::ranges::all_of(name, fits);
}

// Base64 as addresses carry it, too: with "-" and "_" (RFC 4648, 5), and a blank where a "+" was.
std::optional<std::string> from_query_base64(std::string text) {
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, ' ', '+');
    std::ranges::replace(text, '_', '/');
    const auto bytes = from_base64(text);
    if (!bytes) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size());
}

int status_of(const Answer& answer) {
    const Fault* const fault = std::get_if<Fault>(&answer);
    if (fault == nullptr) return 200;
    return fault->code == fault_code::failed || fault->code == fault_code::invalid_request ? 400 : 500;
}

Json json_of(const Call& call, Answer answer) {
    Json json{{"id", call.id}, {"jsonrpc", "2.0"}};
    if (const Fault* const fault = std::get_if<Fault>(&answer)) {
        json["error"] = {{"code", fault->code}, {"message", fault->message}};
    } else {
        json["result"] = std::get<Json>(std::move(answer));
    }
    return json;
}

std::string text_of(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

Request read_json(std::string_view body) {
    Request request;
    Json json = is_within_bounds(body) ? Json::parse(body, nullptr, false) : Json(Json::value_t::discarded);
    if (json.is_discarded()) {
        request.calls.push_back(fault_call(fault_code::not_parsed, "Parse error."));
    } else if (json.is_array()) {
        request.is_batch = true;
        for (Json& one : json) request.calls.push_back(read_call(one));
    } else {
        request.calls.push_back(read_call(json));
    }
    return request;
}

Request read_query(std::string_view query) {
    const std::string method = value_of(query, "method");
    const std::string id = value_of(query, "id");
    const std::string params = value_of(query, "params");
    const std::string callback = value_of(query, "jsoncallback");
    Request request;
    const auto decoded = from_query_base64(params);
    if (!callback.empty() && !is_function_name(callback)) {
        request.calls.push_back(fault_call(fault_code::invalid_request, "Invalid Request."));
        return request;
    }
    if (!decoded) {
        request.calls.push_back(fault_call(fault_code::not_parsed, "Parse error."));
    } else if (method.empty() && id.empty()) {
        request = read_json(*decoded);
    } else {
        Json call = Json::object();
        if (!id.empty()) call["id"] = id;
        if (!method.empty()) call["method"] = method;
        if (!params.empty() && is_within_bounds(*decoded))
            call["params"] = Json::parse(*decoded, nullptr, false);
        const bool parsed = params.empty() || (call.contains("params") && !call["params"].is_discarded());
        request.calls.push_back(parsed ? read_call(call)
                                       : fault_call(fault_code::not_parsed, "Parse error."));
    }
    if (!callback.empty()) {
        request.form = Form::callback;
        request.callback = callback;
    }
    return request;
}

Reply write_json(const Request& request, std::vector<Answer> answers) {
    Json json;
    Reply reply{200, "application/json-rpc", {}};
    if (request.is_batch) {
        json = Json::array();
        for (std::size_t i = 0; i < answers.size(); ++i)
            json.push_back(json_of(request.calls[i], std::move(answers[i])));
    } else {
        reply.status = status_of(answers.front());
        json = json_of(request.calls.front(), std::move(answers.front()));
    }
    reply.body = text_of(json);
    if (request.form != Form::callback) return reply;
    reply.content_type = "text/javascript";
    reply.body = request.callback + "(" + reply.body + ")";
    return reply;
}

std::string write_notification(std::string_view method, const Json& params) {
    return text_of({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}});
}

}  // namespace vantlow::rpc
