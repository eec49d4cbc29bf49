#include "platform/event_loop.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <utility>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/local_text.h"
#include "platform/stop.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const wchar_t* loop_class = L"VantlowFrame";
constexpr const wchar_t* client_class = L"VantlowClient";
// A further start looks for this property among the top-level windows.
constexpr const wchar_t* window_property = L"Vantlow";
constexpr std::intptr_t property_mark = 8788;
// The loop that a shown window passes requests to.
constexpr const wchar_t* loop_property = L"VantlowLoop";
constexpr const wchar_t* session_mutex = L"Local\\Vantlow.Instance";
// The kinds of messages that WM_COPYDATA carries here.
constexpr ULONG_PTR request_kind = 0x52574C56;  // "VLWR"
constexpr ULONG_PTR answer_kind = 0x41574C56;   // "VLWA"
constexpr std::size_t largest_message = 64U << 20U;
constexpr UINT send_time_ms = 30000;
// A process that is busy or frozen, which nothing tells apart here, is waited for this long.
constexpr std::chrono::milliseconds busy_time{15000};
// A stop is looked for this often where the system had no event for it.
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

// Makes an empty window of this process and thread; null, with the system's number, where that fails.
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

class WindowLoop final : public EventLoop {
  public:
    explicit WindowLoop(Events events) : events_(std::move(events)) {}
    ~WindowLoop() override;

    bool make(Role role, std::string& error);
    [[nodiscard]] std::string address() const override {
        return address_of(shown_ != nullptr ? shown_ : window_);
    }
    void set_timer(int id, std::chrono::milliseconds period) override {
        SetTimer(window_, first_timer + static_cast<UINT_PTR>(id), static_cast<UINT>(period.count()),
                 nullptr);
    }
    void post(std::function<void()> work) override;
    void run() override;
    void quit() noexcept override;
    void be_hosted(Host host) override;
    bool turn() override;

  private:
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM first, LPARAM second);
    static LRESULT CALLBACK shown_procedure(HWND window, UINT message, WPARAM first, LPARAM second);
    void leave_shown() noexcept;
    LRESULT take_request(HWND from, const COPYDATASTRUCT& data);
    void do_work();

    Events events_;
    HWND window_ = nullptr;
    HWND shown_ = nullptr;        // the host's, which stands for this process
    WNDPROC of_shown_ = nullptr;  // its own procedure
    std::function<void()> wake_host_;
    std::shared_ptr<HWND> here_ = std::make_shared<HWND>();  // what late answers look for
    Mutex mutex_;
    std::deque<std::function<void()>> work_ VANTLOW_GUARDED_BY(mutex_);
    bool quitting_ VANTLOW_GUARDED_BY(mutex_) = false;
};

WindowLoop::~WindowLoop() {
    here_.reset();
    leave_shown();
    if (window_ == nullptr) return;
    SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
    RemovePropW(window_, window_property);
    DestroyWindow(window_);
}

bool WindowLoop::make(Role role, std::string& error) {
    if (const int refused = ask_hook(Operation::listen); refused != 0) {
        error = "The hidden window cannot be made: " + system_text(refused);
        return false;
    }
    window_ = make_window(loop_class, nullptr, &procedure, this);
    // Without a desktop (a service) there are no top-level windows: who knows the address reaches it all the
    // same.
    if (window_ == nullptr) window_ = make_window(loop_class, HWND_MESSAGE, &procedure, this);
    if (window_ == nullptr) {
        error = "The hidden window cannot be made: " + system_text(static_cast<int>(GetLastError()));
        return false;
    }
    *here_ = window_;
    if (role == Role::main) SetPropW(window_, window_property, reinterpret_cast<HANDLE>(property_mark));
    return true;
}

void WindowLoop::post(std::function<void()> work) {
    const MutexLock guard(mutex_);
    work_.push_back(std::move(work));
    PostMessageW(window_, wm_work, 0, 0);  // under the lock: behind it the loop may have ended, and be gone
}

void WindowLoop::quit() noexcept {
    const MutexLock guard(mutex_);
    quitting_ = true;
    PostMessageW(window_, wm_work, 0, 0);  // as in post()
}

