// The process: its arguments, its environment, its program file, the user's folders, its end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// The command line as UTF-16 words, the program's own name first: on Windows read from the system, elsewhere
/// taken from the arguments of main.
std::vector<std::u16string> command_line(int argc, char** argv);

/// A variable of the environment; none when it is not set.
std::optional<std::u16string> environment(std::string_view name);

/// The full path of the program file (up to 1024 characters); empty when the system does not say.
std::u16string program_path();
/// The value "\StringFileInfo\040904b0\ProductVersion" of the program file's version resource; elsewhere the
/// version that was built in.
std::u16string product_version();
/// The logon name, empty when the query fails.
std::u16string user_logon_name();
/// The user's folder for application data (created by whoever writes into it), empty when there is none.
std::u16string user_data_folder();
std::u16string user_config_folder();
/// The home folder, where .netrc stands.
std::u16string home_folder();
/// True for folders that hold only the files of packages: the program keeps no data there, even where it
/// could (FHS 3.0, 4.1: "/usr", except "/usr/local", which is left to the machine's administrators).
bool belongs_to_packages(std::u16string_view folder) noexcept;
/// "Linux x86_64" or "Windows x86_64": what this program was built for.
std::string_view platform_name() noexcept;

/// The number of this process.
std::int64_t process_id() noexcept;
/// Whether a program on this system can stay when its terminal ends. Where it cannot, a program that is to
/// stay must be started without one (background_process.h).
bool can_outlive_terminal() noexcept;

/// The folder for the user's downloads: the system's, or the home folder where none is set.
std::u16string user_download_folder();

/// Ends the process now, without running anything else: for the second Ctrl-C, and for the end when a thread
/// is stuck inside the operating system. Streams must have been flushed.
[[noreturn]] void end_process(int status) noexcept;

/// Gives memory that the C library keeps without need back to the system; takes some milliseconds.
void give_back_memory() noexcept;

/// Fills in 16 random bytes for a GUID, version 4 (RFC 9562), in the order in which a GUID lies in memory:
/// the version is in the upper half of byte 7, the variant in byte 8.
void random_guid(unsigned char (&bytes)[16]);

}  // namespace vantlow
