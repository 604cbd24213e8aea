#include "edits/commit.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "edits/change_list.h"
#include "mergedb/mergedb.h"
#include "records/record_format.h"
#include "tablefile/file_service.h"

namespace mergedb {
namespace {

constexpr uint32_t MODE_OLD_FILE = MODE_OPEN_EXCLUSIVE;  // 290

// The new file gathers in a buffer of this size, which goes to the disk
// whole: the largest piece that is still cheap to hold for a commit.
constexpr uint32_t COPY_BUFFER = 1u << 20;

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

// The old file, read for the commit. A long stretch is read straight into
// the new file's buffer; short ones, which lie between records edited near
// each other, come out of a piece of COPY_BUFFER bytes read ahead, so that
// a commit of many edits makes one read per piece rather than one per
// stretch. Stretches are asked for in ascending order.
class OldFileReader {
public:
    explicit OldFileReader(FileObject &file) : file_(file), ahead_(new (std::nothrow) uint8_t[COPY_BUFFER]) {}

    bool valid() const { return ahead_ != nullptr; }

    // Reads up to count bytes from offset on into destination, taking them
    // from the piece read ahead where it holds them. The bytes read, or 0
    // with the code in code.
    uint32_t read(uint32_t offset, uint8_t *destination, uint32_t count, uint16_t *code) {
        if (offset < start_ || offset >= start_ + length_) {
            if (count >= SHORT_STRETCH) return readAt(offset, destination, count, code);
            uint32_t got = readAt(offset, ahead_.get(), COPY_BUFFER, code);
            if (got == 0) return 0;
            start_ = offset;
            length_ = got;
        }
        uint32_t piece = std::min(count, start_ + length_ - offset);
        std::memcpy(destination, ahead_.get() + (offset - start_), piece);
        return piece;
    }

private:
    // A stretch at least this long skips the piece read ahead.
    static constexpr uint32_t SHORT_STRETCH = COPY_BUFFER / 4;

    uint32_t readAt(uint32_t offset, uint8_t *destination, uint32_t count, uint16_t *code) {
        if (fileSeek(&file_, offset) == FILE_FAILURE) {
            *code = ERR_SEEK;
            return 0;
        }
        int64_t got = fileReadLarge(&file_, destination, count);
        if (got <= 0) *code = ERR_READ;
        return got <= 0 ? 0 : static_cast<uint32_t>(got);
    }

    FileObject &file_;
    std::unique_ptr<uint8_t[]> ahead_;
    uint32_t start_ = 0;
    uint32_t length_ = 0;
};

// The new file on its way. The old file's stretches are read into the
// buffer behind what it holds, the images of edited records copied in, and
// the buffer is written whenever it is full and at the end: a commit makes
// one write for each COPY_BUFFER bytes of the new file. A read that brings
// nothing, or a write that falls short, ends the commit with ERR_READ or
// ERR_WRITE, so that a damaged new file is never taken for whole.
class NewFileWriter {
public:
    explicit NewFileWriter(FileObject &file) : file_(file), buffer_(new (std::nothrow) uint8_t[COPY_BUFFER]) {}

    bool valid() const { return buffer_ != nullptr; }

    // count bytes of the old file from offset on.
    uint16_t copy(OldFileReader &source, uint32_t offset, uint32_t count) {
        while (count != 0) {
            uint16_t failed = 0;
            uint32_t got = source.read(offset, buffer_.get() + filled_, std::min(count, COPY_BUFFER - filled_), &failed);
            if (got == 0) return failed;
            offset += got;
            count -= got;
            if (uint16_t code = taken(got)) return code;
        }
        return 0;
    }

    uint16_t write(const uint8_t *bytes, uint32_t count) {
        while (count != 0) {
            uint32_t piece = std::min(count, COPY_BUFFER - filled_);
            std::memcpy(buffer_.get() + filled_, bytes, piece);
            bytes += piece;
            count -= piece;
            if (uint16_t code = taken(piece)) return code;
        }
        return 0;
    }

