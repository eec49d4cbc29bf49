// The settings store: named values in named sections, read at the moment of use.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/settings_backend.h"

namespace vantlow {

/// A number among the settings: where it stands, its default and what its reader makes of values out of
/// bounds.
struct NumberSetting {
    std::u16string_view section;
    std::u16string_view key;
    std::int64_t standard;
    std::int64_t smallest;  ///< smaller values become this one
    std::int64_t largest;   ///< larger values become this one
};

/// The settings that this program reads, in one place each (docs are made from here).
namespace setting {
inline constexpr NumberSetting split_size{u"Settings", u"Split Size", 262144, 1024, 67108864};
inline constexpr NumberSetting split_time{u"Streaming", u"Split Time", 20000, 10000, 300000};
inline constexpr NumberSetting only_own_part{u"Connection", u"OnlyOwnPart", 0, 0, 1};
inline constexpr NumberSetting always_retry{u"Connection", u"Always", 1, 0, 1};
inline constexpr NumberSetting retries{u"Connection", u"Retries", 100, 0, 100000};
inline constexpr NumberSetting suspend_interval{u"Performance", u"SuspendInterval", 1, 0, 2000};  // ms
inline constexpr NumberSetting connection_buffer{u"Performance", u"ConnBufSize", 64, 16, 4096};   // KiB
inline constexpr NumberSetting data_buffer{u"Performance", u"DataBufSize", 512, 16, 4096};        // KiB
inline constexpr NumberSetting disk_buffer{u"Performance", u"DiskBufSize", 256, 256, 16384};      // KiB
inline constexpr NumberSetting max_jobs{u"Performance", u"MaxJobs", 3, 1, 1000};
inline constexpr NumberSetting save_interval{u"Performance", u"SaveDatabaseInterval", 120, 10, 900};  // s
inline constexpr NumberSetting move_completed{u"Download", u"MoveCompleted", 1, 0, 1};
inline constexpr NumberSetting mark_zone{u"Download", u"MarkZone", 1, 0, 1};  // as the internet's, on Windows
inline constexpr NumberSetting resume{u"Download", u"Resume", 1, 0, 1};
inline constexpr NumberSetting overwrite_rule{u"Download", u"FileOverwriteRule", 0, -2147483648LL,
                                              2147483647LL};
inline constexpr NumberSetting allocate_space{u"Download", u"AllocFileSpace", 0, 0, 1};
inline constexpr NumberSetting limit{u"Connection", u"Limit", 0, 0, 1};
inline constexpr NumberSetting speed_limit{u"Connection", u"Speed Limit", 131072, 1, 1LL << 50};  // bytes/s
inline constexpr NumberSetting connect_timeout{u"Connection", u"ConnTimeout", 60, 10, 3000};      // s
inline constexpr NumberSetting max_per_server{u"Connection", u"MaxPerServer", 16, 0, 1000000};    // 0: none
inline constexpr NumberSetting proxy_resolves{u"Connection", u"ProxyResolve", 1, 0, 1};  // names, by SOCKS
inline constexpr NumberSetting get_cookie{u"Download", u"GetCookie", 0, 0, 1};           // the system's
inline constexpr NumberSetting connect_interval{u"Connection", u"ConnectInterval", 0, 0, 60000};  // ms
inline constexpr NumberSetting verify_peer{u"Connection", u"VerifyPeer", 1, 0, 1};
inline constexpr NumberSetting enable_feat{u"Transfer", u"EnableFEAT", 1, -2147483648LL, 2147483647LL};
inline constexpr NumberSetting ftp_passive{u"Transfer", u"Passive", 1, 0, 1};
inline constexpr NumberSetting nat_in_port{u"Transfer", u"UseNATinPORT 2", 1, 0, 1};
inline constexpr NumberSetting trace_list{u"Logs", u"TraceLIST", 1, 0, 1};
inline constexpr NumberSetting ssh_buffer{u"Performance", u"SSH_RecvBufSize", 256, 32, 4096};  // KiB
/// Extensions of files that FTP never transfers as text.
inline constexpr std::u16string_view binary_types =
    u".EXE;.RAR;.ZIP;.7Z;.TAR;.GZ;.BZ;.BZ2;.ISO;.Z;.TGZ;.wav;.flv;.f4v;.mp3;.mpg;.mpeg;.mp4;.3gp;.ogg;.mov;"
    u".amr;.ra;.rm;.rmvb;.avi;.wma;.wmv;.asf";
}  // namespace setting

/// The store with the run's own values laid over it. Any thread may call.
class Settings {
  public:
    /// A store of nothing but overrides, for tests and tools: writing fails.
    Settings();
    explicit Settings(std::unique_ptr<SettingsBackend> backend);

    [[nodiscard]] std::u16string text(std::u16string_view section, std::u16string_view key,
                                      std::u16string_view standard = {}) const;
    /// A number in decimal ("-5", "0x" is not known); the default when there is none or it cannot be read. A
    /// number too large for 64 bits is the largest one of its sign.
    [[nodiscard]] std::int64_t number(std::u16string_view section, std::u16string_view key,
                                      std::int64_t standard) const;
    /// The number within its bounds.
    [[nodiscard]] std::int64_t number(const NumberSetting& setting) const;
    [[nodiscard]] bool flag(const NumberSetting& setting) const { return number(setting) != 0; }

    FileError write(std::u16string_view section, std::u16string_view key, std::u16string_view value);
    FileError erase(std::u16string_view section, std::u16string_view key);

    /// A value for this run only: it hides the stored one and is never written. Changes take effect at once.
    void override_value(std::u16string_view section, std::u16string_view key, std::u16string_view value);

    /// Looks whether the store was changed by somebody else.
    void refresh();
    /// Counts up with every change that this object knows of: readers on a hot path keep a value until it
    /// moves.
    [[nodiscard]] std::uint64_t version() const noexcept { return version_.load(std::memory_order_acquire); }

    /// Everything that is stored or overridden.
    [[nodiscard]] SettingsBackend::Values all() const;

  private:
    [[nodiscard]] std::optional<std::u16string> find(std::u16string_view section,
                                                     std::u16string_view key) const;

    std::unique_ptr<SettingsBackend> backend_;
    mutable std::mutex mutex_;
    struct Override {
        std::u16string section;
        std::u16string key;
        std::u16string value;
    };
    std::map<std::u16string, Override> overrides_;  ///< by lower-case "section\nkey"; guarded by mutex_
    std::atomic<std::uint64_t> version_{1};
};

}  // namespace vantlow
