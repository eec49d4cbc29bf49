#include "app/window/size_dialog.h"

#include <wx/filedlg.h>
#include <wx/sizer.h>
#include <wx/spinctrl.h>
#include <wx/stattext.h>

#include "app/window/confirm.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"
#include "media/video_size.h"

namespace vantlow {

CFixVideoSizeDlg::CFixVideoSizeDlg(wxWindow& parent, const std::u16string& path, int width, int height)
    : wxDialog(&parent, wxID_ANY, ui(tr("Picture size"))) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(new wxStaticText(this, wxID_ANY, as_label(shown(path)), wxDefaultPosition,
                              FromDIP(wxSize(380, -1)), wxST_ELLIPSIZE_START),
             wxSizerFlags().Expand().Border(wxALL, FromDIP(10)));
    auto* const grid = new wxFlexGridSizer(2, FromDIP(wxSize(8, 6)));
    const auto add = [&](const std::string& label, int value) {
        grid->Add(new wxStaticText(this, wxID_ANY, ui(label)), wxSizerFlags().CentreVertical());
        auto* const spin = new wxSpinCtrl(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize,
                                          wxSP_ARROW_KEYS, 1, largest_video_edge, value);
        name_for_readers(*spin, wxControl::RemoveMnemonics(ui(label)));
        grid->Add(spin);
        return spin;
    };
    width_ = add(tr("&Width, pixels:"), width);
    height_ = add(tr("&Height, pixels:"), height);
    all->Add(grid, wxSizerFlags().Border(wxLEFT | wxRIGHT, FromDIP(10)));
    all->Add(CreateSeparatedButtonSizer(wxOK | wxCANCEL), wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    finish_dialog(*this);
    SetSizerAndFit(all);
    CentreOnParent();
}

std::string CFixVideoSizeDlg::ask(wxWindow& parent, const std::u16string& folder) {
    wxFileDialog file(&parent, ui(tr("Picture size")), ui(to_utf8(folder)), wxString(),
                      ui(tr("Films")) + " (*.flv)|*.flv|" + ui(tr("All files")) + " (*)|*",
                      wxFD_OPEN | wxFD_FILE_MUST_EXIST);
    if (file.ShowModal() != wxID_OK) return {};
    const std::u16string path = wide_of(file.GetPath());
    auto size = read_video_size(path);
    if (!size) return shown(to_utf16(size.failure().message()));
    CFixVideoSizeDlg dialog(parent, path, static_cast<int>(size->width), static_cast<int>(size->height));
    if (dialog.ShowModal() != wxID_OK) return {};
    const VideoSize wanted{static_cast<std::uint32_t>(dialog.width_->GetValue()),
                           static_cast<std::uint32_t>(dialog.height_->GetValue())};
    if (const Result written = write_video_size(path, wanted); !written.ok())
        return shown(to_utf16(written.message()));
    return fill(tr("%1 says now that its picture is %2 x %3 pixels."),
                {shown(path), std::to_string(wanted.width), std::to_string(wanted.height)});
}

}  // namespace vantlow
