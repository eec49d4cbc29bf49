#include "platform/background_process.h"

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/local_text.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

class StartedProcess final : public BackgroundProcess {
  public:
    explicit StartedProcess(const PROCESS_INFORMATION& made) noexcept
        : process_(made.hProcess), id_(made.dwProcessId) {
        CloseHandle(made.hThread);
    }

    [[nodiscard]] std::int64_t id() const noexcept override { return id_; }
    [[nodiscard]] std::optional<int> ended() noexcept override {
        DWORD status = 0;
        if (WaitForSingleObject(process_.get(), 0) != WAIT_OBJECT_0) return std::nullopt;
        return GetExitCodeProcess(process_.get(), &status) ? static_cast<int>(status) : 1;
    }

  private:
    Handle process_;
    DWORD id_;
};

// Quotes one argument so that the splitting of the C runtime and of the shell gives it back.
std::u16string quoted(const std::u16string& word) {
    if (!word.empty() && word.find_first_of(u" \t\n\v\"") == std::u16string::npos) return word;
    std::u16string text = u"\"";
    std::size_t backslashes = 0;
    for (const char16_t c : word) {
        // Backslashes in front of a quotation mark count twice.
        if (c == u'"') text.append(backslashes + 1, u'\\');
        backslashes = c == u'\\' ? backslashes + 1 : 0;
        text.push_back(c);
    }
    text.append(backslashes, u'\\');
    return text + u"\"";
}

/// The handles that a new process gets, and no others.
class Inherited {
  public:
    explicit Inherited(std::vector<HANDLE> handles) : handles_(std::move(handles)) {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        memory_.resize(size);
        auto* const list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory_.data());
        if (!InitializeProcThreadAttributeList(list, 1, 0, &size)) return;
        list_ = list;
        UpdateProcThreadAttribute(list_, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_.data(),
                                  handles_.size() * sizeof(HANDLE), nullptr, nullptr);
    }
    ~Inherited() {
        if (list_ != nullptr) DeleteProcThreadAttributeList(list_);
    }
    Inherited(const Inherited&) = delete;
    Inherited& operator=(const Inherited&) = delete;
    [[nodiscard]] LPPROC_THREAD_ATTRIBUTE_LIST list() const noexcept { return list_; }

  private:
    std::vector<HANDLE> handles_;
    std::vector<std::byte> memory_;
    LPPROC_THREAD_ATTRIBUTE_LIST list_ = nullptr;
};

HANDLE open_inheritable(const wchar_t* path, DWORD access, DWORD disposition, bool owner_only) noexcept {
    const OwnerOnly security(owner_only);
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    if (security.attributes() != nullptr)
        attributes.lpSecurityDescriptor = security.attributes()->lpSecurityDescriptor;
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return CreateFileW(path, access, share, &attributes, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// The system's number where it fails.
DWORD create_process(const std::u16string& program, std::u16string line, const NativePath& output,
                     PROCESS_INFORMATION& made) {
    const Handle nothing(open_inheritable(L"NUL", GENERIC_READ, OPEN_EXISTING, false));
    if (!nothing.is_valid()) return GetLastError();
    const Handle out(open_inheritable(output.get(), FILE_APPEND_DATA | SYNCHRONIZE, CREATE_ALWAYS, true));
    if (!out.is_valid()) return GetLastError();
    const Inherited inherited({nothing.get(), out.get()});
    if (inherited.list() == nullptr) return GetLastError();
    STARTUPINFOEXW start{};
    start.StartupInfo.cb = sizeof start;
    start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    start.StartupInfo.hStdInput = nothing.get();
    start.StartupInfo.hStdOutput = out.get();
    start.StartupInfo.hStdError = out.get();
    start.lpAttributeList = inherited.list();
    const auto try_to_start = [&](DWORD more) {
        const DWORD flags = DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP | EXTENDED_STARTUPINFO_PRESENT | more;
        const BOOL started =
            CreateProcessW(wide(program), reinterpret_cast<wchar_t*>(line.data()), nullptr, nullptr, TRUE,
                           flags, nullptr, nullptr, &start.StartupInfo, &made);
        return started ? ERROR_SUCCESS : GetLastError();
    };
    // A browser ends the job of the programs that it started, and everything in it; not every job lets go.
    const DWORD error = try_to_start(CREATE_BREAKAWAY_FROM_JOB);
    return error == ERROR_ACCESS_DENIED ? try_to_start(0) : error;
}

}  // namespace

std::unique_ptr<BackgroundProcess> BackgroundProcess::start(const std::u16string& program,
                                                            const std::vector<std::string>& words,
                                                            const std::u16string& output,
                                                            std::string& error) {
    std::u16string line = quoted(program);
    for (const std::string& word : words) line += u" " + quoted(to_utf16(word));
    PROCESS_INFORMATION made{};
    auto failure = static_cast<DWORD>(ask_hook(Operation::start_process, program));
    if (failure == ERROR_SUCCESS) failure = create_process(program, line, NativePath(output), made);
    if (failure != ERROR_SUCCESS) {
        error = to_utf8(program) + " cannot be started with its output in " + to_utf8(output) + ": " +
                system_text(static_cast<int>(failure));
        return nullptr;
    }
    return std::make_unique<StartedProcess>(made);
}

}  // namespace vantlow
