// Messages of a browser's extension: however their bytes arrive they are the same messages, and what is taken
// keeps the rules that the engine relies on.
#include "app/browser/native_message.h"
#include "fuzz.h"

namespace {

std::vector<std::string> messages_of(std::string_view bytes, std::size_t piece) {
    vantlow::NativeInput input;
    std::vector<std::string> messages;
    while (!bytes.empty()) {
        input.add(bytes.substr(0, piece));
        bytes.remove_prefix(std::min(piece, bytes.size()));
        while (auto message = input.next()) messages.push_back(std::move(*message));
    }
    return messages;
}

}  // namespace

void vantlow::fuzz::run(std::string_view input) {
    const std::vector<std::string> messages = messages_of(input, input.size());
    CHECK(messages == messages_of(input, 1));
    std::string again;
    for (const std::string& message : messages) again += framed(message);
    CHECK(input.starts_with(again));
    const auto read = read_request(messages.empty() ? input : messages.front());
    if (const auto* const refusal = std::get_if<Refusal>(&read)) {
        CHECK(!refusal->text.empty());
        CHECK(refusal_answer(*refusal).size() <= longest_answer);
        return;
    }
    const auto& request = std::get<BrowserRequest>(read);
    CHECK(request.downloads.size() <= most_downloads);
    CHECK((request.kind == BrowserRequest::Kind::add) == !request.downloads.empty());
    for (const BrowserDownload& download : request.downloads) {
        CHECK(download.address.find(':') != std::string::npos);
        CHECK(!download.cookies.starts_with('@'));
        for (const std::string* const text : {&download.address, &download.referer, &download.cookies})
            CHECK(text->find_first_of("\r\n") == std::string::npos);
    }
}
