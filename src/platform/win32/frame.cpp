#include "platform/frame.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <utility>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/stop.h"
#include "platform/system_text.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const wchar_t* frame_class = L"VantlowFrame";
constexpr const wchar_t* client_class = L"VantlowClient";
// What a further start looks for among the top-level windows.
constexpr const wchar_t* frame_property = L"Vantlow";
constexpr std::intptr_t frame_mark = 8788;
constexpr const wchar_t* session_mutex = L"Local\\Vantlow.Instance";
// What WM_COPYDATA carries here.
constexpr ULONG_PTR request_kind = 0x52574C56;  // "VLWR"
constexpr ULONG_PTR answer_kind = 0x41574C56;   // "VLWA"
constexpr std::size_t largest_message = 64U << 20U;
constexpr UINT send_time_ms = 30000;
// How long a frame is waited for that is busy or frozen, which nothing tells apart here.
constexpr std::chrono::milliseconds busy_time{15000};
// How often a stop is looked for where the system had no event for it.
constexpr DWORD blind_step_ms = 50;
constexpr UINT wm_work = WM_APP + 1;
constexpr UINT_PTR first_timer = 1;

HWND window_of(const std::string& address) noexcept {
    const auto number = parse_decimal(address);
    return number ? reinterpret_cast<HWND>(static_cast<std::intptr_t>(*number)) : nullptr;
}

std::string address_of(HWND window) {
    return std::to_string(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(window)));
}

// A window of this process and thread with nothing of its own; null, with the system's number, otherwise.
HWND make_window(const wchar_t* name, HWND parent, WNDPROC procedure, void* object) noexcept {
    WNDCLASSEXW window_class{};
    window_class.cbSize = sizeof window_class;
    window_class.lpfnWndProc = procedure;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = name;
    if (RegisterClassExW(&window_class) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) return nullptr;
    const HWND window =
        CreateWindowExW(0, name, L"Vantlow", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT,
                        CW_USEDEFAULT, parent, nullptr, window_class.hInstance, nullptr);
    if (window != nullptr) SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(object));
    return window;
}

template <class Object>
Object* object_of(HWND window) noexcept {
    return reinterpret_cast<Object*>(GetWindowLongPtrW(window, GWLP_USERDATA));
}

bool send_data(HWND to, HWND from, ULONG_PTR kind, std::string_view bytes) noexcept {
    COPYDATASTRUCT data{};
    data.dwData = kind;
    data.cbData = static_cast<DWORD>(bytes.size());
    data.lpData = const_cast<char*>(bytes.data());  // NOLINT: the receiver gets a copy
    DWORD_PTR taken = FALSE;
    const LRESULT sent =
        SendMessageTimeoutW(to, WM_COPYDATA, reinterpret_cast<WPARAM>(from), reinterpret_cast<LPARAM>(&data),
                            SMTO_ABORTIFHUNG, send_time_ms, &taken);
    return sent != 0 && taken != FALSE;
}

class WindowFrame final : public Frame {
  public:
    explicit WindowFrame(Events events) : events_(std::move(events)) {}
    ~WindowFrame() override;

    bool make(Role role, std::string& error);
    [[nodiscard]] std::string address() const override { return address_of(window_); }
    void set_timer(int id, std::chrono::milliseconds period) override {
        SetTimer(window_, first_timer + static_cast<UINT_PTR>(id), static_cast<UINT>(period.count()),
                 nullptr);
    }
    void post(std::function<void()> work) override;
    void run() override;
    void quit() noexcept override;

  private:
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM first, LPARAM second);
    LRESULT take_request(HWND from, const COPYDATASTRUCT& data);
    void do_work();

    Events events_;
    HWND window_ = nullptr;
    std::shared_ptr<HWND> here_ = std::make_shared<HWND>();  // what late answers look for
    Mutex mutex_;
    std::deque<std::function<void()>> work_ VANTLOW_GUARDED_BY(mutex_);
    bool quitting_ VANTLOW_GUARDED_BY(mutex_) = false;
};

WindowFrame::~WindowFrame() {
    here_.reset();
    if (window_ == nullptr) return;
    SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
    RemovePropW(window_, frame_property);
    DestroyWindow(window_);
}

