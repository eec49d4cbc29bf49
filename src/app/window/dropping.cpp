#include "app/window/dropping.h"

#include <wx/clipbrd.h>
#include <wx/dataobj.h>
#include <wx/dcbuffer.h>
#include <wx/display.h>

#include <algorithm>

#include "app/window/model/links.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/pictures.h"
#include "app/window/words.h"
#include "platform/file.h"

namespace vantlow {
namespace {

/// A text that ends with a zero or with the data, in a form of which the toolkit knows nothing.
class TextObject : public wxCustomDataObject {
  public:
    /// `width`: bytes of a character.
    TextObject(const wxString& format, std::size_t width)
        : wxCustomDataObject(wxDataFormat(format)), width_(width) {}
    [[nodiscard]] std::string text() const {
        const auto* const bytes = static_cast<const unsigned char*>(GetData());
        std::u16string wide;
        std::string narrow;
        for (std::size_t i = 0; i + width_ <= GetSize(); i += width_) {
            const auto c = static_cast<char16_t>(bytes[i] | (width_ > 1 ? bytes[i + 1] << 8U : 0));
            if (c == 0) break;
            if (width_ > 1) wide.push_back(c);
            if (width_ == 1) narrow.push_back(static_cast<char>(c));
        }
        return width_ > 1 ? to_utf8(wide) : narrow;
    }

  private:
    const std::size_t width_;
};

/// Files, or the addresses of a list that names none of this machine (text/uri-list, RFC 2483).
class FilesObject : public wxFileDataObject {
  public:
    using wxFileDataObject::SetData;
    bool SetData(std::size_t size, const void* data) override {
        constexpr std::size_t longest = 1U << 20U;
        const bool is_taken = wxFileDataObject::SetData(size, data);
        list_.clear();
        if (is_taken && GetFilenames().empty())
            list_.assign(static_cast<const char*>(data), std::min(size, longest));
        return is_taken;
    }
    [[nodiscard]] const std::string& list() const noexcept { return list_; }

