// The calls of the control API and their answers, whatever form they travel in.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vantlow::rpc {

/// A value of a call or an answer. Bytes (base64 in XML-RPC) are its binary kind.
using Json = nlohmann::json;

/// The codes of faults (JSON-RPC 2.0, 5.1); everything that a method refuses is `failed`.
namespace fault_code {
inline constexpr int failed = 1;
inline constexpr int invalid_request = -32600;
inline constexpr int invalid_params = -32602;
inline constexpr int not_parsed = -32700;
}  // namespace fault_code

struct Fault {
    int code = fault_code::failed;
    std::string message;  ///< UTF-8, a sentence for the person
};

/// The result of a method, or why there is none.
using Answer = std::variant<Json, Fault>;

/// One call, or the fault that stands in its place because it cannot be read.
struct Call {
    Json id;  ///< goes back with the answer; null where there is none
    std::string method;
    Json params = Json::array();  ///< always an array
    std::optional<Fault> fault{};
};

/// The form in which an answer travels.
enum class Form { json, callback, xml };

/// A request: one call, or a batch of them.
struct Request {
    std::vector<Call> calls;
    bool is_batch = false;  ///< the answers stand in an array, even a single one
    Form form = Form::json;
    std::string callback{};  ///< the function's name, with Form::callback
};

/// An answer's bytes, with what HTTP says of them.
struct Reply {
    int status = 200;
    std::string_view content_type;
    std::string body;
};

/// The bounds of a request; whoever goes beyond gets the fault not_parsed.
inline constexpr std::size_t deepest_nesting = 64;
inline constexpr std::size_t most_values = 400000;

}  // namespace vantlow::rpc
