#include "json_text.h"

#include <cstdio>

namespace mergedb::host {

std::string jsonString(std::string_view utf8) {
    std::string out = "\"";
    out.reserve(utf8.size() + 2);
    for (char c : utf8) {
        auto byte = static_cast<unsigned char>(c);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += c;
        } else if (byte < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(byte));
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + '"';
}

std::string jsonObject(const std::vector<std::string> &keys, const std::vector<std::string> &values) {
    std::string text = "{";
    for (size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : ",") + keys[i] + ":" + jsonString(values[i]);
    return text + "}";
}

}  // namespace mergedb::host
