// Which SSH servers are known, and this user's keys.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "base/result.h"

namespace vantlow {

/// The known hosts of one user: a file in OpenSSH's form, shared with other programs. Any thread may call.
class HostKeys {
  public:
    /// Whether a server that is not known is to be trusted from now on: its name and its key's fingerprint.
    /// Called by one thread at a time.
    using Ask = std::function<bool(const std::string& host, const std::string& fingerprint)>;

    /// `folder` is where known_hosts stands, ~/.ssh. Without `ask` no further server is accepted.
    explicit HostKeys(std::u16string folder, Ask ask = {});

    /// The file's text; empty where there is none. `not_trusted` where it cannot be read: a server that it
    /// tells to be another one would pass as a new one.
    [[nodiscard]] Outcome<std::string> known() const;
    /// Asks, and writes the line down where the answer is yes. A server that another thread asked about
    /// meanwhile is not asked about again.
    bool accept(const std::string& host, const std::string& fingerprint, const std::string& line);

  private:
    void remember(const std::string& line) const;

    std::u16string folder_;
    Ask ask_;
    Mutex mutex_;  ///< held while asking, the one exception: one question at a time
    std::vector<std::string> accepted_ VANTLOW_GUARDED_BY(mutex_);  ///< lines of this run
};

/// The user's side of SSH.
struct SshRules {
    std::u16string folder;            ///< where the keys stand; empty: ~/.ssh
    std::u16string key_file;          ///< asked for by name; empty: none
    std::shared_ptr<HostKeys> hosts;  ///< null: those of the folder, no further ones
};

/// The texts of the private keys: the named one first, then id_ed25519, id_ecdsa and id_rsa of the folder, as
/// far as they can be read. `credentials_refused` where the named one cannot, or is none.
Outcome<std::vector<std::string>> read_private_keys(const std::u16string& folder,
                                                    const std::u16string& key_file);

}  // namespace vantlow
