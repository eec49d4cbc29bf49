// Times as the command line and the control API tell them to programs.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string_view>

#include "engine/engine.h"

namespace vantlow {

/// "start" or "stop", of an entry's action.
std::string_view schedule_action_name(std::int32_t action) noexcept;

/// The week plan: {"days", "start", "stop", "runs", "next"}; null where there is none.
nlohmann::ordered_json plan_json(const Engine& engine);

/// The times of a job: {"id", "plan", "entries", "next"}. Times of day are local, moments ISO 8601.
nlohmann::ordered_json schedule_json(const Engine& engine, const CJobNode& job);

}  // namespace vantlow
