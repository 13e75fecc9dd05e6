// A full screen on a terminal: the alternate one, so that the terminal is afterwards as it was before, however the
// process ends.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace recorder {

struct Size {
    size_t columns;
    size_t rows;
};

class Screen {
public:
    // Takes the terminal, if standard output is one that can do more than print lines.
    Screen();
    ~Screen() { leave(); }
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    bool is_taken() const { return is_taken_; }
    bool is_coloured() const { return is_coloured_; }
    // As it is now: people resize their windows.
    Size size() const;
    // Rows from the top, as wide as the screen is: nothing has to be erased, so nothing flickers. What is new of them
    // is sent in one write.
    void show(const std::vector<std::string> &rows, Size size);
    void leave();

private:
    bool is_taken_ = false;
    bool is_coloured_ = false;
    Size shown_size_{};
    std::vector<std::string> shown_;
};

}  // namespace recorder
