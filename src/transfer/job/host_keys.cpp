#include "transfer/job/host_keys.h"

#include <algorithm>

#include "base/text.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::u16string_view known_hosts_name = u"known_hosts";
constexpr std::size_t largest_known_hosts = 16 * 1024 * 1024;
constexpr std::size_t largest_key = 64 * 1024;

FileError read_text(const std::u16string& path, std::size_t at_most, std::string& text) {
    std::vector<std::byte> bytes;
    FileError error = read_file(path, at_most, bytes);
    text.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return error;
}

bool is_private_key(std::string_view text) noexcept {
    return text.find("PRIVATE KEY") != std::string_view::npos;
}

}  // namespace

HostKeys::HostKeys(std::u16string folder, Ask ask) : folder_(std::move(folder)), ask_(std::move(ask)) {}

Outcome<std::string> HostKeys::known() const {
    const std::u16string path = join_path(folder_, known_hosts_name);
    std::string text;
    const FileError error = read_text(path, largest_known_hosts, text);
    if (error.ok()) return text;
    if (error.fault == FileFault::not_found) return std::string();
    return Result(Code::not_trusted,
                  "The list of known SSH servers cannot be read from " + to_utf8(path) + ": " + error.text(),
                  error.system_error);
}

bool HostKeys::accept(const std::string& host, const std::string& fingerprint, const std::string& line) {
    const MutexLock guard(mutex_);
    if (line.empty() || !ask_) return false;
    if (std::find(accepted_.begin(), accepted_.end(), line) != accepted_.end()) return true;
    if (!ask_(host, fingerprint)) return false;
    accepted_.push_back(line);
    remember(line);
    return true;
}

// Where it cannot be written down the server is asked about again next time.
void HostKeys::remember(const std::string& line) const {
    File file;
    if (!make_folders(folder_).ok()) return;
    if (!file.open(join_path(folder_, known_hosts_name), OpenMode::write, Privacy::owner_only).ok()) return;
    const std::int64_t end = std::max<std::int64_t>(file.size(), 0);
    std::byte last{'\n'};
    std::size_t got = 0;
    if (end > 0 && !file.read_at(end - 1, {&last, 1}, got).ok()) return;
    const std::string text = (last == std::byte{'\n'} ? "" : "\n") + line + "\n";
    static_cast<void>(file.write_at(end, std::as_bytes(std::span(text))));
}

Outcome<std::vector<std::string>> read_private_keys(const std::u16string& folder,
                                                    const std::u16string& key_file) {
    std::vector<std::string> keys;
    if (!key_file.empty()) {
        std::string text;
        const FileError error = read_text(key_file, largest_key, text);
        const std::string key = "The key " + to_utf8(key_file);
        if (!error.ok()) {
            return Result(Code::credentials_refused, key + " cannot be read: " + error.text(),
                          error.system_error);
        }
        if (!is_private_key(text)) return Result(Code::credentials_refused, key + " is not a private key.");
        keys.push_back(std::move(text));
    }
    for (const std::u16string_view name : {u"id_ed25519", u"id_ecdsa", u"id_rsa"}) {
        std::string text;
        if (read_text(join_path(folder, name), largest_key, text).ok() && is_private_key(text))
            keys.push_back(std::move(text));
    }
    return keys;
}

}  // namespace vantlow
