#include "app/window/combine_dialog.h"

#include <wx/arrstr.h>
#include <wx/button.h>
#include <wx/filedlg.h>
#include <wx/gauge.h>
#include <wx/listbox.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include "app/process/known_settings.h"
#include "app/window/confirm.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr int whole = 10'000;  // of the values that the worker reports
constexpr int look_interval_ms = 100;

wxString media_files() {
    return ui(tr("Films")) + " (*.flv;*.f4v;*.mp4;*.m4v;*.m4a)|*.flv;*.f4v;*.mp4;*.m4v;*.m4a|" +
           ui(tr("All files")) + " (*)|*";
}

}  // namespace

CCombineMediaDlg::CCombineMediaDlg(wxWindow& parent, WindowModel& model,
                                   const std::vector<std::u16string>& pieces)
    : wxDialog(&parent, wxID_ANY, ui(tr("Join films")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      model_(model) {
    build(pieces);
    Bind(
        wxEVT_BUTTON, [this](wxCommandEvent&) { join(); }, wxID_OK);
    Bind(wxEVT_TEXT, [this](wxCommandEvent&) { look(); });
    pieces_->Bind(wxEVT_LISTBOX, [this](wxCommandEvent&) { look(); });
    look();
}

CCombineMediaDlg::~CCombineMediaDlg() {
    const NumberSetting& width = setting::combine_width;
    const auto now = static_cast<std::int64_t>(ToDIP(pieces_->GetSize()).x);
    // A width that cannot be kept is not worth a message.
    if (now != model_.settings.number(width))
        static_cast<void>(model_.engine.set_setting(width.section, width.key, to_utf16(std::to_string(now))));
}

void CCombineMediaDlg::build(const std::vector<std::u16string>& pieces) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(
        new wxStaticText(this, wxID_ANY, ui(tr("&Pieces, in their order; the first one gives the format:"))),
        wxSizerFlags().Border(wxALL, FromDIP(10)));
    pieces_ = new wxListBox(this, wxID_ANY);
    name_for_readers(*pieces_, ui(tr("Pieces")));
    for (const std::u16string& piece : pieces) pieces_->Append(ui(to_utf8(piece)));
    const auto width = static_cast<int>(model_.settings.number(setting::combine_width));
    pieces_->SetInitialSize(FromDIP(wxSize(width, 180)));
    auto* const row = new wxBoxSizer(wxHORIZONTAL);
    row->Add(pieces_, wxSizerFlags(1).Expand());
    row->Add(make_buttons(), wxSizerFlags().Border(wxLEFT, FromDIP(8)));
    all->Add(row, wxSizerFlags(1).Expand().Border(wxLEFT | wxRIGHT, FromDIP(10)));
    auto* const grid = new wxFlexGridSizer(3, FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    output_ = add_text(*this, *grid, ui(tr("&Joined file:")), wxString());
    auto* const choose = new wxButton(this, wxID_ANY, ui(tr("&Browse...")));
    choose->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { choose_output(); });
    grid->Add(choose);
    all->Add(grid, wxSizerFlags().Expand().Border(wxALL, FromDIP(10)));
    all->Add(CreateSeparatedButtonSizer(wxOK | wxCANCEL), wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    finish_dialog(*this);
    if (wxWindow* const ok = FindWindow(wxID_OK)) ok->SetLabel(ui(tr("&Join")));
    SetSizerAndFit(all);
    SetMinSize(FromDIP(wxSize(360, 260)));  // the list may become narrower than it was kept
    CentreOnParent();
}

wxSizer* CCombineMediaDlg::make_buttons() {
    auto* const column = new wxBoxSizer(wxVERTICAL);
    const auto add = [&](const std::string& label, auto&& action) {
        auto* const button = new wxButton(this, wxID_ANY, ui(label));
        button->Bind(wxEVT_BUTTON, [this, action](wxCommandEvent&) {
            action();
            look();
        });
        column->Add(button, wxSizerFlags().Expand().Border(wxBOTTOM, FromDIP(4)));
        return button;
    };
    add(tr("&Add..."), [this] { add_pieces(); });
    remove_ = add(tr("&Remove"), [this] { remove_piece(); });
    up_ = add(tr("&Up"), [this] { move_piece(-1); });
    down_ = add(tr("&Down"), [this] { move_piece(1); });
    return column;
}

void CCombineMediaDlg::add_pieces() {
    wxFileDialog dialog(this, ui(tr("Pieces")), downloads_folder(model_), wxString(), media_files(),
                        wxFD_OPEN | wxFD_FILE_MUST_EXIST | wxFD_MULTIPLE);
    if (dialog.ShowModal() != wxID_OK) return;
    wxArrayString paths;
    dialog.GetPaths(paths);
    paths.Sort(wxNaturalStringSortAscending);
    pieces_->Append(paths);
}

void CCombineMediaDlg::remove_piece() {
    if (const int at = pieces_->GetSelection(); at >= 0) pieces_->Delete(static_cast<unsigned>(at));
}

void CCombineMediaDlg::move_piece(int by) {
    const int at = pieces_->GetSelection();
    const int to = at + by;
    if (at < 0 || to < 0 || to >= static_cast<int>(pieces_->GetCount())) return;
    const wxString piece = pieces_->GetString(static_cast<unsigned>(at));
    pieces_->Delete(static_cast<unsigned>(at));
    pieces_->Insert(piece, static_cast<unsigned>(to));
    pieces_->SetSelection(to);
}

void CCombineMediaDlg::choose_output() {
    wxFileDialog dialog(this, ui(tr("Joined file")), downloads_folder(model_), wxString(), media_files(),
                        wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    if (dialog.ShowModal() == wxID_OK) output_->SetValue(dialog.GetPath());
}

void CCombineMediaDlg::look() {
    const int at = pieces_->GetSelection();
    const int count = static_cast<int>(pieces_->GetCount());
    remove_->Enable(at >= 0);
    up_->Enable(at > 0);
    down_->Enable(at >= 0 && at + 1 < count);
    const std::u16string output = wide_of(output_->GetValue());
    if (wxWindow* const ok = FindWindow(wxID_OK))
        ok->Enable(count > 1 && !output.empty() && absolute_path(output) == output);
}

void CCombineMediaDlg::join() {
    CombineJob job;
    job.output = wide_of(output_->GetValue());
    for (unsigned i = 0; i < pieces_->GetCount(); ++i) job.pieces.push_back(wide_of(pieces_->GetString(i)));
    CCombineProgressDlg progress(*this, job);
    progress.ShowModal();
    const CombineOutcome outcome = progress.outcome();
    if (outcome.result.kind() == Kind::stopped) return;
    if (!outcome.result.ok()) {
        tell(*this, ui(tr("Join films")), ui(shown(to_utf16(outcome.result.message()))));
        return;
    }
    said_ = fill(tr("Joined: %1"), {shown(job.output)});
    if (outcome.skipped > 0) {
        said_ +=
            ". " + trn("%1 piece could not be read to its end.", "%1 pieces could not be read to their end.",
                       static_cast<std::int64_t>(outcome.skipped));
    }
    EndModal(wxID_OK);
}

CCombineProgressDlg::CCombineProgressDlg(wxWindow& parent, CombineJob job)
    : wxDialog(&parent, wxID_ANY, ui(tr("Joining"))) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(new wxStaticText(this, wxID_ANY, as_label(shown(job.output)), wxDefaultPosition,
                              FromDIP(wxSize(380, -1)), wxST_ELLIPSIZE_START),
             wxSizerFlags().Expand().Border(wxALL, FromDIP(10)));
    gauge_ = new wxGauge(this, wxID_ANY, whole);
    all->Add(gauge_, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT, FromDIP(10)));
    all->Add(CreateButtonSizer(wxCANCEL), wxSizerFlags().Expand().Border(wxALL, FromDIP(10)));
    finish_dialog(*this);
    SetSizerAndFit(all);
    CentreOnParent();
    Bind(wxEVT_THREAD, [this](wxThreadEvent& event) {
        if (event.GetId() == static_cast<int>(combine_progress_message)) gauge_->SetValue(event.GetInt());
    });
    Bind(
        wxEVT_BUTTON, [this](wxCommandEvent&) { thread_->cancel(); }, wxID_CANCEL);
    Bind(wxEVT_CLOSE_WINDOW, [this](wxCloseEvent&) { thread_->cancel(); });
    timer_.Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
        if (!IsModal() || !thread_->wait_for(std::chrono::milliseconds(0))) return;
        timer_.Stop();
        EndModal(wxID_OK);
    });
    timer_.Start(look_interval_ms);
    thread_ = std::make_unique<CCombineMediaThread>(
        std::move(job), [this](std::uint32_t message, std::uint32_t value) {
            auto event = std::make_unique<wxThreadEvent>(wxEVT_THREAD, static_cast<int>(message));
            event->SetInt(static_cast<int>(value));
            wxQueueEvent(this, event.release());
        });
}

}  // namespace vantlow
