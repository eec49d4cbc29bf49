// Heads of HTTP answers, and the dates and addresses in them.
#include "fuzz.h"
#include "transfer/http/head.h"

void vantlow::fuzz::run(std::string_view input) {
    const std::size_t end = find_head_end(input);
    CHECK(end == std::string_view::npos || end <= input.size());
    CHECK(head_lines_for_log(input).size() <= input.size() + 1);
    parse_http_date(input);
    const auto head = parse_head(end == std::string_view::npos ? input : input.substr(0, end));
    if (!head.ok()) return;
    CHECK(head->status >= 100 && head->status <= 999);
    CHECK(head->length.value_or(0) >= 0 && head->retry_after.value_or(0) >= 0);
    CHECK(head->icy_metaint.value_or(0) >= 0);
    CHECK(!(head->chunked && head->length));
    CHECK(head->range_first.value_or(0) >= 0 && head->range_last.value_or(0) >= 0);
    CHECK(head->range_total.value_or(0) >= 0);
    const RedirectBase base{.scheme = "http", .host = "h", .path = "/folder/file?q"};
    const std::string target = resolve_redirect(head->location, base);
    CHECK(target.empty() || target.find("://") != std::string::npos);
}
