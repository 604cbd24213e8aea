// Helpers shared by the tests: temporary databases built from bytes the test
// writes, and the host's side of a session.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mergedb/mergedb.h"

namespace mergedb::test {

using Bytes = std::vector<uint8_t>;

Bytes bytesOf(const std::string &text);

// The parts one behind the other.
Bytes join(const std::vector<Bytes> &parts);

// The bytes written in hexadecimal, separated by blanks: "DE 34 06".
Bytes hex(const std::string &text);

// A path written with "/" in the platform's own separators.
std::string native(std::string path);

// A directory of its own under the system's temporary directory, removed
// with everything in it at the end of its scope.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    // name below the directory; a "/" in it separates as the platform does.
    std::string file(const std::string &name) const;
    void write(const std::string &name, const Bytes &bytes) const;
    void write(const std::string &name, const std::string &text) const { write(name, bytesOf(text)); }
    Bytes read(const std::string &name) const;
    bool exists(const std::string &name) const;

private:
    std::string path_;
};

// How many blocks the registry holds, for the tests that look for leaks.
uint32_t liveBlocks();

#if defined(__linux__)
// How many descriptors of this process hold a file whose path ends in name
// and whose name is gone.
int heldAfterDelete(const std::string &name);
#endif

// The English resource module, loaded once and handed to dbInitMerge.
void *messagesModule();

// dbInitMerge with the English module, then dbOpenDBMerge on dir, with the
// files of the database going through faultEnv(). Gives the database handle.
uint32_t openDatabase(const TempDir &dir, uint16_t subtype = DB_SUBTYPE_DELIMITED);

// Opens a delimited table with the given strings; gives the DbResult.
DbResult openDelimited(uint32_t database, const std::string &name, uint32_t *table, const char *fieldDelimiter = ",",
                       const char *recordDelimiter = "\r\n", const char *quote = "\"", const char *ignore = "",
                       uint16_t access = 0, uint16_t exclusive = 0);

// Opens a tagged table; gives the DbResult.
DbResult openTagged(uint32_t database, const std::string &name, uint32_t *table, uint16_t access = 0,
                    uint16_t exclusive = 0);

// The 16-byte header of a tagged document with docOffset 16 and the given
// minor version, followed by the stream.
Bytes taggedDocument(uint8_t minorVersion, const Bytes &stream);

// The head record that names the fields, in the dialect of a minor version:
// in dialect 0 each name stands between attribute marks on a line of its
// own; in dialect 1 the names follow a name-list token, each ended by "~".
Bytes taggedHead(uint8_t minorVersion, const std::vector<std::string> &names);

// A record of the values, each ended as the dialect ends a field, and then
// the record's end mark.
Bytes taggedRecord(uint8_t minorVersion, const std::vector<std::string> &values);

}  // namespace mergedb::test