bool WindowFrame::make(Role role, std::string& error) {
    if (const int refused = ask_hook(Operation::listen); refused != 0) {
        error = "The main frame cannot be made: " + system_text(refused);
        return false;
    }
    window_ = make_window(frame_class, nullptr, &procedure, this);
    // Without a desktop (a service) there are no top-level windows: who knows the address reaches it all the
    // same.
    if (window_ == nullptr) window_ = make_window(frame_class, HWND_MESSAGE, &procedure, this);
    if (window_ == nullptr) {
        error = "The main frame cannot be made: " + system_text(static_cast<int>(GetLastError()));
        return false;
    }
    *here_ = window_;
    if (role == Role::main) SetPropW(window_, frame_property, reinterpret_cast<HANDLE>(frame_mark));
    return true;
}

void WindowFrame::post(std::function<void()> work) {
    {
        const MutexLock guard(mutex_);
        work_.push_back(std::move(work));
    }
    PostMessageW(window_, wm_work, 0, 0);
}

void WindowFrame::quit() noexcept {
    {
        const MutexLock guard(mutex_);
        quitting_ = true;
    }
    PostMessageW(window_, wm_work, 0, 0);
}

// All that is there: a message may have been lost in a full queue.
void WindowFrame::do_work() {
    for (;;) {
        std::function<void()> work;
        {
            const MutexLock guard(mutex_);
            if (work_.empty() || quitting_) return;
            work = std::move(work_.front());
            work_.pop_front();
        }
        work();
    }
}

void WindowFrame::run() {
    MSG message{};
    for (;;) {
        do_work();
        {
            const MutexLock guard(mutex_);
            if (std::exchange(quitting_, false)) return;
        }
        if (GetMessageW(&message, nullptr, 0, 0) <= 0) return;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

// The sender waits while this runs, so the request is only taken; the answer is a message of its own.
LRESULT WindowFrame::take_request(HWND from, const COPYDATASTRUCT& data) {
    if (data.dwData != request_kind || data.cbData > largest_message || from == nullptr) return FALSE;
    std::string request(static_cast<const char*>(data.lpData), data.cbData);
    post([this, from, request = std::move(request)] {
        events_.on_request(request, [here = std::weak_ptr<HWND>(here_), from](const std::string& answer) {
            if (const auto window = here.lock()) send_data(from, *window, answer_kind, answer);
        });
    });
    return TRUE;
}

LRESULT CALLBACK WindowFrame::procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    auto* const frame = object_of<WindowFrame>(window);
    if (frame == nullptr) return DefWindowProcW(window, message, first, second);
    switch (message) {
        case WM_COPYDATA:
            return frame->take_request(reinterpret_cast<HWND>(first),
                                       *reinterpret_cast<const COPYDATASTRUCT*>(second));
        case WM_TIMER:
            if (frame->events_.on_timer) frame->events_.on_timer(static_cast<int>(first - first_timer));
            return 0;
        case WM_QUERYENDSESSION:
            return TRUE;
        case WM_ENDSESSION:
            if (first != 0 && frame->events_.on_session_end) frame->events_.on_session_end();
            return 0;
        case WM_CLOSE:  // what the task manager and other programs send
            frame->quit();
            return 0;
        default:
            return DefWindowProcW(window, message, first, second);
    }
}

/// The window that an answer comes to.
class Client {
  public:
    Client() : window_(make_window(client_class, HWND_MESSAGE, &procedure, this)) {}
    ~Client() {
        if (window_ != nullptr) DestroyWindow(window_);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    FrameAnswer ask(HWND frame, std::string_view request, const StopSource& stop,
                    const std::function<void(std::int64_t process)>& on_busy);

  private:
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM first, LPARAM second);
    void wait_for_answer(HANDLE owner, const StopSource& stop);
    HWND window_;
    FrameAnswer answer_;
};

LRESULT CALLBACK Client::procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    auto* const client = object_of<Client>(window);
    if (client == nullptr || message != WM_COPYDATA) return DefWindowProcW(window, message, first, second);
    const auto& data = *reinterpret_cast<const COPYDATASTRUCT*>(second);
    if (data.dwData != answer_kind) return FALSE;
    client->answer_.answer.assign(static_cast<const char*>(data.lpData), data.cbData);
    client->answer_.state = FrameAnswer::State::answered;
    return TRUE;
}

// Whether the frame's thread looks at its messages, within the time.
bool looks_at_messages(HWND frame, std::chrono::milliseconds within) noexcept {
    DWORD_PTR ignored = 0;
    return SendMessageTimeoutW(frame, WM_NULL, 0, 0, SMTO_NORMAL, static_cast<UINT>(within.count()),
                               &ignored) != 0;
}

