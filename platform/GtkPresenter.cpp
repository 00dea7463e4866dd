#include "platform/GtkPresenter.h"

#include "platform/GtkPluginTable.h"
#include "platform/Messages.h"
#include "platform/Termination.h"

namespace platform {
namespace {

const GtkHostCalls kHostCalls = {
    GetParent,     GetClientRect,  GetWindowRect,       MoveWindow, IsWindow, ComposeWindow, PostMouseInput,
    PumpPendingMessages, SetWindowObserver, SetHostUi, SetMessageBoxHandler, TerminationSignal,
};

}  // namespace

std::unique_ptr<GtkPresenter> GtkPresenter::Create(std::string& whyNot)
{
    const GtkPluginTable* gtk = LoadPluginTable<GtkPluginTable>(kGtkPluginFile, kGtkPluginVersion, whyNot);
    if (gtk == nullptr) return nullptr;
    std::unique_ptr<GtkPresenter> presenter(gtk->create(kHostCalls));
    if (presenter == nullptr) whyNot = "no display to open a window on";
    return presenter;
}

}  // namespace platform
