// The properties dialog without the dialog: what one job or several are set to, and what is to be changed.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/engine.h"

namespace vantlow {

enum class Property : std::uint8_t {
    address,  ///< of one job only; replaces a link that has run out
    mirrors,  ///< of one job only: other addresses of the file, one a line
    limit,    ///< as parse_rate() reads it; empty: none of its own
    connections,
    comment,
    user,
    password,
    referer,
    cookie,
    agent,
    proxy,
    plan,        ///< "1": by the week plan
    start_time,  ///< as TimesWish has them
    stop_time,
    days,
};
inline constexpr std::size_t property_count = 15;

/// The form of some jobs. Keeps no records: jobs may go while a dialog is open.
class JobProperties {
  public:
    /// Jobs that are not there are left out.
    JobProperties(const Engine& engine, const std::vector<Guid>& jobs);
    [[nodiscard]] const std::vector<Guid>& jobs() const noexcept { return jobs_; }

    [[nodiscard]] bool has(Property property) const noexcept;
    /// The value that all jobs share, UTF-8; none where they differ.
    [[nodiscard]] const std::optional<std::string>& value(Property property) const noexcept;
    /// Takes what a person entered; the same as before changes nothing.
    void set(Property property, std::string_view text);

    /// A sentence on the first value that cannot be taken; empty: all can.
    [[nodiscard]] std::string fault() const;
    /// The changes of one of the jobs, which keeps what was not entered. There must be no fault.
    [[nodiscard]] JobEdit edit(const Guid& job) const;

  private:
    [[nodiscard]] std::string fault_of(Property property, const std::string& text) const;
    [[nodiscard]] bool has_new_times() const;
    [[nodiscard]] std::optional<JobSchedule> schedule(const CJobNode& job) const;
    const Engine& engine_;
    std::vector<Guid> jobs_;
    std::array<std::optional<std::string>, property_count> before_;
    std::array<std::optional<std::string>, property_count> now_;  ///< only what was changed
};

}  // namespace vantlow
