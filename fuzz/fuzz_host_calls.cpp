// A sequence of host calls decoded from the input: moves, puts, clears,
// inserts, updates, deletes, finds, and close and reopen, on a table that
// the target makes. After every call the result and the field values are
// compared with a model that the target keeps: the records in file order
// (a deleted one stays until a commit), the current record, the values the
// host put, and the search criteria.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "fuzz_support.h"

using namespace mergedb::fuzz;

namespace {

constexpr std::string_view ALPHABET = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t VALUE_LIMIT = 6;
constexpr int FIELD_LIMIT = 6;
constexpr int RECORD_LIMIT = 12;
constexpr uint32_t COMPACTION_DELETES = 200;
// The position in front of the first record: the head record of a tagged
// table, current after an open. No record is there.
constexpr int HEAD = -1;
constexpr int NONE = -1;

// The strings a delimited table is made with; values of letters and digits
// never hold one of them.
constexpr std::string_view FIELD_DELIMITERS[] = {",", ";", "\t", "||"};
constexpr std::string_view RECORD_DELIMITERS[] = {"\n", "\r\n", "#\n"};
constexpr std::string_view QUOTES[] = {"\"", "'", ""};
constexpr std::string_view IGNORES[] = {"", " "};

template <typename T, size_t N>
const T &pick(Reader &input, const T (&choices)[N]) {
    return choices[input.byte() % N];
}

// A record as walks show it, and as its bytes stand in the file until the
// next commit.
struct Record {
    std::vector<std::string> values;
    bool alive = true;
    std::vector<std::string> stored = values;
};

// A field entry as the host sees it: the text that reads give, and whether
// that text goes into a record built from the entries.
struct Entry {
    std::string text;
    bool inRecord = false;
    bool blank = false;
};

struct Model {
    bool tagged = false;
    int fieldCount = 0;
    std::vector<Record> records;
    int current = HEAD;
    // The current record is a deleted one read afresh from the file, which
    // has lost the mark of its delete: an update brings it back.
    bool currentReread = false;
    std::vector<Entry> entries;
    std::optional<std::vector<std::string>> criteria;
    uint32_t pendingDeletes = 0;

    // After an open: the edits are in the file, and the current record is
    // where field discovery left it, with empty values.
    void reopened() {
        std::erase_if(records, [](const Record &r) { return !r.alive; });
        for (Record &r : records) r.stored = r.values;
        current = tagged ? HEAD : 0;
        currentReread = false;
        entries.assign(fieldCount, Entry{});
        criteria.reset();
        pendingDeletes = 0;
    }
    int aliveAfter(int index) const {
        for (int i = index + 1; i < static_cast<int>(records.size()); ++i) {
            if (records[i].alive) return i;
        }
        return NONE;
    }
    int aliveBefore(int index) const {
        for (int i = index - 1; i >= 0; --i) {
            if (records[i].alive) return i;
        }
        return NONE;
    }
    int aliveCount() const {
        return static_cast<int>(std::count_if(records.begin(), records.end(), [](const Record &r) { return r.alive; }));
    }
    void load(int index) {
        current = index;
        currentReread = false;
        for (int f = 0; f < fieldCount; ++f) entries[f] = {records[index].values[f], true, entries[f].blank};
    }
    std::vector<std::string> image() const {
        std::vector<std::string> values;
        for (const Entry &e : entries) values.push_back(e.inRecord ? e.text : "");
        return values;
    }
    bool matches(int index, bool blankRule) const {
        if (!criteria) return true;
        for (int f = 0; f < fieldCount; ++f) {
            const std::string &c = (*criteria)[f];
            const std::string &v = records[index].values[f];
            bool fits = c.empty() ? !(blankRule && entries[f].blank && !v.empty()) : c == v;
            if (!fits) return false;
        }
        return true;
    }
};

class HostCalls {
public:
    explicit HostCalls(Reader &input) : input_(input) {}

    void run() {
        makeTable();
        open(0);
        while (!input_.empty()) step();
        walk();
        reopen();
        walk();
        FUZZ_CHECK(dbCloseTableMerge(&table_) == DB_RESULT_OK);
        FUZZ_CHECK(readFile(backupName()).empty());
        removeFile(tableName());
    }

private:
    std::string tableName() const { return model_.tagged ? "h.doc" : "d.txt"; }
    std::string backupName() const { return model_.tagged ? "h.bk" : "d.bk"; }

