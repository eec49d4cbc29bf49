// The dialog of the proxy list.
#pragma once

#include <wx/dialog.h>

#include <chrono>
#include <memory>

#include "app/window/model/proxy_list.h"

class wxButton;
class wxListBox;
class wxStaticText;

namespace vantlow {

/// Adds, changes, removes and tests proxies, and chooses the one that the program goes through. Each change
/// holds at once.
class ProxyDialog : public wxDialog {
  public:
    ProxyDialog(wxWindow& parent, ProxyList proxies);

  private:
    wxSizer* make_buttons();
    void add();
    void change();
    void test();
    void show_test();
    void end(const std::string& fault, int selected);
    void fill_list(int selected);
    void look();
    [[nodiscard]] std::size_t chosen() const;

    ProxyList proxies_;
    wxListBox* list_ = nullptr;
    wxStaticText* note_ = nullptr;
    wxButton* change_ = nullptr;
    wxButton* remove_ = nullptr;
    wxButton* use_ = nullptr;
    wxButton* test_ = nullptr;
    std::chrono::steady_clock::time_point asked_;
    std::unique_ptr<Inquiry> inquiry_;  ///< last: its thread calls this dialog
};

}  // namespace vantlow
