#include "fuzz.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "base/safe_name.h"
#include "base/text.h"

namespace vantlow::fuzz {
namespace {

struct Scratch {
    Scratch() {
        std::error_code error;
        const std::filesystem::path memory("/dev/shm");
        const auto parent =
            std::filesystem::is_directory(memory, error) ? memory : std::filesystem::temp_directory_path();
        std::string name = (parent / "vantlow-fuzz-XXXXXX").string();
        check(mkdtemp(name.data()) != nullptr, "a scratch folder can be made");
        folder = to_utf16(name);
    }
    ~Scratch() {
        std::error_code error;
        std::filesystem::remove_all(to_utf8(folder), error);
    }
    std::u16string folder;
};

}  // namespace

const std::u16string& scratch_folder() {
    static const Scratch scratch;
    return scratch.folder;
}

std::u16string scratch_file(std::u16string_view name, std::string_view bytes) {
    std::u16string path = scratch_folder() + u'/' + std::u16string(name);
    std::ofstream file(to_utf8(path), std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    check(file.good(), "a scratch file can be written");
    return path;
}

void check_safe_name(std::u16string_view name) {
    CHECK(!name.empty() && name != u"." && name != u"..");
    CHECK(name.find_first_of(u"/\\:<>\"|?*") == std::u16string_view::npos);
    CHECK(std::none_of(name.begin(), name.end(), [](char16_t c) { return c < 0x20 || c == 0x7F; }));
    CHECK(name.front() != u' ' && name.back() != u' ' && name.back() != u'.');
    CHECK(name.size() <= 200 && to_utf8(name).size() <= 200);
    CHECK(safe_file_name(name) == name);
}

}  // namespace vantlow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vantlow::fuzz::run({reinterpret_cast<const char*>(data), size});
    return 0;
}
