// Sizes, speeds, times, states and the engine's records as the window shows them, in the user's language.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/engine.h"

namespace vantlow {

/// A text of a network or a file as it may stand in a control: well-formed UTF-8 of one line; characters that
/// command a terminal or turn the direction of writing are "?".
std::string shown(std::u16string_view text);
/// A sentence likewise; the signs that fill() puts around arguments stay.
std::string shown_sentence(std::string_view text);

/// "1.4 GiB" with the language's decimal sign; empty for a negative number (unknown).
std::string size_text(std::int64_t bytes);
/// "12.3 MiB/s"; empty where nothing moves (below half a byte a second).
std::string speed_text(double bytes_per_second);
/// "0:42", "1:02:03", "5d 04h"; empty for a negative number and for more than 999 days.
std::string time_left_text(std::int64_t seconds);
/// A moment, seconds since 1970, in local time as the language writes it; empty for none (0 or less).
std::string moment_text(std::int64_t seconds);
std::string clock_text(std::int64_t milliseconds);  ///< "18:05:09"
/// "42 %"; empty where the size is not known.
std::string percent_text(std::int64_t done, std::int64_t size);

/// The days of a week from Monday on: the bit of each (WeekPlan::days), and its short name.
std::vector<std::pair<std::int32_t, std::string>> weekdays();

/// The text with a capital at its beginning, where it begins with a Latin letter.
std::string as_heading(std::string text);
std::string state_text(JobState state);
/// A sentence why a job of this state has no connections.
std::string rest_sentence(JobState state);
std::string kind_text(JobKind kind);
/// A category's name. The two of a first start have English ones in the store, and are shown in the user's
/// language.
std::string name_of(const CClassNode& category);
/// The reason of a failed operation: a sentence; empty where it was done.
std::string sentence_of(const Done& done);
std::string sentence_of(const DraftFault& fault);
/// The sentence that a dialog asks; its files stand in the question.
std::string sentence_of(const Question& question);

/// Letter case and width taken off, for searches: ASCII, Latin, Greek and Cyrillic letters.
char16_t folded(char16_t c) noexcept;
std::u16string folded(std::u16string_view text);
/// True where the text holds `needle`, which is folded already.
bool holds_folded(std::u16string_view text, std::u16string_view needle) noexcept;

}  // namespace vantlow
