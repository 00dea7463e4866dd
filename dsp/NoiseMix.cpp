#include "dsp/NoiseMix.h"

#include <cmath>
#include <cstring>

namespace {

// Maps an unsigned 16-bit reading onto -1..1 exactly; its magnitude is
// 1 - level, so it shrinks as the signed sample gets louder.
constexpr float kSampleScale = 3.0517578125e-05f;

// Pairs whose (1 - level) product is above this can be added without leaving
// the 16-bit range.
constexpr float kAddableProduct = 0.25f;

const float kLevelFactor = float(std::log10(20.0));

uint16_t LoadUnsigned16(const uint8_t* at) {
    uint16_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

void StoreUnsigned16(uint8_t* at, uint16_t value) { std::memcpy(at, &value, sizeof value); }

float Centred(uint16_t value) { return float(int32_t(value) - 32768) * kSampleScale; }

}  // namespace

void MixNoise16(uint8_t* block, uint32_t byteCount, const uint8_t* noise, uint32_t noiseBytes, uint32_t* noiseIndex) {
    const uint32_t noiseSamples = noiseBytes / 2;
    if (noiseSamples == 0) return;
    // A position from another sound must not index past this one.
    uint32_t index = *noiseIndex < noiseSamples ? *noiseIndex : 0;

    const uint32_t sampleCount = byteCount / 2;
    for (uint32_t k = 0; k < sampleCount; ++k) {
        uint8_t* at = block + 2 * k;
        const uint16_t sample = LoadUnsigned16(at);
        const float noiseMeasure = Centred(LoadUnsigned16(noise + 2 * index));
        const float blockMeasure = Centred(sample);
        if (++index == noiseSamples) index = 0;
        const float product = std::fabs(noiseMeasure * blockMeasure);
        const uint16_t taken = LoadUnsigned16(noise + 2 * index);
        if (product > kAddableProduct) {
            StoreUnsigned16(at, uint16_t(sample + taken));
        } else if (std::fabs(blockMeasure) > std::fabs(noiseMeasure)) {
            StoreUnsigned16(at, taken);
        }
    }
    *noiseIndex = index;
}

void MixNoise8(uint8_t* block, uint32_t byteCount, const uint8_t* noise, uint32_t noiseBytes, uint32_t* noiseIndex) {
    if (noiseBytes == 0) return;
    uint32_t index = *noiseIndex < noiseBytes ? *noiseIndex : 0;

    for (uint32_t k = 0; k < byteCount; ++k) {
        const uint32_t mean = (uint32_t(noise[index]) + uint32_t(block[k])) >> 1;
        // The mean is raised around 0, not around the silence value 128, and
        // anything above 255 wraps.
        block[k] = uint8_t(uint32_t(double(mean) * double(kLevelFactor)));
        if (++index == noiseBytes) index = 0;
    }
    *noiseIndex = index;
}

void MixNoiseBlock(const NoiseSound& sound, uint8_t* block, uint32_t byteCount, uint32_t* noiseIndex) {
    const uint32_t noiseBytes = uint32_t(sound.data.size());
    if (sound.bitsPerSample == 16) {
        MixNoise16(block, byteCount, sound.data.data(), noiseBytes, noiseIndex);
    } else if (sound.bitsPerSample == 8) {
        MixNoise8(block, byteCount, sound.data.data(), noiseBytes, noiseIndex);
    }
}

CNoiseSlot::~CNoiseSlot() {
    delete m_pending.load(std::memory_order_acquire);
    delete m_current;
    FreeList(m_retired.load(std::memory_order_acquire));
}

void CNoiseSlot::FreeList(Publication* head) {
    while (head != nullptr) {
        Publication* next = head->nextRetired;
        delete head;
        head = next;
    }
}

void CNoiseSlot::Publish(std::shared_ptr<const NoiseSound> sound) {
    m_hostSound = sound;
    auto* publication = new Publication{std::move(sound), nullptr};
    // A publication the device never took up was never read: free it here.
    delete m_pending.exchange(publication, std::memory_order_acq_rel);
    FreeList(m_retired.exchange(nullptr, std::memory_order_acquire));
}

void CNoiseSlot::TakeUpPending() {
    Publication* publication = m_pending.exchange(nullptr, std::memory_order_acq_rel);
    if (publication == nullptr) return;
    // The sound left behind may be the last reference: hand it to the host
    // to free, so the device thread never waits on the allocator.
    if (m_current != nullptr) {
        m_current->nextRetired = m_retired.load(std::memory_order_relaxed);
        while (!m_retired.compare_exchange_weak(m_current->nextRetired, m_current, std::memory_order_release,
                                                std::memory_order_relaxed)) {
        }
    }
    m_current = publication;
    if (m_current->sound) m_noiseIndex = 0;
}

bool CNoiseSlot::Mix(uint8_t* data, uint32_t byteCount, uint16_t channels, uint16_t bitsPerSample,
                     uint32_t samplesPerSec, bool mixOn) {
    TakeUpPending();
    if (data == nullptr || m_current == nullptr || !m_current->sound || !mixOn) return false;
    const NoiseSound& sound = *m_current->sound;
    if (sound.channels != channels || sound.bitsPerSample != bitsPerSample || sound.samplesPerSec != samplesPerSec) {
        return false;
    }
    MixNoiseBlock(sound, data, byteCount, &m_noiseIndex);
    return true;
}

uint32_t CNoiseSlot::NoiseIndex() {
    TakeUpPending();
    return m_noiseIndex;
}
