#include "app/window/drawn.h"

#include <wx/dcbuffer.h>
#include <wx/settings.h>
#include <wx/textwrapper.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

wxColour paper_colour() {
    return wxSystemSettings::GetColour(wxSYS_COLOUR_WINDOW);
}

wxColour ink_colour() {
    return wxSystemSettings::GetColour(wxSYS_COLOUR_WINDOWTEXT);
}

const wxColour done_colour(46, 158, 68);
const std::array<wxColour, 6> work_colours{wxColour(42, 111, 208), wxColour(122, 94, 168),
                                           wxColour(23, 150, 160), wxColour(201, 138, 16),
                                           wxColour(190, 80, 130), wxColour(90, 120, 40)};

// The points of a curve from left to right.
std::vector<wxPoint> curve(const wxRect& room, const std::vector<SpeedSample>& samples, double scale,
                           float SpeedSample::*value) {
    std::vector<wxPoint> points;
    points.reserve(samples.size() + 2);
    const double step =
        static_cast<double>(room.width) / static_cast<double>(std::max<std::size_t>(samples.size() - 1, 1));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double height = std::min(static_cast<double>(samples[i].*value) / scale, 1.0) * room.height;
        points.emplace_back(room.x + static_cast<int>(std::lround(static_cast<double>(i) * step)),
                            room.y + room.height - static_cast<int>(std::lround(height)));
    }
    return points;
}

}  // namespace

DrawnPane::DrawnPane(wxWindow* parent, const wxString& name)
    : wxPanel(parent, wxID_ANY, wxDefaultPosition, wxDefaultSize,
              wxTAB_TRAVERSAL | wxFULL_REPAINT_ON_RESIZE) {
    name_for_readers(*this, name);
    SetBackgroundStyle(wxBG_STYLE_PAINT);
    SetMinSize(FromDIP(wxSize(80, 48)));
    Bind(wxEVT_PAINT, [this](wxPaintEvent&) {
        wxAutoBufferedPaintDC dc(this);
        dc.SetBackground(wxBrush(paper_colour()));
        dc.Clear();
        dc.SetFont(GetFont());
        dc.SetTextForeground(ink_colour());
        draw(dc, GetClientSize());
    });
}

wxString wrapped(wxWindow& room, const wxString& text, int width) {
    class Wrapper : public wxTextWrapper {
      public:
        wxString all;

      private:
        void OnOutputLine(const wxString& line) override { all += line; }
        void OnNewLine() override { all += "\n"; }
    };
    Wrapper wrapper;
    wrapper.Wrap(&room, text, width);
    return wrapper.all;
}

void DrawnPane::draw_note(wxDC& dc, const wxSize& size, const wxString& text) {
    const wxRect room = wxRect(size).Deflate(FromDIP(6));
    dc.SetTextForeground(blend(ink_colour(), paper_colour(), 0.65));
    dc.DrawLabel(wrapped(*this, text, room.width), room, wxALIGN_CENTRE);
}

wxColour DrawnPane::blend(const wxColour& over, const wxColour& paper, double part) {
    const auto mixed = [part](int a, int b) {
        return static_cast<unsigned char>(std::lround(a * part + b * (1 - part)));
    };
    return {mixed(over.Red(), paper.Red()), mixed(over.Green(), paper.Green()),
            mixed(over.Blue(), paper.Blue())};
}

void CellPicture::draw(wxDC& dc, const wxSize& size) {
    const int gap = FromDIP(2);
    const int edge = FromDIP(10);
    const int across = std::max((size.x - gap) / (edge + gap), 1);
    const int lines = std::max((size.y - gap) / (edge + gap), 1);
    const auto all = cells(static_cast<std::size_t>(across) * static_cast<std::size_t>(lines));
    if (all.empty()) return draw_note(dc, size, note());
    dc.SetPen(*wxTRANSPARENT_PEN);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const int x = gap + static_cast<int>(i % static_cast<std::size_t>(across)) * (edge + gap);
        const int y = gap + static_cast<int>(i / static_cast<std::size_t>(across)) * (edge + gap);
        draw_cell(dc, {x, y}, edge, all[i]);
    }
}

void CellPicture::draw_cell(wxDC& dc, const wxPoint& at, int edge, const SegmentCell& cell) const {
    dc.SetBrush(wxBrush(blend(ink_colour(), paper_colour(), 0.18)));
    dc.DrawRectangle(at.x, at.y, edge, edge);
    const int filled = cell.state == SegmentState::done ? edge : edge * cell.filled / 100;
    if (filled > 0) {
        dc.SetBrush(wxBrush(done_colour));
        dc.DrawRectangle(at.x, at.y, filled, edge);
    }
    if (cell.state != SegmentState::working) return;
    // A frame as well: colours are not the only sign.
    const auto shade = static_cast<std::size_t>(std::max(cell.worker - 1, 0)) % work_colours.size();
    dc.SetPen(wxPen(work_colours[shade], std::max(FromDIP(2), 1)));
    dc.SetBrush(*wxTRANSPARENT_BRUSH);
    dc.DrawRectangle(at.x, at.y, edge, edge);
    dc.SetPen(*wxTRANSPARENT_PEN);
}

