#include "platform/console.h"

#include <algorithm>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

constexpr int standard_width = 80;
constexpr int standard_height = 24;
// Consoles take no more than some 60 KiB at once.
constexpr std::size_t most_at_once = 8192;

HANDLE handle_of(Stream stream) noexcept {
    return GetStdHandle(stream == Stream::output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

DWORD write_console(HANDLE console, std::u16string_view text) noexcept {
    while (!text.empty()) {
        const auto* from = reinterpret_cast<const wchar_t*>(text.data());
        auto part = static_cast<DWORD>(std::min(text.size(), most_at_once));
        // A pair of surrogates goes in one piece.
        if (part < text.size() && part > 1 && (text[part - 1] & 0xFC00) == 0xD800) --part;
        DWORD count = 0;
        if (!WriteConsoleW(console, from, part, &count, nullptr)) return GetLastError();
        if (count == 0) return ERROR_WRITE_FAULT;
        text.remove_prefix(count);
    }
    return ERROR_SUCCESS;
}

}  // namespace

bool is_terminal(Stream stream) noexcept {
    DWORD mode = 0;
    return ConsoleCapture::current() == nullptr && GetConsoleMode(handle_of(stream), &mode) != 0;
}

int terminal_width(Stream stream) noexcept {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(handle_of(stream), &info)) return standard_width;
    const int width = info.srWindow.Right - info.srWindow.Left + 1;
    return width > 0 ? width : standard_width;
}

int terminal_height(Stream stream) noexcept {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(handle_of(stream), &info)) return standard_height;
    const int height = info.srWindow.Bottom - info.srWindow.Top + 1;
    return height > 0 ? height : standard_height;
}

bool prepare_terminal(Stream stream) noexcept {
    HANDLE console = handle_of(stream);
    DWORD mode = 0;
    if (!GetConsoleMode(console, &mode)) return false;
    return SetConsoleMode(console, mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

// Until a key is pressed a stop is noticed; after that the console is read up to the line's end.
std::optional<std::string> read_terminal_line(const StopSource& stop) {
    constexpr DWORD step_ms = 100;
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(input, &mode)) return std::nullopt;
    while (!stop.requested()) {
        INPUT_RECORD record{};
        DWORD count = 0;
        if (WaitForSingleObject(input, step_ms) != WAIT_OBJECT_0) continue;
        if (!PeekConsoleInputW(input, &record, 1, &count)) return std::nullopt;
        const bool is_key = count > 0 && record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown;
        if (!is_key) {
            if (!ReadConsoleInputW(input, &record, 1, &count)) return std::nullopt;
            continue;
        }
        wchar_t text[256];
        if (!ReadConsoleW(input, text, 256, &count, nullptr) || count == 0) return std::nullopt;
        std::string line = to_utf8(from_wide({text, count}));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        return line;
    }
    return std::nullopt;
}

void prepare_streams() noexcept {}  // handles are not numbers that the next file gets

int continue_streams_in(const std::u16string& path) {
    const OwnerOnly security(true);
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE file = CreateFileW(NativePath(path).get(), FILE_APPEND_DATA | SYNCHRONIZE, share,
                              security.attributes(), OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return static_cast<int>(GetLastError());
    // The handles before stay open: another thread may be writing to them.
    SetStdHandle(STD_OUTPUT_HANDLE, file);
    SetStdHandle(STD_ERROR_HANDLE, file);
    return 0;
}

int write_to_system(Stream stream, std::string_view text) noexcept {
    HANDLE out = handle_of(stream);
    if (out == nullptr) return 0;  // started without a console, by the desktop: there is nobody to write to
    if (is_terminal(stream)) return static_cast<int>(write_console(out, to_utf16(text)));
    while (!text.empty()) {
        const auto part = static_cast<DWORD>(std::min(text.size(), std::size_t{1} << 20U));
        DWORD count = 0;
        if (!WriteFile(out, text.data(), part, &count, nullptr)) return static_cast<int>(GetLastError());
        if (count == 0) return ERROR_WRITE_FAULT;
        text.remove_prefix(count);
    }
    return 0;
}

std::size_t read_input(std::span<char> into) noexcept {
    DWORD count = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(into.size(), 1U << 20U));
    const bool ok = ReadFile(GetStdHandle(STD_INPUT_HANDLE), into.data(), size, &count, nullptr) != 0;
    return ok ? count : 0;
}

std::string read_standard_input(std::size_t at_most) {
    if (ConsoleCapture* const capture = ConsoleCapture::current()) return capture->take_input();
    HANDLE in = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    const bool is_console = GetConsoleMode(in, &mode) != 0;
    std::string text;
    std::u16string typed;
    while (text.size() < at_most && typed.size() < at_most) {
        char piece[8192];
        DWORD count = 0;
        if (is_console) {
            auto* const units = reinterpret_cast<wchar_t*>(piece);
            if (!ReadConsoleW(in, units, sizeof piece / sizeof(wchar_t), &count, nullptr) || count == 0)
                break;
            if (units[0] == L'\x1A') break;  // Ctrl-Z
            typed.append(reinterpret_cast<const char16_t*>(units), count);
        } else {
            const std::size_t got = read_input(piece);
            if (got == 0) break;
            text.append(piece, got);
        }
    }
    return is_console ? to_utf8(typed) : text;
}

struct InterruptWatch::State {
    Handler handler;
    void* context;
    int count;

    static BOOL WINAPI on_event(DWORD kind);

    // The watch that hears of events. The mutex lets in one event after the other, and none after the watch's
    // end.
    static inline Mutex mutex;
    static inline State* current VANTLOW_GUARDED_BY(mutex) = nullptr;
};

// The system calls this in a thread of its own for each event.
BOOL WINAPI InterruptWatch::State::on_event(DWORD kind) {
    {
        const MutexLock guard(mutex);
        if (current == nullptr) return FALSE;
        current->handler(current->context, ++current->count);
    }
    // The process ends at once when this returns for these events, so it waits here and has the seconds that
    // the system grants to end by itself.
    if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) Sleep(INFINITE);
    return TRUE;
}

InterruptWatch::InterruptWatch(Handler handler, void* context, HangUp /*hang_up*/)
    : state_(new State{handler, context, 0}) {
    {
        const MutexLock guard(State::mutex);
        State::current = state_;
    }
    SetConsoleCtrlHandler(&State::on_event, TRUE);
}

InterruptWatch::~InterruptWatch() {
    SetConsoleCtrlHandler(&State::on_event, FALSE);
    const MutexLock guard(State::mutex);
    State::current = nullptr;
    delete state_;
}

}  // namespace vantlow
