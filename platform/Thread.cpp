#include "platform/Thread.h"

#include <system_error>
#include <thread>

namespace platform {

bool StartDetachedThread(std::function<void()> body)
{
    try {
        std::thread(std::move(body)).detach();
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace platform
