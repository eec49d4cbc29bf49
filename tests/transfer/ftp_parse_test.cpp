// What FTP servers say, from bytes to fields.
#include <gtest/gtest.h>

#include "transfer/ftp/data_connection.h"
#include "transfer/ftp/ftp_path.h"
#include "transfer/ftp/listing.h"
#include "transfer/ftp/reply_fields.h"

namespace vantlow::test {
namespace {

FtpReply reply(std::string_view bytes) {
    FtpReplyReader reader;
    reader.add(bytes);
    return reader.take().value_or(FtpReply{});
}

TEST(FtpReplies, AreTheSameWhereverTheBytesAreCut) {
    constexpr std::string_view bytes =
        "220-Welcome\r\n 220 not the end\r\n230 another code\r\n220-still\r\n220 Ready\r\n\r\n"
        "211-Features:\n SIZE\n211 End\n"
        "331\r\n";
    for (std::size_t step = 1; step < bytes.size(); ++step) {
        FtpReplyReader reader;
        std::vector<FtpReply> got;
        for (std::size_t at = 0; at < bytes.size(); at += step) {
            reader.add(bytes.substr(at, step));
            while (auto one = reader.take()) got.push_back(*std::move(one));
        }
        ASSERT_EQ(got.size(), 3U) << step;
        EXPECT_EQ(got[0].code, 220);
        EXPECT_EQ(got[0].lines.size(), 5U);
        EXPECT_EQ(got[0].lines[1], " 220 not the end");
        EXPECT_EQ(got[0].text(), "220 Ready");
        EXPECT_EQ(got[1].lines.size(), 3U);
        EXPECT_EQ(got[2].code, 331);
        EXPECT_TRUE(reader.is_empty());
    }
}

TEST(FtpReplies, WhatIsNoneAndWhatNeverEndsBreaksTheReader) {
    for (const std::string& bytes :
         {std::string("HTTP/1.1 400 Bad\r\n"), std::string("SSH-2.0-x\r\n"), std::string("999 no\r\n"),
          std::string("220+x\r\n"), std::string(70'000, 'x')}) {
        FtpReplyReader reader;
        reader.add(bytes);
        EXPECT_FALSE(reader.take().has_value());
        EXPECT_TRUE(reader.is_broken()) << bytes.substr(0, 20);
    }
    FtpReplyReader long_line;
    long_line.add("220 " + std::string(17 * 1024, 'x') + "\r\n");
    EXPECT_TRUE(long_line.take().has_value()) << "chatty, and a reply all the same";
    FtpReplyReader endless;
    for (int i = 0; i < 1'000'000 && !endless.is_broken(); ++i) {
        endless.add("211-line\r\n");
        EXPECT_FALSE(endless.take().has_value());
    }
    EXPECT_TRUE(endless.is_broken());
}

TEST(FtpReplies, PassiveAddresses) {
    const std::pair<std::string_view, int> pasv[] = {
        {"227 Entering Passive Mode (127,0,0,1,4,210).\r\n", 1234},
        {"227 Entering Passive Mode 127,0,0,1,4,210\r\n", 1234},
        {"227 =127,0,0,1,4,210\r\n", 1234},
        {"227 2 words (127, 0, 0, 1, 4, 210)\r\n", 1234},
        {"227 (127,0,0,1,0,0)\r\n", 0},
        {"227 (127,0,0,1,4,256)\r\n", 0},
        {"227 (127,0,0,1,4)\r\n", 0},
        {"227 (1127,0,0,1,4,2)\r\n", 0},
        {"227\r\n", 0}};
    for (const auto& [text, port] : pasv) {
        const auto where = parse_pasv(reply(text));
        EXPECT_EQ(where ? where->port : 0, port) << text;
    }
    const std::pair<std::string_view, int> epsv[] = {{"229 Ok (|||6446|)\r\n", 6446},
                                                     {"229 Ok (!!!1!)\r\n", 1},
                                                     {"229 Ok (|||65536|)\r\n", 0},
                                                     {"229 Ok (|||0|)\r\n", 0},
                                                     {"229 Ok (|||12\r\n", 0},
                                                     {"229 Ok (||12|)\r\n", 0},
                                                     {"229 Ok (\r\n", 0},
                                                     {"229 Ok\r\n", 0}};
    for (const auto& [text, port] : epsv) EXPECT_EQ(parse_epsv(reply(text)).value_or(0), port) << text;
    EXPECT_EQ(port_argument({10, 0, 200, 3}, 1234), "10,0,200,3,4,210");
    for (const auto& a : {std::array<std::uint8_t, 4>{10, 1, 1, 1},
                          {172, 31, 0, 1},
                          {192, 168, 3, 4},
                          {127, 0, 0, 1},
                          {0, 0, 0, 0},
                          {169, 254, 1, 1},
                          {100, 64, 0, 1},
                          {224, 0, 0, 1}})
        EXPECT_FALSE(is_public_address(a)) << int{a[0]};
    EXPECT_TRUE(is_public_address({172, 32, 0, 1}));
    EXPECT_TRUE(may_lead_to({8, 8, 8, 9}, {8, 8, 8, 8}, false));
    EXPECT_FALSE(may_lead_to({8, 8, 9, 8}, {8, 8, 8, 8}, false)) << "anybody's";
    EXPECT_TRUE(may_lead_to({8, 8, 9, 8}, {8, 8, 8, 8}, true));
    EXPECT_FALSE(may_lead_to({10, 8, 8, 9}, {8, 8, 8, 8}, true)) << "one of this side's own network";
}

TEST(FtpReplies, SizesTimesAndFeatures) {
    EXPECT_EQ(parse_size(reply("213 9223372036854775807\r\n")), 9223372036854775807);
    EXPECT_EQ(parse_size(reply("213 12 bytes\r\n")), 12);
    EXPECT_FALSE(parse_size(reply("213 9223372036854775808\r\n")));
    EXPECT_FALSE(parse_size(reply("213 -1\r\n")));
    EXPECT_FALSE(parse_size(reply("550 12\r\n")));
    EXPECT_EQ(parse_mdtm(reply("213 20240131235959.123\r\n")), "20240131235959");
    EXPECT_EQ(parse_mdtm(reply("213 191240131235959\r\n")), "20240131235959");
    EXPECT_EQ(parse_mdtm(reply("213 2024\r\n")), "");
    EXPECT_EQ(parse_announced_size(reply("150 Opening x (y) (30 bytes).\r\n")), 30);
    EXPECT_FALSE(parse_announced_size(reply("150 Here it comes\r\n")));
    const FtpFeatures features = parse_features(
        reply("211-Features:\r\n MODE Z\r\n211-UTF8\r\n REST STREAM\r\n SIZELESS\r\n MDTM\r\n211 End\r\n"));
    EXPECT_TRUE(features.listed && features.mode_z && features.utf8 && features.rest_stream && features.mdtm);
    EXPECT_FALSE(features.size);
    EXPECT_FALSE(parse_features(reply("211 no features\r\n")).listed);
    EXPECT_FALSE(parse_features(reply("500 MODE Z\r\n")).listed);
}

TEST(FtpReplies, OneTimeChallengesAndRefusals) {
    const auto challenge = parse_otp_challenge(reply("331 Response to otp-md5 487 dOg2, required.\r\n"));
    ASSERT_TRUE(challenge);
    EXPECT_EQ(challenge->algorithm + " " + std::to_string(challenge->sequence) + " " + challenge->seed,
              "otp-md5 487 dog2");
    for (const char* text : {"331 otp-sha512 487 dog\r\n", "331 otp-md5 x dog\r\n",
                             "331 otp-md5 99999 dog\r\n", "331 otp-md5 487\r\n", "331 otp-md5 487 !\r\n"})
        EXPECT_FALSE(parse_otp_challenge(reply(text))) << text;
    EXPECT_TRUE(tells_of_limit(reply("530 Sorry, the maximum number of clients is connected\r\n")));
    EXPECT_TRUE(tells_of_limit(reply("530-Too many users\r\n530 Bye\r\n")));
    EXPECT_FALSE(tells_of_limit(reply("530 Login incorrect.\r\n")));
}

TEST(FtpListings, FormsOfServers) {
    const struct {
        std::string_view line;
        std::string_view name;
        std::int64_t size;
        std::string_view time;
        bool folder;
    } cases[] = {
        {"-rw-r--r--   1 u g   30 Nov 25 03:29 a b.bin", "a b.bin", 30, "Nov 25 03:29", false},
        {"-rw-r--r-- 1 u 30 25 Nov 2024 a", "a", 30, "25 Nov 2024", false},
        {"-rw-r--r--+ 1 u g 5368709120 2024-01-02 10:00 big", "big", 5368709120, "2024-01-02 10:00", false},
        {"drwxr-xr-x 2 u g 4096 Jan  1  2024 pub", "pub", -1, "Jan 1 2024", true},
        {"lrwxrwxrwx 1 u g 7 Jan  1 10:00 l -> target", "l", -1, "Jan 1 10:00", false},
        {"01-31-24  10:00AM             1234 read me.txt", "read me.txt", 1234, "01-31-24 10:00AM", false},
        {"01-31-2024  10:00  <DIR>          dir", "dir", -1, "01-31-2024 10:00", true},
        {"+i1.2,m824255902,/,\tdev", "dev", -1, "824255902", true},
        {"+s12,m824255902,r,\tfile x", "file x", 12, "824255902", false},
        {"Type=file;Size=77;Modify=20240101000000; n m", "n m", 77, "20240101000000", false},
        {"type=dir;modify=20240101000000; d", "d", -1, "20240101000000", true}};
    for (const auto& c : cases) {
        const auto entry = parse_listing_line(c.line);
        ASSERT_TRUE(entry) << c.line;
        EXPECT_EQ(entry->name, c.name);
        EXPECT_EQ(entry->size, c.size) << c.line;
        EXPECT_EQ(entry->time, c.time) << c.line;
        EXPECT_EQ(entry->is_folder, c.folder) << c.line;
    }
    for (const char* line : {"", "total 12", "-rw-r--r--", "-rw-r--r-- 1 u g 12 Jan", "213-Status follows:",
                             "+s12,m1 no tab", "End of status", "a=b; ", "01-31-24 1 2"}) {
        const auto entry = parse_listing_line(line);
        EXPECT_TRUE(!entry || entry->name.empty()) << line;
    }
    const auto found = find_in_listing(reply("213-Status of x:\r\n-rw-r--r-- 1 u g 1 Jan 1 10:00 x.old\r\n"
                                             "-rw-r--r-- 1 u g 2 Jan 1 10:00 ./x\r\n213 End\r\n"),
                                       "x");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->size, 2);
}

TEST(FtpPaths, FoldersFilesAndTypes) {
    const struct {
        std::string_view path;
        std::string_view folder;
        std::string_view file;
        char type;
    } cases[] = {{"/file", "", "file", 'i'},
                 {"/a/b%20c/d%C3%A4.bin;type=A", "a/b c", "d\xC3\xA4.bin", 'a'},
                 {"/%2Fetc/hosts", "/etc", "hosts", 'i'},
                 {"/%2fetc%2Fhosts", "/etc", "hosts", 'i'},
                 {"//etc/hosts", "/etc", "hosts", 'i'},
                 {"/%2Fhosts", "/", "hosts", 'i'},
                 {"/dir/", "dir", "", 'i'},
                 {"/", "", "", 'i'},
                 {"/dir;type=d", "", "dir", 'd'},
                 {"/a;type=ix", "", "a;type=ix", 'i'},
                 {"/x%3Fy?z", "", "x?y?z", 'i'}};
    for (const auto& c : cases) {
        const auto path = parse_ftp_path(c.path);
        ASSERT_TRUE(path) << c.path;
        EXPECT_EQ(path->folder, c.folder) << c.path;
        EXPECT_EQ(path->file, c.file) << c.path;
        EXPECT_EQ(path->type, c.type) << c.path;
    }
    for (const char* path : {"/a%0D%0ADELE%20b", "/x%0A/y", "/a%00b"}) EXPECT_FALSE(parse_ftp_path(path));
    EXPECT_TRUE(is_binary_name("a.zIp", ".EXE;.ZIP"));
    EXPECT_FALSE(is_binary_name("a.zip.txt", ".EXE;.ZIP"));
    EXPECT_FALSE(is_binary_name("zip", ".EXE;.ZIP"));
}

}  // namespace
}  // namespace vantlow::test
