#include "app/window/model/status_line.h"

#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "platform/desktop.h"

namespace vantlow {
namespace {

constexpr std::chrono::seconds space_interval{10};

}  // namespace

void StatusLine::show_folder(const std::u16string& folder) {
    if (folder == folder_) return;
    folder_ = folder;
    free_ = vantlow::free_space(folder_);
}

void StatusLine::tick(Time now) {
    if (folder_.empty() || now < next_look_) return;
    next_look_ = now + space_interval;
    free_ = vantlow::free_space(folder_);
}

std::optional<std::int64_t> StatusLine::limit() const {
    if (!settings_.flag(setting::limit)) return std::nullopt;
    return settings_.number(setting::speed_limit);
}

Done StatusLine::switch_limit(bool on) {
    return engine_.set_limit(on ? std::optional(settings_.number(setting::speed_limit)) : std::nullopt);
}

std::string StatusLine::speed_part() const {
    const std::string speed = speed_text(down());
    const std::string fetched = speed.empty() ? speed_text(1).replace(0, 1, "0") : speed;
    const std::string sent = speed_text(up());
    return sent.empty() ? fetched : "\u2193 " + fetched + "  \u2191 " + sent;
}

std::string StatusLine::running_part() const {
    return trn("%1 running", "%1 running", static_cast<std::int64_t>(running()));
}

std::string StatusLine::waiting_part() const {
    return trn("%1 waiting", "%1 waiting", static_cast<std::int64_t>(waiting()));
}

std::string StatusLine::space_part() const {
    return free_ ? fill(tr("%1 free"), {size_text(*free_)}) : std::string();
}

std::string StatusLine::limit_part() const {
    const auto rate = limit();
    return rate ? fill(tr("Limit %1"), {speed_text(static_cast<double>(*rate))}) : tr("No limit");
}

}  // namespace vantlow
