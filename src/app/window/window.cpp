#include "app/window/window.h"

#include <wx/app.h>
#include <wx/init.h>
#include <wx/log.h>

#include <array>

#include "app/process/ending.h"
#include "app/window/main_frame.h"
#include "app/window/model/translate.h"
#include "app/window/model/window_model.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "platform/desktop.h"
#include "platform/file.h"
#include "platform/process.h"

namespace vantlow {
namespace {

/// The toolkit's application. Its loop is run by Desktop::run, on the thread of the engine.
class App : public wxApp {
  public:
    App() {
        SetAppName("vantlow");
        SetClassName("Vantlow");
        SetAppDisplayName("Vantlow");
        SetExitOnFrameDelete(false);
    }
    bool OnInit() override { return true; }
    // The words of the window decide, which need not be in the system's language.
    wxLayoutDirection GetLayoutDirection() const override {
        return is_right_to_left() ? wxLayout_RightToLeft : wxLayout_LeftToRight;
    }
    // Nothing of this program throws across its folders; what the library of the language throws (no memory)
    // ends the process as it would without a window.
    bool OnExceptionInMainLoop() override { throw; }
};

/// The host, and whether one of its turns is under way: the engine must not be ended within one.
class WatchedHost : public DesktopHost {
  public:
    explicit WatchedHost(DesktopHost& host) : host_(host) {}
    [[nodiscard]] Engine& engine() noexcept override { return host_.engine(); }
    [[nodiscard]] Settings& settings() noexcept override { return host_.settings(); }
    void be_hosted(std::function<void()> wake, void* window) override {
        host_.be_hosted(std::move(wake), window);
    }
    [[nodiscard]] bool starts_minimized() const noexcept override { return host_.starts_minimized(); }
    bool turn() override {
        ++turns_;
        const bool goes_on = host_.turn();
        --turns_;
        return goes_on;
    }
    void follow_setting(std::u16string_view section, std::u16string_view key) override {
        host_.follow_setting(section, key);
    }
    std::string run_command(const std::vector<std::string>& words) override {
        return host_.run_command(words);
    }
    void quit() noexcept override { host_.quit(); }
    [[nodiscard]] bool is_in_turn() const noexcept { return turns_ > 0; }

  private:
    DesktopHost& host_;
    int turns_ = 0;
};

// Nothing can be shown, and the toolkit cannot go on: everything is saved, and the process ends. From within
// a turn it ends as it is; its next start finds the journal.
[[noreturn]] void end_without_display(WatchedHost& host, WindowModel& model) {
    complain("The display is gone. Vantlow ends; its downloads go on when it is started again.");
    if (!host.is_in_turn()) {
        host.engine().remove_listener(model);
        std::string error;
        if (!host.engine().close(error)) complain(error);
    }
    end_process(static_cast<int>(Exit::failed));
}

class ToolkitDesktop : public Desktop {
  public:
    ~ToolkitDesktop() override {
        if (is_open_) wxEntryCleanup();
    }
    bool open(std::string& error) override;
    void run(DesktopHost& host) override;
    void come_to_front() override {
        if (frame_ != nullptr) frame_->come_to_front();
    }

  private:
    void turn(DesktopHost& host);
    bool is_open_ = false;
    MainFrame* frame_ = nullptr;
};

bool ToolkitDesktop::open(std::string& error) {
    wxApp::SetInstance(new App);  // the toolkit deletes it
    static std::array<char, 16> name{"vantlow-desktop"};
    static std::array<char*, 2> words{name.data(), nullptr};
    int count = 1;
    {
        const wxLogNull silence;  // the sentence below says it
        is_open_ = wxEntryStart(count, words.data());
    }
    keep_plain_numbers();
    if (!is_open_ || !wxTheApp->CallOnInit()) {
        error = "The display cannot be used.";
        return false;
    }
    return true;
}

void ToolkitDesktop::run(DesktopHost& resident) {
    WatchedHost host(resident);
    const std::u16string languages = join_path(folder_of(program_path()), u"languages");
    const auto trouble = choose_language(languages, host.settings().text(setting::language), user_language());
    if (trouble) complain(*trouble);
    take_direction(is_right_to_left());
    WindowModel model(host.engine(), host.settings());
    std::vector<std::pair<std::string, std::string>> choices{{"", tr("As the system")}};
    for (LanguageFile& one : languages_in(languages))
        choices.emplace_back(std::move(one.file), std::move(one.title));
    model.settings.set_languages(std::move(choices));
    model.settings.after_change = [&host](std::u16string_view section, std::u16string_view key) {
        host.follow_setting(section, key);
    };
    frame_ = new MainFrame(host, model);
    frame_->Bind(wxEVT_DESTROY, [this](wxWindowDestroyEvent& event) {
        if (event.GetEventObject() == frame_) frame_ = nullptr;
        event.Skip();
    });
    frame_->begin();
    // A wake comes from any thread. On Windows the loop's own window gets it, also within a dialog of the
    // system.
    host.be_hosted(
        [this, &host] {
            if (wxTheApp == nullptr) return;
            if (wxIsMainThread()) return turn(host);
            wxTheApp->CallAfter([this, &host] { turn(host); });
        },
        handle_of(*frame_));
    hear_end_of_display([&host, &model] { end_without_display(host, model); });
    if (!frame_->is_ending()) wxTheApp->OnRun();
    hear_end_of_display({});
    // Works that the frame put off must not outlive the model.
    wxTheApp->ProcessPendingEvents();
    wxTheApp->DeletePendingEvents();
    delete frame_;
    frame_ = nullptr;
    host.be_hosted({}, nullptr);
}

void ToolkitDesktop::turn(DesktopHost& host) {
    if (host.turn()) return;
    if (frame_ != nullptr) frame_->end();
}

}  // namespace

std::unique_ptr<Desktop> make_desktop() {
    return std::make_unique<ToolkitDesktop>();
}

}  // namespace vantlow
