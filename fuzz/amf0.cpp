// AMF0 bodies: what was read and written is read and written the same, also after changes.
#include "media/amf0.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    CAMF0 body;
    if (!body.Parse(bytes_of(input).data(), input.size()) || body.values() == nullptr) return;
    CQoMemFile written;
    if (!body.Write(written)) return;
    CAMF0 again;
    CHECK(again.Parse(written.bytes().data(), written.size()));
    CQoMemFile twice;
    CHECK(again.values() == nullptr || again.Write(twice));
    if (twice.size() > 0) CHECK(text_of(twice.bytes()) == text_of(written.bytes()));
    std::vector<std::u16string> names;
    std::vector<std::u16string> texts;
    body.values()->ListEntries(0, names, texts);
    CHECK(names.size() == texts.size() && names.size() <= input.size());

    AmfFound found;
    body.GetValue(u"duration", found);
    CQoMemFile number;
    CAMF0::WriteNumber(number, 12.5);
    if (body.SetValue(u"duration", number.bytes(), true)) {
        CHECK(body.GetValue(u"duration", found, amf::number) && std::get<double>(found) == 12.5);
    }
    const std::int64_t positions[] = {13, 4096};
    const std::uint32_t times[] = {0, 2000};
    body.SetKeyframes(positions, times);
    CQoMemFile changed;
    if (body.Write(changed)) CHECK(again.Parse(changed.bytes().data(), changed.size()));
}
