#include "bt/metainfo.h"

#include <gtest/gtest.h>

#include <limits>

#include "base/codes.h"
#include "bt/extension.h"
#include "bt/magnet.h"
#include "bt/torrent_content.h"

namespace vantlow {
namespace {

constexpr std::string_view tracker = "http://standard/announce";

bool read(std::string_view bytes, CBEMetaInfo& meta) {
    CBEncode parser;
    parser.load_memory(bytes);
    const auto document = parser.parse_document();
    return document && parse_meta_info(parser, *document, {tracker}, meta);
}

// A document around an info dictionary's content.
std::string document(std::string_view before, std::string_view info) {
    return "d" + std::string(before) + "4:infod" + std::string(info) + "ee";
}

constexpr std::string_view single =
    "6:lengthi5e4:name1:n12:piece lengthi16384e6:pieces20:aaaaaaaaaaaaaaaaaaaa";

TEST(MetaInfo, TakesTheTrackersOfTheListInPlaceOfTheSingleOne) {
    using Trackers = std::vector<std::string>;
    const std::pair<const char*, Trackers> cases[] = {
        {"8:announce1:A13:announce-listll1:Bel1:Cee", {"B", "C"}},
        {"8:announce1:A13:announce-listll1:Aee", {"A"}},
        {"8:announce1:A13:announce-listll1:B1:Cel1:D1:Aee", {"B", "C", "D", "A"}},
        {"8:announce1:A13:announce-listl1:Xli1e1:Bed1:a1:bee", {"B"}},
        {"8:announce1:A13:announce-listle", {"A"}},
        {"8:announce1:A", {"A"}},
        {"8:announcei1e", {std::string(tracker)}},
        {"13:announce-listll1:Bee", {"B"}},
        {"", {std::string(tracker)}},
    };
    for (const auto& [before, expected] : cases) {
        CBEMetaInfo meta;
        ASSERT_TRUE(read(document(before, single), meta)) << before;
        EXPECT_EQ(meta.trackers, expected) << before;
    }
}

TEST(MetaInfo, HashesTheInfoValueAsItStandsThere) {
    CBEMetaInfo meta;
    // Neither sorted nor canonical.
    const std::string info = "6:pieces20:aaaaaaaaaaaaaaaaaaaa4:name1:n6:lengthi+5e12:piece lengthi016384e";
    ASSERT_TRUE(read(document("", info), meta));
    EXPECT_EQ(meta.info, "d" + info + "e");
    EXPECT_EQ(to_hex(meta.info_hash), to_hex(hash_of("d" + info + "e")));
    EXPECT_EQ(to_hex(hash_of("abc")), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(meta.piece_length, 16384);
    EXPECT_EQ(meta.pieces.size(), 20U);
}

TEST(MetaInfo, PutsEachPathWhereItsEncodingBelongs) {
    CBEMetaInfo meta;
    const std::string files =
        "5:filesl"
        "d6:lengthi1e4:pathl1:a5:b.txtee"
        "d6:lengthi2e4:pathl2:\304\351ee"  // no UTF-8
        "d6:lengthi3e4:pathl2:xxe10:path.utf-8l2:\xC3\xA4"
        "1:cee"
        "e4:name1:n12:piece lengthi1e6:pieces0:";
    ASSERT_TRUE(read(document("", files), meta));
    EXPECT_TRUE(meta.is_multi_file);
    EXPECT_EQ(meta.paths_utf8, (std::vector<std::string>{"\\a\\b.txt", "\\\xC3\xA4\\c"}));
    EXPECT_EQ(meta.paths_local, (std::vector<std::string>{"\\\xC4\xE9"}));
    EXPECT_EQ(meta.sizes, (std::vector<std::uint64_t>{1, 2, 3}));
    EXPECT_EQ(meta.total_size(), 6);
    const auto list = meta.files();
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0].path, u"\\a\\b.txt");
    EXPECT_EQ(list[2].path, u"\\\u00E4\\c");
    EXPECT_EQ(list[2].size, 3U);

