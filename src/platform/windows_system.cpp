// The system's language on Windows, with the setting that tests use in place
// of a system of another language.
#include "platform/windows_api.h"

namespace mergedb {
namespace {

LANGID languageOverride = 0;

}  // namespace

LANGID GetSystemDefaultLangID() { return languageOverride != 0 ? languageOverride : ::GetSystemDefaultLangID(); }

void systemLanguageOverride(LANGID language) { languageOverride = language; }

}  // namespace mergedb
