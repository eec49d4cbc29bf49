#include <algorithm>

#include "store/database.h"
#include "store/database_parts.h"
#include "store/field_reader.h"

namespace vantlow {
namespace {

namespace fields = database_fields;

// The count, limited to the number of records that there is room for.
std::size_t bounded(std::int32_t count, std::size_t left, std::size_t smallest) noexcept {
    return count > 0 ? std::min(static_cast<std::size_t>(count), left / smallest) : 0;
}

void read_segment(FieldReader& in, CJobNode& job) {
    in.skip(1);  // its tag
    const std::int64_t start = in.i64();
    CJobSeg& segment = job.append_segment(start, in.i64());
    CJobSeg::Extra extra;
    extra.start_time = in.i64();
    extra.end_time = in.i64();
    extra.first_block = in.i64();
    in.skip(fields::unused_segment_pair);
    extra.text = in.text();
    in.skip(fields::unused_segment_pair);
    for (CJobSeg::Slot& slot : extra.slots) {
        slot.text = in.text();
        slot.number = in.i32();
        slot.value = in.i64();
    }
    if (extra != CJobSeg::Extra{}) segment.extra() = std::move(extra);
    if (in.u8() != fields::segment_end_tag) in.spoil();
}

// The first group and the segments behind it.
void read_first_group(FieldReader& in, CJobNode& job) {
    in.skip(1);  // its tag
    job.address = in.text();
    job.agent = in.text();
    job.user = in.text();
    job.password = in.text();
    job.identity = in.guid();
    job.category = in.guid();
    job.start_mode = in.i32();
    job.path = in.text();
    job.fragment = in.text();
    job.referer = in.text();
    job.comment = in.text();
    job.file_name = in.text();
    job.locally = in.i32();
    job.file_size = in.i64();
    job.created = in.i64();
    job.connections = in.i32();
    const std::int32_t count = in.i32();
    if (!in.ok()) return;
    job.segments.reserve(bounded(count, in.left(), fields::smallest_segment));
    for (std::int32_t i = 0; i < count && in.ok(); ++i) read_segment(in, job);
}

// A state that this version does not know becomes one in which nothing happens.
JobState known_state(std::int32_t number) noexcept {
    const bool is_known = number >= 0 && number <= static_cast<std::int32_t>(JobState::failed);
    return is_known ? static_cast<JobState>(number) : JobState::stopped;
}

void read_second_group(FieldReader& in, CJobNode& job) {
    job.min_split_size = in.i64();
    job.block_base = in.i64();
    in.skip(fields::unused_block);
    job.kind = in.i32();
    job.retry_delay = in.i32();
    job.retries = in.i32();
    job.max_threads = in.i32();
    job.automatic_referer = in.i32();
    job.whole_file = in.i32();
    job.utf8 = in.i32();
    job.state = known_state(in.i32());
    job.result = static_cast<Code>(in.i32());
    job.bit_count = in.i32();
    job.order = in.i32();
    job.retry_by_settings = in.i32();
    job.longest_pause = in.i32();
    job.silence_limit = in.i32();
    in.skip(fields::unused_numbers);
    job.finished = in.i64();
    in.skip(fields::unused_last_number);
}

void read_schedule(FieldReader& in, CJobNode& job) {
    const std::int32_t count = in.i32();
    job.schedule.reserve(bounded(count, in.left(), fields::schedule_size));
    for (std::int32_t i = 0; i < count && in.ok(); ++i) {
        if (in.u8() != fields::schedule_tag) in.spoil();
        CScheduleNode& entry = *job.schedule.emplace_back(std::make_unique<CScheduleNode>());
        entry.action = in.i32();
        entry.weekdays = in.i32();
        entry.time = in.i64();
    }
}

void read_bit_map(FieldReader& in, CJobNode& job) {
    const auto bytes = in.take(fields::bit_map_size(job.bit_count));
    if (bytes.empty()) in.spoil();  // a map of no bits is never written
    job.bit_map.resize(bytes.size());
    std::transform(bytes.begin(), bytes.end(), job.bit_map.begin(),
                   [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); });
}

// A digest whose length does not fit its kind is ignored.
void read_hash(FieldReader& block, std::size_t length, JobSources& sources) {
    FieldReader value(block.take(length));
    const auto kind = fields::digest_of_number(value.u8());
    const auto digest = value.take(value.left());
    if (!value.ok() || !kind || digest.size() != digest_size(*kind)) return;
    sources.whole = ExpectedHash{*kind, {digest.begin(), digest.end()}};
}

void read_pieces(FieldReader& block, std::size_t length, JobSources& sources) {
    FieldReader value(block.take(length));
    const auto kind = fields::digest_of_number(value.u8());
    const std::int64_t piece = value.i64();
    const auto hashes = value.take(value.left());
    if (!value.ok() || !kind || piece <= 0 || hashes.size() % digest_size(*kind) != 0) return;
    sources.pieces = PieceHashes{*kind, piece, {hashes.begin(), hashes.end()}};
}

// True when the value belonged to the sources: addresses, size, hashes.
bool read_source_value(FieldReader& block, std::uint8_t kind, std::size_t length, JobSources& sources) {
    switch (kind) {
        case fields::mirror_value:
            sources.mirrors.push_back(block.wide(length));
            return true;
        case fields::size_value:
            if (length != 8) return false;
            sources.size = block.i64();
            return true;
        case fields::hash_value:
            read_hash(block, length, sources);
            return true;
        case fields::pieces_value:
            read_pieces(block, length, sources);
            return true;
        default:
            return false;
    }
}

void read_mark(FieldReader& block, std::size_t length, PartialMark& mark) {
    FieldReader value(block.take(length));
    PartialMark read;
    read.length = value.i64();
    read.begin = value.i64();
    read.end = value.i64();
    read.digest = value.narrow(value.left());
    if (value.ok() && read.length >= 0) mark = std::move(read);
}

std::shared_ptr<const TorrentTally> read_tally(FieldReader& block) {
    TorrentTally tally;
    tally.received = std::max<std::int64_t>(block.i64(), 0);
    tally.sent = std::max<std::int64_t>(block.i64(), 0);
    tally.shared = std::max<std::int64_t>(block.i64(), 0);
    tally.shares = block.u8() != 0;
    return std::make_shared<const TorrentTally>(tally);
}

// True when the value belonged to the job's own rules.
bool read_rule(FieldReader& block, std::uint8_t kind, std::size_t length, JobRules& rules) {
    switch (kind) {
        case fields::overwrite_value:
            if (length != 4) return false;
            rules.overwrite = block.i32();
            return true;
        case fields::limit_value:
            if (length != 8) return false;
            rules.speed_limit = std::max<std::int64_t>(block.i64(), 0);
            return true;
        case fields::share_ratio_value:
            if (length != 8) return false;
            rules.share_ratio = static_cast<double>(block.i64()) / 1000;
            return true;
        case fields::share_time_value:
            if (length != 8) return false;
            rules.share_time = std::max<std::int64_t>(block.i64(), 0);
            return true;
        case fields::ca_file_value:
            rules.ca_file = block.wide(length);
            return true;
        case fields::key_file_value:
            rules.key_file = block.wide(length);
            return true;
        case fields::select_value:
            rules.select = block.narrow(length);
            return true;
        case fields::high_value:
            rules.high = block.narrow(length);
            return true;
        case fields::low_value:
            rules.low = block.narrow(length);
            return true;
        case fields::upload_limit_value:
            if (length != 8) return false;
            rules.upload_limit = std::max<std::int64_t>(block.i64(), 0);
            return true;
        case fields::most_peers_value:
            if (length != 8) return false;
            rules.most_peers = std::max<std::int64_t>(block.i64(), 0);
            return true;
        case fields::switches_value: {
            if (length != 4) return false;
            const std::int32_t switches = block.i32();
            rules.skip_existing = (switches & fields::skip_existing_switch) != 0;
            rules.insecure = (switches & fields::insecure_switch) != 0;
            rules.accept_host_key = (switches & fields::accept_host_key_switch) != 0;
            rules.asks_which = (switches & fields::asks_which_switch) != 0;
            rules.sequential = (switches & fields::sequential_switch) != 0;
            rules.ends_first = (switches & fields::ends_first_switch) != 0;
            return true;
        }
        default:
            return false;
    }
}

std::shared_ptr<const PostedForm> read_form(const std::string& value) {
    const auto end = value.find('\0');
    if (end == std::string::npos) return nullptr;
    return std::make_shared<const PostedForm>(PostedForm{value.substr(0, end), value.substr(end + 1)});
}

void read_state(FieldReader& in, CJobNode& job) {
    const std::size_t size = in.u32();
    FieldReader block(in.take(size));
    std::shared_ptr<JobSources> sources;
    JobRules rules;
    while (block.ok() && block.left() > 0) {
        const std::uint8_t kind = block.u8();
        const std::size_t length = block.u32();
        switch (kind) {
            case fields::etag_value:
                job.validators.etag = block.narrow(length);
                break;
            case fields::map_mark_value:
                job.bit_map_mark = block.narrow(length);
                break;
            case fields::last_modified_value:
                job.validators.last_modified = block.narrow(length);
                break;
            case fields::strong_date_value:
                job.validators.strong_date = block.narrow(length) == "\1";
                break;
            case fields::media_type_value:
                job.validators.media_type = block.narrow(length);
                break;
            case fields::partial_mark_value:
                read_mark(block, length, job.partial_mark);
                break;
            case fields::cookie_value:
                job.cookie = block.wide(length);
                break;
            case fields::proxy_value:
                job.proxy = block.wide(length);
                break;
            case fields::error_value:
                job.error = block.narrow(length);
                break;
            case fields::form_value:
                job.form = read_form(block.narrow(length));
                break;
            default: {
                auto told = sources ? sources : std::make_shared<JobSources>();
                if (read_source_value(block, kind, length, *told)) {
                    sources = std::move(told);
                } else if (kind == fields::tally_value && length == fields::tally_size) {
                    job.tally = read_tally(block);
                } else if (!read_rule(block, kind, length, rules)) {
                    block.skip(length);
                }
            }
        }
    }
    if (!block.ok()) in.spoil();
    job.sources = std::move(sources);
    if (rules != JobRules{}) job.rules = std::make_shared<const JobRules>(std::move(rules));
}

}  // namespace

