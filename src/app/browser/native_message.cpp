#include "app/browser/native_message.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/codes.h"
#include "base/text.h"

namespace vantlow {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr int deepest = 4;  // an object of a list of an object
constexpr std::size_t longest_reason = 1000;
constexpr std::size_t longest_address = 64U << 10U;
constexpr std::size_t longest_name = 4096;
constexpr std::size_t longest_form = 256U << 10U;

// A link names its scheme: anything else could be a path of this machine.
constexpr std::array<std::string_view, 7> schemes{"http://", "https://", "ftp://", "ftps://",
                                                  "sftp://", "magnet:?", "ed2k://"};

/// The members of a download, with the most bytes that each may have.
struct Member {
    const char* name;
    std::string BrowserDownload::*text;
    std::size_t longest;
};
constexpr std::array<Member, 10> members{{
    {"address", &BrowserDownload::address, longest_address},
    {"first", &BrowserDownload::first, longest_address},
    {"referer", &BrowserDownload::referer, longest_address},
    {"agent", &BrowserDownload::agent, longest_name},
    {"cookies", &BrowserDownload::cookies, longest_address},
    {"name", &BrowserDownload::name, longest_name},
    {"user", &BrowserDownload::user, longest_name},
    {"password", &BrowserDownload::password, longest_name},
    {"formType", &BrowserDownload::form_type, longest_name},
    {"form", &BrowserDownload::form, longest_form},
}};

bool is_link(std::string_view address) {
    return std::any_of(schemes.begin(), schemes.end(), [&](std::string_view scheme) {
        return address.size() > scheme.size() && istarts_with(address, scheme);
    });
}

bool is_one_line(std::string_view text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// Returns why the texts are no download; empty where they are one. No text is repeated: they hold secrets.
std::string fault_of(const BrowserDownload& download) {
    for (const Member& member : members) {
        const std::string& text = download.*member.text;
        if (text.size() > member.longest) return std::string("The ") + member.name + " is too long.";
        if (!is_one_line(text)) return std::string("The ") + member.name + " holds control characters.";
    }
    if (!is_link(download.address)) return "The address is no link that Vantlow fetches.";
    if (!download.form_type.empty() && !istarts_with(download.address, "http"))
        return "The form is for an address that takes none.";
    if (!from_base64(download.form) || (download.form_type.empty() && !download.form.empty()))
        return "The form cannot be read.";
    // A cookie text of this form names a file of this machine.
    if (download.cookies.starts_with('@')) return "The cookies begin with \"@\".";
    return {};
}

// False where a member is there and no text.
bool read_download(const json& from, BrowserDownload& download) {
    if (!from.is_object()) return false;
    return std::all_of(members.begin(), members.end(), [&](const Member& member) {
        const auto at = from.find(member.name);
        if (at == from.end() || at->is_null()) return true;
        if (!at->is_string()) return false;
        download.*member.text = at->get<std::string>();
        return true;
    });
}

std::string read_downloads(const json& message, BrowserRequest& request) {
    const auto start = message.find("start");
    request.starts = start == message.end() || *start != "ask";
    const auto list = message.find("downloads");
    if (list == message.end() || !list->is_array() || list->empty()) return "The request names no download.";
    if (list->size() > most_downloads)
        return "The request names more than " + std::to_string(most_downloads) + " downloads.";
    for (const json& one : *list) {
        BrowserDownload& download = request.downloads.emplace_back();
        if (!read_download(one, download)) return "A download is not of texts.";
        if (std::string fault = fault_of(download); !fault.empty()) return fault;
    }
    return {};
}

std::int64_t number_of(const json& message, const char* name) {
    const auto at = message.find(name);
    return at != message.end() && at->is_number_integer() ? at->get<std::int64_t>() : 0;
}

std::string_view name_of_code(Refusal::Code code) {
    switch (code) {
        case Refusal::Code::other_version:
            return "other_version";
        case Refusal::Code::not_running:
            return "not_running";
        case Refusal::Code::failed:
            return "failed";
        default:
            return "invalid";
    }
}

ordered_json answer_to(std::int64_t id, bool ok) {
    return {{"version", native_version}, {"id", id}, {"ok", ok}};
}

std::string text_of(const ordered_json& answer) {
    return answer.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace

std::variant<BrowserRequest, Refusal> read_request(std::string_view text) {
    if (text.size() > longest_request) return Refusal{Refusal::Code::invalid, 0, "The message is too long."};
    const auto callback = [](int depth, json::parse_event_t, json&) { return depth <= deepest; };
    const json message = json::parse(text.begin(), text.end(), callback, false);
    if (!message.is_object()) return Refusal{Refusal::Code::invalid, 0, "The message is no request."};
    BrowserRequest request;
    request.id = number_of(message, "id");
    if (number_of(message, "version") != native_version)
        return Refusal{
            Refusal::Code::other_version, request.id,
            "The extension and Vantlow are of different versions: both have to be brought up to date."};
    const auto type = message.find("type");
    const std::string word =
        type != message.end() && type->is_string() ? type->get<std::string>() : std::string();
    if (word == "hello") return request;
    request.kind = BrowserRequest::Kind::status;
    if (word == "status") return request;
    request.kind = BrowserRequest::Kind::add;
    std::string fault = word == "add" ? read_downloads(message, request) : "The request has no known type.";
    if (!fault.empty()) return Refusal{Refusal::Code::invalid, request.id, std::move(fault)};
    return request;
}

std::string hello_answer(std::int64_t id, std::string_view program) {
    ordered_json answer = answer_to(id, true);
    answer["program"] = program;
    return text_of(answer);
}

std::string status_answer(std::int64_t id, bool resident, std::size_t running, std::size_t waiting) {
    ordered_json answer = answer_to(id, true);
    answer["resident"] = resident;
    answer["running"] = running;
    answer["waiting"] = waiting;
    return text_of(answer);
}

std::string add_answer(std::int64_t id, const std::vector<AddedDownload>& downloads) {
    ordered_json answer = answer_to(id, true);
    ordered_json& results = answer["results"] = ordered_json::array();
    for (const AddedDownload& one : downloads) {
        ordered_json result{{"ok", !one.jobs.empty()}};
        if (!one.jobs.empty()) result["jobs"] = one.jobs;
        if (!one.reason.empty()) result["reason"] = one.reason.substr(0, longest_reason);
        results.push_back(std::move(result));
    }
    return text_of(answer);
}

std::string refusal_answer(const Refusal& refusal) {
    ordered_json answer = answer_to(refusal.id, false);
    answer["code"] = name_of_code(refusal.code);
    answer["reason"] = refusal.text.substr(0, longest_reason);
    return text_of(answer);
}

std::string framed(std::string_view answer) {
    if (answer.size() > longest_answer)
        return framed(refusal_answer({Refusal::Code::failed, 0, "The answer is too long."}));
    const auto length = static_cast<std::uint32_t>(answer.size());
    std::string message(sizeof length, '\0');
    std::memcpy(message.data(), &length, sizeof length);
    return message.append(answer);
}

std::optional<std::string> NativeInput::next() {
    std::uint32_t length = 0;
    if (is_broken_ || bytes_.size() < sizeof length) return std::nullopt;
    std::memcpy(&length, bytes_.data(), sizeof length);
    is_broken_ = length > longest_request;
    if (is_broken_ || bytes_.size() - sizeof length < length) return std::nullopt;
    std::string message = bytes_.substr(sizeof length, length);
    bytes_.erase(0, sizeof length + length);
    return message;
}

}  // namespace vantlow