    uint16_t flush() {
        if (filled_ != 0 && fileWriteLarge(&file_, buffer_.get(), filled_) < 0) return ERR_WRITE;
        filled_ = 0;
        return 0;
    }

private:
    uint16_t taken(uint32_t count) {
        filled_ += count;
        return filled_ == COPY_BUFFER ? flush() : 0;
    }

    FileObject &file_;
    std::unique_ptr<uint8_t[]> buffer_;
    uint32_t filled_ = 0;
};

// Writes the new file: the bytes in front of the document stream, then the
// stretches between the list's nodes and their images, then the tail.
uint16_t writeNewFile(MergeTable &table, OldFileReader &oldFile, NewFileWriter &newFile) {
    uint32_t position = table.format->dataStart(table);
    if (uint16_t code = newFile.copy(oldFile, 0, position)) return code;
    if (changeFirst(table) != 0) return ERR_MEMORY;
    EditNode node{};
    for (;;) {
        const auto *atCursor = blockLockAs<EditNode>(table.changeCursor);
        if (atCursor == nullptr) return ERR_MEMORY;
        node = *atCursor;
        if (position < node.offset) {
            if (uint16_t code = newFile.copy(oldFile, position, node.offset - position)) return code;
        }
        if (!(node.flags & NODE_DELETED)) {
            const auto *image = blockLockAs<uint8_t>(node.data);
            if (image == nullptr) return ERR_MEMORY;
            if (uint16_t code = newFile.write(image, node.dataLength)) return code;
        }
        position = node.offset + node.originalLength;
        if (node.next == 0) break;
        table.changeCursor = node.next;
    }
    if (table.fileSize > position) {
        if (uint16_t code = newFile.copy(oldFile, position, table.fileSize - position)) return code;
    }
    return newFile.flush();
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

// The size of the new file: the old data with the bytes of each node's
// record replaced by its image, or by nothing for a delete. The nodes lie
// apart from each other within the old data.
uint16_t newFileSize(MergeTable &table, uint64_t *size) {
    if (changeFirst(table) != 0) return ERR_MEMORY;
    int64_t total = table.fileSize;
    for (BlockHandle at = table.changeCursor; at != 0;) {
        const auto *node = blockLockAs<EditNode>(at);
        if (node == nullptr) return ERR_MEMORY;
        total -= node->originalLength;
        if (!(node->flags & NODE_DELETED)) total += node->dataLength;
        at = node->next;
    }
    if (total < 0) return ERR_MEMORY;
    *size = static_cast<uint64_t>(total);
    return 0;
}

// The whole new file, with the old file's permissions and owner, on the
// disk before the backup may go. A file that 32-bit offsets can't reach
// would not open again.
//
// The new file takes its final size before a byte is written, and the bytes
// go in from its start to its end. So a commit that stops on the way leaves
// a file whose end was never written and reads as zeros, never a shorter
// file that looks whole: whoever finds the backup beside it can tell.
uint16_t fillNewFile(MergeTable &table, FileObject &newFile) {
    uint64_t size = 0;
    if (uint16_t code = newFileSize(table, &size)) return code;
    if (size > LARGEST_FILE) return ERR_WRITE;
    if (uint16_t code = fileCopyOwnership(table.file, newFile)) return code;
    if (uint16_t code = fileTruncate(&newFile, static_cast<uint32_t>(size))) return code;
    OldFileReader reader(table.file);
    NewFileWriter writer(newFile);
    if (!reader.valid() || !writer.valid()) return ERR_MEMORY;
    if (uint16_t code = writeNewFile(table, reader, writer)) return code;
    if (newFile.position != size) return ERR_WRITE;
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
    // so that a power cut from here on leaves the new table whole. Where the
    // directory can't be made to keep them, the old table stays as the
    // backup, as it does when it can't be deleted. A deleted backup's name is
    // gone when the commit returns; the room its blocks took may come back a
    // little later, for the Env may leave the last close to a thread.
    if (fileSyncDirectory(env, savedName) == 0) {
        fileCloseAndDelete(&table.file, table.fileName);
    } else {
        fileClose(&table.file);
    }
    table.file = newFile;
    std::memcpy(table.fileName, savedName, PATH_BUFFER_SIZE);
    return 0;
}

}  // namespace mergedb
