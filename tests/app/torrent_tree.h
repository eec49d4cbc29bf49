// A torrent's files and the real peer that has them, for tests of the program; on machines that have such a
// peer.
#pragma once

#include <array>

#include "platform/folder.h"
#include "store_run.h"
#include "support/unix_program.h"

namespace vantlow::test {

/// Four files in the folder "seed/tree": "a", "b/c", "b/d", and "e", which has no bytes. Skips where the peer
/// is missing.
class TorrentTree : public StoreRun {
  protected:
    void SetUp() override {
        python = unix_program("python3");
        if (python.empty() || run_program(python, {u"-c", u"import libtorrent"}).status != 0)
            GTEST_SKIP() << "python3-libtorrent is missing";
    }
    /// The sizes of "a", "b/c" and "b/d".
    void write_tree(const std::array<std::int64_t, 3>& sizes) {
        sizes_ = sizes;
        ASSERT_TRUE(make_folders(folder.path(u"seed/tree/b")).ok());
        for (std::size_t i = 0; i < names.size(); ++i)
            folder.write(u"seed/tree/" + names[i], make_content(i, static_cast<std::size_t>(sizes_[i])));
        folder.write(u"seed/tree/e", "");
        torrent = folder.path(u"seed/tree.torrent");
    }
    testing::AssertionResult has_all(const std::u16string& below) const {
        for (std::size_t i = 0; i < names.size(); ++i) {
            auto same = file_has_content(folder.path(below + u"/" + names[i]), i, sizes_[i]);
            if (!same) return same;
        }
        if (path_kind(folder.path(below + u"/e")) == PathKind::file) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the file without bytes is missing";
    }
    /// A peer's program in Python; it has told its port.
    std::unique_ptr<RunningProgram> begin_peer(const std::vector<std::u16string>& words, int& port) const {
        auto peer = std::make_unique<RunningProgram>(python, words);
        if (!peer->wait_for_output("\n")) {
            ADD_FAILURE() << peer->err();
            return peer;
        }
        const std::string out = peer->out();
        port = std::stoi(out.substr(out.find(' ') + 1));
        return peer;
    }

    const std::array<std::u16string, 3> names{u"a", u"b/c", u"b/d"};
    std::u16string python;
    std::u16string torrent;  ///< the document, once it is made

  private:
    std::array<std::int64_t, 3> sizes_{};
};

}  // namespace vantlow::test
