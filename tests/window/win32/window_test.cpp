// The window on Windows, driven by another process: by messages to its controls, and by what these show.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/text.h"
#include "platform/file.h"
#include "support/file_server.h"
#include "support/process_run.h"
#include "support/temp_folder.h"
// after the C++ library
#include <windows.h>
// after the system's own
#include <commctrl.h>

namespace vantlow {
namespace {

using namespace std::chrono_literals;
constexpr auto patience = 20s;

bool within(const std::function<bool()>& look) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!look()) {
        if (std::chrono::steady_clock::now() > end) return false;
        Sleep(50);
    }
    return true;
}

std::u16string text_of(HWND window) {
    std::wstring text(1000, L'\0');
    text.resize(static_cast<std::size_t>(GetWindowTextW(window, text.data(), 1000)));
    return {text.begin(), text.end()};
}

std::u16string class_of(HWND window) {
    wchar_t name[100]{};
    GetClassNameW(window, name, 100);
    const std::wstring text = name;
    return {text.begin(), text.end()};
}

using Windows = std::vector<HWND>;

BOOL CALLBACK take_window(HWND window, LPARAM all) {
    reinterpret_cast<Windows*>(all)->push_back(window);
    return TRUE;
}

/// The first window of a list that passes; null.
HWND first_of(const Windows& windows, const std::function<bool(HWND)>& passes) {
    for (const HWND window : windows) {
        if (passes(window)) return window;
    }
    return nullptr;
}

HWND child_of(HWND parent, const std::function<bool(HWND)>& passes) {
    Windows all;
    EnumChildWindows(parent, take_window, reinterpret_cast<LPARAM>(&all));
    return first_of(all, passes);
}

HWND child_of_class(HWND parent, std::u16string_view name) {
    return child_of(parent, [&](HWND one) { return IsWindowVisible(one) != 0 && class_of(one) == name; });
}

/// Memory of another process, for messages that carry pointers.
class Remote {
  public:
    explicit Remote(HWND window) {
        DWORD id = 0;
        GetWindowThreadProcessId(window, &id);
        process_ = OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_READ | PROCESS_VM_WRITE, FALSE, id);
        at_ = VirtualAllocEx(process_, nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    }
    ~Remote() {
        VirtualFreeEx(process_, at_, 0, MEM_RELEASE);
        CloseHandle(process_);
    }
    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;
    void put(const void* from, std::size_t count) { WriteProcessMemory(process_, at_, from, count, nullptr); }
    void get(void* to, std::size_t count, std::size_t offset) {
        ReadProcessMemory(process_, static_cast<char*>(at_) + offset, to, count, nullptr);
    }
    [[nodiscard]] LPARAM at(std::size_t offset = 0) const {
        return reinterpret_cast<LPARAM>(static_cast<char*>(at_) + offset);
    }
    static constexpr std::size_t size = 4096;
    static constexpr std::size_t text = 1024;  ///< where texts stand

  private:
    HANDLE process_ = nullptr;
    void* at_ = nullptr;
};

/// The program with a window, with folders of its own.
class DrivenWindow : public testing::Test {
  protected:
    DrivenWindow() { folder.write(u"settings.ini", "[Window]\nWelcomed=1\n[Settings]\nLanguage=en\n"); }
    ~DrivenWindow() override { static_cast<void>(run({u"quit"})); }

