#include "edits/commit.h"

#include <cstring>

#include "edits/change_list.h"
#include "mergedb/mergedb.h"
#include "records/record_format.h"
#include "tablefile/file_service.h"

namespace mergedb {
namespace {

constexpr uint16_t COPY_BLOCK = 4096;
constexpr uint32_t MODE_OLD_FILE = MODE_OPEN_EXCLUSIVE;  // 290

// The backup name: the path with ".bk" from its first "." on, or added.
bool backupName(const char *path, char (&out)[PATH_BUFFER_SIZE]) {
    static constexpr char SUFFIX[] = ".bk";
    const char *dot = std::strchr(path, '.');
    size_t keep = dot == nullptr ? std::strlen(path) : static_cast<size_t>(dot - path);
    if (keep + sizeof SUFFIX > PATH_BUFFER_SIZE) return false;
    std::memcpy(out, path, keep);
    std::memcpy(out + keep, SUFFIX, sizeof SUFFIX);
    return true;
}

// Copies count bytes from the source's position to the destination's. A
// read that brings nothing, or a write that falls short, ends the copy
// with a failure, so that a damaged new file is never taken for whole.
uint16_t copyRange(FileObject &destination, FileObject &source, uint32_t count) {
    BlockHandle block = blockAlloc(COPY_BLOCK);
    auto *buffer = blockLockAs<uint8_t>(block);
    if (buffer == nullptr) return ERR_MEMORY;
    uint16_t code = 0;
    while (count != 0 && code == 0) {
        auto wanted = static_cast<uint16_t>(count < COPY_BLOCK ? count : COPY_BLOCK);
        int16_t got = fileRead(&source, buffer, wanted);
        if (got <= 0) {
            code = ERR_READ;
        } else if (fileWrite(&destination, buffer, static_cast<uint16_t>(got)) != got) {
            code = ERR_WRITE;
        } else {
            count -= static_cast<uint32_t>(got);
        }
    }
    blockFree(&block);
    return code;
}

uint16_t copyFrom(FileObject &destination, FileObject &source, uint32_t offset, uint32_t count) {
    if (count == 0) return 0;
    if (fileSeek(&source, offset, 0) == FILE_FAILURE) return ERR_SEEK;
    return copyRange(destination, source, count);
}

// Writes the new file: the bytes in front of the document stream, then the
// stretches between the list's nodes and their images, then the tail.
uint16_t writeNewFile(MergeTable &table, FileObject &newFile) {
    uint32_t position = table.format->dataStart(table);
    if (uint16_t code = copyFrom(newFile, table.file, 0, position)) return code;
    if (changeFirst(table) != 0) return ERR_MEMORY;
    EditNode node{};
    for (;;) {
        const auto *atCursor = blockLockAs<EditNode>(table.changeCursor);
        if (atCursor == nullptr) return ERR_MEMORY;
        node = *atCursor;
        if (position < node.offset) {
            if (uint16_t code = copyFrom(newFile, table.file, position, node.offset - position)) return code;
        }
        if (!(node.flags & NODE_DELETED)) {
            const auto *image = blockLockAs<uint8_t>(node.data);
            if (image == nullptr) return ERR_MEMORY;
            if (fileWrite(&newFile, image, static_cast<uint16_t>(node.dataLength)) !=
                static_cast<int16_t>(node.dataLength)) {
                return ERR_WRITE;
            }
        }
        position = node.offset + node.originalLength;
        if (node.next == 0) break;
        table.changeCursor = node.next;
    }
    return table.fileSize > position ? copyFrom(newFile, table.file, position, table.fileSize - position) : 0;
}

// The steps of a commit that swap the files, under the directory's lock, so
// that no other process opens the old file after its close or the new file
// before it is open here: the old file goes to the backup name and is
// opened there, and the new file is made under the table's name.
uint16_t swapInNewFile(MergeTable &table, const char *savedName, const char *backup, FileObject &newFile) {
    const Env &env = *table.file.env;
    DirectoryLock lock(env, savedName);
    uint64_t position = table.file.position;
    fileClose(&table.file);
    if (fileRename(env, table.fileName, backup) != 0) {
        // The table stays as it was, held again at once, so that no other
        // process can change the file under a commit that is tried again.
        fileOpen(env, table.fileName, table.accessFlags, &table.file, LockHeld::Yes);
        table.file.position = position;
        return ERR_RENAME;
    }
    if (fileOpen(env, backup, MODE_OLD_FILE, &table.file, LockHeld::Yes) != 0) return ERR_OPEN;
    std::memcpy(table.fileName, backup, PATH_BUFFER_SIZE);
    return fileCreate(env, savedName, MODE_CREATE_REPLACE, &newFile, LockHeld::Yes);
}

// The whole new file, with the old file's permissions and owner, on the
// disk before the backup may go. A file that 32-bit offsets can't reach
// would not open again.
uint16_t fillNewFile(MergeTable &table, FileObject &newFile) {
    if (uint16_t code = fileCopyOwnership(table.file, newFile)) return code;
    if (uint16_t code = writeNewFile(table, newFile)) return code;
    if (newFile.position > LARGEST_FILE) return ERR_WRITE;
    return fileSync(&newFile);
}

}  // namespace

uint16_t commitTable(MergeTable &table) {
    char savedName[PATH_BUFFER_SIZE];
    char backup[PATH_BUFFER_SIZE];
    std::memcpy(savedName, table.fileName, PATH_BUFFER_SIZE);
    if (!backupName(savedName, backup)) return ERR_RENAME;
    const Env &env = *table.file.env;
    FileObject newFile{};
    if (uint16_t code = swapInNewFile(table, savedName, backup, newFile)) return code;
    if (uint16_t code = fillNewFile(table, newFile)) {
        fileClose(&newFile);
        fileDelete(env, savedName);
        return code;
    }
    // The rename and the new file's name reach the disk with the directory,
    // so that a power cut from here on leaves the new table whole.
    fileSyncDirectory(env, savedName);
    fileClose(&table.file);
    fileDelete(env, table.fileName);
    table.file = newFile;
    std::memcpy(table.fileName, savedName, PATH_BUFFER_SIZE);
    return 0;
}

}  // namespace mergedb