    std::string value() {
        std::string text;
        for (size_t length = input_.byte() % (VALUE_LIMIT + 1); text.size() < length;) {
            text.push_back(ALPHABET[input_.byte() % ALPHABET.size()]);
        }
        return text;
    }

    // The table and its first records, from the front of the input.
    void makeTable() {
        uint8_t kind = input_.byte() % 3;
        model_.tagged = kind != 0;
        model_.fieldCount = 1 + input_.byte() % FIELD_LIMIT;
        int records = input_.byte() % RECORD_LIMIT;
        if (!model_.tagged) {
            records = std::max(records, 1);
            field_ = pick(input_, FIELD_DELIMITERS);
            record_ = pick(input_, RECORD_DELIMITERS);
            quote_ = pick(input_, QUOTES);
            ignore_ = pick(input_, IGNORES);
        }
        for (int r = 0; r < records; ++r) {
            Record record;
            for (int f = 0; f < model_.fieldCount; ++f) record.values.push_back(value());
            model_.records.push_back(record);
        }
        if (model_.tagged) {
            createTagged(kind == 1 ? DB_KIND_TAGGED_0 : DB_KIND_TAGGED_1);
        } else {
            std::string text;
            for (const Record &r : model_.records) {
                for (int f = 0; f < model_.fieldCount; ++f) {
                    text += (f == 0 ? "" : field_) + quote_ + r.values[f] + quote_;
                }
                text += record_;
            }
            writeFile(tableName(), text);
        }
    }

    // A tagged table made by the driver, and its records put in by inserts.
    void createTagged(uint16_t kind) {
        uint32_t list = 0;
        for (int f = 0; f < model_.fieldCount; ++f) {
            FUZZ_CHECK(dbBuildMerge(&list, fieldName(f).c_str()) == DB_RESULT_OK);
        }
        uint32_t database = scratchDatabase(DB_SUBTYPE_TAGGED);
        FUZZ_CHECK(dbCreateMerge(database, tableName().c_str(), list, kind) == DB_RESULT_OK);
        FUZZ_CHECK(dbOpenTableMerge(DB_SUBTYPE_TAGGED, database, tableName().c_str(), 0, 0, &table_, nullptr,
                                    nullptr, nullptr, nullptr, 0) == DB_RESULT_OK);
        for (const Record &r : model_.records) {
            FUZZ_CHECK(dbClearRecordMerge(table_) == DB_RESULT_OK);
            for (int f = 0; f < model_.fieldCount; ++f) {
                FUZZ_CHECK(dbPutFieldValueHMerge(table_, static_cast<uint16_t>(f), r.values[f].c_str(), DB_TYPE_TEXT,
                                                 static_cast<uint16_t>(r.values[f].size())) == DB_RESULT_OK);
            }
            FUZZ_CHECK(dbInsertMerge(table_, 0, nullptr) == DB_RESULT_OK);
        }
        FUZZ_CHECK(dbCloseTableMerge(&table_) == DB_RESULT_OK);
    }

    std::string fieldName(int f) const { return (model_.tagged ? "f" : "") + std::to_string(f + 1); }

    void open(uint16_t exclusive) {
        DbResult result = model_.tagged
                              ? dbOpenTableMerge(DB_SUBTYPE_TAGGED, scratchDatabase(DB_SUBTYPE_TAGGED),
                                                 tableName().c_str(), 0, exclusive, &table_, nullptr, nullptr,
                                                 nullptr, nullptr, 0)
                              : dbOpenTableMerge(DB_SUBTYPE_DELIMITED, scratchDatabase(DB_SUBTYPE_DELIMITED),
                                                 tableName().c_str(), 0, exclusive, &table_, field_.c_str(),
                                                 record_.c_str(), quote_.c_str(), ignore_.c_str(), 0);
        FUZZ_CHECK(result == DB_RESULT_OK);
        uint16_t count = 0;
        FUZZ_CHECK(dbGetTableInfoMerge(table_, &count, 2) == DB_RESULT_OK && count == model_.fieldCount);
        model_.reopened();
        check(DB_RESULT_OK, DB_RESULT_OK);
    }