    [[nodiscard]] std::vector<std::u16string> words(const std::vector<std::u16string>& more) const {
        std::vector<std::u16string> all{u"--data-dir", folder.path(u"data"), u"--settings",
                                        folder.path(u"settings.ini")};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    test::RunResult run(const std::vector<std::u16string>& more) const {
        return test::run_vantlow(words(more), {.environment = {{"VANTLOW_NO_WINDOW", u""}}});
    }
    /// Starts it and finds its window and its list.
    void start() {
        const std::u16string desktop = join_path(folder_of(test::vantlow_program()), u"vantlow-desktop.exe");
        program = std::make_unique<test::RunningProgram>(
            desktop, words({}), test::RunOptions{.environment = {{"VANTLOW_NO_WINDOW", u""}}});
        ASSERT_TRUE(within([this] { return (main = find_main()) != nullptr; }));
        ASSERT_TRUE(within([this] { return (list = child_of_class(main, u"SysListView32")) != nullptr; }));
    }
    HWND find_main() const {
        Windows all;
        EnumWindows(take_window, reinterpret_cast<LPARAM>(&all));
        return first_of(
            all, [](HWND one) { return GetPropW(one, L"Vantlow") != nullptr && IsWindowVisible(one) != 0; });
    }
    /// A window that the main one owns, by its title.
    HWND dialog(std::u16string_view title) const {
        HWND found = nullptr;
        EXPECT_TRUE(within([&] {
            Windows all;
            EnumWindows(take_window, reinterpret_cast<LPARAM>(&all));
            found =
                first_of(all, [&](HWND one) { return IsWindowVisible(one) != 0 && text_of(one) == title; });
            return found != nullptr;
        })) << to_utf8(title);
        return found;
    }
    /// Gives a command of a menu, by the beginning of its words there.
    void give(std::u16string_view label) const {
        const UINT id = find_item(GetMenu(main), label);
        ASSERT_NE(id, 0U) << to_utf8(label);
        PostMessageW(main, WM_COMMAND, id, 0);
    }
    static UINT find_item(HMENU menu, std::u16string_view label) {
        for (int i = 0; i < GetMenuItemCount(menu); ++i) {
            if (const HMENU below = GetSubMenu(menu, i)) {
                if (const UINT id = find_item(below, label)) return id;
            }
            wchar_t text[200]{};
            GetMenuStringW(menu, static_cast<UINT>(i), text, 200, MF_BYPOSITION);
            const std::wstring wide = text;
            if (std::u16string(wide.begin(), wide.end()).starts_with(label)) return GetMenuItemID(menu, i);
        }
        return 0;
    }
    static void press(HWND dialog, std::u16string_view label) {
        const HWND button = child_of(dialog, [&](HWND one) { return text_of(one) == label; });
        ASSERT_NE(button, nullptr) << to_utf8(label);
        PostMessageW(button, BM_CLICK, 0, 0);
    }
    static void enter(HWND edit, std::u16string_view text) {
        ASSERT_NE(edit, nullptr);
        const std::wstring wide(text.begin(), text.end());
        SendMessageW(edit, EM_SETSEL, 0, -1);
        SendMessageW(edit, EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(wide.c_str()));
    }
    [[nodiscard]] int rows() const { return static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0)); }
    [[nodiscard]] std::u16string cell(int row, int column) const {
        Remote there(list);
        LVITEMW item{};
        item.iSubItem = column;
        item.cchTextMax = 500;
        item.pszText = reinterpret_cast<LPWSTR>(there.at(Remote::text));
        there.put(&item, sizeof item);
        const auto length = SendMessageW(list, LVM_GETITEMTEXTW, static_cast<WPARAM>(row), there.at());
        std::wstring text(static_cast<std::size_t>(length), L'\0');
        there.get(text.data(), text.size() * sizeof(wchar_t), Remote::text);
        return {text.begin(), text.end()};
    }
    [[nodiscard]] bool waits_for(int row, std::u16string_view state) const {
        constexpr int state_column = 5;
        return within([&] { return rows() > row && cell(row, state_column) == state; });
    }
    void select(int row) const {
        Remote there(list);
        LVITEMW item{};
        item.stateMask = item.state = LVIS_SELECTED | LVIS_FOCUSED;
        there.put(&item, sizeof item);
        SendMessageW(list, LVM_SETITEMSTATE, static_cast<WPARAM>(row), there.at());
    }
    void click_header(int x) const {
        const auto header = reinterpret_cast<HWND>(SendMessageW(list, LVM_GETHEADER, 0, 0));
        PostMessageW(header, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(x, 8));
        PostMessageW(header, WM_LBUTTONUP, 0, MAKELPARAM(x, 8));
    }

    const test::TempFolder folder;
    std::unique_ptr<test::RunningProgram> program;
    HWND main = nullptr;
    HWND list = nullptr;
};

TEST_F(DrivenWindow, DoesAllDay) {
    test::FileServer server;
    for (const char* name : {"/b.bin", "/a.bin", "/slow.bin"})
        server.set(name, {.content = std::string(300000, *name)});
    const auto link = [&](const std::string& name) { return server.url16(name); };
    start();
    // An address by the dialog becomes the file.
    give(u"&New download");
    const HWND form = dialog(u"New download");
    enter(child_of_class(form, u"Edit"), link("/b.bin"));
    ASSERT_TRUE(within([&] {
        return child_of(form, [](HWND one) {
                   return text_of(one) == u"&Download" && IsWindowEnabled(one) != 0;
               }) != nullptr;
    }));
    press(form, u"&Download");
    ASSERT_TRUE(waits_for(0, u"finished"));
    EXPECT_EQ(cell(0, 0), u"b.bin");
    // A second start hands its link over and ends.
    EXPECT_EQ(run({link("/a.bin")}).status, 0);
    ASSERT_TRUE(waits_for(1, u"finished"));
    // Sorted by a click, the other way round by a second one.
    click_header(20);
    EXPECT_TRUE(within([this] { return cell(0, 0) == u"a.bin"; }));
    click_header(20);
    EXPECT_TRUE(within([this] { return cell(0, 0) == u"b.bin"; }));
    // Filtered as one types.
    const HWND search =
        child_of(main, [](HWND one) { return class_of(one) == u"Edit" && IsWindowVisible(one) != 0; });
    enter(search, u"a.b");
    EXPECT_TRUE(within([this] { return rows() == 1 && cell(0, 0) == u"a.bin"; }));
    enter(search, u"");
    EXPECT_TRUE(within([this] { return rows() == 2; }));
    // Removed by the menu, after a question, and brought back.
    select(0);
    EXPECT_TRUE(within([&] {
        return (GetMenuState(GetMenu(main), find_item(GetMenu(main), u"R&emove..."), MF_BYCOMMAND) &
                MF_GRAYED) == 0;
    }));
    give(u"R&emove...");
    press(dialog(u"Remove"), u"&Remove");
    EXPECT_TRUE(within([this] { return rows() == 1; }));
    give(u"&Undo the removal");
    EXPECT_TRUE(within([this] { return rows() == 2; }));
    // The end, by the menu.
    give(u"E&xit");
    EXPECT_EQ(program->wait().status, 0);
}

}  // namespace
}  // namespace vantlow
