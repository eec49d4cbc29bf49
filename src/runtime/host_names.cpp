#include "runtime/host_names.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "base/text.h"

namespace vantlow {
namespace {

std::atomic<const NamesTable*> in_use{nullptr};

bool is_ascii(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

HostNameScope::HostNameScope(const NamesTable& table) noexcept {
    in_use = &table;
}

HostNameScope::~HostNameScope() {
    in_use = nullptr;
}

bool has_host_names() noexcept {
    const NamesTable* const table = in_use;
    return table != nullptr && table->Names_ToAscii != nullptr;
}

std::optional<std::string> ascii_host(std::string_view name) {
    if (is_ascii(name)) return std::string(name);
    const NamesTable* const table = in_use;
    if (table == nullptr || table->Names_ToAscii == nullptr) return std::nullopt;
    if (!is_utf8(name) || name.find('\0') != std::string_view::npos) return std::nullopt;
    std::array<char, VANTLOW_NAME_ROOM> out{};
    const std::size_t size = table->Names_ToAscii(std::string(name).c_str(), out.data(), out.size());
    return size == 0 ? std::nullopt : std::optional(std::string(out.data(), size));
}

bool is_public_suffix(std::string_view domain) {
    std::string name = ascii_lower(domain);
    if (name.ends_with('.')) name.pop_back();
    const NamesTable* const table = in_use;
    if (table != nullptr && table->Names_IsPublicSuffix != nullptr) {
        const int answer = table->Names_IsPublicSuffix(name.c_str());
        if (answer >= 0) return answer == 1;
    }
    return name.find('.') == std::string::npos;
}

}  // namespace vantlow
