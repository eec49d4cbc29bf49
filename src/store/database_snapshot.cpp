#include "store/database_snapshot.h"

#include <algorithm>

#include "store/database_parts.h"

namespace vantlow {
namespace {

constexpr std::size_t piece_size = 1U << 20U;
// Jobs between two looks at the clock: some microseconds' worth.
constexpr std::size_t jobs_at_once = 16;

/// Gathers an image in its pieces.
class ImageSink final : public ByteSink {
  public:
    explicit ImageSink(DatabaseImage& image) : image_(image) {}
    void write(std::span<const std::byte> bytes) override {
        while (!bytes.empty()) {
            if (image_.empty() || image_.back().size() == piece_size)
                image_.emplace_back().reserve(piece_size);
            std::vector<std::byte>& piece = image_.back();
            const auto part = bytes.first(std::min(bytes.size(), piece_size - piece.size()));
            piece.insert(piece.end(), part.begin(), part.end());
            bytes = bytes.subspan(part.size());
        }
    }

  private:
    DatabaseImage& image_;
};

}  // namespace

DatabaseSnapshot::DatabaseSnapshot(const CategoryTree& tree) {
    CQoMemFile head;
    MemFileSink sink(head);
    FieldWriter out(&sink);
    const auto end_section = [&](const Guid& category) {
        out.flush();
        sections_.push_back({{head.bytes().begin(), head.bytes().end()}, category, jobs_.size()});
        head.clear();
    };
    write_categories(out, tree, [&](const CClassNode& node) {
        for (const auto& job : node.jobs) jobs_.push_back(job.get());
        end_section(node.identity);
    });
    end_section({});  // the part behind the last category
}

bool DatabaseSnapshot::go_on(std::chrono::steady_clock::time_point until) {
    ImageSink sink(image_);
    FieldWriter out(&sink);
    std::size_t written = 0;
    for (; section_ < sections_.size(); ++section_, head_written_ = false) {
        const Section& section = sections_[section_];
        if (!head_written_) out.raw(section.head.data(), section.head.size());
        head_written_ = true;
        for (; next_ < section.end; ++next_) {
            if (written == jobs_at_once) {
                written = 0;
                if (std::chrono::steady_clock::now() >= until) {
                    out.flush();
                    return false;
                }
            }
            ++written;
            if (jobs_[next_] != nullptr) {
                write_job(out, *jobs_[next_], section.category);
            } else {
                const auto kept = kept_.extract(next_).mapped();
                out.raw(kept.data(), kept.size());
            }
        }
    }
    out.flush();
    return true;
}

void DatabaseSnapshot::keep(const CJobNode& job) {
    const auto from = jobs_.begin() + static_cast<std::ptrdiff_t>(next_);
    const auto at = std::find(from, jobs_.end(), &job);
    if (at == jobs_.end()) return;
    const auto place = static_cast<std::size_t>(at - jobs_.begin());
    const auto section =
        std::find_if(sections_.begin(), sections_.end(), [&](const Section& one) { return place < one.end; });
    CQoMemFile bytes;
    MemFileSink sink(bytes);
    FieldWriter out(&sink);
    write_job(out, job, section->category);
    out.flush();
    kept_[place].assign(bytes.bytes().begin(), bytes.bytes().end());
    *at = nullptr;
}

}  // namespace vantlow
