// The window of the resident program: panes over wxWidgets, one more client of the engine.
#pragma once

#include <memory>

#include "app/process/desktop.h"

namespace vantlow {

/// Makes the graphical side of a process, which connects to no display before open(). One a process.
std::unique_ptr<Desktop> make_desktop();

}  // namespace vantlow
