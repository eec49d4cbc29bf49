#include "app/window/model/translate.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>

#include "base/text.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::u16string_view catalogue_suffix = u".lng";
constexpr std::size_t largest_catalogue = std::size_t{1} << 20U;

struct Speech {
    std::optional<Catalogue> catalogue;
    std::string language = "en";
};

Speech& speech() {
    static Speech current;
    return current;
}

struct PluralRule {
    std::string_view name;
    Catalogue::Plurals rule;
    std::size_t forms;
    std::size_t (*form)(std::int64_t count);
};

std::size_t slavic_form(std::int64_t count) {
    const std::int64_t last = count % 10;
    const std::int64_t last_two = count % 100;
    if (last == 1 && last_two != 11) return 0;
    return last >= 2 && last <= 4 && (last_two < 12 || last_two > 14) ? 1 : 2;
}

constexpr PluralRule plural_rules[] = {
    {"other", Catalogue::Plurals::other, 1, [](std::int64_t) -> std::size_t { return 0; }},
    {"one-other", Catalogue::Plurals::one_other, 2,
     [](std::int64_t count) -> std::size_t { return count == 1 ? 0 : 1; }},
    {"zero-one-other", Catalogue::Plurals::zero_one_other, 2,
     [](std::int64_t count) -> std::size_t { return count <= 1 ? 0 : 1; }},
    {"slavic", Catalogue::Plurals::slavic, 3, slavic_form},
};

const PluralRule& rule_of(Catalogue::Plurals plurals) {
    return *std::ranges::find(plural_rules, plurals, &PluralRule::rule);
}

std::string unescaped(std::string_view text) {
    std::string made;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '\\' && i + 1 < text.size();
        made += !escape ? text[i] : text[i + 1] == 'n' ? '\n' : text[i + 1];
        if (escape) ++i;
    }
    return made;
}

// The forms between the bars that no "\\" stands in front of, still escaped.
std::vector<std::string_view> forms_of(std::string_view line) {
    std::vector<std::string_view> forms;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\') {
            ++i;
        } else if (line[i] == '|') {
            forms.push_back(line.substr(begin, i - begin));
            begin = i + 1;
        }
    }
    forms.push_back(line.substr(begin));
    return forms;
}

// The digits behind "%", sorted: the same places must stand in a text and in its translation.
std::string places_of(std::string_view text) {
    std::string places;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] == '%' && text[i + 1] >= '1' && text[i + 1] <= '9') places += text[i + 1];
    }
    std::ranges::sort(places);
    return places;
}

using Paragraph = std::vector<std::string_view>;

std::vector<Paragraph> paragraphs_of(std::string_view text) {
    std::vector<Paragraph> all(1);
    for (std::string_view line : split(text, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.starts_with('#')) continue;
        if (line.empty() && !all.back().empty()) all.emplace_back();
        if (!line.empty()) all.back().push_back(line);
    }
    if (all.back().empty()) all.pop_back();
    return all;
}

std::string_view head_value(const Paragraph& head, std::string_view name) {
    for (const std::string_view line : head) {
        if (line.starts_with(name) && line.substr(name.size()).starts_with(':'))
            return trim(line.substr(name.size() + 1));
    }
    return {};
}

}  // namespace

std::optional<Catalogue> Catalogue::read(std::string_view bytes, std::string& error) {
    const auto refuse = [&error](std::string why) {
        error = std::move(why);
        return std::nullopt;
    };
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    if (bytes.size() > largest_catalogue || !is_utf8(bytes)) return refuse("It is not a text in UTF-8.");
    const std::vector<Paragraph> paragraphs = paragraphs_of(bytes);
    if (paragraphs.empty()) return refuse("It is empty.");
    Catalogue made;
    made.language_ = head_value(paragraphs.front(), "language");
    made.name_ = head_value(paragraphs.front(), "name");
    const auto* const rule =
        std::ranges::find(plural_rules, head_value(paragraphs.front(), "plurals"), &PluralRule::name);
    if (made.language_.empty() || made.name_.empty() || rule == std::end(plural_rules))
        return refuse("Its head names no language, or no rule for plurals.");
    made.plurals_ = rule->rule;
    const std::string_view direction = head_value(paragraphs.front(), "direction");
    made.is_right_to_left_ = direction == "right-to-left";
    if (!direction.empty() && !made.is_right_to_left_ && direction != "left-to-right")
        return refuse("Its head names a direction that is neither left-to-right nor right-to-left.");
    for (std::size_t i = 1; i < paragraphs.size(); ++i) {
        const Paragraph& one = paragraphs[i];
        const std::string english(one.front());
        if (one.size() != 2) return refuse("\"" + english + "\" is not followed by one line.");
        // A text that counts is named by its form for many, the last one of its line.
        const std::vector<std::string_view> forms = forms_of(one.front());
        std::vector<std::string> translated;
        for (const std::string_view form : forms_of(one[1])) {
            if (places_of(form) != places_of(forms.back()))
                return refuse("\"" + english + "\" has other places.");
            translated.push_back(unescaped(form));
        }
        if (translated.size() != (forms.size() == 1 ? 1 : rule->forms))
            return refuse("\"" + english + "\" has too few or too many forms.");
        made.texts_[unescaped(forms.back())] = std::move(translated);
    }
    return made;
}

