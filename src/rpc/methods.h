// The table of methods, and how the calls of a request are worked through.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rpc/call.h"

namespace vantlow::rpc {

/// The parameters of a call, without its token. Each reader notes the first parameter that is missing or of
/// a wrong type; whoever has read all of them looks at fault().
class Params {
  public:
    explicit Params(const Json& list) : list_(list) {}

    /// The parameter at this place, from 0; null where there is none.
    [[nodiscard]] const Json* find(std::size_t at) const {
        return at < list_.size() && !list_[at].is_null() ? &list_[at] : nullptr;
    }
    std::string text(std::size_t at);
    std::int64_t number(std::size_t at);
    /// None where it is missing, or null.
    std::optional<std::int64_t> optional_number(std::size_t at);
    /// An array's texts; what is none is passed over.
    std::vector<std::string> texts(std::size_t at);
    /// The same; empty where it is missing.
    std::vector<std::string> optional_texts(std::size_t at);
    /// An object; an empty one where it is missing or something else.
    [[nodiscard]] const Json& options(std::size_t at) const;
    void refuse(std::string message) {
        if (!fault_) fault_ = Fault{fault_code::failed, std::move(message)};
    }
    [[nodiscard]] const std::optional<Fault>& fault() const noexcept { return fault_; }

  private:
    const Json* need(std::size_t at, bool (Json::*is)() const noexcept, std::string_view kind);

    const Json& list_;
    std::optional<Fault> fault_;
};

/// An array as the answer of a method, which is made item by item: a long one keeps nobody waiting.
struct Listing {
    /// The next item; none behind the last one. Between two calls everything may have changed.
    std::function<std::optional<Json>()> next;
    /// Makes the answer of the items; empty: they are the answer.
    std::function<Json(Json items)> whole{};
};

/// One request under way. A plain record but for its places, which MethodTable::work keeps.
struct Run {
    Request request;
    std::vector<Answer> answers;  ///< of the calls that were worked through
    bool was_refused = false;     ///< a token was wrong
    bool was_proved = false;      ///< a token was right, or none is needed
    std::size_t inner = 0;        ///< the next one within a multicall
    Json results = Json::array();
    std::optional<Listing> listing{};  ///< of the call that is being answered
    Json listed = Json::array();       ///< its items so far
    std::size_t values = 0;            ///< in all answers

    /// It is one call that has begun to list: whoever came later may have a turn before it.
    [[nodiscard]] bool only_lists() const noexcept {
        return listing && request.calls.size() == 1 && inner == 0;
    }
};

/// The methods by their names. One thread.
class MethodTable {
  public:
    using Method = std::function<Answer(Params&)>;
    using Lister = std::function<std::variant<Listing, Fault>(Params&)>;
    using Time = std::chrono::steady_clock::time_point;

    /// `most_answered`: values that the answers of one request have together at most.
    explicit MethodTable(std::size_t most_answered = 2000000);
    MethodTable(const MethodTable&) = delete;
    MethodTable& operator=(const MethodTable&) = delete;

    /// Adds a method; only who shows the secret may call it.
    void add(std::string name, Method method) { methods_[std::move(name)] = {std::move(method), {}, true}; }
    void add_list(std::string name, Lister lister) {
        methods_[std::move(name)] = {{}, std::move(lister), true};
    }
    void add_notification(std::string name) { notifications_.push_back(std::move(name)); }
    /// Empty: nobody is asked for it.
    void set_secret(std::string secret) { secret_ = std::move(secret); }

    /// Works through the calls of a request, one after the other, until the time is over; at least one, or
    /// one item of a list. True when all are answered.
    bool work(Run& run, Time until) const;

  private:
    struct Entry {
        Method method;
        Lister lister;  ///< in place of the method
        bool needs_token = true;
    };
    std::optional<Answer> call(const std::string& name, Json& params, Run& run) const;
    void step(Run& run) const;
    std::optional<Answer> multicall_step(Json& entry, Run& run) const;
    std::optional<Answer> list_step(Run& run) const;
    [[nodiscard]] std::optional<Fault> bound_fault(const Json& more, Run& run) const;

    const std::size_t most_answered_;
    std::map<std::string, Entry> methods_;
    std::vector<std::string> notifications_;
    std::string secret_;
};

class Downloads;

/// Adds the methods that front ends know, under "aria2.", over these downloads, which outlive the table.
void add_download_methods(MethodTable& table, Downloads& downloads);

}  // namespace vantlow::rpc
