#include "transfer/job/source.h"

#include <ctime>

#include "base/string_table.h"
#include "base/text.h"
#include "store/address.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/http/client.h"
#include "transfer/http/content_name.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow {
namespace {

// The proxy for a server that a redirect leads to.
ProxyPlan proxy_for(const SourcePlan& plan, const Target& target, const SourceContext& context) {
    if (!plan.proxy_rules) return plan.proxy;
    ProxyPlan proxy = plan.proxy_rules->choose(target.scheme, target.host, target.port);
    proxy.resolve_here = plan.proxy.resolve_here;
    if (!proxy.user.empty()) add_login(proxy, context.libraries, &context.services.memory.of<LoginMemory>());
    return proxy;
}

class HttpSource : public Source {
  public:
    explicit HttpSource(const SourceContext& context) : context_(context), client_(context) {}

    Result open(const SourcePlan& plan, std::int64_t offset, SourceAnswer& answer) override;
    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        return client_.read(into, until);
    }
    [[nodiscard]] bool can_fill() const noexcept override { return client_.can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) override {
        return client_.fill(conduit, most, until);
    }
    void close() override { client_.finish(); }
    [[nodiscard]] std::optional<std::chrono::seconds> retry_after() const override { return retry_after_; }

  private:
    Result refuse(const HttpAnswer& got, SourceAnswer& answer);
    Result accept(const SourcePlan& plan, const HttpAnswer& got, std::int64_t offset, SourceAnswer& answer);
    Result accept_part(const HttpHead& head, std::int64_t offset, SourceAnswer& answer);
    ContentCoding coding_to_undo(const HttpHead& head, const std::u16string& name);

    SourceContext context_;
    HttpClient client_;
    std::optional<std::chrono::seconds> retry_after_;
};

Result HttpSource::open(const SourcePlan& plan, std::int64_t offset, SourceAnswer& answer) {
    retry_after_.reset();
    HttpErrand errand;
    static_cast<FetchPlan&>(errand) = plan;
    errand.http = plan.http;
    errand.start = offset;
    errand.head_only = plan.facts_only;
    errand.proxy_for = [&](const Target& target) { return proxy_for(plan, target, context_); };
    HttpAnswer got;
    Result result = client_.ask(errand, got);
    answer.form_sent = got.form_sent;
    answer.address = got.address;
    if (result.code == Code::moved && find_protocol(got.address) == nullptr) {
        return {Code::unsupported, "The server redirects to " + to_utf8(without_credentials(got.address)) +
                                       ", a kind of address that cannot be fetched from here."};
    }
    if (!result.ok()) return result;
    if (got.head.status < 200 || got.head.status >= 300) {
        Result refused = refuse(got, answer);
        if (refused.code == Code::credentials_refused) {
            // Another server than the one that the job's login is for may want one.
            const auto own = parse_target(plan.origin.empty() ? plan.address : plan.origin);
            if (!own || !is_same_server(*own, got.target)) refused.about_credentials = true;
        }
        return refused;
    }
    result = accept(plan, got, offset, answer);
    if (!result.ok()) client_.drop();
    return result;
}

Result HttpSource::refuse(const HttpAnswer& got, SourceAnswer& answer) {
    const HttpHead& head = got.head;
    if (head.retry_after) retry_after_ = std::chrono::seconds(*head.retry_after);
    if (const auto moment = parse_http_date(head.retry_after_date)) {
        const auto now = parse_http_date(head.date).value_or(static_cast<std::int64_t>(std::time(nullptr)));
        retry_after_ = std::chrono::seconds(std::max<std::int64_t>(*moment - now, 0));
    }
    if (head.status != 416) return client_.refuse(got);
    client_.leave(got);
    answer.version.size = head.range_total.value_or(-1);
    answer.beyond_end = true;
    return {Code::range_ignored, "The server has no data at this position: " + status_text(head)};
}

Result HttpSource::accept_part(const HttpHead& head, std::int64_t offset, SourceAnswer& answer) {
    const bool usable = head.range_unit_bytes && head.range_first && head.range_last &&
                        *head.range_last >= *head.range_first && *head.range_first == offset &&
                        head.content_type != "multipart/byteranges" &&
                        (!head.range_total || *head.range_total > *head.range_last) &&
                        (!head.length || *head.length - 1 == *head.range_last - *head.range_first);
    // Nothing can be unpacked from its middle on.
    if (!usable || (answer.encoded && offset > 0)) {
        context_.log.line(Direction::error, message_text(Message::partial_refused));
        return Code::range_ignored;
    }
    answer.granted = offset;
    answer.ranges_promised = true;
    // The size of a packed part says nothing of what it unpacks to.
    if (!answer.encoded) answer.version.size = head.range_total.value_or(-1);
    const bool is_last = head.range_total && *head.range_total - 1 <= *head.range_last;
    answer.may_go_on = !answer.encoded && !is_last;
    return {};
}

// The part of the answer's content coding that is to be undone; the log tells what is not.
ContentCoding HttpSource::coding_to_undo(const HttpHead& head, const std::u16string& name) {
    const bool undone = (head.coding == ContentCoding::gzip && !is_gzip_file(head.content_type, name)) ||
                        head.coding == ContentCoding::deflate;
    if (undone) return head.coding;
    if (!head.content_encoding.empty() && head.content_encoding != "identity") {
        context_.log.line(Direction::note, "The content coding \"" + head.content_encoding.substr(0, 200) +
                                               "\" is left as it is: the file is kept as it comes.");
    }
    return ContentCoding::identity;
}

Result HttpSource::accept(const SourcePlan& plan, const HttpAnswer& got, std::int64_t offset,
                          SourceAnswer& answer) {
    const HttpHead& head = got.head;
    answer.name = disposition_name(head.content_disposition);
    if (answer.name.empty()) answer.name = decode_name(head.content_type_name);
    if (answer.name.empty()) answer.name = path_name(got.target.path);
    const ContentCoding coding = coding_to_undo(head, answer.name);
    answer.encoded = coding != ContentCoding::identity;
    answer.ranges_promised = head.accept_ranges == AcceptRanges::bytes;
    answer.ranges_denied = head.accept_ranges == AcceptRanges::none || answer.encoded;
    answer.version.last_modified = head.last_modified;
    answer.version.etag = head.etag;
    answer.version.media_type = head.content_type;
    const auto changed = parse_http_date(head.last_modified);
    const auto sent = parse_http_date(head.date);
    answer.version.strong_date = changed && sent && is_strong_date(*changed, *sent);
    // A part that says nothing of its place answers a request for the whole.
    const bool whole =
        head.status != 206 || (offset == 0 && !head.has_range && head.content_type != "multipart/byteranges");
    if (!whole) {
        if (Result result = accept_part(head, offset, answer); !result.ok()) return result;
    } else {
        answer.whole = true;
        answer.granted = 0;
        answer.version.size = answer.encoded ? -1 : head.length.value_or(-1);
        // Such a size may be approximate: it is for people, and the end that is found decides.
        if (!answer.encoded && !head.length) answer.likely_size = disposition_size(head.content_disposition);
        if (head.status == 204 || head.status == 205) answer.version.size = 0;
    }
    return client_.begin_body(coding, plan.receive_buffer);
}

}  // namespace

std::unique_ptr<Source> make_http_source(const SourceContext& context) {
    return std::make_unique<HttpSource>(context);
}

}  // namespace vantlow
