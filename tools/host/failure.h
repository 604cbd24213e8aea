// How the host code reports a failure: a Failure exception that carries what
// failed and why, ready to show. A caller that must not let an exception
// pass (a C callback such as SQLite's) runs the code through guard(), which
// turns every exception into a message.
#pragma once

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace mergedb::host {

class Failure : public std::runtime_error {
public:
    Failure(const std::string &context, std::string reason)
        : std::runtime_error(context + ": " + reason), reason_(std::move(reason)) {}
    const std::string &reason() const { return reason_; }

private:
    std::string reason_;
};

// Runs body; nothing when it ended normally, else the message of what it
// threw. body's own result, if any, is dropped: capture it by reference.
template <typename Body>
std::optional<std::string> guard(Body &&body) noexcept {
    try {
        std::forward<Body>(body)();
        return std::nullopt;
    } catch (const std::exception &error) {
        try {
            return std::string(error.what());
        } catch (...) {
            return std::optional<std::string>("no memory");  // short enough to need no allocation
        }
    } catch (...) {
        return std::optional<std::string>("an unknown failure");
    }
}

}  // namespace mergedb::host
