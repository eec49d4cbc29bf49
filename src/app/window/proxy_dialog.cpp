#include "app/window/proxy_dialog.h"

#include <wx/button.h>
#include <wx/choice.h>
#include <wx/listbox.h>
#include <wx/sizer.h>
#include <wx/spinctrl.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>
#include <iterator>
#include <optional>

#include "app/window/confirm.h"
#include "app/window/model/setting_pages.h"
#include "app/window/model/translate.h"
#include "app/window/system.h"
#include "app/window/words.h"

namespace vantlow {
namespace {

constexpr std::int32_t kinds[] = {CProxyNode::http, CProxyNode::http_tunnel, CProxyNode::socks5,
                                  CProxyNode::socks4};
constexpr int largest_port = 65535;
constexpr int http_port = 8080;

// The fields of one proxy; none where it was given up. A password that another user of this machine
// protected stays as it is unless one is typed.
std::optional<CProxyNode> ask_proxy(wxWindow& parent, const wxString& title, const CProxyNode& before) {
    wxDialog dialog(&parent, wxID_ANY, title, wxDefaultPosition, wxDefaultSize,
                    wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER);
    auto* const grid = new wxFlexGridSizer(2, dialog.FromDIP(wxSize(8, 6)));
    grid->AddGrowableCol(1);
    grid->Add(new wxStaticText(&dialog, wxID_ANY, ui(tr("&Kind:"))), wxSizerFlags().CentreVertical());
    auto* const kind = new wxChoice(&dialog, wxID_ANY);
    name_for_readers(*kind, ui(tr("Kind")));
    for (const std::string& name : {std::string("HTTP"), tr("HTTP, always by a tunnel"),
                                    std::string("SOCKS5"), std::string("SOCKS4, SOCKS4a")})
        kind->Append(ui(name));
    const auto* const known = std::ranges::find(kinds, before.kind);
    kind->SetSelection(known == std::end(kinds) ? 0 : static_cast<int>(known - std::begin(kinds)));
    grid->Add(kind, wxSizerFlags().Expand());
    wxTextCtrl* const host = add_text(dialog, *grid, ui(tr("&Host:")), ui(to_utf8(before.host)));
    host->SetMinSize(dialog.FromDIP(wxSize(280, -1)));
    grid->Add(new wxStaticText(&dialog, wxID_ANY, ui(tr("P&ort:"))), wxSizerFlags().CentreVertical());
    auto* const port = new wxSpinCtrl(&dialog, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize,
                                      wxSP_ARROW_KEYS, 1, largest_port, before.port);
    name_for_readers(*port, ui(tr("Port")));
    grid->Add(port);
    wxTextCtrl* const user = add_text(dialog, *grid, ui(tr("&User:")), ui(to_utf8(before.user)));
    wxTextCtrl* const password =
        add_text(dialog, *grid, ui(tr("Pass&word:")), ui(to_utf8(before.password)), wxTE_PASSWORD);
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(grid, wxSizerFlags(1).Expand().Border(wxALL, dialog.FromDIP(10)));
    all->Add(dialog.CreateSeparatedButtonSizer(wxOK | wxCANCEL),
             wxSizerFlags().Expand().Border(wxALL, dialog.FromDIP(8)));
    finish_dialog(dialog);
    const auto read = [&] {
        CProxyNode proxy = before;
        proxy.kind = kinds[static_cast<std::size_t>(std::max(kind->GetSelection(), 0))];
        proxy.host = wide_of(host->GetValue());
        proxy.port = port->GetValue();
        proxy.user = wide_of(user->GetValue());
        proxy.password = wide_of(password->GetValue());
        if (!proxy.password.empty() || proxy.user != before.user) proxy.sealed_password.clear();
        return proxy;
    };
    const auto look = [&] {
        if (wxWindow* const ok = dialog.FindWindow(wxID_OK)) ok->Enable(ProxyList::is_proxy(read()));
    };
    dialog.Bind(wxEVT_TEXT, [&look](wxCommandEvent&) { look(); });
    look();
    dialog.SetSizerAndFit(all);
    dialog.CentreOnParent();
    host->SetFocus();
    if (dialog.ShowModal() != wxID_OK) return std::nullopt;
    return read();
}

}  // namespace

ProxyDialog::ProxyDialog(wxWindow& parent, ProxyList proxies)
    : wxDialog(&parent, wxID_ANY, ui(tr("Proxies")), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      proxies_(std::move(proxies)) {
    auto* const all = new wxBoxSizer(wxVERTICAL);
    all->Add(new wxStaticText(this, wxID_ANY, ui(tr("&Proxies, by their numbers:"))),
             wxSizerFlags().Border(wxALL, FromDIP(10)));
    list_ = new wxListBox(this, wxID_ANY);
    name_for_readers(*list_, ui(tr("Proxies")));
    list_->SetMinSize(FromDIP(wxSize(420, 180)));
    auto* const row = new wxBoxSizer(wxHORIZONTAL);
    row->Add(list_, wxSizerFlags(1).Expand());
    row->Add(make_buttons(), wxSizerFlags().Border(wxLEFT, FromDIP(8)));
    all->Add(row, wxSizerFlags(1).Expand().Border(wxLEFT | wxRIGHT, FromDIP(10)));
    note_ = new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize,
                             wxST_NO_AUTORESIZE | wxST_ELLIPSIZE_END);
    all->Add(note_, wxSizerFlags().Expand().Border(wxALL, FromDIP(10)));
    all->Add(CreateSeparatedButtonSizer(wxCLOSE), wxSizerFlags().Expand().Border(wxALL, FromDIP(8)));
    finish_dialog(*this);
    SetEscapeId(wxID_CLOSE);
    SetSizerAndFit(all);
    CentreOnParent();
    list_->Bind(wxEVT_LISTBOX, [this](wxCommandEvent&) { look(); });
    list_->Bind(wxEVT_LISTBOX_DCLICK, [this](wxCommandEvent&) { change(); });
    end(proxies_.read(), 0);
    list_->SetFocus();
}

wxSizer* ProxyDialog::make_buttons() {
    auto* const column = new wxBoxSizer(wxVERTICAL);
    const auto add_button = [&](const std::string& label, auto&& action) {
        auto* const button = new wxButton(this, wxID_ANY, ui(label));
        button->Bind(wxEVT_BUTTON, [action](wxCommandEvent&) { action(); });
        column->Add(button, wxSizerFlags().Expand().Border(wxBOTTOM, FromDIP(4)));
        return button;
    };
    add_button(tr("&Add..."), [this] { add(); });
    change_ = add_button(tr("Chan&ge..."), [this] { change(); });
    remove_ = add_button(tr("&Remove"), [this] {
        const int at = list_->GetSelection();
        end(proxies_.remove(chosen()), at);
    });
    use_ = add_button(tr("Do not &use"), [this] {
        const bool is_used = proxies_.used() == chosen();
        end(proxies_.use(is_used ? std::nullopt : std::optional(chosen())), list_->GetSelection());
    });
    test_ = add_button(tr("&Test"), [this] { test(); });
    return column;
}

void ProxyDialog::add() {
    CProxyNode standard;
    standard.kind = CProxyNode::http;
    standard.port = http_port;
    const auto proxy = ask_proxy(*this, ui(tr("New proxy")), standard);
    if (proxy) end(proxies_.add(*proxy), static_cast<int>(proxies_.all().size()));
}

void ProxyDialog::change() {
    if (proxies_.all().empty()) return;
    const std::size_t at = chosen();
    const auto proxy = ask_proxy(*this, ui(tr("Change proxy")), proxies_.all()[at]);
    if (proxy) end(proxies_.change(at, *proxy), static_cast<int>(at));
}

void ProxyDialog::test() {
    asked_ = std::chrono::steady_clock::now();
    inquiry_ = proxies_.test(chosen(), [this] { CallAfter([this] { show_test(); }); });
    show_test();
}

void ProxyDialog::show_test() {
    const auto answer = inquiry_ ? inquiry_->answer() : std::nullopt;
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - asked_);
    const wxString text = as_label(SettingPages::sentence_of_test(answer, elapsed));
    note_->SetLabel(text);
    note_->SetToolTip(text);  // a server's words may be longer than the line
}

