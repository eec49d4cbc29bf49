// The loaded libraries: what is missing, and what libnames knows of hosts.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "runtime/host_names.h"
#include "runtime/tables.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

std::u16string own_folder() {
    return folder_of(program_path());
}

void copy_library(const test::TempFolder& folder, const char* name) {
    std::vector<std::byte> bytes;
    ASSERT_TRUE(
        read_file(join_path(own_folder(), Library::file_name("libssh")), std::size_t{1} << 26, bytes).ok());
    folder.write(Library::file_name(name), {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

TEST(LibraryTables, EmptyFolderLeavesEveryTableEmpty) {
    const test::TempFolder folder;
    const LibraryTables tables = load_libraries(folder.path());
    EXPECT_EQ(tables.ssh.GZ_InflateInit, nullptr);
    EXPECT_EQ(tables.secur.SSL_Init, nullptr);
    for (const auto& [file, is_loaded] : loaded_libraries(tables)) {
        EXPECT_FALSE(is_loaded && file != "rasapi32.dll") << file;
    }
}

TEST(LibraryTables, AMissingOperationLeavesItsOneEntryEmpty) {
    const test::TempFolder folder(test::TempFolder::Name::foreign);
    ASSERT_NO_FATAL_FAILURE(copy_library(folder, "libssh"));
    ASSERT_NO_FATAL_FAILURE(copy_library(folder, "libKAD"));
    LibraryTables loaded = load_libraries(folder.path());
    // The operations stay valid while their owner moves.
    const LibraryTables tables = std::move(loaded);
    ASSERT_NE(tables.ssh.GZ_InflateInit, nullptr);
    VantlowZStream* const stream = tables.ssh.GZ_InflateInit();
    EXPECT_NE(stream, nullptr);
    tables.ssh.ZLib_InflateEnd(stream);
    // A library under another one's name has none of its operations.
    EXPECT_EQ(tables.kad.Kademlia_Init, nullptr);
    for (const auto& [file, is_loaded] : loaded_libraries(tables)) {
        if (file == "rasapi32.dll") continue;
        EXPECT_EQ(is_loaded, file.starts_with("libssh.") || file.starts_with("libKAD.")) << file;
    }
}

TEST(LibraryTables, AFileThatIsNoLibraryIsAMissingOne) {
    const test::TempFolder folder;
    folder.write(Library::file_name("libssh"), "not a library");
    const LibraryTables tables = load_libraries(folder.path());
    EXPECT_EQ(tables.ssh.GZ_InflateInit, nullptr);
    EXPECT_FALSE(tables.ssh.library.is_loaded());
}

// rasapi32 is a library of the system: one that stands beside the program must never be taken for it.
TEST(LibraryTables, DialUpComesFromTheSystemOnly) {
    const test::TempFolder folder;
    ASSERT_NO_FATAL_FAILURE(copy_library(folder, "rasapi32"));
    const LibraryTables tables = load_libraries(folder.path());
    const std::u16string system = Library::system_path("rasapi32");
    if (system.empty()) {
        EXPECT_FALSE(tables.ras.library.is_loaded());
        EXPECT_TRUE(tables.ras.file.empty());
        return;
    }
    EXPECT_EQ(absolute_path(system), system);
    EXPECT_EQ(tables.ras.file, "rasapi32.dll");
    EXPECT_NE(tables.ras.RasEnumEntriesW, nullptr);
    EXPECT_EQ(loaded_libraries(tables)[4].first, "rasapi32.dll");
}

TEST(HostNames, library_knows_whose_a_domain_is) {
    const LibraryTables tables = load_libraries(folder_of(program_path()));
    if (tables.names.Names_IsPublicSuffix == nullptr) GTEST_SKIP() << "built without libpsl";
    const HostNameScope names(tables.names);
    for (const char* suffix : {"com", "co.uk", "CO.UK.", "github.io", "xn--55qx5d.cn", "anything.ck"})
        EXPECT_TRUE(is_public_suffix(suffix)) << suffix;
    for (const char* own : {"example.com", "example.co.uk", "who.github.io", "www.ck"})
        EXPECT_FALSE(is_public_suffix(own)) << own;
    std::array<char, 8> little{};
    EXPECT_EQ(tables.names.Names_ToAscii("b\xC3\xBC"
                                         "cher.example",
                                         little.data(), little.size()),
              0U);
    EXPECT_EQ(ascii_host("\xFF.example"), std::nullopt);
}

TEST(HostNames, without_the_library_only_ascii_and_dots_count) {
    EXPECT_EQ(ascii_host("Host_1.example"), "Host_1.example");
    EXPECT_EQ(ascii_host("b\xC3\xBC"
                         "cher.example"),
              std::nullopt);
    EXPECT_TRUE(is_public_suffix("com"));
    EXPECT_FALSE(is_public_suffix("co.uk"));
}

}  // namespace
}  // namespace vantlow
