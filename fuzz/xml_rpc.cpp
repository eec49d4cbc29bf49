// Requests of the control API as XML: a call that was read can be answered with its own parameters, and such
// an answer's values, made a call, are read the same.
#include "rpc/xml_rpc.h"

#include "fuzz.h"

namespace vantlow::fuzz {
namespace {

// Bytes are not among the values of answers.
bool has_bytes(const rpc::Json& value) {
    if (value.is_binary()) return true;
    if (value.is_structured()) {
        for (const rpc::Json& one : value) {
            if (has_bytes(one)) return true;
        }
    }
    return false;
}

}  // namespace

void run(std::string_view input) {
    const rpc::Request request = rpc::read_xml(input);
    CHECK(request.calls.size() == 1);
    const rpc::Call& call = request.calls.front();
    if (call.fault || has_bytes(call.params)) return;
    std::string text = rpc::write_xml(call.params).body;
    const auto begin = text.find("<params>");
    text = "<methodCall><methodName>m</methodName>" +
           text.substr(begin, text.rfind("</methodResponse>") - begin) + "</methodCall>";
    const rpc::Request again = rpc::read_xml(text);
    if (again.calls.front().fault) return;  // one level deeper than it may be
    CHECK(again.calls.front().params == rpc::Json::array({call.params}));
}

}  // namespace vantlow::fuzz
