// The GTK plugin: GtkPresenter's windows, dialogues and menus.
#include "platform/GtkPluginTable.h"

#include <gtk/gtk.h>

#include <cstdlib>
#include <map>
#include <vector>

namespace platform {
namespace {

// The platform's own functions, given by the loader; one presenter at a time.
const GtkHostCalls* g_host = nullptr;

HWND TopLevelOf(HWND window)
{
    HWND top = window;
    while (HWND parent = g_host->getParent(top)) top = parent;
    return top;
}

// A menu or a dialogue runs a loop of its own until the user answers it. A
// termination signal has to end that loop too, or SIGTERM and Ctrl-C would
// wait for a click; the popup is closed as if the user had dismissed it.
class ClosedOnTermination {
public:
    explicit ClosedOnTermination(GtkWidget* popup) : m_popup(popup), m_source(g_timeout_add(50, &Check, this)) {}
    ~ClosedOnTermination()
    {
        if (m_source != 0) g_source_remove(m_source);
    }
    ClosedOnTermination(const ClosedOnTermination&) = delete;
    ClosedOnTermination& operator=(const ClosedOnTermination&) = delete;

private:
    static gboolean Check(gpointer data)
    {
        auto* self = static_cast<ClosedOnTermination*>(data);
        if (g_host->terminationSignal() == 0) return G_SOURCE_CONTINUE;
        self->m_source = 0;
        if (GTK_IS_MENU_SHELL(self->m_popup)) gtk_menu_shell_deactivate(GTK_MENU_SHELL(self->m_popup));
        if (GTK_IS_DIALOG(self->m_popup)) gtk_dialog_response(GTK_DIALOG(self->m_popup), GTK_RESPONSE_CANCEL);
        return G_SOURCE_REMOVE;
    }

    GtkWidget* m_popup;
    guint m_source;
};

WPARAM ButtonFlags(guint state)
{
    WPARAM flags = 0;
    if (state & GDK_BUTTON1_MASK) flags |= MK_LBUTTON;
    if (state & GDK_BUTTON3_MASK) flags |= MK_RBUTTON;
    if (state & GDK_SHIFT_MASK) flags |= MK_SHIFT;
    if (state & GDK_CONTROL_MASK) flags |= MK_CONTROL;
    return flags;
}

class GtkPresenterImpl final : public GtkPresenter, public IWindowObserver, public IHostUi {
public:
    GtkPresenterImpl()
    {
        g_host->setWindowObserver(this);
        g_host->setHostUi(this);
        g_host->setMessageBoxHandler([this](const MessageBoxRequest& request) { return ShowBox(request); });
        // Platform messages and timers run inside GTK's loop too, so that a
        // modal dialogue or menu does not stop play or the caret.
        m_pumpSource = g_timeout_add(10, [](gpointer) -> gboolean {
            g_host->pumpPendingMessages();
            return G_SOURCE_CONTINUE;
        }, nullptr);
    }

    ~GtkPresenterImpl() override
    {
        g_source_remove(m_pumpSource);
        g_host->setMessageBoxHandler(nullptr);
        g_host->setHostUi(nullptr);
        g_host->setWindowObserver(nullptr);
        for (auto& [window, shown] : m_shown) gtk_widget_destroy(shown.gtkWindow);
        ProcessEvents();
    }

    void Show(HWND topLevel, const std::string& title) override
    {
        RECT client{};
        g_host->getClientRect(topLevel, &client);
        GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
        gtk_window_set_title(GTK_WINDOW(window), title.c_str());
        GtkWidget* area = gtk_drawing_area_new();
        gtk_widget_set_size_request(area, client.right - client.left, client.bottom - client.top);
        gtk_widget_add_events(area, GDK_BUTTON_PRESS_MASK | GDK_BUTTON_RELEASE_MASK | GDK_POINTER_MOTION_MASK);
        gtk_container_add(GTK_CONTAINER(window), area);
        m_shown[topLevel] = Shown{window, area};

        g_object_set_data(G_OBJECT(area), "hwnd", topLevel);
        g_signal_connect(area, "draw", G_CALLBACK(&GtkPresenterImpl::OnDraw), this);
        g_signal_connect(area, "button-press-event", G_CALLBACK(&GtkPresenterImpl::OnButton), this);
        g_signal_connect(area, "button-release-event", G_CALLBACK(&GtkPresenterImpl::OnButton), this);
        g_signal_connect(area, "motion-notify-event", G_CALLBACK(&GtkPresenterImpl::OnMotion), this);
        g_signal_connect(area, "size-allocate", G_CALLBACK(&GtkPresenterImpl::OnSize), this);
        g_signal_connect(window, "key-press-event", G_CALLBACK(&GtkPresenterImpl::OnKey), this);
        g_signal_connect(window, "delete-event", G_CALLBACK(&GtkPresenterImpl::OnDelete), this);
        gtk_widget_show_all(window);
    }

