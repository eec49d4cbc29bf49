// Reading and writing bencoded documents (BEP 3).
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "base/mem_file.h"
#include "base/result.h"
#include "bt/bencode_value.h"

namespace vantlow {

/// Turns bytes into trees and trees into bytes. Lenient: a document that is damaged in its middle gives the
/// tree of what stands before, so that callers find fewer keys. One thread at a time; may be used again.
///
/// Nesting is not limited and takes no stack. What a tree takes beside the bytes of its strings is: at most
/// `most_tree_memory`; a value beyond that is one that cannot be read.
class CBEncode {
  public:
    static constexpr std::size_t most_tree_memory = std::size_t{256} << 20U;
    /// The longest document that load_file() takes, as long as one that a job is made of.
    static constexpr std::size_t largest_file = std::size_t{64} << 20U;

    /// Takes a whole file as the document; there is none when it is empty, too large or cannot be read.
    Result load_file(const std::u16string& path);
    /// Takes a copy of these bytes as the document. False without memory.
    bool load_memory(std::span<const std::byte> bytes);
    bool load_memory(std::string_view bytes) { return load_memory(std::as_bytes(std::span(bytes))); }

    /// Reads the value at the current position; null when it is no dictionary.
    std::unique_ptr<CBEDictionary> parse_document();
    /// Reads the value at the current position; null when there is none.
    std::unique_ptr<CBEObject> parse_value();
    /// The bytes behind the values read so far. Valid until the next load.
    [[nodiscard]] std::string_view rest() const noexcept { return std::string_view(input_).substr(current_); }

    /// The raw bytes of the first value since the document was loaded whose key begins with "info" and that
    /// was read to its end; empty when there is none.
    [[nodiscard]] std::string_view info_copy() const noexcept { return info_; }

    /// The value at a path of keys, "info/name": the first key that matches on each level; null when there is
    /// none. Lists cannot be entered.
    static const CBEObject* find(const CBEObject* dictionary, std::string_view path) noexcept;

    /// Appends the encoding of a tree to the output: entries in their order, nothing for a null value.
    void write(const CBEObject* value);
    [[nodiscard]] std::string_view output() const noexcept {
        const auto bytes = output_.bytes();
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }

  private:
    struct Frame;

    void reset();
    std::unique_ptr<CBEObject> begin_value();
    std::unique_ptr<CBEString> read_string();
    std::unique_ptr<CBEObject> read_integer();
    bool wants_value(Frame& frame);
    void attach(Frame& frame, std::unique_ptr<CBEObject> value);
    static void give_up_value(Frame& frame);
    std::unique_ptr<CBEObject> parse_tree();
    bool afford(std::size_t bytes) noexcept;
    void write_text(std::string_view text) { output_.write(std::as_bytes(std::span(text))); }
    void write_scalar(const CBEObject& value);

    std::string input_;
    std::size_t current_ = 0;       ///< offset of the next byte
    std::size_t no_string_at_ = 0;  ///< one more than an offset at which no string stands; 0: none is known
    std::size_t spent_ = 0;         ///< of most_tree_memory
    std::string info_;
    CQoMemFile output_;
};

}  // namespace vantlow
