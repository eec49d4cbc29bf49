// The dialog that corrects the picture size in a film's metadata.
#pragma once

#include <wx/dialog.h>

#include <string>

class wxSpinCtrl;

namespace vantlow {

/// Of one FLV file, which must have a size to correct.
class CFixVideoSizeDlg : public wxDialog {
  public:
    /// Asks for the file, shows the dialog and writes what was entered. Returns a sentence on what was done
    /// or failed; empty: nothing was wanted.
    static std::string ask(wxWindow& parent, const std::u16string& folder);

  private:
    CFixVideoSizeDlg(wxWindow& parent, const std::u16string& path, int width, int height);
    wxSpinCtrl* width_ = nullptr;
    wxSpinCtrl* height_ = nullptr;
};

}  // namespace vantlow
