// A list of files with check boxes, and the buttons by which many of them are chosen at once.
#pragma once

#include <wx/panel.h>

#include <cstdint>
#include <string>
#include <vector>

class wxCheckListBox;

namespace vantlow {

class FileChoice : public wxPanel {
  public:
    struct File {
        std::u16string name;
        std::int64_t size = -1;  ///< bytes; negative: unknown
        bool is_chosen = true;
    };
    explicit FileChoice(wxWindow* parent);
    /// Shows other files, in the order of their names; all else here goes by their places in `files`.
    void set_files(const std::vector<File>& files);
    /// Whether each of the files is chosen. Each change of it is a wxEVT_CHECKLISTBOX, which goes on to the
    /// parent.
    [[nodiscard]] std::vector<bool> chosen() const;

  private:
    void choose(const std::vector<std::size_t>& files, bool chosen);  ///< `files` ascend
    void choose_all(bool chosen);
    void pop_up_endings();

    wxCheckListBox* list_ = nullptr;
    std::vector<std::u16string> names_;
    std::vector<std::size_t> rows_;  ///< the file of each row
};

}  // namespace vantlow
