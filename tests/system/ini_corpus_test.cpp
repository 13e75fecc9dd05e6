// INI files of many kinds, as programs and people write them: the fuzzer's seeds, replayed on every run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <velkor/configuration.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/ini_lockstep.h"
#include "support/place.h"

namespace {

const std::filesystem::path CORPUS = std::filesystem::path(VELKOR_SOURCE_DIR) / "fuzz/corpus/fuzz_ini";

ini::Owned load(const std::string &name) { return ini::Owned(iniparser_load((CORPUS / name).c_str())); }

void expect_value(const ini::Owned &d, const char *key, const std::string &value) {
    ASSERT_NE(iniparser_getstr(d.get(), key), nullptr) << key;
    EXPECT_EQ(iniparser_getstr(d.get(), key), value);
}

// ---- All of them ----

TEST(IniCorpus, ReadsAsTheModelDoes) {
    const ini::MemoryFile file;
    int files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(CORPUS)) {
        const std::string input = place::read_file(entry.path());
        const size_t split = input.rfind('\xff');
        const std::string edits = split != std::string::npos ? input.substr(split + 1) : "";
        EXPECT_EQ(ini::difference(file, input.substr(0, split), edits), "") << entry.path();
        ++files;
    }
    EXPECT_GE(files, 17);
}

TEST(IniCorpus, EndsAnywhere) {
    // Every file as far as the disk took it.
    const ini::MemoryFile file;
    for (const char *name : {"traps.ini", "quotes.ini", "zero_bytes.ini", "crlf_mixed.ini", "byte_order_mark.ini"}) {
        const std::string content = place::read_file(CORPUS / name);
        for (size_t length = 0; length < content.size(); ++length) {
            ASSERT_EQ(ini::difference(file, content.substr(0, length), ""), "") << name << " up to " << length;
        }
    }
}

// ---- One by one ----

TEST(IniCorpus, SystemdUnit) {
    const ini::Owned d = load("systemd_unit.service");
    EXPECT_EQ(iniparser_getnsec(d.get()), 3);
    expect_value(d, "Service:ExecStart", "/usr/bin/relay --config /etc/relay.conf");
    expect_value(d, "Unit:Documentation", "man:relay(8) https://example.org/relay?page=1");
    expect_value(d, "Service:Environment", "RELAY_PORT=8554");
    expect_value(d, "service:execstartpre", "-/bin/mkdir -p /run/relay");
    EXPECT_EQ(iniparser_getint(d.get(), "Service:RestartSec", 0), 5);
}

TEST(IniCorpus, DesktopFile) {
    const ini::Owned d = load("launcher.desktop");
    expect_value(d, "desktop entry:name[de]", "Live-Ansicht");
    expect_value(d, "Desktop Entry:Categories", "AudioVideo");
    expect_value(d, "Desktop Action fullscreen:Exec", "liveview --fullscreen");
}

TEST(IniCorpus, PhpIni) {
    const ini::Owned d = load("php.ini");
    expect_value(d, "php:date.timezone", "Asia/Tehran");
    expect_value(d, "php:session.save_path", "2;644;/var/lib/php");
    EXPECT_EQ(iniparser_find_entry(d.get(), "php:disable_functions"), 0);
    EXPECT_EQ(iniparser_getboolean(d.get(), "php:engine", 7), 7) << "\"On\" is neither yes nor no";
}

TEST(IniCorpus, GitConfig) {
    const ini::Owned d = load("git.config");
    expect_value(d, "remote \"origin\":fetch", "+refs/heads/*:refs/remotes/origin/*");
    expect_value(d, "alias:lg", "log --graph --pretty=format:'%h %s'");
    EXPECT_EQ(iniparser_getboolean(d.get(), "core:bare", 7), 0);
}

TEST(IniCorpus, SambaShares) {
    const ini::Owned d = load("smb.conf");
    expect_value(d, "recordings:path", "/mnt/hdd0/record");
    EXPECT_EQ(iniparser_getboolean(d.get(), "recordings:read only", 7), 1);
    EXPECT_THAT(ini::printed(iniparser_dump_ini, d.get()), testing::HasSubstr("\n;   wins support = no\n"));
}

TEST(IniCorpus, MysqlOptions) {
    const ini::Owned d = load("my.cnf");
    expect_value(d, "mysqld:sql_mode", "STRICT_TRANS_TABLES,NO_ZERO_DATE");
    EXPECT_EQ(iniparser_find_entry(d.get(), "mysqld:skip-name-resolve"), 0);
}

TEST(IniCorpus, DriverInformation) {
    const ini::Owned d = load("driver.inf");
    expect_value(d, "Manufacturer:%ProviderName%", "Capture,NTx86,NTamd64");
    expect_value(d, "Strings:Capture.DeviceDesc", "Capture Card (8 inputs)");
    expect_value(d, "Version:DriverVer", "06/21/2019,1.2.3.4");
}

TEST(IniCorpus, ByteOrderMark) {
    const ini::Owned d = load("byte_order_mark.ini");
    expect_value(d, "تنظ:نام", "دوربین");
}

TEST(IniCorpus, Latin1) {
    const ini::Owned d = load("latin1.ini");
    expect_value(d, "ger\xe4te:t\xfcr", "\xd6stlich");
    expect_value(d, "ger\xe4te:\xa0key\xa0", "v");
}

TEST(IniCorpus, ZeroBytes) {
    const ini::Owned d = load("zero_bytes.ini");
    expect_value(d, "s:key", "one");
    EXPECT_EQ(d->count, 2);
}

// What a recorder does all its life: the second write-back changes nothing any more.
TEST(IniCorpus, RecordersOwnFileSettles) {
    const ini::Owned d = load("recorder.ini");
    const std::string once = ini::printed(iniparser_dump_ini, d.get());
    EXPECT_EQ(once,
              "; written by the recorder itself\n[net]\ndhcp = no\nip = 192.168.1.10; wired\nmask = 255.255.255.0\n"
              "gate = 192.168.1.1\ndns1 = 8.8.8.8\n    ; the second one is not always there\ndns2 = \"\"\n\r\n"
              "[channel 1]\nname = Front door; north\ncodec = H265\nbitrate = 4096\nfps = 25\na  = 1 \n");
    const ini::MemoryFile file(once);
    const ini::Owned again(iniparser_load(file.path().c_str()));
    EXPECT_EQ(ini::printed(iniparser_dump_ini, again.get()), once);
}

}  // namespace