FrameAnswer Client::ask(HWND frame, std::string_view request, const StopSource& stop,
                        const std::function<void(std::int64_t process)>& on_busy) {
    DWORD process = 0;
    if (ask_hook(Operation::connect) != 0) return {};
    if (window_ == nullptr || GetWindowThreadProcessId(frame, &process) == 0) return {};
    const Handle owner(OpenProcess(SYNCHRONIZE, FALSE, process));
    answer_.process = process;
    // A request that was sent to a frame that does not look would be found by it later.
    if (!looks_at_messages(frame, frame_patience)) {
        if (!IsWindow(frame)) return {};
        if (on_busy) on_busy(process);
        if (!looks_at_messages(frame, busy_time - frame_patience)) {
            if (IsWindow(frame)) answer_.state = FrameAnswer::State::not_taken;
            return std::move(answer_);
        }
    }
    // The frame may bring its window to the front, which only who is in front may allow.
    AllowSetForegroundWindow(process);
    if (!send_data(frame, window_, request_kind, request)) return {};
    answer_.state = FrameAnswer::State::lost;
    wait_for_answer(owner.is_valid() ? owner.get() : nullptr, stop);
    return std::move(answer_);
}

// Until it came, its process ended or a stop was requested.
void Client::wait_for_answer(HANDLE owner, const StopSource& stop) {
    // The system may have had no event for the stop.
    const bool blind = stop.wake().native() == -1;
    HANDLE handles[2] = {};
    DWORD count = 0;
    if (!blind) handles[count++] = reinterpret_cast<HANDLE>(stop.wake().native());
    if (owner != nullptr) handles[count++] = owner;
    while (answer_.state == FrameAnswer::State::lost && !stop.requested()) {
        const DWORD woken =
            MsgWaitForMultipleObjects(count, handles, FALSE, blind ? blind_step_ms : INFINITE, QS_ALLINPUT);
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
        if (woken != WAIT_OBJECT_0 + count && woken != WAIT_TIMEOUT) break;
    }
}

}  // namespace

std::unique_ptr<Frame> Frame::open(const std::u16string& /*name*/, Role role, Events events,
                                   std::string& error) {
    auto frame = std::make_unique<WindowFrame>(std::move(events));
    if (!frame->make(role, error)) return nullptr;
    return frame;
}

FrameAnswer ask_frame(const std::string& address, std::string_view request, const StopSource& stop,
                      const std::function<void(std::int64_t process)>& on_busy) {
    const HWND frame = window_of(address);
    wchar_t name[32] = {};
    if (request.size() > largest_message || frame == nullptr || !IsWindow(frame)) return {};
    // The number may be another window's by now.
    if (GetClassNameW(frame, name, std::size(name)) == 0 || std::wstring_view(name) != frame_class) return {};
    Client client;
    return client.ask(frame, request, stop, on_busy);
}

void bring_to_front(const std::string& address) noexcept {
    const HWND frame = window_of(address);
    if (frame == nullptr) return;
    const HWND window = GetLastActivePopup(frame);
    if (IsIconic(window)) ShowWindow(window, SW_RESTORE);
    SetForegroundWindow(window);
}

struct SessionClaim::State {
    HANDLE mutex = nullptr;
};

SessionClaim::SessionClaim() : state_(std::make_unique<State>()) {}

SessionClaim::~SessionClaim() {
    release();
}

void SessionClaim::release() noexcept {
    if (state_->mutex != nullptr) CloseHandle(std::exchange(state_->mutex, nullptr));
}

bool SessionClaim::claim() {
    if (state_->mutex != nullptr) return true;
    state_->mutex = CreateMutexW(nullptr, FALSE, session_mutex);
    if (state_->mutex == nullptr || GetLastError() != ERROR_ALREADY_EXISTS) return true;
    CloseHandle(std::exchange(state_->mutex, nullptr));
    return false;
}

void SessionClaim::publish(const std::string& /*address*/) {
    // The frame's property is what is looked for.
}

std::string SessionClaim::find() {
    const HWND desktop = GetDesktopWindow();
    for (HWND window = GetWindow(desktop, GW_CHILD); window != nullptr;
         window = GetWindow(window, GW_HWNDNEXT)) {
        if (reinterpret_cast<std::intptr_t>(GetPropW(window, frame_property)) == frame_mark)
            return address_of(window);
    }
    return {};
}

}  // namespace vantlow
