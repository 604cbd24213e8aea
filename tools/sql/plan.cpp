#include "plan.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "codepage.h"

namespace mergedb::sql {
namespace {

constexpr double JUMP_COST = 10;
constexpr double FIND_SHARE = 0.25;  // a find costs less than a walk: no call per field and record
constexpr double EQUAL_SHARE = 0.01;  // of the records that an example of = lets through
constexpr double PREFIX_SHARE = 0.1;
constexpr size_t LONGEST_CRITERION = DB_LONGEST_PUT;

constexpr char EQUAL = '=';
constexpr char LIKE = '~';
constexpr char GLOB = '*';

struct Operator {
    unsigned char constraint;
    char code;
    std::string_view word;
    std::string_view wildcards;  // the characters that end the fixed start of a pattern
};

constexpr Operator OPERATORS[] = {
    {SQLITE_INDEX_CONSTRAINT_EQ, EQUAL, "=", ""},
    {SQLITE_INDEX_CONSTRAINT_LIKE, LIKE, "LIKE", "%_"},
    {SQLITE_INDEX_CONSTRAINT_GLOB, GLOB, "GLOB", "*?["},
};

const Operator *operatorOf(unsigned char constraint) {
    for (const Operator &op : OPERATORS) {
        if (op.constraint == constraint) return &op;
    }
    return nullptr;
}

const Operator *operatorCoded(char code) {
    for (const Operator &op : OPERATORS) {
        if (op.code == code) return &op;
    }
    return nullptr;
}

// The driver compares ignoring case: as loose as SQLite's = only under the
// collations that are no looser themselves.
bool collationAllows(sqlite3_index_info *info, int constraint) {
    const char *collation = sqlite3_vtab_collation(info, constraint);
    return collation == nullptr || sqlite3_stricmp(collation, "BINARY") == 0 || sqlite3_stricmp(collation, "NOCASE") == 0;
}

char *planText(const std::string &text) { return sqlite3_mprintf("%s", text.c_str()); }

void setPlan(sqlite3_index_info *info, Way way, const std::string &text, double cost, double rows) {
    info->idxNum = static_cast<int>(way);
    info->idxStr = planText(text);
    info->needToFreeIdxStr = 1;
    info->estimatedCost = cost;
    info->estimatedRows = static_cast<sqlite3_int64>(std::max(rows, 1.0));
}

bool rowidJump(sqlite3_index_info *info) {
    for (int i = 0; i < info->nConstraint; ++i) {
        const auto &constraint = info->aConstraint[i];
        if (!constraint.usable || constraint.iColumn != -1 || constraint.op != SQLITE_INDEX_CONSTRAINT_EQ) continue;
        info->aConstraintUsage[i].argvIndex = 1;
        info->aConstraintUsage[i].omit = 1;
        info->orderByConsumed = 1;
        info->idxFlags |= SQLITE_INDEX_SCAN_UNIQUE;
        setPlan(info, Way::Jump, "rowid jump (dbGetRecordMerge)", JUMP_COST, 1);
        return true;
    }
    return false;
}

bool findByExample(sqlite3_index_info *info, const std::vector<std::string> &columns, double records) {
    std::string words;
    std::string codes;
    std::vector<bool> taken(columns.size());
    double share = 1;
    int argument = 0;
    for (int i = 0; i < info->nConstraint; ++i) {
        const auto &constraint = info->aConstraint[i];
        const Operator *op = operatorOf(constraint.op);
        if (!constraint.usable || op == nullptr || constraint.iColumn < 0) continue;
        auto column = static_cast<size_t>(constraint.iColumn);
        if (column >= columns.size() || taken[column]) continue;
        if (op->code == EQUAL && !collationAllows(info, i)) continue;
        taken[column] = true;
        info->aConstraintUsage[i].argvIndex = ++argument;
        words += std::string(words.empty() ? "" : ", ") + columns[column] + " " + std::string(op->word) + " ?";
        codes += std::to_string(column) + op->code;
        share *= op->code == EQUAL ? EQUAL_SHARE : PREFIX_SHARE;
    }
    if (argument == 0) return false;
    setPlan(info, Way::Find, "find by example (dbFindRecordMerge): " + words + " [" + codes + "]",
            records * FIND_SHARE, records * share);
    return true;
}

}  // namespace

void choosePlan(sqlite3_index_info *info, const std::vector<std::string> &columns, double records) {
    if (rowidJump(info)) return;
    bool byRowid = info->nOrderBy == 1 && info->aOrderBy[0].iColumn == -1;
    if (byRowid && info->aOrderBy[0].desc) {
        info->orderByConsumed = 1;
        setPlan(info, Way::Backward, "walk back from the last record (dbLastMerge, dbPrevMerge)", records, records);
        return;
    }
    // A find gives its records in the order of the file, as the walk does.
    info->orderByConsumed = byRowid;
    if (findByExample(info, columns, records)) return;
    setPlan(info, Way::Forward, "walk forward (dbFirstMerge, dbNextMerge), checked against the file", records,
            records);
}

std::vector<Criterion> exampleOf(const std::string &planText, int argc, sqlite3_value **argv, const Source &source) {
    std::vector<Criterion> example;
    size_t open = planText.rfind('[');
    if (open == std::string::npos) return example;
    std::string_view codes = std::string_view(planText).substr(open + 1);
    for (int argument = 0; argument < argc && !codes.empty() && codes.front() != ']'; ++argument) {
        size_t length = codes.find_first_not_of("0123456789");
        auto field = static_cast<uint16_t>(std::stoul(std::string(codes.substr(0, length))));
        const Operator *op = operatorCoded(codes[length]);
        codes.remove_prefix(length + 1);
        const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(argv[argument]));
        // A value before a byte-order mark would not meet the driver's
        // match, which sees the mark as part of the first field.
        if (op == nullptr || text == nullptr || (field == 0 && source.format().bomLength != 0)) continue;
        std::string_view pattern(text);
        size_t fixed = pattern.find_first_of(op->wildcards);
        host::Encoded stored = host::fromUtf8(pattern.substr(0, fixed), source.format().textTarget(), false);
        std::string &bytes = stored.bytes;
        if (fixed != std::string_view::npos || !stored.problem.empty() || bytes.size() > LONGEST_CRITERION) {
            bytes = bytes.substr(0, LONGEST_CRITERION - 1) + "*";
        }
        if (bytes.empty() || bytes == "*") continue;  // an empty start fits every value
        example.push_back({field, bytes});
    }
    return example;
}

}  // namespace mergedb::sql