    void reopen() {
        FUZZ_CHECK(dbCloseTableMerge(&table_) == DB_RESULT_OK);
        open(input_.byte() & 1);
    }

    // What the host sees now: the result of the last call, and every field.
    // MERGEDB_FUZZ_TRACE=1 in the environment lists the calls on the way.
    void check(DbResult result, DbResult expected) {
        static const bool tracing = std::getenv("MERGEDB_FUZZ_TRACE") != nullptr;
        if (tracing) {
            std::string records;
            for (const Record &r : model_.records) {
                records += r.alive ? " [" : " x[";
                for (const std::string &v : r.values) records += v + "|";
                records += "]";
            }
            std::fprintf(stderr, "%s: result %08x, expected %08x, current %d:%s\n", call_, result, expected,
                         model_.current, records.c_str());
        }
        FUZZ_CHECK(result == expected);
        char buffer[255];
        for (int f = 0; f < model_.fieldCount; ++f) {
            uint16_t length = 0xEEEE;
            std::memset(buffer, 0, sizeof buffer);
            FUZZ_CHECK(dbGetFieldValueHMerge(table_, static_cast<uint16_t>(f), buffer, DB_TYPE_TEXT, &length) ==
                       DB_RESULT_OK);
            const std::string &text = model_.entries[f].text;
            FUZZ_CHECK(length == text.size() && text == buffer);
        }
        uint16_t length = 0;
        FUZZ_CHECK(dbGetFieldValueHMerge(table_, static_cast<uint16_t>(model_.fieldCount), buffer, DB_TYPE_TEXT,
                                         &length) == DB_RESULT_ERROR(ERR_NO_FIELD));
    }

    // A move to the record at index, or to none.
    DbResult moveTo(int index) {
        if (index == NONE) return DB_RESULT_END_OF_DATA;
        model_.load(index);
        return DB_RESULT_OK;
    }

    DbResult first() {
        DbResult expected = moveTo(model_.aliveAfter(HEAD));
        // A tagged table reads its head record on the way to the first record.
        if (expected != DB_RESULT_OK && model_.tagged) {
            model_.current = HEAD;
            model_.currentReread = false;
        }
        return expected;
    }

    DbResult last() {
        auto records = static_cast<int>(model_.records.size());
        // The walk back from the end of a delimited file of one byte finds
        // no record.
        bool oneByte = !model_.tagged && records == 1 && model_.fieldCount == 1 && quote_.empty() &&
                       record_.size() == 1 && model_.records[0].stored[0].empty();
        if (oneByte) return DB_RESULT_END_OF_DATA;
        DbResult expected = moveTo(model_.aliveBefore(records));
        // The last record of the file is read before the walk back over
        // deleted records that find none alive.
        if (expected != DB_RESULT_OK && model_.tagged && records != 0) {
            model_.current = records - 1;
            model_.currentReread = true;
        }
        return expected;
    }

    DbResult next() { return moveTo(model_.aliveAfter(model_.current)); }
    DbResult prev() { return model_.current == HEAD ? DB_RESULT_END_OF_DATA : moveTo(model_.aliveBefore(model_.current)); }

    void put() {
        int field = input_.byte() % (model_.fieldCount + (model_.tagged ? 1 : 0));
        std::string text = value();
        uint8_t how = input_.byte() % 4;
        auto length = static_cast<uint16_t>(how == 0 ? 0 : text.size() + (how == 1 ? 0 : how));
        DbResult result = how == 3 ? dbPutFieldValueMerge(table_, fieldName(field).c_str(), text.c_str(),
                                                          DB_TYPE_TEXT, length)
                                   : dbPutFieldValueHMerge(table_, static_cast<uint16_t>(field), text.c_str(),
                                                           DB_TYPE_TEXT, length);
        if (field == model_.fieldCount) return check(result, DB_RESULT_ERROR(ERR_NO_FIELD));
        Entry &entry = model_.entries[field];
        if (length == 0) {
            entry.inRecord = false;
            entry.blank = true;
        } else {
            entry.text = text;
            entry.inRecord = !text.empty();
        }
        check(result, DB_RESULT_OK);
    }