    void ProcessEvents() override
    {
        while (gtk_events_pending()) gtk_main_iteration_do(FALSE);
    }

    bool Closed() const override { return m_closed; }
    void SetKeyHandler(std::function<void(Key)> handler) override { m_keyHandler = std::move(handler); }

    // IWindowObserver
    void SurfaceChanged(HWND window) override
    {
        auto shown = m_shown.find(TopLevelOf(window));
        if (shown != m_shown.end()) gtk_widget_queue_draw(shown->second.area);
    }

    void WindowDestroyed(HWND window) override
    {
        auto shown = m_shown.find(window);
        if (shown == m_shown.end()) return;
        gtk_widget_destroy(shown->second.gtkWindow);
        m_shown.erase(shown);
    }

    // IHostUi
    UINT_PTR TrackPopupMenu(const PopupMenuRequest& request) override
    {
        auto shown = m_shown.find(TopLevelOf(request.owner));
        if (shown == m_shown.end()) return 0;
        GtkWidget* menu = gtk_menu_new();
        UINT_PTR chosen = 0;
        for (const MenuItem& item : request.items) {
            GtkWidget* entry = (item.flags & MF_SEPARATOR) ? gtk_separator_menu_item_new()
                                                           : gtk_menu_item_new_with_label(item.text.c_str());
            gtk_widget_set_sensitive(entry, (item.flags & MF_GRAYED) == 0);
            g_object_set_data(G_OBJECT(entry), "id", reinterpret_cast<gpointer>(item.id));
            g_object_set_data(G_OBJECT(entry), "chosen", &chosen);
            g_signal_connect(entry, "activate", G_CALLBACK(+[](GtkMenuItem* activated, gpointer) {
                                 auto* target = static_cast<UINT_PTR*>(g_object_get_data(G_OBJECT(activated), "chosen"));
                                 *target = reinterpret_cast<UINT_PTR>(g_object_get_data(G_OBJECT(activated), "id"));
                             }),
                             nullptr);
            gtk_menu_shell_append(GTK_MENU_SHELL(menu), entry);
        }
        gtk_widget_show_all(menu);
        GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
        // The item's activation comes after the menu closes; quitting from
        // an idle callback lets it through first.
        g_signal_connect(menu, "deactivate", G_CALLBACK(+[](GtkMenuShell*, gpointer data) {
                             g_idle_add(+[](gpointer loopData) -> gboolean {
                                 g_main_loop_quit(static_cast<GMainLoop*>(loopData));
                                 return G_SOURCE_REMOVE;
                             }, data);
                         }),
                         loop);
        RECT windowRect{};
        g_host->getWindowRect(shown->first, &windowRect);
        GdkRectangle at{request.screenPoint.x - windowRect.left, request.screenPoint.y - windowRect.top, 1, 1};
        gtk_menu_popup_at_rect(GTK_MENU(menu), gtk_widget_get_window(shown->second.area), &at, GDK_GRAVITY_NORTH_WEST,
                               GDK_GRAVITY_NORTH_WEST, nullptr);
        {
            const ClosedOnTermination watch(menu);
            g_main_loop_run(loop);
        }
        g_main_loop_unref(loop);
        gtk_widget_destroy(menu);
        return chosen;
    }

