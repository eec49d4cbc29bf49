// Parts that the targets share: one function that each defines, ways to cut its input, and checks that end
// the run.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

namespace vantlow::fuzz {

/// One run of a target. The bytes stand in memory of exactly their size.
void run(std::string_view input);

/// Aborts where a parser gave what it never may.
inline void check(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "This does not hold: %s\n", what);
    std::abort();
}

inline std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}
inline std::string_view text_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Takes the first byte off, which chooses between things; 0 at the end.
inline std::uint8_t take_byte(std::string_view& input) {
    if (input.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(input.front());
    input.remove_prefix(1);
    return byte;
}

/// Takes what stands before the mark (all of it where there is none), and the mark, off.
inline std::string_view take_until(std::string_view& input, char mark) {
    const std::string_view taken = input.substr(0, input.find(mark));
    input.remove_prefix(taken.size() < input.size() ? taken.size() + 1 : taken.size());
    return taken;
}

/// A name that was made safe is one name in its folder, on both systems.
void check_safe_name(std::u16string_view name);

/// A folder of this process, in memory where the system has such a one, that goes when the run ends.
const std::u16string& scratch_folder();
/// Writes the bytes as a file of that folder; gives its path.
std::u16string scratch_file(std::u16string_view name, std::string_view bytes);

}  // namespace vantlow::fuzz

#define CHECK(condition) ::vantlow::fuzz::check((condition), #condition)