SegmentPicture::SegmentPicture(wxWindow* parent, const JobDetails& details)
    : CellPicture(parent, ui(tr("Segments"))), details_(details) {}

std::vector<SegmentCell> SegmentPicture::cells(std::size_t at_most) const {
    return details_.picture(at_most);
}

wxString SegmentPicture::note() const {
    return ui(details_.job().is_zero() ? tr("Select a download to see its segments.")
                                       : tr("The size of the file is not known yet."));
}

PiecePicture::PiecePicture(wxWindow* parent) : CellPicture(parent, ui(tr("Pieces"))) {}

void PiecePicture::show(std::vector<SegmentRange> pieces, const wxString& note) {
    pieces_ = std::move(pieces);
    note_ = note;
    Refresh();
}

std::vector<SegmentCell> PiecePicture::cells(std::size_t at_most) const {
    return picture_of(pieces_, at_most);
}

wxString PiecePicture::note() const {
    return note_;
}

SpeedHistogram::SpeedHistogram(wxWindow* parent, const SpeedHistory& history, const StatusLine& status)
    : DrawnPane(parent, ui(tr("Speed"))), history_(history), status_(status) {}

void SpeedHistogram::show(SpeedHistory::Span span) {
    span_ = span;
    Refresh();
}

void SpeedHistogram::draw(wxDC& dc, const wxSize& size) {
    const auto samples = history_.samples(span_);
    const auto limit = static_cast<double>(status_.limit().value_or(0));
    const double scale = std::max(SpeedHistory::scale_of(samples, limit), 1.0);
    const int line = dc.GetCharHeight();
    const wxRect room(0, line + FromDIP(4), size.x, std::max(size.y - line - FromDIP(6), 1));
    dc.SetPen(wxPen(blend(ink_colour(), paper_colour(), 0.15)));
    for (int part = 0; part <= 4; ++part) {
        const int y = room.y + room.height * part / 4;
        dc.DrawLine(0, y, size.x, y);
    }
    draw_down(dc, room, samples, scale);
    draw_up(dc, room, samples, scale);
    if (limit > 0) draw_limit(dc, room, limit, scale);
    dc.SetTextForeground(ink_colour());
    const wxString top = ui(speed_text(scale));
    dc.DrawText(top, FromDIP(4), FromDIP(2));
    const wxString span = name_of(span_);
    const wxString now = ui(status_.speed_part());
    dc.DrawText(span, size.x - dc.GetTextExtent(span).x - FromDIP(4), FromDIP(2));
    const int middle = (size.x - dc.GetTextExtent(now).x) / 2;
    if (middle > dc.GetTextExtent(top).x + FromDIP(12)) dc.DrawText(now, middle, FromDIP(2));
}

// The speed of receiving stands as a surface, that of sending as a line above it: colours are not the only
// sign.
void SpeedHistogram::draw_down(wxDC& dc, const wxRect& room, const std::vector<SpeedSample>& samples,
                               double scale) {
    std::vector<wxPoint> points = curve(room, samples, scale, &SpeedSample::down);
    if (points.empty()) return;
    const int floor = room.y + room.height;
    points.insert(points.begin(), wxPoint(room.x, floor));
    points.emplace_back(room.x + room.width, floor);
    dc.SetPen(wxPen(work_colours[0], std::max(FromDIP(1), 1)));
    dc.SetBrush(wxBrush(blend(work_colours[0], paper_colour(), 0.35)));
    dc.DrawPolygon(static_cast<int>(points.size()), points.data());
}

void SpeedHistogram::draw_up(wxDC& dc, const wxRect& room, const std::vector<SpeedSample>& samples,
                             double scale) {
    if (std::ranges::all_of(samples, [](const SpeedSample& one) { return one.up <= 0; })) return;
    const std::vector<wxPoint> points = curve(room, samples, scale, &SpeedSample::up);
    dc.SetPen(wxPen(work_colours[3], std::max(FromDIP(2), 2)));
    dc.DrawLines(static_cast<int>(points.size()), points.data());
}

void SpeedHistogram::draw_limit(wxDC& dc, const wxRect& room, double limit, double scale) {
    const int y = room.y + room.height - static_cast<int>(std::lround(limit / scale * room.height));
    dc.SetPen(wxPen(wxColour(200, 55, 45), std::max(FromDIP(1), 1), wxPENSTYLE_SHORT_DASH));
    dc.DrawLine(room.x, y, room.x + room.width, y);
}

wxString name_of(SpeedHistory::Span span) {
    switch (span) {
        case SpeedHistory::Span::five_minutes:
            return ui(tr("5 minutes"));
        case SpeedHistory::Span::hour:
            return ui(tr("1 hour"));
        case SpeedHistory::Span::six_hours:
            return ui(tr("6 hours"));
        case SpeedHistory::Span::day:
            return ui(tr("24 hours"));
    }
    return {};
}

}  // namespace vantlow
