// delete: the records that fit an example go, through the driver's deletes,
// or from 200 of them on in one rewrite of the table.
#include "commands.h"
#include "edit_support.h"
#include "match.h"
#include "open_table.h"
#include "output.h"
#include "rebuild.h"

namespace mergedb::cli {
namespace {

using host::Access;
using host::CheckedWalk;
using host::Failure;

// The driver rewrites and reopens a table at every 200th delete; from that
// many deletes on, the tool rewrites the table once instead.
constexpr size_t DELETES_PER_COMPACTION = 200;

// The current record as a line of CSV.
std::string recordLine(CheckedWalk &walk) {
    std::vector<std::string> values;
    for (uint16_t i = 0; i < walk.fieldCount(); ++i) values.push_back(walk.value(i));
    return csvLine(values);
}

// Folds each record into a digest of a sequence of records, so that a
// rewritten table can be held against the records that it must keep. The
// rewrite copies whole records, so a record boundary in the wrong place
// would change the number of records or the first or last value of one;
// those are what the digest takes.
class Digest {
public:
    void add(CheckedWalk &walk) {
        uint64_t record = FNV_OFFSET;
        uint16_t count = walk.fieldCount();
        for (uint16_t field : {uint16_t{0}, static_cast<uint16_t>(count - 1)}) {
            if (field >= count) continue;
            std::string value = walk.bytes(field);
            mix(record, std::to_string(value.size()) + ":");
            mix(record, value);
        }
        sequence_ = sequence_ * FNV_PRIME ^ record;
    }
    bool operator==(const Digest &other) const = default;

private:
    static constexpr uint64_t FNV_OFFSET = 14695981039346656037ull;
    static constexpr uint64_t FNV_PRIME = 1099511628211ull;
    static void mix(uint64_t &hash, std::string_view bytes) {
        for (char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * FNV_PRIME;
    }
    uint64_t sequence_ = FNV_OFFSET;
};

// What the first pass of a delete found: the records that go, by number and
// by their place in the file, and a digest of those that stay.
struct DeletePlan {
    std::vector<size_t> numbers;
    std::vector<host::Extent> extents;
    Digest kept;
    size_t records = 0;
    uint64_t dataEnd = 0;
};

void deleteThroughDriver(OpenTable &open, const DeletePlan &plan) {
    auto next = plan.numbers.begin();
    walkNumbers(open, [&](size_t number) {
        if (next != plan.numbers.end() && *next == number) {
            open.table.remove();
            ++next;
        }
    });
    commitEdits(open);
}

// The rewritten table must read whole through the driver, and hold the
// kept records and nothing else, in order.
void checkRewritten(OpenTable &open, const Digest &kept, const host::TableFile &rewritten) {
    host::Table table(open.database, rewritten.driverName, open.file.label, open.format.subtype(),
                      open.format.delimiters, Access::Read);
    size_t issues = 0;
    CheckedWalk walk(table, rewritten, open.format, [&issues](const host::Issue &) { ++issues; });
    Digest found;
    while (walk.next()) found.add(walk);
    table.close();
    if (issues != 0 || !(found == kept)) {
        throw Failure(open.file.label, "the rewritten table did not read back as it should; nothing was changed");
    }
}

void deleteByRewrite(OpenTable &open, DeletePlan &plan) {
    host::keepByteOrderMark(plan.extents, open.format.bomLength);
    host::rebuildHeld(open.table, open.file, plan.dataEnd, plan.extents,
                      [&](const host::TableFile &rewritten) { checkRewritten(open, plan.kept, rewritten); });
}

}  // namespace

int runDelete(const Invocation &invocation) {
    OpenTable open(invocation, invocation.operands()[0], Access::Write);
    const std::string &label = open.file.label;
    IssuePrinter issues(label);
    CheckedWalk walk(open.table, open.file, open.format, issues.sink());
    Example example(invocation, invocation.values("--where"), "--where NAME=PATTERN", walk.names(), label);
    DeletePlan plan;
    bool dryRun = invocation.has("--dry-run");
    std::vector<std::string> preview;
    while (walk.next()) {
        ++plan.records;
        if (!example.fits(walk)) {
            plan.kept.add(walk);
            continue;
        }
        plan.numbers.push_back(walk.number());
        plan.extents.push_back({walk.offset(), walk.length()});
        if (dryRun) preview.push_back(whereText(walk) + ": " + recordLine(walk));
    }
    plan.dataEnd = walk.dataEnd();
    requireWholeForEdit(label, walk);
    requireChoice(invocation, label, plan.numbers.size(), plan.records);
    if (dryRun) {
        for (const std::string &line : preview) writeOut(line + "\n");
        report("would delete", plan.numbers.size());
        return 0;
    }
    if (plan.numbers.size() < DELETES_PER_COMPACTION) {
        deleteThroughDriver(open, plan);
        report("deleted", plan.numbers.size());
    } else {
        deleteByRewrite(open, plan);
        report("deleted", plan.numbers.size(), ", in one rewrite of the table");
    }
    return 0;
}

}  // namespace mergedb::cli
