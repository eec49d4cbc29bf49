// JSON-RPC 2.0 as front ends speak it: requests and answers as bytes, by POST, GET and WebSocket.
#pragma once

#include <string_view>
#include <vector>

#include "rpc/call.h"

namespace vantlow::rpc {

/// Reads a body or a WebSocket message: one call or a batch. It never fails: what cannot be read stands in
/// the request as calls with faults. "jsonrpc" is not looked at, and members that are not known are passed
/// over.
Request read_json(std::string_view body);

/// Reads the query of a GET ("method=...&id=...&params=..."): `params` is base64 of JSON, the id a text.
/// Without method and id, `params` is a whole request. `jsoncallback` names a function that the answer is
/// handed to; one that is no name of a function is a fault.
Request read_query(std::string_view query);

/// Writes the answers, one for each call of the request, in its order, as JSON or as a call of the callback.
/// Bytes that are not UTF-8 are replaced.
Reply write_json(const Request& request, std::vector<Answer> answers);

/// Writes a notification: `method` with `params`, without an id.
std::string write_notification(std::string_view method, const Json& params);

}  // namespace vantlow::rpc
