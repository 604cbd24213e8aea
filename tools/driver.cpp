#include "driver.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "codepage.h"

namespace tool {
namespace {

// Buffers that the driver fills without being told their size.
constexpr size_t MESSAGE_BUFFER = 81;
constexpr size_t LONG_TEXT_BUFFER = 32001;
constexpr size_t NAME_BUFFER = 256;

constexpr uint16_t START_WALK = 1;
constexpr uint16_t GO_ON = 0;
constexpr uint16_t TABLE_KIND = 1;
constexpr uint16_t TABLE_FIELD_COUNT = 2;
constexpr uint16_t FIELD_INDEX = 3;
constexpr uint16_t FIELD_NUMBERS = 4;
constexpr uint16_t OPTION_ANSI_TEXT = 1;

// The message module beside the tool as in the build tree, else the one of
// the installation that holds the tool, else the one of the configured
// installation prefix.
void *loadMessages() {
    std::error_code error;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    std::vector<std::filesystem::path> places;
    if (!error) {
        places.push_back(self.parent_path() / MERGEDB_MESSAGES_FILE);
        places.push_back(self.parent_path().parent_path() / MERGEDB_LIBDIR / MERGEDB_MESSAGES_FILE);
    }
    places.push_back(std::filesystem::path(MERGEDB_INSTALL_LIBDIR) / MERGEDB_MESSAGES_FILE);
    for (const std::filesystem::path &place : places) {
        if (void *module = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL)) return module;
    }
    return nullptr;
}

uint16_t sniffSubtype(const std::string &file) {
    static constexpr char TAGGED_MAGIC[4] = {'\xFF', 'Z', 'R', 'N'};
    char head[4] = {};
    std::ifstream in(file, std::ios::binary);
    in.read(head, sizeof head);
    return in && std::memcmp(head, TAGGED_MAGIC, sizeof head) == 0 ? DB_SUBTYPE_TAGGED : DB_SUBTYPE_DELIMITED;
}

// The names of a walk of the driver, which mode 1 starts and mode 0 goes on
// with until the end of the data. next gives the driver's answer for a mode
// and leaves the name in the buffer.
template <typename Next>
std::vector<std::string> walkNames(const Session &session, const std::string &context, Next next) {
    std::vector<std::string> names;
    char name[NAME_BUFFER] = "";
    for (uint16_t mode = START_WALK;; mode = GO_ON) {
        DbResult result = next(name, mode);
        if (result == DB_RESULT_END_OF_DATA) return names;
        session.check(result, context);
        names.emplace_back(name);
    }
}

// A text of zero length would mark the field as blank instead of emptying it.
uint16_t putLength(const std::string &text) { return static_cast<uint16_t>(std::max<size_t>(text.size(), 1)); }

}  // namespace

Session::Session(bool utf8) : utf8_(utf8) {
    // The module stays loaded: the driver keeps its handle for its lifetime.
    dbInitMerge(1, 0, 0, 0, &session_, loadMessages());
}

Session::~Session() { dbExitMerge(&session_); }

std::string Session::show(std::string_view oem) const { return utf8_ ? oemToUtf8(oem) : std::string(oem); }

std::string Session::dataTypeName() const {
    char name[NAME_BUFFER] = "";
    check(dbGetTypeNamesMerge(0, 0, name, START_WALK), "data type");
    return show(name);
}

void Session::check(DbResult result, const std::string &context) const {
    if (result == DB_RESULT_OK) return;
    char text[MESSAGE_BUFFER] = "";
    dbErrMsgMerge(result, text);
    std::string message = text[0] != '\0' ? show(text)
                                          : "driver error " + std::to_string(DB_RESULT_CODE(result)) +
                                                " (the message module was not found)";
    throw Failure(context, message);
}

Database::Database(const Session &session, uint16_t subtype, const std::string &path)
    : session_(session), path_(path) {
    session.check(dbOpenDBMerge(subtype, 0, 0, path.empty() ? nullptr : path.c_str(), &handle_),
                  path.empty() ? "." : path);
}

Database::~Database() { dbCloseDBMerge(&handle_); }

std::string Database::filePath(const std::string &name) const { return path_.empty() ? name : path_ + "/" + name; }

std::vector<std::string> Database::tableNames() const {
    return walkNames(session_, path_,
                     [this](char *name, uint16_t mode) { return dbGetTableNamesMerge(handle_, name, mode); });
}

std::vector<std::pair<uint16_t, std::string>> Database::tableKinds() const {
    std::vector<uint16_t> kinds;
    std::vector<std::string> names = walkNames(session_, path_, [this, &kinds](char *name, uint16_t mode) {
        uint16_t kind = 0;
        DbResult result = dbGetDBSubTypesMerge(handle_, name, &kind, mode);
        if (result == DB_RESULT_OK) kinds.push_back(kind);
        return result;
    });
    std::vector<std::pair<uint16_t, std::string>> named;
    for (size_t i = 0; i < names.size(); ++i) named.emplace_back(kinds[i], session_.show(names[i]));
    return named;
}

