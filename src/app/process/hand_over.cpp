#include "app/process/hand_over.h"

#include <cstdint>

namespace vantlow {
namespace {

constexpr std::string_view words_mark = "VW1";
constexpr std::string_view answer_mark = "VA1";

void put_number(std::string& to, std::size_t number) {
    for (int i = 0; i < 4; ++i)
        to.push_back(static_cast<char>(static_cast<std::uint32_t>(number) >> (8 * i)));
}

void put_text(std::string& to, std::string_view text) {
    put_number(to, text.size());
    to += text;
}

/// Takes piece after piece off a message. A piece that does not fit spoils all that follow it.
class Pieces {
  public:
    explicit Pieces(std::string_view bytes) : left_(bytes) {}

    bool mark(std::string_view mark) { return take(mark.size()) == mark && ok_; }
    std::size_t number() {
        std::size_t number = 0;
        const std::string_view bytes = take(4);
        for (std::size_t i = bytes.size(); i-- > 0;)
            number = (number << 8U) | static_cast<unsigned char>(bytes[i]);
        return number;
    }
    std::string text() { return std::string(take(number())); }
    [[nodiscard]] bool ok() const noexcept { return ok_; }
    [[nodiscard]] bool whole() const noexcept { return ok_ && left_.empty(); }

  private:
    std::string_view take(std::size_t size) {
        if (!ok_ || size > left_.size()) {
            ok_ = false;
            return {};
        }
        const std::string_view taken = left_.substr(0, size);
        left_.remove_prefix(size);
        return taken;
    }
    std::string_view left_;
    bool ok_ = true;
};

}  // namespace

std::string encode(const HandedOver& words) {
    std::string bytes(words_mark);
    put_text(bytes, words.folder);
    put_text(bytes, words.input);
    put_number(bytes, words.words.size());
    for (const std::string& word : words.words) put_text(bytes, word);
    return bytes;
}

std::optional<HandedOver> decode_words(std::string_view bytes) {
    Pieces pieces(bytes);
    HandedOver words;
    if (!pieces.mark(words_mark)) return std::nullopt;
    words.folder = pieces.text();
    words.input = pieces.text();
    const std::size_t count = pieces.number();
    for (std::size_t i = 0; i < count && pieces.ok(); ++i) words.words.push_back(pieces.text());
    if (!pieces.whole()) return std::nullopt;
    return words;
}

std::string encode(const CommandAnswer& answer) {
    std::string bytes(answer_mark);
    put_number(bytes, static_cast<std::size_t>(answer.status));
    put_text(bytes, answer.output);
    put_text(bytes, answer.error);
    return bytes;
}

std::optional<CommandAnswer> decode_answer(std::string_view bytes) {
    Pieces pieces(bytes);
    CommandAnswer answer;
    if (!pieces.mark(answer_mark)) return std::nullopt;
    answer.status = static_cast<Exit>(pieces.number());
    answer.output = pieces.text();
    answer.error = pieces.text();
    if (!pieces.whole()) return std::nullopt;
    return answer;
}

}  // namespace vantlow
