#include "store/journal.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <unordered_map>

#include "base/digest.h"
#include "store/database_parts.h"

namespace vantlow {
namespace {

constexpr std::string_view magic = "QJ01";
constexpr std::size_t head_size = magic.size() + 16;
constexpr std::size_t check_size = 16;
constexpr std::size_t frame_head_size = 4 + check_size;

enum Entry : std::uint8_t {
    job_entry = 'J',
    job_removed_entry = 'X',
    job_placed_entry = 'M',
    category_entry = 'C',
    category_removed_entry = 'Y',
    save_begun_entry = 'S',
    image_made_entry = 'F',
};

/// Writes one entry into a batch.
class EntryWriter {
  public:
    EntryWriter(CQoMemFile& file, Entry kind) : sink_(file), out_(&sink_) { out_.u8(kind); }
    EntryWriter(const EntryWriter&) = delete;
    EntryWriter& operator=(const EntryWriter&) = delete;
    ~EntryWriter() { out_.flush(); }
    FieldWriter* operator->() noexcept { return &out_; }
    FieldWriter& out() noexcept { return out_; }

  private:
    MemFileSink sink_;
    FieldWriter out_;
};

std::size_t place_among_siblings(const CClassNode& node) {
    if (node.parent == nullptr) return 0;
    const auto& siblings = node.parent->children;
    const auto at = std::find_if(siblings.begin(), siblings.end(),
                                 [&](const auto& sibling) { return sibling.get() == &node; });
    return static_cast<std::size_t>(at - siblings.begin());
}

std::array<std::byte, check_size> check_of(const Guid& id, std::uint64_t offset,
                                           std::span<const std::byte> payload) {
    Digest digest(DigestKind::sha1);
    digest.update(std::as_bytes(std::span(id.bytes)));
    std::array<std::byte, 8> place;
    for (std::size_t i = 0; i < place.size(); ++i) place[i] = static_cast<std::byte>(offset >> (8 * i));
    digest.update(place);
    digest.update(payload);
    const std::vector<std::byte> whole = digest.finish();
    std::array<std::byte, check_size> check;
    std::copy_n(whole.begin(), check.size(), check.begin());
    return check;
}

/// The tree with its jobs found by their identities.
class Replay {
  public:
    explicit Replay(CategoryTree& tree) : tree_(tree) {
        for (CClassNode* category : tree.all()) {
            for (const auto& job : category->jobs)
                jobs_.try_emplace(job->identity, Filed{job.get(), category});
        }
    }

    void take(std::span<const std::byte> payload) {
        FieldReader in(payload);
        while (in.ok() && in.left() > 0) take_entry(in);
    }

  private:
    struct Filed {
        CJobNode* job = nullptr;
        CClassNode* category = nullptr;
    };

    void take_entry(FieldReader& in) {
        switch (in.u8()) {
            case job_entry:
                take_job(in);
                break;
            case job_removed_entry:
                remove_job(in.guid());
                break;
            case job_placed_entry:
                place_job(in);
                break;
            case category_entry:
                take_category(in);
                break;
            case category_removed_entry:
                remove_category(in.guid());
                break;
            case save_begun_entry:
                in.skip(8);
                break;
            case image_made_entry:
                in.skip(8 + std::tuple_size_v<ImageDigest>);
                break;
            default:
                in.spoil();  // a newer program's: what follows it cannot be found
        }
    }

    // The one of this identity, or the root.
    CClassNode& category_of(const Guid& identity) {
        CClassNode* const found = tree_.find(identity);
        return found != nullptr ? *found : *tree_.root();
    }

    void take_job(FieldReader& in) {
        auto job = read_job(in);
        if (!job) {
            in.spoil();
            return;
        }
        const auto at = jobs_.find(job->identity);
        if (at != jobs_.end()) {
            at->second.job->order = job->order;
            at->second.job->take_from(*job);
            return;
        }
        CClassNode& category = category_of(job->category);
        job->category = category.identity;
        CJobNode& filed = category.jobs.push_back(std::move(job));
        jobs_[filed.identity] = {&filed, &category};
    }

    void remove_job(const Guid& identity) {
        const auto at = jobs_.find(identity);
        if (at == jobs_.end()) return;
        at->second.category->jobs.take(*at->second.job);
        jobs_.erase(at);
    }

    void place_job(FieldReader& in) {
        const auto at = jobs_.find(in.guid());
        const Guid identity = in.guid();
        const std::size_t place = in.u32();
        if (!in.ok() || at == jobs_.end()) return;
        CClassNode& category = category_of(identity);
        auto job = at->second.category->jobs.take(*at->second.job);
        job->category = category.identity;
        at->second.category = &category;
        category.jobs.insert(place, std::move(job));
    }

    void take_category(FieldReader& in) {
        const Guid identity = in.guid();
        const Guid above = in.guid();
        const std::size_t place = in.u32();
        std::u16string name = in.text();
        std::u16string folder = in.text();
        if (!in.ok()) return;
        CClassNode* node = tree_.find(identity);
        if (node == nullptr) {
            auto made = std::make_unique<CClassNode>();
            made->identity = identity;
            node = &tree_.insert(std::move(made), &category_of(above));
        }
        node->name = std::move(name);
        node->folder = std::move(folder);
        if (node->parent != nullptr) tree_.place(*node, category_of(above), place);
    }

