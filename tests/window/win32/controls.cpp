// The windows and controls of the window's process, for a test in another process: lines of words between
// tabs come in and do what "operations" below says; lines go out, the last one is "." or, where it failed,
// "!" with why.
#include <windows.h>

#include <commctrl.h>
#include <ole2.h>
#include <shlobj.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Words = std::vector<std::string>;

std::wstring wide(const std::string& text) {
    std::wstring all(text.size(), L'\0');
    all.resize(static_cast<std::size_t>(MultiByteToWideChar(
        CP_UTF8, 0, text.data(), static_cast<int>(text.size()), all.data(), static_cast<int>(all.size()))));
    return all;
}

// UTF-8 of one line without tabs.
std::string narrow(const std::wstring& text) {
    std::string all(text.size() * 3, '\0');
    all.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(),
                                                            static_cast<int>(text.size()), all.data(),
                                                            static_cast<int>(all.size()), nullptr, nullptr)));
    for (char& c : all) {
        if (c == '\t' || c == '\n' || c == '\r') c = ' ';
    }
    return all;
}

HWND window_of(const std::string& word) {
    return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(std::stoull(word)));
}

std::string word_of(HWND window) {
    return std::to_string(reinterpret_cast<std::uintptr_t>(window));
}

LRESULT send(HWND window, UINT message, WPARAM first = 0, LPARAM second = 0) {
    DWORD_PTR answer = 0;
    constexpr UINT patience_ms = 10000;
    SendMessageTimeoutW(window, message, first, second, SMTO_ABORTIFHUNG, patience_ms, &answer);
    return static_cast<LRESULT>(answer);
}

/// Memory in the other process, for messages that take pointers: a record, and a text behind it.
template <typename Record>
class Remote {
  public:
    explicit Remote(HWND window) {
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        process_ = OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_READ | PROCESS_VM_WRITE, FALSE, process);
        at_ = static_cast<std::byte*>(VirtualAllocEx(process_, nullptr, sizeof(Record) + text_size,
                                                     MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    }
    ~Remote() {
        VirtualFreeEx(process_, at_, 0, MEM_RELEASE);
        CloseHandle(process_);
    }
    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;

    [[nodiscard]] LPARAM at() const { return reinterpret_cast<LPARAM>(at_); }
    [[nodiscard]] wchar_t* text() const { return reinterpret_cast<wchar_t*>(at_ + sizeof(Record)); }
    void put(const Record& record) { WriteProcessMemory(process_, at_, &record, sizeof record, nullptr); }
    [[nodiscard]] Record get() const {
        Record record{};
        ReadProcessMemory(process_, at_, &record, sizeof record, nullptr);
        return record;
    }
    [[nodiscard]] std::wstring get_text() const {
        std::wstring text(text_length, L'\0');
        ReadProcessMemory(process_, at_ + sizeof(Record), text.data(), text_size, nullptr);
        return text.c_str();
    }
    static constexpr int text_length = 500;

  private:
    static constexpr std::size_t text_size = text_length * sizeof(wchar_t);
    HANDLE process_ = nullptr;
    std::byte* at_ = nullptr;
};

bool is_of_program(HWND window) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    const HANDLE handle = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process);
    wchar_t path[MAX_PATH]{};
    DWORD size = MAX_PATH;
    const bool is_known = handle != nullptr && QueryFullProcessImageNameW(handle, 0, path, &size) != 0;
    if (handle != nullptr) CloseHandle(handle);
    return is_known && std::wstring(path).find(L"vantlow-desktop.exe") != std::wstring::npos;
}

std::vector<HWND> top_windows() {
    std::vector<HWND> all;
    const auto note = [](HWND window, LPARAM list) -> BOOL {
        if (is_of_program(window)) reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
        return TRUE;
    };
    EnumWindows(note, reinterpret_cast<LPARAM>(&all));
    return all;
}