    FileDialogAnswer ShowFileDialog(const FileDialogRequest& request) override
    {
        GtkWindow* parent = nullptr;
        auto shown = m_shown.find(request.parent != nullptr ? TopLevelOf(request.parent) : nullptr);
        if (shown != m_shown.end()) parent = GTK_WINDOW(shown->second.gtkWindow);
        GtkFileChooserAction action = request.openDialog ? GTK_FILE_CHOOSER_ACTION_OPEN : GTK_FILE_CHOOSER_ACTION_SAVE;
        GtkWidget* dialog = gtk_file_chooser_dialog_new(request.openDialog ? "Open" : "Save", parent, action, "_Cancel",
                                                        GTK_RESPONSE_CANCEL, request.openDialog ? "_Open" : "_Save",
                                                        GTK_RESPONSE_ACCEPT, nullptr);
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
        if (!request.initialFolder.empty()) gtk_file_chooser_set_current_folder(chooser, request.initialFolder.c_str());
        if (!request.openDialog && !request.fileName.empty()) gtk_file_chooser_set_current_name(chooser, request.fileName.c_str());
        AddFilters(chooser, request.filter);
        FileDialogAnswer answer;
        const ClosedOnTermination watch(dialog);
        if (gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_ACCEPT) {
            if (char* path = gtk_file_chooser_get_filename(chooser)) {
                answer.accepted = true;
                answer.path = path;
                if (!request.defaultExtension.empty() && answer.path.find('.', answer.path.rfind('/') + 1) == std::string::npos) {
                    answer.path += "." + request.defaultExtension;
                }
                g_free(path);
            }
        }
        gtk_widget_destroy(dialog);
        return answer;
    }

private:
    struct Shown {
        GtkWidget* gtkWindow = nullptr;
        GtkWidget* area = nullptr;
    };

    // "Name (*.a)|*.a|Other|*.b||" pairs of label and pattern.
    static void AddFilters(GtkFileChooser* chooser, const std::string& filter)
    {
        std::vector<std::string> parts;
        size_t start = 0;
        for (size_t bar = filter.find('|'); bar != std::string::npos; bar = filter.find('|', start)) {
            parts.push_back(filter.substr(start, bar - start));
            start = bar + 1;
        }
        for (size_t i = 0; i + 1 < parts.size(); i += 2) {
            if (parts[i].empty()) break;
            GtkFileFilter* fileFilter = gtk_file_filter_new();
            gtk_file_filter_set_name(fileFilter, parts[i].c_str());
            gtk_file_filter_add_pattern(fileFilter, parts[i + 1].c_str());
            gtk_file_chooser_add_filter(chooser, fileFilter);
        }
    }

    int ShowBox(const MessageBoxRequest& request)
    {
        GtkButtonsType buttons = GTK_BUTTONS_OK;
        UINT kind = request.type & 0xF;
        if (kind == MB_OKCANCEL) buttons = GTK_BUTTONS_OK_CANCEL;
        if (kind == MB_YESNO || kind == MB_YESNOCANCEL) buttons = GTK_BUTTONS_YES_NO;
        GtkWindow* parent = m_shown.empty() ? nullptr : GTK_WINDOW(m_shown.begin()->second.gtkWindow);
        GtkWidget* dialog = gtk_message_dialog_new(parent, GTK_DIALOG_MODAL, GTK_MESSAGE_INFO, buttons, "%s",
                                                   request.text.c_str());
        gtk_window_set_title(GTK_WINDOW(dialog), request.caption.empty() ? "Tempvox" : request.caption.c_str());
        if (kind == MB_YESNOCANCEL) gtk_dialog_add_button(GTK_DIALOG(dialog), "_Cancel", GTK_RESPONSE_CANCEL);
        int response = 0;
        {
            const ClosedOnTermination watch(dialog);
            response = gtk_dialog_run(GTK_DIALOG(dialog));
        }
        gtk_widget_destroy(dialog);
        switch (response) {
        case GTK_RESPONSE_YES: return IDYES;
        case GTK_RESPONSE_NO: return IDNO;
        case GTK_RESPONSE_OK: return IDOK;
        default: return kind == MB_OK ? IDOK : IDCANCEL;
        }
    }

    static gboolean OnDraw(GtkWidget* area, cairo_t* cr, gpointer)
    {
        HWND window = static_cast<HWND>(g_object_get_data(G_OBJECT(area), "hwnd"));
        if (!g_host->isWindow(window)) return FALSE;
        Framebuffer picture = g_host->composeWindow(window);
        if (picture.width <= 0 || picture.height <= 0) return FALSE;
        cairo_surface_t* surface = cairo_image_surface_create_for_data(
            reinterpret_cast<unsigned char*>(picture.pixels.data()), CAIRO_FORMAT_RGB24, picture.width, picture.height,
            picture.width * 4);
        cairo_set_source_surface(cr, surface, 0, 0);
        cairo_paint(cr);
        cairo_surface_destroy(surface);
        return TRUE;
    }

