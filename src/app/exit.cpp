#include "app/exit.h"

namespace vantlow {

Exit exit_of(const Result& result) noexcept {
    if (result.ok()) return Exit::done;
    if (result.about_credentials) return Exit::credentials;
    switch (result.code) {
        case Code::local_file:
            return Exit::local_file;
        case Code::credentials_refused:
            return Exit::credentials;
        case Code::not_trusted:
            return Exit::not_trusted;
        case Code::hash_differs:
            return Exit::hash;
        case Code::cancelled:
        case Code::invalid_url:
        case Code::unsupported:
            return Exit::failed;
        case Code::stopped:
            return Exit::interrupted;
        default:
            return Exit::network;
    }
}

}  // namespace vantlow
