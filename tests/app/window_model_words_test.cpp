// Every word of the window and of the page is in every catalogue.
#include <gtest/gtest.h>

#include <cctype>

#include "app/process/known_settings.h"
#include "app/window/model/translate.h"
#include "base/text.h"
#include "platform/file.h"
#include "platform/folder.h"

namespace vantlow {
namespace {

std::string read(const std::u16string& path) {
    std::vector<std::byte> bytes;
    EXPECT_TRUE(read_file(path, std::size_t{1} << 20U, bytes).ok()) << to_utf8(path);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The source without its comments that fill lines.
std::string without_comments(const std::string& source) {
    std::string made;
    for (const std::string_view line : split(source, '\n')) {
        if (!trim(line).starts_with("//")) made.append(line) += '\n';
    }
    return made;
}

// The adjacent literals of C++ that begin here, as one text; `at` moves behind them.
std::string literals(const std::string& source, std::size_t& at) {
    std::string text;
    for (;;) {
        const std::size_t next = source.find_first_not_of(" \n", at);
        if (next == std::string::npos || source[next] != '"') return text;
        for (at = next + 1; source[at] != '"'; ++at) {
            if (source[at] == '\\') ++at;
            const bool line_end = source[at - 1] == '\\' && source[at] == 'n';
            text += line_end ? '\n' : source[at];
        }
        ++at;
    }
}

struct Word {
    std::string text;
    bool counts = false;
};

void words_of(const std::string& source, std::vector<Word>& words) {
    for (const std::string call : {"tr(", "trn(", "to_translate(", "word("}) {
        for (std::size_t at = source.find(call); at != std::string::npos; at = source.find(call, at)) {
            const char before = at > 0 ? source[at - 1] : ' ';
            at += call.size();
            if (std::isalnum(static_cast<unsigned char>(before)) != 0 || before == '_') continue;
            Word word{literals(source, at), call == "trn("};
            if (word.counts && source[at] == ',')
                word.text = literals(source, ++at);  // the form for many names it
            if (!word.text.empty()) words.push_back(std::move(word));
        }
    }
}

void words_below(const std::u16string& folder, std::vector<Word>& words) {
    std::vector<FolderEntry> entries;
    ASSERT_TRUE(list_folder(folder, entries).ok());
    for (const FolderEntry& entry : entries) {
        const std::u16string path = join_path(folder, entry.name);
        if (entry.kind == PathKind::folder) words_below(path, words);
        if (entry.name.ends_with(u".cpp") || entry.name.ends_with(u".h") || entry.name.ends_with(u".js"))
            words_of(without_comments(read(path)), words);
    }
}

TEST(Words, AreInEveryCatalogue) {
    const std::u16string root = to_utf16(VANTLOW_SOURCES);
    std::vector<Word> words;
    words_below(join_path(root, u"src/app/window"), words);
    const std::size_t in_window = words.size();
    words_below(join_path(root, u"web"), words);
    const std::size_t in_page = words.size() - in_window;
    for (const KnownSetting& setting : known_settings()) {
        if (!setting.meaning.empty()) words.push_back({setting.meaning, false});
    }
    EXPECT_GT(in_window, 100U);
    EXPECT_GT(in_page, 100U);
    std::vector<std::u16string> files;
    const std::u16string folder = join_path(root, u"languages");
    ASSERT_TRUE(list_files(folder, u".lng", files).ok());
    EXPECT_GE(files.size(), 2U);
    for (const std::u16string& file : files) {
        std::string error;
        const auto catalogue = Catalogue::read(read(join_path(folder, file)), error);
        ASSERT_TRUE(catalogue) << to_utf8(file) << ": " << error;
        for (const Word& word : words) {
            const bool there = word.counts ? catalogue->find(word.text, 1) != nullptr &&
                                                 catalogue->find(word.text, 2) != nullptr
                                           : catalogue->find(word.text) != nullptr;
            EXPECT_TRUE(there) << to_utf8(file) << " lacks \"" << word.text << '"';
        }
    }
}

}  // namespace
}  // namespace vantlow
