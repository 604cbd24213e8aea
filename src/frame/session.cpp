// Session start and end, and message lookup.
#include <cstring>

#include "frame/messages.h"
#include "frame/result.h"

namespace mergedb {
namespace {

HINSTANCE moduleWord = nullptr;

constexpr int LAST_CODE_WITH_TEXT = 23;

}  // namespace

int loadOemText(UINT id, int bufferSize, char *out) {
    char buffer[KIND_NAME_SIZE];
    int count = LoadStringA(moduleWord, id, buffer, bufferSize);
    if (count > 0) CharToOemA(buffer, out);
    return count;
}

}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbInitMerge(uint16_t session, uint32_t, uint32_t, uint32_t, uint32_t *sessionOut,
                                             void *module) {
    if (sessionOut != nullptr) *sessionOut = session;
    if (moduleWord == nullptr) moduleWord = static_cast<HINSTANCE>(module);
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbExitMerge(uint32_t *sessionSlot) {
    if (sessionSlot != nullptr) *sessionSlot = 0;
    return DB_RESULT_OK;
}

// The low half of code, taken as signed, picks the text: 0 to 23 their own,
// everything else the general text.
extern "C" int MERGEDB_CALL dbErrMsgMerge(uint32_t code, char *buffer) {
    if (buffer == nullptr) return 0;
    auto low = static_cast<int16_t>(code & 0xFFFF);
    UINT id = (low >= 0 && low <= LAST_CODE_WITH_TEXT) ? static_cast<UINT>(low) : UINT{DB_MSG_GENERAL};
    int count = LoadStringA(moduleWord, id, buffer, MESSAGE_BUFFER_SIZE);
    // A text the module lacks may leave the host's bytes, which need not be
    // terminated: convert no further than the buffer's stated size.
    CharToOemBuffA(buffer, buffer, static_cast<DWORD>(strnlen(buffer, MESSAGE_BUFFER_SIZE)));
    return count;
}
