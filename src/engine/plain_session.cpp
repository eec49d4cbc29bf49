// The session of one file from servers: a CTransferMainThread.
#include <algorithm>
#include <atomic>
#include <ctime>

#include "base/text.h"
#include "engine/session.h"
#include "platform/file.h"
#include "platform/process.h"
#include "store/address.h"

namespace vantlow {
namespace {

std::string server_text(const Target& target) {
    return target.host_text() + (target.explicit_port ? ":" + std::to_string(target.port) : "");
}

class PlainSession : public JobSession {
  public:
    PlainSession(SessionPlan plan, const TransferServices& services);
    ~PlainSession() override { PlainSession::stop(); }

    Result start() override { return thread_->start(); }
    void fail(const Result& why) override { thread_->end_unstarted(why); }
    void stop() noexcept override;
    [[nodiscard]] bool has_ended() const noexcept override { return ended_; }
    SessionEnd take_end() override;
    [[nodiscard]] const CJobNode& job() const noexcept override { return *job_; }
    [[nodiscard]] JobProgress progress() override { return thread_->progress(); }
    [[nodiscard]] std::unique_ptr<CJobNode> safe_copy() override { return thread_->safe_copy(); }
    [[nodiscard]] std::vector<SessionConnection> connections() override;
    void take_rules(const std::shared_ptr<const JobRules>& rules) override {
        if (thread_) thread_->set_speed_limit(rules ? rules->speed_limit : 0);
    }

  private:
    bool ask_for_host_key(const std::string& host, const std::string& fingerprint);
    [[nodiscard]] std::optional<Question> question_of(const JobOutcome& outcome) const;

    std::unique_ptr<CJobNode> job_;
    QuestionBoard& questions_;
    StopSource question_stop_;  ///< of threads that wait for an answer
    std::string server_;
    std::atomic<bool> asked_for_trust_{false};
    std::atomic<bool> ended_{false};
    CQueueThreadNode node_;
    std::unique_ptr<CTransferMainThread> thread_;  // last: it uses all of the above
};

PlainSession::PlainSession(SessionPlan plan, const TransferServices& services)
    : job_(std::move(plan.job)), questions_(plan.questions), question_stop_(services.stop) {
    if (const auto target = parse_target(job_->address)) server_ = server_text(*target);
    node_.job = job_.get();
    node_.started = static_cast<std::int64_t>(std::time(nullptr));
    SshRules& ssh = plan.options.ssh;
    if (!ssh.hosts) {
        const std::u16string folder = ssh.folder.empty() ? join_path(home_folder(), u".ssh") : ssh.folder;
        ssh.hosts = std::make_shared<HostKeys>(
            folder, [this](const std::string& host, const std::string& fingerprint) {
                return ask_for_host_key(host, fingerprint);
            });
    }
    const auto on_end = [this, tell = std::move(plan.on_end)] {
        ended_ = true;
        tell();
    };
    thread_ =
        std::make_unique<CTransferMainThread>(*job_, services, std::move(plan.options), plan.log, on_end);
}

void PlainSession::stop() noexcept {
    if (thread_) thread_->stop();  // null behind take_end()
    question_stop_.request();
}

SessionEnd PlainSession::take_end() {
    thread_->join();
    SessionEnd end{nullptr, thread_->outcome()};
    thread_.reset();
    end.question = question_of(end.outcome);
    end.job = std::move(job_);
    return end;
}

bool PlainSession::ask_for_host_key(const std::string& host, const std::string& fingerprint) {
    if (job_->rules && job_->rules->accept_host_key) return true;
    asked_for_trust_ = true;
    Question question;
    question.kind = QuestionKind::host_key;
    question.job = job_->identity;
    question.server = host;
    question.fingerprint = fingerprint;
    return questions_.ask(std::move(question), question_stop_).yes;
}

// The question whose answer would let the job go on.
std::optional<Question> PlainSession::question_of(const JobOutcome& outcome) const {
    Question question;
    question.job = job_->identity;
    question.server = server_;
    // The login that a proxy wants, or a server that the job was led to, is not that of the job's own server.
    if (outcome.result.about_credentials) return std::nullopt;
    if (outcome.result.code == Code::credentials_refused) {
        question.kind = QuestionKind::credentials;
        const auto target = parse_target(job_->address);
        question.was_refused = !job_->user.empty() || (target && !target->user.empty());
        return question;
    }
    if (outcome.result.code == Code::not_trusted && !asked_for_trust_) {
        question.kind = QuestionKind::certificate;
        if (const auto target = parse_target(outcome.distrusted)) question.server = server_text(*target);
        return question;
    }
    if (outcome.result.code == Code::cancelled) {
        question.kind = QuestionKind::overwrite;
        question.path = outcome.path;
        return question;
    }
    return std::nullopt;
}

std::vector<SessionConnection> PlainSession::connections() {
    std::vector<SessionConnection> connections;
    for (const JobProgress::Missing& missing : thread_->progress().missing) {
        if (missing.active)
            connections.push_back({server_, missing.start, missing.end, missing.worker, true});
    }
    return connections;
}

}  // namespace

std::unique_ptr<JobSession> make_plain_session(SessionPlan plan, const TransferServices& services) {
    return std::make_unique<PlainSession>(std::move(plan), services);
}

}  // namespace vantlow
