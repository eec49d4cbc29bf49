// The claim is a locked file in the run-time folder, in which the address stands.
#include <span>
#include <vector>

#include "base/text.h"
#include "platform/event_loop.h"
#include "platform/file.h"
#include "platform/posix/native.h"

namespace vantlow {
namespace {

std::u16string session_path() {
    std::string error;
    const std::string folder = runtime_folder(error);
    return folder.empty() ? std::u16string() : to_utf16(folder + "/instance");
}

}  // namespace

struct SessionClaim::State {
    File file;
};

SessionClaim::SessionClaim() : state_(std::make_unique<State>()) {}

SessionClaim::~SessionClaim() {
    release();
}

void SessionClaim::release() noexcept {
    if (!state_->file.is_open()) return;
    static_cast<void>(state_->file.resize(0));
    state_->file.close();
}

bool SessionClaim::claim() {
    const std::u16string path = session_path();
    // A session without a folder of its own cannot find an earlier instance, so this one is the first.
    if (path.empty() || !state_->file.open(path, OpenMode::write, Privacy::owner_only).ok()) return true;
    if (state_->file.try_lock()) {
        static_cast<void>(state_->file.resize(0));
        return true;
    }
    state_->file.close();
    return false;
}

void SessionClaim::publish(const std::string& address) {
    if (!state_->file.is_open()) return;
    static_cast<void>(state_->file.write_at(0, std::as_bytes(std::span(address))));
}

std::string SessionClaim::find() {
    std::vector<std::byte> bytes;
    const std::u16string path = session_path();
    if (path.empty() || !read_file(path, 4096, bytes).ok()) return {};
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace vantlow