// All that is there: a message may have been lost in a full queue.
void WindowLoop::do_work() {
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

void WindowLoop::run() {
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

// The hidden window still has the timers and the work, and its messages come with those of the host. The
// property moves to the window that people see, and with it the requests of further starts.
void WindowLoop::be_hosted(Host host) {
    wake_host_ = std::move(host.wake);
    auto* const shown = static_cast<HWND>(host.window);
    if (shown != nullptr && RemovePropW(window_, window_property) != nullptr) {
        shown_ = shown;
        SetPropW(shown_, loop_property, this);
        SetPropW(shown_, window_property, reinterpret_cast<HANDLE>(property_mark));
        of_shown_ = reinterpret_cast<WNDPROC>(
            SetWindowLongPtrW(shown_, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&shown_procedure)));
    }
    PostMessageW(window_, wm_work, 0, 0);
}

// An instance that still saves is one all the same.
void WindowLoop::leave_shown() noexcept {
    if (shown_ == nullptr) return;
    RemovePropW(shown_, loop_property);
    RemovePropW(shown_, window_property);
    SetWindowLongPtrW(shown_, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(of_shown_));
    SetPropW(window_, window_property, reinterpret_cast<HANDLE>(property_mark));
    shown_ = nullptr;
}

LRESULT CALLBACK WindowLoop::shown_procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    auto* const loop = static_cast<WindowLoop*>(GetPropW(window, loop_property));
    if (loop == nullptr) return DefWindowProcW(window, message, first, second);
    if (message == WM_COPYDATA)
        return loop->take_request(reinterpret_cast<HWND>(first),
                                  *reinterpret_cast<const COPYDATASTRUCT*>(second));
    const WNDPROC own = loop->of_shown_;
    if (message == WM_NCDESTROY) loop->leave_shown();
    return CallWindowProcW(own, window, message, first, second);
}

bool WindowLoop::turn() {
    do_work();
    const MutexLock guard(mutex_);
    return !quitting_;
}

// The sender waits while this runs, so the request is only taken; the answer is a message of its own.
LRESULT WindowLoop::take_request(HWND from, const COPYDATASTRUCT& data) {
    if (data.dwData != request_kind || data.cbData > largest_message || from == nullptr) return FALSE;
    std::string request(static_cast<const char*>(data.lpData), data.cbData);
    post([this, from, request = std::move(request)] {
        events_.on_request(request, [here = std::weak_ptr<HWND>(here_), from](const std::string& answer) {
            if (const auto window = here.lock()) send_data(from, *window, answer_kind, answer);
        });
    });
    return TRUE;
}

LRESULT CALLBACK WindowLoop::procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    auto* const loop = object_of<WindowLoop>(window);
    if (loop == nullptr) return DefWindowProcW(window, message, first, second);
    switch (message) {
        case WM_COPYDATA:
            return loop->take_request(reinterpret_cast<HWND>(first),
                                      *reinterpret_cast<const COPYDATASTRUCT*>(second));
        case wm_work:
            if (loop->wake_host_) loop->wake_host_();
            return 0;
        case WM_TIMER:
            if (loop->events_.on_timer) loop->events_.on_timer(static_cast<int>(first - first_timer));
            return 0;
        case WM_QUERYENDSESSION:
            return TRUE;
        case WM_ENDSESSION:
            if (first != 0 && loop->events_.on_session_end) loop->events_.on_session_end();
            return 0;
        case WM_CLOSE:  // what the task manager and other programs send
            loop->quit();
            return 0;
        default:
            return DefWindowProcW(window, message, first, second);
    }
}

/// The window of a process that asks, to which the answer comes.
class Client {
  public:
    Client() : window_(make_window(client_class, HWND_MESSAGE, &procedure, this)) {}
    ~Client() {
        if (window_ != nullptr) DestroyWindow(window_);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    ProcessAnswer ask(HWND loop, std::string_view request, const StopSource& stop,
                      const std::function<void(std::int64_t process)>& on_busy);

  private:
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM first, LPARAM second);
    void wait_for_answer(HANDLE owner, const StopSource& stop);
    HWND window_;
    ProcessAnswer answer_;
};

