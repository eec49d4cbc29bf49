#include "app/window/system.h"

#include <gtk/gtk.h>
#ifdef GDK_WINDOWING_X11
#include <X11/Xlib.h>
#endif

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <utility>

#include <wx/app.h>
#include <wx/dataview.h>
#include <wx/menu.h>

namespace vantlow {
namespace {

GtkTreeView* tree_of(wxWindow& table) {
    auto* const view = dynamic_cast<wxDataViewCtrl*>(&table);
    return view != nullptr ? GTK_TREE_VIEW(view->GtkGetTreeView()) : nullptr;
}

constexpr const char* key_of_name = "vantlow-name";
AtkObject* (*plain_accessible)(GtkWidget*) = nullptr;

AtkObject* named_accessible(GtkWidget* table) {
    AtkObject* const accessible = plain_accessible(table);
    const auto* const name = static_cast<const char*>(g_object_get_data(G_OBJECT(table), key_of_name));
    if (name != nullptr && atk_object_get_name(accessible) == nullptr) atk_object_set_name(accessible, name);
    return accessible;
}

// A table's accessible object tells of every cell whenever all rows are new, whether anybody listens or not:
// so it is made, and named, when a screen reader asks for it.
void name_when_asked(GtkWidget* table, const wxString& name) {
    g_object_set_data_full(G_OBJECT(table), key_of_name, g_strdup(name.utf8_str()), g_free);
    GtkWidgetClass* const tables = GTK_WIDGET_GET_CLASS(table);
    if (tables->get_accessible == named_accessible) return;
    plain_accessible = tables->get_accessible;
    tables->get_accessible = named_accessible;
}

// The row on which the button went down while several were selected, until it is known what that begins.
struct HeldPress {
    GtkTreePath* row = nullptr;
    bool is_blocking = false;

    HeldPress() = default;
    HeldPress(const HeldPress&) = delete;
    HeldPress& operator=(const HeldPress&) = delete;
    ~HeldPress() { forget(); }
    void forget() {
        gtk_tree_path_free(row);
        row = nullptr;
    }

    // Only the tree's own answer to the press finds the selection closed: nothing of the program meets it so.
    static gboolean begin(GtkWidget* widget, GdkEventButton* event, gpointer self) {
        auto& press = *static_cast<HeldPress*>(self);
        press.forget();
        GtkTreeView* const tree = GTK_TREE_VIEW(widget);
        GtkTreeSelection* const selection = gtk_tree_view_get_selection(tree);
        const bool is_plain =
            event->type == GDK_BUTTON_PRESS && event->button == 1 &&
            (event->state & static_cast<guint>(gtk_accelerator_get_default_mod_mask())) == 0 &&
            event->window == gtk_tree_view_get_bin_window(tree);
        GtkTreePath* row = nullptr;
        if (!is_plain || gtk_tree_selection_count_selected_rows(selection) < 2 ||
            gtk_tree_selection_get_select_function(selection) != nullptr ||
            gtk_tree_view_get_path_at_pos(tree, static_cast<int>(event->x), static_cast<int>(event->y), &row,
                                          nullptr, nullptr, nullptr) == FALSE)
            return FALSE;
        press.row = row;
        if (gtk_tree_selection_path_is_selected(selection, row) == FALSE) {
            press.forget();
            return FALSE;
        }
        const auto never = +[](GtkTreeSelection*, GtkTreeModel*, GtkTreePath*, gboolean,
                               gpointer) -> gboolean { return FALSE; };
        gtk_tree_selection_set_select_function(selection, never, nullptr, nullptr);
        press.is_blocking = true;
        return FALSE;
    }

