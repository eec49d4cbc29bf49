// The dialog for new jobs: one address or many, where their files go, and how they are fetched.
#pragma once

#include <wx/dialog.h>
#include <wx/timer.h>

#include <functional>

#include "app/window/model/window_model.h"

class wxButton;
class wxCheckBox;
class wxCheckListBox;
class wxChoice;
class wxCollapsiblePane;
class wxDirPickerCtrl;
class wxSpinCtrl;
class wxStaticText;
class wxTextCtrl;

namespace vantlow {

class NewJobDialog : public wxDialog {
  public:
    NewJobDialog(wxWindow& parent, WindowModel& model, NewJobForm form);
    /// The draft, once the dialog ended with wxID_OK.
    [[nodiscard]] JobDraft draft() const { return model_.new_jobs.draft_of(form_); }

  private:
    void build_places(wxSizer& all);
    void build_more(wxSizer& all);
    void build_files(wxSizer& all);
    void read();
    void look_at_files();
    void look_at_category();
    void look_at_server();
    void look_at_places();
    void look();
    [[nodiscard]] wxString note() const;

    WindowModel& model_;
    NewJobForm form_;
    std::vector<Guid> categories_;  ///< as they stand in the choice
    wxTextCtrl* addresses_ = nullptr;
    wxStaticText* note_ = nullptr;
    wxStaticText* says_ = nullptr;          ///< the server, about the only address
    wxCheckListBox* files_ = nullptr;       ///< there while the files of a torrent are known
    std::vector<TorrentEntry> files_seen_;  ///< that stand in it
    wxChoice* category_ = nullptr;
    wxTextCtrl* folder_ = nullptr;
    wxTextCtrl* name_ = nullptr;
    wxSpinCtrl* connections_ = nullptr;
    wxChoice* start_ = nullptr;
    wxTextCtrl* start_time_ = nullptr;
    wxTextCtrl* stop_time_ = nullptr;
    wxCheckBox* expand_ = nullptr;
    wxTextCtrl* user_ = nullptr;
    wxTextCtrl* password_ = nullptr;
    wxTextCtrl* limit_ = nullptr;
    wxTextCtrl* hash_ = nullptr;
    wxTextCtrl* referer_ = nullptr;
    wxTextCtrl* cookie_ = nullptr;
    wxTextCtrl* agent_ = nullptr;
    wxTextCtrl* proxy_ = nullptr;
    wxTextCtrl* comment_ = nullptr;
    wxButton* ok_ = nullptr;
    std::string question_;  ///< that the server was asked, or will be when the typing pauses
    wxTimer pause_;
    std::unique_ptr<Inquiry> inquiry_;  ///< last: its thread calls this dialog
};

}  // namespace vantlow
