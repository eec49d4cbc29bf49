// Every setting that this program reads: where it stands, its default, its bounds, what it means.
#pragma once

#include <cstdint>
#include <string_view>

namespace vantlow {

/// A number among the settings, and what its reader makes of values out of bounds.
struct NumberSetting {
    std::u16string_view section;
    std::u16string_view key;
    std::int64_t standard;
    std::int64_t smallest;     ///< smaller values become this one
    std::int64_t largest;      ///< larger values become this one
    std::string_view meaning;  ///< for people: half a sentence, with the unit
};

/// A text among the settings.
struct TextSetting {
    std::u16string_view section;
    std::u16string_view key;
    std::u16string_view standard;
    std::string_view meaning;  ///< for people: half a sentence
};

/// What `vantlow settings describe` and docs/settings.md tell is made from these; a folder that has settings
/// of its own (torrents) adds them beside itself. One that is missing in the list of all is noticed by a
/// test.
namespace setting {

// Jobs and their files.
inline constexpr NumberSetting max_jobs{u"Performance", u"MaxJobs", 3, 1, 1000, "jobs at once"};
inline constexpr NumberSetting resume{u"Download", u"Resume", 1,
                                      0,           1,         "1: what an earlier run left is continued"};
inline constexpr NumberSetting overwrite_rule{u"Download",
                                              u"FileOverwriteRule",
                                              0,
                                              -2147483648LL,
                                              2147483647LL,
                                              "where the file is there already: 0 another name, 2 it is "
                                              "replaced once the new one is whole, else the job ends"};
inline constexpr NumberSetting allocate_space{
    u"Download", u"AllocFileSpace", 0, 0, 1, "1: the file's space is taken before its first byte is written"};
inline constexpr NumberSetting move_completed{
    u"Download", u"MoveCompleted", 1, 0, 1, "1: finished jobs are filed under \"Completed\""};
inline constexpr NumberSetting mark_zone{
    u"Download", u"MarkZone", 1, 0, 1, "1: fetched files are marked as coming from the internet (Windows)"};
inline constexpr NumberSetting start_all{
    u"Others", u"Start All", 0, 0, 1, "1: the resident program starts every job that is not finished"};
inline constexpr NumberSetting save_interval{
    u"Performance", u"SaveDatabaseInterval", 120, 10, 900, "seconds between two saves of the job database"};
inline constexpr TextSetting backup_to{u"Others", u"BackupTo", u"",
                                       "a folder for one backup of the job database a day; empty: none"};
inline constexpr TextSetting data_folder{u"Settings", u"DataFolder", u"",
                                         "the data folder; empty: where the program chooses"};
inline constexpr TextSetting language{u"Settings", u"Language", u"",
                                      "the name of the language file, without \".lng\""};

// Segments and connections.
inline constexpr NumberSetting split_size{
    u"Settings", u"Split Size", 262144,
    1024,        67108864,      "bytes: nothing smaller is cut in two for another connection"};
inline constexpr NumberSetting only_own_part{
    u"Connection", u"OnlyOwnPart", 0, 0, 1, "1: a connection ends with its part and takes over no other's"};
inline constexpr NumberSetting suspend_interval{
    u"Performance", u"SuspendInterval", 1, 0, 2000, "milliseconds that a connection rests between two parts"};
inline constexpr NumberSetting max_per_server{u"Connection",
                                              u"MaxPerServer",
                                              16,
                                              0,
                                              1000000,
                                              "connections to one server, of all jobs together; 0: no limit"};
inline constexpr NumberSetting connect_interval{
    u"Connection", u"ConnectInterval", 0, 0, 60000, "milliseconds between two connects to one server"};
inline constexpr NumberSetting connect_timeout{
    u"Connection", u"ConnTimeout", 60, 10, 3000, "seconds that a connect may take"};
inline constexpr NumberSetting always_retry{
    u"Connection", u"Always", 1, 0, 1, "1: failures of the network are retried without a limit"};
inline constexpr NumberSetting retries{
    u"Connection", u"Retries", 100, 0, 100000, "retries, where Always is 0"};
inline constexpr NumberSetting limit{u"Connection", u"Limit", 0, 0, 1, "1: \"Speed Limit\" holds"};
inline constexpr NumberSetting speed_limit{
    u"Connection", u"Speed Limit", 131072, 1, 1LL << 50, "bytes a second, for all connections together"};
inline constexpr NumberSetting connection_buffer{
    u"Performance", u"ConnBufSize", 64, 16, 4096, "KiB that the system keeps of a connection's bytes"};
inline constexpr NumberSetting data_buffer{
    u"Performance", u"DataBufSize", 512, 16, 4096, "KiB that a connection gathers before it writes"};
inline constexpr NumberSetting disk_buffer{
    u"Performance", u"DiskBufSize", 256, 256, 16384, "KiB that are written to the disk at once"};
inline constexpr NumberSetting ssh_buffer{
    u"Performance", u"SSH_RecvBufSize", 256, 32, 4096, "KiB that an SFTP connection asks for ahead"};

// Trust, proxies, logins.
inline constexpr NumberSetting verify_peer{
    u"Connection", u"VerifyPeer", 1, 0, 1, "1: certificates are checked; 0: anybody is believed"};
inline constexpr TextSetting ca_file{u"Connection", u"CAFile", u"",
                                     "a PEM file of the roots that are trusted in place of the system's"};
inline constexpr TextSetting proxy{
    u"Connection", u"Proxy", u"",
    "a proxy's address, its number in the proxy list or \"none\"; empty: as the environment says"};
inline constexpr NumberSetting proxy_resolves{
    u"Connection", u"ProxyResolve", 1, 0, 1, "1: names are resolved by SOCKS proxies; 0: here"};
inline constexpr NumberSetting get_cookie{
    u"Download", u"GetCookie", 0, 0, 1, "1: the system's cookies are sent (Windows)"};
inline constexpr TextSetting cookie_file{u"Download", u"CookieFile", u"",
                                         "a cookies.txt whose cookies are sent"};

// FTP.
inline constexpr NumberSetting enable_feat{
    u"Transfer",   u"EnableFEAT", 1,
    -2147483648LL, 2147483647LL,  "0: servers are not asked for their features"};
inline constexpr NumberSetting ftp_passive{
    u"Transfer", u"Passive", 1, 0, 1, "1: passive mode; 0: the server connects to this machine"};
inline constexpr NumberSetting nat_in_port{
    u"Transfer", u"UseNATinPORT 2",
    1,           0,
    1,           "1: active mode names NATAddress, where it is set; 0: the local address"};
inline constexpr TextSetting nat_address{u"Transfer", u"NATAddress", u"",
                                         "the IPv4 address under which the world sees this machine"};
inline constexpr TextSetting binary_types{
    u"Transfer", u"BinaryTypes",
    u".EXE;.RAR;.ZIP;.7Z;.TAR;.GZ;.BZ;.BZ2;.ISO;.Z;.TGZ;.wav;.flv;.f4v;.mp3;.mpg;.mpeg;.mp4;.3gp;.ogg;.mov;"
    u".amr;.ra;.rm;.rmvb;.avi;.wma;.wmv;.asf",
    "extensions of files that are never transferred as text"};
inline constexpr NumberSetting trace_list{
    u"Logs", u"TraceLIST", 1, 0, 1, "1: listings of FTP servers stand in the log"};

// Dial-up connections (Windows).
inline constexpr TextSetting dial_up_entry{
    u"Dial Up", u"Entry", u"", "the connection that is dialled before the first transfer; empty: none"};
inline constexpr TextSetting dial_up_user{u"Dial Up", u"Username", u"", "its user"};
inline constexpr TextSetting dial_up_password{u"Dial Up", u"Password", u"", "its password"};

// What the desktop opens with this program.
inline constexpr NumberSetting monitor_torrent{
    u"Monitor", u".torrent", 0, 0, 1, "1: .torrent files of this user's desktop open with this program"};
inline constexpr NumberSetting monitor_ed2k{u"Monitor", u"ed2k", 0, 0, 1, "1: so do ed2k: links"};
inline constexpr NumberSetting monitor_magnet{u"Monitor", u"magnet", 0, 0, 1, "1: so do magnet: links"};

}  // namespace setting
}  // namespace vantlow
