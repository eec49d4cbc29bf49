// The proxy list of the data folder, the file ".proxy" (docs/proxy-list.md).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"
#include "store/job.h"

namespace vantlow {

/// The name of the file in the data folder.
inline constexpr std::u16string_view proxy_list_name = u".proxy";
inline constexpr std::size_t most_proxies = 10000;

/// The list's text, passwords kept as the system keeps secrets. Empty when a password cannot be kept.
std::string write_proxy_list(const std::vector<CProxyNode>& proxies);
/// Reads it. 0, or the number (from 1) of the line that cannot be read; the proxies before it are there then.
/// A password that is another user's is left empty.
std::size_t read_proxy_list(std::string_view text, std::vector<CProxyNode>& proxies);

/// The list of a data folder; an absent file is an empty one. `error` says in a sentence what is wrong.
bool load_proxies(const std::u16string& data_folder, std::vector<CProxyNode>& proxies, std::string& error);
/// Replaces it, readable by this user alone.
bool save_proxies(const std::u16string& data_folder, const std::vector<CProxyNode>& proxies,
                  std::string& error);

}  // namespace vantlow
