#include "edit_support.h"

#include "output.h"

namespace mergedb::cli {

using host::Failure;

void report(const std::string &done, size_t count, const std::string &how) {
    writeOut(done + " " + recordCount(count) + how + "\n");
}

void requireWholeForEdit(const std::string &label, const host::CheckedWalk &walk) {
    if (walk.issues() == 0) return;
    throw Failure(label, "was not read whole (told above), so nothing was changed; make it read whole first");
}

void requireChoice(const Invocation &invocation, const std::string &label, size_t fitting, size_t records) {
    if (invocation.has("--all") || fitting < records || records < 2) return;
    throw Failure(label, "the example fits all " + std::to_string(records) +
                             " records; give --all to " + std::string(invocation.command().name) +
                             " every record (a '*' stands for any run of characters)");
}

std::string whereText(const host::CheckedWalk &walk) {
    return "record " + std::to_string(walk.number()) + " at byte " + std::to_string(walk.offset());
}

}  // namespace mergedb::cli
