#include "platform/HostUi.h"

#include <mutex>
#include <unordered_set>

#include "platform/FileApi.h"
#include "platform/Window.h"

struct MenuObject {
    std::vector<platform::MenuItem> items;
};

namespace platform {
namespace {

struct UiState {
    std::mutex mutex;
    IHostUi* ui = nullptr;
    std::unordered_set<const MenuObject*> menus;
};

UiState& State()
{
    static UiState* state = new UiState;
    return *state;
}

IHostUi* CurrentUi()
{
    UiState& state = State();
    std::lock_guard lock(state.mutex);
    return state.ui;
}

bool IsLiveMenu(HMENU menu)
{
    UiState& state = State();
    std::lock_guard lock(state.mutex);
    return menu != nullptr && state.menus.count(menu) != 0;
}

template <typename Answer>
Answer PopFront(std::deque<Answer>& queue, Answer otherwise)
{
    if (queue.empty())
        return otherwise;
    Answer answer = queue.front();
    queue.pop_front();
    return answer;
}

}  // namespace

void SetHostUi(IHostUi* ui)
{
    UiState& state = State();
    std::lock_guard lock(state.mutex);
    state.ui = ui;
}

ScriptedHostUi::ScriptedHostUi()
{
    SetHostUi(this);
    SetMessageBoxHandler([this](const MessageBoxRequest& request) { return AnswerBox(request); });
}

ScriptedHostUi::~ScriptedHostUi()
{
    SetMessageBoxHandler(nullptr);
    SetHostUi(nullptr);
}

UINT_PTR ScriptedHostUi::TrackPopupMenu(const PopupMenuRequest& request)
{
    menus.push_back(request);
    if (beforeAnswer)
        beforeAnswer();
    return PopFront<UINT_PTR>(menuChoices, 0);
}

FileDialogAnswer ScriptedHostUi::ShowFileDialog(const FileDialogRequest& request)
{
    dialogs.push_back(request);
    if (beforeAnswer)
        beforeAnswer();
    return PopFront(dialogAnswers, FileDialogAnswer{});
}

int ScriptedHostUi::AnswerBox(const MessageBoxRequest& request)
{
    boxes.push_back(request);
    if (beforeAnswer)
        beforeAnswer();
    const UINT buttons = request.type & 0xF;
    return PopFront(boxAnswers, buttons == MB_YESNO || buttons == MB_YESNOCANCEL ? IDYES : IDOK);
}

}  // namespace platform

using namespace platform;

HMENU CreatePopupMenu()
{
    auto* menu = new MenuObject;
    UiState& state = State();
    std::lock_guard lock(state.mutex);
    state.menus.insert(menu);
    return menu;
}

BOOL AppendMenuA(HMENU menu, UINT flags, UINT_PTR id, const char* text)
{
    if (!IsLiveMenu(menu))
        return FALSE;
    menu->items.push_back(MenuItem{flags, id, text != nullptr ? text : ""});
    return TRUE;
}

BOOL DestroyMenu(HMENU menu)
{
    if (!IsLiveMenu(menu))
        return FALSE;
    {
        UiState& state = State();
        std::lock_guard lock(state.mutex);
        state.menus.erase(menu);
    }
    delete menu;
    return TRUE;
}

BOOL TrackPopupMenu(HMENU menu, UINT flags, int x, int y, int, HWND owner, const RECT*)
{
    if (!IsLiveMenu(menu) || !IsWindow(owner))
        return FALSE;
    PopupMenuRequest request;
    request.owner = owner;
    request.screenPoint = POINT{x, y};
    request.flags = flags;
    request.items = menu->items;
    IHostUi* ui = CurrentUi();
    const UINT_PTR choice = ui != nullptr ? ui->TrackPopupMenu(request) : 0;
    if ((flags & TPM_RETURNCMD) != 0)
        return static_cast<BOOL>(choice);
    if (choice != 0)
        PostMessageA(owner, WM_COMMAND, choice, 0);
    return TRUE;
}

CFileDialog::CFileDialog(BOOL openFileDialog, const char* defaultExtension, const char* fileName, DWORD,
                         const char* filter, HWND parent, DWORD, BOOL)
{
    m_request.openDialog = openFileDialog != 0;
    m_request.defaultExtension = defaultExtension != nullptr ? defaultExtension : "";
    m_request.fileName = fileName != nullptr ? fileName : "";
    m_request.filter = filter != nullptr ? filter : "";
    m_request.parent = parent;
}

int CFileDialog::DoModal()
{
    m_request.initialFolder = platform::CurrentDirectory();
    IHostUi* ui = CurrentUi();
    const FileDialogAnswer answer = ui != nullptr ? ui->ShowFileDialog(m_request) : FileDialogAnswer{};
    if (!answer.accepted)
        return IDCANCEL;
    m_path = answer.path;
    return IDOK;
}
