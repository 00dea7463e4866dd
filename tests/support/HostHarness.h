#pragma once
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/MessageBox.h"
#include "platform/Messages.h"
#include "platform/WaveOut.h"

// What a host sees of the system in a test: a manual device stepped one
// buffer at a time, a manual clock, a window that records every message it
// gets, and a box handler that records every box and answers OK.
class HostHarness {
public:
    struct Message {
        UINT message;
        WPARAM wParam;
        LPARAM lParam;
        bool operator==(const Message&) const = default;
    };

    HostHarness();
    ~HostHarness();
    HostHarness(const HostHarness&) = delete;
    HostHarness& operator=(const HostHarness&) = delete;

    HWND Window() const { return m_window; }
    platform::ManualClock& Clock() { return m_clock; }

    // Completes the next `count` queued buffers; false if the device ran dry.
    bool Step(int count = 1);
    size_t Queued() const;
    std::string PlayedBytes() const;
    void Pump();

    // Messages received so far, and those of one kind; Take clears the list.
    std::vector<Message> Take();
    std::vector<Message> Received(UINT message) const;
    std::vector<platform::MessageBoxRequest>& Boxes() { return m_boxes; }
    std::vector<int> BoxIds() const;

private:
    platform::ManualClock m_clock{100000};
    HWND m_window = nullptr;
    std::vector<Message> m_messages;
    std::vector<platform::MessageBoxRequest> m_boxes;
};
