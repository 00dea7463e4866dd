#pragma once
// The engine's inner state that only tests and benchmarks read: where the
// data starts, the position history behind GetCurrentPlayTime, whether the
// device told its end, and the gain of the last scan.
#include <cstdint>

#include "engine/WavOut.h"

class CWavOutProbe {
public:
    static uint32_t DataStart(const CWavOut& engine) { return engine.m_dataStart; }
    static uint32_t PositionHistory(const CWavOut& engine, int index) { return engine.m_positionHistory[index].load(); }
    static bool IsEnded(const CWavOut& engine) { return engine.m_bEnded.load() != 0; }
    static float Gain(const CWavOut& engine) { return engine.m_gain.load(); }
};
