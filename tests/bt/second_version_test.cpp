// Torrents of the second version (BEP 52): their documents, their trees of digests, and what peers say of
// them.
#include <gtest/gtest.h>

#include "base/codes.h"
#include "bt/magnet.h"
#include "bt/peer/peer_wire.h"
#include "bt/peer/picker.h"
#include "bt/piece_layers.h"
#include "support/content.h"

namespace vantlow {
namespace {

constexpr std::int64_t leaf = 16 * 1024;
constexpr std::int64_t piece_length = 2 * leaf;

std::string text_of(const MerkleRoot& hash) {
    return {reinterpret_cast<const char*>(hash.data()), hash.size()};
}

// The tree as the standard describes it, written out: all leaves, filled up to a power of two.
std::vector<MerkleRoot> level_over(std::string_view bytes, unsigned level, std::size_t width) {
    std::vector<MerkleRoot> row(width);
    for (std::size_t at = 0; at * leaf < bytes.size(); ++at)
        row[at] = long_hash_of(bytes.substr(at * leaf, leaf));
    for (; level > 0; --level) {
        std::vector<MerkleRoot> above;
        for (std::size_t i = 0; i < row.size(); i += 2)
            above.push_back(long_hash_of(text_of(row[i]) + text_of(row[i + 1])));
        row = std::move(above);
    }
    return row;
}

std::string string(std::string_view bytes) {
    return std::to_string(bytes.size()) + ":" + std::string(bytes);
}

/// A folder: "a" of 5 pieces and a bit, "b/c" of less than one, "b/none", and "d" of exactly 2.
struct Sample {
    std::string a = test::make_content(1, 5 * piece_length + 100);
    std::string c = test::make_content(2, 700);
    std::string d = test::make_content(3, 2 * piece_length);
    MerkleRoot a_root = level_over(a, 4, 16).front();
    MerkleRoot c_root = long_hash_of(c);
    MerkleRoot d_root = level_over(d, 2, 4).front();
    std::string a_layer;
    std::string d_layer;

