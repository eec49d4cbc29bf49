// Notices of downloads that ended, on the desktop's own way.
#pragma once

#include <wx/notifmsg.h>

#include <functional>
#include <memory>
#include <vector>

#include "app/window/model/window_model.h"

namespace vantlow {

/// Gathers the ends of a second into one notice. Whoever opens it gets the file, or the window where it is
/// about several.
class EndNotices {
  public:
    /// `wanted`: whether a notice is to be shown now. `to_window`: brings the window to the front.
    EndNotices(wxWindow& window, WindowModel& model, std::function<bool()> wanted,
               std::function<void()> to_window);
    ~EndNotices();
    EndNotices(const EndNotices&) = delete;
    EndNotices& operator=(const EndNotices&) = delete;

    /// Once a second.
    void look();

  private:
    struct Ended {
        Guid job;
        bool failed = false;
    };
    void show(const std::vector<Ended>& ended);
    void open(const Guid& job);

    wxWindow& window_;
    WindowModel& model_;
    std::function<bool()> wanted_;
    std::function<void()> to_window_;
    std::vector<Ended> ended_;
    std::vector<std::unique_ptr<wxNotificationMessage>> shown_;  ///< they answer to clicks while they live
};

}  // namespace vantlow
