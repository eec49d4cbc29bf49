// Every setting that this program reads: where it stands, its default, its bounds, what it means.
#pragma once

#include <cstdint>
#include <string_view>

namespace vantlow {

/// A number among the settings, and its reader's rule for values out of bounds.
struct NumberSetting {
    std::u16string_view section;
    std::u16string_view key;
    std::int64_t standard;
    std::int64_t smallest;     ///< smaller values become this one
    std::int64_t largest;      ///< larger values become this one
    std::string_view meaning;  ///< for people: half a sentence, with the unit; empty: not documented
};

/// A text among the settings.
struct TextSetting {
    std::u16string_view section;
    std::u16string_view key;
    std::u16string_view standard;
    std::string_view meaning;  ///< for people: half a sentence; empty: not documented
};

/// These tables are the source of `vantlow settings describe` and docs/settings.md; a folder that has
/// settings of its own (torrents) adds them in a file of its own. A test notices one that is missing in the
/// list of all.
namespace setting {

// Jobs and their files.
inline constexpr NumberSetting max_jobs{u"Performance", u"MaxJobs", 3, 1, 1000, "jobs that run at once"};
inline constexpr NumberSetting resume{
    u"Download", u"Resume", 1, 0, 1, "1: what an earlier run left is continued; 0: every job begins anew"};
inline constexpr NumberSetting overwrite_rule{
    u"Download",
    u"FileOverwriteRule",
    0,
    -2147483648LL,
    2147483647LL,
    "what happens where the file exists: 0 the new one gets another "
    "name; 2 the old one is replaced, once the new one is "
    "complete; any other number: the job ends"};
inline constexpr NumberSetting allocate_space{
    u"Download", u"AllocFileSpace",
    0,           0,
    1,           "1: the disk space of the whole file is reserved before its first byte is written"};
inline constexpr NumberSetting move_completed{
    u"Download", u"MoveCompleted", 1, 0, 1, "1: finished jobs move to the category \"Completed\""};
inline constexpr NumberSetting mark_zone{
    u"Download", u"MarkZone", 1,
    0,           1,           "1: downloaded files are marked as coming from the internet (Windows)"};
inline constexpr NumberSetting start_all{
    u"Others", u"Start All",
    0,         0,
    1,         "1: the resident program starts every unfinished job when it starts itself"};
inline constexpr NumberSetting save_interval{
    u"Performance", u"SaveDatabaseInterval", 120, 10, 900, "seconds between two saves of the job database"};
inline constexpr TextSetting backup_to{
    u"Others", u"BackupTo", u"", "the folder for a daily backup of the job database; empty: no backups"};
inline constexpr TextSetting data_folder{u"Settings", u"DataFolder", u"",
                                         "the folder that holds the data folder; empty: the program chooses"};
inline constexpr TextSetting language{
    u"Settings", u"Language", u"",
    "the window's language: the name of a language file (\"de\"); empty: the system's"};

// Segments and connections.
inline constexpr NumberSetting split_size{
    u"Settings", u"Split Size",
    262144,      1024,
    67108864,    "bytes; a part of a file that is smaller is not split for another connection"};
inline constexpr NumberSetting only_own_part{
    u"Connection",
    u"OnlyOwnPart",
    0,
    0,
    1,
    "1: a connection that has finished its part ends, and does not take over a part of another's"};
inline constexpr NumberSetting suspend_interval{u"Performance",
                                                u"SuspendInterval",
                                                1,
                                                0,
                                                2000,
                                                "milliseconds that a connection pauses between two parts"};
inline constexpr NumberSetting max_per_server{
    u"Connection",
    u"MaxPerServer",
    16,
    0,
    1000000,
    "connections to one server, for all jobs together; 0: no limit"};
inline constexpr NumberSetting connect_interval{
    u"Connection",
    u"ConnectInterval",
    0,
    0,
    60000,
    "milliseconds between two new connections to the same server"};
inline constexpr NumberSetting connect_timeout{
    u"Connection", u"ConnTimeout", 60, 10, 3000, "seconds that it may take to connect"};
inline constexpr NumberSetting always_retry{
    u"Connection", u"Always", 1, 0, 1, "1: network failures are retried without limit"};
inline constexpr NumberSetting retries{
    u"Connection", u"Retries", 100, 0, 100000, "retries after network failures, when \"Always\" is 0"};
inline constexpr NumberSetting limit{u"Connection", u"Limit", 0, 0, 1, "1: \"Speed Limit\" applies"};
inline constexpr NumberSetting speed_limit{
    u"Connection", u"Speed Limit", 131072, 1, 1LL << 50, "bytes per second, for all connections together"};
inline constexpr NumberSetting connection_buffer{
    u"Performance", u"ConnBufSize", 64, 16, 4096, "KiB of a connection's data that the system buffers"};
inline constexpr NumberSetting data_buffer{
    u"Performance", u"DataBufSize", 512, 16, 4096, "KiB that a connection collects before it writes them"};
inline constexpr NumberSetting disk_buffer{
    u"Performance", u"DiskBufSize", 256, 256, 16384, "KiB that are written to the disk at a time"};
inline constexpr NumberSetting ssh_buffer{
    u"Performance", u"SSH_RecvBufSize", 256, 32, 4096, "KiB that an SFTP connection requests ahead"};

// Trust, proxies, logins.
inline constexpr NumberSetting verify_peer{
    u"Connection", u"VerifyPeer", 1, 0, 1, "1: certificates are checked; 0: any certificate is accepted"};
inline constexpr TextSetting ca_file{u"Connection", u"CAFile", u"",
                                     "a PEM file with the certificates to trust instead of the system's"};
inline constexpr TextSetting proxy{u"Connection", u"Proxy", u"",
                                   "a proxy's address, its number in the proxy list, or \"none\"; empty: the "
                                   "proxy that the environment names"};
inline constexpr NumberSetting proxy_resolves{
    u"Connection", u"ProxyResolve", 1, 0, 1, "1: SOCKS proxies resolve host names; 0: this machine does"};
inline constexpr NumberSetting get_cookie{
    u"Download", u"GetCookie", 0, 0, 1, "1: the system's cookies are sent (Windows)"};
inline constexpr TextSetting cookie_file{u"Download", u"CookieFile", u"",
                                         "a cookies.txt file whose cookies are sent"};

// FTP.
inline constexpr NumberSetting enable_feat{
    u"Transfer",   u"EnableFEAT", 1,
    -2147483648LL, 2147483647LL,  "0: servers are not asked which features they have"};
inline constexpr NumberSetting ftp_passive{
    u"Transfer", u"Passive", 1,
    0,           1,          "1: passive mode; 0: active mode, in which the server connects to this machine"};
inline constexpr NumberSetting follow_pasv{
    u"Transfer",
    u"FollowPASV",
    0,
    0,
    1,
    "1: data connections go to whatever public address an FTP server names; 0: to the server itself"};
inline constexpr NumberSetting nat_in_port{
    u"Transfer", u"UseNATinPORT 2",
    1,           0,
    1,           "1: active mode announces \"NATAddress\" where it is set; 0: the local address"};
inline constexpr TextSetting nat_address{u"Transfer", u"NATAddress", u"",
                                         "the IPv4 address of this machine as seen from the internet"};
inline constexpr TextSetting binary_types{
    u"Transfer", u"BinaryTypes",
    u".EXE;.RAR;.ZIP;.7Z;.TAR;.GZ;.BZ;.BZ2;.ISO;.Z;.TGZ;.wav;.flv;.f4v;.mp3;.mpg;.mpeg;.mp4;.3gp;.ogg;.mov;"
    u".amr;.ra;.rm;.rmvb;.avi;.wma;.wmv;.asf",
    "extensions of files that are never transferred as text"};
inline constexpr NumberSetting trace_list{
    u"Logs", u"TraceLIST", 1, 0, 1, "1: the log contains the listings of FTP servers"};

// Dial-up connections (Windows).
inline constexpr TextSetting dial_up_entry{
    u"Dial Up", u"Entry", u"", "the connection that is dialled before the first transfer; empty: none"};
inline constexpr TextSetting dial_up_user{u"Dial Up", u"Username", u"", "the user name for it"};
inline constexpr TextSetting dial_up_password{u"Dial Up", u"Password", u"", "the password for it"};

// The files and links that the desktop opens with this program.
inline constexpr NumberSetting monitor_torrent{
    u"Monitor", u".torrent", 0, 0, 1, "1: the desktop opens .torrent files with this program, for this user"};
inline constexpr NumberSetting monitor_ed2k{
    u"Monitor", u"ed2k", 0, 0, 1, "1: the desktop opens ed2k: links with this program, for this user"};
inline constexpr NumberSetting monitor_magnet{
    u"Monitor", u"magnet", 0, 0, 1, "1: the desktop opens magnet: links with this program, for this user"};

}  // namespace setting
}  // namespace vantlow
