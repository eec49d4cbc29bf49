// A list of links whose files come slowly.
#pragma once

#include <string>

#include "get_fixture.h"
#include "support/file_server.h"

namespace vantlow::test {

/// Serves so many files with the fixture's content, 20,000 bytes a second each, of which every second one can
/// be fetched in parts, and returns a list of their links.
inline std::string serve_slow_list(FileServer& server, int files) {
    std::string list;
    for (int i = 0; i < files; ++i) {
        const std::string path = "/f" + std::to_string(i);
        server.set(path, FileResource{.content = content, .accept_ranges = i % 2 == 0, .rate = 20'000});
        list += server.url(path) + "\n";
    }
    return list;
}

}  // namespace vantlow::test
