#include "messages/MessageCatalogue.h"

#include <cstring>

#include "platform/Debug.h"
#include "platform/MessageBox.h"
#include "resources/StringTable.h"

int16_t g_languageType = 1;

namespace {

// Copies one slot, cut to the buffer: the catalogue holds no longer text,
// but a buffer overrun must stay impossible whatever the table says.
void CopySlot(char* slot, int slotBytes, const char* begin, size_t length)
{
    if (slot == nullptr || slotBytes <= 0) return;
    size_t room = static_cast<size_t>(slotBytes) - 1;
    if (length > room) length = room;
    std::memcpy(slot, begin, length);
    slot[length] = '\0';
}

}  // namespace

int LoadLanguageStrings(UINT id, char* slot0, char* slot1, char* slot2, char* slot3, int slotBytes)
{
    OutputDebugStringA("LoadLanguage!");
    const char* entry = LoadStringResource(id);
    if (entry == nullptr) {
        OutputDebugStringA("Failure!");
        return 0;
    }
    char* slots[4] = {slot0, slot1, slot2, slot3};
    for (char* slot : slots) CopySlot(slot, slotBytes, "", 0);

    const char* textStart = entry;
    for (char* slot : slots) {
        const char* textEnd = std::strchr(textStart, '\r');
        size_t length = textEnd != nullptr ? static_cast<size_t>(textEnd - textStart) : std::strlen(textStart);
        CopySlot(slot, slotBytes, textStart, length);
        if (textEnd == nullptr) break;
        textStart = textEnd + 1;
    }
    OutputDebugStringA("LoadLanguage-success!");
    return 1;
}

void ReportMessage(UINT id, const char* fallback)
{
    char slots[4][kMessageSlotBytes];
    const char* text = fallback != nullptr ? fallback : "";
    if (LoadLanguageStrings(id, slots[0], slots[1], slots[2], slots[3]) == 1) {
        // An out-of-range language can't be stored, but the slot index is
        // still kept inside the four buffers.
        int slot = g_languageType >= 0 && g_languageType <= 3 ? g_languageType : 1;
        text = slots[slot];
    }
    platform::ShowCatalogueBox(static_cast<int>(id), text, MB_OK);
}
