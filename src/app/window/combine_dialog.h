// The dialogs that join pieces of films.
#pragma once

#include <wx/dialog.h>
#include <wx/timer.h>

#include <memory>
#include <string>
#include <vector>

#include "app/window/model/window_model.h"
#include "media/combine.h"

class wxButton;
class wxGauge;
class wxListBox;
class wxTextCtrl;

namespace vantlow {

/// Chooses the pieces, their order and the joined file, and joins them.
class CCombineMediaDlg : public wxDialog {
  public:
    /// `pieces`: full paths to begin with.
    CCombineMediaDlg(wxWindow& parent, WindowModel& model, const std::vector<std::u16string>& pieces);
    ~CCombineMediaDlg() override;
    /// A sentence on what was joined; empty: nothing.
    [[nodiscard]] const std::string& said() const noexcept { return said_; }

  private:
    void build(const std::vector<std::u16string>& pieces);
    wxSizer* make_buttons();
    void add_pieces();
    void remove_piece();
    void move_piece(int by);
    void choose_output();
    void join();
    void look();

    WindowModel& model_;
    std::string said_;
    wxListBox* pieces_ = nullptr;
    wxTextCtrl* output_ = nullptr;
    wxButton* remove_ = nullptr;
    wxButton* up_ = nullptr;
    wxButton* down_ = nullptr;
};

/// Shows how far a join is, which begins with it, and cancels it. The worker tells of its progress by
/// combine_progress_message, which arrives here as an event of that number.
class CCombineProgressDlg : public wxDialog {
  public:
    CCombineProgressDlg(wxWindow& parent, CombineJob job);
    /// How it ended; to be called once, behind ShowModal().
    [[nodiscard]] CombineOutcome outcome() { return thread_->wait(); }

  private:
    wxGauge* gauge_ = nullptr;
    wxTimer timer_;
    std::unique_ptr<CCombineMediaThread> thread_;  // last: it sends events here
};

}  // namespace vantlow
