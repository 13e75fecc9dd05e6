// INI files written back: where each comment goes, byte for byte, on every kind of stream.
#include <gtest/gtest.h>
#include <unistd.h>
#include <velkor/configuration.h>

#include <algorithm>
#include <string>

#include "support/ini_lockstep.h"
#include "support/ini_model.h"
#include "support/place.h"

namespace {

using ini::Owned;

constexpr const char *FILE_PATH = "/tmp/test.ini";
constexpr const char *OUT_PATH = "/tmp/out.ini";

Owned load(const std::string &content) {
    place::write_file(FILE_PATH, content);
    return Owned(iniparser_load(FILE_PATH));
}

// Written to a real file, as a recorder does.
std::string written(const Owned &d, const std::string &before = "", const char *mode = "w") {
    FILE *const out = fopen(OUT_PATH, mode);
    fputs(before.c_str(), out);
    iniparser_dump_ini(d.get(), out);
    fclose(out);
    return place::read_file(OUT_PATH);
}

std::string written_back(const std::string &content) { return written(load(content)); }

// ---- Settings ----

TEST(IniWriteBack, PadsNamesAndValuesOfOneCharacter) {
    EXPECT_EQ(written_back("[Main]\nx=1\n"), "[main]\nx  = 1 \n");
    EXPECT_EQ(written_back("[main]\nxy=12\n"), "[main]\nxy = 12\n");
    EXPECT_EQ(written_back("[s]\nkey = ''"), "[s]\nkey =   \n") << "an empty value: two blanks";
}

TEST(IniWriteBack, WritesABlankForAMissingValue) {
    const Owned d(dictionary_new(0));
    iniparser_add_entry(d.get(), "s", nullptr, nullptr);
    iniparser_add_entry(d.get(), "s", "key", nullptr);
    EXPECT_EQ(written(d), "[s]\nkey =   \n");
}

TEST(IniWriteBack, GathersTheSettingsOfASection) {
    EXPECT_EQ(written_back("[one]\naa=11\n[two]\nbb=22\n[ONE]\ncc=33\n"), "[one]\naa = 11\ncc = 33\n[two]\nbb = 22\n");
}

TEST(IniWriteBack, DoesNotConfuseSectionsThatBeginAlike) {
    EXPECT_EQ(written_back("[net]\naa=11\n[network]\nbb=22\n[ne]\ncc=33\n"),
              "[net]\naa = 11\n[network]\nbb = 22\n[ne]\ncc = 33\n");
}

TEST(IniWriteBack, GoesByTheOrderOfSlots) {
    const Owned d = load("[s]\naa=1x\nbb=2x\n");
    iniparser_unset(d.get(), "s:aa");
    iniparser_unset(d.get(), "s");
    iniparser_add_entry(d.get(), "s", "cc", "3x");
    iniparser_add_entry(d.get(), "s", nullptr, nullptr);
    EXPECT_EQ(written(d), "[s]\ncc = 3x\nbb = 2x\n");
}

TEST(IniWriteBack, DropsSettingsBeforeTheFirstSection) {
    EXPECT_EQ(written_back("aa=11\n; behind aa\n[s]\nbb=22\n"), "[s]\nbb = 22\n");
}

TEST(IniWriteBack, WritesEachSettingTwiceWithoutSections) {
    EXPECT_EQ(written_back("a = 1\n"), ":a = 1 \n:a = 1 \n");
    EXPECT_EQ(written_back("; head\naa = 11 ; c\n"), "; head\n:aa = 11\n:aa = 11\n")
        << "a comment behind a setting without section is anchored to the bare key and never comes back";
}

TEST(IniWriteBack, WritesNullOnceAsPrintfDoesWithoutSections) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), ":a", nullptr);
    EXPECT_EQ(written(d), ":a = (null)\n:a =   \n");
}

TEST(IniWriteBack, WritesCommentsBehindSettingsWithoutSectionThatCarryTheColon) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "x:a", "1");
    iniparser_add_comment(d.get(), "x", "a", "; c\n", COMMENT_LINE);
    EXPECT_EQ(written(d), "x:a = 1 \nx:a = 1 \n; c\n");
}

