// Machine output.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "platform/console.h"

namespace vantlow {

/// One line. Bytes that are not UTF-8 (a file name of another code page) must not end the output.
inline std::string json_line(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

/// Writes that line to stdout.
inline void print_json(const nlohmann::ordered_json& json) {
    write_stream(Stream::output, json_line(json) + "\n");
}

}  // namespace vantlow
