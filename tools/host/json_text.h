// Text as JSON: a string with its quotes and escapes, and an object of
// fields. The text is UTF-8 already, so only ASCII needs a look.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mergedb::host {

std::string jsonString(std::string_view utf8);

// The keys of objects whose fields have these names, as JSON strings, each
// once: a name that an earlier field has already gets "_2" behind it, or
// "_3" and so on, the first that no field has.
std::vector<std::string> jsonKeys(const std::vector<std::string> &names);

// {"key":"value",...}; keys are JSON strings already (jsonString), one for
// each value.
std::string jsonObject(const std::vector<std::string> &keys, const std::vector<std::string> &values);

}  // namespace mergedb::host
