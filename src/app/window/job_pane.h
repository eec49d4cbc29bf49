// The list of jobs: the model's rows in a table.
#pragma once

#include <wx/panel.h>

#include <functional>
#include <string>
#include <vector>

#include "app/window/model/layout_memory.h"
#include "app/window/model/window_model.h"
#include "app/window/row_table.h"

namespace vantlow {

class JobPane : public wxPanel, private RowSource {
  public:
    struct Events {
        std::function<void()> selected;
        std::function<void()> opened;
        OpenMenu menu;
        std::function<wxString()> dragged;  ///< as RowTable's
        std::function<void()> drag_ended;
    };
    /// Each change of so many selected rows is followed by the menus; of more they ask when they open.
    static constexpr std::size_t most_followed = 1000;

    JobPane(wxWindow* parent, WindowModel& model, Events events);
    ~JobPane() override;

    /// Takes the columns and the order of a layout, and gives them back as the user left them.
    void take(const vantlow::Layout& layout);
    void give(vantlow::Layout& layout) const;
    /// A dialog in which the columns are chosen.
    void choose_columns();

    void show(const View& view, const wxString& search);
    void select_all() { table_->select_all(); }
    /// Selects these jobs and shows the first of them.
    void select(const std::vector<Guid>& jobs);
    [[nodiscard]] RowTable& table() noexcept { return *table_; }
    /// True where the rows stand in the order of the queue.
    [[nodiscard]] bool shows_queue() const;
    /// The first job that waits, from this row on; zero: none does.
    [[nodiscard]] Guid waiting_from(std::size_t row) const;

  private:
    [[nodiscard]] std::size_t rows() const override { return model_.rows.size(); }
    [[nodiscard]] wxString cell(std::size_t row, int column) const override;
    [[nodiscard]] int picture(std::size_t row) const override;
    void put_columns();
    void look_at_note();
    void take_news(const RowNews& news);
    void take_selection();
    void sort_by(Column column, bool further);
    void show_order();

    WindowModel& model_;
    Events events_;
    std::vector<vantlow::Layout::ColumnPlace> columns_;  ///< all of them
    bool is_searching_ = false;
    RowTable* table_ = nullptr;
};

}  // namespace vantlow
