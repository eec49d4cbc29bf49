// The main window as its user left it.
#include <wx/display.h>
#include <wx/toolbar.h>

#include <algorithm>
#include <vector>

#include "app/window/main_frame.h"
#include "app/window/model/layout_memory.h"
#include "app/window/model/texts.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

std::string key_of(SpeedHistory::Span span) {
    return std::to_string(static_cast<int>(span));
}

// The name under which the side of a pane is remembered.
std::string place_key(const FramePane& pane) {
    return std::string("place-") + pane.name;
}

// The window was left on a screen that had more room, or fewer dots in an inch.
void fit_on_screen(wxTopLevelWindow& window) {
    const int screen = std::max(wxDisplay::GetFromWindow(&window), 0);
    const wxRect room = wxDisplay(static_cast<unsigned>(screen)).GetClientArea();
    wxRect own = window.GetRect();
    if (own.width <= room.width && own.height <= room.height) return;
    own.width = std::min(own.width, room.width);
    own.height = std::min(own.height, room.height);
    own.x = std::clamp(own.x, room.x, room.x + room.width - own.width);
    own.y = std::clamp(own.y, room.y, room.y + room.height - own.height);
    window.SetSize(own);
}

std::vector<vantlow::Layout::Place> screens() {
    std::vector<vantlow::Layout::Place> all;
    for (unsigned i = 0; i < wxDisplay::GetCount(); ++i) {
        const wxRect room = wxDisplay(i).GetClientArea();
        all.push_back({room.x, room.y, room.width, room.height});
    }
    return all;
}

void place_zone(const vantlow::Layout& layout, wxWindow& zone) {
    const auto pane = layout.panes.find("zone");
    if (pane != layout.panes.end() && pane->second.shown) zone.Show();
    const auto at = layout.choices.find("zone-place");
    if (at == layout.choices.end()) return;
    const wxString place = ui(at->second);
    long x = 0;
    long y = 0;
    if (place.BeforeFirst('x').ToLong(&x) && place.AfterFirst('x').ToLong(&y))
        zone.Move(static_cast<int>(x), static_cast<int>(y));
}

}  // namespace

void MainFrame::take_layout() {
    const vantlow::Layout layout = load_layout(host_.settings());
    if (const auto place = layout.place_on(screens())) {
        SetSize(FromDIP(wxSize(place->width, place->height)));
        Move(place->x, place->y);
        fit_on_screen(*this);
    } else {
        CentreOnScreen();
    }
    if (layout.maximised) Maximize();
    jobs_->take(layout);
    for (const FramePane& one : frame_panes) {
        const auto known = layout.panes.find(one.name);
        if (known == layout.panes.end()) continue;
        wxAuiPaneInfo& pane = panes_.GetPane(one.name);
        pane.Show(known->second.shown);
        const auto place = layout.choices.find(place_key(one));
        for (const PaneSide& side : pane_sides) {
            if (place != layout.choices.end() && place->second == side.name) place_pane(one, side);
        }
        if (known->second.size > 0) {
            const int size = FromDIP(known->second.size);
            pane.BestSize(side_of(one).is_beside() ? wxSize(size, pane.best_size.y)
                                                   : wxSize(pane.best_size.x, size));
        }
    }
    panes_.Update();
    const auto tools = layout.panes.find("tools");
    if (tools != layout.panes.end() && !tools->second.shown) GetToolBar()->Hide();
    place_zone(layout, *zone_);
    if (const auto span = layout.choices.find("span"); span != layout.choices.end()) {
        for (int i = 0; i < 4; ++i) {
            if (key_of(static_cast<SpeedHistory::Span>(i)) == span->second)
                speed_->show(static_cast<SpeedHistory::Span>(i));
        }
    }
}

void MainFrame::give_layout() {
    vantlow::Layout layout = load_layout(host_.settings());
    layout.maximised = IsMaximized();
    if (!layout.maximised && !IsIconized()) {
        const wxSize size = ToDIP(GetSize());
        layout.window = vantlow::Layout::Place{GetPosition().x, GetPosition().y, size.x, size.y};
    }
    jobs_->give(layout);
    for (const FramePane& one : frame_panes) {
        const wxAuiPaneInfo& pane = panes_.GetPane(one.name);
        const PaneSide& side = side_of(one);
        const int edge = side.is_beside() ? pane.window->GetSize().x : pane.window->GetSize().y;
        layout.choices[place_key(one)] = side.name;
        vantlow::Layout::Pane& kept = layout.panes[one.name];
        kept.shown = pane.IsShown();
        if (pane.IsShown()) kept.size = ToDIP(edge);
    }
    layout.panes["tools"].shown = GetToolBar()->IsShown();
    layout.panes["zone"].shown = zone_->IsShown();
    layout.choices["zone-place"] =
        std::to_string(zone_->GetPosition().x) + "x" + std::to_string(zone_->GetPosition().y);
    layout.choices["span"] = key_of(speed_->span());
    const Done done = save_layout(model_.engine, host_.settings(), layout);
    if (!done.ok()) say(sentence_of(done));
}

}  // namespace vantlow
