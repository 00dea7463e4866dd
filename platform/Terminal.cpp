#include "platform/Terminal.h"

#include <cstring>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "platform/Termination.h"

namespace platform {

static_assert(sizeof(termios) <= 64, "saved terminal state must fit");

bool IsTerminal(int fd)
{
    return isatty(fd) == 1;
}

RawKeyboard::RawKeyboard()
{
    if (!IsTerminal(STDIN_FILENO)) return;
    termios state{};
    if (tcgetattr(STDIN_FILENO, &state) != 0) return;
    std::memcpy(m_saved, &state, sizeof state);
    RememberTerminalMode(&state, sizeof state);
    state.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    state.c_cc[VMIN] = 0;
    state.c_cc[VTIME] = 0;
    m_active = tcsetattr(STDIN_FILENO, TCSANOW, &state) == 0;
}

RawKeyboard::~RawKeyboard()
{
    if (!m_active) return;
    termios state{};
    std::memcpy(&state, m_saved, sizeof state);
    tcsetattr(STDIN_FILENO, TCSANOW, &state);
    ForgetTerminalMode();
}

Key RawKeyboard::Read(uint32_t timeoutMs)
{
    if (!m_active) return Key::None;
    // Keys pressed together arrive in one read; each is handed out in turn.
    if (m_pendingCount == 0) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, static_cast<int>(timeoutMs)) <= 0) return Key::None;
        ssize_t got = read(STDIN_FILENO, m_pending, sizeof m_pending);
        if (got <= 0) return Key::None;
        m_pendingCount = static_cast<size_t>(got);
    }
    return TakeKey(m_pending, m_pendingCount);
}

Key TakeKey(unsigned char* bytes, size_t& count)
{
    size_t used = 1;
    Key key = Key::Other;
    if (bytes[0] == ' ') {
        key = Key::Space;
    } else if (bytes[0] == 'q' || bytes[0] == 'Q') {
        key = Key::Quit;
    } else if (bytes[0] == 'n' || bytes[0] == 'N') {
        key = Key::Next;
    } else if (bytes[0] == 'b' || bytes[0] == 'B') {
        key = Key::Back;
    } else if (bytes[0] == 'r' || bytes[0] == 'R') {
        key = Key::Repeat;
    } else if (bytes[0] == 's' || bytes[0] == 'S') {
        key = Key::StopEach;
    } else if (bytes[0] == 'p' || bytes[0] == 'P') {
        key = Key::Pause;
    } else if (bytes[0] == '[') {
        key = Key::Slower;
    } else if (bytes[0] == ']') {
        key = Key::Faster;
    } else if (bytes[0] == '{') {
        key = Key::Halve;
    } else if (bytes[0] == '}') {
        key = Key::Double;
    } else if (bytes[0] == 0x7f || bytes[0] == 0x08) {
        key = Key::TempoReset;
    } else if (bytes[0] == '9') {
        key = Key::VolumeDown;
    } else if (bytes[0] == '0') {
        key = Key::VolumeUp;
    } else if (bytes[0] == 'm' || bytes[0] == 'M') {
        key = Key::Mute;
    } else if (bytes[0] == 'l' || bytes[0] == 'L') {
        key = Key::LoopPoint;
    } else if (bytes[0] == '?') {
        key = Key::Help;
    } else if (bytes[0] == 0x1b && count == 1) {
        // Escape on its own; arrows come as a sequence in one read.
        key = Key::Quit;
    } else if (bytes[0] == 0x1b && count >= 3 && bytes[1] == '[') {
        // Arrow keys arrive as ESC [ A..D.
        used = 3;
        switch (bytes[2]) {
        case 'A': key = Key::Up; break;
        case 'B': key = Key::Down; break;
        case 'C': key = Key::Right; break;
        case 'D': key = Key::Left; break;
        default: break;
        }
    }
    std::memmove(bytes, bytes + used, count - used);
    count -= used;
    return key;
}

}  // namespace platform
