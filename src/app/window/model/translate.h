// The window's words in the user's language: English is built in, catalogues (".lng") have the others.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// The texts of one language. A catalogue is a UTF-8 file of paragraphs, divided by empty lines: the English
/// text, then the translated one, "|" between the forms of a text that counts, "\n" for a line break; lines
/// that begin with "#" are comments. The first paragraph is the head: "language: de", "name: Deutsch",
/// "plurals: one-other", and "direction: right-to-left" where that is how the language is written.
class Catalogue {
  public:
    /// The rule that chooses the form of a text that counts.
    enum class Plurals {
        other,           ///< one form only (Chinese, Japanese)
        one_other,       ///< 1, all others (English, German)
        zero_one_other,  ///< 0 and 1, all others (French)
        slavic,          ///< 1, 21, ...; 2 to 4, 22 to 24, ...; all others (Russian)
    };

    /// Reads a catalogue; none, with a sentence in `error`, when the bytes are none (no UTF-8, no head, a
    /// paragraph of one line, more than 1 MiB, an unknown direction, a text with too few forms, or
    /// placeholders that differ from the English ones).
    static std::optional<Catalogue> read(std::string_view bytes, std::string& error);

    [[nodiscard]] const std::string& language() const noexcept { return language_; }  ///< "de", "zh-CN"
    [[nodiscard]] const std::string& name() const noexcept { return name_; }          ///< "Deutsch"
    [[nodiscard]] bool is_right_to_left() const noexcept { return is_right_to_left_; }
    /// Null where the catalogue lacks the text.
    [[nodiscard]] const std::string* find(std::string_view english) const;
    /// The form for `count` of the text whose English form for many is `many`; null where it is lacking.
    [[nodiscard]] const std::string* find(std::string_view many, std::int64_t count) const;
    [[nodiscard]] std::size_t size() const noexcept { return texts_.size(); }

  private:
    std::string language_;
    std::string name_;
    Plurals plurals_ = Plurals::one_other;
    bool is_right_to_left_ = false;
    std::map<std::string, std::vector<std::string>, std::less<>> texts_;
};

/// A catalogue in a folder: its file name without ".lng", and its language's own name.
struct LanguageFile {
    std::string file;   ///< "de"; what the setting "Language" takes
    std::string title;  ///< "Deutsch"
};
/// The catalogues in a folder that can be read, by their file names, English ("en") first.
std::vector<LanguageFile> languages_in(const std::u16string& folder);

/// Takes the catalogue that the setting "Settings"/"Language" names (a file name without ".lng", "en" for
/// English); where it is empty, the one for the system's language (`system`, "de-AT": "de-AT.lng", else
/// "de.lng", else any with that first part). English where there is none. Returns a sentence where a
/// catalogue is there but cannot be read.
std::optional<std::string> choose_language(const std::u16string& folder, std::u16string_view setting,
                                           std::string_view system);
/// The language that tr() speaks: "en", "de", ...
const std::string& current_language() noexcept;
/// True where it is written from right to left, and windows are laid out so.
bool is_right_to_left() noexcept;
/// Sets the catalogue of tr(); none: English. One thread, the engine's, calls everything here.
void set_catalogue(std::optional<Catalogue> catalogue);

/// Marks a text of a table that tr() is given later.
constexpr std::string_view to_translate(std::string_view english) noexcept {
    return english;
}
/// The text in the user's language. "&" marks a mnemonic, "%1" to "%9" are places for fill().
std::string tr(std::string_view english);
/// The text for a count, which takes the place of "%1": trn("%1 job", "%1 jobs", 3).
std::string trn(std::string_view one, std::string_view many, std::int64_t count);
/// The text with "%1" to "%9" replaced by the arguments; a place without an argument stays. In a language
/// that is written from right to left, arguments with Latin letters stand between these two signs of Unicode.
inline constexpr std::string_view first_strong_isolate = "\u2068";
inline constexpr std::string_view pop_isolate = "\u2069";
/// The sign in front of such a sentence.
inline constexpr std::string_view right_to_left_mark = "\u200F";
std::string fill(std::string_view text, std::initializer_list<std::string_view> arguments);

}  // namespace vantlow
