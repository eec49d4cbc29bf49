// Requests and answers as bytes: JSON-RPC by POST and GET, XML-RPC.
#include <gtest/gtest.h>

#include "base/codes.h"
#include "rpc/json_rpc.h"
#include "rpc/xml_rpc.h"

namespace vantlow::rpc {
namespace {

/// The answers of methods that return "R" to whoever can be read.
std::vector<Answer> answers_of(const Request& request) {
    std::vector<Answer> answers;
    for (const Call& call : request.calls)
        answers.push_back(call.fault ? Answer(*call.fault) : Answer(Json("R")));
    return answers;
}

std::string nested(std::string_view open, std::string_view inside, std::string_view close, int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += open;
    text += inside;
    for (int i = 0; i < depth; ++i) text += close;
    return text;
}

struct Case {
    std::string body;
    int status;
    std::string answer;
};

TEST(JsonForm, every_kind_of_request_gets_its_answer_and_status) {
    const std::string error = R"({"error":{"code":)";
    const std::string unread = error + R"(-32700,"message":"Parse error."},"id":null,"jsonrpc":"2.0"})";
    const std::string no_call = error + R"(-32600,"message":"Invalid Request."},"id":null,"jsonrpc":"2.0"})";
    const std::string ok = R"({"id":0,"jsonrpc":"2.0","result":"R"})";
    const std::vector<Case> cases{
        {R"({"jsonrpc":"2.0","id":0,"method":"m","params":[]})", 200, ok},
        {R"({"jsonrpc":2,"id":0,"method":"m","more":true})", 200, ok},
        {R"({"id":"x","method":"m"})", 200, R"({"id":"x","jsonrpc":"2.0","result":"R"})"},
        {R"({"id":null,"method":"m"})", 200, R"({"id":null,"jsonrpc":"2.0","result":"R"})"},
        {R"([{"id":0,"method":"m"}])", 200, "[" + ok + "]"},
        {R"([{"id":0,"method":"m"},{"id":0,"method":"m"},7])", 200,
         "[" + ok + "," + ok + "," + no_call + "]"},
        {"[]", 200, "[]"},
        {R"({"method":"m"})", 400, no_call},
        {R"({"id":1})", 400, error + R"(-32600,"message":"Invalid Request."},"id":1,"jsonrpc":"2.0"})"},
        {R"({"id":1,"method":7})", 400,
         error + R"(-32600,"message":"Invalid Request."},"id":1,"jsonrpc":"2.0"})"},
        {"7", 400, no_call},
        {R"({"id":1,"method":"m","params":{"a":1}})", 500,
         error + R"(-32602,"message":"Invalid params."},"id":1,"jsonrpc":"2.0"})"},
        {"", 500, unread},
        {R"({"id":1,)", 500, unread},
        {"{\"id\":1,\"method\":\"\xFF\"}", 500, unread},
        {nested("[", "", "]", 100000), 500, unread},
        {R"({"id":1,"method":"m","params":)" + nested("[", "", "]", 70) + "}", 500, unread},
        {"[" + std::string(1000000, ',') + "]", 500, unread},
        {R"({"id":1e999,"method":"m"})", 500, unread},
        {R"({"id":"\ud800","method":"m"})", 500, unread},
        {R"({"id":1,"id":0,"method":"n","method":"m"})", 200, ok},
    };
    for (const Case& one : cases) {
        const Request request = read_json(one.body);
        const Reply reply = write_json(request, answers_of(request));
        EXPECT_EQ(reply.body, one.answer) << one.body.substr(0, 80);
        EXPECT_EQ(reply.status, one.status) << one.body.substr(0, 80);
        EXPECT_EQ(reply.content_type, "application/json-rpc");
    }
}

TEST(JsonForm, a_query_is_a_call_and_may_name_a_callback) {
    const std::string params = to_base64(R"(["token:x",["http://h/?>"]])");
    const std::string escaped = "WyJ0b2tlbjp4IixbImh0dHA6Ly9oLz8%2BIl1d";
    ASSERT_EQ(params, "WyJ0b2tlbjp4IixbImh0dHA6Ly9oLz8+Il1d");
    for (const std::string& given : {params, escaped, std::string("WyJ0b2tlbjp4IixbImh0dHA6Ly9oLz8-Il1d")}) {
        const Request request =
            read_query("method=aria2.addUri&id=a%20b&params=" + given + "&jsoncallback=f.g");
        ASSERT_EQ(request.calls.size(), 1U);
        EXPECT_EQ(request.calls[0].method, "aria2.addUri");
        EXPECT_EQ(request.calls[0].id, "a b");
        EXPECT_EQ(request.calls[0].params, Json::parse(R"(["token:x",["http://h/?>"]])"));
        const Reply reply = write_json(request, {Json("R")});
        EXPECT_EQ(reply.body, R"(f.g({"id":"a b","jsonrpc":"2.0","result":"R"}))");
        EXPECT_EQ(reply.content_type, "text/javascript");
    }
    const Request batch = read_query("params=" + to_base64(R"([{"id":1,"method":"m"}])"));
    EXPECT_TRUE(batch.is_batch);
    const std::vector<std::pair<std::string, int>> faults{
        {"method=m&params=", fault_code::invalid_request},
        {"method=m&id=1&params=%%%", fault_code::not_parsed},
        {"method=m&id=1&params=" + to_base64("[1"), fault_code::not_parsed},
        {"method=m&id=1&params=" + to_base64("{}"), fault_code::invalid_params},
        {"method=m&id=1&jsoncallback=alert(1)//", fault_code::invalid_request},
        {"", fault_code::not_parsed},
    };
    for (const auto& [query, code] : faults) {
        const Request request = read_query(query);
        ASSERT_TRUE(request.calls.at(0).fault) << query;
        EXPECT_EQ(request.calls[0].fault->code, code) << query;
        EXPECT_NE(request.form, Form::callback) << query;
    }
}

std::string call_with(const std::string& value) {
    return "<?xml version=\"1.0\"?>\n<methodCall><methodName>m</methodName><params><param>" + value +
           "</param></params></methodCall>\n";
}

TEST(XmlForm, every_type_of_value_is_read) {
    const std::vector<std::pair<std::string, Json>> cases{
        {"<value><string>a&lt;&amp;&#65;&#x1F600;</string></value>", "a<&A\xF0\x9F\x98\x80"},
        {"<value>bare</value>", "bare"},
        {"<value/>", ""},
        {"<value> <int> -7 </int> </value>", -7},
        {"<value><i4>+7</i4></value>", 7},
        {"<value><i8>9007199254740993</i8></value>", 9007199254740993},
        {"<value><boolean>1</boolean></value>", true},
        {"<value><double>-1.5</double></value>", -1.5},
        {"<value><nil/></value>", nullptr},
        {"<value><base64>AAH\n/</base64></value>", Json::binary({0, 1, 255})},
        {"<value><dateTime.iso8601>19980717T14:08:55</dateTime.iso8601></value>", "19980717T14:08:55"},
        {"<value><array><data/></array></value>", Json::array()},
        {"<value><array><data><value>a</value><!-- x --><value><i4>1</i4></value></data></array></value>",
         {"a", 1}},
        {"<value><struct><member><name>k</name><value>v</value></member></struct></value>", {{"k", "v"}}},
    };
    for (const auto& [text, expected] : cases) {
        const Request request = read_xml(call_with(text));
        ASSERT_FALSE(request.calls.at(0).fault) << text;
        EXPECT_EQ(request.calls[0].method, "m");
        EXPECT_EQ(request.calls[0].params, Json::array({expected})) << text;
    }
    EXPECT_EQ(read_xml("<methodCall><methodName>m</methodName></methodCall>").calls.at(0).params,
              Json::array());
}

TEST(XmlForm, anything_else_is_a_fault_at_once) {
    const std::string bomb = "<!DOCTYPE b [<!ENTITY a \"ha\"><!ENTITY b \"&a;&a;&a;\">]>" +
                             call_with("<value>&b;</value>").substr(22);
    for (const std::string& body :
         {std::string(), std::string("<methodCall>"), bomb, call_with("<value>&b;</value>"),
          call_with("<value>&#0;</value>"), call_with("<value>&#xD800;</value>"),
          call_with("<value><int>1x</int></value>"), call_with("<value><float>1</float></value>"),
          call_with("<value><int a=\"b\">1</int></value>"), call_with("<value><![CDATA[x]]></value>"),
          call_with("<value>\xFF</value>"), call_with("7"), call_with("<value>a</value>") + "<more/>",
          call_with(nested("<value><array><data>", "", "</data></array></value>", 100)),
          call_with(nested("<value><array><data>", "", "", 300000))}) {
        const Request request = read_xml(body);
        ASSERT_TRUE(request.calls.at(0).fault) << body.substr(0, 80);
        EXPECT_EQ(request.calls[0].fault->code, fault_code::not_parsed);
        EXPECT_EQ(request.form, Form::xml);
    }
}

TEST(XmlForm, an_answer_is_written_in_its_types) {
    const Json result{{"a", {"<&\r", 1, 3000000000, true, 0.5, nullptr}}, {"b\x01", "\xFFz"}};
    EXPECT_EQ(
        write_xml(result).body,
        "<?xml version=\"1.0\"?><methodResponse><params><param><value><struct><member><name>a</name><value>"
        "<array><data><value><string>&lt;&amp;&#13;</string></value><value><int>1</int></value><value>"
        "<i8>3000000000</i8></value><value><boolean>1</boolean></value><value><double>0.5</double></value>"
        "<value><nil/></value></data></array></value></member><member><name>b\xEF\xBF\xBD</name><value>"
        "<string>\xEF\xBF\xBDz</string></value></member></struct></value></param></params></methodResponse>");
    const Reply fault = write_xml(Fault{1, "No."});
    EXPECT_EQ(fault.status, 200);
    EXPECT_EQ(
        fault.body,
        "<?xml version=\"1.0\"?><methodResponse><fault><value><struct><member><name>faultCode</name><value>"
        "<int>1</int></value></member><member><name>faultString</name><value><string>No.</string></value>"
        "</member></struct></value></fault></methodResponse>");
}

}  // namespace
}  // namespace vantlow::rpc