    ASSERT_TRUE(read(document("8:encoding4:UTF8", files), meta));
    EXPECT_TRUE(meta.utf8);
    EXPECT_EQ(meta.paths_utf8.size(), 3U) << "declared";
    ASSERT_TRUE(read(document("8:encoding6:utf-16", single), meta));
    EXPECT_FALSE(meta.utf8);
    EXPECT_EQ(meta.paths_utf8, (std::vector<std::string>{"n"}));
    EXPECT_EQ(meta.name(), u"n");
    ASSERT_TRUE(read(document("",
                              "6:lengthi5e4:name1:\xE9"
                              "12:piece lengthi1e6:pieces0:"),
                     meta));
    EXPECT_EQ(meta.name_local, "\xE9");
    EXPECT_TRUE(meta.name_utf8.empty());
    ASSERT_TRUE(read(document("", "6:lengthi5e4:name1:x10:name.utf-81:y12:piece lengthi1e6:pieces0:"), meta));
    EXPECT_EQ(meta.name_utf8, "y");
}

TEST(MetaInfo, RefusesWhatLacksAPart) {
    CBEMetaInfo meta;
    for (const char* info : {
             "6:lengthi5e4:name1:n6:pieces0:",                                          // piece length
             "6:lengthi5e4:name1:n12:piece length1:16:pieces0:",                        // its kind
             "6:lengthi5e12:piece lengthi1e6:pieces0:",                                 // name
             "4:name1:n12:piece lengthi1e6:pieces0:",                                   // length
             "6:lengthi5e4:name1:n12:piece lengthi1e",                                  // pieces
             "5:filesi1e4:name1:n12:piece lengthi1e6:pieces0:",                         // files: its kind
             "5:filesl1:ae4:name1:n12:piece lengthi1e6:pieces0:",                       // a file: its kind
             "5:filesld6:lengthi1eee4:name1:n12:piece lengthi1e6:pieces0:",             // path
             "5:filesld4:pathl1:aeee4:name1:n12:piece lengthi1e6:pieces0:",             // length of a file
             "5:filesld6:lengthi1e4:pathli1eeee4:name1:n12:piece lengthi1e6:pieces0:",  // a component
         }) {
        EXPECT_FALSE(read(document("", info), meta)) << info;
    }
    EXPECT_FALSE(read("d4:info1:xe", meta));
    EXPECT_FALSE(read("de", meta));
    // A total that no 64-bit position can hold is seen, not computed with.
    ASSERT_TRUE(read(document("", "6:lengthi-1e4:name1:n12:piece lengthi1e6:pieces0:"), meta));
    EXPECT_EQ(meta.total_size(), std::nullopt);
}

// Refused by its numbers, before anything is made for each piece; what fits is taken, also in huge pieces.
TEST(TorrentContent, HasNoMorePiecesThanASwarmBears) {
    const auto info = [](std::int64_t length, std::int64_t piece, std::int64_t pieces) {
        const std::string digests(static_cast<std::size_t>(pieces) * 20, 'a');
        return "d6:lengthi" + std::to_string(length) + "e4:name1:n12:piece lengthi" + std::to_string(piece) +
               "e6:pieces" + std::to_string(digests.size()) + ":" + digests + "e";
    };
    constexpr std::int64_t most = std::int64_t{2} * 1024 * 1024;
    constexpr std::int64_t giant = std::int64_t{1} << 31U;
    EXPECT_TRUE(read_torrent_content(info(most, 1, most)));
    EXPECT_EQ(read_torrent_content(info(most + 1, 1, most + 1)).failure().message(),
              "The torrent has more than two million pieces.");
    EXPECT_FALSE(read_torrent_content(info(1'000'000'000, 1, 3)))
        << "a billion pieces, whose digests are not there";
    EXPECT_TRUE(read_torrent_content(info(2 * giant, giant, 2)));
    EXPECT_FALSE(read_torrent_content(info(4 * giant, 2 * giant, 2)))
        << "longer than messages between peers can say";
    EXPECT_FALSE(read_torrent_content(info(std::numeric_limits<std::int64_t>::max(), giant, 1)));
}

// Nobody is served by half of each: names, sizes and hashes are those of the first version, whatever the
// second says.
TEST(TorrentContent, OfAHybridTheFirstVersionAloneCounts) {
    const std::string first =
        "5:filesld6:lengthi5e4:pathl1:aeed4:attr1:p6:lengthi16379e4:pathl4:.pad5:16379eed6:lengthi7e4:pathl1:"
        "beee";
    const std::string rest = "12:meta versioni2e4:name1:n12:piece lengthi16384e";
    const std::string pieces = "6:pieces40:" + std::string(40, 'a');
    const std::string root = "11:pieces root32:" + std::string(32, 'r');
    const auto tree = [](const std::string& entries) { return "9:file treed" + entries + "e"; };
    const auto entry = [&](const std::string& name, int length) {
        return std::to_string(name.size()) + ":" + name + "d0:d6:lengthi" + std::to_string(length) + "e" +
               root + "ee";
    };
    const std::string trees[] = {
        tree(entry("a", 5) + entry("b", 7)),
        tree(entry("a", 5000) + entry("b", 7)),
        tree(entry("a", 5) + entry("other", 7)),
        tree(entry("../../etc", 1)),
        "9:file treei1e",
        tree(""),
    };
    for (const std::string& second : trees) {
        const auto content = read_torrent_content("d" + second + first + rest + pieces + "e");
        ASSERT_TRUE(content) << second;
        ASSERT_EQ(content->files.size(), 3U);
        EXPECT_EQ(content->files[0].path, u"\\a");
        EXPECT_EQ(content->files[2].path, u"\\b");
        EXPECT_EQ(content->files[2].length, 7);
        EXPECT_TRUE(content->files[1].padding && !content->files[0].padding && !content->files[2].padding);
        EXPECT_EQ(content->total, 16384 + 7);
        // The hashes of the first version are missing, or are those of other sizes.
        EXPECT_FALSE(read_torrent_content("d" + second + first + rest + "e"));
        EXPECT_FALSE(
            read_torrent_content("d" + second + first + rest + "6:pieces20:" + std::string(20, 'a') + "e"));
    }
}

TEST(MetaInfo, ReadsBareMetadata) {
    CBEncode parser;
    parser.load_memory("d" + std::string("6:lengthi5e4:name2:\xFF\xFE"
                                         "12:piece lengthi8ee"));
    const auto info = parser.parse_document();
    ASSERT_TRUE(info);
    CBEMetaInfo meta;
    ASSERT_TRUE(parse_meta_info(parser, *info, {{}, true, true}, meta));
    EXPECT_EQ(meta.name_utf8, "\xFF\xFE") << "as the argument says";
    EXPECT_TRUE(meta.trackers.empty());
    EXPECT_EQ(meta.sizes, (std::vector<std::uint64_t>{5}));
}

TEST(MetaInfo, ReadsTheNodesOfTheHashTable) {
    CBEMetaInfo meta;
    ASSERT_TRUE(read(document("5:nodesl"
                              "l7:1.2.3.4i6881ee"
                              "l16:0123456789abcdefi1ee"
                              "l9:localhosti1ee"  // no name
                              "l7:1.2.3.4i0ee"
                              "l7:1.2.3.4i65536ee"
                              "l7:1.2.3.4e"
                              "7:1.2.3.4"
                              "e",
                              single),
                     meta));
    ASSERT_EQ(meta.nodes.size(), 2U);
    EXPECT_FALSE(meta.nodes[0].is_ipv6);
    EXPECT_EQ(meta.nodes[0].address[3], 4);
    EXPECT_EQ(meta.nodes[0].port, 6881);
    EXPECT_TRUE(meta.nodes[1].is_ipv6);
    EXPECT_EQ(meta.nodes[1].address[15], 'f');
}

TEST(TorrentUtf8, AllowsLongFormsButNoOverlongOnes) {
    for (const char* good :
         {"", "abc", "\xC2\x80", "\xE0\xA0\x80", "\xED\xA0\x80", "\xF0\x90\x80\x80", "\xF8\x88\x80\x80\x80",
          "\xFC\x84\x80\x80\x80\x80", "\xFD\xBF\xBF\xBF\xBF\xBF"}) {
        EXPECT_TRUE(is_torrent_utf8(good)) << good;
    }
    for (const char* bad :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xF8\x87\xBF\xBF\xBF",
          "\xFC\x83\xBF\xBF\xBF\xBF", "\xC2", "\xC2x", "\xE2\x82", "\xFE\x80\x80\x80\x80\x80\x80", "\xFF"}) {
        EXPECT_FALSE(is_torrent_utf8(bad)) << bad;
    }
}

TEST(Magnet, ReadsTheHashInBothForms) {
    const std::string hex = "0123456789ABCDEFabcdef0123456789abcdef01";
    const std::string base32 = "AERUKZ4JVPG67K6N54ASGRLHRGV433YB";
    const auto hash = [](const std::string& text) {
        const auto magnet = parse_magnet(text, {});
        return magnet ? to_hex(magnet->info_hash) : "none";
    };
    const std::string expected = "0123456789abcdefabcdef0123456789abcdef01";
    for (const std::string& text : {hex, base32, std::string("aerukz4jvpg67k6n54asgrlhrgv433yb")}) {
        EXPECT_EQ(hash("magnet:?xt=urn:btih:" + text), expected) << text;
        EXPECT_EQ(hash("dn=x&xt=urn:btih:" + text + "&tr=y"), expected) << text;
    }
    for (const std::string& text : {hex.substr(1), hex + "0", std::string("z") + hex.substr(1), base32 + "A",
                                    std::string(), std::string(200, 'A')}) {
        EXPECT_EQ(hash("magnet:?xt=urn:btih:" + text), "none") << text;
    }
    EXPECT_EQ(hash("magnet:?XT=urn:btih:" + hex), "none");
    EXPECT_EQ(hash("magnet:?xt=urn:btmh:" + hex), "none");
}

TEST(Magnet, ReadsTrackersAsFarAsTheyAreNumbered) {
    const std::string hash = "xt=urn:btih:0123456789abcdefabcdef0123456789abcdef01";
    const std::vector<std::string> four{"1", "2", "3", "4"};
    using Trackers = std::vector<std::string>;
    const std::pair<const char*, Trackers> cases[] = {
        {"", four},
        {"&tr=a&tr=b&tr=c", {"a", "1", "2", "3", "4"}},
        {"&tr.0=a&tr.1=b&tr.3=d", {"a", "b"}},
        {"&tr.1=b", four},
        {"&tr=x&tr.1=b&tr.0=a", {"x", "a", "b"}},
    };
    for (const auto& [text, expected] : cases) {
        const auto magnet = parse_magnet(hash + text, four);
        ASSERT_TRUE(magnet) << text;
        EXPECT_EQ(magnet->trackers, expected) << text;
    }
    EXPECT_EQ(parse_magnet(hash + "&dn=a%20b+c", {})->name, "a%20b+c");
    EXPECT_EQ(tracker_from_magnet("udp%3A%2F%2Fhost%3a80%2Fannounce"), "udp://host:80/announce");
    EXPECT_EQ(tracker_from_magnet("http://host/a%20b"), "http://host/a%20b");
}

TEST(Magnet, OtherTrackersStandInPlaceOfItsOwn) {
    const std::string hash = "xt=urn:btih:0123456789abcdef0123456789abcdef01234567";
    const std::vector<std::string> defaults{"udp://default:1/"};
    for (const std::string& link :
         {"magnet:?" + hash +
              "&dn=a%20b&x.pe=1.2.3.4:5&x.pe=host.example%3A6&x.pe=a/b:7&ws=http%3A%2F%2Fh%2F",
          hash + "&tr=udp%3A%2F%2Fx&dn=a", "magnet:?tr.0=http://a/b&" + hash + "&tr.1=http://c/"}) {
        for (const auto& wanted :
             {std::vector<std::string>{}, std::vector<std::string>{"http://t/a?k=1&l=2", "udp://t:1/"}}) {
            const std::string changed = with_trackers(link, wanted);
            const auto before = parse_magnet(link, {});
            const auto after = parse_magnet(changed, defaults);
            ASSERT_TRUE(after) << changed;
            std::vector<std::string> trackers;
            for (const std::string& one : after->trackers) {
                if (!one.empty()) trackers.push_back(tracker_from_magnet(one));
            }
            EXPECT_EQ(trackers, wanted) << changed;
            EXPECT_EQ(after->name, before->name);
            EXPECT_EQ(after->web_seeds, before->web_seeds);
            const bool has_peers = link.find("x.pe") != std::string::npos;
            EXPECT_EQ(after->peers.size(), has_peers ? 1U : 0U);
            ASSERT_EQ(after->named_peers.size(), has_peers ? 1U : 0U);
            EXPECT_TRUE(!has_peers || after->named_peers[0].host == "host.example");
        }
    }
}

TEST(Extension, HandshakesGoOutInTheirOrderAndComeBack) {
    using namespace std::string_literals;
    EXPECT_EQ(build_extension_handshake(0, 0, u""), "\0\0\0\x1B\x14\0d1:md11:ut_metadatai15eee"s);
    EXPECT_EQ(build_extension_handshake(1234, 6881, u"V\u00E4"),
              "\0\0\0\x42\x14\0d1:md11:ut_metadatai15ee13:metadata_sizei1234e1:pi6881e1:v3:V\xC3\xA4"
              "e"s);
    const auto read_back =
        parse_extension_handshake("d1:md11:ut_metadatai3ee13:metadata_sizei9e1:pi5e1:v1:xe");
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->metadata_number, 3);
    EXPECT_EQ(read_back->metadata_size, 9);
    EXPECT_EQ(read_back->port, 5);
    EXPECT_EQ(read_back->version, u"x");
    EXPECT_FALSE(read_back->upload_only);
    const std::string gives = build_extension_handshake(0, 5, u"x", false, true).substr(6);
    EXPECT_TRUE(gives.ends_with("1:pi5e11:upload_onlyi1e1:v1:xe")) << "in the order of the keys";
    EXPECT_TRUE(parse_extension_handshake(gives)->upload_only);
    const auto without = parse_extension_handshake("d1:mi1e13:metadata_size1:9e");
    ASSERT_TRUE(without);
    EXPECT_EQ(without->metadata_number, std::nullopt);
    EXPECT_EQ(without->metadata_size, std::nullopt);
    EXPECT_FALSE(parse_extension_handshake("le"));
}

TEST(Extension, MetadataMessagesCarryTheirBytesBehindTheDictionary) {
    using namespace std::string_literals;
    EXPECT_EQ(build_metadata_message(3, {0, 2, 0, ""}),
              "\0\0\0\x1B\x14\x03"
              "d8:msg_typei0e5:piecei2ee"s);
    const std::string data = "d1:a"s + '\0' + "e";
    const std::string message = build_metadata_message(3, {1, 0, 6, data});
    EXPECT_EQ(message.substr(4, 2), "\x14\x03");
    const auto back = parse_metadata_message(std::string_view(message).substr(6));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->type, 1);
    EXPECT_EQ(back->total_size, 6);
    EXPECT_EQ(back->data, data);
    EXPECT_FALSE(parse_metadata_message("d5:piecei2ee"));
    EXPECT_FALSE(parse_metadata_message("8:msg_type"));
}

}  // namespace
}  // namespace vantlow
