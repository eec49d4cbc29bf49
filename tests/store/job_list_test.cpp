#include "store/job_list.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/file.h"

namespace vantlow {
namespace {

JobList read(std::string_view text) {
    return read_job_list(std::as_bytes(std::span(text)));
}

std::unique_ptr<CJobNode> job(std::u16string address) {
    auto made = std::make_unique<CJobNode>();
    made->address = std::move(address);
    return made;
}

std::string written(const CJobNode& job, const JobListFormat& format) {
    const CJobNode* const jobs[] = {&job};
    return write_job_list(jobs, format);
}

std::u16string folder(std::u16string_view name) {
    return path_separator() == u'/' ? u"/" + std::u16string(name) : u"C:\\" + std::u16string(name);
}

TEST(JobList, is_laid_out_line_by_line) {
    auto one = job(u"http://h/a");
    one->fragment = u"#f";
    one->comment = u"first\r\nsecond";
    one->path = u"name-only";
    one->start_mode = -1;
    one->connections = 7;
    one->utf8 = 0;
    JobListFormat format{u"'", u";", {7, 1, 6, 8, 9, 3, 99, -1}};
    EXPECT_EQ(written(*one, format),
              "TextDelimiter='\r\nColumnDelimiter=;\r\nExtraFields=Comment,Folder,StartMode,Threads,UTF-8,"
              "Locally\r\n"
              "'http://h/a#f';'first\\nsecond';'';'-1';'7';'0';'0'\r\n");
    format.fields.clear();
    EXPECT_EQ(written(*one, format),
              "TextDelimiter='\r\nColumnDelimiter=;\r\nExtraFields=\r\n'http://h/a#f'\r\n");
}

TEST(JobList, holds_passwords_only_where_it_has_a_column_for_them) {
    const struct {
        std::u16string address;
        std::string without;
    } cases[] = {
        {u"http://ann:s3cret@h/a@b", "http://ann@h/a@b"},
        {u"ftp://ann:s3@cret@h:21/a", "ftp://ann@h:21/a"},
        {u"ann:s3cret@h/a", "ann@h/a"},
        {u"http:/ann:s3cret@h/a", "http:/ann@h/a"},
        {u"http://:s3cret@h/a", "http://@h/a"},
        {u"http://ann@h:81/a:b", "http://ann@h:81/a:b"},
        {u"http://h:81/a:b@c", "http://h:81/a:b@c"},
        {u"ed2k://|file|a:b@c|1|00|/", "ed2k://|file|a:b@c|1|00|/"},
    };
    for (const auto& one : cases) {
        auto with = job(one.address);
        with->referer = one.address;
        with->password = u"s3cret";
        EXPECT_NE(written(*with, {u"'", u";", {0, 4}}).find("'" + one.without + "';'" + one.without + "';"),
                  std::string::npos)
            << one.without;
        EXPECT_NE(written(*with, {u"'", u";", {5}}).find("'" + to_utf8(one.address) + "';'s3cret'"),
                  std::string::npos);
    }
}

TEST(JobList, has_the_folder_before_the_last_separator_of_either_kind) {
    for (const auto& [path, expected] :
         {std::pair(u"C:\\a\\b.bin", "'C:\\a'"), std::pair(u"/a/b.bin", "'/a'"),
          std::pair(u"/a\\b/", "'/a\\b'"), std::pair(u"b.bin", "''")}) {
        auto one = job(u"http://h/a");
        one->path = path;
        EXPECT_NE(written(*one, {u"'", u";", {1}}).find(std::string(";") + expected), std::string::npos)
            << expected;
    }
}

TEST(JobList, what_was_exported_comes_back) {
    auto one = job(u"http://h/a,b?\"q\"");
    one->fragment = u"#f";
    one->referer = u"a\"\",b";
    one->path = join_path(folder(u"d,ir"), u"");
    one->file_name = u"n, x.bin";
    one->locally = 1;
    one->user = u"\"";
    one->password = u",\",\"";
    one->start_mode = 0;
    one->comment = u"one\r\ntwo, \"three\"\r\n";
    one->connections = 9;
    one->utf8 = 0;
    one->agent = u"";
    const JobListFormat formats[] = {
        {u"\"", u",", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
        {u"''", u"\t", {10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}},
    };
    for (const JobListFormat& format : formats) {
        const JobList list = read(written(*one, format));
        ASSERT_EQ(list.jobs.size(), 1U);
        EXPECT_TRUE(list.skipped.empty());
        EXPECT_TRUE(list.notes.empty());
        const CJobNode& back = *list.jobs[0];
        EXPECT_EQ(back.address, one->address);
        EXPECT_EQ(back.fragment, one->fragment);
        EXPECT_EQ(back.path, one->path);
        EXPECT_EQ(back.segments.size(), 9U);
        EXPECT_EQ(back.comment, one->comment);
        EXPECT_EQ(written(back, format), written(*one, format));
    }
}

TEST(JobList, names_no_file_beyond_its_folder) {
    const std::string text = "TextDelimiter=\"\nColumnDelimiter=,\nExtraFields=Filename\n";
    for (const auto& [name, safe] :
         {std::pair("..", u"index"), {"CON", u"_CON"}, {"a:b.", u"a_b"}, {"ok", u"ok"}}) {
        const JobList list = read(text + "http://h/x," + name + "\n");
        ASSERT_EQ(list.jobs.size(), 1U);
        EXPECT_EQ(list.jobs[0]->file_name, safe);
    }
}

TEST(JobList, of_other_programs_and_people_is_read) {
    const std::string header = "TextDelimiter=\"\r\nColumnDelimiter=,\r\nExtraFields=";
    const struct {
        const char* name;
        std::string text;
        std::vector<std::u16string> addresses;
        std::vector<std::size_t> skipped;
        std::size_t notes;
    } cases[] = {
        {"links, either line end",
         "http://a/1\r\nhttp://b/2,3\n\n  ftp://c/x  ",
         {u"http://a/1", u"http://b/2,3", u"ftp://c/x"},
         {},
         0},
        {"a byte order mark", "\xEF\xBB\xBFhttp://a/\xC3\xA4", {u"http://a/\u00E4"}, {}, 0},
        {"UTF-16",
         std::string("\xFF\xFEh\0t\0t\0p\0:\0/\0/\0a\0/\0\xE4\0\n\0", 24),
         {u"http://a/\u00E4"},
         {},
         0},
        {"no addresses",
         "# list\nhello\ntwo words\ngopher://x/\nmagnet:?xt=urn:btih:00\n",
         {u"magnet:?xt=urn:btih:00"},
         {1, 2, 3, 4},
         0},
        {"unknown columns",
         header + "Size,Referer\r\n\"http://a/1\",\"9\",\"r\"\r\n",
         {u"http://a/1"},
         {},
         1},
        {"too few and too many values",
         header + "Referer,Threads\n\"http://a/1\"\n\"http://a/2\",r,3,4,5\n",
         {u"http://a/1", u"http://a/2"},
         {},
         0},
        {"an open delimiter",
         header + "Referer\n\"http://a/1\",\"r\n\"http://a/2\",\"r\"\n\"\",\"r\"\n",
         {u"http://a/2"},
         {4, 6},
         0},
        {"numbers that are none",
         header + "Threads,StartMode\n\"http://a/1\",\"1000\",\"x\"\n",
         {u"http://a/1"},
         {},
         2},
        {"a header without delimiters", "ExtraFields=Referer\nhttp://a/1,r\n", {u"http://a/1"}, {}, 0},
        {"no text delimiter",
         "TextDelimiter=\nColumnDelimiter=;\nExtraFields=Comment\nhttp://a/1;\"c\"\n",
         {u"http://a/1"},
         {},
         0},
        {"blanks where an address has a scheme",
         header + "\nhttp://a/b c\nmagnet:?xt=urn:btih:00&dn=a b\nhttp://a/\x01\nb c/d\n",
         {u"http://a/b c", u"magnet:?xt=urn:btih:00&dn=a b"},
         {6, 7},
         0},
        {"nothing", "", {}, {}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const JobList list = read(c.text);
        std::vector<std::u16string> addresses;
        for (const auto& job : list.jobs) addresses.push_back(job->address);
        EXPECT_EQ(addresses, c.addresses);
        std::vector<std::size_t> skipped;
        for (const auto& note : list.skipped) skipped.push_back(note.line);
        EXPECT_EQ(skipped, c.skipped);
        EXPECT_EQ(list.notes.size(), c.notes);
    }
    EXPECT_EQ(read(header + "Threads\n\"http://a/1\",\"70\"\n").jobs[0]->connections, 5) << "the default";
}

}  // namespace
}  // namespace vantlow
