#include "json_text.h"

#include <cstdio>
#include <set>

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

std::vector<std::string> jsonKeys(const std::vector<std::string> &names) {
    std::set<std::string> taken(names.begin(), names.end());
    std::set<std::string> used;
    std::vector<std::string> keys;
    for (const std::string &name : names) {
        std::string key = name;
        for (int suffix = 2; used.contains(key) || (key != name && taken.contains(key)); ++suffix) {
            key = name + "_" + std::to_string(suffix);
        }
        used.insert(key);
        keys.push_back(jsonString(key));
    }
    return keys;
}

std::string jsonObject(const std::vector<std::string> &keys, const std::vector<std::string> &values) {
    std::string text = "{";
    for (size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : ",") + keys[i] + ":" + jsonString(values[i]);
    return text + "}";
}

}  // namespace mergedb::host
