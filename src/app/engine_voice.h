// What a process without a terminal of its own says of its engine: on stderr.
#pragma once

#include "app/engine_texts.h"
#include "app/say.h"
#include "engine/listener.h"

namespace vantlow {

class EngineVoice : public EngineListener {
  public:
    void followed(const Followed& followed) override {
        for (const DraftFault& fault : followed.faults) say_wrong(text_of(fault));
    }
    void not_saved(const std::string& why) override { say_wrong(why); }

  protected:
    virtual void say_wrong(const std::string& text) { complain(text); }
};

}  // namespace vantlow
