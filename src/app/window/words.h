// Text between the model, which speaks UTF-8 and UTF-16, and the toolkit.
#pragma once

#include <wx/string.h>

#include <string>
#include <string_view>

#include "base/text.h"

namespace vantlow {

inline wxString ui(std::string_view utf8) {
    return wxString::FromUTF8(utf8.data(), utf8.size());
}

inline std::string utf8_of(const wxString& text) {
    const auto bytes = text.utf8_str();
    return {bytes.data(), bytes.length()};
}

inline std::u16string wide_of(const wxString& text) {
    return to_utf16(utf8_of(text));
}

/// Text that is no label: "&" marks nothing in it.
inline wxString as_label(std::string_view utf8) {
    wxString text = ui(utf8);
    text.Replace("&", "&&");
    return text;
}

}  // namespace vantlow