    static gboolean OnButton(GtkWidget* area, GdkEventButton* event, gpointer)
    {
        HWND window = static_cast<HWND>(g_object_get_data(G_OBJECT(area), "hwnd"));
        bool down = event->type == GDK_BUTTON_PRESS;
        UINT message;
        WPARAM flags = ButtonFlags(event->state);
        if (event->button == 1) {
            message = down ? WM_LBUTTONDOWN : WM_LBUTTONUP;
            flags = down ? (flags | MK_LBUTTON) : (flags & ~static_cast<WPARAM>(MK_LBUTTON));
        } else if (event->button == 3) {
            message = down ? WM_RBUTTONDOWN : WM_RBUTTONUP;
            flags = down ? (flags | MK_RBUTTON) : (flags & ~static_cast<WPARAM>(MK_RBUTTON));
        } else {
            return FALSE;
        }
        if (event->type == GDK_BUTTON_PRESS || event->type == GDK_BUTTON_RELEASE) {
            g_host->postMouseInput(window, message, static_cast<int>(event->x), static_cast<int>(event->y), flags);
        }
        return TRUE;
    }

    static gboolean OnMotion(GtkWidget* area, GdkEventMotion* event, gpointer)
    {
        HWND window = static_cast<HWND>(g_object_get_data(G_OBJECT(area), "hwnd"));
        g_host->postMouseInput(window, WM_MOUSEMOVE, static_cast<int>(event->x), static_cast<int>(event->y),
                       ButtonFlags(event->state));
        return TRUE;
    }

    static void OnSize(GtkWidget* area, GdkRectangle* allocation, gpointer)
    {
        HWND window = static_cast<HWND>(g_object_get_data(G_OBJECT(area), "hwnd"));
        RECT rect{};
        g_host->getWindowRect(window, &rect);
        if (rect.right - rect.left != allocation->width || rect.bottom - rect.top != allocation->height) {
            g_host->moveWindow(window, rect.left, rect.top, allocation->width, allocation->height, TRUE);
        }
    }

    static gboolean OnKey(GtkWidget*, GdkEventKey* event, gpointer self)
    {
        auto* presenter = static_cast<GtkPresenterImpl*>(self);
        if (!presenter->m_keyHandler) return FALSE;
        Key key = Key::Other;
        switch (event->keyval) {
        case GDK_KEY_space: key = Key::Space; break;
        case GDK_KEY_Left: key = Key::Left; break;
        case GDK_KEY_Right: key = Key::Right; break;
        case GDK_KEY_Up: key = Key::Up; break;
        case GDK_KEY_Down: key = Key::Down; break;
        case GDK_KEY_q:
        case GDK_KEY_Escape: key = Key::Quit; break;
        case GDK_KEY_p: key = Key::Pause; break;
        case GDK_KEY_bracketleft: key = Key::Slower; break;
        case GDK_KEY_bracketright: key = Key::Faster; break;
        case GDK_KEY_braceleft: key = Key::Halve; break;
        case GDK_KEY_braceright: key = Key::Double; break;
        case GDK_KEY_BackSpace: key = Key::TempoReset; break;
        case GDK_KEY_9: key = Key::VolumeDown; break;
        case GDK_KEY_0: key = Key::VolumeUp; break;
        case GDK_KEY_m: key = Key::Mute; break;
        case GDK_KEY_l: key = Key::LoopPoint; break;
        default: break;
        }
        presenter->m_keyHandler(key);
        return TRUE;
    }

    static gboolean OnDelete(GtkWidget*, GdkEvent*, gpointer self)
    {
        static_cast<GtkPresenterImpl*>(self)->m_closed = true;
        return TRUE;  // the window goes with its platform window
    }

    std::map<HWND, Shown> m_shown;
    std::function<void(Key)> m_keyHandler;
    guint m_pumpSource = 0;
    bool m_closed = false;
};

}  // namespace

GtkPresenter* CreatePresenter(const GtkHostCalls& host)
{
    // The window is a picture driven by keys; the accessibility bridge adds
    // nothing to it but a session-bus connection. Outside a desktop session
    // that connection starts a bus of its own (dbus-launch) which outlives
    // the player, and its library state is what a signalled player would
    // tear down at exit. A user who wants the bridge sets NO_AT_BRIDGE=0.
    setenv("NO_AT_BRIDGE", "1", 0);
    if (!gtk_init_check(nullptr, nullptr)) return nullptr;
    g_host = &host;
    return new GtkPresenterImpl();
}

}  // namespace platform

extern "C" __attribute__((visibility("default"))) const platform::PluginHeader* tempvox_plugin_table()
{
    static const platform::GtkPluginTable table = {
        {platform::kGtkPluginVersion, sizeof(platform::GtkPluginTable), platform::kPluginBuild},
        platform::CreatePresenter,
    };
    return &table.header;
}
