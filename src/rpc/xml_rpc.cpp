#include "rpc/xml_rpc.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>

#include "base/codes.h"
#include "base/text.h"

namespace vantlow::rpc {
namespace {

constexpr std::string_view blanks = " \t\r\n";

bool is_blank(std::string_view text) {
    return text.find_first_not_of(blanks) == std::string_view::npos;
}

// True for the control characters that no XML document may hold (XML 1.0, 2.2).
constexpr bool is_control(std::uint32_t character) {
    return character < 0x20 && character != '\t' && character != '\n' && character != '\r';
}

// Appends the character of a reference's number; false for one that no XML document may hold.
bool append_character(std::string& text, std::string_view digits, int base) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
    const bool whole = error == std::errc() && end == digits.data() + digits.size();
    if (!whole || is_control(number) || number > 0x10FFFF || (number >= 0xD800 && number < 0xE000))
        return false;
    if (number < 0x10000) {
        text += to_utf8(std::u16string(1, static_cast<char16_t>(number)));
    } else {
        const std::uint32_t rest = number - 0x10000;
        const std::u16string pair{static_cast<char16_t>(0xD800 + (rest >> 10U)),
                                  static_cast<char16_t>(0xDC00 + (rest & 0x3FFU))};
        text += to_utf8(pair);
    }
    return true;
}

struct Entity {
    std::string_view name;
    char character;
};
constexpr std::array entities{Entity{"lt", '<'}, Entity{"gt", '>'}, Entity{"amp", '&'}, Entity{"quot", '"'},
                              Entity{"apos", '\''}};

// Replaces the references in a text; none where one is not known, or the text has a control character.
std::optional<std::string> decode(std::string_view text) {
    if (std::ranges::any_of(text, [](char c) { return is_control(static_cast<unsigned char>(c)); }))
        return std::nullopt;
    std::string decoded;
    for (auto at = text.find('&'); at != std::string_view::npos; at = text.find('&')) {
        decoded += text.substr(0, at);
        const auto end = text.find(';', at);
        if (end == std::string_view::npos) return std::nullopt;
        const std::string_view name = text.substr(at + 1, end - at - 1);
        text.remove_prefix(end + 1);
        if (name.starts_with("#")) {
            const bool hex = name.starts_with("#x");
            if (!append_character(decoded, name.substr(hex ? 2 : 1), hex ? 16 : 10)) return std::nullopt;
            continue;
        }
        const auto found = std::ranges::find(entities, name, &Entity::name);
        if (found == entities.end()) return std::nullopt;
        decoded += found->character;
    }
    return decoded += text;
}

/// A document, read from its beginning to its end: tags, and the text between them.
class Document {
  public:
    explicit Document(std::string_view text) : left_(text) {}

    /// Returns the text up to the next tag, and steps to that; none where no tag follows.
    std::optional<std::string_view> text() {
        const auto at = left_.find('<');
        if (at == std::string_view::npos) return std::nullopt;
        const std::string_view found = left_.substr(0, at);
        left_.remove_prefix(at);
        return found;
    }
    /// Takes the tag at which it stands: "name", "/name" or "name/"; empty for anything else.
    std::string_view tag() {
        if (!left_.starts_with('<') || ++tags_ > most_values) return {};
        const auto end = left_.find('>');
        if (end == std::string_view::npos) return {};
        std::string_view name = left_.substr(1, end - 1);
        left_.remove_prefix(end + 1);
        const bool is_empty = name.ends_with('/');
        std::string_view bare = name;
        if (is_empty) bare.remove_suffix(1);
        while (!bare.empty() && is_blank(bare.substr(bare.size() - 1))) bare.remove_suffix(1);
        if (!is_empty) return bare;
        if (bare.size() + 1 != name.size()) return bare == "nil" ? "nil/" : std::string_view();
        return name;
    }
    /// Takes the next tag behind blanks and comments; false where it is another one.
    bool take(std::string_view expected) { return next() == expected; }
    /// Takes the next tag behind blanks and comments.
    std::string_view next() {
        if (!skip()) return {};
        return tag();
    }
    /// True when the next tag, behind blanks and comments, is this one; it is not taken.
    bool is_next(std::string_view expected) {
        const std::string_view before = left_;
        const bool is = take(expected);
        left_ = before;
        return is;
    }
    /// Steps over blanks, comments and, at the beginning, the XML declaration; false where text stands there.
    bool skip() {
        while (true) {
            const auto at = left_.find_first_not_of(blanks);
            left_.remove_prefix(at == std::string_view::npos ? left_.size() : at);
            const bool comment = left_.starts_with("<!--");
            if (!comment && !left_.starts_with("<?xml ")) return left_.starts_with('<');
            const std::string_view mark = comment ? "-->" : "?>";
            const auto end = left_.find(mark, comment ? 4 : 0);
            if (end == std::string_view::npos) return false;
            left_.remove_prefix(end + mark.size());
        }
    }
    [[nodiscard]] bool is_over() {
        skip();
        return left_.empty();
    }