    void remove_category(const Guid& identity) {
        CClassNode* const node = tree_.find(identity);
        if (node == nullptr || node->parent == nullptr) return;
        for (const auto& job : node->jobs) jobs_[job->identity].category = node->parent;
        tree_.remove(*node);
    }

    CategoryTree& tree_;
    std::unordered_map<Guid, Filed, GuidHash> jobs_;
};

}  // namespace

ImageDigest digest_of(std::span<const std::byte> image) {
    Digest digest(DigestKind::sha1);
    digest.update(image);
    const std::vector<std::byte> whole = digest.finish();
    ImageDigest result;
    std::copy_n(whole.begin(), result.size(), result.begin());
    return result;
}

void JournalBatch::job(const CJobNode& job, const Guid& category) {
    EntryWriter entry(payload_, job_entry);
    write_job(entry.out(), job, category);
}

void JournalBatch::job_removed(const Guid& job) {
    EntryWriter(payload_, job_removed_entry)->guid(job);
}

void JournalBatch::job_placed(const Guid& job, const Guid& category, std::size_t place) {
    EntryWriter entry(payload_, job_placed_entry);
    entry->guid(job);
    entry->guid(category);
    entry->count(std::min<std::size_t>(place, std::numeric_limits<std::uint32_t>::max()));
}

void JournalBatch::category(const CClassNode& node) {
    EntryWriter entry(payload_, category_entry);
    entry->guid(node.identity);
    entry->guid(node.parent != nullptr ? node.parent->identity : Guid{});
    entry->count(place_among_siblings(node));
    entry->text(node.name);
    entry->text(node.folder);
}

void JournalBatch::category_removed(const Guid& category) {
    EntryWriter(payload_, category_removed_entry)->guid(category);
}

void JournalBatch::save_begun(std::uint64_t number) {
    EntryWriter(payload_, save_begun_entry)->i64(static_cast<std::int64_t>(number));
}

void JournalBatch::image_made(std::uint64_t number, const ImageDigest& digest) {
    EntryWriter entry(payload_, image_made_entry);
    entry->i64(static_cast<std::int64_t>(number));
    entry->raw(digest.data(), digest.size());
}

std::vector<std::byte> JournalFrames::head() const {
    std::vector<std::byte> bytes(head_size);
    std::memcpy(bytes.data(), magic.data(), magic.size());
    std::memcpy(bytes.data() + magic.size(), id_.bytes.data(), id_.bytes.size());
    return bytes;
}

std::vector<std::byte> JournalFrames::frame(std::uint64_t offset, std::span<const std::byte> payload) const {
    std::vector<std::byte> bytes(frame_head_size + payload.size());
    for (std::size_t i = 0; i < 4; ++i) bytes[i] = static_cast<std::byte>(payload.size() >> (8 * i));
    const auto check = check_of(id_, offset, payload);
    std::copy(check.begin(), check.end(), bytes.begin() + 4);
    std::copy(payload.begin(), payload.end(), bytes.begin() + frame_head_size);
    return bytes;
}

std::vector<std::span<const std::byte>> JournalFrames::read(std::span<const std::byte> file) {
    std::vector<std::span<const std::byte>> payloads;
    FieldReader in(file);
    if (in.narrow(magic.size()) != magic) return payloads;
    const Guid id = in.guid();
    while (in.ok() && in.left() >= frame_head_size) {
        const std::uint64_t offset = file.size() - in.left();
        const std::size_t size = in.u32();
        const auto check = in.take(check_size);
        const auto payload = in.take(size);
        if (!in.ok() || !std::ranges::equal(check, check_of(id, offset, payload))) break;
        payloads.push_back(payload);
    }
    return payloads;
}

std::optional<std::span<const std::span<const std::byte>>> journal_since(
    std::span<const std::span<const std::byte>> payloads, const ImageDigest& digest) {
    std::unordered_map<std::int64_t, std::size_t> begun;
    std::optional<std::size_t> from;
    for (std::size_t i = 0; i < payloads.size(); ++i) {
        FieldReader in(payloads[i]);
        const std::uint8_t kind = in.u8();
        if (kind != save_begun_entry && kind != image_made_entry) continue;
        const std::int64_t number = in.i64();
        if (kind == save_begun_entry) {
            begun[number] = i;
        } else if (std::ranges::equal(in.take(digest.size()), digest)) {
            // Without the beginning of a save in this file, the image is the one that the file was begun
            // with.
            const auto at = begun.find(number);
            from = at != begun.end() ? at->second : i;
        }
    }
    if (!from) return std::nullopt;
    return payloads.subspan(*from);
}

bool has_changes(std::span<const std::span<const std::byte>> payloads) {
    return std::any_of(payloads.begin(), payloads.end(), [](std::span<const std::byte> payload) {
        const std::uint8_t kind = FieldReader(payload).u8();
        return kind != save_begun_entry && kind != image_made_entry;
    });
}

void replay(std::span<const std::span<const std::byte>> payloads, CategoryTree& tree) {
    if (tree.root() == nullptr) return;
    Replay changes(tree);
    for (const auto payload : payloads) changes.take(payload);
}

}  // namespace vantlow