std::unique_ptr<CJobNode> read_job(FieldReader& in) {
    auto job = std::make_unique<CJobNode>();
    read_first_group(in, *job);
    if (!in.ok()) return nullptr;
    read_second_group(in, *job);
    read_schedule(in, *job);
    std::uint8_t tag = in.u8();
    if (tag == fields::bit_map_tag) {
        read_bit_map(in, *job);
        tag = in.u8();
    } else {
        job->bit_count = 0;
    }
    if (tag == fields::state_tag) {
        read_state(in, *job);
        tag = in.u8();
    }
    return in.ok() && tag == fields::job_end_tag ? std::move(job) : nullptr;
}

namespace {

// Reads a category. One whose own fields are whole is kept, with the jobs that were whole, even when a record
// behind them is damaged. Null when its own fields are not whole.
std::unique_ptr<CClassNode> read_category(FieldReader& in, const Guid& identity) {
    auto node = std::make_unique<CClassNode>();
    node->identity = identity;
    in.skip(1);  // its tag
    node->name = in.text();
    node->folder = in.text();
    const std::int32_t count = in.i32();
    if (!in.ok()) return nullptr;
    for (std::int32_t i = 0; i < count; ++i) {
        auto job = read_job(in);
        if (!job) {
            in.spoil();
            break;
        }
        job->category = identity;  // where it stands is where it is filed
        node->jobs.push_back(std::move(job));
    }
    return node;
}

// Two decimal digits; -1 for anything else.
int read_version(std::span<const std::byte> bytes) noexcept {
    const auto digit = [&](std::size_t at) { return std::to_integer<int>(bytes[at]) - '0'; };
    const int tens = digit(2);
    const int ones = digit(3);
    const bool is_number = tens >= 0 && tens <= 9 && ones >= 0 && ones <= 9;
    return is_number ? tens * 10 + ones : -1;
}

}  // namespace