// Shows what an operation made of the list, and its complaint.
void ProxyDialog::end(const std::string& fault, int selected) {
    inquiry_.reset();
    fill_list(selected);
    note_->SetLabel(!fault.empty()           ? as_label(fault)
                    : proxies_.all().empty() ? ui(tr("There are no proxies yet."))
                    : proxies_.used()        ? wxString()
                                             : ui(tr("None of them is in use.")));
}

void ProxyDialog::fill_list(int selected) {
    const std::size_t count = proxies_.all().size();
    wxArrayString lines;
    for (std::size_t i = 0; i < count; ++i) lines.Add(ui(proxies_.line(i)));
    list_->Set(lines);
    if (count > 0) list_->SetSelection(std::clamp(selected, 0, static_cast<int>(count) - 1));
    look();
}

void ProxyDialog::look() {
    const bool is_any = list_->GetSelection() >= 0;
    for (wxButton* const button : {change_, remove_, use_, test_}) button->Enable(is_any);
    const bool is_used = is_any && proxies_.used() == chosen();
    use_->SetLabel(ui(is_used ? tr("Do not &use") : tr("&Use")));
}

std::size_t ProxyDialog::chosen() const {
    return static_cast<std::size_t>(std::max(list_->GetSelection(), 0));
}

}  // namespace vantlow
