// The options: every setting of the program by pages, with a search; a change takes effect at once.
#pragma once

#include <wx/dialog.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/window/model/setting_pages.h"
#include "app/window/row_table.h"

class wxListBox;
class wxSearchCtrl;
class wxScrolledWindow;

namespace vantlow {

class OptionsDialog : public wxDialog {
  public:
    /// `changed` hears the name of a setting that was changed ("Section/Key").
    OptionsDialog(wxWindow& parent, SettingPages& pages, std::function<void(const std::string&)> changed);

  private:
    void show_page();
    void show_lines(const std::vector<SettingLine>& lines);
    void add_line(wxSizer& all, const SettingLine& line);
    wxWindow* make_editor(const SettingLine& line);
    void set(const SettingLine& line, const std::string& value);

    SettingPages& settings_;
    std::function<void(const std::string&)> changed_;
    std::vector<SettingPage> pages_;
    wxListBox* titles_ = nullptr;
    wxSearchCtrl* search_ = nullptr;
    wxScrolledWindow* room_ = nullptr;
};

}  // namespace vantlow
