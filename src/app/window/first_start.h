// The questions of the first start.
#pragma once

#include "app/process/desktop.h"
#include "app/window/model/window_model.h"

class wxWindow;

namespace vantlow {

/// Asks once in the life of a user's settings: where downloads go, whether browsers hand theirs over, and
/// whether Vantlow starts with the session. Closing it leaves everything as it is. Returns a sentence where
/// something could not be set.
std::string ask_first(wxWindow& parent, DesktopHost& host, WindowModel& model);

}  // namespace vantlow
