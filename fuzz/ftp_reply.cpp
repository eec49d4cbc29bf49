// Replies of FTP servers in any division, what they say, and listings.
#include "fuzz.h"
#include "transfer/ftp/ftp_path.h"
#include "transfer/ftp/listing.h"
#include "transfer/ftp/reply_fields.h"

namespace vantlow::fuzz {
namespace {

void look_at(const FtpReply& reply) {
    CHECK(reply.code >= 100 && reply.code <= 599 && !reply.lines.empty());
    static_cast<void>(reply.text());
    if (const auto passive = parse_pasv(reply)) CHECK(passive->port != 0);
    if (const auto port = parse_epsv(reply)) CHECK(*port != 0);
    CHECK(parse_size(reply).value_or(0) >= 0 && parse_announced_size(reply).value_or(0) >= 0);
    for (const char c : parse_mdtm(reply)) CHECK((c >= '0' && c <= '9') || c == '.');
    parse_features(reply);
    if (const auto challenge = parse_otp_challenge(reply))
        CHECK(!challenge->seed.empty() && challenge->seed.size() <= 16 && challenge->sequence >= 0);
    tells_of_limit(reply);
    if (const auto entry = find_in_listing(reply, "file.bin")) CHECK(entry->size >= -1);
}

std::vector<FtpReply> read(std::string_view input, std::size_t step, bool& broken) {
    FtpReplyReader reader;
    std::vector<FtpReply> replies;
    while (!input.empty()) {
        reader.add(input.substr(0, step));
        input.remove_prefix(std::min(step, input.size()));
        while (auto reply = reader.take()) replies.push_back(*std::move(reply));
    }
    broken = reader.is_broken();
    return replies;
}

}  // namespace

void run(std::string_view input) {
    const std::size_t step = 1U + take_byte(input);
    bool broken = false;
    bool divided_broken = false;
    const auto replies = read(input, input.size(), broken);
    const auto divided = read(input, step, divided_broken);
    CHECK(broken == divided_broken && replies.size() == divided.size());
    for (std::size_t i = 0; i < replies.size(); ++i) {
        CHECK(replies[i].lines == divided[i].lines);
        look_at(replies[i]);
    }
    ftp_line_for_log(input);
    if (const auto entry = parse_listing_line(input)) CHECK(entry->size >= -1);
    if (const auto path = parse_ftp_path(input)) {
        for (const std::string& part : {path->folder, path->file})
            CHECK(part.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos);
        is_binary_name(path->file, ".EXE;.ZIP");
    }
}

}  // namespace vantlow::fuzz
