// Metalink descriptions of both versions, as tools write them and as they are broken.
#include "meta/metalink.h"

#include <gtest/gtest.h>

#include <chrono>

#include "base/codes.h"
#include "base/text.h"
#include "meta/xml_simple.h"

namespace vantlow {
namespace {

using Urls = std::vector<std::string>;

std::vector<CMetalinkNode> read(const std::string& text) {
    return CMetalink(std::as_bytes(std::span(text.data(), text.size()))).files();
}

// A version 3 description of one file.
CMetalinkNode read_one(const std::string& inside) {
    const auto files =
        read("<metalink version=\"3.0\"><files><file name=\"a\">" + inside + "</file></files></metalink>");
    EXPECT_EQ(files.size(), 1U);
    return files.empty() ? CMetalinkNode{} : files.front();
}

CMetalinkNode with_urls(const std::string& urls) {
    return read_one("<resources>" + urls + "</resources>");
}

CMetalinkNode with_pieces(const std::string& pieces) {
    return read_one("<verification>" + pieces + "</verification>");
}

std::string hash_element(int piece, const std::string& digest) {
    return "<hash piece=\"" + std::to_string(piece) + "\">" + digest + "</hash>";
}

const std::string sha1_a(40, 'a');
const std::string sha1_b(40, 'b');

TEST(Metalink, ReadsWhatCommonToolsWrite) {
    const auto files = read(R"(<?xml version="1.0" encoding="utf-8"?>
<metalink version="3.0" xmlns="http://www.metalinker.org/" type="dynamic" origin="http://e/x.metalink">
  <publisher><name>P</name><url>http://publisher.example/</url></publisher>
  <files>
    <file name="dir/a&amp;b &#233;.iso">
      <os>Linux-x64</os>
      <size> 629145 </size>
      <verification>
        <hash type="md5">00112233445566778899aabbccddeeff</hash>
        <hash type="sha1">)" +
                            sha1_a + R"(</hash>
        <hash type="crc32">01020304</hash>
        <pieces type="sha1" length="262144">
          <hash piece="0">)" +
                            sha1_a + "</hash>\n<hash piece=\"1\">\n  " + sha1_b + R"(
          </hash><hash piece="2">)" +
                            sha1_b + R"(</hash>
        </pieces>
        <signature type="pgp" file="a.sig">-----BEGIN</signature>
      </verification>
      <resources maxconnections="5">
        <url type="ftp" location="de" preference="10">ftp://one/a</url>
        <url type="bittorrent">http://one/a.torrent</url>
        <url type="HTTP" preference="100"> http://two/a?x=1&amp;y=2 </url>
        <url type="rsync">rsync://three/a</url>
        <url type="http"></url>
        <url>https://four/a</url>
      </resources>
    </file>
    <file name='b'><resources><url type="ed2k">ed2k://|file|b|1|h|/</url></resources></file>
  </files>
</metalink>)");
    ASSERT_EQ(files.size(), 2U);
    const CMetalinkNode& a = files[0];
    EXPECT_EQ(a.name, "dir/a&b \xC3\xA9.iso");
    EXPECT_EQ(a.size, 629145);
    EXPECT_EQ(a.urls, (Urls{"ftp://one/a", "http://two/a?x=1&y=2", "https://four/a"}));
    EXPECT_TRUE(a.plain);
    EXPECT_EQ(a.hash_type, CMetalinkNode::sha1);
    EXPECT_EQ(a.piece_length, 262144);
    EXPECT_EQ(a.piece_count, 3);
    EXPECT_EQ(to_hex(a.piece_hashes), sha1_a + sha1_b + sha1_b);
    ASSERT_EQ(a.hashes.size(), 2U);
    EXPECT_EQ(to_hex(a.hashes[0].digest), "00112233445566778899aabbccddeeff");
    EXPECT_EQ(a.hashes[1].kind, DigestKind::sha1);
    EXPECT_EQ(files[1].name, "b");
    EXPECT_EQ(files[1].size, -1);
    EXPECT_EQ(files[1].hash_type, CMetalinkNode::no_hashes);
    EXPECT_FALSE(files[1].plain);
}

