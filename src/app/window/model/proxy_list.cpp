#include "app/window/model/proxy_list.h"

#include <utility>

#include "app/terminal/display_text.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "base/text.h"
#include "store/setting_table.h"

namespace vantlow {
std::string ProxyList::read() {
    std::vector<CProxyNode> proxies;
    std::string error;
    if (!load_proxies(engine_.data_folder(), proxies, error)) return printable(error);
    proxies_ = std::move(proxies);
    return {};
}

std::string ProxyList::line(std::size_t index) const {
    const std::string text = std::to_string(index + 1) + "  " + shown(proxy_text(proxies_[index]));
    return used() == index ? fill(tr("%1 (in use)"), {text}) : text;
}

std::optional<std::size_t> ProxyList::used() const {
    const auto number = parse_decimal(to_utf8(settings_.text(setting::proxy)));
    if (!number || *number < 1 || std::cmp_greater(*number, proxies_.size())) return std::nullopt;
    return static_cast<std::size_t>(*number - 1);
}

bool ProxyList::is_proxy(const CProxyNode& proxy) {
    const auto read_back = parse_proxy(proxy_text(proxy));
    return read_back && read_back->user == proxy.user && read_back->port == proxy.port;
}

std::string ProxyList::add(const CProxyNode& proxy) {
    if (std::string fault = read(); !fault.empty()) return fault;
    if (proxies_.size() >= most_proxies) return tr("The proxy list is full.");
    auto proxies = proxies_;
    proxies.push_back(proxy);
    return write(std::move(proxies));
}

std::string ProxyList::change(std::size_t index, const CProxyNode& proxy) {
    if (std::string fault = read_for(index); !fault.empty()) return fault;
    auto proxies = proxies_;
    proxies[index] = proxy;
    return write(std::move(proxies));
}

std::string ProxyList::remove(std::size_t index) {
    if (std::string fault = read_for(index); !fault.empty()) return fault;
    const auto before = used();
    auto proxies = proxies_;
    proxies.erase(proxies.begin() + static_cast<std::ptrdiff_t>(index));
    if (std::string fault = write(std::move(proxies)); !fault.empty()) return fault;
    if (!before || *before < index) return {};
    return use(*before == index ? std::nullopt : std::optional(*before - 1));
}

std::string ProxyList::use(std::optional<std::size_t> index) {
    const TextSetting& proxy = setting::proxy;
    return sentence_of(
        index ? engine_.set_setting(proxy.section, proxy.key, to_utf16(std::to_string(*index + 1)))
              : engine_.unset_setting(proxy.section, proxy.key));
}

std::unique_ptr<Inquiry> ProxyList::test(std::size_t index, std::function<void()> wake) const {
    JobDraft draft;
    draft.links = {"http://www.example.com/"};  // reserved for such uses (RFC 2606)
    draft.proxy = proxy_text_with_password(proxies_[index]);
    return engine_.inquire(draft, std::move(wake));
}

// A command may have changed the list while the dialog was open.
std::string ProxyList::read_for(std::size_t index) {
    const std::u16string meant = proxy_text(proxies_[index]);
    if (std::string fault = read(); !fault.empty()) return fault;
    const bool is_there = index < proxies_.size() && proxy_text(proxies_[index]) == meant;
    return is_there ? std::string() : tr("The list has changed in the meantime.");
}

std::string ProxyList::write(std::vector<CProxyNode> proxies) {
    std::string error;
    if (!save_proxies(engine_.data_folder(), proxies, error)) return printable(error);
    proxies_ = std::move(proxies);
    return {};
}

}  // namespace vantlow
