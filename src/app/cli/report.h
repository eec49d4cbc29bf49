// Machine output.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

#include "base/result.h"
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

/// A result as programs get it: 0 for every way in which a job is done, an empty file among them.
inline std::int32_t plain_result(Code code) noexcept {
    return kind_of(code) == Kind::done ? 0 : static_cast<std::int32_t>(code);
}

}  // namespace vantlow
