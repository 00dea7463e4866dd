#include "platform/MessageBox.h"

#include <cstdio>
#include <memory>
#include <mutex>

namespace platform {
namespace {

struct BoxState {
    std::mutex mutex;
    std::shared_ptr<const MessageBoxHandler> handler;
};

BoxState& State()
{
    static BoxState* state = new BoxState;
    return *state;
}

int AnswerOnStandardError(const MessageBoxRequest& request)
{
    if (request.caption.empty())
        std::fprintf(stderr, "%s\n", request.text.c_str());
    else
        std::fprintf(stderr, "%s: %s\n", request.caption.c_str(), request.text.c_str());
    const UINT buttons = request.type & 0xF;
    return buttons == MB_YESNO || buttons == MB_YESNOCANCEL ? IDYES : IDOK;
}

// The handler runs without the lock: a box may pump messages for a long
// time, and other threads may show boxes meanwhile.
int Show(const MessageBoxRequest& request)
{
    std::shared_ptr<const MessageBoxHandler> handler;
    {
        BoxState& state = State();
        std::lock_guard lock(state.mutex);
        handler = state.handler;
    }
    return handler ? (*handler)(request) : AnswerOnStandardError(request);
}

}  // namespace

void SetMessageBoxHandler(MessageBoxHandler handler)
{
    BoxState& state = State();
    std::lock_guard lock(state.mutex);
    state.handler = handler ? std::make_shared<const MessageBoxHandler>(std::move(handler)) : nullptr;
}

int ShowCatalogueBox(int catalogueId, const std::string& text, UINT type)
{
    MessageBoxRequest request;
    request.catalogueId = catalogueId;
    request.text = text;
    request.type = type;
    return Show(request);
}

}  // namespace platform

int MessageBoxA(HWND, const char* text, const char* caption, UINT type)
{
    platform::MessageBoxRequest request;
    request.text = text ? text : "";
    request.caption = caption ? caption : "";
    request.type = type;
    return platform::Show(request);
}

int AfxMessageBox(const char* text, UINT type, UINT)
{
    platform::MessageBoxRequest request;
    request.text = text ? text : "";
    request.type = type;
    return platform::Show(request);
}
