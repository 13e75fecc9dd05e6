#include "messages.h"

#include <velkor/files.h>
#include <velkor_host.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "text.h"

namespace recorder {

namespace {

RtMsgBuf buffer = {PTHREAD_MUTEX_INITIALIZER, 0, 0, {}};

}  // namespace

void Messages::prepare() {
    directory_ = std::filesystem::current_path();
    const int slot = find_empty_pointer();
    expect(slot == 0, "the first message buffer is free");
    channel_ = static_cast<unsigned>(slot) + 1;
    RtMsgEx_sFlag(&buffer, 1, 1);  // it may wrap
    insert_global_pointer(static_cast<unsigned>(slot), &buffer);
    expect(make_dir("rt_debug") == 0, "the debug channel is switched on");
    rt_JudgePrintEn();
    expect(g_iRtPrintEn == 1, "it is on");

    expect(velkor_host_set_config_path(directory_.c_str()) == 0 && make_dir("log") == 0, "there is room for a log");
    note("recorder", "begin");
}

void Messages::note(const std::string &what, const std::string &how) {
    expect(upgrade_WriteLog("demo", what.c_str(), how.c_str()) >= 0, "the upgrade log is written");
    ++noted_;
}

void Messages::turn() {
    rt_JudgePrintEn();
    const unsigned number = ++printed_;
    expect(rt_printf(channel_, "message %u", number) == 0, "a message is kept");
}

void Messages::conclude() {
    note("recorder", "end");
    std::string text(VELKOR_MESSAGE_TEXT_SIZE, '\0');
    expect(get_msg0(text.data(), VELKOR_MESSAGE_TEXT_SIZE) == 0, "the message buffer is read");
    text.resize(text.find('\0'));
    kept_ = static_cast<unsigned>(std::count(text.begin(), text.end(), '\n'));
    expect(text.find(format("]message %u\r\n", printed_.load())) != std::string::npos, "the last message is there");
    expect(kept_ == printed_ || (buffer.flags & 1) != 0, "and so are all the others, but for those overwritten");
    expect(remove_file("rt_debug") == 0, "the debug channel is switched off");

    std::ifstream file("log/upgrade.log");
    const std::string log{std::istreambuf_iterator<char>(file), {}};
    const auto lines = static_cast<unsigned>(std::count(log.begin(), log.end(), '\n'));
    expect(lines == noted_, "the upgrade log has every note");
}

Panel Messages::panel() const {
    return {format("%u messages in channel %u", printed_.load(), channel_),
            format("%u lines in the upgrade log", noted_.load())};
}

std::string Messages::tally() const { return format("%u messages", printed_.load()); }

std::string Messages::summary() const {
    return format("%u of %u messages in the channel's buffer; %u lines in the upgrade log", kept_, printed_.load(),
                  noted_.load());
}

}  // namespace recorder
