// The one file of a plain job, where several jobs want its name at the same moment.
#include "storage/local_file.h"

#include <gtest/gtest.h>

#include <functional>

#include "platform/fault_hook.h"
#include "support/recording_log.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

class Unheard final : public WrittenListener {
  public:
    void written(std::int64_t, std::int64_t) override {}
};

/// Does something, once, right before the system is asked for this operation.
class Meanwhile final : public FaultHook {
  public:
    Meanwhile(Operation operation, std::function<void()> work)
        : operation_(operation), work_(std::move(work)) {}
    int before(Operation operation, std::u16string_view, std::int64_t, std::int64_t) noexcept override {
        if (operation == operation_ && work_) std::exchange(work_, nullptr)();
        return 0;
    }

  private:
    const Operation operation_;
    std::function<void()> work_;
};

class LocalFile : public testing::Test {
  protected:
    void write(CLocalFile& file, std::string_view text) {
        EXPECT_TRUE(file.write(0, std::as_bytes(std::span(text))).ok());
    }
    void finish(CLocalFile& file, std::string_view text) {
        write(file, text);
        EXPECT_TRUE(file.finish(std::ssize(text)).ok());
    }

    test::TempFolder folder;
    test::RecordingLog log;
    Unheard listener;
};

// Its partial file has no state beside it and might be an abandoned one.
TEST_F(LocalFile, ThatIsFinishedWhileAnotherJobWantsItIsNotTouched) {
    CLocalFile first(log, listener);
    CLocalFile second(log, listener);
    ASSERT_TRUE(first.begin(folder.path(), u"name", {}).ok());
    Meanwhile hook(Operation::lock, [&] { finish(first, "the first one's"); });
    {
        const HookInPlace in_place(hook);
        ASSERT_TRUE(second.begin(folder.path(), u"name", {}).ok());
    }
    finish(second, "the second one's");
    EXPECT_EQ(folder.read(u"name"), "the first one's");
    EXPECT_EQ(folder.read(u"name(1)"), "the second one's");
    EXPECT_EQ(folder.names().size(), 2U);
}

// The new one is nobody's for a moment.
TEST_F(LocalFile, ThatAnotherJobTookAndFinishedBeforeItWasLockedIsNotTouched) {
    CLocalFile first(log, listener);
    CLocalFile second(log, listener);
    Meanwhile hook(Operation::lock, [&] {
        EXPECT_TRUE(second.begin(folder.path(), u"name", {}).ok());
        finish(second, "the second one's");
    });
    {
        const HookInPlace in_place(hook);
        ASSERT_TRUE(first.begin(folder.path(), u"name", {}).ok());
    }
    finish(first, "the first one's");
    EXPECT_EQ(folder.read(u"name"), "the second one's");
    EXPECT_EQ(folder.read(u"name(1)"), "the first one's");
    EXPECT_EQ(folder.names().size(), 2U);
}

TEST_F(LocalFile, ThatIsFinishedWhileAnotherRunContinuesItIsNotTouched) {
    CLocalFile first(log, listener);
    CLocalFile second(log, listener);
    ASSERT_TRUE(first.begin(folder.path(), u"name", {}).ok());
    Meanwhile hook(Operation::lock, [&] { finish(first, "the first one's"); });
    {
        const HookInPlace in_place(hook);
        EXPECT_EQ(second.resume(folder.path(u"name"), 0, {}).code, Code::local_file);
    }
    EXPECT_FALSE(second.is_open());
    EXPECT_EQ(folder.read(u"name"), "the first one's");
}

// The name of an unfinished file that is thrown away may be wanted at that moment.
TEST_F(LocalFile, ThatIsThrownAwayTakesNobodyElsesWithIt) {
    CLocalFile first(log, listener);
    CLocalFile second(log, listener);
    ASSERT_TRUE(first.begin(folder.path(), u"name", {}).ok());
    write(first, "the first one's");
    Meanwhile hook(Operation::remove, [&] { ASSERT_TRUE(second.begin(folder.path(), u"name", {}).ok()); });
    {
        const HookInPlace in_place(hook);
        first.discard();
    }
    finish(second, "the second one's");
    ASSERT_EQ(folder.names().size(), 1U);
    EXPECT_EQ(folder.read(folder.names().front()), "the second one's");
}

}  // namespace
}  // namespace vantlow