TEST(IniWriteBack, KeepsASettingOfASectionWithAColonOnlyUnderAnotherSection) {
    EXPECT_EQ(written_back("[a:b]\ncc=11\n"), "a:b = (null)\na:b =   \na:b:cc = 11\na:b:cc = 11\n");
    EXPECT_EQ(written_back("[a]\n[a:b]\ncc=11\n"), "[a]\nb  =   \nb:cc = 11\n");
    EXPECT_EQ(written_back("[x]\n[a:b]\ncc=11\n"), "[x]\n");
}

TEST(IniWriteBack, KnowsTheSectionWithoutName) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "", nullptr);
    dictionary_add(d.get(), ":key", "value");
    EXPECT_EQ(written(d), "[]\nkey = value\n");
}

// ---- Comments ----

TEST(IniWriteBack, JoinsATrailingCommentToItsValue) {
    EXPECT_EQ(written_back("[S]\nKey = Value ; note\n"), "[s]\nkey = Value; note\n");
    EXPECT_EQ(written_back("[S] ; section\n"), "[s]; section\n");
}

TEST(IniWriteBack, WritesBlankLinesWithCarriageReturn) {
    EXPECT_EQ(written_back("\n[s]\n\nkey = v1\n   \n"), "\r\n[s]\n\r\nkey = v1\n\r\n");
}

TEST(IniWriteBack, IndentsByFourBlanks) {
    EXPECT_EQ(written_back("[s]\n \t ; c\nkey = v1\n\t# d\n"), "[s]\n    ; c\nkey = v1\n    # d\n");
}

TEST(IniWriteBack, KeepsLineCommentsAsTheyAre) {
    EXPECT_EQ(written_back(";head\n# two \r\n[s]\n;in s\nkey = v1\n;last"),
              ";head\n# two \r\n[s]\n;in s\nkey = v1\n;last");
}

TEST(IniWriteBack, PutsABlankForAMissingText) {
    const Owned d = load("[s]\nkey = v1\n");
    iniparser_add_comment(d.get(), "s", "key", "", COMMENT_TRAILING);
    iniparser_add_comment(d.get(), "s", "key", "", COMMENT_LINE);
    iniparser_add_comment(d.get(), "s", "key", "", COMMENT_INDENTED);
    iniparser_add_comment(d.get(), "s", "key", "ignored", COMMENT_BLANK);
    EXPECT_EQ(written(d), "[s]\nkey = v1 \n      \r\n");
}

TEST(IniWriteBack, WritesNothingForAnUnknownKind) {
    const Owned d = load("[s]\nkey = v1\n");
    iniparser_add_comment(d.get(), "s", "key", "; five\n", 5);
    EXPECT_EQ(written(d), "[s]\nkey = v1\n");
}

TEST(IniWriteBack, LosesCommentsBehindALineThatCouldNotBeRead) {
    EXPECT_EQ(written_back("[s]\nkey = v1\nno equals\n; lost\n[t]\n"), "[s]\nkey = v1\n[t]\n");
}

TEST(IniWriteBack, GivesCommentsBehindASettingWithoutSectionToASectionOfThatName) {
    EXPECT_EQ(written_back("key = 1 ; c\n; d\n[key]\nl1 = v1\n"), "[key]; c\n; d\nl1 = v1\n");
}

TEST(IniWriteBack, LosesCommentsBehindADroppedSettingToTheFirst) {
    EXPECT_EQ(written_back("[s]\nkey = v1 ; one\nkey = v2 ; two\n; after\n"), "[s]\nkey = v1; one; two\n; after\n");
}

TEST(IniWriteBack, WritesCommentsAnchoredByEqualHash) {
    // The head's anchor is a plain number, which the hash of a name may be too: here by hand.
    const Owned d = load("[s]\n");
    iniparser_add_comment(d.get(), "s", "", "; c\n", COMMENT_LINE);
    d->comment_anchors[0] = COMMENT_ANCHOR_HEAD;
    EXPECT_EQ(written(d), "; c\n[s]\n");
}

