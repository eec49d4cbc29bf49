// The engine's questions, one at a time, for a dialog.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "engine/engine.h"

namespace vantlow {

/// Belongs to the engine's thread.
class QuestionQueue {
  public:
    explicit QuestionQueue(Engine& engine) : engine_(engine) {}
    /// Called when front() is another question than before, or none.
    void on_front(std::function<void()> tell) { tell_ = std::move(tell); }

    /// The question that is to be shown: the oldest one that was not put off. It stays the same until it is
    /// answered, lapses or is put off.
    [[nodiscard]] const std::optional<Question>& front() const noexcept { return front_; }
    [[nodiscard]] std::size_t size() const noexcept { return open_.size(); }  ///< with those put off
    /// Answers it, and where it is about a host key or a login every other open one about the same server and
    /// fingerprint.
    Done answer(const QuestionAnswer& answer);
    /// The dialog was closed: the question waits for another client or its default.
    void put_off();
    /// Lets questions that were put off come again, as when a person asks for them.
    void bring_back();

    void asked(const std::vector<Question>& open);

  private:
    void choose();

    Engine& engine_;
    std::function<void()> tell_;
    std::vector<Question> open_;
    std::vector<std::uint64_t> put_off_;
    std::optional<Question> front_;
};

}  // namespace vantlow
