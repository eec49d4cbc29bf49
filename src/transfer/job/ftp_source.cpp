
#include "base/string_table.h"
#include "base/text.h"
#include "platform/file.h"
#include "platform/local_text.h"
#include "platform/process.h"
#include "store/address.h"
#include "transfer/ftp/conversation.h"
#include "transfer/ftp/sftp_conversation.h"
#include "transfer/http/content_name.h"
#include "transfer/job/source.h"

namespace vantlow {
namespace {

bool fits_a_command(std::string_view text) noexcept {
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

class FtpSource : public Source {
  public:
    explicit FtpSource(const SourceContext& context) : context_(context) {}

    Result open(const SourcePlan& plan, std::int64_t offset, SourceAnswer& answer) override;
    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        if (by_proxy_) return by_proxy_->read(into, until);
        return transfer_ ? transfer_->read(into, until) : Moved::closed();
    }
    [[nodiscard]] bool can_fill() const noexcept override {
        return by_proxy_ ? by_proxy_->can_fill() : transfer_ && transfer_->can_fill();
    }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) override {
        return by_proxy_ ? by_proxy_->fill(conduit, most, until) : transfer_->fill(conduit, most, until);
    }
    void close() override {
        if (by_proxy_) by_proxy_->close();
        if (transfer_) transfer_->finish();
    }
    [[nodiscard]] std::optional<std::chrono::seconds> retry_after() const override {
        return by_proxy_ ? by_proxy_->retry_after() : std::nullopt;
    }

  private:
    Result make_plan(const SourcePlan& plan, const Target& target, FtpPlan& ftp) const;
    Result add_ssh(const SourcePlan& plan, FtpPlan& ftp) const;
    std::unique_ptr<FtpTransfer> make_transfer(const std::string& scheme) const;
    Result fail(Result result) const {
        context_.log.line(Direction::error, result.message());
        return result;
    }
    Result fail(Code code, std::string text) const { return fail(Result(code, std::move(text))); }

