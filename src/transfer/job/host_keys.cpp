#include "transfer/job/host_keys.h"

#include <algorithm>

#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::u16string_view known_hosts_name = u"known_hosts";
constexpr std::size_t largest_known_hosts = 16 * 1024 * 1024;
constexpr std::size_t largest_key = 64 * 1024;

std::string read_text(const std::u16string& path, std::size_t at_most) {
    std::vector<std::byte> bytes;
    if (!read_file(path, at_most, bytes).ok()) return {};
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

HostKeys::HostKeys(std::u16string folder, Ask ask) : folder_(std::move(folder)), ask_(std::move(ask)) {}

std::string HostKeys::known() const {
    return read_text(join_path(folder_, known_hosts_name), largest_known_hosts);
}

bool HostKeys::accept(const std::string& host, const std::string& fingerprint, const std::string& line) {
    const std::lock_guard guard(mutex_);
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

std::vector<std::string> read_private_keys(const std::u16string& folder, const std::u16string& key_file) {
    std::vector<std::string> keys;
    const auto add = [&](const std::u16string& path) {
        std::string text = read_text(path, largest_key);
        if (text.find("PRIVATE KEY") != std::string::npos) keys.push_back(std::move(text));
    };
    if (!key_file.empty()) add(key_file);
    for (const std::u16string_view name : {u"id_ed25519", u"id_ecdsa", u"id_rsa"})
        add(join_path(folder, name));
    return keys;
}

}  // namespace vantlow
