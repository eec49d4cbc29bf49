#include "app/rpc/control_api.h"

#include <algorithm>

#include "app/rpc/vantlow_methods.h"
#include "rpc/json_rpc.h"

namespace vantlow {
namespace {

// The engine's thread has other things to do: so long it works on requests before those have their turn.
constexpr std::chrono::milliseconds turn_time{5};

}  // namespace

ControlApi::ControlApi(Host host)
    : host_(std::move(host)),
      downloads_(host_.engine,
                 {host_.agent, host_.settings,
                  [this](std::string_view word, const Guid& job) { notify(word, job); }, host_.quit}) {
    rpc::add_download_methods(table_, downloads_);
    add_vantlow_methods(
        table_, {host_.engine, host_.settings, downloads_.live(), downloads_.session(), host_.follow});
    host_.engine.add_listener(*this);
}

ControlApi::~ControlApi() {
    host_.engine.remove_listener(*this);
    endpoint_.reset();
}

std::string ControlApi::look() {
    downloads_.look();
    if (std::exchange(settings_version_, host_.settings.version()) == settings_version_) return {};
    std::string error;
    ControlConfig config = read_control_config(host_.settings, host_.engine.data_folder(), error);
    if (config == config_ && error == complaint_) return {};
    endpoint_.reset();
    config_ = config;
    if (config.enabled && error.empty()) {
        table_.set_secret(config.rules.secret);
        auto opened = Endpoint::open(config, [this](rpc::Run run, Endpoint::Answered answered) {
            take(std::move(run), std::move(answered));
        });
        if (opened.ok()) {
            endpoint_ = *std::move(opened);
        } else {
            error = opened.failure().message();
        }
    }
    return std::exchange(complaint_, error) == error ? std::string() : error;
}

std::vector<std::string> ControlApi::places() const {
    return endpoint_ ? endpoint_->places() : std::vector<std::string>();
}

// Called on the endpoint's thread.
void ControlApi::take(rpc::Run run, Endpoint::Answered answered) {
    {
        const MutexLock guard(mutex_);
        queue_.push_back({std::move(run), std::move(answered)});
        if (std::exchange(posted_, true)) return;
    }
    post_turn();
}

void ControlApi::post_turn() {
    host_.post([this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) turn();
    });
}

void ControlApi::turn() {
    downloads_.look();
    const auto until = std::chrono::steady_clock::now() + turn_time;
    std::vector<Pending> done;
    bool has_more = true;
    while (std::chrono::steady_clock::now() < until) {
        Pending pending;
        {
            const MutexLock guard(mutex_);
            if (queue_.empty()) {
                has_more = posted_ = false;
                break;
            }
            pending = std::move(queue_.front());
            queue_.pop_front();
        }
        const std::uint64_t before = host_.engine.revision();
        const bool is_over = table_.work(pending.run, until);
        pending.changed = pending.changed || host_.engine.revision() != before;
        if (is_over && !pending.changed) {
            pending.answered(std::move(pending.run));
        } else if (is_over) {
            done.push_back(std::move(pending));
        } else {
            const MutexLock guard(mutex_);
            if (pending.run.only_lists()) {
                queue_.push_back(std::move(pending));
            } else {
                queue_.push_front(std::move(pending));
            }
        }
    }
    if (has_more) post_turn();
    if (!done.empty()) settle(std::move(done));
}

// An answer is true once its changes are safe.
void ControlApi::settle(std::vector<Pending> done) {
    const auto all = std::make_shared<std::vector<Pending>>(std::move(done));
    host_.engine.settle([all, wake = host_.wake](const std::string& failure) {
        for (Pending& one : *all) {
            for (rpc::Answer& answer : one.run.answers) {
                if (!failure.empty() && std::holds_alternative<rpc::Json>(answer))
                    answer = rpc::Fault{rpc::fault_code::failed, failure};
            }
            one.answered(std::move(one.run));
        }
        wake();
    });
    host_.wake();
}

void ControlApi::notify(std::string_view word, const Guid& job) {
    if (!endpoint_) return;
    endpoint_->notify(rpc::write_notification(word, rpc::Json::array({{{"gid", rpc::gid_of(job)}}})));
}

void ControlApi::asked(const std::vector<Question>& open) {
    const bool is_more = open.size() > std::exchange(open_questions_, open.size());
    if (!endpoint_ || !is_more) return;
    endpoint_->notify(
        rpc::write_notification("vantlow.onQuestion", rpc::Json::array({{{"id", open.back().id}}})));
}

}  // namespace vantlow
