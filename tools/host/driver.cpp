#include "driver.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "codepage.h"

namespace mergedb::host {
namespace {

// Buffers that the driver fills without being told their size.
constexpr size_t MESSAGE_BUFFER = 81;
constexpr size_t LONG_TEXT_BUFFER = 32001;
constexpr size_t NAME_BUFFER = 256;

// Where a binary that holds this code may find the message module: beside
// it, as in the build tree, or in the library folder of its installation.
void addPlaces(std::vector<std::filesystem::path> &places, const std::filesystem::path &binary) {
    places.push_back(binary.parent_path() / MERGEDB_MESSAGES_FILE);
    places.push_back(binary.parent_path().parent_path() / MERGEDB_LIBDIR / MERGEDB_MESSAGES_FILE);
}

// The message module near the program, else near the loadable module that
// holds this code, else the one of the configured installation prefix.
void *loadMessages() {
    std::vector<std::filesystem::path> places;
    std::error_code error;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) addPlaces(places, self);
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&addPlaces), &info) != 0 && info.dli_fname != nullptr &&
        info.dli_fname[0] == '/') {
        addPlaces(places, info.dli_fname);
    }
    places.push_back(std::filesystem::path(MERGEDB_INSTALL_LIBDIR) / MERGEDB_MESSAGES_FILE);
    for (const std::filesystem::path &place : places) {
        if (void *module = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL)) return module;
    }
    return nullptr;
}

// The names of a walk of the driver, which mode 1 starts and mode 0 goes on
// with until the end of the data. next gives the driver's answer for a mode
// and leaves the name in the buffer.
template <typename Next>
std::vector<std::string> walkNames(const Session &session, const std::string &context, Next next) {
    std::vector<std::string> names;
    char name[NAME_BUFFER] = "";
    for (uint16_t mode = DB_WALK_FIRST;; mode = DB_WALK_NEXT) {
        DbResult result = next(name, mode);
        if (result == DB_RESULT_END_OF_DATA) return names;
        session.check(result, context);
        names.emplace_back(name);
    }
}

// The driver's text for a result, or what stands in for it without the
// message module.
std::string driverMessage(DbResult result) {
    char text[MESSAGE_BUFFER] = "";
    dbErrMsgMerge(result, text);
    if (text[0] != '\0') return toUtf8(text, Encoding::Cp437);
    return "driver error " + std::to_string(DB_RESULT_CODE(result)) + " (the message module was not found)";
}

// A text of zero length would mark the field as blank instead of emptying it.
uint16_t putLength(const std::string &text) { return static_cast<uint16_t>(std::max<size_t>(text.size(), 1)); }

}  // namespace

Session::Session() {
    // The module stays loaded: the driver keeps its handle for its lifetime.
    dbInitMerge(1, 0, 0, 0, &session_, loadMessages());
}

Session::~Session() { dbExitMerge(&session_); }

std::string Session::dataTypeName() const {
    char name[NAME_BUFFER] = "";
    check(dbGetTypeNamesMerge(0, 0, name, DB_WALK_FIRST), "data type");
    return toUtf8(name, Encoding::Cp437);
}

void Session::check(DbResult result, const std::string &context) const {
    if (result == DB_RESULT_OK) return;
    throw DriverError(context, driverMessage(result), DB_RESULT_CODE(result));
}

Database::Database(const Session &session, uint16_t subtype, const std::string &path)
    : session_(session), label_(path.empty() ? "." : toUtf8(path, Encoding::Cp437)) {
    session.check(dbOpenDBMerge(subtype, 0, 0, path.empty() ? nullptr : path.c_str(), &handle_), label_);
}

Database::~Database() { dbCloseDBMerge(&handle_); }

std::vector<std::string> Database::tableNames() const {
    return walkNames(session_, label_,
                     [this](char *name, uint16_t mode) { return dbGetTableNamesMerge(handle_, name, mode); });
}

std::vector<std::pair<uint16_t, std::string>> Database::tableKinds() const {
    std::vector<uint16_t> kinds;
    std::vector<std::string> names = walkNames(session_, label_, [this, &kinds](char *name, uint16_t mode) {
        uint16_t kind = 0;
        DbResult result = dbGetDBSubTypesMerge(handle_, name, &kind, mode);
        if (result == DB_RESULT_OK) kinds.push_back(kind);
        return result;
    });
    std::vector<std::pair<uint16_t, std::string>> named;
    for (size_t i = 0; i < names.size(); ++i) named.emplace_back(kinds[i], toUtf8(names[i], Encoding::Cp437));
    return named;
}