  private:
    std::string list_;
};

// Files that are nothing but a link are that link.
Dropped dropped_of(const wxArrayString& files) {
    constexpr std::size_t longest = 64U << 10U;
    Dropped dropped;
    for (const wxString& name : files) {
        const std::string file = utf8_of(name);
        std::vector<std::byte> bytes;
        std::vector<std::string> links;
        const std::string lower = ascii_lower(file);
        const bool is_shortcut = lower.ends_with(".url") || lower.ends_with(".desktop");
        if (is_shortcut && read_file(to_utf16(file), longest, bytes).ok())
            links = links_in_shortcut({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        if (links.empty()) dropped.files.push_back(file);
        dropped.links.insert(dropped.links.end(), links.begin(), links.end());
    }
    return dropped;
}

/// All forms that are taken, the one that says most first.
class AnyObject : public wxDataObjectComposite {
  public:
    AnyObject() {
        Add(files_ = new FilesObject, true);
        Add(html_ = new wxHTMLDataObject);
        Add(plain_html_ = new TextObject("HTML Text", 1));
        Add(wide_link_ = new TextObject("UniformResourceLocatorW", 2));
        Add(link_ = new TextObject("UniformResourceLocator", 1));
        Add(moz_link_ = new TextObject("text/x-moz-url", 2));
        Add(shortcut_ = new TextObject("FileContents", 1));  // that a FileGroupDescriptor names
        Add(text_ = new wxTextDataObject);
    }
    [[nodiscard]] Dropped dropped() const {
        const wxDataObject* const got = GetObject(GetReceivedFormat());
        Dropped dropped;
        if (got == files_) {
            dropped = dropped_of(files_->GetFilenames());
            if (dropped.empty()) dropped.links = links_in_text(files_->list());
        } else if (got == html_ || got == plain_html_) {
            const std::string html = got == html_ ? utf8_of(html_->GetHTML()) : plain_html_->text();
            dropped.links = links_in_html(html);
            if (dropped.links.empty()) dropped.links = links_in_text(html);
        } else if (got == wide_link_ || got == link_) {
            dropped.links = links_in_text((got == link_ ? link_ : wide_link_)->text());
        } else if (got == shortcut_) {
            dropped.links = links_in_shortcut(shortcut_->text());
        } else if (got == moz_link_) {
            const std::string text = moz_link_->text();
            dropped.links = links_in_text(text.substr(0, text.find('\n')));  // the title stands behind it
        } else {
            dropped.links = links_in_text(utf8_of(text_->GetText()));
        }
        return dropped;
    }

  private:
    FilesObject* files_ = nullptr;
    wxHTMLDataObject* html_ = nullptr;
    TextObject* plain_html_ = nullptr;
    TextObject* wide_link_ = nullptr;
    TextObject* link_ = nullptr;
    TextObject* moz_link_ = nullptr;
    TextObject* shortcut_ = nullptr;
    wxTextDataObject* text_ = nullptr;
};

class AnyTarget : public wxDropTarget {
  public:
    AnyTarget(wxWindow& window, TakeDropped take, DraggedOver over)
        : wxDropTarget(new AnyObject), window_(window), take_(std::move(take)), over_(std::move(over)) {
        SetDefaultAction(wxDragCopy);
    }
    wxDragResult OnDragOver(wxCoord x, wxCoord y, wxDragResult result) override {
        if (over_) over_(window_.ClientToScreen(wxPoint(x, y)));
        return wxDropTarget::OnDragOver(x, y, result);
    }
    void OnLeave() override {
        if (over_) over_(std::nullopt);
    }
    wxDragResult OnData(wxCoord x, wxCoord y, wxDragResult result) override {
        OnLeave();
        if (!GetData()) return wxDragNone;
        const Dropped dropped = static_cast<AnyObject*>(GetDataObject())->dropped();
        if (dropped.empty()) return wxDragNone;
        // The other program waits until this returns: a dialog opens afterwards.
        window_.CallAfter(
            [take = take_, dropped, at = window_.ClientToScreen(wxPoint(x, y))] { take(dropped, at); });
        return result;
    }

  private:
    wxWindow& window_;
    TakeDropped take_;
    DraggedOver over_;
};

}  // namespace

wxDropTarget* make_drop_target(wxWindow& window, TakeDropped take, DraggedOver over) {
    return new AnyTarget(window, std::move(take), std::move(over));
}

Dropped read_clipboard() {
    Dropped dropped;
    if (!wxTheClipboard->Open()) return dropped;
    wxTextDataObject text;
    wxFileDataObject files;
    if (wxTheClipboard->IsSupported(wxDF_FILENAME) && wxTheClipboard->GetData(files)) {
        dropped = dropped_of(files.GetFilenames());
    } else if (wxTheClipboard->IsSupported(wxDF_UNICODETEXT) && wxTheClipboard->GetData(text)) {
        dropped.links = links_in_text(utf8_of(text.GetText()));
    }
    wxHTMLDataObject html;
    if (dropped.empty() && wxTheClipboard->IsSupported(wxDF_HTML) && wxTheClipboard->GetData(html))
        dropped.links = links_in_html(utf8_of(html.GetHTML()));
    wxTheClipboard->Close();
    return dropped;
}

DropZone::DropZone(wxWindow* parent, const LiveJobs& live, TakeDropped take, std::function<void()> opened)
    : wxFrame(parent, wxID_ANY, ui(tr("Drop zone")), wxDefaultPosition, wxDefaultSize,
              wxFRAME_NO_TASKBAR | wxSTAY_ON_TOP | wxBORDER_NONE | wxFRAME_TOOL_WINDOW),
      live_(live) {
    SetName(ui(tr("Drop zone")));
    SetClientSize(FromDIP(wxSize(72, 72)));
    SetBackgroundStyle(wxBG_STYLE_PAINT);
    SetTransparent(210);
    SetDropTarget(make_drop_target(*this, std::move(take)));
    SetToolTip(ui(tr("Drop links here")));
    // At first in a corner where little stands.
    const wxRect room = wxDisplay(0U).GetClientArea().Deflate(FromDIP(24));
    Move(room.GetBottomRight() - GetSize());
    Bind(wxEVT_PAINT, [this](wxPaintEvent&) { draw(); });
    Bind(wxEVT_LEFT_DCLICK, [opened = std::move(opened)](wxMouseEvent&) { opened(); });
    Bind(wxEVT_LEFT_DOWN, [this](wxMouseEvent& event) {
        held_ = event.GetPosition();
        if (!HasCapture()) CaptureMouse();
    });
    Bind(wxEVT_LEFT_UP, [this](wxMouseEvent&) {
        if (HasCapture()) ReleaseMouse();
    });
    Bind(wxEVT_MOUSE_CAPTURE_LOST, [](wxMouseCaptureLostEvent&) {});
    Bind(wxEVT_MOTION, [this](wxMouseEvent& event) {
        if (HasCapture()) Move(ClientToScreen(event.GetPosition()) - held_);
    });
}

void DropZone::look() {
    if (!IsShown()) return;
    if (!HasCapture()) come_on_screen();
    Refresh();
}

// The zone comes back whole when the monitor that it stood on is gone or has become smaller: of one that was
// far outside, some window managers leave an edge of a few pixels. It may stand across two monitors.
void DropZone::come_on_screen() {
    const wxRect own = GetScreenRect();
    const auto is_seen = [](const wxPoint& at) { return wxDisplay::GetFromPoint(at) != wxNOT_FOUND; };
    if (is_seen(own.GetTopLeft()) && is_seen(own.GetBottomRight())) return;
    const int nearest = wxDisplay::GetFromWindow(this);
    const wxRect room = wxDisplay(static_cast<unsigned>(std::max(nearest, 0))).GetClientArea();
    Move(std::max(room.x, std::min(own.x, room.x + room.width - own.width)),
         std::max(room.y, std::min(own.y, room.y + room.height - own.height)));
}

void DropZone::draw() {
    wxAutoBufferedPaintDC dc(this);
    dc.SetBackground(wxBrush(wxColour(42, 111, 208)));
    dc.Clear();
    const wxSize size = GetClientSize();
    std::int64_t done = 0;
    std::int64_t all = 0;
    for (const auto& [job, live] : live_.all()) {
        if (live.size <= 0) continue;
        done += live.done;
        all += live.size;
    }
    const int edge = FromDIP(48);
    const wxPoint middle(size.x / 2, FromDIP(4) + edge / 2);
    draw_ring(dc, middle, edge, all > 0 ? static_cast<double>(done) / static_cast<double>(all) : 0);
    dc.SetTextForeground(*wxWHITE);
    dc.SetFont(GetFont().Smaller());
    const wxString speed = ui(speed_text(live_.down()));
    const int top = FromDIP(4) + edge;
    dc.DrawLabel(speed.empty() ? ui(tr("Links")) : speed, wxRect(0, top, size.x, size.y - top),
                 wxALIGN_CENTRE);
    dc.SetPen(wxPen(*wxWHITE, FromDIP(3)));
    const int reach = FromDIP(11);
    const int wing = FromDIP(7);
    const wxPoint tip = middle + wxPoint(0, reach);
    dc.DrawLine(middle - wxPoint(0, reach), tip);
    dc.DrawLine(tip - wxPoint(wing, wing), tip);
    dc.DrawLine(tip - wxPoint(-wing, wing), tip);
}

// The part of all running downloads that is there, from the top on in the direction of a clock.
void DropZone::draw_ring(wxDC& dc, const wxPoint& middle, int edge, double part) {
    constexpr double whole = 360;
    constexpr double top = 90;
    const int width = FromDIP(4);
    const wxPoint corner = middle - wxPoint(edge / 2 - width / 2, edge / 2 - width / 2);
    const wxSize room(edge - width, edge - width);
    dc.SetBrush(*wxTRANSPARENT_BRUSH);
    dc.SetPen(wxPen(wxColour(110, 155, 225), width));
    dc.DrawEllipse(corner, room);
    dc.SetPen(wxPen(*wxWHITE, width));
    if (part >= 1) dc.DrawEllipse(corner, room);
    if (part > 0 && part < 1) dc.DrawEllipticArc(corner, room, top - part * whole, top);
}

}  // namespace vantlow
