#include "record_scan.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

namespace mergedb::host {
namespace {

constexpr size_t READ_BLOCK = 1 << 20;
// The first read after a jump: a scan of one record from there needs little.
constexpr size_t FIRST_READ_AFTER_JUMP = 4096;
constexpr size_t HEADER_BYTES = 16;
constexpr size_t DOC_OFFSET_AT = 4;

using namespace tagged;
constexpr size_t VARIABLE_HEAD = 4;  // lead, sub-code and the length word

// The total length of a fixed token by its lead byte 192 to 199; 0 for the
// leads 200 to 207, which have none.
constexpr std::array<uint8_t, 16> FIXED_LENGTHS = {4, 9, 11, 3, 3, 5, 6, 7, 0, 0, 0, 0, 0, 0, 0, 0};

// The bytes where the scan of a tagged record must look closer: those that
// begin a token longer than one byte or no token at all, and the record's
// end mark, or behind it the line ends.
constexpr std::array<bool, 256> taggedStops(unsigned char first, unsigned char second) {
    std::array<bool, 256> stops{};
    for (int byte = 0; byte < 256; ++byte) stops[byte] = byte == 0 || byte == 127 || byte >= 192;
    stops[first] = stops[second] = true;
    return stops;
}
constexpr std::array<bool, 256> TAGGED_STOPS = taggedStops(RECORD_END_MARK, RECORD_END_MARK);
constexpr std::array<bool, 256> TAGGED_STOPS_BEHIND_MARK = taggedStops(LINE_END, RECORD_LINE_END);

}  // namespace

// The bytes of the data in large reads, with a look a few bytes ahead.
class RecordSource {
public:
    RecordSource(const TableFile &file) : label_(file.label), buffer_(READ_BLOCK) {
        fd_ = ::open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0) throw Failure(file.label, std::strerror(errno));
        end_ = file.size;
        markedEnd_ = end_ > 0 && byteAt(end_ - 1) == END_OF_DATA_MARK;
        end_ -= markedEnd_ ? 1 : 0;
    }
    ~RecordSource() { ::close(fd_); }
    RecordSource(const RecordSource &) = delete;
    RecordSource &operator=(const RecordSource &) = delete;

    uint64_t position() const { return start_ + cursor_; }
    uint64_t end() const { return end_; }
    // Whether the file's last byte is a 26, which is no data.
    bool markedEnd() const { return markedEnd_; }
    bool atEnd() const { return position() >= end_; }
    // Goes on from offset; a jump reads small first and more each time.
    void seek(uint64_t offset, bool jump = false) {
        start_ = offset;
        cursor_ = filled_ = 0;
        readSize_ = jump ? FIRST_READ_AFTER_JUMP : buffer_.size();
    }

    // Keeps the bytes from the position on in the buffer, as many as the
    // longest record and one more, so that they can be looked at again.
    void mark() { mark_ = position(); }
    // The bytes from the mark to the position, or nothing when there are
    // more than the buffer keeps.
    std::optional<std::string_view> sinceMark() const {
        if (mark_ < start_) return std::nullopt;
        return std::string_view(buffer_.data() + (mark_ - start_), position() - mark_);
    }

    // The byte at position + ahead; -1 at or past the end of the data.
    int peek(size_t ahead = 0) {
        if (position() + ahead >= end_) return -1;
        if (cursor_ + ahead >= filled_) refill(ahead + 1);
        return static_cast<unsigned char>(buffer_[cursor_ + ahead]);
    }
    // The buffered bytes from the position on, at least one unless at the end.
    std::string_view buffered() {
        if (cursor_ >= filled_ && !atEnd()) refill(1);
        return {buffer_.data() + cursor_, filled_ - cursor_};
    }
    void skip(size_t count) { cursor_ += count; }

private:
    // Keeps the unread bytes and reads behind them until need bytes stand
    // from the cursor on, or the data ends.
    void refill(size_t need) {
        bool keepMarked = mark_ >= start_ && position() - mark_ <= LONGEST_RECORD;
        size_t from = keepMarked ? static_cast<size_t>(mark_ - start_) : cursor_;
        size_t kept = filled_ - from;
        std::memmove(buffer_.data(), buffer_.data() + from, kept);
        start_ += from;
        cursor_ -= from;
        filled_ = kept;
        need += cursor_;
        while (filled_ < need && start_ + filled_ < end_) {
            size_t room = std::min(buffer_.size() - filled_, std::max(readSize_, need - filled_));
            readSize_ = std::min(readSize_ * 2, buffer_.size());
            size_t wanted = static_cast<size_t>(std::min<uint64_t>(room, end_ - start_ - filled_));
            ssize_t got = ::pread(fd_, buffer_.data() + filled_, wanted, static_cast<off_t>(start_ + filled_));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) throw Failure(label_, got < 0 ? std::strerror(errno) : "the file became shorter while read");
            filled_ += static_cast<size_t>(got);
        }
    }
    int byteAt(uint64_t offset) {
        unsigned char byte = 0;
        if (::pread(fd_, &byte, 1, static_cast<off_t>(offset)) != 1) throw Failure(label_, "could not be read");
        return byte;
    }

    std::string label_;
    int fd_ = -1;
    std::vector<char> buffer_;
    uint64_t start_ = 0;  // the file offset of buffer_[0]
    size_t readSize_ = READ_BLOCK;  // the least that the next read asks for
    uint64_t mark_ = 0;
    size_t cursor_ = 0;
    size_t filled_ = 0;
    uint64_t end_ = 0;
    bool markedEnd_ = false;
};

