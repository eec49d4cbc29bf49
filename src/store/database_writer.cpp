#include <cmath>
#include <string_view>

#include "store/database.h"
#include "store/database_parts.h"
#include "store/field_writer.h"

namespace vantlow {
namespace {

namespace fields = database_fields;

static_assert(fields::unused_numbers <= 64 && fields::unused_block <= 64);

void write_segment(FieldWriter& out, const CJobSeg& segment) {
    static const CJobSeg::Extra nothing;
    const CJobSeg::Extra& extra = segment.find_extra() != nullptr ? *segment.find_extra() : nothing;
    out.u8(fields::segment_tag);
    out.i64(segment.start);
    out.i64(segment.end);
    out.i64(extra.start_time);
    out.i64(extra.end_time);
    out.i64(extra.first_block);
    out.zeros(fields::unused_segment_pair);
    out.text(extra.text);
    out.zeros(fields::unused_segment_pair);
    for (const CJobSeg::Slot& slot : extra.slots) {
        out.text(slot.text);
        out.i32(slot.number);
        out.i64(slot.value);
    }
    out.u8(fields::segment_end_tag);
}

void write_first_group(FieldWriter& out, const CJobNode& job, const Guid& category) {
    out.u8(fields::job_tag);
    out.text(job.address);
    out.text(job.agent);
    out.text(job.user);
    out.text(job.password);
    out.guid(job.identity);
    out.guid(category);
    out.i32(job.start_mode);
    out.text(job.path);
    out.text(job.fragment);
    out.text(job.referer);
    out.text(job.comment);
    out.text(job.file_name);
    out.i32(job.locally);
    out.i64(job.file_size);
    out.i64(job.created);
    out.i32(job.connections);
    out.count(job.segments.size());
    for (const auto& segment : job.segments) write_segment(out, *segment);
}

// True when the job has the whole map that its bit count promises.
bool has_bit_map(const CJobNode& job) noexcept {
    return job.bit_count > 0 && job.bit_map.size() >= fields::bit_map_size(job.bit_count);
}

void write_second_group(FieldWriter& out, const CJobNode& job) {
    out.i64(job.min_split_size);
    out.i64(job.block_base);
    out.zeros(fields::unused_block);
    out.i32(job.kind);
    out.i32(job.retry_delay);
    out.i32(job.retries);
    out.i32(job.max_threads);
    out.i32(job.automatic_referer);
    out.i32(job.whole_file);
    out.i32(job.utf8);
    out.i32(static_cast<std::int32_t>(job.state));
    out.i32(static_cast<std::int32_t>(job.result));
    out.i32(has_bit_map(job) ? job.bit_count : 0);
    out.i32(job.order);
    out.i32(job.retry_by_settings);
    out.i32(job.longest_pause);
    out.i32(job.silence_limit);
    out.zeros(fields::unused_numbers);
    out.i64(job.finished);
    out.zeros(fields::unused_last_number);
}

void write_schedule(FieldWriter& out, const CJobNode& job) {
    out.count(job.schedule.size());
    for (const auto& entry : job.schedule) {
        out.u8(fields::schedule_tag);
        out.i32(entry->action);
        out.i32(entry->weekdays);
        out.i64(entry->time);
    }
}

/// The values of the block tagged T, each with its kind and its length in front.
class StateWriter {
  public:
    explicit StateWriter(FieldWriter& out) : out_(out) {}

    void narrow(std::uint8_t kind, std::string_view value) {
        if (value.empty()) return;
        head(kind, value.size());
        out_.raw(value.data(), value.size());
    }
    void wide(std::uint8_t kind, std::u16string_view value) {
        if (value.empty()) return;
        head(kind, value.size() * 2);
        out_.wide(value);
    }
    void mark(const PartialMark& mark) {
        if (!mark.is_set()) return;
        head(fields::partial_mark_value, 3 * 8 + mark.digest.size());
        out_.i64(mark.length);
        out_.i64(mark.begin);
        out_.i64(mark.end);
        out_.raw(mark.digest.data(), mark.digest.size());
    }
    void sources(const JobSources& sources) {
        for (const std::u16string& mirror : sources.mirrors) wide(fields::mirror_value, mirror);
        if (sources.size >= 0) {
            head(fields::size_value, 8);
            out_.i64(sources.size);
        }
        if (sources.whole) {
            head(fields::hash_value, 1 + sources.whole->digest.size());
            out_.u8(fields::digest_number(sources.whole->kind));
            out_.raw(sources.whole->digest.data(), sources.whole->digest.size());
        }
        if (sources.pieces) {
            head(fields::pieces_value, 1 + 8 + sources.pieces->hashes.size());
            out_.u8(fields::digest_number(sources.pieces->kind));
            out_.i64(sources.pieces->length);
            out_.raw(sources.pieces->hashes.data(), sources.pieces->hashes.size());
        }
    }
    void rules(const JobRules& rules) {
        if (rules.overwrite) {
            head(fields::overwrite_value, 4);
            out_.i32(*rules.overwrite);
        }
        if (rules.speed_limit > 0) {
            head(fields::limit_value, 8);
            out_.i64(rules.speed_limit);
        }
        wide(fields::ca_file_value, rules.ca_file);
        wide(fields::key_file_value, rules.key_file);
        narrow(fields::select_value, rules.select);
        narrow(fields::high_value, rules.high);
        narrow(fields::low_value, rules.low);
        if (rules.upload_limit > 0) {
            head(fields::upload_limit_value, 8);
            out_.i64(rules.upload_limit);
        }
        if (rules.most_peers > 0) {
            head(fields::most_peers_value, 8);
            out_.i64(rules.most_peers);
        }
        if (rules.share_ratio) {
            head(fields::share_ratio_value, 8);
            out_.i64(std::llround(*rules.share_ratio * 1000));
        }
        if (rules.share_time) {
            head(fields::share_time_value, 8);
            out_.i64(*rules.share_time);
        }
        const std::int32_t switches = (rules.skip_existing ? fields::skip_existing_switch : 0) +
                                      (rules.insecure ? fields::insecure_switch : 0) +
                                      (rules.accept_host_key ? fields::accept_host_key_switch : 0) +
                                      (rules.asks_which ? fields::asks_which_switch : 0) +
                                      (rules.sequential ? fields::sequential_switch : 0) +
                                      (rules.ends_first ? fields::ends_first_switch : 0);
        if (switches == 0) return;
        head(fields::switches_value, 4);
        out_.i32(switches);
    }

