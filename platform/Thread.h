#pragma once
#include <functional>

namespace platform {

// Starts `body` on a thread of its own that nobody waits for. False when the
// thread could not be started; `body` has then not run.
bool StartDetachedThread(std::function<void()> body);

}  // namespace platform
