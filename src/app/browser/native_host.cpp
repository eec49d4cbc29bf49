// `vantlow native-host`: the program as a browser's extension speaks with it, and the part of it that the
// owner of the data folder does.
#include <memory>
#include <variant>

#include "app/browser/browser.h"
#include "app/browser/native_message.h"
#include "app/cli/command_set.h"
#include "app/cli/engine_texts.h"
#include "app/cli/store/store_command.h"
#include "app/process/hand_over.h"
#include "app/resident/resident.h"
#include "base/codes.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/event_loop.h"
#include "store/address.h"
#include "transfer/connection/stream.h"

namespace vantlow {
namespace {

// The time that a resident program which somebody else starts gets to answer.
constexpr std::chrono::seconds patience{3};
constexpr std::chrono::milliseconds step{50};
constexpr std::size_t input_piece = 65536;
constexpr const char* owner_word = "native-request";
constexpr std::string_view chromium_scheme = "chrome-extension://";

/// One browser's conversation with the program, from its start to the end of the standard input.
class NativeHost {
  public:
    NativeHost(CFerrywellApp& app, const GlobalOptions& global) : app_(app), global_(global) {}

    Exit run() {
        std::vector<char> piece(input_piece);
        while (const std::size_t count = read_input(piece)) {
            input_.add({piece.data(), count});
            while (const auto message = input_.next()) {
                write_stream(Stream::output, framed(answer_to(*message)));
                if (take_output_failure() != 0) return Exit::done;  // the browser has gone
            }
            if (input_.is_broken()) return complain("A message of the browser is too long.");
        }
        return Exit::done;
    }

  private:
    std::string answer_to(const std::string& message) {
        const auto read = read_request(message);
        if (const auto* const refusal = std::get_if<Refusal>(&read)) return refusal_answer(*refusal);
        const auto& request = std::get<BrowserRequest>(read);
        if (request.kind == BrowserRequest::Kind::hello)
            return hello_answer(request.id, "Vantlow " + to_utf8(app_.version()));
        std::optional<ProcessAnswer> answer = ask_owner(message);
        if (!answer && request.kind == BrowserRequest::Kind::status)
            return status_answer(request.id, false, 0, 0);
        if (!answer) answer = start_and_ask(message);
        if (!answer) {
            return refusal_answer({Refusal::Code::not_running, request.id,
                                   "Vantlow does not run in the background and could not be started."});
        }
        return answer_of_owner(request, *answer);
    }

    static std::string answer_of_owner(const BrowserRequest& request, const ProcessAnswer& answer) {
        const auto said = decode_answer(answer.answer);
        if (answer.state != ProcessAnswer::State::answered || !said)
            return refusal_answer(
                {Refusal::Code::failed, request.id, "The running Vantlow does not answer."});
        if (said->status == Exit::usage)
            return refusal_answer(
                {Refusal::Code::other_version, request.id, "The running Vantlow is another version."});
        if (said->output.empty()) {
            const bool has_reason = !said->error.empty();
            return refusal_answer({Refusal::Code::failed, request.id,
                                   has_reason ? std::string(trim(said->error)) : "Vantlow failed."});
        }
        return said->output;
    }

    /// Hands the message to the instance of this user session, or to the owner of the folder that was named.
    /// None where there is no such process.
    std::optional<ProcessAnswer> ask_owner(const std::string& message) {
        const HandedOver words{{owner_word}, to_utf8(app_.data_folder()), message};
        const std::string request = encode(words);
        std::string session;
        if (!app_.is_folder_named()) session = SessionClaim::find();
        for (const std::string& address : {session, DataFolderLock::read(app_.data_folder())}) {
            if (address.empty()) continue;
            ProcessAnswer answer = ask_process(address, request, app_.stop());
            if (answer.state != ProcessAnswer::State::not_there) return answer;
        }
        return std::nullopt;
    }

    // Another process may have started it at the same moment: so a failed start is not the end yet.
    std::optional<ProcessAnswer> start_and_ask(const std::string& message) {
        static_cast<void>(start_resident(app_, global_));
        const auto until = from_now(patience);
        do {
            if (auto answer = ask_owner(message)) return answer;
        } while (Clock::now() < until && !app_.stop().wait_for(step));
        return std::nullopt;
    }

    CFerrywellApp& app_;
    const GlobalOptions& global_;
    NativeInput input_;
};

JobDraft draft_of(const BrowserDownload& download, bool starts) {
    JobDraft draft;
    draft.links = {download.address};
    draft.name = safe_file_name(to_utf16(download.name), u"");
    draft.referer = to_utf16(download.referer);
    draft.agent = to_utf16(download.agent);
    draft.cookie = to_utf16(download.cookies);
    draft.user = to_utf16(download.user);
    draft.password = to_utf16(download.password);
    if (download.first != download.address)
        draft.comment = without_credentials(to_utf16(download.first));  // the link to go to for a new address
    draft.paused = !starts;
    if (const auto body = from_base64(download.form); body && !download.form_type.empty()) {
        const auto* const first_byte = reinterpret_cast<const char*>(body->data());
        draft.form = std::make_shared<const PostedForm>(
            PostedForm{download.form_type, std::string(first_byte, body->size())});
    }
    return draft;
}

std::vector<AddedDownload> add_downloads(Engine& engine, const BrowserRequest& request) {
    std::vector<AddedDownload> fates;
    for (const BrowserDownload& download : request.downloads) {
        AddedDownload& fate = fates.emplace_back();
        const Added added = engine.add(draft_of(download, request.starts));
        for (const DraftFault& fault : added.faults)
            fate.reason += (fate.reason.empty() ? "" : " ") + text_of(fault);
        for (const Guid& job : added.jobs) {
            fate.jobs.push_back(guid_text(job));
            if (request.starts) static_cast<void>(engine.start(job));  // as soon as it is safe
        }
    }
    return fates;
}

// Does one request, which stands in the standard input, and answers it on the standard output.
Exit run_request(StoreCommand& command) {
    const auto read = read_request(read_standard_input(longest_request));
    if (const auto* const refusal = std::get_if<Refusal>(&read)) {
        command.promise = refusal_answer(*refusal);
        return Exit::done;
    }
    const auto& request = std::get<BrowserRequest>(read);
    if (request.kind != BrowserRequest::Kind::add) {
        command.promise = status_answer(request.id, command.engine.runs(), command.engine.running(),
                                        command.engine.waiting());
        return Exit::done;
    }
    command.promise = add_answer(request.id, add_downloads(command.engine, request));
    if (!request.starts && command.app.desktop() != nullptr) command.app.desktop()->come_to_front();
    return Exit::done;
}

}  // namespace

void add_native_host_commands(CommandSet& commands) {
    commands.add("native-host", "Speak with the extension of a browser, which starts this itself",
                 [](CFerrywellApp& app, const GlobalOptions& global) {
                     GlobalOptions quiet = global;
                     quiet.quiet = true;
                     return NativeHost(app, quiet).run();
                 });
    commands
        .add_on_data_folder(owner_word, "One request of the extension, for the owner of the data folder",
                            on_store(run_request))
        .group("");
}

Words without_browser_call(const Words& words) {
    const bool is_chromium = !words.empty() && words[0].starts_with(chromium_scheme);
    const bool is_firefox = words.size() == 2 && words[0].ends_with(".json") && words[1] == extension_id;
    return is_chromium || is_firefox ? Words{"native-host"} : words;
}

}  // namespace vantlow
