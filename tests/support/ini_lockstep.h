// The library and the model side by side: the same file, the same calls, and what differs.
#pragma once

#include <velkor/configuration.h>

#include <memory>
#include <random>
#include <string>

namespace ini {

struct Freed {
    void operator()(dictionary *d) const { iniparser_freedict(d); }
};
using Owned = std::unique_ptr<dictionary, Freed>;

// What one of the dump functions prints.
std::string printed(void (*dump)(const dictionary *, FILE *), const dictionary *d);

// A file in memory, with a path to open it by.
class MemoryFile {
public:
    explicit MemoryFile(const std::string &content = "");
    ~MemoryFile();
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    void write(const std::string &content) const;
    std::string path() const;

private:
    int descriptor_;
};

// Loads the content, makes the calls that the bytes of `edits` choose, writes the file back, and loads that. Answers ""
// when the library and the model agreed all the way, otherwise what differed first.
std::string difference(const MemoryFile &file, const std::string &content, const std::string &edits);

// A file full of what a parser may trip over, and bytes that choose edits.
std::string random_content(std::mt19937 &random);
std::string random_edits(std::mt19937 &random);

}  // namespace ini
