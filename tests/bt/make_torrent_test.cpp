#include "bt/make_torrent.h"

#include <gtest/gtest.h>

#include "base/codes.h"
#include "base/text.h"
#include "platform/file.h"
#include "support/content.h"
#include "support/process_run.h"
#include "support/temp_folder.h"
#include "support/unix_program.h"

namespace vantlow {
namespace {

using test::TempFolder;

// A folder whose order tells several ways of sorting apart, with pieces that span files.
void fill(const TempFolder& folder, const std::u16string& name) {
    const std::u16string sub = join_path(folder.path(name), u"a");
    ASSERT_TRUE(make_folders(join_path(sub, u"sub")).ok());
    ASSERT_TRUE(make_folders(join_path(folder.path(name), u"a b")).ok());
    const auto write = [&](const std::u16string& path, std::size_t size) {
        const std::string bytes = test::make_content(size, size);
        ASSERT_TRUE(write_file_atomically(path, std::as_bytes(std::span(bytes))).ok());
    };
    write(join_path(folder.path(name), u"Z"), 20000);
    write(join_path(folder.path(name), u".hidden"), 1);
    write(join_path(folder.path(name), u"a.txt"), 40000);
    write(join_path(folder.path(name), u"empty"), 0);
    write(join_path(folder.path(name), u"zero last"), 0);
    write(join_path(folder.path(name), u"\u00E4"), 33);
    write(join_path(folder.path(name), u"a b/w"), 5);
    write(join_path(sub, u"z"), 16384);
    write(join_path(sub, u"sub/q"), 100001);
}

std::string pieces_of(const TorrentSource& source, std::int64_t length, unsigned threads) {
    const StopSource stop;
    std::atomic<std::int64_t> done{0};
    auto pieces = hash_pieces(source, length, threads, stop, done);
    EXPECT_TRUE(pieces.ok()) << pieces.failure().message();
    EXPECT_EQ(done, source.total);
    return pieces.ok() ? *pieces : std::string();
}

TEST(MakeTorrent, HashesPiecesAcrossFilesTheSameWithAnyNumberOfThreads) {
    const TempFolder folder(TempFolder::Name::foreign);
    ASSERT_NO_FATAL_FAILURE(fill(folder, u"set"));
    const StopSource stop;
    const auto source = find_torrent_source(folder.path(u"set") + path_separator(), stop);
    ASSERT_TRUE(source.ok()) << source.failure().message();
    std::vector<std::string> order;
    std::string all;
    for (const SourceFile& file : source->files) {
        order.push_back(file.relative);
        std::vector<std::byte> bytes;
        ASSERT_TRUE(read_file(file.path, 1 << 20, bytes).ok());
        all.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    EXPECT_EQ(order, (std::vector<std::string>{".hidden", "Z", "a b/w", "a.txt", "a/sub/q", "a/z", "empty",
                                               "zero last", "\xC3\xA4"}));
    for (const std::size_t length : {std::size_t{1024}, std::size_t{16384}, std::size_t{1} << 20U}) {
        std::string expected;
        for (std::size_t at = 0; at < all.size(); at += length) {
            const InfoHash hash = hash_of(std::string_view(all).substr(at, length));
            expected.append(reinterpret_cast<const char*>(hash.data()), hash.size());
        }
        for (const unsigned threads : {1U, 4U}) {
            EXPECT_EQ(pieces_of(*source, static_cast<std::int64_t>(length), threads), expected) << length;
        }
    }
}

TEST(MakeTorrent, WritesTheKeysInTheirOrder) {
    TorrentSource source;
    source.path = u"/x/name \u00E4";
    source.files = {{u"", "a/b.txt", 5}, {u"", "c", 0}};
    source.total = 5;
    InfoHash hash{};
    const std::string document =
        torrent_document(source, 16384, "12345678901234567890",
                         {u"http://a|http://b\r\nudp://c", u"why \u00E4", 1700000000}, hash);
    const std::string info =
        "d5:filesld6:lengthi5e4:pathl1:a5:b.txteed6:lengthi0e4:pathl1:ceee4:name7:name \xC3\xA4"
        "12:piece lengthi16384e6:pieces20:12345678901234567890e";
    EXPECT_EQ(document,
              "d8:announce8:http://a13:announce-listll8:http://a8:http://bel7:udp://cee8:encoding5:UTF-8"
              "7:comment6:why \xC3\xA4"
              "10:created by12:Vantlow/2.9513:creation datei1700000000e4:info" +
                  info + "e");
    EXPECT_EQ(to_hex(hash), to_hex(hash_of(info)));
    const std::string bare = torrent_document(source, 16384, "", {}, hash);
    EXPECT_TRUE(bare.starts_with("d8:announce0:13:announce-listle8:encoding5:UTF-810:created by")) << bare;
}

TEST(MakeTorrent, KeepsTheBytesOfFetchedMetadata) {
    const std::string info = "d6:pieces0:4:name1:n6:lengthi+5ee";  // neither sorted nor canonical
    CBEncode parser;
    parser.load_memory(torrent_from_metadata({"http://a/4:info0:", "b"}, info, 7));
    const auto document = parser.parse_document();
    ASSERT_TRUE(document);
    EXPECT_EQ(parser.info_copy(), info);
    EXPECT_EQ(parser.rest(), "");
    EXPECT_EQ(document->find_list("announce-list")->items.size(), 1U);
    EXPECT_EQ(torrent_from_metadata({}, "de", 7),
              "d10:created by12:Vantlow/2.9513:creation datei7e8:encoding5:UTF-84:infodee");
}

TEST(MakeTorrent, ChoosesPiecesByTheSize) {
    EXPECT_EQ(choose_piece_length(1), 16 << 10);
    EXPECT_EQ(choose_piece_length(std::int64_t{1} << 50), 16 << 20);
    for (std::int64_t size = 48 << 20; size < std::int64_t{20} << 30; size = size * 5 / 4) {
        const std::int64_t pieces = size / choose_piece_length(size);
        EXPECT_GE(pieces, 1000) << size;
        EXPECT_LE(pieces, 2200) << size;
    }
    if (path_separator() == u'\\') {
        EXPECT_EQ(torrent_path(u"C:\\"), u"C:\\.torrent");
        EXPECT_EQ(torrent_path(u"C:\\a\\\\"), u"C:\\a.torrent");
    } else {
        EXPECT_EQ(torrent_path(u"/a/b/"), u"/a/b.torrent");
    }
}

TEST(MakeTorrent, RefusesWhatHoldsNothingAndWhatChanges) {
    const TempFolder folder;
    const StopSource stop;
    ASSERT_TRUE(make_folders(join_path(folder.path(u"empty"), u"deeper")).ok());
    folder.write(u"nothing", "");
    // Where the system itself resolves "..", it names a folder like any other.
    const std::u16string above = path_separator() == u'/' ? u".." : u"";
    for (const std::u16string& path :
         {folder.path(u"empty"), folder.path(u"nothing"), folder.path(u"none"), std::u16string(), above}) {
        const auto source = find_torrent_source(path, stop);
        EXPECT_FALSE(source.ok()) << to_utf8(path);
        EXPECT_EQ(source.failure().code, Code::local_file);
    }
    folder.write(u"file", std::string(50000, 'x'));
    auto source = find_torrent_source(folder.path(u"file"), stop);
    ASSERT_TRUE(source.ok());
    folder.write(u"file", std::string(49999, 'x'));
    std::atomic<std::int64_t> done{0};
    const auto changed = hash_pieces(*source, 16384, 2, stop, done);
    ASSERT_FALSE(changed.ok());
    EXPECT_NE(changed.failure().message().find("changed"), std::string::npos) << changed.failure().message();
    StopSource stopped;
    stopped.request();
    EXPECT_EQ(hash_pieces(*source, 16384, 2, stopped, done).failure().code, Code::stopped);
}

CBEMetaInfo read_torrent_file(const std::u16string& path) {
    CBEMetaInfo meta;
    CBEncode parser;
    EXPECT_TRUE(parser.load_file(path).ok());
    const auto document = parser.parse_document();
    EXPECT_TRUE(document && parse_meta_info(parser, *document, {}, meta));
    return meta;
}

TEST(MakeTorrent, AgreesWithOtherMakers) {
    const TempFolder folder;
    ASSERT_NO_FATAL_FAILURE(fill(folder, u"set"));
    const std::u16string single = folder.write(u"single", test::make_content(3, 200000));
    for (const std::u16string& path : {folder.path(u"set"), single}) {
        const test::RunResult own = test::run_vantlow(
            {u"torrent", u"make", path, u"--tracker", u"http://t/a", u"--piece-length", u"32K", u"--json"});
        ASSERT_EQ(own.status, 0) << own.err;
        const CBEMetaInfo meta = read_torrent_file(path + u".torrent");
        EXPECT_NE(own.out.find(to_hex(meta.info_hash)), std::string::npos) << own.out;
        const std::u16string mktorrent = test::unix_program("mktorrent");
        const std::u16string transmission = test::unix_program("transmission-create");
        if (mktorrent.empty() || transmission.empty())
            GTEST_SKIP() << "mktorrent or transmission-create is missing";
        const std::u16string other = folder.path(u"other.torrent");
        ASSERT_EQ(
            test::run_program(mktorrent, {u"-l", u"15", u"-a", u"http://t/a", u"-o", other, path}).status, 0);
        EXPECT_EQ(to_hex(read_torrent_file(other).info_hash), to_hex(meta.info_hash));
        static_cast<void>(remove_file(other));
        // This one leaves hidden and empty files out, sorts otherwise, and always says "private".
        if (path != single) continue;
        ASSERT_EQ(
            test::run_program(transmission, {u"-s", u"32", u"-t", u"http://t/a", u"-o", other, path}).status,
            0);
        CBEMetaInfo theirs = read_torrent_file(other);
        EXPECT_EQ(theirs.pieces, meta.pieces);
        const std::string key = "7:privatei0e";
        if (const auto at = theirs.info.find(key); at != std::string::npos) theirs.info.erase(at, key.size());
        EXPECT_EQ(to_hex(hash_of(theirs.info)), to_hex(meta.info_hash));
    }
}

}  // namespace
}  // namespace vantlow
