// XML-RPC (xmlrpc.com/spec): a call and its answer as bytes.
#pragma once

#include <string_view>
#include <vector>

#include "rpc/call.h"

namespace vantlow::rpc {

/// Reads a call. XML is read as far as XML-RPC uses it: its elements without attributes, the five entities,
/// character references, comments. Declarations ("<!...") are refused, so nothing in a document can grow or
/// lead anywhere. It never fails: a document that cannot be read is a call with a fault. "<base64>" becomes
/// bytes, "<nil/>" null, a date a text.
Request read_xml(std::string_view body);

/// Writes the answer of a call: its result, or a fault with "faultCode" and "faultString". The status is 200
/// in both cases.
Reply write_xml(const Answer& answer);

}  // namespace vantlow::rpc
