#pragma once
#include <functional>
#include <memory>
#include <string>

#include "platform/Terminal.h"
#include "platform/Types.h"

namespace platform {

// Shows top-level windows of the platform layer in real GTK windows: each
// shows its framebuffer with its children drawn over it, mouse input comes
// back as messages, and message boxes, popup menus and file dialogues
// become GTK's own. Lives on the host's thread, which also runs GTK.
class GtkPresenter {
public:
    // Loads the GTK plugin (tempvox-gtk.so) and opens the display. Null,
    // with `whyNot` set, when the plugin is missing or there is no display.
    static std::unique_ptr<GtkPresenter> Create(std::string& whyNot);
    virtual ~GtkPresenter() = default;

    virtual void Show(HWND topLevel, const std::string& title) = 0;
    // Runs pending GTK events; platform messages are pumped from inside
    // GTK's own loop as well, so modal dialogues keep play going.
    virtual void ProcessEvents() = 0;
    // True once the user closed a shown window.
    virtual bool Closed() const = 0;
    virtual void SetKeyHandler(std::function<void(Key)> handler) = 0;
};

}  // namespace platform
