// The state of a storage and the names of a document's files: neither leads out of the job's folder.
#include "storage/storage_state.h"

#include "base/digest.h"
#include "base/text.h"
#include "fuzz.h"

namespace {

using namespace vantlow;

void check_below(std::u16string_view path) {
    CHECK(!path.empty() && path.front() != u'/' && path.front() != u'\\');
    while (!path.empty()) {
        const auto end = path.find_first_of(u"/\\");
        const std::u16string_view part = path.substr(0, end);
        CHECK(!part.empty() && part != u"." && part != u".." && part.find(u':') == part.npos);
        path = end == path.npos ? std::u16string_view{} : path.substr(end + 1);
    }
}

void read_state(std::string_view input) {
    // The digest is right, so that what stands before it is read.
    Digest digest(DigestKind::sha256);
    digest.update(fuzz::bytes_of(input));
    std::vector<std::byte> bytes(fuzz::bytes_of(input).begin(), fuzz::bytes_of(input).end());
    const std::vector<std::byte> sum = digest.finish();
    bytes.insert(bytes.end(), sum.begin(), sum.end());
    const auto state = StorageState::decode(bytes);
    if (!state) return;
    CHECK(state->piece_length > 0 && state->chosen.size() == state->marks.size());
    for (const auto& [file, name] : state->places.names) check_below(name);
    CHECK(StorageState::decode(state->encode()).has_value());
}

void name_files(std::string_view input) {
    std::vector<NamedFile> named;
    for (const std::string_view line : split(input.substr(0, 4096), '\n'))
        named.push_back({to_utf16(line), static_cast<std::int64_t>(line.size()) - 1});
    const auto files = FileList::make(named);
    if (!files.ok()) return;
    std::int64_t end = 0;
    for (std::size_t i = 0; i < files->count(); ++i) {
        check_below(files->at(i).path);
        CHECK(files->at(i).offset == end);
        end += files->at(i).length;
    }
    for (std::int64_t at = 0; at < end; ++at) {
        const ListedFile& file = files->at(files->file_at(at));
        CHECK(file.offset <= at && at < file.offset + file.length);
    }
}

}  // namespace

void vantlow::fuzz::run(std::string_view input) {
    if (take_byte(input) % 2 == 0) {
        read_state(input);
    } else {
        name_files(input);
    }
}
