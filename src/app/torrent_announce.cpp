#include "app/torrent_commands.h"

namespace vantlow {

Exit run_announce(CFerrywellApp&, const GlobalOptions&, const AnnounceOptions&) {
    return Exit::failed;
}

}  // namespace vantlow
