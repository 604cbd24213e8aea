// The host's side of the driver: a session with the message module, and
// databases and tables that close themselves. Every call goes through the
// public interface of the library.
#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mergedb/mergedb.h"

namespace tool {

// A failure that ends the command with status 1: what failed, and why, ready
// to print.
class Failure : public std::runtime_error {
public:
    Failure(const std::string &context, std::string reason)
        : std::runtime_error(context + ": " + reason), reason_(std::move(reason)) {}
    const std::string &reason() const { return reason_; }

private:
    std::string reason_;
};

class Session {
public:
    // Loads the English message module and starts a driver session. With
    // utf8, text from the driver is shown as UTF-8.
    explicit Session(bool utf8);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // OEM text of the driver, as the terminal gets it.
    std::string show(std::string_view oem) const;
    // The name of the driver's one data type.
    std::string dataTypeName() const;
    // Throws a Failure with the driver's own text for a result that is not 0.
    void check(DbResult result, const std::string &context) const;

private:
    uint32_t session_ = 0;
    bool utf8_;
};

// The four strings of delimited text, and whether its file holds ANSI text
// that the driver converts (option 1 of the table).
struct Delimiters {
    std::string field = ",";
    std::string record = "\r\n";
    std::string quote = "\"";
    std::string ignore;
    bool ansi = false;
};

// Where a table is, as the command line named it.
struct TablePath {
    std::string directory;  // empty for the current directory
    std::string name;
    std::string label;  // for messages
};

class Database {
public:
    // An empty path stands for the current directory.
    Database(const Session &session, uint16_t subtype, const std::string &path);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    const Session &session() const { return session_; }
    uint32_t handle() const { return handle_; }
    // The path of a table file of this database, for the tool's own file calls.
    std::string filePath(const std::string &name) const;

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
    void create(const TablePath &path, uint16_t kind, const std::vector<std::string> &fields) const;

private:
    const Session &session_;
    std::string path_;
    uint32_t handle_ = 0;
};

enum class Access { Read, Write };

class Table {
public:
    // Opens the table as a tagged document when the file begins like one,
    // and as delimited text otherwise.
    Table(const Database &database, const TablePath &path, const Delimiters &delimiters, Access access);
    // An edited table that was not closed is left open, so that the updates
    // and deletes of a failed command never reach the file.
    ~Table();
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    const Session &session() const { return session_; }
    const std::string &label() const { return label_; }
    uint16_t kind() const;
    uint16_t fieldCount() const;
    std::vector<std::string> fieldNames() const;
    uint16_t fieldIndex(const std::string &name) const;
    std::array<uint16_t, 4> fieldNumbers(uint16_t index) const;

    // Moves give false at the end of the data.
    bool first() { return moved(dbFirstMerge(handle_)); }
    bool last() { return moved(dbLastMerge(handle_, 0, nullptr)); }
    bool next() { return moved(dbNextMerge(handle_, 0, nullptr)); }
    bool previous() { return moved(dbPrevMerge(handle_, 0, nullptr)); }
    bool find(bool first, bool blankRule);

    std::string value(uint16_t index);
    std::vector<std::string> values(const std::vector<uint16_t> &indexes);

    void clear();
    // Text is stored with a non-zero length, so an empty text empties the field.
    void put(uint16_t index, const std::string &text);
    // On a delimited table a name that is not there yet becomes a field.
    void putByName(const std::string &name, const std::string &text);
    // A zero-length put: the field must be empty for a search with the blank rule.
    void putBlank(uint16_t index);
    void insert();
    void update();
    void remove();
    // Commits pending edits.
    void close();

private:
    bool moved(DbResult result);
    void check(DbResult result) const;

    const Session &session_;
    std::string label_;
    uint32_t handle_ = 0;
    bool edited_ = false;
    std::vector<char> buffer_;
};

// The kind of a table as the tool names it: tagged0, tagged1 or text.
std::string_view kindName(uint16_t kind);

}  // namespace tool