    Sample() {
        const auto pieces = level_over(a, 1, 16);
        for (std::size_t i = 0; i < 6; ++i) a_layer += text_of(pieces[i]);
        for (const MerkleRoot& node : level_over(d, 1, 4)) d_layer += text_of(node);
    }
    static std::string file(std::int64_t length, const MerkleRoot& root) {
        return "d0:d6:lengthi" + std::to_string(length) + "e11:pieces root32:" + text_of(root) + "ee";
    }
    [[nodiscard]] std::string info(std::string_view a_size = {}) const {
        const std::string first = a_size.empty() ? file(static_cast<std::int64_t>(a.size()), a_root)
                                                 : "d0:d6:lengthi" + std::string(a_size) +
                                                       "e11:pieces root32:" + text_of(a_root) + "ee";
        return "d9:file treed1:a" + first + "1:bd1:c" + file(700, c_root) + "4:noned0:d6:lengthi0eeee1:d" +
               file(2 * piece_length, d_root) + "e12:meta versioni2e4:name4:tree12:piece lengthi32768ee";
    }
    [[nodiscard]] std::string document() const {
        return "d4:info" + info() + "12:piece layersd32:" + text_of(a_root) + string(a_layer) +
               "32:" + text_of(d_root) + string(d_layer) + "ee";
    }
    [[nodiscard]] TorrentContent content() const { return *read_torrent_content(info()); }
};

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

bool is_right(const TorrentHashes& hashes, std::int64_t piece, std::string_view bytes) {
    PieceDigest digest(hashes.hash_of(piece));
    digest.update(bytes_of(bytes));
    return digest.matches();
}

TEST(SecondVersion, EveryFileBeginsWithAPieceAndIsHeldAgainstItsTree) {
    const Sample sample;
    const TorrentContent content = sample.content();
    EXPECT_EQ(content.piece_count(), 6 + 1 + 2);
    EXPECT_EQ(to_hex(content.info_hash), to_hex(long_hash_of(content.info)).substr(0, 40));
    std::vector<std::pair<std::u16string, std::int64_t>> named;
    std::int64_t at = 0;
    for (const NamedFile& file : content.files) {
        if (!file.padding) named.emplace_back(file.path, file.length);
        if (!file.padding && file.length > 0) {
            EXPECT_EQ(at % piece_length, 0);
        }
        at += file.length;
    }
    EXPECT_EQ(named, (std::vector<std::pair<std::u16string, std::int64_t>>{{u"\\a", 5 * piece_length + 100},
                                                                           {u"\\b\\c", 700},
                                                                           {u"\\b\\none", 0},
                                                                           {u"\\d", 2 * piece_length}}));
    EXPECT_EQ(at, content.total);

    const TorrentHashes hashes(content, layers_of_document(bytes_of(sample.document()), content));
    EXPECT_TRUE(is_right(hashes, 0, sample.a.substr(0, piece_length)));
    EXPECT_TRUE(is_right(hashes, 5, sample.a.substr(5 * piece_length)));
    EXPECT_TRUE(is_right(hashes, 6, sample.c));
    EXPECT_TRUE(is_right(hashes, 8, sample.d.substr(piece_length)));
    EXPECT_FALSE(is_right(hashes, 7, sample.d.substr(piece_length))) << "another piece";
    EXPECT_FALSE(is_right(hashes, 5, sample.a.substr(5 * piece_length, 99)));
    EXPECT_FALSE(is_right(hashes, 9, "")) << "there is none";
    EXPECT_EQ(hashes.padding_of(0), 0);
    EXPECT_EQ(hashes.padding_of(5), piece_length - 100);

    Picker picker(content.total, piece_length, 1, content.shorter_pieces());
    std::vector<std::uint32_t> lengths;
    for (std::uint32_t piece = 0; piece < picker.pieces(); ++piece)
        lengths.push_back(picker.length_of(piece));
    EXPECT_EQ(lengths, (std::vector<std::uint32_t>{piece_length, piece_length, piece_length, piece_length,
                                                   piece_length, 100, 700, piece_length, piece_length}));
}

TEST(SecondVersion, DigestsOfPiecesAreBelievedWhereTheyLeadToTheFileAlone) {
    const Sample sample;
    const TorrentContent content = sample.content();
    EXPECT_EQ(missing_layers(content, layers_of_document(bytes_of(sample.document()), content)), 0U);
    std::string changed = sample.document();
    changed[changed.size() - 10] = static_cast<char>(changed[changed.size() - 10] ^ 1);
    const PieceLayers some = layers_of_document(bytes_of(changed), content);
    EXPECT_EQ(missing_layers(content, some), 1U);
    EXPECT_TRUE(some.contains(sample.a_root));
    const std::string short_one = "d4:info" + sample.info() + "12:piece layersd32:" + text_of(sample.a_root) +
                                  string(sample.a_layer.substr(32)) + "32:" + std::string(32, 'x') +
                                  string(sample.d_layer) + "ee";
    EXPECT_TRUE(layers_of_document(bytes_of(short_one), content).empty());

    // What peers gave is put into the document, which stays what it is otherwise.
    const std::string whole = with_layers(bytes_of("d7:comment2:hi4:info" + sample.info() + "e"),
                                          layers_of_document(bytes_of(sample.document()), content));
    EXPECT_EQ(info_of_document(bytes_of(whole)), sample.info());
    EXPECT_EQ(facts_of_document(bytes_of(whole)).comment, "hi");
    EXPECT_EQ(missing_layers(content, layers_of_document(bytes_of(whole), content)), 0U);
}

TEST(SecondVersion, DocumentsThatContradictThemselvesAreRefused) {
    const Sample sample;
    const auto info = [](std::string_view tree, std::string_view piece = "32768") {
        return "d9:file tree" + std::string(tree) + "12:meta versioni2e4:name4:tree12:piece lengthi" +
               std::string(piece) + "ee";
    };
    const std::string root = "11:pieces root32:" + std::string(32, 'r');
    const auto file = [&](std::string_view length) {
        return "d0:d6:lengthi" + std::string(length) + "e" + root + "ee";
    };
    EXPECT_TRUE(read_torrent_content(info("d1:a" + file("9") + "e")).ok());
    std::string deep = file("9");
    for (int i = 0; i < 100; ++i) deep = "d1:a" + deep + "e";
    const std::vector<std::string> wrong{
        info("de"),
        info("d1:a" + file("-1") + "e"),
        info("d1:ad0:d6:lengthi9eeee"),
        info("d1:ad0:d6:lengthi9e11:pieces root3:abceee"),
        info("d0:d6:lengthi9e" + root + "ee"),
        info("d1:ad0:d6:lengthi9e" + root + "e1:b" + file("9") + "ee"),
        info("d1:ai5ee"),
        info("d1:a" + file("9") + "e", "32767"),
        info("d1:a" + file("9") + "e", "8192"),
        info("d1:a" + file("9") + "e", "4294967296"),
        info("d1:a" + file("9223372036854775807") + "e"),
        info("d1:a" + file("4611686018427387904") + "1:b" + file("4611686018427387904") + "e"),
        info("d1:a" + file("99999999999999") + "e"),
        info("d1:a" + file("9") + "1:b" + file("40000") + "e"),
        info("d1:a" + deep + "e"),
    };
    for (std::size_t i = 0; i < wrong.size(); ++i) EXPECT_FALSE(read_torrent_content(wrong[i]).ok()) << i;

    // A length that the digests contradict: all digests come, and the layer stays missing.
    const TorrentContent shorter = *read_torrent_content(sample.info(std::to_string(5 * piece_length)));
    const PieceLayers layers = layers_of_document(bytes_of(sample.document()), sample.content());
    HashAnswers answers(sample.content(), layers);
    LayerBook book(shorter, {});
    while (const auto range = book.next()) EXPECT_TRUE(book.take(*range, *answers.answer(*range)));
    EXPECT_TRUE(book.is_done());
    EXPECT_EQ(missing_layers(shorter, book.layers()), 1U);
}

TEST(SecondVersion, OfAHybridTheVersionCountsByWhichItIsKnown) {
    const Sample sample;
    const std::string info =
        "d9:file treed1:a" + Sample::file(700, sample.c_root) +
        "e6:lengthi700e12:meta versioni2e4:name1:a12:piece lengthi16384e6:pieces20:" + std::string(20, 'p') +
        "e";
    const auto first = read_torrent_content(info);
    const auto second = read_torrent_content(info, short_hash_of(long_hash_of(info)));
    ASSERT_TRUE(first.ok() && second.ok());
    EXPECT_FALSE(first->is_second_version);
    EXPECT_EQ(first->info_hash, hash_of(info));
    EXPECT_TRUE(second->is_second_version);
    EXPECT_FALSE(second->is_folder);
    EXPECT_TRUE(is_right(TorrentHashes(*second), 0, sample.c));
    EXPECT_TRUE(is_known_by(info, first->info_hash) && is_known_by(info, second->info_hash));
}

TEST(SecondVersion, RangesOfDigestsLeadToTheRootOrAreRefused) {
    // 1,100 pieces: three ranges, the last of which is filled up for its most part.
    std::vector<MerkleRoot> row(1100);
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = long_hash_of(std::to_string(i));
    const HashTree tree(row, 3);
    EXPECT_EQ(tree.top(), 3U + 11U);
    for (std::uint32_t at = 0; at < row.size(); at += 512) {
        const HashRange range = range_with_proof(tree.root(), 3, at, 512, tree.top());
        const auto given = give_hashes(tree, range);
        ASSERT_TRUE(given);
        EXPECT_EQ(given->size(), 32U * (512 + 2));
        const auto taken = take_hashes(range, tree.top(), *given);
        ASSERT_TRUE(taken);
        for (std::size_t i = 0; at + i < row.size() && i < 512; ++i) EXPECT_EQ((*taken)[i], row[at + i]);
        for (const std::size_t wrong : {std::size_t{5}, given->size() - 40, given->size() - 1}) {
            std::string changed = *given;
            changed[wrong] = static_cast<char>(changed[wrong] ^ 1);
            EXPECT_FALSE(take_hashes(range, tree.top(), changed)) << wrong;
        }
        EXPECT_FALSE(take_hashes(range, tree.top(), given->substr(32)));
        HashRange moved = range;
        moved.index ^= 512U;
        EXPECT_FALSE(take_hashes(moved, tree.top(), *given));
    }
    const HashRange good{tree.root(), 3, 0, 512, 10};
    EXPECT_TRUE(give_hashes(tree, good));
    for (const HashRange& bad : {HashRange{tree.root(), 2, 0, 512, 0}, HashRange{tree.root(), 15, 0, 2, 0},
                                 HashRange{tree.root(), 3, 0, 2048, 0}, HashRange{tree.root(), 3, 0, 1, 0},
                                 HashRange{tree.root(), 3, 0, 3, 0}, HashRange{tree.root(), 3, 1, 2, 0},
                                 HashRange{tree.root(), 3, 2048, 512, 0}, HashRange{tree.root(), 14, 0, 2, 0},
                                 HashRange{tree.root(), 3, 0xFFFFFE00, 512, 0xFFFFFFFF},
                                 HashRange{tree.root(), 0xFFFFFFFF, 0, 2, 0xFFFFFFFF}})
        EXPECT_FALSE(give_hashes(tree, bad)) << bad.level << ' ' << bad.index << ' ' << bad.length;
    const auto long_proof = give_hashes(tree, {tree.root(), 3, 2, 2, 0xFFFFFFFF});
    ASSERT_TRUE(long_proof);
    EXPECT_EQ(long_proof->size(), 32U * (2 + 10)) << "not beyond the root";
}

TEST(SecondVersion, MissingLayersComeFromPeersInAnyOrderAndLiarsShow) {
    const Sample sample;
    const TorrentContent content = sample.content();
    const PieceLayers layers = layers_of_document(bytes_of(sample.document()), content);
    HashAnswers answers(content, layers);
    LayerBook book(content, {});
    std::vector<HashRange> ranges;
    while (const auto range = book.next()) ranges.push_back(*range);
    ASSERT_EQ(ranges.size(), 2U);
    std::string answer = *answers.answer(ranges[1]);
    answer.front() = static_cast<char>(answer.front() ^ 1);
    EXPECT_FALSE(book.take(ranges[1], answer));
    EXPECT_EQ(book.next(), ranges[1]) << "it is asked for again";
    for (const HashRange& range : {ranges[1], ranges[0]}) {
        EXPECT_FALSE(book.is_done());
        EXPECT_TRUE(book.take(range, *answers.answer(range)));
    }
    EXPECT_TRUE(book.is_done());
    EXPECT_EQ(book.layers(), layers);
    HashRange unknown = ranges[0];
    unknown.root = sample.c_root;
    EXPECT_FALSE(answers.answer(unknown)) << "a file of one piece has no layer";
}

TEST(SecondVersion, MessagesAboutDigestsAreReadAndLongOnesAreNotWaitedFor) {
    PeerMessage sent;
    sent.kind = PeerMessage::Kind::hashes;
    sent.range = {long_hash_of("root"), 1, 512, 512, 9};
    const std::string digests(std::size_t{514} * 32, 'h');
    sent.data = digests;
    PeerReader reader;
    reader.feed(sent.bytes());
    PeerMessage got;
    ASSERT_EQ(reader.next(got), PeerReader::Read::message);
    EXPECT_TRUE(got.kind == sent.kind && got.range == sent.range && got.data == digests);
    sent.kind = PeerMessage::Kind::hash_request;
    EXPECT_EQ(sent.head(0).substr(0, 5), std::string("\0\0\0\x31\x15", 5));
    PeerReader bad;
    bad.feed(sent.head(1) + "x");
    EXPECT_EQ(bad.next(got), PeerReader::Read::bad) << "bytes behind a request";
    PeerReader long_one;
    long_one.feed(std::string("\0\x01\0\0\x16", 5));
    EXPECT_EQ(long_one.next(got), PeerReader::Read::bad) << "64 KiB of digests";
    PeerHandshake hello;
    hello.peer_id = std::string(20, 'p');
    hello.second = true;
    EXPECT_TRUE(PeerHandshake::parse(hello.bytes())->second);
    EXPECT_EQ(hello.bytes()[27], '\x10');
}

TEST(SecondVersion, LinksNameTheDigestAsAMultihash) {
    const std::string digest(64, 'a');
    const auto magnet = parse_magnet("magnet:?xt=urn:btmh:1220" + digest + "&dn=x", {});
    ASSERT_TRUE(magnet);
    EXPECT_EQ(to_hex(magnet->info_hash), digest.substr(0, 40));
    EXPECT_EQ(make_magnet(*magnet, "x", {}), "magnet:?xt=urn:btmh:1220" + digest + "&dn=x");
    const std::string both = "magnet:?xt=urn:btih:" + std::string(40, 'b') + "&xt=urn:btmh:1220" + digest;
    EXPECT_EQ(to_hex(parse_magnet(both, {})->info_hash), std::string(40, 'b'));
    EXPECT_EQ(make_magnet(*parse_magnet(both, {}), "", {}), both);
    for (const std::string& wrong :
         {"1120" + digest, "1220" + digest.substr(2), "1220" + std::string(64, 'g'), std::string("1220")})
        EXPECT_FALSE(parse_magnet("magnet:?xt=urn:btmh:" + wrong, {})) << wrong;
}

}  // namespace
}  // namespace vantlow
