#pragma once
#include <cstdint>

#include "platform/Types.h"

// The process-wide language slot, 0 to 3; every new control sets it to 1.
extern int16_t g_languageType;

constexpr int kMessageSlotBytes = 260;
constexpr int kMenuSlotBytes = 20;

// Splits catalogue entry `id` into the caller's four buffers, each of
// `slotBytes` bytes. 1 when the entry was found, 0 when not (buffers left
// as they were).
int LoadLanguageStrings(UINT id, char* slot0, char* slot1, char* slot2, char* slot3,
                        int slotBytes = kMessageSlotBytes);

// Shows entry `id` in the current language in a modal box, or `fallback`
// when the entry can't be loaded. The caller then goes on with its own
// failure path.
void ReportMessage(UINT id, const char* fallback);
