#include "app/window/pictures.h"

#include <wx/icon.h>

#include <string>

namespace vantlow {
namespace {

struct Drawing {
    const char* path;
    const char* colour;
};

std::string path_of(const Drawing& drawing, const std::string& attributes) {
    return "<path " + attributes + R"( fill-rule="evenodd" d=")" + drawing.path + R"("/>)";
}

wxBitmapBundle of_paths(const std::string& paths, int edge) {
    const std::string text =
        R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16">)" + paths + "</svg>";
    return wxBitmapBundle::FromSVG(text.c_str(), wxSize(edge, edge));
}

std::string filled(const Drawing& drawing) {
    return path_of(drawing, std::string("fill=\"") + drawing.colour + "\"");
}

wxBitmapBundle drawn(const Drawing& drawing, int edge) {
    return of_paths(filled(drawing), edge);
}

// With a white edge, so that it is seen on the colour of a selected row, too, whichever that is.
wxBitmapBundle drawn_with_edge(const Drawing& drawing, int edge) {
    const std::string white = R"(fill="none" stroke="#ffffff" stroke-width="2.5" stroke-linejoin="round")";
    return of_paths(path_of(drawing, white) + filled(drawing), edge);
}

Drawing drawing_of(Picture which) {
    switch (which) {
        case Picture::add:
            return {"M6.5 2h3v4.5H14v3H9.5V14h-3V9.5H2v-3h4.5z", "#2e9e44"};
        case Picture::start:
            return {"M4 2l10 6-10 6z", "#2a6fd0"};
        case Picture::stop:
            return {"M3 3h10v10H3z", "#c8372d"};
        case Picture::up:
            return {"M8 2l6 7h-4v5H6V9H2z", "#55606c"};
        case Picture::down:
            return {"M8 14l6-7h-4V2H6v5H2z", "#55606c"};
        case Picture::top:
            return {"M2 1h12v2H2zM8 4l6 6h-4v5H6v-5H2z", "#55606c"};
        case Picture::remove:
            return {"M3 1.5L8 6.500l5-5 1.5 1.500-5 5 5 5-1.500 1.500-5-5-5 5-1.500-1.500 5-5-5-5z",
                    "#c8372d"};
        case Picture::folder:
            return {"M1 3h5l2 2h7v9H1z", "#d9a02b"};
        case Picture::file:
            return {"M3 1h7l3 3v11H3zM5 7v1h6V7zM5 9.500v1h6v-1z", "#7d8894"};
        case Picture::options:
            return {"M2 3h8v2H2zM12 3h2v2h-2zM2 7h2v2H2zM6 7h8v2H6zM2 11h6v2H2zM10 11h4v2h-4z", "#55606c"};
        case Picture::clock:
            return {"M8 1a7 7 0 1 0 0 14a7 7 0 1 0 0-14zM7.200 4h1.600v4l3 2-.9 1.300-3.700-2.500z",
                    "#55606c"};
        case Picture::kind:
            return {"M2 2h5v5H2zM9 2h5v5H9zM2 9h5v5H2zM9 9h5v5H9z", "#7a5ea8"};
        case Picture::day:
            return {"M2 3h12v11H2zM4 7v5h8V7zM4 1h2v3H4zM10 1h2v3h-2z", "#55606c"};
        case Picture::program:
            break;
    }
    return {"M6 1h4v6h4l-6 6-6-6h4zM2 14h12v1.500H2z", "#2a6fd0"};
}

}  // namespace

wxBitmapBundle picture(Picture which, int edge) {
    return drawn(drawing_of(which), edge);
}

wxIconBundle program_icons() {
    wxIconBundle icons;
    for (const int edge : {16, 20, 24, 32, 48, 64}) {
        const wxSize size(edge, edge);
        icons.AddIcon(picture(Picture::program, edge).GetIcon(size));
    }
    return icons;
}

std::vector<wxBitmapBundle> row_signs() {
    constexpr int edge = 16;
    return {
        drawn_with_edge({"M8 2a6 6 0 1 0 0 12a6 6 0 1 0 0-12zM8 4a4 4 0 1 1 0 8a4 4 0 1 1 0-8z", "#7d8894"},
                        edge),
        drawn_with_edge({"M6 1h4v7h4l-6 7-6-7h4z", "#2a6fd0"}, edge),
        drawn_with_edge({"M3 2h4v12H3zM9 2h4v12H9z", "#c98a10"}, edge),
        drawn_with_edge({"M3 3h10v10H3z", "#7d8894"}, edge),
        drawn_with_edge({"M6.500 13.500l-5-5 2-2 3 3 6-7 2 2z", "#2e9e44"}, edge),
        drawn_with_edge({"M8 1l7 13H1zM7.200 5.500v4h1.600v-4zM7.200 11v1.600h1.600V11z", "#c8372d"}, edge),
    };
}

}  // namespace vantlow