TEST(Metalink, PrefersPlainMirrorsToPeers) {
    const struct {
        const char* urls;
        Urls expected;
        bool plain;
    } cases[] = {
        {"<url type=\"bittorrent\">t</url><url type=\"http\">h</url>", {"h"}, true},
        {"<url type=\"ed2k\">e</url><url type=\"bittorrent\">t</url>", {"e"}, false},
        {"<url type=\"bittorrent\">t</url><url type=\"ed2k\">e</url>", {"t"}, false},
        {"<URL TYPE=\"FtpS\">f</URL><url type=\"https\" />", {"f"}, true},
        {"<url type=\"rsync\">r</url>", {}, false},
        {"<url type=http preference=9>h</url><url type=\"http\">i</url >", {"h"}, true},
        {"<url type=\"http\"><![CDATA[http://h/?a&b]]></url>", {"http://h/?a&b"}, true},
    };
    for (const auto& c : cases) {
        const CMetalinkNode node = with_urls(c.urls);
        EXPECT_EQ(node.urls, c.expected) << c.urls;
        EXPECT_EQ(node.plain, c.plain) << c.urls;
    }
}

TEST(Metalink, TakesAllPieceHashesOrNone) {
    const auto pieces = [](const std::string& attributes, const std::string& hashes) {
        return "<pieces " + attributes + ">" + hashes + "</pieces>";
    };
    const std::string md(32, '5');
    const CMetalinkNode md4 = with_pieces(pieces("TYPE=\"md4\" Length=\"10\"", hash_element(0, md)));
    EXPECT_EQ(md4.hash_type, CMetalinkNode::md4);
    EXPECT_EQ(md4.piece_hashes.size(), 16U);
    const CMetalinkNode no_length = with_pieces(pieces("type=\"md5\"", hash_element(0, md)));
    EXPECT_EQ(no_length.hash_type, CMetalinkNode::md5);
    EXPECT_EQ(no_length.piece_length, 0);

    const std::string sha1 = "type=\"sha1\" length=\"10\"";
    for (const std::string& bad : {
             pieces(sha1, hash_element(0, sha1_a) + hash_element(2, sha1_a)),
             pieces(sha1, hash_element(1, sha1_a)),
             pieces(sha1, hash_element(0, sha1_a) + hash_element(1, sha1_a.substr(1))),
             pieces(sha1, hash_element(0, sha1_a + "a")),
             pieces(sha1, hash_element(0, std::string(39, 'a') + "g")), pieces(sha1, hash_element(0, "")),
             pieces(sha1, "<hash>" + sha1_a + "</hash>"), pieces(sha1, ""),
             pieces("type=\"sha256\"", hash_element(0, std::string(64, 'a'))),
             pieces("length=\"10\"", hash_element(0, sha1_a)),
             "<pieces " + sha1 + ">" + hash_element(0, sha1_a),  // never closed
         }) {
        const CMetalinkNode node = with_pieces(bad);
        EXPECT_EQ(node.hash_type, CMetalinkNode::no_hashes) << bad;
        EXPECT_TRUE(node.piece_hashes.empty()) << bad;
        EXPECT_EQ(node.piece_count, 0) << bad;
    }
}

TEST(Metalink, ReadsVersion4) {
    const std::string sha256(64, 'c');
    const auto files = read(R"(<metalink xmlns="urn:ietf:params:xml:ns:metalink">
  <generator>G</generator>
  <file name="f.ext">
    <size>14471447</size>
    <hash type="sha-256">)" +
                            sha256 + R"(</hash>
    <pieces length="1048576" type="sha-256"><hash>)" +
                            sha256 + "</hash><hash>" + sha256 + R"(</hash></pieces>
    <hash type="md5">00112233445566778899aabbccddeeff</hash>
    <metaurl mediatype="torrent" priority="1">http://t/f.torrent</metaurl>
    <url location="de">http://last/f</url>
    <url location="fr" priority="2">https://second/f</url>
    <url priority="1">ftp://first/f</url>
    <url priority="2">http://third/f</url>
  </file>
  <file name="g"><metaurl mediatype="torrent">http://t/g.torrent</metaurl></file>