    static void after(GtkWidget* widget, GdkEvent* event, gpointer self) {
        auto& press = *static_cast<HeldPress*>(self);
        GtkTreeView* const tree = GTK_TREE_VIEW(widget);
        if (press.is_blocking) {
            gtk_tree_selection_set_select_function(gtk_tree_view_get_selection(tree), nullptr, nullptr,
                                                   nullptr);
            press.is_blocking = false;
        }
        if (event->type != GDK_BUTTON_RELEASE || press.row == nullptr) return;
        gtk_tree_view_set_cursor(tree, press.row, nullptr, FALSE);
        press.forget();
    }

    static void drag(GtkWidget* /*tree*/, GdkDragContext* /*context*/, gpointer self) {
        static_cast<HeldPress*>(self)->forget();
    }
};

}  // namespace

void make_rows_equal(wxWindow& table, bool clickable) {
    GtkTreeView* const tree = tree_of(table);
    if (tree == nullptr) return;
    for (int i = 0; GtkTreeViewColumn* const column = gtk_tree_view_get_column(tree, i); ++i) {
        gtk_tree_view_column_set_sizing(column, GTK_TREE_VIEW_COLUMN_FIXED);
        gtk_tree_view_column_set_clickable(column, clickable ? TRUE : FALSE);
    }
    gtk_tree_view_set_fixed_height_mode(tree, TRUE);
    gtk_tree_view_set_enable_search(tree, FALSE);  // the window has a search of its own
}

void redraw_rows(wxWindow& table) {
    if (GtkTreeView* const tree = tree_of(table)) gtk_widget_queue_draw(GTK_WIDGET(tree));
}

void show_column_order(wxWindow& table, int position, bool shown, bool descending) {
    GtkTreeView* const tree = tree_of(table);
    GtkTreeViewColumn* const column = tree != nullptr ? gtk_tree_view_get_column(tree, position) : nullptr;
    if (column == nullptr) return;
    gtk_tree_view_column_set_sort_indicator(column, shown ? TRUE : FALSE);
    gtk_tree_view_column_set_sort_order(column, descending ? GTK_SORT_DESCENDING : GTK_SORT_ASCENDING);
}

void show_gap(wxWindow& table, int row, int rows) {
    GtkTreeView* const tree = tree_of(table);
    if (tree == nullptr) return;
    GtkTreePath* const path =
        row >= 0 && rows > 0 ? gtk_tree_path_new_from_indices(std::min(row, rows - 1), -1) : nullptr;
    gtk_tree_view_set_drag_dest_row(tree, path,
                                    row < rows ? GTK_TREE_VIEW_DROP_BEFORE : GTK_TREE_VIEW_DROP_AFTER);
    gtk_tree_path_free(path);
}

void keep_selection_for_drags(wxWindow& table) {
    GtkTreeView* const tree = tree_of(table);
    if (tree == nullptr) return;
    auto* const press = new HeldPress;
    g_object_set_data_full(
        G_OBJECT(tree), "vantlow-held-press", press,
        +[](gpointer held) { delete static_cast<HeldPress*>(held); });
    g_signal_connect(tree, "button-press-event", G_CALLBACK(HeldPress::begin), press);
    g_signal_connect(tree, "event-after", G_CALLBACK(HeldPress::after), press);
    g_signal_connect(tree, "drag-begin", G_CALLBACK(HeldPress::drag), press);
}

void hear_end_of_drags(wxWindow& table, const std::function<void()>& ended) {
    GtkTreeView* const tree = tree_of(table);
    if (tree == nullptr) return;
    // The work that the drop brings is put off as well, and comes first.
    const auto end = +[](GtkWidget* /*tree*/, GdkDragContext* /*context*/, gpointer ended_of_table) {
        wxTheApp->CallAfter([ended_of_table] {
            wxTheApp->CallAfter(
                [ended_of_table] { (*static_cast<const std::function<void()>*>(ended_of_table))(); });
        });
    };
    g_signal_connect(tree, "drag-end", G_CALLBACK(end),
                     const_cast<std::function<void()>*>(&ended));  // NOLINT(*-const-cast): of C
}

void lay_out_before_show(wxTopLevelWindow& window) {
    auto* const widget = static_cast<GtkWidget*>(window.GetHandle());
    const wxSize size = window.GetSize();
    GtkRequisition least;
    gtk_widget_get_preferred_size(widget, &least, nullptr);
    GtkAllocation room{0, 0, std::max(size.x, least.width), std::max(size.y, least.height)};
    gtk_widget_size_allocate(widget, &room);
}

void put_sign(wxMenuItem& item, const wxBitmapBundle& sign) {
    item.SetBitmap(sign);
}

void hear_end_of_display(std::function<void()> gone) {
#ifdef GDK_WINDOWING_X11
    static std::function<void()> told;  // the handler gets no argument of ours
    told = std::move(gone);
    XSetIOErrorHandler(+[](Display*) -> int {
        // A second call comes from what the first one does.
        if (const auto once = std::exchange(told, {})) once();
        std::_Exit(EXIT_FAILURE);
    });
#else
    static_cast<void>(gone);
#endif
}

void let_letters_reach_all(wxTopLevelWindow& /*dialog*/) {}

void name_for_readers(wxWindow& control, const wxString& name) {
    control.SetName(name);
    if (GtkTreeView* const tree = tree_of(control)) return name_when_asked(GTK_WIDGET(tree), name);
    auto* widget = static_cast<GtkWidget*>(control.GetHandle());
    // A list or a text of several lines stands within what scrolls it.
    if (GTK_IS_SCROLLED_WINDOW(widget)) widget = gtk_bin_get_child(GTK_BIN(widget));
    if (widget != nullptr) atk_object_set_name(gtk_widget_get_accessible(widget), name.utf8_str());
}

void* handle_of(wxWindow& /*window*/) {
    return nullptr;
}

void show_notices_by(wxTaskBarIcon* /*tray*/) {}

void close_of_system() noexcept {
    GList* const all = gtk_window_list_toplevels();
    for (const GList* one = all; one != nullptr; one = one->next) g_object_ref(one->data);
    for (const GList* one = all; one != nullptr; one = one->next) {
        const bool is_open =
            GTK_IS_DIALOG(one->data) && gtk_widget_get_visible(GTK_WIDGET(one->data)) != FALSE;
        if (is_open) gtk_dialog_response(GTK_DIALOG(one->data), GTK_RESPONSE_CANCEL);
        // A menu stands in a window of its own.
        GtkWidget* const menu = GTK_IS_WINDOW(one->data) ? gtk_bin_get_child(GTK_BIN(one->data)) : nullptr;
        if (GTK_IS_MENU(menu) && gtk_widget_get_visible(menu) != FALSE) gtk_menu_popdown(GTK_MENU(menu));
    }
    g_list_free_full(all, g_object_unref);
}

struct ClipboardWatch::State {
    std::function<void()> changed;
    gulong handler = 0;
};

ClipboardWatch::ClipboardWatch(wxWindow& /*window*/, std::function<void()> changed)
    : state_(std::make_unique<State>()) {
    state_->changed = std::move(changed);
    const auto told = +[](GtkClipboard* /*clipboard*/, GdkEvent* /*event*/, gpointer state) {
        static_cast<State*>(state)->changed();
    };
    state_->handler = g_signal_connect(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), "owner-change",
                                       G_CALLBACK(told), state_.get());
}

ClipboardWatch::~ClipboardWatch() {
    g_signal_handler_disconnect(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), state_->handler);
}

void take_direction(bool right_to_left) noexcept {
    gtk_widget_set_default_direction(right_to_left ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_LTR);
}

void keep_plain_numbers() noexcept {
    std::setlocale(LC_NUMERIC, "C");   // NOLINT(concurrency-mt-unsafe): GTK has just done the same
    std::setlocale(LC_MESSAGES, "C");  // NOLINT(concurrency-mt-unsafe)
}

}  // namespace vantlow
