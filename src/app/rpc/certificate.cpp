#include "app/rpc/certificate.h"

#include <algorithm>
#include <span>

#include "base/codes.h"
#include "base/digest.h"
#include "base/text.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_file = std::size_t{1024} * 1024;
constexpr std::u16string_view own_name = u"rpc-certificate.pem";

Outcome<std::string> read_text(const std::u16string& path) {
    std::vector<std::byte> bytes;
    const FileError error = read_file(path, largest_file, bytes);
    if (!error.ok())
        return Result(Code::local_file,
                      "The control API's certificate " + to_utf8(path) + " cannot be read: " + error.text());
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace

Outcome<ControlCertificate> read_certificate(const std::u16string& chain, const std::u16string& key) {
    auto first = read_text(chain);
    if (!first) return first.failure();
    if (key.empty()) return ControlCertificate{*first, *first};
    auto second = read_text(key);
    if (!second) return second.failure();
    return ControlCertificate{*std::move(first), *std::move(second)};
}

Outcome<ControlCertificate> own_certificate(const std::u16string& data_folder,
                                            const std::vector<std::string>& names) {
    const std::u16string path = join_path(data_folder, own_name);
    if (path_kind(path) != PathKind::none) return read_certificate(path, {});
    auto made = make_certificate(names);
    if (!made) return made.failure();
    const std::string text = made->chain + made->key;
    const FileError error = write_file_atomically(path, std::as_bytes(std::span(text)), Privacy::owner_only);
    if (!error.ok())
        return Result(Code::local_file,
                      "The control API's certificate " + to_utf8(path) + " cannot be kept: " + error.text());
    return read_certificate(path, {});
}

std::string fingerprint_of(std::string_view chain) {
    constexpr std::string_view begin = "-----BEGIN CERTIFICATE-----";
    const auto at = chain.find(begin);
    if (at == std::string_view::npos) return {};
    std::string body(chain.substr(at + begin.size()));
    body.resize(std::min(body.find("-----"), body.size()));
    std::erase_if(body, [](char c) { return c == '\n' || c == '\r' || c == ' '; });
    const auto bytes = from_base64(body);
    if (!bytes) return {};
    Digest digest(DigestKind::sha256);
    digest.update(*bytes);
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const std::byte byte : digest.finish()) {
        if (!text.empty()) text += ':';
        text += digits[std::to_integer<std::size_t>(byte) >> 4U];
        text += digits[std::to_integer<std::size_t>(byte) & 15U];
    }
    return text;
}

}  // namespace vantlow