LRESULT CALLBACK Client::procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    auto* const client = object_of<Client>(window);
    if (client == nullptr || message != WM_COPYDATA) return DefWindowProcW(window, message, first, second);
    const auto& data = *reinterpret_cast<const COPYDATASTRUCT*>(second);
    if (data.dwData != answer_kind) return FALSE;
    client->answer_.answer.assign(static_cast<const char*>(data.lpData), data.cbData);
    client->answer_.state = ProcessAnswer::State::answered;
    return TRUE;
}

// True when the thread of that window looks at its messages within the time.
bool looks_at_messages(HWND loop, std::chrono::milliseconds within) noexcept {
    DWORD_PTR ignored = 0;
    return SendMessageTimeoutW(loop, WM_NULL, 0, 0, SMTO_NORMAL, static_cast<UINT>(within.count()),
                               &ignored) != 0;
}

ProcessAnswer Client::ask(HWND loop, std::string_view request, const StopSource& stop,
                          const std::function<void(std::int64_t process)>& on_busy) {
    DWORD process = 0;
    if (ask_hook(Operation::connect) != 0) return {};
    if (window_ == nullptr || GetWindowThreadProcessId(loop, &process) == 0) return {};
    const Handle owner(OpenProcess(SYNCHRONIZE, FALSE, process));
    answer_.process = process;
    // A request that is sent to a window whose thread does not look would still be found later.
    if (!looks_at_messages(loop, silence_patience)) {
        if (!IsWindow(loop)) return {};
        if (on_busy) on_busy(process);
        if (!looks_at_messages(loop, busy_time - silence_patience)) {
            if (IsWindow(loop)) answer_.state = ProcessAnswer::State::not_taken;
            return std::move(answer_);
        }
    }
    // The other process may bring its window to the front, which only the process in front may allow.
    AllowSetForegroundWindow(process);
    if (!send_data(loop, window_, request_kind, request)) return {};
    answer_.state = ProcessAnswer::State::lost;
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
    while (answer_.state == ProcessAnswer::State::lost && !stop.requested()) {
        const DWORD woken =
            MsgWaitForMultipleObjects(count, handles, FALSE, blind ? blind_step_ms : INFINITE, QS_ALLINPUT);
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
        if (woken != WAIT_OBJECT_0 + count && woken != WAIT_TIMEOUT) break;
    }
}

}  // namespace

std::unique_ptr<EventLoop> EventLoop::open(const std::u16string& /*name*/, Role role, Events events,
                                           std::string& error) {
    auto loop = std::make_unique<WindowLoop>(std::move(events));
    if (!loop->make(role, error)) return nullptr;
    return loop;
}

ProcessAnswer ask_process(const std::string& address, std::string_view request, const StopSource& stop,
                          const std::function<void(std::int64_t process)>& on_busy) {
    const HWND loop = window_of(address);
    wchar_t name[32] = {};
    if (request.size() > largest_message || loop == nullptr || !IsWindow(loop)) return {};
    // The number may be another window's by now.
    const bool is_known = reinterpret_cast<std::intptr_t>(GetPropW(loop, window_property)) == property_mark;
    if (!is_known &&
        (GetClassNameW(loop, name, std::size(name)) == 0 || std::wstring_view(name) != loop_class))
        return {};
    Client client;
    return client.ask(loop, request, stop, on_busy);
}

void bring_to_front(const std::string& address) noexcept {
    const HWND loop = window_of(address);
    if (loop == nullptr || !IsWindowVisible(loop)) return;
    const HWND window = GetLastActivePopup(loop);
    if (IsIconic(window)) ShowWindow(window, SW_RESTORE);
    SetForegroundWindow(window);
}

// Services have a station without a desktop that anybody sees.
bool has_display() noexcept {
    USEROBJECTFLAGS flags{};
    return GetUserObjectInformationW(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags, nullptr) !=
               FALSE &&
           (flags.dwFlags & WSF_VISIBLE) != 0;
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
    // The instance is known by the property of its window.
}

std::string SessionClaim::find() {
    const HWND desktop = GetDesktopWindow();
    for (HWND window = GetWindow(desktop, GW_CHILD); window != nullptr;
         window = GetWindow(window, GW_HWNDNEXT)) {
        if (reinterpret_cast<std::intptr_t>(GetPropW(window, window_property)) == property_mark)
            return address_of(window);
    }
    return {};
}

}  // namespace vantlow
