#pragma once
#include "platform/Gdi.h"
#include "platform/Window.h"

// The one caret of a thread: a solid block drawn by inverting the owner
// window's pixels. It does not blink, so that the pixels stay predictable.
// A new caret is hidden until ShowCaret; hides nest, shows undo them.

BOOL CreateCaret(HWND window, HBITMAP shape, int width, int height);
BOOL DestroyCaret();
// A null window stands for whichever window owns the caret.
BOOL ShowCaret(HWND window);
BOOL HideCaret(HWND window);
BOOL SetCaretPos(int x, int y);
// The position, kept also after the caret is gone.
BOOL GetCaretPos(POINT* point);

namespace platform {

struct CaretState {
    HWND owner = nullptr;  // null: the thread has no caret
    RECT rect;             // in the owner's client coordinates
    bool visible = false;  // drawn on the owner's pixels now
};
CaretState CurrentCaret();
// The windows module calls this when the owner goes away.
void ForgetCaretOf(HWND window);

}  // namespace platform
