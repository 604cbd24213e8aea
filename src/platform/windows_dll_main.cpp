// The entry point of mergedb.dll. The library keeps no per-thread state, so
// it asks not to be told of threads; it does nothing else at load.
#include "platform/windows_api.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    return TRUE;
}
