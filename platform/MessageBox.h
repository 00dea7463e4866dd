#pragma once
#include <functional>
#include <string>

#include "platform/Types.h"

constexpr UINT MB_OK = 0x0;
constexpr UINT MB_OKCANCEL = 0x1;
constexpr UINT MB_YESNOCANCEL = 0x3;
constexpr UINT MB_YESNO = 0x4;
constexpr UINT MB_ICONQUESTION = 0x20;
constexpr UINT MB_ICONEXCLAMATION = 0x30;
constexpr UINT MB_ICONINFORMATION = 0x40;

constexpr int IDOK = 1;
constexpr int IDCANCEL = 2;
constexpr int IDYES = 6;
constexpr int IDNO = 7;

// A modal box. The handler answers it; the default handler writes the text
// to standard error and answers OK (or YES for a yes/no box).
int MessageBoxA(HWND owner, const char* text, const char* caption, UINT type);
int AfxMessageBox(const char* text, UINT type = MB_OK, UINT helpId = 0);

namespace platform {

struct MessageBoxRequest {
    int catalogueId = -1;     // the catalogue entry shown, -1 for a direct box
    std::string text;
    std::string caption;      // empty for AfxMessageBox, which has none
    UINT type = MB_OK;
};

using MessageBoxHandler = std::function<int(const MessageBoxRequest& request)>;
void SetMessageBoxHandler(MessageBoxHandler handler);  // empty: the default
// Shows a box on behalf of a catalogue report, so handlers can see its id.
int ShowCatalogueBox(int catalogueId, const std::string& text, UINT type = MB_OK);

}  // namespace platform