void print_window(HWND window, HWND top) {
    wchar_t kind[100]{};
    GetClassNameW(window, kind, 100);
    std::wstring text(static_cast<std::size_t>(send(window, WM_GETTEXTLENGTH)) + 1, L'\0');
    send(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    std::string state;
    if (IsWindowVisible(window) != 0) state += "visible ";
    if (IsWindowEnabled(window) != 0) state += "enabled ";
    if (std::wstring(kind) == WC_BUTTONW && send(window, BM_GETCHECK) == BST_CHECKED) state += "checked ";
    std::cout << word_of(window) << '\t' << word_of(top) << '\t' << narrow(kind) << '\t' << state << '\t'
              << narrow(text.c_str()) << '\n';
}

void print_windows(const Words&) {
    for (const HWND top : top_windows()) {
        print_window(top, top);
        std::vector<HWND> below;
        const auto note = [](HWND window, LPARAM list) -> BOOL {
            reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
            return TRUE;
        };
        EnumChildWindows(top, note, reinterpret_cast<LPARAM>(&below));
        for (const HWND window : below) print_window(window, top);
    }
}

HWND header_of(HWND list) {
    return reinterpret_cast<HWND>(send(list, LVM_GETHEADER));
}

/// Asks the control for a text by a record that says where it goes; all kinds have these fields.
template <typename Record>
std::string text_by(UINT message, HWND control, LRESULT index, Remote<Record>& place, Record record) {
    record.pszText = place.text();
    record.cchTextMax = place.text_length;
    place.put(record);
    send(control, message, static_cast<WPARAM>(index), place.at());
    return narrow(place.get_text());
}

// The texts of a header's columns: in front those of the rows, then a line for each row.
void print_rows(const Words& words) {
    constexpr LRESULT most_rows = 200;
    const HWND list = window_of(words.at(1));
    const HWND header = header_of(list);
    const LRESULT columns = send(header, HDM_GETITEMCOUNT);
    Remote<HDITEMW> title(header);
    for (LRESULT column = 0; column < columns; ++column) {
        HDITEMW item{};
        item.mask = HDI_TEXT;
        std::cout << (column > 0 ? "\t" : "") << text_by(HDM_GETITEMW, header, column, title, item);
    }
    std::cout << '\n';
    Remote<LVITEMW> cell(list);
    const LRESULT rows = std::min(send(list, LVM_GETITEMCOUNT), most_rows);
    for (LRESULT row = 0; row < rows; ++row) {
        for (LRESULT column = 0; column < columns; ++column) {
            LVITEMW item{};
            item.iSubItem = static_cast<int>(column);
            std::cout << (column > 0 ? "\t" : "") << text_by(LVM_GETITEMTEXTW, list, row, cell, item);
        }
        std::cout << '\n';
    }
}

void print_tabs(const Words& words) {
    const HWND tabs = window_of(words.at(1));
    Remote<TCITEMW> tab(tabs);
    for (LRESULT i = 0; i < send(tabs, TCM_GETITEMCOUNT); ++i) {
        TCITEMW item{};
        item.mask = TCIF_TEXT;
        std::cout << text_by(TCM_GETITEMW, tabs, i, tab, item) << '\n';
    }
}

// The place on the screen of a "header", "tab", "row" or "box": the middle of a column's title or of a tab, a
// row's first cell, or the check box in front of it.
void print_place(const Words& words) {
    HWND window = window_of(words.at(1));
    const auto number = static_cast<WPARAM>(std::stoul(words.at(3)));
    if (words.at(2) == "header") window = header_of(window);
    Remote<RECT> room(window);
    RECT asked{};
    asked.left = LVIR_BOUNDS;
    room.put(asked);
    const UINT message = words.at(2) == "header" ? HDM_GETITEMRECT
                         : words.at(2) == "tab"  ? static_cast<UINT>(TCM_GETITEMRECT)
                                                 : static_cast<UINT>(LVM_GETITEMRECT);
    send(window, message, number, room.at());
    const RECT found = room.get();
    constexpr LONG into_box = 8;
    constexpr LONG into_cell = 60;
    const LONG x = words.at(2) == "box"   ? found.left + into_box
                   : words.at(2) == "row" ? found.left + into_cell
                                          : (found.left + found.right) / 2;
    POINT place{x, (found.top + found.bottom) / 2};
    ClientToScreen(window, &place);
    std::cout << place.x << '\t' << place.y << '\n';
}

// Chooses an entry of a list or a choice as a person does, of which its dialog is told.
void choose(const Words& words) {
    const HWND window = window_of(words.at(1));
    const std::wstring text = wide(words.at(2));
    wchar_t kind[100]{};
    GetClassNameW(window, kind, 100);
    const bool is_combo = std::wstring(kind) == WC_COMBOBOXW;
    const LRESULT found = send(window, is_combo ? CB_FINDSTRINGEXACT : LB_FINDSTRINGEXACT,
                               static_cast<WPARAM>(-1), reinterpret_cast<LPARAM>(text.c_str()));
    if (found < 0) throw std::runtime_error("there is no such entry");
    send(window, is_combo ? CB_SETCURSEL : LB_SETCURSEL, static_cast<WPARAM>(found));
    for (const int told :
         {is_combo ? CBN_SELENDOK : LBN_SELCHANGE, is_combo ? CBN_SELCHANGE : LBN_SELCHANGE}) {
        PostMessageW(GetParent(window), WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(window), told),
                     reinterpret_cast<LPARAM>(window));
    }
}

