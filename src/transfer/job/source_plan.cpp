// The plans of a connection and of the file, made of the job, the run's wishes and the settings as they are
// now.
#include <algorithm>

#include "platform/process.h"
#include "store/address.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/job/main_thread.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow {
namespace {

FtpRules ftp_rules(const Settings& settings) {
    FtpRules rules;
    rules.features = settings.flag(setting::enable_feat);
    rules.passive = settings.flag(setting::ftp_passive);
    rules.follows_pasv = settings.flag(setting::follow_pasv);
    rules.trace_listings = settings.flag(setting::trace_list);
    if (settings.flag(setting::nat_in_port)) rules.mapped_address = settings.text(setting::nat_address);
    rules.binary_types = settings.text(setting::binary_types);
    rules.client_version = product_version();
    return rules;
}

}  // namespace

void plan_by_rules(const CJobNode& job, const Settings& settings, FetchPlan& plan) {
    plan.timeout = std::chrono::seconds(settings.number(setting::connect_timeout));
    plan.trust.verify = settings.flag(setting::verify_peer) && !(job.rules && job.rules->insecure);
    plan.trust.ca_file =
        job.rules && !job.rules->ca_file.empty() ? job.rules->ca_file : settings.text(setting::ca_file);
    plan.limits.most = settings.number(setting::max_per_server);
    plan.limits.interval = std::chrono::milliseconds(settings.number(setting::connect_interval));
}

void plan_cookies(const Settings& settings, HttpWishes& http) {
    http.system_cookies = settings.flag(setting::get_cookie);
    http.cookie_file = settings.text(setting::cookie_file);
    if (!http.cookie.starts_with(u'@')) return;
    http.cookie_file = http.cookie.substr(1);
    http.cookie.clear();
}

ProxyPlan proxy_to(const std::optional<Target>& target, const RunOptions& options,
                   const TransferServices& services) {
    ProxyPlan proxy = options.proxy;
    if (options.proxy_rules && target)
        proxy = options.proxy_rules->choose(target->scheme, target->host, target->port);
    proxy.resolve_here = !services.settings.flag(setting::proxy_resolves);
    if (!proxy.user.empty())
        add_login(proxy, services.libraries, &services.connections.memory.of<LoginMemory>());
    return proxy;
}

void plan_source(const CJobNode& job, const RunOptions& options, const TransferServices& services,
                 SourcePlan& plan) {
    const Settings& settings = services.settings;
    plan_by_rules(job, settings, plan);
    plan_cookies(settings, plan.http);
    plan.receive_buffer = static_cast<std::size_t>(settings.number(setting::connection_buffer)) * 1024;
    plan.ftp = ftp_rules(settings);
    plan.ssh = options.ssh;
    plan.ssh_buffer = static_cast<std::size_t>(settings.number(setting::ssh_buffer)) * 1024;
    plan.proxy_rules = options.proxy_rules;
    const auto target = plan.proxy_rules ? parse_target(plan.address, plan.utf8) : std::nullopt;
    plan.proxy = proxy_to(target, options, services);
}

SourcePlan CTransferMainThread::plan(Worker& asker) {
    SourcePlan plan;
    {
        const MutexLock guard(lock_);
        // Somebody else was faster: the failure to come looks for the next chance.
        if (!policy_.choose_mirror(asker, now())) return plan;
        const Mirror& mirror = policy_.mirrors().at(asker.mirror);
        plan.origin = mirror.address;
        plan.address = mirror.effective.empty() ? mirror.address : mirror.effective;
        if (mirror.own_server) {
            plan.user = job_.user;
            plan.password = job_.password;
            plan.http.cookie = job_.cookie;
            plan.http.referer = job_.referer;
            if (job_.form) {
                plan.http.form_type = job_.form->media_type;
                plan.http.form = job_.form->body;
            }
        }
        plan.http.agent = job_.agent.empty() ? options_.default_agent : job_.agent;
        plan.http.automatic_referer = job_.automatic_referer != 0;
        plan.utf8 = job_.utf8 != 0;
        plan.silence = std::chrono::seconds(std::max(job_.silence_limit, 1));
        plan.limits.further = mirror.answered;
    }
    plan.limits.awaited = &awaiting_place_;
    plan_source(job_, options_, services_, plan);
    return plan;
}

FileRules CTransferMainThread::file_rules() const {
    const Settings& settings = services_.settings;
    FileRules rules;
    rules.overwrite = settings.number(setting::overwrite_rule);
    if (job_.rules) {
        rules.overwrite = job_.rules->overwrite.value_or(rules.overwrite);
        rules.skip_existing = job_.rules->skip_existing;
    }
    rules.allocate = settings.flag(setting::allocate_space);
    rules.disk_buffer = static_cast<std::size_t>(settings.number(setting::disk_buffer)) * 1024;
    rules.data_buffer = static_cast<std::size_t>(settings.number(setting::data_buffer)) * 1024;
    return rules;
}

}  // namespace vantlow
