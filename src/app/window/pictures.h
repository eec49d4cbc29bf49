// The window's pictures, drawn as vectors: sharp at every scale.
#pragma once

#include <wx/bmpbndl.h>
#include <wx/iconbndl.h>

#include <vector>

#include "app/window/model/job_columns.h"

namespace vantlow {

enum class Picture {
    add,
    start,
    stop,
    up,
    down,
    top,
    remove,
    folder,
    file,
    options,
    clock,
    kind,
    day,
    program,
};

/// `edge`: device-independent pixels.
wxBitmapBundle picture(Picture which, int edge = 16);

/// The program's own sign, for title bars and lists of windows, in each size that those ask for.
wxIconBundle program_icons();

/// The signs in front of rows, by RowSign. Their shapes differ, not only their colours.
std::vector<wxBitmapBundle> row_signs();

}  // namespace vantlow