RecordScanner::RecordScanner(const TableFile &file, const TableFormat &format)
    : format_(format), source_(std::make_unique<RecordSource>(file)) {
    if (format.tagged) {
        uint32_t docOffset = 0;
        for (size_t i = 0; i < sizeof docOffset && source_->end() >= HEADER_BYTES; ++i) {
            docOffset |= static_cast<uint32_t>(source_->peek(DOC_OFFSET_AT + i)) << (8 * i);
        }
        source_->seek(docOffset);
        taggedRecord();  // the head record
        firstRecord_ = source_->position();
        return;
    }
    const Delimiters &d = format.delimiters;
    for (const std::string *text : {&d.record, &d.field, &d.ignore, &d.quote}) {
        if (!text->empty()) special_[static_cast<unsigned char>(text->front())] = true;
    }
    special_['\n'] = special_['\n'] || format.lineEndsGuessed();
}

RecordScanner::~RecordScanner() = default;

uint64_t RecordScanner::dataEnd() const { return source_->end(); }

void RecordScanner::restartAt(uint64_t offset) {
    source_->seek(offset, true);
    ended_ = false;
}

std::optional<ScannedRecord> RecordScanner::next() {
    if (ended_ || source_->atEnd()) return std::nullopt;
    source_->mark();
    ScannedRecord record = format_.tagged ? taggedRecord() : delimitedRecord();
    if (record.fault == RecordFault::None && record.length > LONGEST_RECORD) record.fault = RecordFault::TooLong;
    if (record.fault != RecordFault::None && record.fault != RecordFault::TooLong) ended_ = true;
    if (record.fault == RecordFault::None && !format_.tagged) countFields(record);
    return record;
}

void RecordScanner::take(size_t count) { source_->skip(count); }

// Takes the bytes of text that stand at the position, as far as they match;
// true when all of it matched. The driver keeps the bytes of a part match as
// ordinary bytes and goes on at the first that differs.
bool RecordScanner::takeString(const std::string &text) {
    for (char c : text) {
        if (source_->peek() != static_cast<unsigned char>(c)) return false;
        take(1);
    }
    return true;
}

// The driver's scanner: the first byte of a string decides which string is
// tried, in the order record delimiter, field delimiter, ignore, quote. A
// quote opens a stretch wherever it stands, and only a quote followed by the
// first byte of the field delimiter, the record delimiter or ignore closes
// it.
ScannedRecord RecordScanner::delimitedRecord() {
    const Delimiters &d = format_.delimiters;
    ScannedRecord record;
    record.offset = source_->position();
    auto firstOf = [](const std::string &text) { return text.empty() ? 0 : static_cast<unsigned char>(text.front()); };
    bool checkLineEnds = format_.lineEndsGuessed() && d.record != "\n";
    while (true) {
        std::string_view run = source_->buffered();
        size_t plain = 0;
        while (plain < run.size() && !special_[static_cast<unsigned char>(run[plain])]) ++plain;
        take(plain);
        int c = source_->peek();
        if (c < 0) {
            record.fault = RecordFault::Unterminated;
            break;
        }
        if (c == firstOf(d.record)) {
            if (takeString(d.record)) break;
        } else if (c == firstOf(d.field)) {
            takeString(d.field);
        } else if (!d.ignore.empty() && c == firstOf(d.ignore)) {
            takeString(d.ignore);
        } else if (!d.quote.empty() && c == firstOf(d.quote)) {
            uint64_t opened = source_->position();
            if (!takeString(d.quote)) continue;
            bool closed = false;
            while (!closed && !source_->atEnd()) {
                std::string_view inside = source_->buffered();
                size_t plain = std::min(inside.find(d.quote.front()), inside.size());
                take(plain);
                if (plain == inside.size() || !takeString(d.quote)) continue;
                int behind = source_->peek();
                closed = behind >= 0 && (behind == firstOf(d.field) || behind == firstOf(d.record) ||
                                         behind == firstOf(d.ignore));
            }
            if (!closed) {
                record.fault = RecordFault::UnclosedQuote;
                record.faultOffset = opened;
                break;
            }
        } else {
            record.otherLineEnd = record.otherLineEnd || (checkLineEnds && c == '\n');
            take(1);
        }
    }
    record.length = source_->position() - record.offset;
    bool lfOnly = format_.lineEndsGuessed() && d.record == "\n" && format_.mixedLineEnds.empty();
    std::optional<std::string_view> bytes = source_->sinceMark();
    if (lfOnly && record.fault == RecordFault::None && bytes) {
        record.otherLineEnd = bytes->size() >= 2 && (*bytes)[bytes->size() - 2] == '\r';
    }
    return record;
}

