// Machine output.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace vantlow {

/// One line. Bytes that are not UTF-8 (a file name of another code page) must not end the output.
inline std::string json_line(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace vantlow