  private:
    std::string_view left_;
    std::size_t tags_ = 0;
};

std::optional<Json> number_of(std::string_view text) {
    text = trim(text);
    if (text.starts_with('+')) text.remove_prefix(1);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<Json> fraction_of(std::string_view text) {
    text = trim(text);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<Json> bytes_of(std::string text) {
    std::erase_if(text, [](char c) { return blanks.find(c) != std::string_view::npos; });
    const auto bytes = from_base64(text);
    if (!bytes) return std::nullopt;
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(bytes->data());
    return Json::binary(std::vector<std::uint8_t>(begin, begin + bytes->size()));
}

// Turns the text of an element without others below it into its value.
std::optional<Json> scalar_of(std::string_view type, const std::string& text) {
    if (type == "string" || type == "dateTime.iso8601") return text;
    if (type == "int" || type == "i4" || type == "i8") return number_of(text);
    if (type == "double") return fraction_of(text);
    if (type == "base64") return bytes_of(text);
    if (type != "boolean") return std::nullopt;
    const std::string_view word = trim(text);
    if (word != "0" && word != "1") return std::nullopt;
    return word == "1";
}

std::optional<Json> read_value(Document& document, std::size_t depth);

std::optional<Json> read_array(Document& document, std::size_t depth) {
    Json array = Json::array();
    if (document.is_next("data/"))
        return document.take("data/") && document.take("/array") ? std::optional(array) : std::nullopt;
    if (!document.take("data")) return std::nullopt;
    while (!document.is_next("/data")) {
        auto value = read_value(document, depth);
        if (!value) return std::nullopt;
        array.push_back(std::move(*value));
    }
    if (!document.take("/data") || !document.take("/array")) return std::nullopt;
    return array;
}

// Reads an element that holds nothing but text.
std::optional<std::string> read_text_element(Document& document, std::string_view name) {
    if (!document.take(name)) return std::nullopt;
    const auto text = document.text();
    auto decoded = text ? decode(*text) : std::nullopt;
    if (!decoded || document.tag() != "/" + std::string(name)) return std::nullopt;
    return decoded;
}

std::optional<Json> read_struct(Document& document, std::size_t depth) {
    Json object = Json::object();
    while (document.is_next("member")) {
        static_cast<void>(document.take("member"));
        auto name = read_text_element(document, "name");
        auto value = name ? read_value(document, depth) : std::nullopt;
        if (!value || !document.take("/member")) return std::nullopt;
        object[std::move(*name)] = std::move(*value);
    }
    if (!document.take("/struct")) return std::nullopt;
    return object;
}

// Reads what stands behind the opening tag of a typed value, with the closing one.
std::optional<Json> read_typed(Document& document, std::string_view type, std::size_t depth) {
    if (type == "nil/") return Json();
    if (type == "string/") return "";
    if (type == "struct/") return Json::object();
    if (type == "array") return read_array(document, depth);
    if (type == "struct") return read_struct(document, depth);
    const auto text = document.text();
    const auto decoded = text ? decode(*text) : std::nullopt;
    if (!decoded || document.tag() != "/" + std::string(type)) return std::nullopt;
    if (type == "nil") return is_blank(*decoded) ? std::optional(Json()) : std::nullopt;
    return scalar_of(type, *decoded);
}

std::optional<Json> read_value(Document& document, std::size_t depth) {
    if (depth > deepest_nesting) return std::nullopt;
    const std::string_view opening = document.next();
    if (opening == "value/") return "";
    if (opening != "value") return std::nullopt;
    // A value without a type is a text.
    const auto bare = document.text();
    const std::string_view tag = bare ? document.tag() : std::string_view();
    if (tag == "/value") {
        auto text = decode(*bare);
        return text ? std::optional<Json>(std::move(*text)) : std::nullopt;
    }
    if (tag.empty() || !is_blank(*bare)) return std::nullopt;
    auto value = read_typed(document, tag, depth + 1);
    if (!value || !document.take("/value")) return std::nullopt;
    return value;
}

bool read_params(Document& document, Json& params) {
    if (document.is_next("params/")) return document.take("params/");
    if (!document.is_next("params")) return true;
    static_cast<void>(document.take("params"));
    while (document.is_next("param")) {
        static_cast<void>(document.take("param"));
        auto value = read_value(document, 0);
        if (!value || !document.take("/param")) return false;
        params.push_back(std::move(*value));
    }
    return document.take("/params");
}

// Makes bytes that XML can hold: those that are not UTF-8, and control characters, become U+FFFD.
std::string xml_text(std::string_view text) {
    std::string written;
    while (!text.empty()) {
        std::size_t length = 1;
        while (length < 4 && length < text.size() && !is_utf8(text.substr(0, length))) ++length;
        const std::string_view one = text.substr(0, length);
        const char c = one.front();
        if (!is_utf8(one) || is_control(static_cast<unsigned char>(c))) {
            written += "\xEF\xBF\xBD";
            text.remove_prefix(1);
            continue;
        }
        const auto entity = std::ranges::find(entities, c, &Entity::character);
        if (c == '\r') {
            written += "&#13;";
        } else if (entity != entities.end()) {
            written.append("&").append(entity->name).append(";");
        } else {
            written += one;
        }
        text.remove_prefix(length);
    }
    return written;
}

void write_value(std::string& text, const Json& value) {
    const auto element = [&text](std::string_view name, std::string_view content) {
        text.append("<").append(name).append(">").append(content).append("</").append(name).append(">");
    };
    text += "<value>";
    if (value.is_object()) {
        text += "<struct>";
        for (const auto& [name, member] : value.items()) {
            text += "<member><name>" + xml_text(name) + "</name>";
            write_value(text, member);
            text += "</member>";
        }
        text += "</struct>";
    } else if (value.is_array()) {
        text += "<array><data>";
        for (const Json& one : value) write_value(text, one);
        text += "</data></array>";
    } else if (value.is_number_integer()) {
        const auto number = value.get<std::int64_t>();
        const bool small = number >= std::numeric_limits<std::int32_t>::min() &&
                           number <= std::numeric_limits<std::int32_t>::max();
        element(small ? "int" : "i8", std::to_string(number));
    } else if (value.is_number()) {
        element("double", value.dump());
    } else if (value.is_boolean()) {
        element("boolean", value.get<bool>() ? "1" : "0");
    } else if (value.is_string()) {
        element("string", xml_text(value.get_ref<const std::string&>()));
    } else {
        text += "<nil/>";
    }
    text += "</value>";
}

}  // namespace

Request read_xml(std::string_view body) {
    Request request;
    request.form = Form::xml;
    Call call;
    Document document(body);
    std::optional<std::string> method;
    bool whole = is_utf8(body) && document.take("methodCall");
    if (whole) method = read_text_element(document, "methodName");
    whole =
        method && read_params(document, call.params) && document.take("/methodCall") && document.is_over();
    if (whole) {
        call.method = trim(*method);
    } else {
        call.params = Json::array();
        call.fault = Fault{fault_code::not_parsed, "Parse error."};
    }
    request.calls.push_back(std::move(call));
    return request;
}

Reply write_xml(const Answer& answer) {
    Reply reply{200, "text/xml", "<?xml version=\"1.0\"?><methodResponse>"};
    if (const Fault* const fault = std::get_if<Fault>(&answer)) {
        reply.body += "<fault>";
        write_value(reply.body, {{"faultCode", fault->code}, {"faultString", fault->message}});
        reply.body += "</fault>";
    } else {
        reply.body += "<params><param>";
        write_value(reply.body, std::get<Json>(answer));
        reply.body += "</param></params>";
    }
    reply.body += "</methodResponse>";
    return reply;
}

}  // namespace vantlow::rpc