// A token of a tagged document, taken whole; false when the record ends in
// a fault: a byte that begins no token, or the end of the data inside one.
bool RecordScanner::takeToken(ScannedRecord &record) {
    int lead = source_->peek();
    size_t length = 1;
    if (lead == 0 || (lead >= 200 && lead <= 207)) {
        record.fault = RecordFault::Damaged;
        record.faultOffset = source_->position();
        return false;
    }
    if (lead >= 192 && lead <= 199) {
        length = FIXED_LENGTHS[lead - 192];
    } else if (lead == 127 || lead >= 208) {
        int low = source_->peek(2);
        int high = source_->peek(3);
        if (low < 0 || high < 0) {
            record.fault = RecordFault::Unterminated;
            return false;
        }
        length = static_cast<size_t>(low | (high << 8)) + VARIABLE_HEAD;
    }
    if (source_->peek(length - 1) < 0) {
        record.fault = RecordFault::Unterminated;
        return false;
    }
    take(length);
    return true;
}

// A record runs to its end mark (byte 5, or the function token 52) and on
// to the next line end. The end of the data ends it anywhere, unless a byte
// 26 follows: the driver reads that byte as part of the record, and then
// finds the file at its end.
ScannedRecord RecordScanner::taggedRecord() {
    ScannedRecord record;
    record.offset = source_->position();
    bool marked = false;
    while (!source_->atEnd()) {
        // A run of one-byte tokens that mark nothing goes at once.
        const std::array<bool, 256> &stops = marked ? TAGGED_STOPS_BEHIND_MARK : TAGGED_STOPS;
        std::string_view run = source_->buffered();
        size_t plain = 0;
        while (plain < run.size() && !stops[static_cast<unsigned char>(run[plain])]) ++plain;
        take(plain);
        if (source_->atEnd()) break;
        int lead = source_->peek();
        int code = source_->peek(1);
        if (!takeToken(record)) break;
        if (!marked) {
            marked = lead == RECORD_END_MARK || (lead == FUNCTION_LEAD && code == FUNCTION_RECORD_END);
        } else if (lead == LINE_END || lead == RECORD_LINE_END) {
            record.length = source_->position() - record.offset;
            return record;
        }
    }
    record.length = source_->position() - record.offset;
    if (source_->markedEnd() && record.fault == RecordFault::None) record.fault = RecordFault::Unterminated;
    return record;
}

// The fields of a delimited record by the rules of the driver's extraction,
// which tests each string whole, the quote first, and closes a stretch at a
// quote followed by a whole delimiter or ignore string.
void RecordScanner::countFields(ScannedRecord &record) const {
    const Delimiters &d = format_.delimiters;
    std::optional<std::string_view> kept = source_->sinceMark();
    if (!kept) return;
    std::string_view bytes = *kept;
    if (size_t nul = bytes.find('\0'); nul != std::string_view::npos) record.nulOffset = record.offset + nul;
    size_t at = 0;
    auto standsAt = [&bytes](const std::string &text, size_t position) {
        return !text.empty() && position < bytes.size() && bytes[position] == text.front() &&
               bytes.substr(position).starts_with(text);
    };
    auto closesAt = [&](size_t position) {
        size_t behind = position + d.quote.size();
        bool ignoreBehind =
            d.ignore.empty() ? behind < bytes.size() && bytes[behind] == '\0' : standsAt(d.ignore, behind);
        return standsAt(d.quote, position) && (standsAt(d.field, behind) || standsAt(d.record, behind) || ignoreBehind);
    };
    bool inField = false;
    while (at < bytes.size()) {
        inField = true;
        if (!special_[static_cast<unsigned char>(bytes[at])]) {
            ++at;
        } else if (standsAt(d.quote, at)) {
            at = bytes.find(d.quote.front(), at + d.quote.size());
            while (at != std::string_view::npos && !closesAt(at)) at = bytes.find(d.quote.front(), at + 1);
            at = at == std::string_view::npos ? bytes.size() : at + d.quote.size();
        } else if (standsAt(d.record, at)) {
            at += d.record.size();
            ++record.fields;
            inField = false;
        } else if (standsAt(d.field, at)) {
            at += d.field.size();
            ++record.fields;
            inField = false;
        } else {
            at += standsAt(d.ignore, at) ? d.ignore.size() : 1;
        }
    }
    record.bytesBehindFields = inField;
}

}  // namespace mergedb::host