std::string Database::textInfo(uint16_t item) const {
    char text[NAME_BUFFER] = "";
    session_.check(dbGetDBInfoMerge(handle_, text, item), "database information");
    return session_.show(text);
}

bool Database::exists(const std::string &name) const {
    uint32_t exists = 0;
    session_.check(dbExistsMerge(0, handle_, name.c_str(), &exists), name);
    return exists != 0;
}

void Database::erase(const std::string &name) const { session_.check(dbEraseMerge(0, handle_, name.c_str()), name); }

void Database::create(const TablePath &path, uint16_t kind, const std::vector<std::string> &fields) const {
    uint32_t list = 0;
    for (const std::string &field : fields) session_.check(dbBuildMerge(&list, field.c_str()), path.label);
    session_.check(dbCreateMerge(handle_, path.name.c_str(), list, kind), path.label);
}

Table::Table(const Database &database, const TablePath &path, const Delimiters &delimiters, Access access)
    : session_(database.session()), label_(path.label), buffer_(LONG_TEXT_BUFFER) {
    bool readOnly = access == Access::Read;
    check(dbOpenTableMerge(sniffSubtype(database.filePath(path.name)), database.handle(), path.name.c_str(),
                           readOnly ? 1 : 0, readOnly ? 0 : 1, &handle_, delimiters.field.c_str(),
                           delimiters.record.c_str(), delimiters.quote.c_str(), delimiters.ignore.c_str(), 0));
    if (delimiters.ansi) check(dbSetTableOptionMerge(handle_, OPTION_ANSI_TEXT));
}

Table::~Table() {
    if (handle_ != 0 && !edited_) dbCloseTableMerge(&handle_);
}

uint16_t Table::kind() const {
    uint16_t kind = 0;
    check(dbGetTableInfoMerge(handle_, &kind, TABLE_KIND));
    return kind;
}

uint16_t Table::fieldCount() const {
    uint16_t count = 0;
    check(dbGetTableInfoMerge(handle_, &count, TABLE_FIELD_COUNT));
    return count;
}

std::vector<std::string> Table::fieldNames() const {
    uint16_t index = 0;
    return walkNames(session_, label_, [this, &index](char *name, uint16_t mode) {
        return dbGetFieldNamesMerge(handle_, name, &index, mode);
    });
}

uint16_t Table::fieldIndex(const std::string &name) const {
    uint16_t index = 0;
    session_.check(dbGetFieldInfoMerge(handle_, name.c_str(), &index, FIELD_INDEX),
                   label_ + ": field " + session_.show(name));
    return index;
}

std::array<uint16_t, 4> Table::fieldNumbers(uint16_t index) const {
    std::array<uint16_t, 4> numbers{};
    check(dbGetFieldInfoHMerge(handle_, index, numbers.data(), FIELD_NUMBERS));
    return numbers;
}

bool Table::find(bool first, bool blankRule) {
    return moved(dbFindRecordMerge(handle_, 0, 0, 0, first ? 1 : 0, blankRule ? 1 : 0));
}

std::string Table::value(uint16_t index) {
    uint16_t length = 0;
    check(dbGetFieldValueHMerge(handle_, index, buffer_.data(), DB_TYPE_LONG_TEXT, &length));
    return std::string(buffer_.data(), std::min<size_t>(length, buffer_.size() - 1));
}

std::vector<std::string> Table::values(const std::vector<uint16_t> &indexes) {
    std::vector<std::string> values;
    values.reserve(indexes.size());
    for (uint16_t index : indexes) values.push_back(value(index));
    return values;
}

void Table::clear() { check(dbClearRecordMerge(handle_)); }

void Table::put(uint16_t index, const std::string &text) {
    check(dbPutFieldValueHMerge(handle_, index, text.c_str(), DB_TYPE_LONG_TEXT, putLength(text)));
}

void Table::putByName(const std::string &name, const std::string &text) {
    check(dbPutFieldValueMerge(handle_, name.c_str(), text.c_str(), DB_TYPE_LONG_TEXT, putLength(text)));
}

void Table::putBlank(uint16_t index) { check(dbPutFieldValueHMerge(handle_, index, "", DB_TYPE_LONG_TEXT, 0)); }

void Table::insert() { check(dbInsertMerge(handle_, 0, nullptr)); }

void Table::update() {
    edited_ = true;
    check(dbUpdateMerge(handle_, 0, nullptr));
}

void Table::remove() {
    edited_ = true;
    check(dbDeleteMerge(handle_));
}

void Table::close() {
    check(dbCloseTableMerge(&handle_));
    edited_ = false;
}

bool Table::moved(DbResult result) {
    if (result == DB_RESULT_END_OF_DATA) return false;
    check(result);
    return true;
}

void Table::check(DbResult result) const { session_.check(result, label_); }

std::string_view kindName(uint16_t kind) {
    switch (kind) {
    case DB_KIND_DELIMITED: return "text";
    case DB_KIND_TAGGED_0: return "tagged0";
    case DB_KIND_TAGGED_1: return "tagged1";
    default: return "unknown";
    }
}

}  // namespace tool
