#include "support/process_run.h"

#include <windows.h>

#include <array>
#include <stdexcept>

#include "base/text.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

const wchar_t* wide(const std::u16string& text) {
    return reinterpret_cast<const wchar_t*>(text.c_str());
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": system error " + std::to_string(GetLastError()));
}

class Handle {
  public:
    Handle() = default;
    ~Handle() { close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    void close() {
        if (value != nullptr) CloseHandle(value);
        value = nullptr;
    }
    HANDLE value = nullptr;
};

struct Pipe {
    Handle ends[2];  ///< to read, to write
    explicit Pipe(int inherited) {
        SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        if (CreatePipe(&ends[0].value, &ends[1].value, &attributes, 0) == 0) fail("pipe");
        SetHandleInformation(ends[1 - inherited].value, HANDLE_FLAG_INHERIT, 0);
    }
};

// One argument so that the C runtime's splitting gives it back.
std::u16string quoted(const std::u16string& argument) {
    if (!argument.empty() && argument.find_first_of(u" \t\n\v\"") == std::u16string::npos) return argument;
    std::u16string text = u"\"";
    std::size_t backslashes = 0;
    for (const char16_t c : argument) {
        if (c == u'"') text.append(backslashes + 1, u'\\');
        backslashes = c == u'\\' ? backslashes + 1 : 0;
        text.push_back(c);
    }
    text.append(backslashes, u'\\');
    return text + u"\"";
}

std::u16string environment_block(const RunOptions& options) {
    std::u16string block;
    wchar_t* const own = GetEnvironmentStringsW();
    for (const wchar_t* entry = own; *entry != 0; entry += wcslen(entry) + 1) {
        const std::u16string text = reinterpret_cast<const char16_t*>(entry);
        bool replaced = false;
        for (const auto& [name, value] : options.environment) {
            replaced = replaced || iequals(text.substr(0, text.find(u'=', 1)), to_utf16(name));
        }
        if (!replaced) block += text + u'\0';
    }
    FreeEnvironmentStringsW(own);
    for (const auto& [name, value] : options.environment) block += to_utf16(name) + u"=" + value + u'\0';
    return block + u'\0';
}

class WindowsProcess : public ProcessBackend {
  public:
    WindowsProcess(const std::u16string& program, const std::vector<std::u16string>& arguments,
                   const RunOptions& options)
        : input_(0), out_(1), err_(1) {
        std::u16string line = quoted(program);
        for (const std::u16string& argument : arguments) line += u" " + quoted(argument);
        std::u16string variables = environment_block(options);
        STARTUPINFOW start{};
        start.cb = sizeof start;
        start.dwFlags = STARTF_USESTDHANDLES;
        start.hStdInput = input_.ends[0].value;
        start.hStdOutput = out_.ends[1].value;
        start.hStdError = err_.ends[1].value;
        PROCESS_INFORMATION made{};
        // A group of its own, so that Ctrl-Break reaches it alone.
        const DWORD flags = CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP;
        const wchar_t* folder = options.folder.empty() ? nullptr : wide(options.folder);
        // Under Wine a start fails now and then for no fault of the program: the new process is gone before
        // it could report back, which this error says.
        for (int tries = 0;
             CreateProcessW(wide(program), reinterpret_cast<wchar_t*>(line.data()), nullptr, nullptr, TRUE,
                            flags, variables.data(), folder, &start, &made) == 0;
             ++tries) {
            if (GetLastError() != ERROR_INTERNAL_ERROR || tries == 3) fail(to_utf8(program));
        }
        CloseHandle(made.hThread);
        process_.value = made.hProcess;
        id_ = made.dwProcessId;
        input_.ends[0].close();
        out_.ends[1].close();
        err_.ends[1].close();
    }
    ~WindowsProcess() override { kill(); }

    std::string read(int stream) override {
        std::array<char, 65536> buffer;
        DWORD count = 0;
        const HANDLE from = stream == 0 ? out_.ends[0].value : err_.ends[0].value;
        if (ReadFile(from, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr) == 0) return {};
        return {buffer.data(), count};
    }

    void write_input(std::string_view input) override {
        DWORD count = 0;
        while (!input.empty() && WriteFile(input_.ends[1].value, input.data(),
                                           static_cast<DWORD>(input.size()), &count, nullptr) != 0) {
            input.remove_prefix(count);
        }
        input_.ends[1].close();
    }

    std::optional<int> wait(milliseconds at_most) override {
        if (WaitForSingleObject(process_.value, static_cast<DWORD>(at_most.count())) != WAIT_OBJECT_0)
            return std::nullopt;
        DWORD status = 0;
        GetExitCodeProcess(process_.value, &status);
        return static_cast<int>(status);
    }

    void kill() override { TerminateProcess(process_.value, 137); }
    void terminate() override { kill(); }
    bool interrupt() override { return GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, id_) != 0; }
    [[nodiscard]] std::int64_t id() const override { return id_; }

  private:
    Pipe input_;
    Pipe out_;
    Pipe err_;
    Handle process_;
    DWORD id_ = 0;
};

}  // namespace

std::unique_ptr<ProcessBackend> ProcessBackend::start(const std::u16string& program,
                                                      const std::vector<std::u16string>& arguments,
                                                      const RunOptions& options) {
    if (program.starts_with(u"/")) return start_unix_program(program, arguments, options);
    return std::make_unique<WindowsProcess>(program, arguments, options);
}

}  // namespace vantlow::test