// As the tray tells a click at its sign ("sign") or at a "notice", which Wine's own tray does not hear: its
// message goes to a window that nobody sees.
void click_tray(const Words& words) {
    const UINT message = RegisterWindowMessageW(L"wxTaskBarIconMessage");
    const LPARAM told = words.at(1) == "notice" ? NIN_BALLOONUSERCLICK : WM_LBUTTONUP;
    for (const HWND window : top_windows()) {
        if (IsWindowVisible(window) == 0) PostMessageW(window, message, 99, told);
    }
}

// The texts of the notices that are seen, windows of the tray's own process.
void print_notices(const Words&) {
    const auto print = [](HWND window, LPARAM) -> BOOL {
        wchar_t kind[100]{};
        GetClassNameW(window, kind, 100);
        if (IsWindowVisible(window) == 0 || std::wstring(kind) != TOOLTIPS_CLASSW) return TRUE;
        Remote<TTTOOLINFOW> tool(window);
        TTTOOLINFOW asked{};
        asked.cbSize = sizeof asked;
        tool.put(asked);
        send(window, TTM_ENUMTOOLSW, 0, tool.at());
        asked = tool.get();
        asked.lpszText = tool.text();
        tool.put(asked);
        send(window, TTM_GETTEXTW, tool.text_length, tool.at());
        std::cout << narrow(tool.get_text()) << '\n';
        return TRUE;
    };
    EnumWindows(print, 0);
}

void copy(const Words& words) {
    const std::wstring text = wide(words.at(1)) + L'\0';
    const std::size_t size = text.size() * sizeof(wchar_t);
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, size);
    std::memcpy(GlobalLock(memory), text.data(), size);
    GlobalUnlock(memory);
    if (OpenClipboard(GetDesktopWindow()) == 0) throw std::runtime_error("somebody holds the clipboard");
    EmptyClipboard();
    SetClipboardData(CF_UNICODETEXT, memory);
    CloseClipboard();
}

// The system's interfaces end by their own counting, and have no virtual destructor.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// What is dragged: bytes in one format.
class Dragged : public IDataObject {
  public:
    Dragged(UINT format, std::string bytes) : format_(format), bytes_(std::move(bytes)) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** out) override {
        const bool is_this = wanted == IID_IUnknown || wanted == IID_IDataObject;
        *out = is_this ? this : nullptr;
        return is_this ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) override {
        if (QueryGetData(format) != S_OK) return DV_E_FORMATETC;
        medium->tymed = TYMED_HGLOBAL;
        medium->pUnkForRelease = nullptr;
        medium->hGlobal = GlobalAlloc(GMEM_MOVEABLE, bytes_.size());
        return GetDataHere(format, medium);
    }
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC* format, STGMEDIUM* medium) override {
        if (QueryGetData(format) != S_OK || GlobalSize(medium->hGlobal) < bytes_.size())
            return DV_E_FORMATETC;
        std::memcpy(GlobalLock(medium->hGlobal), bytes_.data(), bytes_.size());
        GlobalUnlock(medium->hGlobal);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* format) override {
        return format->cfFormat == format_ && (format->tymed & TYMED_HGLOBAL) != 0 ? S_OK : DV_E_FORMATETC;
    }
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD direction, IEnumFORMATETC** out) override {
        FORMATETC one{static_cast<CLIPFORMAT>(format_), nullptr, DVASPECT_CONTENT, -1, TYMED_HGLOBAL};
        return direction == DATADIR_GET ? SHCreateStdEnumFmtEtc(1, &one, out) : E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override {
        return OLE_E_ADVISENOTSUPPORTED;
    }
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD) override { return OLE_E_ADVISENOTSUPPORTED; }
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA**) override { return OLE_E_ADVISENOTSUPPORTED; }

  private:
    const UINT format_;
    const std::string bytes_;
};

