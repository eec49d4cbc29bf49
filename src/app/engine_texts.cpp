#include "app/engine_texts.h"

#include "base/text.h"

namespace vantlow {
namespace {

std::string quoted_item(const DraftFault& fault) {
    const bool is_number = fault.item.starts_with('#');
    return is_number ? "file " + fault.item.substr(1) : "\"" + fault.item + "\"";
}

std::string for_one_file(const char* option, std::size_t count) {
    return std::string(option) + " is for one file, but there are " + std::to_string(count) +
           "; --select chooses one.";
}

}  // namespace

std::string text_of(const DraftFault& fault) {
    using Kind = DraftFault::Kind;
    const std::string subject = to_utf8(fault.subject) + ": ";
    switch (fault.kind) {
        case Kind::unreadable:
        case Kind::not_removed:
            return subject + fault.file.text();
        case Kind::no_torrent:
            return subject + "it is not a torrent.";
        case Kind::no_info_hash:
            return subject + "it has no info hash.";
        case Kind::wrong_sizes:
            return subject + "the sizes in it cannot be right.";
        case Kind::no_memory:
            return subject + "there is not enough memory for it.";
        case Kind::no_file_link:
            return subject + "not the eDonkey link of a file.";
        case Kind::no_address:
            return subject + quoted_item(fault) + " has no address that could be fetched.";
        case Kind::not_fetchable:
            return subject + quoted_item(fault) + " cannot be fetched.";
        case Kind::not_chosen:
            return subject + "nothing in it is named \"" + fault.item + "\".";
        case Kind::nothing:
            return subject + "nothing in it can be fetched.";
        case Kind::one_name:
            return for_one_file("--output", fault.count);
        case Kind::one_hash:
            return for_one_file("--hash", fault.count);
    }
    return {};
}

Complaint text_of(const ProxyFault& fault) {
    return fault.ok() ? std::nullopt : Complaint(fault.text_for_people());
}

}  // namespace vantlow
