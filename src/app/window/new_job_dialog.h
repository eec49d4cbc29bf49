// The dialog for new jobs: one address or many, where their files go, and how they are fetched.
#pragma once

#include <wx/collpane.h>
#include <wx/dialog.h>
#include <wx/timer.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/window/model/window_model.h"

class wxButton;
class wxCheckBox;
class wxChoice;
class wxSpinCtrl;
class wxStaticText;
class wxTextCtrl;

namespace vantlow {

class FileChoice;

class NewJobDialog : public wxDialog {
  public:
    NewJobDialog(wxWindow& parent, WindowModel& model, NewJobForm form);
    /// The results of ShowModal() beside wxID_OK and wxID_CANCEL, about a job that has the address already.
    enum Result : int { show_known = wxID_HIGHEST + 3000, open_known, add_mirrors };
    /// The draft, once the dialog ended with wxID_OK.
    [[nodiscard]] JobDraft draft() const { return model_.new_jobs.draft_of(form_); }
    /// The files of the torrent were there to be chosen.
    [[nodiscard]] bool has_chosen_files() const noexcept { return !form_.chosen.empty(); }
    [[nodiscard]] const Guid& known_job() const noexcept { return known_job_; }
    /// The addresses that are no job's, for add_mirrors.
    [[nodiscard]] const std::vector<std::string>& other_links() const noexcept { return other_links_; }

  private:
    void build_places(wxSizer& all);
    void build_more(wxSizer& all);
    void build_files(wxSizer& all);
    void build_known(wxSizer& all);
    void read();
    void grow();
    void look_at_files();
    void look_at_category();
    void look_at_server();
    void look_at_places();
    void look_at_known(const std::vector<KnownAddress>& known);
    void look_at_space();
    void show_space();
    void look();
    [[nodiscard]] wxString note(const std::vector<KnownAddress>& known) const;

    WindowModel& model_;
    NewJobForm form_;
    std::vector<Guid> categories_;  ///< as they stand in the choice
    wxTextCtrl* addresses_ = nullptr;
    wxStaticText* note_ = nullptr;
    wxStaticText* says_ = nullptr;          ///< the server, about the only address
    wxStaticText* space_ = nullptr;         ///< the free space of the folder
    std::map<Result, wxButton*> of_known_;  ///< there while a job has the address already
    Guid known_job_;
    std::vector<std::string> other_links_;
    FileChoice* files_ = nullptr;           ///< there while the files of a torrent are known
    std::vector<TorrentEntry> files_seen_;  ///< that stand in it
    wxChoice* category_ = nullptr;
    wxTextCtrl* folder_ = nullptr;
    wxTextCtrl* name_ = nullptr;
    wxSpinCtrl* connections_ = nullptr;
    wxChoice* start_ = nullptr;
    wxCollapsiblePane* more_ = nullptr;
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
    std::int64_t said_size_ = -1;             ///< of the file, by the server; negative: unknown
    std::optional<std::int64_t> free_space_;  ///< of the folder
    std::u16string space_of_;  ///< the folder whose space is shown, or will be when the typing pauses
    wxTimer space_pause_;
    std::unique_ptr<Inquiry> inquiry_;  ///< last: its thread calls this dialog
};

}  // namespace vantlow