const std::string* Catalogue::find(std::string_view english) const {
    const auto at = texts_.find(english);
    return at == texts_.end() ? nullptr : &at->second.front();
}

const std::string* Catalogue::find(std::string_view many, std::int64_t count) const {
    const auto at = texts_.find(many);
    if (at == texts_.end()) return nullptr;
    const std::size_t form = rule_of(plurals_).form(count);
    return form < at->second.size() ? &at->second[form] : nullptr;
}

namespace {

std::vector<std::u16string> catalogues_in(const std::u16string& folder) {
    std::vector<std::u16string> names;
    static_cast<void>(list_files(folder, catalogue_suffix, names));  // none where there is no such folder
    for (std::u16string& name : names) name.resize(name.size() - catalogue_suffix.size());
    std::ranges::sort(names);
    return names;
}

std::optional<Catalogue> load(const std::u16string& folder, const std::u16string& name, std::string& error) {
    const std::u16string path = join_path(folder, name + std::u16string(catalogue_suffix));
    std::vector<std::byte> bytes;
    if (const FileError read = read_file(path, largest_catalogue, bytes); !read.ok()) {
        error = to_utf8(path) + ": " + read.text();
        return std::nullopt;
    }
    auto catalogue = Catalogue::read({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, error);
    if (!catalogue) error = to_utf8(path) + ": " + error;
    return catalogue;
}

}  // namespace

std::vector<LanguageFile> languages_in(const std::u16string& folder) {
    std::vector<LanguageFile> all{{"en", "English"}};
    std::string error;
    for (const std::u16string& name : catalogues_in(folder)) {
        if (const auto catalogue = load(folder, name, error))
            all.push_back({to_utf8(name), catalogue->name()});
    }
    return all;
}

std::optional<std::string> choose_language(const std::u16string& folder, std::u16string_view setting,
                                           std::string_view system) {
    set_catalogue(std::nullopt);
    std::u16string chosen;
    const auto same_first = [](std::u16string_view a, std::u16string_view b) {
        return iequals(a.substr(0, a.find(u'-')), b.substr(0, b.find(u'-')));
    };
    const std::u16string wanted = setting.empty() ? to_utf16(system) : std::u16string(setting);
    if (same_first(wanted, u"en")) return std::nullopt;
    int best = 0;
    for (const std::u16string& name : catalogues_in(folder)) {
        const bool first_alone = same_first(name, wanted) && name.find(u'-') == std::u16string::npos;
        int fit = iequals(name, wanted) ? 3 : first_alone ? 2 : same_first(name, wanted) ? 1 : 0;
        if (!setting.empty() && fit < 3) fit = 0;
        if (fit > best) chosen = name;
        best = std::max(best, fit);
    }
    if (chosen.empty()) {
        if (setting.empty()) return std::nullopt;
        return "There is no language file " + to_utf8(setting) + ".lng in " + to_utf8(folder) + ".";
    }
    std::string error;
    auto catalogue = load(folder, chosen, error);
    if (!catalogue) return error;
    set_catalogue(std::move(catalogue));
    return std::nullopt;
}

const std::string& current_language() noexcept {
    return speech().language;
}

bool is_right_to_left() noexcept {
    return speech().catalogue && speech().catalogue->is_right_to_left();
}

void set_catalogue(std::optional<Catalogue> catalogue) {
    speech().language = catalogue ? catalogue->language() : "en";
    speech().catalogue = std::move(catalogue);
}

std::string tr(std::string_view english) {
    const auto& catalogue = speech().catalogue;
    const std::string* const found = catalogue ? catalogue->find(english) : nullptr;
    return found != nullptr ? *found : std::string(english);
}

std::string trn(std::string_view one, std::string_view many, std::int64_t count) {
    const auto& catalogue = speech().catalogue;
    const std::string* const found = catalogue ? catalogue->find(many, count) : nullptr;
    const std::string_view text = found != nullptr ? std::string_view(*found) : count == 1 ? one : many;
    return fill(text, {std::to_string(count)});
}

namespace {

// Within a sentence that runs from right to left an address or a name keeps its own direction and its signs
// (UAX 9, isolates). Numbers do without.
bool has_own_direction(std::string_view argument) {
    const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    return is_right_to_left() && std::ranges::any_of(argument, is_letter);
}

std::string isolated(std::string_view argument) {
    if (!has_own_direction(argument)) return std::string(argument);
    return std::string(first_strong_isolate) + std::string(argument) + std::string(pop_isolate);
}

}  // namespace

std::string fill(std::string_view text, std::initializer_list<std::string_view> arguments) {
    std::string made;
    // A sentence that begins with such an argument would be taken for one of the argument's direction.
    if (std::ranges::any_of(arguments, has_own_direction)) made = right_to_left_mark;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool place = text[i] == '%' && i + 1 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '9';
        const std::size_t argument = place ? static_cast<std::size_t>(text[i + 1] - '1') : arguments.size();
        if (argument < arguments.size()) {
            made += isolated(arguments.begin()[argument]);
            ++i;
        } else {
            made += text[i];
        }
    }
    return made;
}

}  // namespace vantlow
