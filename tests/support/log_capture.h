// The log of the process under test, record by record: the real pipeline up to the ring buffer, without the draining
// thread, so that nothing is taken out but by the test.
#pragma once

#include <string>
#include <vector>

class LogCapture {
public:
    // Switches the log on with these lines in its file ("filter=..."), printing on.
    explicit LogCapture(const std::string &lines = "");

    // Takes the records that are there, each of exactly 1024 bytes.
    static std::vector<std::string> take_records();

    // Takes the records that are there as whole lines: "[stamp] [thread module]message".
    static std::vector<std::string> take_lines();

    // The same from behind the "]" of the module on.
    static std::vector<std::string> take_messages();
};
