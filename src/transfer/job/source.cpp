#include "transfer/job/source.h"

#include <array>

#include "base/text.h"
#include "transfer/job/http_source.h"

namespace vantlow {
namespace {

constexpr std::array protocols{
    Protocol{u"http://", make_http_source},
    Protocol{u"https://", make_http_source},
};

}  // namespace

const Protocol* find_protocol(std::u16string_view address) noexcept {
    for (const Protocol& protocol : protocols) {
        if (istarts_with(address, protocol.scheme)) return &protocol;
    }
    return nullptr;
}

}  // namespace vantlow
