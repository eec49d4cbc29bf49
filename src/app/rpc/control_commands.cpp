#include "app/rpc/control_commands.h"

#include <memory>

#include "app/cli/report.h"
#include "app/process/application.h"
#include "app/process/known_settings.h"
#include "app/rpc/control_settings.h"
#include "platform/console.h"

namespace vantlow {
namespace {

Exit run_secret(CFerrywellApp& app, const GlobalOptions& global, bool anew) {
    auto secret = control_secret(app.settings());
    if (!secret || anew) {
        secret.emplace();
        const FileError error = make_control_secret(app.settings(), *secret);
        if (!error.ok()) return complain("The secret cannot be stored: " + error.text());
    }
    if (app.settings().flag(setting::rpc_tls)) {
        const auto certificate = control_certificate(app.settings(), app.data_folder());
        if (!certificate) return complain(certificate.failure().message());
        tell("The fingerprint of the certificate (SHA-256): " + fingerprint_of(certificate->chain));
    }
    if (secret->empty()) tell("Nobody is asked for a secret: \"RPC\"/\"Secret\" is \"none\".");
    print_answer(global, *secret, *secret + "\n");
    return Exit::done;
}

Exit run_status(CFerrywellApp& app, const GlobalOptions& global) {
    if (!app.runs_jobs()) return complain("Vantlow is not running, so nothing can steer it.");
    const std::vector<std::string>& places = app.control_places();
    const bool is_tls = app.settings().flag(setting::rpc_tls);
    std::string text;
    for (const std::string& place : places) text += (is_tls ? "https://" : "http://") + place + "/jsonrpc\n";
    std::string fingerprint;
    if (is_tls && !places.empty()) {
        const auto certificate = control_certificate(app.settings(), app.data_folder());
        if (certificate) fingerprint = fingerprint_of(certificate->chain);
        text += "certificate (SHA-256): " + fingerprint + "\n";
    }
    if (places.empty()) tell("The control API is closed. \"vantlow settings set RPC/Enable 1\" opens it.");
    print_answer(global, {{"listening", places}, {"tls", is_tls}, {"fingerprint", fingerprint}}, text);
    return Exit::done;
}

}  // namespace

void add_control_commands(CommandSet& commands) {
    CLI::App& group = commands.add_group("rpc", "The control API, by which other programs steer this one");
    const auto anew = std::make_shared<bool>(false);
    CLI::App& secret = commands.add_below(
        group, "secret", "Print the secret that other programs have to show; make it where there is none",
        [anew](CFerrywellApp& app, const GlobalOptions& global) { return run_secret(app, global, *anew); });
    secret.add_flag("--new", *anew, "Make a new one: the old one serves no more");
    commands.add_on_data_folder(group, "status", "Print the addresses at which it is reached", run_status);
}

}  // namespace vantlow
