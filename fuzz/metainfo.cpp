// Torrent documents, from their bytes to the job that is made of them.
#include "bt/metainfo.h"
#include "bt/make_torrent.h"
#include "bt/piece_layers.h"
#include "engine/plans.h"
#include "fuzz.h"

namespace vantlow::fuzz {
namespace {

bool read(std::string_view document, const MetaInfoRules& rules, CBEMetaInfo& meta) {
    CBEncode parser;
    if (!parser.load_memory(document)) return false;
    const auto tree = parser.parse_document();
    return tree && parse_meta_info(parser, *tree, rules, meta);
}

}  // namespace

void run(std::string_view input) {
    CBEMetaInfo metadata;
    static_cast<void>(read(input, {.metadata_only = true, .utf8 = true}, metadata));
    read_torrent_plan(bytes_of(input), {});
    CBEMetaInfo meta;
    if (!read(input, {.default_tracker = "http://t/announce"}, meta)) return;
    CHECK(meta.files().size() == meta.sizes.size());
    CHECK(meta.path_is_utf8.size() == meta.paths_local.size() + meta.paths_utf8.size());
    CHECK(meta.info.size() <= input.size() && meta.pieces.size() <= input.size());
    add_nodes(meta, {});
    static_cast<void>(meta.name());
    static_cast<void>(meta.total_size());
    if (meta.info.empty()) return;
    CHECK(is_known_by(meta.info, meta.info_hash));
    if (const auto content = read_torrent_content(meta.info)) {
        const PieceLayers layers = layers_of_document(bytes_of(input), *content);
        const TorrentHashes hashes(*content, layers);
        std::int64_t bytes = 0;
        for (const NamedFile& file : content->files) bytes += file.length;
        CHECK(bytes == content->total);
        const std::int64_t last = content->piece_count() - 1;
        for (const std::int64_t piece : {std::int64_t{0}, last, last + 1}) {
            static_cast<void>(hashes.hash_of(piece));
            CHECK(hashes.padding_of(piece) >= 0 && hashes.padding_of(piece) < content->piece_length);
        }
        if (missing_layers(*content, layers) == 0) CHECK(LayerBook(*content, layers).is_done());
    }
    // Of a damaged value a part stands there: what is made of it need not say the same.
    CBEncode value;
    const bool loaded = value.load_memory(meta.info);
    CHECK(loaded);
    value.write(value.parse_value().get());
    CBEMetaInfo again;
    if (value.output() != meta.info) return;
    if (read(torrent_from_metadata(meta.trackers, meta.info, 1), {}, again))
        CHECK(again.info_hash == meta.info_hash && again.info == meta.info);
}

}  // namespace vantlow::fuzz
