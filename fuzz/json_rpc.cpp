// Requests of the control API as JSON, and as the query of a GET: every call gets one answer, which is read
// again, and options that were read are written so that they are read the same.
#include "rpc/json_rpc.h"

#include "fuzz.h"
#include "rpc/option_words.h"

namespace vantlow::fuzz {
namespace {

void check_request(const rpc::Request& request) {
    std::vector<rpc::Answer> answers;
    for (const rpc::Call& call : request.calls) {
        CHECK(call.params.is_array());
        answers.push_back(call.fault ? rpc::Answer(*call.fault) : rpc::Answer(call.params));
        for (const rpc::Json& one : call.params) {
            rpc::GlobalOptions options;
            if (rpc::read_options(one, options)) continue;
            const rpc::Json written = rpc::write_options(options);
            rpc::GlobalOptions again;
            CHECK(!rpc::read_options(written, again));
            CHECK(rpc::write_options(again) == written);
        }
    }
    CHECK(request.is_batch || answers.size() == 1);
    const rpc::Reply reply = rpc::write_json(request, answers);
    if (request.form == rpc::Form::json) CHECK(!rpc::Json::parse(reply.body, nullptr, false).is_discarded());
}

}  // namespace

void run(std::string_view input) {
    check_request(rpc::read_json(input));
    check_request(rpc::read_query(input));
}

}  // namespace vantlow::fuzz
