// The stage that keeps to the limits of speed.
#pragma once

#include "net/shared_tokens.h"
#include "net/stage.h"

namespace vantlow::net {

/// Moves no more than its users in the limits of both directions are granted, and says `again` at a moment
/// where they are granted nothing. The stage below and the limits outlive it.
class PacedStage final : public Stage {
  public:
    PacedStage(Stage& below, TokenUser& down, TokenUser& up) : below_(below), down_(down), up_(up) {}

    Step read(std::span<std::byte> into, Clock::time_point now) override;
    Step write(std::span<const std::byte> from, Clock::time_point now) override;

  private:
    Stage& below_;
    TokenUser& down_;
    TokenUser& up_;
};

}  // namespace vantlow::net