    void tally(const TorrentTally& tally) {
        head(fields::tally_value, fields::tally_size);
        out_.i64(tally.received);
        out_.i64(tally.sent);
        out_.i64(tally.shared);
        out_.u8(tally.shares ? 1 : 0);
    }

  private:
    void head(std::uint8_t kind, std::size_t length) {
        out_.u8(kind);
        out_.count(length);
    }
    FieldWriter& out_;
};

void write_values(FieldWriter& out, const CJobNode& job) {
    StateWriter values(out);
    values.narrow(fields::etag_value, job.validators.etag);
    values.narrow(fields::last_modified_value, job.validators.last_modified);
    values.narrow(fields::strong_date_value, job.validators.strong_date ? "\1" : "");
    values.narrow(fields::media_type_value, job.validators.media_type);
    values.mark(job.partial_mark);
    values.wide(fields::cookie_value, job.cookie);
    values.wide(fields::proxy_value, job.proxy);
    if (has_bit_map(job)) values.narrow(fields::map_mark_value, job.bit_map_mark);
    if (job.sources) values.sources(*job.sources);
    values.narrow(fields::error_value, job.error);
    if (job.rules) values.rules(*job.rules);
    if (job.tally) values.tally(*job.tally);
    if (job.form) values.narrow(fields::form_value, job.form->media_type + '\0' + job.form->body);
}

void write_state(FieldWriter& out, const CJobNode& job) {
    const bool has_any = !job.validators.etag.empty() || !job.validators.last_modified.empty() ||
                         !job.validators.media_type.empty() || job.partial_mark.is_set() ||
                         !job.cookie.empty() || !job.proxy.empty() || !job.error.empty() || job.sources ||
                         job.rules || job.tally || job.form || has_bit_map(job);
    if (!has_any) return;
    FieldWriter counter(nullptr);
    write_values(counter, job);
    if (counter.written() == 0) return;
    out.u8(fields::state_tag);
    out.count(counter.written());
    write_values(out, job);
}

}  // namespace

void write_job(FieldWriter& out, const CJobNode& job, const Guid& category) {
    write_first_group(out, job, category);
    write_second_group(out, job);
    write_schedule(out, job);
    if (has_bit_map(job)) {
        out.u8(fields::bit_map_tag);
        out.raw(job.bit_map.data(), fields::bit_map_size(job.bit_count));
    }
    write_state(out, job);
    out.u8(fields::job_end_tag);
}

void write_category_head(FieldWriter& out, const CClassNode& node, std::size_t jobs) {
    out.guid(node.identity);
    out.u8(fields::category_tag);
    out.text(node.name);
    out.text(node.folder);
    out.count(jobs);
}

namespace {

void write_header(FieldWriter& out) {
    static_assert(database_version == 59);
    out.raw("Q!59", fields::header_size);
}

}  // namespace

// Goes in the order of a walk that visits each category before its children, without a stack frame for each
// level.
void write_categories(FieldWriter& out, const CategoryTree& tree, const WriteJobs& write_jobs) {
    struct Level {
        const CClassNode* node;
        std::size_t next;  // child to come
    };
    std::vector<Level> above;
    const auto begin = [&](const CClassNode& node) {
        write_category_head(out, node, node.jobs.size());
        write_jobs(node);
        above.push_back({&node, 0});
    };
    write_header(out);
    if (tree.root() != nullptr) begin(*tree.root());
    while (!above.empty()) {
        Level& level = above.back();
        const auto& children = level.node->children;
        if (level.next == 0 && !children.empty()) out.guid(descend_marker());
        if (level.next < children.size()) {
            begin(*children[level.next++]);
        } else {
            if (!children.empty()) out.guid(ascend_marker());
            above.pop_back();
        }
    }
}

void save_database(const CategoryTree& tree, CQoMemFile& file) {
    const auto write = [&](FieldWriter& out) {
        write_categories(out, tree, [&](const CClassNode& node) {
            for (const auto& job : node.jobs) write_job(out, *job, node.identity);
        });
    };
    // The bytes are counted first: a database that grew while it was written would take three times its size
    // for a moment.
    FieldWriter counter(nullptr);
    write(counter);
    file.reserve(file.size() + counter.written());
    MemFileSink sink(file);
    FieldWriter out(&sink);
    write(out);
    out.flush();
}

void save_single_job(const CJobNode& job, CQoMemFile& file) {
    CClassNode root;
    root.name = u"Downloading";
    MemFileSink sink(file);
    FieldWriter out(&sink);
    write_header(out);
    write_category_head(out, root, 1);
    write_job(out, job, root.identity);
    out.flush();
}

}  // namespace vantlow
