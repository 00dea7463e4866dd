#include "support/HostHarness.h"

HostHarness::HostHarness()
{
    platform::AudioBackendConfig config;
    config.backend = platform::AudioBackend::Manual;
    platform::SetAudioBackend(config);
    platform::ManualWaveOut::ClearFailures();
    platform::SetClock(&m_clock);
    platform::SetMessageBoxHandler([this](const platform::MessageBoxRequest& request) {
        m_boxes.push_back(request);
        return IDOK;
    });
    m_window = CreateMessageWindow([this](HWND, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        m_messages.push_back({message, wParam, lParam});
        return 0;
    });
}

HostHarness::~HostHarness()
{
    DestroyWindow(m_window);
    platform::SetMessageBoxHandler(nullptr);
    platform::SetClock(nullptr);
    platform::ManualWaveOut::ClearFailures();
}

bool HostHarness::Step(int count)
{
    for (int i = 0; i < count; ++i) {
        platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
        if (device == nullptr || !device->Step()) return false;
    }
    return true;
}

size_t HostHarness::Queued() const
{
    platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
    return device != nullptr ? device->QueuedCount() : 0;
}

std::string HostHarness::PlayedBytes() const
{
    platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
    return device != nullptr ? device->PlayedBytes() : std::string();
}

void HostHarness::Pump()
{
    platform::PumpPendingMessages();
}

std::vector<HostHarness::Message> HostHarness::Take()
{
    Pump();
    std::vector<Message> taken;
    taken.swap(m_messages);
    return taken;
}

std::vector<HostHarness::Message> HostHarness::Received(UINT message) const
{
    std::vector<Message> matching;
    for (const Message& m : m_messages) {
        if (m.message == message) matching.push_back(m);
    }
    return matching;
}

std::vector<int> HostHarness::BoxIds() const
{
    std::vector<int> ids;
    for (const auto& box : m_boxes) ids.push_back(box.catalogueId);
    return ids;
}
