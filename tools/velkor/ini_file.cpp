#include "ini_file.h"

#include <fcntl.h>
#include <linux/memfd.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "descriptor.h"
#include "exit_status.h"
#include "file_text.h"

namespace tool::ini {

namespace {

constexpr size_t LONGEST_PIECE = 1023;
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

// Boards have C libraries that know no memfd_create().
int create_memory_file() { return static_cast<int>(syscall(SYS_memfd_create, "velkor-ini", MFD_CLOEXEC)); }

// A text that can be opened by a path.
class MemoryFile {
public:
    MemoryFile() : descriptor_(create_memory_file()) {
        if (!descriptor_) {
            fail_call("keep a file in memory");
        }
    }

    void write(std::string_view content) const {
        if (ftruncate(descriptor_.get(), 0) != 0 ||
            pwrite(descriptor_.get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
            fail_call("keep a file in memory");
        }
    }

    Loaded load() const {
        Loaded loaded(iniparser_load(("/proc/self/fd/" + std::to_string(descriptor_.get())).c_str()));
        if (!loaded) {
            throw Failure(NEGATIVE, "the file cannot be loaded: no memory");
        }
        return loaded;
    }

private:
    Descriptor descriptor_;
};

bool is_white(std::string_view text) { return text.find_first_not_of(std::string_view(" \t\n\v\f\r")) == text.npos; }

// Reads pieces one by one, each in a file of its own: behind an empty line, where a byte-order mark means nothing.
class PieceReader {
public:
    Piece read(std::string_view text, size_t line, size_t begin, bool goes_on) {
        file_.write("\n" + std::string(text));
        const Loaded d = file_.load();
        Piece piece = {line, begin, std::string(text), goes_on, Piece::Kind::blank, "", "", std::nullopt};
        if (d->count == 1) {
            take_entry(piece, *d);
        } else if (d->comment_kinds[1] != COMMENT_BLANK) {
            piece.kind = Piece::Kind::comment;
        } else if (!is_white(text)) {
            piece.kind = Piece::Kind::unreadable;
        }
        if (d->comment_texts[1] != nullptr) {
            piece.comment = d->comment_texts[1];
        }
        return piece;
    }

private:
    // Alone a setting stands in no section: its key begins with the colon.
    void take_entry(Piece &piece, const dictionary &d) {
        if (d.values[0] == nullptr) {
            piece.kind = Piece::Kind::section;
            piece.key = section_ = d.keys[0];
        } else {
            piece.kind = Piece::Kind::setting;
            piece.key = section_ + d.keys[0];
            piece.value = d.values[0];
        }
    }

    MemoryFile file_;
    std::string section_;
};

}  // namespace

std::string read_file(const std::string &path) {
    const Descriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor) {
        fail_call("open " + path);
    }
    return read_all(descriptor.get(), path);
}

Loaded load_text(std::string_view content) {
    const MemoryFile file;
    file.write(content);
    return file.load();
}

std::string written_back(const dictionary &d) {
    char *text = nullptr;
    size_t length = 0;
    FILE *const stream = open_memstream(&text, &length);
    if (stream == nullptr) {
        fail_call("write to memory");
    }
    iniparser_dump_ini(&d, stream);
    fclose(stream);
    std::string result(text, length);
    free(text);
    return result;
}

std::string lower(std::string text) {
    for (char &character : text) {
        character = strlwc(std::string(1, character).c_str())[0];
    }
    return text;
}

std::vector<Entry> entries_of(const dictionary &d) {
    std::vector<Entry> entries;
    for (int32_t slot = 0; slot < d.size; ++slot) {
        if (d.keys[slot] != nullptr) {
            const char *const value = d.values[slot];
            entries.push_back({d.keys[slot], value != nullptr ? std::optional<std::string>(value) : std::nullopt});
        }
    }
    return entries;
}

size_t length_of_byte_order_mark(std::string_view content) {
    return content.starts_with(BYTE_ORDER_MARK) ? BYTE_ORDER_MARK.size() : 0;
}

std::vector<Piece> pieces_of(const std::string &content) {
    std::vector<Piece> pieces;
    PieceReader reader;
    size_t line = 1;
    bool goes_on = false;
    for (size_t begin = length_of_byte_order_mark(content); begin < content.size();) {
        const size_t newline = std::min(content.find('\n', begin), content.size() - 1);
        const size_t end = std::min(newline + 1, begin + LONGEST_PIECE);
        pieces.push_back(reader.read({content.data() + begin, end - begin}, line, begin, goes_on));
        goes_on = content[end - 1] != '\n';
        line += goes_on ? 0 : 1;
        begin = end;
    }
    return pieces;
}

}  // namespace tool::ini
