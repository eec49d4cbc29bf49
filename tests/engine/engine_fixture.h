// An engine whose sessions do what a test tells them to: no network, no time.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/safe_name.h"
#include "base/text.h"
#include "engine/engine.h"
#include "support/temp_folder.h"

namespace vantlow::test {

/// A session that goes on until the test, or a stop, ends it.
class FakeSession : public JobSession {
  public:
    FakeSession(SessionPlan plan, std::map<Guid, FakeSession*>& all)
        : questions(plan.questions),
          log(plan.log),
          sharing(plan.sharing),
          job_(std::move(plan.job)),
          on_end_(std::move(plan.on_end)),
          identity_(job_->identity),
          all_(all) {
        all_[identity_] = this;
    }
    ~FakeSession() override { all_.erase(identity_); }

    Result start() override { return {}; }
    void fail(const Result& why) override { end(why); }
    void stop() noexcept override {
        stopped = true;
        if (ends_when_stopped) end(Code::stopped);
    }
    [[nodiscard]] bool has_ended() const noexcept override { return ended_; }
    SessionEnd take_end() override { return {std::move(job_), outcome, question}; }
    [[nodiscard]] const CJobNode& job() const noexcept override { return *job_; }
    [[nodiscard]] JobProgress progress() override {
        JobProgress progress;
        progress.done = progress.received = done;
        progress.size = safe_size > 0 ? safe_size : -1;
        progress.missing = missing;
        progress.shares = shares;
        return progress;
    }
    void take_rules(const std::shared_ptr<const JobRules>& newer) override { rules = newer; }
    [[nodiscard]] bool owes_choice() const override { return owes; }
    [[nodiscard]] std::unique_ptr<CJobNode> safe_copy() override {
        auto copy = job_->twin();
        copy->file_size = safe_size;
        return copy;
    }
    [[nodiscard]] std::vector<SessionConnection> connections() override { return lines; }
    [[nodiscard]] std::optional<Result> settled() const override { return settles; }

    void end(const Result& result) {
        if (std::exchange(ended_, true)) return;
        outcome.result = result;
        job_->result = result.code;
        job_->state = result.ok()                    ? JobState::finished
                      : result.code == Code::stopped ? JobState::stopped
                                                     : JobState::failed;
        on_end_();
    }

    QuestionBoard& questions;
    LogSink& log;
    std::vector<SessionConnection> lines;
    JobOutcome outcome;
    std::optional<Question> question;
    std::optional<Result> settles;
    bool ends_when_stopped = true;
    bool stopped = false;
    bool shares = false;
    TorrentSharing sharing;  ///< as it was told
    std::int64_t done = 0;
    std::int64_t safe_size = 0;
    std::shared_ptr<const JobRules> rules;  ///< as they were changed
    bool owes = false;
    std::vector<JobProgress::Missing> missing;
    [[nodiscard]] CJobNode& twin() { return *job_; }

  private:
    std::unique_ptr<CJobNode> job_;
    std::function<void()> on_end_;
    Guid identity_;
    std::map<Guid, FakeSession*>& all_;
    bool ended_ = false;
};

/// What a client hears.
class Ears : public EngineListener {
  public:
    void changed(const Changes& changes) override {
        ++deliveries;
        for (const JobChange& change : changes.jobs) fields[change.job] |= change.fields;
    }
    void data_complete(const Guid& job) override { complete.push_back(job); }
    void ended(const JobEnd& end) override { ends.push_back(end.outcome.result.code); }
    void followed(const Followed& what) override { follows.push_back(what); }
    void asked(const std::vector<Question>& open) override { questions = open; }

    int deliveries = 0;
    std::map<Guid, std::uint32_t> fields;
    std::vector<Guid> complete;
    std::vector<Code> ends;
    std::vector<Followed> follows;
    std::vector<Question> questions;
};

class EngineTest : public testing::Test {
  protected:
    EngineTest() {
        start_sockets();
        set(setting::max_jobs, 2);
        open();
    }
    ~EngineTest() override {
        engine->remove_listener(ears);
        engine.reset();
    }

    void set(const NumberSetting& setting, std::int64_t value) {
        settings.override_value(setting.section, setting.key, to_utf16(std::to_string(value)));
    }
    /// The engine of this process, then of the next one.
    void open(std::chrono::milliseconds question_time = std::chrono::seconds(10)) {
        engine.reset();
        std::string error;
        auto store = JobStore::open({folder.path(u"data"), folder.path(), true}, error);
        ASSERT_NE(store, nullptr) << error;
        start(std::move(store), question_time);
    }
    void open_in_memory() { start(JobStore::in_memory(folder.path()), {}); }
    void start(std::unique_ptr<JobStore> store, std::chrono::milliseconds question_time) {
        Engine::Options options{settings, libraries, stop, folder.path(u"data"), u"Test/1"};
        options.sessions = &table;
        options.change_interval = {};
        engine = std::make_unique<Engine>(std::move(store), std::move(options));
        Engine::Running running{connections, threads, {}, question_time};
        running.shares_finished = shares_finished;
        engine->run(std::move(running));
        engine->add_listener(ears);
    }

    /// The jobs of these links.
    std::vector<Guid> add(std::vector<std::string> links, bool paused = false) {
        JobDraft draft;
        draft.links = std::move(links);
        draft.folder = folder.path();
        draft.paused = paused;
        const Added added = engine->add(draft);
        EXPECT_TRUE(added.done.ok());
        EXPECT_TRUE(added.faults.empty());
        bool safe = false;
        engine->settle([&safe](const std::string& failure) {
            EXPECT_EQ(failure, "");
            safe = true;
        });
        EXPECT_TRUE(pump_until([&safe] { return safe; }));
        return added.jobs;
    }
    bool pump_until(const std::function<bool()>& condition) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition() && std::chrono::steady_clock::now() < until)
            engine->pump(std::chrono::milliseconds(1));
        return condition();
    }
    Guid add_one(const std::string& link) { return add({link}).at(0); }
    [[nodiscard]] JobState state(const Guid& job) const {
        const CJobNode* const record = engine->find(job);
        EXPECT_NE(record, nullptr);
        return record != nullptr ? record->state : JobState::failed;
    }
    FakeSession& session(const Guid& job) { return *sessions.at(job); }
    void end(const Guid& job, const Result& result = {}) {
        session(job).end(result);
        engine->pump();
    }

    TempFolder folder;
    Settings settings;
    LibraryTables libraries{};
    StopSource stop;
    ConnectionServices connections;
    ThreadPool threads;
    std::map<Guid, FakeSession*> sessions;
    SessionTable table{
        {JobKind::transfer, true, 1000,
         [this](SessionPlan plan, const TransferServices&) {
             return std::make_unique<FakeSession>(std::move(plan), sessions);
         }},
        {JobKind::torrent, false, 2,
         [this](SessionPlan plan, const TransferServices&) {
             return std::make_unique<FakeSession>(std::move(plan), sessions);
         }},
    };
    bool shares_finished = false;
    Ears ears;
    std::unique_ptr<Engine> engine;
};

}  // namespace vantlow::test