TEST(IniWriteBack, LosesCommentsOfNamesAbove1023Characters) {
    const std::string section(512, 's');
    EXPECT_EQ(written_back("[" + section + "]\n" + std::string(512, 'k') + " = v1 ; c\n"),
              "[" + section + "]\n" + std::string(512, 'k') + " = v1\n");
    EXPECT_EQ(written_back("[" + section + "]\n" + std::string(510, 'k') + " = v1 ; c\n"),
              "[" + section + "]\n" + std::string(510, 'k') + " = v1; c\n");
}

TEST(IniWriteBack, KeepsTheRestOfALongValueBehindIt) {
    const std::string value = std::string(512, 'v') + "the rest";
    EXPECT_EQ(written_back("[s]\nkey = " + value + "\n"), "[s]\nkey = " + value + "\n");
}

// ---- Streams ----

TEST(IniWriteBack, StepsBackOverAByteOfTheCallersBeforeItWroteAny) {
    const Owned d(dictionary_new(0));
    iniparser_add_comment(d.get(), "", "", "; c", COMMENT_TRAILING);
    EXPECT_EQ(written(d), "; c\n") << "the begin of a file stays the begin";
    EXPECT_EQ(written(d, "title\n"), "title; c\n");
}

// A file whose comments join their lines on a stream that can go back over a newline.
constexpr const char *COMMENTED = "; head\n[s] ; c\nkey = v1 ; d\nkey = v2 ; e\n\nl1 = 1 # f\n  # g\n";
constexpr const char *ON_LINES_OF_THEIR_OWN = "; head\n[s]\n; c\nkey = v1\n; d\n; e\n\r\nl1 = 1 # f\n    # g\n";

// What `write` puts into a pipe.
template <typename Write>
std::string through_a_pipe(Write write) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    FILE *const out = fdopen(ends[1], "w");
    write(out);
    fclose(out);
    std::string text(1000, '\0');
    const ssize_t length = read(ends[0], text.data(), text.size());
    close(ends[0]);
    text.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
    return text;
}

TEST(IniWriteBack, PutsTrailingCommentsOnLinesOfTheirOwnOnAPipe) {
    const Owned d = load(COMMENTED);
    EXPECT_EQ(written(d), "; head\n[s]; c\nkey = v1; d; e\n\r\nl1 = 1 # f\n    # g\n");
    EXPECT_EQ(through_a_pipe([&](FILE *out) { iniparser_dump_ini(d.get(), out); }), ON_LINES_OF_THEIR_OWN);
}

TEST(IniWriteBack, PutsTrailingCommentsOnLinesOfTheirOwnOnATerminal) {
    const Owned d = load("[s] ; c\nkey = v1 ; d\n");
    place::Terminal terminal;
    FILE *const out = fopen(terminal.path().c_str(), "w");
    iniparser_dump_ini(d.get(), out);
    fflush(out);
    EXPECT_EQ(terminal.read_until("; d\n"), "[s]\n; c\nkey = v1\n; d\n");
    fclose(out);
}

TEST(IniWriteBack, PutsTrailingCommentsOnLinesOfTheirOwnWhereAStreamOnlyAppends) {
    const Owned d = load(COMMENTED);
    unlink(OUT_PATH);
    EXPECT_EQ(written(d, "", "a"), ON_LINES_OF_THEIR_OWN);
    EXPECT_EQ(written(d, "", "a+"), ON_LINES_OF_THEIR_OWN + std::string(ON_LINES_OF_THEIR_OWN));
}

TEST(IniWriteBack, PutsATrailingCommentOfTheHeadWhereAPipeBegins) {
    const Owned d = load("[s]\n");
    iniparser_add_comment(d.get(), "", "", "; c", COMMENT_TRAILING);
    const std::string text = through_a_pipe([&](FILE *out) { iniparser_dump_ini(d.get(), out); });
    EXPECT_EQ(text, "; c\n[s]\n");
    EXPECT_EQ(through_a_pipe([&](FILE *out) {
                  fputs("title\n", out);
                  iniparser_dump_ini(d.get(), out);
              }),
              "title\n; c\n[s]\n");
}