    void putNumber() {
        int field = input_.byte() % model_.fieldCount;
        uint32_t bits = 0;
        for (int i = 0; i < 4; ++i) bits = bits << 8 | input_.byte();
        auto number = static_cast<int32_t>(bits);
        DbResult result = dbPutFieldValueHMerge(table_, static_cast<uint16_t>(field), &number, DB_TYPE_INT32, 4);
        model_.entries[field] = {std::to_string(number), true, model_.entries[field].blank};
        check(result, DB_RESULT_OK);
    }

    void clear() {
        DbResult result = dbClearRecordMerge(table_);
        model_.entries.assign(model_.fieldCount, Entry{});
        check(result, DB_RESULT_OK);
    }

    void insert() {
        DbResult result = dbInsertMerge(table_, 0, nullptr);
        model_.records.push_back({model_.image(), true});
        model_.current = static_cast<int>(model_.records.size()) - 1;
        model_.currentReread = false;
        check(result, DB_RESULT_OK);
    }

    // The head record is never updated: its image would replace the names.
    void update() {
        if (model_.current == HEAD) return;
        DbResult result = dbUpdateMerge(table_, 0, nullptr);
        Record &record = model_.records[model_.current];
        if (record.alive || model_.currentReread) {
            record.values = model_.image();
            record.alive = true;
        }
        model_.currentReread = false;
        check(result, DB_RESULT_OK);
    }

    // Nor is it deleted; and a delimited table keeps one record, so that
    // its fields survive a commit.
    void remove() {
        if (model_.current == HEAD) return;
        Record &record = model_.records[model_.current];
        if (!model_.tagged && record.alive && model_.aliveCount() == 1) return;
        DbResult result = dbDeleteMerge(table_);
        record.alive = false;
        model_.currentReread = false;
        if (++model_.pendingDeletes == COMPACTION_DELETES) model_.reopened();
        check(result, DB_RESULT_OK);
    }

    void find() {
        uint8_t flags = input_.byte();
        bool fromFirst = flags & 1;
        bool blankRule = flags & 2;
        DbResult result = dbFindRecordMerge(table_, 0, 0, 0, fromFirst ? 1 : 0, blankRule);
        if (fromFirst) {
            model_.criteria.emplace();
            for (const Entry &e : model_.entries) model_.criteria->push_back(e.text);
        }
        DbResult expected = fromFirst ? first() : next();
        while (expected == DB_RESULT_OK && !model_.matches(model_.current, blankRule)) expected = next();
        check(result, expected);
    }

    void walk() {
        check(dbFirstMerge(table_), first());
        for (DbResult expected = DB_RESULT_OK; expected == DB_RESULT_OK;) {
            expected = next();
            check(dbNextMerge(table_, 0, nullptr), expected);
        }
        uint32_t mark = 0;
        check(dbLastMerge(table_, 1, &mark), last());
        for (DbResult expected = DB_RESULT_OK; expected == DB_RESULT_OK;) {
            expected = prev();
            check(dbPrevMerge(table_, 0, nullptr), expected);
        }
    }

    void step() {
        static constexpr const char *NAMES[] = {"first",  "next",   "prev", "last",   "put",    "put number", "clear",
                                                "insert", "update", "delete", "find", "reopen", "walk",  "delete run"};
        uint8_t call = input_.byte() % std::size(NAMES);
        call_ = NAMES[call];
        switch (call) {
        case 0: return check(dbFirstMerge(table_), first());
        case 1: return check(dbNextMerge(table_, 0, nullptr), next());
        case 2: return check(dbPrevMerge(table_, 0, nullptr), prev());
        case 3: return check(dbLastMerge(table_, 0, nullptr), last());
        case 4: return put();
        case 5: return putNumber();
        case 6: return clear();
        case 7: return insert();
        case 8: return update();
        case 9: return remove();
        case 10: return find();
        case 11: return reopen();
        case 12: return walk();
        default:
            // A run of deletes, each followed by a step forward.
            for (int n = 1 + input_.byte() % 32; n > 0; --n) {
                remove();
                check(dbNextMerge(table_, 0, nullptr), next());
            }
        }
    }

    Reader &input_;
    Model model_;
    uint32_t table_ = 0;
    const char *call_ = "open";
    std::string field_, record_, quote_, ignore_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Reader input(data, size);
    HostCalls(input).run();
    return 0;
}
