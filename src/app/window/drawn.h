// The panes that are drawn: the picture of a job's segments, and the histogram of the speed.
#pragma once

#include <wx/panel.h>

#include "app/window/model/job_details.h"
#include "app/window/model/speed_history.h"
#include "app/window/model/status_line.h"

namespace vantlow {

/// Breaks a text into lines that are no wider than so many pixels in this window's font.
wxString wrapped(wxWindow& room, const wxString& text, int width);

/// Has no flicker, follows its size, and shows a sentence where it has nothing to draw.
class DrawnPane : public wxPanel {
  public:
    DrawnPane(wxWindow* parent, const wxString& name);

  protected:
    virtual void draw(wxDC& dc, const wxSize& size) = 0;
    void draw_note(wxDC& dc, const wxSize& size, const wxString& text);
    [[nodiscard]] static wxColour blend(const wxColour& over, const wxColour& paper, double part);
};

/// Squares in the order of the file: done, in work (each connection in a shade of its own), missing.
class CellPicture : public DrawnPane {
  public:
    using DrawnPane::DrawnPane;

  private:
    void draw(wxDC& dc, const wxSize& size) final;
    void draw_cell(wxDC& dc, const wxPoint& at, int edge, const SegmentCell& cell) const;
    [[nodiscard]] virtual std::vector<SegmentCell> cells(std::size_t at_most) const = 0;
    /// The sentence that stands there where there are no cells.
    [[nodiscard]] virtual wxString note() const = 0;
};

class SegmentPicture : public CellPicture {
  public:
    SegmentPicture(wxWindow* parent, const JobDetails& details);

  private:
    [[nodiscard]] std::vector<SegmentCell> cells(std::size_t at_most) const override;
    [[nodiscard]] wxString note() const override;
    const JobDetails& details_;
};

/// The pieces of a torrent.
class PiecePicture : public CellPicture {
  public:
    explicit PiecePicture(wxWindow* parent);
    /// `note`: the reason where there are none.
    void show(std::vector<SegmentRange> pieces, const wxString& note);

  private:
    [[nodiscard]] std::vector<SegmentCell> cells(std::size_t at_most) const override;
    [[nodiscard]] wxString note() const override;
    std::vector<SegmentRange> pieces_;
    wxString note_;
};

class SpeedHistogram : public DrawnPane {
  public:
    SpeedHistogram(wxWindow* parent, const SpeedHistory& history, const StatusLine& status);
    void show(SpeedHistory::Span span);
    [[nodiscard]] SpeedHistory::Span span() const noexcept { return span_; }

  private:
    void draw(wxDC& dc, const wxSize& size) override;
    void draw_down(wxDC& dc, const wxRect& room, const std::vector<SpeedSample>& samples, double scale);
    void draw_up(wxDC& dc, const wxRect& room, const std::vector<SpeedSample>& samples, double scale);
    void draw_limit(wxDC& dc, const wxRect& room, double limit, double scale);
    const SpeedHistory& history_;
    const StatusLine& status_;
    SpeedHistory::Span span_ = SpeedHistory::Span::five_minutes;
};

/// "5 minutes", "1 hour", ...
wxString name_of(SpeedHistory::Span span);

}  // namespace vantlow