    SourceContext context_;
    std::unique_ptr<Source> by_proxy_;
    std::unique_ptr<FtpTransfer> transfer_;
};

std::string wire(std::u16string_view text, bool utf8) {
    return utf8 ? to_utf8(text) : to_ansi(text);
}

// The job's own credentials are for its own server: a redirect may lead to another one.
void add_login(const SourcePlan& plan, const Target& target, FtpPlan& ftp) {
    const auto origin = parse_target(plan.origin, plan.utf8);
    const bool own = origin && origin->scheme == target.scheme && iequals(origin->host, target.host) &&
                     origin->port == target.port;
    if (!target.user.empty()) {
        ftp.user = wire(target.user, plan.utf8);
        // "ftp://user@host" and a password beside it belong together.
        const bool beside = target.password.empty() && own && (plan.user.empty() || plan.user == target.user);
        ftp.password = wire(beside ? plan.password : target.password, plan.utf8);
    } else if (own) {
        ftp.user = wire(plan.user.empty() ? origin->user : plan.user, plan.utf8);
        ftp.password = wire(plan.user.empty() ? origin->password : plan.password, plan.utf8);
    }
}

Result FtpSource::make_plan(const SourcePlan& plan, const Target& target, FtpPlan& ftp) const {
    auto path = parse_ftp_path(target.path);
    if (!path) return fail(Code::invalid_url, "Invalid URL.");
    if (path->file.empty() || path->type == 'd')
        return fail(Code::unsupported, "The address names a folder, not a file.");
    ftp.path = *std::move(path);
    ftp.connect.host = target.host;
    ftp.connect.port = target.port;
    ftp.connect.proxy = plan.proxy;
    ftp.connect.timeout = plan.timeout;
    ftp.connect.limits = plan.limits;
    ftp.connect.want_connect = true;
    add_login(plan, target, ftp);
    if (!fits_a_command(ftp.user) || !fits_a_command(ftp.password))
        return fail(Code::credentials_refused, "The user name or the password contains a line break.");
    if (target.scheme == "ftps") ftp.tls = plan.trust;
    ftp.utf8 = plan.utf8;
    ftp.ask_features = plan.ftp.features;
    ftp.passive = plan.ftp.passive;
    ftp.follows_pasv = plan.ftp.follows_pasv;
    ftp.only_version = plan.only_version;
    ftp.trace_listings = plan.ftp.trace_listings;
    ftp.facts_only = plan.facts_only;
    ftp.text_mode = ftp.path.type == 'a' && !is_binary_name(ftp.path.file, to_utf8(plan.ftp.binary_types));
    ftp.native_lines = path_separator() == u'/';
    ftp.client_name = "Vantlow";
    ftp.client_version = to_utf8(plan.ftp.client_version);
    ftp.buffer_size = plan.receive_buffer;
    const auto mapped = SocketAddress::from_literal(to_utf8(plan.ftp.mapped_address), 0);
    if (mapped && !mapped->is_ipv6()) ftp.mapped_address = mapped->ipv4();
    if (target.scheme == "sftp") return add_ssh(plan, ftp);
    const SshTable& ssh = context_.libraries.ssh;
    ftp.inflate = {ssh.ZLib_InflateInit, ssh.ZLib_Inflate, ssh.ZLib_InflateEnd};
    ftp.one_time_password = context_.libraries.secur.opieKeyGenerate;
    return {};
}

std::unique_ptr<FtpTransfer> FtpSource::make_transfer(const std::string& scheme) const {
    const SourceContext& c = context_;
    if (scheme == "sftp") return std::make_unique<SftpConversation>(c.services, c.log, c.stop, c.node);
    return std::make_unique<FtpConversation>(c.services, c.log, c.stop, c.node);
}

// SSH needs a name to log in, and its paths begin at the root, as those of other addresses do.
Result FtpSource::add_ssh(const SourcePlan& plan, FtpPlan& ftp) const {
    const SshTable& table = context_.libraries.ssh;
    ftp.ssh.operations = {table.SSH_Init,     table.SSH_Exit, table.SSH_Settings, table.SSH_SetErrPtr,
                          table.Sftp_Connect, table.SSH_Send, table.SSH_Recv,     table.SSH_Disconnect};
    if (!ftp.ssh.operations.complete()) {
        return fail(Code::unsupported,
                    missing_library_text("libssh") + " sftp:// addresses cannot be fetched.");
    }
    const std::u16string folder =
        plan.ssh.folder.empty() ? join_path(home_folder(), u".ssh") : plan.ssh.folder;
    auto keys = read_private_keys(folder, plan.ssh.key_file);
    if (!keys.ok()) return fail(keys.failure());
    const std::shared_ptr<HostKeys> hosts =
        plan.ssh.hosts ? plan.ssh.hosts : std::make_shared<HostKeys>(folder);
    auto known = hosts->known();
    if (!known.ok()) return fail(known.failure());
    ftp.ssh.keys = *std::move(keys);
    ftp.ssh.first_keys = plan.ssh.key_file.empty() ? 0 : 1;
    ftp.ssh.known_hosts = *std::move(known);
    ftp.ssh.accept = [hosts](const std::string& host, const std::string& fingerprint,
                             const std::string& line) { return hosts->accept(host, fingerprint, line); };
    ftp.ssh.receive_buffer = plan.ssh_buffer;
    if (ftp.user.empty()) ftp.user = to_utf8(user_logon_name());
    ftp.text_mode = false;
    const bool from_root = !ftp.path.folder.starts_with('/') && !ftp.path.folder.starts_with('~');
    if (from_root) ftp.path.folder.insert(0, 1, '/');
    return {};
}

Result FtpSource::open(const SourcePlan& plan, std::int64_t offset, SourceAnswer& answer) {
    const auto target = parse_target(plan.address, plan.utf8);
    if (!target) return fail(Code::invalid_url, why_no_target(plan.address));
    if (plan.proxy.takes_requests(false) && target->scheme == "ftp") {
        if (plan.only_version) return {};  // nobody but the FTP server could tell
        by_proxy_ = make_http_source(context_);
        return by_proxy_->open(plan, offset, answer);
    }
    FtpPlan ftp;
    if (Result result = make_plan(plan, *target, ftp); !result.ok()) return result;
    transfer_ = make_transfer(target->scheme);
    FtpFile file;
    if (Result result = transfer_->open(ftp, offset, file); !result.ok()) {
        if (result.kind() != Kind::stopped) context_.log.line(Direction::error, result.message());
        return result;
    }
    answer.granted = file.granted;
    answer.whole = file.granted == 0;
    answer.encoded = ftp.text_mode;
    answer.ranges_promised = file.can_restart;
    answer.ranges_denied = !file.can_restart;
    answer.version.size = file.size;
    answer.version.last_modified = file.time;
    // The time is the file's own, not one that is made for an answer. That of a listing ("Jan 1 10:00") tells
    // the minute or the day.
    answer.version.strong_date = !file.time.empty() && file.time.find(' ') == std::string::npos;
    answer.name = decode_name(ftp.path.file);
    answer.address = plan.address;
    return {};
}

}  // namespace

std::unique_ptr<Source> make_ftp_source(const SourceContext& context) {
    return std::make_unique<FtpSource>(context);
}

}  // namespace vantlow
