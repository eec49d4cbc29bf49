// The answers of commands: JSON for programs, text for people.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <string_view>

#include "app/cli/command.h"
#include "base/result.h"
#include "transfer/job/progress.h"

namespace vantlow {

/// Returns one line without its end. Bytes that are not UTF-8 (a file name of another code page) are
/// replaced, so that they do not end the output.
std::string json_line(const nlohmann::ordered_json& json);

/// Returns the answer of a command: with --json `json` as a line, else `text`.
std::string answer_text(const GlobalOptions& global, const nlohmann::ordered_json& json,
                        std::string_view text);

/// Writes that answer to stdout.
void print_answer(const GlobalOptions& global, const nlohmann::ordered_json& json, std::string_view text);

/// Returns a result as programs get it: 0 for every way in which a job is done, an empty file among them.
std::int32_t plain_result(Code code) noexcept;

/// Adds the fields of a job that tries again after a failure: "waitingFor", "attempts" and "nextTry" (ISO
/// 8601, null while the attempt is under way). Adds nothing where the job does not wait.
void add_wait(nlohmann::ordered_json& json, const JobProgress& progress);

}  // namespace vantlow
