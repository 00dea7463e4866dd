#pragma once
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/Gdi.h"
#include "platform/MessageBox.h"
#include "platform/Types.h"

// What only a person at the screen can answer: popup menus and file
// dialogues, behind one hook. Without a hook the answers are headless: a
// menu closes with no choice, a dialogue is cancelled. Message boxes keep
// their own handler (platform/MessageBox.h); ScriptedHostUi sets both.

struct MenuObject;
using HMENU = MenuObject*;

constexpr UINT MF_STRING = 0x0000;
constexpr UINT MF_GRAYED = 0x0001;
constexpr UINT MF_SEPARATOR = 0x0800;
constexpr UINT TPM_LEFTALIGN = 0x0000;
constexpr UINT TPM_RIGHTBUTTON = 0x0002;
constexpr UINT TPM_RETURNCMD = 0x0100;

HMENU CreatePopupMenu();
BOOL AppendMenuA(HMENU menu, UINT flags, UINT_PTR id, const char* text);
BOOL DestroyMenu(HMENU menu);
// Shows the menu at a screen point and returns when it closes. A choice is
// posted to `owner` as WM_COMMAND with the entry's id, or with
// TPM_RETURNCMD returned instead. Nonzero when the menu was shown.
BOOL TrackPopupMenu(HMENU menu, UINT flags, int x, int y, int reserved, HWND owner, const RECT* unused);

namespace platform {

struct MenuItem {
    UINT flags = MF_STRING;
    UINT_PTR id = 0;
    std::string text;
};

struct PopupMenuRequest {
    HWND owner = nullptr;
    POINT screenPoint;
    UINT flags = 0;
    std::vector<MenuItem> items;
};

struct FileDialogRequest {
    bool openDialog = true;
    std::string defaultExtension;
    std::string fileName;
    std::string filter;
    std::string initialFolder;  // the current directory when it opened
    HWND parent = nullptr;
};

struct FileDialogAnswer {
    bool accepted = false;
    std::string path;  // full path when accepted
};

// A presenter implements this; the calls come on the host's thread and may
// pump its messages while they wait.
class IHostUi {
public:
    virtual ~IHostUi() = default;
    // The chosen entry's id, 0 for none.
    virtual UINT_PTR TrackPopupMenu(const PopupMenuRequest& request) = 0;
    virtual FileDialogAnswer ShowFileDialog(const FileDialogRequest& request) = 0;
};

void SetHostUi(IHostUi* ui);  // null: headless answers

// Answers from queues, for tests and scripted runs, and keeps what was
// asked. An empty queue answers as headless: no menu choice, a cancelled
// dialogue, OK (YES for yes/no) for a box. `beforeAnswer` runs inside each
// menu, dialogue or box before it answers, as a person's other actions
// would while it is up. Installs itself for its lifetime.
class ScriptedHostUi : public IHostUi {
public:
    ScriptedHostUi();
    ~ScriptedHostUi() override;
    ScriptedHostUi(const ScriptedHostUi&) = delete;
    ScriptedHostUi& operator=(const ScriptedHostUi&) = delete;

    std::deque<UINT_PTR> menuChoices;
    std::deque<FileDialogAnswer> dialogAnswers;
    std::deque<int> boxAnswers;
    std::function<void()> beforeAnswer;

    std::vector<PopupMenuRequest> menus;
    std::vector<FileDialogRequest> dialogs;
    std::vector<MessageBoxRequest> boxes;

    UINT_PTR TrackPopupMenu(const PopupMenuRequest& request) override;
    FileDialogAnswer ShowFileDialog(const FileDialogRequest& request) override;
    int AnswerBox(const MessageBoxRequest& request);
};

}  // namespace platform

// The framework's file dialogue: runs modally through the hook.
class CFileDialog {
public:
    CFileDialog(BOOL openFileDialog, const char* defaultExtension = nullptr, const char* fileName = nullptr,
                DWORD flags = 0, const char* filter = nullptr, HWND parent = nullptr, DWORD size = 0,
                BOOL vistaStyle = TRUE);
    // IDOK or IDCANCEL.
    int DoModal();
    std::string GetPathName() const { return m_path; }

private:
    platform::FileDialogRequest m_request;
    std::string m_path;
};