std::string Database::textInfo(uint16_t item) const {
    char text[NAME_BUFFER] = "";
    session_.check(dbGetDBInfoMerge(handle_, text, item), "database information");
    return toUtf8(text, Encoding::Cp437);
}

bool Database::exists(const std::string &name) const {
    uint32_t exists = 0;
    session_.check(dbExistsMerge(0, handle_, name.c_str(), &exists), toUtf8(name, Encoding::Cp437));
    return exists != 0;
}

void Database::erase(const std::string &name) const {
    session_.check(dbEraseMerge(0, handle_, name.c_str()), toUtf8(name, Encoding::Cp437));
}

void Database::create(const std::string &name, const std::string &label, uint16_t kind,
                      const std::vector<std::string> &fields) const {
    uint32_t list = 0;
    for (const std::string &field : fields) session_.check(dbBuildMerge(&list, field.c_str()), label);
    session_.check(dbCreateMerge(handle_, name.c_str(), list, kind), label);
}

Table::Table(const Database &database, const std::string &name, const std::string &label, uint16_t subtype,
             const Delimiters &delimiters, Access access)
    : session_(database.session()), label_(label), buffer_(LONG_TEXT_BUFFER) {
    bool readOnly = access == Access::Read;
    check(dbOpenTableMerge(subtype, database.handle(), name.c_str(),
                           readOnly ? DB_ACCESS_READ_ONLY : DB_ACCESS_READ_WRITE,
                           readOnly ? DB_SHARED_FOR_READING : DB_EXCLUSIVE, &handle_, delimiters.field.c_str(),
                           delimiters.record.c_str(), delimiters.quote.c_str(), delimiters.ignore.c_str(), 0));
}

Table::~Table() {
    if (handle_ != 0 && !edited_) dbCloseTableMerge(&handle_);
}

uint16_t Table::kind() const {
    uint16_t kind = 0;
    check(dbGetTableInfoMerge(handle_, &kind, DB_TABLE_ITEM_KIND));
    return kind;
}

uint16_t Table::fieldCount() const {
    uint16_t count = 0;
    check(dbGetTableInfoMerge(handle_, &count, DB_TABLE_ITEM_FIELD_COUNT));
    return count;
}

std::vector<std::string> Table::fieldNames() const {
    uint16_t index = 0;
    return walkNames(session_, label_, [this, &index](char *name, uint16_t mode) {
        return dbGetFieldNamesMerge(handle_, name, &index, mode);
    });
}

std::array<uint16_t, 4> Table::fieldNumbers(uint16_t index) const {
    std::array<uint16_t, 4> numbers{};
    check(dbGetFieldInfoHMerge(handle_, index, numbers.data(), DB_FIELD_ITEM_NUMBERS));
    return numbers;
}

Moved Table::jump(uint32_t offset) { return moved(dbGetRecordMerge(handle_, 0, nullptr, offset)); }

Moved Table::find(bool first) {
    return moved(dbFindRecordMerge(handle_, 0, 0, 0, first ? DB_WALK_FIRST : DB_WALK_NEXT, DB_BLANK_MATCHES_ANY));
}

std::string Table::value(uint16_t index) {
    uint16_t length = 0;
    check(dbGetFieldValueHMerge(handle_, index, buffer_.data(), DB_TYPE_LONG_TEXT, &length));
    return std::string(buffer_.data(), std::min<size_t>(length, buffer_.size() - 1));
}

std::vector<std::string> Table::values(uint16_t count) {
    std::vector<std::string> all;
    for (uint16_t i = 0; i < count; ++i) all.push_back(value(i));
    return all;
}

void Table::clear() { check(dbClearRecordMerge(handle_)); }

void Table::put(uint16_t index, const std::string &bytes) {
    check(dbPutFieldValueHMerge(handle_, index, bytes.c_str(), DB_TYPE_LONG_TEXT, putLength(bytes)));
}

void Table::putByName(const std::string &name, const std::string &bytes) {
    check(dbPutFieldValueMerge(handle_, name.c_str(), bytes.c_str(), DB_TYPE_LONG_TEXT, putLength(bytes)));
}

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

Moved Table::moved(DbResult result) {
    if (result == DB_RESULT_OK) return Moved::Record;
    if (result == DB_RESULT_END_OF_DATA) return Moved::End;
    moveError_ = driverMessage(result);
    return Moved::Unsplit;
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

}  // namespace mergedb::host