// The described steps with the C library's own fseek() and fprintf(), on each kind of stream.
TEST(IniWriteBack, GivesTheBytesOfTheDescribedStepsOnEveryStream) {
    const Owned d = load(COMMENTED);
    IniModel model;
    ASSERT_TRUE(model.load(FILE_PATH));
    EXPECT_EQ(through_a_pipe([&](FILE *out) { model.dump_ini(out); }),
              through_a_pipe([&](FILE *out) { iniparser_dump_ini(d.get(), out); }));
    for (const char *const mode : {"w", "w+", "r+", "a", "a+"}) {
        place::write_file(OUT_PATH,
                          "what was there before, and is longer than the file that is written here..........\n");
        const std::string expected = [&] {
            FILE *const out = fopen("/tmp/model.ini", "w");
            fputs(place::read_file(OUT_PATH).c_str(), out);
            fclose(out);
            FILE *const modelled = fopen("/tmp/model.ini", mode);
            fputs("title\n", modelled);
            model.dump_ini(modelled);
            fclose(modelled);
            return place::read_file("/tmp/model.ini");
        }();
        EXPECT_EQ(written(d, "title\n", mode), expected) << mode;
    }
}

TEST(IniWriteBack, GivesTheSameBytesToAStreamWithoutBuffer) {
    const Owned d = load(COMMENTED);
    const std::string expected = written(d);
    FILE *const out = fopen(OUT_PATH, "w");
    setvbuf(out, nullptr, _IONBF, 0);
    iniparser_dump_ini(d.get(), out);
    fclose(out);
    EXPECT_EQ(place::read_file(OUT_PATH), expected);
}

TEST(IniWriteBack, LeavesAnErrorOfTheStreamForItsCaller) {
    const Owned d = load("[s]\nkey = v1\n");
    FILE *const full = fopen("/dev/full", "w");
    setvbuf(full, nullptr, _IONBF, 0);
    iniparser_dump_ini(d.get(), full);
    EXPECT_NE(ferror(full), 0);
    fclose(full);
}

TEST(IniWriteBack, IsWholeWhateverItsLength) {
    // The output is gathered in blocks: let a comment step back at every place of one.
    for (size_t length = 4080; length < 4110; ++length) {
        const Owned d(dictionary_new(0));
        iniparser_add_entry(d.get(), "s", nullptr, nullptr);
        const std::string value(length, 'v');
        iniparser_add_entry(d.get(), "s", "key", value.c_str());
        iniparser_add_comment(d.get(), "s", "key", "; c", COMMENT_TRAILING);
        iniparser_add_comment(d.get(), "s", "key", "; d", COMMENT_TRAILING);
        EXPECT_EQ(written(d), "[s]\nkey = " + value + "; c; d\n");
    }
}

TEST(IniWriteBack, DoesNothingWithoutItsArguments) {
    const Owned d = load("[s]\n");
    iniparser_dump_ini(d.get(), nullptr);
    iniparser_dump(d.get(), nullptr);
    EXPECT_EQ(ini::printed(iniparser_dump_ini, nullptr), "");
    EXPECT_EQ(ini::printed(iniparser_dump, nullptr), "");
}

TEST(IniWriteBack, WritesNothingForAnEmptyDictionary) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(written(d), "");
    EXPECT_EQ(ini::printed(iniparser_dump, d.get()), "");
}

TEST(IniDump, PrintsEntriesInTheOrderOfSlots) {
    const Owned d = load("[Net]\nIP = 1.2.3.4\nempty = ''");
    EXPECT_EQ(ini::printed(iniparser_dump, d.get()), "[net]=UNDEF\n[net:ip]=[1.2.3.4]\n[net:empty]=[]\n");
}

}  // namespace
