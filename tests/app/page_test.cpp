// The page that the endpoint serves: what is found, and that its files need nothing but each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>

#include "app/rpc/page.h"

namespace vantlow {
namespace {

TEST(Page, FilesAreFoundByTheirExactPaths) {
    constexpr std::array files{PageFile{"/index.html", "<p>", "\"1a\""}, PageFile{"/a/b.js", "1", "\"2b\""},
                               PageFile{"/icon.svg", "<svg>", "\"3c\""}};
    struct Case {
        std::string_view path;
        std::string_view if_none_match;
        unsigned status;  ///< 404: nothing is found
        std::string_view type;
        std::string_view body;
    };
    for (const Case& one : {
             Case{"/", "", 200, "text/html; charset=utf-8", "<p>"},
             Case{"/index.html", "\"2b\"", 200, "text/html; charset=utf-8", "<p>"},
             Case{"/a/b.js", "", 200, "text/javascript; charset=utf-8", "1"},
             Case{"/icon.svg", "", 200, "image/svg+xml", "<svg>"},
             Case{"/", "\"1a\"", 304, "text/html; charset=utf-8", ""},
             Case{"/", "\"0\", W/\"1a\"", 304, "text/html; charset=utf-8", ""},
             Case{"/", "*", 304, "text/html; charset=utf-8", ""},
             Case{"", "", 404, "", ""},
             Case{"/a", "", 404, "", ""},
             Case{"/a/", "*", 404, "", ""},
             Case{"/a/../index.html", "", 404, "", ""},
             Case{"//index.html", "", 404, "", ""},
             Case{"/INDEX.HTML", "", 404, "", ""},
         }) {
        const auto answer = find_page(one.path, one.if_none_match, files);
        ASSERT_EQ(answer.has_value(), one.status != 404) << one.path;
        if (!answer) continue;
        EXPECT_EQ(answer->status, one.status) << one.path;
        EXPECT_EQ(answer->type, one.type) << one.path;
        EXPECT_EQ(answer->body, one.body) << one.path;
        EXPECT_TRUE(answer->tag.starts_with('"') && answer->tag.ends_with('"')) << one.path;
    }
}

// A policy without inline code or other hosts breaks a page that has them: neither is in it, and no file is
// missing that another one names.
TEST(Page, FilesNameOnlyEachOther) {
    const std::regex names(R"re((?:from |import\(|src=|href=)"([^"$]+)")re");
    std::size_t named = 0;
    for (const PageFile& file : page_files()) {
        EXPECT_NE(find_page(file.path, "")->type, "application/octet-stream") << file.path;
        EXPECT_EQ(std::ranges::count(page_files(), file.tag, &PageFile::tag), 1) << file.path;
        const std::string text(file.content);
        if (file.path.ends_with(".html")) {
            EXPECT_FALSE(
                std::regex_search(text, std::regex(R"(<style|style=|\son\w+=|<script(?![^>]* src=))")));
        }
        if (!file.path.ends_with(".html") && !file.path.ends_with(".js")) continue;
        for (std::sregex_iterator at(text.begin(), text.end(), names), end; at != end; ++at, ++named) {
            std::string path = (*at)[1];
            if (path.starts_with("./")) path.erase(0, 2);
            EXPECT_TRUE(find_page("/" + path, "")) << file.path << " names " << path;
        }
    }
    EXPECT_GT(named, 20U);
    EXPECT_EQ(find_page("/languages/index.txt", "")->body, "de\nzh-CN\n");
    EXPECT_TRUE(find_page("/", "")->body.starts_with("<!doctype html>"));
}

}  // namespace
}  // namespace vantlow
