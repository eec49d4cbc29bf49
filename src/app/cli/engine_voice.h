// What a process without a terminal of its own says of its engine: on stderr.
#pragma once

#include "app/cli/engine_texts.h"
#include "app/process/messages.h"
#include "engine/listener.h"

namespace vantlow {

class EngineVoice : public EngineListener {
  public:
    void followed(const Followed& followed) override {
        for (const DraftFault& fault : followed.faults) say_wrong(text_of(fault));
    }
    void store_said(const std::string& text) override { say_wrong(text); }

  protected:
    virtual void say_wrong(const std::string& text) { complain(text); }
};

}  // namespace vantlow