DatabaseLoad load_database(std::span<const std::byte> bytes, CategoryTree& tree, CategoryTree::Place place) {
    DatabaseLoad load;
    if (bytes.size() < fields::header_size) return load;
    const int version = read_version(bytes);
    if (version < 0) return load;
    if (version > database_version) {
        load.status = DatabaseLoad::Status::newer;
        return load;
    }
    FieldReader in(bytes.subspan(fields::header_size));
    CClassNode* parent = nullptr;  // null: a category becomes the root
    CClassNode* last = nullptr;
    std::int64_t depth = 0;
    while (in.ok() && in.left() >= fields::marker_size) {
        const Guid lead = in.guid();
        if (lead == descend_marker()) {
            parent = last;
            ++depth;
        } else if (lead == ascend_marker()) {
            parent = parent != nullptr ? parent->parent : nullptr;
            --depth;
        } else if (auto node = read_category(in, lead)) {
            ++load.categories;
            load.jobs += node->jobs.size();
            last = &tree.insert(std::move(node), parent, place);
        }
    }
    if (load.categories > 0) load.status = DatabaseLoad::Status::loaded;
    // A file that was cut between two records has an ascent too few.
    load.complete = in.ok() && in.left() == 0 && depth == 0;
    return load;
}

}  // namespace vantlow
