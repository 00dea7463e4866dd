#include "media/WavWriter.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "riff/LittleEndian.h"
#include "riff/WavHead.h"

namespace media {
WavWriter::~WavWriter() = default;

bool WavWriter::Open(const std::string& path, uint16_t channels, uint32_t sampleRate)
{
    if (channels == 0 || sampleRate == 0) return false;
    if (!m_file.Open(path.c_str(), CFile::modeCreate | CFile::modeWrite | CFile::typeBinary)) return false;
    m_channels = channels;
    m_sampleRate = sampleRate;
    m_frames = 0;
    m_full = m_failed = false;
    m_buffered = 0;
    uint8_t head[44];
    riff::PutCanonicalWavHead(head, riff::Pcm16Format(channels, sampleRate), 0);
    m_failed = m_file.Write(head, sizeof head) != sizeof head;
    return !m_failed;
}

bool WavWriter::Append(const int16_t* samples, size_t frames)
{
    if (!m_file.IsOpen() || m_failed) return false;
    const size_t frameBytes = size_t(m_channels) * 2;
    const uint64_t room = (kLargestDataBytes / frameBytes) - m_frames;
    size_t taken = static_cast<size_t>(std::min<uint64_t>(frames, room));
    m_full = taken < frames;
    const uint8_t* from = reinterpret_cast<const uint8_t*>(samples);
    size_t bytes = taken * frameBytes;
    m_frames += taken;
    while (bytes > 0) {
        const size_t chunk = std::min(bytes, sizeof m_buffer - m_buffered);
        if constexpr (std::endian::native == std::endian::little) {
            std::memcpy(m_buffer + m_buffered, from, chunk);
        } else {
            for (size_t i = 0; i + 1 < chunk; i += 2) {
                int16_t value;
                std::memcpy(&value, from + i, 2);
                riff::PutU16(m_buffer + m_buffered + i, uint16_t(value));
            }
        }
        m_buffered += chunk;
        from += chunk;
        bytes -= chunk;
        if (m_buffered == sizeof m_buffer && !Flush()) return false;
    }
    return !m_full;
}

bool WavWriter::Flush()
{
    if (m_buffered == 0) return true;
    if (m_file.Write(m_buffer, static_cast<uint32_t>(m_buffered)) != m_buffered) m_failed = true;
    m_buffered = 0;
    return !m_failed;
}

bool WavWriter::Finish()
{
    if (!m_file.IsOpen()) return false;
    Flush();
    uint8_t head[44];
    riff::PutCanonicalWavHead(head, riff::Pcm16Format(m_channels, m_sampleRate),
                              static_cast<uint32_t>(m_frames * m_channels * 2));
    if (m_file.Seek(0, CFile::begin) != 0 || m_file.Write(head, sizeof head) != sizeof head) m_failed = true;
    m_file.Close();
    return !m_failed;
}

}  // namespace media
