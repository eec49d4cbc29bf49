// The options: every setting of the program by pages, with a search; a change takes effect at once.
#pragma once

#include <wx/dialog.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "app/window/model/proxy_list.h"
#include "app/window/model/setting_pages.h"
#include "app/window/row_table.h"

class wxListBox;
class wxSearchCtrl;
class wxScrolledWindow;
class wxStaticText;

namespace vantlow {

class OptionsDialog : public wxDialog {
  public:
    OptionsDialog(wxWindow& parent, SettingPages& pages, ProxyList proxies);

  private:
    void show_page();
    void show_lines(const std::vector<SettingLine>& lines);
    void add_line(wxSizer& all, const SettingLine& line);
    void add_help(wxSizer& all, const wxString& text);
    void add_proxy_test(wxSizer& row, wxSizer& all);
    void show_proxy_test();
    wxWindow* make_editor(const SettingLine& line);
    void set(const SettingLine& line, const std::string& value);

    SettingPages& settings_;
    const ProxyList proxies_;
    std::vector<SettingPage> pages_;
    wxListBox* titles_ = nullptr;
    wxSearchCtrl* search_ = nullptr;
    wxScrolledWindow* room_ = nullptr;
    wxStaticText* test_says_ = nullptr;              ///< there while the page with the proxy is
    std::chrono::steady_clock::time_point asked_{};  ///< when the test of the proxy began
    std::unique_ptr<Inquiry> inquiry_;               ///< last: its thread calls this dialog
};

}  // namespace vantlow