/// Lets go after a few moves.
class Dragging : public IDropSource {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** out) override {
        const bool is_this = wanted == IID_IUnknown || wanted == IID_IDropSource;
        *out = is_this ? this : nullptr;
        return is_this ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE QueryContinueDrag(BOOL, DWORD) override {
        return ++asked_ > 3 ? DRAGDROP_S_DROP : S_OK;
    }
    HRESULT STDMETHODCALLTYPE GiveFeedback(DWORD) override { return DRAGDROP_S_USEDEFAULTCURSORS; }

  private:
    int asked_ = 0;
};

#pragma GCC diagnostic pop

// Words: the window, the format's name ("W" at its end: UTF-16) and the text that is dropped in its middle.
void drop(const Words& words) {
    const HWND window = window_of(words.at(1));
    const std::string& format = words.at(2);
    std::string bytes = words.at(3) + '\0';
    if (format.ends_with("W")) {
        const std::wstring text = wide(words.at(3)) + L'\0';
        bytes.assign(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
    }
    RECT room{};
    GetWindowRect(window, &room);
    SetCursorPos((room.left + room.right) / 2, (room.top + room.bottom) / 2);
    // The system asks the source whenever the mouse moves.
    std::jthread mover([](const std::stop_token& stop) {
        for (int i = 0; !stop.stop_requested(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            mouse_event(MOUSEEVENTF_MOVE, i % 2 == 0 ? 2 : static_cast<DWORD>(-2), 0, 0, 0);
        }
    });
    Dragged data(RegisterClipboardFormatW(wide(format).c_str()), bytes);
    Dragging source;
    DWORD effect = 0;
    const HRESULT result = DoDragDrop(&data, &source, DROPEFFECT_COPY | DROPEFFECT_LINK, &effect);
    if (result != DRAGDROP_S_DROP || effect == DROPEFFECT_NONE)
        throw std::runtime_error("the drop was refused");
}

// An operation by its word; each takes a window's number first, where it takes one.
const std::map<std::string, std::function<void(const Words&)>>& operations() {
    static const std::map<std::string, std::function<void(const Words&)>> all{
        {"windows", print_windows},
        {"rows", print_rows},
        {"tabs", print_tabs},
        {"press", [](const Words& words) { PostMessageW(window_of(words.at(1)), BM_CLICK, 0, 0); }},
        {"put",
         [](const Words& words) {
             const std::wstring text = wide(words.at(2));
             send(window_of(words.at(1)), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
         }},
        {"close", [](const Words& words) { PostMessageW(window_of(words.at(1)), WM_CLOSE, 0, 0); }},
        {"choose", choose},
        {"place", print_place},
        {"tray", click_tray},
        {"notices", print_notices},
        {"copy", copy},
        {"drop", drop},
    };
    return all;
}

Words split(const std::string& line) {
    Words words{""};
    for (const char c : line) {
        if (c == '\t') {
            words.emplace_back();
        } else if (c != '\r') {
            words.back() += c;
        }
    }
    return words;
}

}  // namespace

int main() {
    OleInitialize(nullptr);
    std::string line;
    while (std::getline(std::cin, line)) {
        const Words words = split(line);
        try {
            operations().at(words.front())(words);
            std::cout << "." << std::endl;
        } catch (const std::exception& error) {
            std::cout << "! " << error.what() << std::endl;
        }
    }
    OleUninitialize();
    return 0;
}