</metalink>)");
    ASSERT_EQ(files.size(), 2U);
    EXPECT_EQ(files[0].urls, (Urls{"ftp://first/f", "https://second/f", "http://third/f", "http://last/f"}));
    EXPECT_EQ(files[0].size, 14471447);
    EXPECT_EQ(files[0].hash_type, CMetalinkNode::sha256);
    EXPECT_EQ(files[0].piece_count, 2);
    ASSERT_EQ(files[0].hashes.size(), 2U);
    EXPECT_EQ(files[0].hashes[0].kind, DigestKind::sha256);
    EXPECT_EQ(files[0].hashes[1].kind, DigestKind::md5);
    EXPECT_EQ(files[1].urls, Urls{"http://t/g.torrent"});
    EXPECT_FALSE(files[1].plain);
    // Without the name space it is version 4 all the same: there are no "files".
    EXPECT_EQ(read("<Metalink><FILE NAME=\"x\"><url>http://h/</url></FILE></Metalink>").at(0).urls,
              Urls{"http://h/"});
}

TEST(Metalink, BrokenFilesYieldFewerRecordsInLittleTime) {
    for (const char* text :
         {"", "<", "<files", "<metalink>", "<files></files>", "no tags", "<files><file name=\"a\">",
          "<files><file name=\"a\"></files>", "\xFF\xFE<\0f"}) {
        EXPECT_TRUE(read(text).empty()) << text;
    }
    EXPECT_TRUE(read_one("<size>many</size>").size == -1);
    EXPECT_EQ(read_one("<size>12 bytes</size>").size, 12);
    EXPECT_EQ(read("<FILES><File name=a></File><file/><file name=b />").size(), 0U) << "files never ends";

    const auto begun = std::chrono::steady_clock::now();
    std::string many = "<files>";
    for (int i = 0; i < 200'000; ++i) many += "<file name=\"x\"><verification><pieces type=\"sha1\">";
    EXPECT_TRUE(read(many + "</files>").empty());
    many.clear();
    for (int i = 0; i < 200'000; ++i) many += "<file name=\"x\"></file>";
    EXPECT_EQ(read("<files>" + many + "</files>").size(), 200'000U);
    // Minutes where time grows with the square; the rest is for sanitizers on a busy machine.
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(60));
}

TEST(Metalink, AFragmentBehindTheExtensionSelects) {
    for (const auto& [path, file, fragment] : {std::tuple{u"/x/A.MetaLink#2", u"/x/A.MetaLink", u"2"},
                                               {u"a.metalink", u"a.metalink", u""},
                                               {u"a.meta4#dir/b#c", u"a.meta4", u"dir/b#c"},
                                               {u"a#b.iso", u"a#b.iso", u""}}) {
        const MetalinkPath split = split_metalink_path(path);
        EXPECT_EQ(to_utf8(split.file), to_utf8(file));
        EXPECT_EQ(to_utf8(split.fragment), to_utf8(fragment));
    }
}

TEST(XmlSimple, FollowsItsOwnTolerantRules) {
    const CXMLSimple xml("<a><FILES x=1 y = \"2 3\" url='4'/><file>1</files></file></a>");
    const auto files = CXMLSimple::find_element(xml.document(), "file");
    ASSERT_TRUE(files);
    EXPECT_EQ(files->all.text, "<FILES x=1 y = \"2 3\" url='4'/>") << "a tag is found by its beginning";
    EXPECT_EQ(CXMLSimple::attribute(files->all, "x"), "1");
    EXPECT_EQ(CXMLSimple::attribute(files->all, "y"), "2 3");
    EXPECT_EQ(CXMLSimple::attribute(files->all, "url"), "4");
    EXPECT_FALSE(CXMLSimple::attribute(files->all, "z"));
    const auto file = CXMLSimple::find_element(xml.document().from(files->next), "file");
    ASSERT_TRUE(file);
    EXPECT_EQ(CXMLSimple::content(file->all), "1</files>");
    EXPECT_FALSE(CXMLSimple::find_element(xml.document(), "b"));
    EXPECT_EQ(decode_entities("&lt;&#x41;&#66;&amp;amp;&bogus;&#0;&#xD800;&"),
              "<AB&amp;&bogus;&#0;&#xD800;&");
}

}  // namespace
}  // namespace vantlow
