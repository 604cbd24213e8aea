// The host's side of the driver: a session with the message module, and
// databases and tables that close themselves. Every call goes through the
// public interface of the library. Names and texts cross it in code page
// 437; what the driver says comes back as UTF-8.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "failure.h"
#include "mergedb/mergedb.h"

namespace mergedb::host {

// A failure that the driver reported, with its error code.
class DriverError : public Failure {
public:
    DriverError(const std::string &context, std::string reason, uint16_t code)
        : Failure(context, std::move(reason)), code_(code) {}
    uint16_t code() const { return code_; }

private:
    uint16_t code_;
};

class Session {
public:
    // Loads the English message module and starts a driver session.
    Session();
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // The name of the driver's one data type.
    std::string dataTypeName() const;
    // Throws a DriverError with the driver's own text for a result that is
    // not 0.
    void check(DbResult result, const std::string &context) const;

private:
    uint32_t session_ = 0;
};

// The four strings of delimited text.
struct Delimiters {
    std::string field = ",";
    std::string record = "\r\n";
    std::string quote = "\"";
    std::string ignore;
};

class Database {
public:
    // path is the directory in code page 437; empty for the current one.
    Database(const Session &session, uint16_t subtype, const std::string &path);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    const Session &session() const { return session_; }
    uint32_t handle() const { return handle_; }

    // Table names as the driver gives them, in code page 437.
    std::vector<std::string> tableNames() const;
    // The table kinds that a database of this subtype offers, with their names.
    std::vector<std::pair<uint16_t, std::string>> tableKinds() const;
    // Answers of dbGetDBInfoMerge: a text, or a number of the item's width.
    std::string textInfo(uint16_t item) const;
    template <typename Number>
    Number numberInfo(uint16_t item) const {
        Number number = 0;
        session_.check(dbGetDBInfoMerge(handle_, &number, item), "database information");
        return number;
    }
    bool exists(const std::string &name) const;
    void erase(const std::string &name) const;
    // A new table named name (code page 437); label names it in messages.
    void create(const std::string &name, const std::string &label, uint16_t kind,
                const std::vector<std::string> &fields) const;

private:
    const Session &session_;
    std::string label_;  // the path in UTF-8, for messages
    uint32_t handle_ = 0;
};

enum class Access { Read, Write };

// Where a move ended: on a record, at the end of the data, or on a record
// whose values the driver could not split into the fields (unsplit, with
// the driver's message in Table::moveError()).
enum class Moved { Record, End, Unsplit };

class Table {
public:
    // Opens the table name (code page 437) of database, a tagged document or
    // delimited text by subtype. label names it in messages.
    Table(const Database &database, const std::string &name, const std::string &label, uint16_t subtype,
          const Delimiters &delimiters, Access access);
    // An edited table that was not closed is left open, so that the updates
    // and deletes of a failed command never reach the file.
    ~Table();
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    const Session &session() const { return session_; }
    const std::string &label() const { return label_; }
    uint16_t kind() const;
    uint16_t fieldCount() const;
    // Names in code page 437.
    std::vector<std::string> fieldNames() const;
    std::array<uint16_t, 4> fieldNumbers(uint16_t index) const;

    Moved first() { return moved(dbFirstMerge(handle_)); }
    Moved last() { return moved(dbLastMerge(handle_, 0, nullptr)); }
    Moved next() { return moved(dbNextMerge(handle_, 0, nullptr)); }
    Moved previous() { return moved(dbPrevMerge(handle_, 0, nullptr)); }
    // Reads the record at a file offset; the walk goes on from there.
    Moved jump(uint32_t offset);
    // The next record that fits the example of the values put since clear(),
    // ignoring case, with a '*' ending a prefix; first starts the search at
    // the first record, else it goes on behind the current one. The driver
    // ends a search at a record it can't read as it ends it at the end.
    Moved find(bool first);
    const std::string &moveError() const { return moveError_; }

    // The bytes of a value as the driver gives them.
    std::string value(uint16_t index);
    // The bytes of the first count values of the current record.
    std::vector<std::string> values(uint16_t count);

    void clear();
    // Bytes are stored with a non-zero length, so empty bytes empty the field.
    void put(uint16_t index, const std::string &bytes);
    // On a delimited table a name that is not there yet becomes a field.
    void putByName(const std::string &name, const std::string &bytes);
    void insert();
    void update();
    void remove();
    // Commits pending edits.
    void close();

private:
    Moved moved(DbResult result);
    void check(DbResult result) const;

    const Session &session_;
    std::string label_;
    uint32_t handle_ = 0;
    bool edited_ = false;
    std::string moveError_;
    std::vector<char> buffer_;
};

// The kind of a table as the tool names it: tagged0, tagged1 or text.
std::string_view kindName(uint16_t kind);

}  // namespace mergedb::host
