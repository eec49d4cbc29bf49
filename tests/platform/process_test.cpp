#include "platform/process.h"
#include "platform/local_text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <set>
#include <string>
#include <thread>

#include "platform/console.h"
#include "platform/file.h"
#include "platform/library.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

TEST(Process, KnowsItselfAndItsFolders) {
    const std::u16string program = program_path();
    EXPECT_EQ(path_kind(program), PathKind::file);
    EXPECT_EQ(absolute_path(program), program);
    for (const std::u16string& folder : {user_data_folder(), user_config_folder(), home_folder()}) {
        EXPECT_FALSE(folder.empty());
        EXPECT_EQ(absolute_path(folder), folder);
    }
    const bool has_packages = path_separator() == u'/';
    EXPECT_EQ(belongs_to_packages(u"/usr/lib/vantlow/root's temp"), has_packages);
    for (const char16_t* folder : {u"/usr/local/lib/vantlow", u"/usra", u"C:\\usr\\", u""}) {
        EXPECT_FALSE(belongs_to_packages(folder));
    }
    EXPECT_EQ(environment("VANTLOW_NO_SUCH_VARIABLE"), std::nullopt);
}

TEST(Process, TakesItsWordsAsTheyWereTyped) {
    char program[] = "vantlow";
    char foreign[] =
        "Gr\xC3\xBC\xC3\x9F"
        "e \xF0\x9F\x93\x81";
    char no_text[] = "a\xFFz";
    char* words[] = {program, foreign, no_text, nullptr};
    const std::vector<std::u16string> taken = command_line(3, words);
    if (platform_name().starts_with("Windows")) {
        // There main's words lack what the code page lacks; the system's are taken.
        ASSERT_FALSE(taken.empty());
        EXPECT_EQ(name_of(taken[0]), name_of(program_path()));
        return;
    }
    EXPECT_EQ(taken, (std::vector<std::u16string>{u"vantlow", u"Gr\u00fc\u00dfe \U0001F4C1", u"a\xDCFFz"}));
}

TEST(Process, AnsiTextHasAQuestionMarkForWhatItLacks) {
    EXPECT_EQ(to_ansi(u"plain"), "plain");
    EXPECT_EQ(from_ansi("plain"), u"plain");
    EXPECT_EQ(from_ansi(to_ansi(u"")), u"");
    // U+2588 is in no ANSI code page of Windows but UTF-8.
    const std::string bytes = to_ansi(u"a\u2588b");
    EXPECT_TRUE(bytes == "a?b" || from_ansi(bytes) == u"a\u2588b") << bytes;
}

TEST(Process, RandomGuidsAreOfVersion4AndDiffer) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        unsigned char bytes[16];
        random_guid(bytes);
        EXPECT_EQ(bytes[7] >> 4, 4);
        EXPECT_EQ(bytes[8] >> 6, 2);
        seen.insert(std::string(reinterpret_cast<const char*>(bytes), sizeof bytes));
    }
    EXPECT_EQ(seen.size(), 100U);
}

TEST(Process, ALibraryThatIsNotThereIsNoError) {
    const test::TempFolder folder;
    Library library;
    EXPECT_FALSE(library.load(folder.path(Library::file_name("libnone"))));
    folder.write(Library::file_name("libbad"), "not a library");
    EXPECT_FALSE(library.load(folder.path(Library::file_name("libbad"))));
    EXPECT_FALSE(library.is_loaded());
    EXPECT_EQ(library.find("anything"), nullptr);
    EXPECT_TRUE(Library::file_name("libssh").starts_with(u"libssh."));
}

TEST(Interrupts, AreCountedUntilTheWatchEnds) {
    if (platform_name().starts_with("Windows"))
        GTEST_SKIP() << "console events reach every process of the console";
    using namespace std::chrono_literals;
    std::atomic<int> last{0};
    const auto note = [](void* context, int count) { static_cast<std::atomic<int>*>(context)->store(count); };
    const auto reaches = [&last](int count) {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (last.load() < count && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(1ms);
        return last.load() == count;
    };
    static std::atomic<int> own_handler_calls{0};
    const auto before = std::signal(SIGINT, [](int) { ++own_handler_calls; });
    for (int round = 0; round < 2; ++round) {
        last = 0;
        const InterruptWatch watch(note, &last);
        std::raise(SIGINT);
        std::raise(SIGTERM);
        EXPECT_TRUE(reaches(2));
        std::raise(SIGINT);
        EXPECT_TRUE(reaches(3));
    }
    EXPECT_EQ(own_handler_calls, 0);
    std::raise(SIGINT);
    EXPECT_EQ(own_handler_calls, 1) << "what was there before is there again";
    EXPECT_EQ(last, 3);
    std::signal(SIGINT, before);
}

}  // namespace
}  // namespace vantlow
