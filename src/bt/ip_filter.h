// The addresses that are to be no peers, as the lists of others name them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/socket.h"

namespace vantlow {

/// Ranges of addresses, merged and in order. Never changes once it was made: any thread may ask.
class IpFilter {
  public:
    /// How the lists were read.
    struct Reading {
        std::size_t bad_lines = 0;
        std::size_t first_bad = 0;  ///< the number of the first one in its list, from 1; 0: there is none
        bool is_full = false;       ///< there were more ranges than are kept
        std::string failure;        ///< a sentence about a list that could not be read to its end, UTF-8
    };

    [[nodiscard]] bool blocks(const SocketAddress& address) const noexcept;
    [[nodiscard]] std::size_t ranges() const noexcept { return four_.size() + six_.size(); }
    [[nodiscard]] const Reading& reading() const noexcept { return reading_; }

  private:
    friend class IpFilterReader;
    using Four = std::uint32_t;
    using Six = std::array<std::uint8_t, 16>;
    template <class Address>
    using Ranges = std::vector<std::pair<Address, Address>>;  ///< the first and the last address of each

    Ranges<Four> four_;
    Ranges<Six> six_;
    Reading reading_;
};

/// Reads lists, in portions of any size. A line is a range of addresses ("a - b"), of the first bits of one
/// ("a/24") or a single address, of IPv4 (zeros in front are none of octal numbers) or IPv6; behind it
/// stands nothing, a remark ("#", ";"), or ", level" and ", text", where a level of 128 or more blocks
/// nothing. Or it is a text, a colon and a range. Empty lines and those that begin with "#", ";" or "//"
/// mean nothing. All other lines are counted and passed over.
class IpFilterReader {
  public:
    static constexpr std::size_t longest_line = 4096;      ///< bytes; a longer one is a bad line
    static constexpr std::size_t most_ranges = 4'000'000;  ///< of each family, before they are merged

    void feed(std::string_view bytes);
    /// Another list follows.
    void end_list();
    /// A list could not be read to its end.
    void fail(std::string sentence) { filter_.reading_.failure = std::move(sentence); }
    /// The end of all lists. The reader is of no more use.
    [[nodiscard]] IpFilter finish();

  private:
    void take(std::string_view line);

    IpFilter filter_;
    std::string begun_;       ///< of the line that is not there as a whole
    bool is_long_ = false;    ///< the line is too long: the rest of it is dropped
    std::size_t number_ = 0;  ///< of the line in its list
};

}  // namespace vantlow
