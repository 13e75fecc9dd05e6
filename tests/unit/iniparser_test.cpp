// INI files read, looked up and changed: what each kind of line becomes, and every answer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>
#include <velkor/configuration.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "iniparser/line.h"
#include "support/ini_lockstep.h"
#include "support/place.h"

namespace {

int shortest_silence = -1;  // milliseconds that a wait lasts here; negative: as long as it is asked to
int asked_silence = -1;

}  // namespace

// What the parser waits with.
extern "C" int poll(struct pollfd *waiting, nfds_t count, int milliseconds) {
    asked_silence = milliseconds;
    const int64_t length = shortest_silence >= 0 ? shortest_silence : milliseconds;
    const struct timespec time = {static_cast<time_t>(length / 1000), static_cast<long>(length % 1000) * 1000000};
    return ppoll(waiting, count, length >= 0 ? &time : nullptr, nullptr);
}

namespace {

using ini::Owned;
using namespace std::string_literals;

int bytes_waiting(int descriptor) {
    int count = -1;
    EXPECT_EQ(ioctl(descriptor, FIONREAD, &count), 0);
    return count;
}

constexpr const char *FILE_PATH = "/tmp/test.ini";

Owned load(const std::string &content) {
    place::write_file(FILE_PATH, content);
    return Owned(iniparser_load(FILE_PATH));
}

// All entries as "[key]=[value]" lines.
std::string entries(const Owned &d) { return ini::printed(iniparser_dump, d.get()); }

std::string entries(const std::string &content) { return entries(load(content)); }

struct Comment {
    int kind;
    uint32_t anchor;
    std::optional<std::string> text;

    bool operator==(const Comment &) const = default;
};

void PrintTo(const Comment &comment, std::ostream *out) {
    *out << comment.kind << " at " << comment.anchor << ": " << comment.text.value_or("NULL");
}

std::vector<Comment> comments(const Owned &d) {
    std::vector<Comment> result;
    for (int slot = 0; slot < d->comment_count; ++slot) {
        const char *const text = d->comment_texts[slot];
        result.push_back({d->comment_kinds[slot], d->comment_anchors[slot],
                          text != nullptr ? std::optional<std::string>(text) : std::nullopt});
    }
    return result;
}

std::vector<Comment> comments(const std::string &content) { return comments(load(content)); }

uint32_t anchor(const char *name) { return dictionary_hash(name); }

using Comments = std::vector<Comment>;

// ---- Text helpers ----

TEST(TextHelpers, GiveNullForNull) {
    EXPECT_EQ(strlwc(nullptr), nullptr);
    EXPECT_EQ(strupc(nullptr), nullptr);
    EXPECT_EQ(strskp(nullptr), nullptr);
    EXPECT_EQ(strcrop(nullptr), nullptr);
    EXPECT_EQ(strstrip(nullptr), nullptr);
}

TEST(TextHelpers, ChangeCaseAndNothingElse) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    std::string lower = all;
    std::string upper = all;
    for (char &c : lower) {
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
    for (char &c : upper) {
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    }
    EXPECT_EQ(strlwc(all.c_str()), lower);
    EXPECT_EQ(strupc(all.c_str()), upper);
}

TEST(TextHelpers, CutWhiteSpaceOfTheCLocale) {
    EXPECT_STREQ(strcrop(" a b \t\n\v\f\r"), " a b");
    EXPECT_STREQ(strcrop(" \t\n\v\f\r"), "");
    EXPECT_STREQ(strcrop("a\xa0"), "a\xa0");
    EXPECT_STREQ(strstrip("\r\f\v\n\t a b \t"), "a b");
    EXPECT_STREQ(strstrip("   "), "");
    const char *const text = "\r\f\v\n\t a ";
    EXPECT_EQ(strskp(text), text + 6);
    const char *const blank = "  ";
    EXPECT_EQ(strskp(blank), blank + 2);
}

TEST(TextHelpers, StopAt1024Characters) {
    const std::string text = std::string(1023, 'A') + "BC";
    EXPECT_EQ(strlwc(text.c_str()), std::string(1023, 'a') + "b");
    EXPECT_EQ(strupc(text.c_str()), std::string(1023, 'A') + "B");
    EXPECT_EQ(strcrop(text.c_str()), text.substr(0, 1024));
    EXPECT_EQ(strstrip(("  " + text).c_str()), text.substr(0, 1024));
    EXPECT_EQ(strcrop((std::string(1000, 'x') + std::string(100, ' ')).c_str()), std::string(1000, 'x'));
}

TEST(TextHelpers, ReuseTheirBufferAndLeaveTheOthersAlone) {
    char *const lower = strlwc("A LONG TEXT");
    char *const upper = strupc("b");
    char *const cropped = strcrop("c ");
    char *const stripped = strstrip(" d ");
    EXPECT_STREQ(lower, "a long text");
    EXPECT_STREQ(upper, "B");
    EXPECT_STREQ(cropped, "c");
    EXPECT_STREQ(stripped, "d");
    EXPECT_EQ(strlwc("E"), lower);
    EXPECT_EQ(std::string(lower, 1025), "e" + std::string(1024, '\0')) << "the whole buffer is cleared";
    EXPECT_STREQ(upper, "B");
}

TEST(TextHelpers, ForgetWhatTheirCallerWroteIntoTheBuffer) {
    for (char *(*const helper)(const char *) : {strlwc, strupc, strcrop, strstrip}) {
        char *const buffer = helper("ab");
        memset(buffer, 'x', 1024);
        EXPECT_EQ(std::string(helper("1"), 1025), "1" + std::string(1024, '\0'));
    }
    const Owned d = load("[s]\nk = v\n");
    memset(strlwc("a"), 'x', 1024);
    EXPECT_STREQ(iniparser_getstr(d.get(), "S:K"), "v");
}

TEST(TextHelpers, ClearTheirOwnResultBeforeTheyReadIt) {
    EXPECT_STREQ(strlwc(strlwc("ABC")), "");
    EXPECT_STREQ(strlwc(strlwc("ABC") + 1), "");
    EXPECT_STREQ(strupc(strupc("abc")), "");
    EXPECT_STREQ(strcrop(strcrop("abc ")), "");
    EXPECT_STREQ(strstrip(strstrip(" abc ")), "");
    EXPECT_STREQ(strlwc(strcrop("ABC ")), "abc");
}

// ---- The line matcher against sscanf() ----

TEST(IniLine, DecidesAsScanfDoes) {
    static constexpr const char *PIECES[] = {"[", "]", "=", ";", "\"", "'", " ", "\t", "a", "B:", "\n", "#", "\v"};
    std::mt19937 random(62);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same keys every time
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (unsigned long pieces = random() % 12; pieces > 0; --pieces) {
            text += random() % 50 == 0 ? std::string(508 + random() % 8, 'x') : PIECES[random() % std::size(PIECES)];
        }
        text = strskp(text.c_str());
        char name[513] = "";
        char value[513] = "";
        char behind[513] = "";
        std::string expected;
        if (sscanf(text.c_str(), "[%512[^]] ] %512[^\n]", name, behind) >= 1) {
            expected = "section "s + name + "|" + behind;
        } else if (sscanf(text.c_str(), "%512[^=] = \"%512[^\"]\" %512[^\n]", name, value, behind) >= 2 ||
                   sscanf(text.c_str(), "%512[^=] = '%512[^']' %512[^\n]", name, value, behind) >= 2 ||
                   sscanf(text.c_str(), "%512[^=] = %512[^;] %512[^\n]", name, value, behind) >= 2) {
            expected = "setting "s + name + "|" + value + "|" + behind;
        } else {
            expected = "nothing "s + name;
        }
        const velkor::ini::Line line = velkor::ini::LineReader(text).read();
        const std::string found(line.name);
        const std::string read =
            line.type == velkor::ini::LineType::section ? "section " + found + "|" + std::string(line.trailing)
            : line.type == velkor::ini::LineType::setting
                ? "setting " + found + "|" + std::string(line.value) + "|" + std::string(line.trailing)
                : "nothing " + found;
        ASSERT_EQ(read, expected) << text;
    }
}

// ---- Entries ----

TEST(IniLoad, GivesNullForAFileThatCannotBeOpened) {
    EXPECT_EQ(iniparser_load("/tmp/is/not/there.ini"), nullptr);
    EXPECT_EQ(iniparser_load(nullptr), nullptr);
}

TEST(IniLoad, ReadsADirectoryAsEmpty) {
    const Owned d(iniparser_load("/tmp"));
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->count, 0);
}

TEST(IniLoad, ReadsAnEmptyFile) {
    const Owned d = load("");
    EXPECT_EQ(d->count, 0);
    EXPECT_EQ(d->comment_count, 0);
    EXPECT_EQ(d->size, 512);
}

struct Reading {
    const char *rule;
    std::string content;
    const char *entries;
};

void expect_readings(const std::vector<Reading> &readings) {
    for (const Reading &reading : readings) {
        EXPECT_EQ(entries(reading.content), reading.entries) << reading.rule;
    }
}

TEST(IniLoad, NamesEntriesBySectionAndKey) {
    expect_readings({
        {"lower-cases names and keeps values", "[Net]\nIP = Camera One\n", "[net]=UNDEF\n[net:ip]=[Camera One]\n"},
        {"keeps the blanks of a section's name", "[ Net ]\nip=1\n", "[ net ]=UNDEF\n[ net :ip]=[1]\n"},
        {"a setting before the first section has a leading colon", "a = 1\n[s]\na = 2\n",
         "[:a]=[1]\n[s]=UNDEF\n[s:a]=[2]\n"},
        {"crops keys and values", "  a\t =\t 1 \t \r\n b c=2", "[:a]=[1]\n[:b c]=[2]\n"},
        {"a carriage return is white space", "[s]\r\na = 1\r\nb = \"2\"\r\n", "[s]=UNDEF\n[s:a]=[1]\n[s:b]=[2]\n"},
        {"names may hold colons", "[a:b]\nc:d=1\n", "[a:b]=UNDEF\n[a:b:c:d]=[1]\n"},
        {"empty brackets are a key", "[]\n[] = x\n", "[:[]]=[x]\n"},
        {"a section without its bracket runs to the end of the line", "[open\na=1\n",
         "[open\n]=UNDEF\n[open\n:a]=[1]\n"},
        {"what a line holds before its first zero byte counts", "a = 1\0 2\nb = 3\n"s, "[:a]=[1]\n[:b]=[3]\n"},
    });
}

TEST(IniLoad, KeepsTheFirstOfTwo) {
    EXPECT_EQ(entries("[s]\na=1\n[S]\nA=2\n[t]\na=3\n"), "[s]=UNDEF\n[s:a]=[1]\n[t]=UNDEF\n[t:a]=[3]\n");
}

TEST(IniLoad, TakesAValueUpToItsEnd) {
    expect_readings({
        {"a plain value ends at the semicolon", "a = x ; y\nb = x # y\nc = x;\n", "[:a]=[x]\n[:b]=[x # y]\n[:c]=[x]\n"},
        {"quoted values may hold semicolons", "a = \"x; y\" ; z\nb = 'x; \"y\"'\nc = \"it's\"\n",
         "[:a]=[x; y]\n[:b]=[x; \"y\"]\n[:c]=[it's]\n"},
        {"quoted values are cropped at their end only", "a = \"  x  \"\n", "[:a]=[  x]\n"},
        {"a missing closing quote is forgiven", "a = \"x y\nb = 'z", "[:a]=[x y]\n[:b]=[z]\n"},
        {"without a value there is no setting", "a =\nb = ; c\n= d\n", ""},
    });
}

TEST(IniLoad, StoresTwoQuotesWithANewlineAsTheyAre) {
    EXPECT_EQ(entries("a = \"\"\nb = ''\n"), "[:a]=[\"\"]\n[:b]=['']\n");
}

TEST(IniLoad, StoresAnEmptyValueInFewCases) {
    expect_readings({
        {"two quotes at the end of the file", "a = \"\"", "[:a]=[]\n"},
        {"or two single ones", "a = ''", "[:a]=[]\n"},
        {"two quotes right before a semicolon", "a = \"\";x\nb = '';\n", "[:a]=[]\n[:b]=[]\n"},
        {"quoted quotes", "a = \"''\"\nb = '\"\"' x\n", "[:a]=[]\n[:b]=[]\n"},
        {"white space in quotes", "a = \" \"\n", "[:a]=[]\n"},
        {"but a blank before the semicolon is part of the value", "a = \"\" ; x\n", "[:a]=[\"\"]\n"},
    });
}

TEST(IniLoad, SkipsAByteOrderMarkAtTheBeginOnly) {
    EXPECT_EQ(entries("\xEF\xBB\xBF[s]\na=1\n"), "[s]=UNDEF\n[s:a]=[1]\n");
    EXPECT_EQ(entries("\xEF\xBB\xBF"), "");
    EXPECT_EQ(entries("\xEF\xBB"
                      "a=1"),
              "[:\xEF\xBB"
              "a]=[1]\n");
    EXPECT_EQ(entries("\n\xEF\xBB\xBF"
                      "a=1"),
              "[:\xEF\xBB\xBF"
              "a]=[1]\n");
}

TEST(IniLoad, ReadsALongLineInPieces) {
    // 1023 characters, then a piece that is a line of its own.
    const std::string filler(1023 - 4, 'x');
    EXPECT_EQ(entries("[s]\nk = " + filler + "b = 2\n"),
              "[s]=UNDEF\n[s:k]=[" + std::string(512, 'x') + "]\n[s:b]=[2]\n");
}

TEST(IniLoad, ReadsALongLineWithAByteOrderMarkInTheSamePieces) {
    const std::string filler(1023 - 4, 'x');
    EXPECT_EQ(entries("\xEF\xBB\xBFk = " + filler + "b = 2\n"), "[:k]=[" + std::string(512, 'x') + "]\n[:b]=[2]\n");
}

TEST(IniLoad, StopsAFieldAt512AndKeepsTheRestOfAValueBehindIt) {
    const std::string name(512, 'k');
    EXPECT_EQ(entries(name + " = 1\n"), "[:" + name + "]=[1]\n");
    EXPECT_EQ(entries(name + "k = 1\n"), "");
    EXPECT_EQ(entries("[" + name + "kk]\n"), "[" + name + "]=UNDEF\n");
    const Owned d = load("a = " + std::string(512, 'v') + "rest\n");
    EXPECT_EQ(entries(d), "[:a]=[" + std::string(512, 'v') + "]\n");
    EXPECT_EQ(comments(d), (Comments{{COMMENT_TRAILING, anchor("a"), "rest"}}));
}

TEST(IniLoad, GrowsWithItsFile) {
    std::string content = "[s]\n";
    for (int i = 0; i < 3000; ++i) {
        content += "k" + std::to_string(i) + " = " + std::to_string(i) + "\n; c\n";
    }
    const Owned d = load(content);
    EXPECT_EQ(d->count, 3001);
    EXPECT_EQ(d->comment_count, 3000);
    EXPECT_EQ(d->comment_size, 4096);
    EXPECT_EQ(iniparser_getint(d.get(), "s:k2999", -1), 2999);
}

TEST(IniLoad, ReadsAFifoOnceAndLosesNothing) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    std::thread writer([] { place::write_file("/tmp/fifo", "\xEF\xBB\xBF[s]\na = 1\n"); });
    const Owned d(iniparser_load("/tmp/fifo"));
    writer.join();
    EXPECT_EQ(entries(d), "[s]=UNDEF\n[s:a]=[1]\n");
}

// ---- What is no file ----

TEST(IniLoad, DoesNotWaitForEverForAFifoThatNobodyWritesTo) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    shortest_silence = 20;
    EXPECT_EQ(iniparser_load("/tmp/fifo"), nullptr);
    EXPECT_EQ(asked_silence, 5000);
}

TEST(IniLoad, DoesNotWaitForEverForAFifoWhoseWriterIsSilent) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    const int writer = open("/tmp/fifo", O_RDWR);
    ASSERT_EQ(write(writer, "[s]\na = 1\n", 10), 10);
    shortest_silence = 20;
    EXPECT_EQ(iniparser_load("/tmp/fifo"), nullptr) << "half a configuration is none";
    EXPECT_EQ(asked_silence, 5000);
    close(writer);
}

TEST(IniLoad, DoesNotWaitForEverForATerminal) {
    const place::Terminal terminal;
    shortest_silence = 20;
    EXPECT_EQ(iniparser_load(terminal.path().c_str()), nullptr);
}

TEST(IniLoad, ReadsATerminalAndDoesNotMakeItTheControllingOne) {
    const place::Terminal terminal;
    struct termios settings;
    ASSERT_EQ(tcgetattr(terminal.descriptor(), &settings), 0);
    settings.c_lflag |= ICANON;  // so that there is a character for the end
    settings.c_cc[VEOF] = 4;
    ASSERT_EQ(tcsetattr(terminal.descriptor(), TCSANOW, &settings), 0);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        setsid();
        const Owned d(iniparser_load(terminal.path().c_str()));
        _exit(d != nullptr && iniparser_getint(d.get(), "s:a", 0) == 1 && open("/dev/tty", O_RDWR) < 0 ? 0 : 1);
    }
    constexpr const char TYPED[] = "[s]\na = 1\n\x04";
    ASSERT_EQ(write(terminal.descriptor(), TYPED, sizeof TYPED - 1), static_cast<ssize_t>(sizeof TYPED - 1));
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(IniLoad, ReadsAPipeThatComesInPieces) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread writer([&] {
        for (const char *const piece : {"[s", "]\na ", "= 1", "\nb = 2\n"}) {
            EXPECT_TRUE(place::eventually([&] { return bytes_waiting(ends[0]) == 0; }));
            EXPECT_EQ(write(ends[1], piece, strlen(piece)), static_cast<ssize_t>(strlen(piece)));
        }
        close(ends[1]);
    });
    const Owned d(iniparser_load(("/proc/self/fd/" + std::to_string(ends[0])).c_str()));
    writer.join();
    close(ends[0]);
    EXPECT_EQ(entries(d), "[s]=UNDEF\n[s:a]=[1]\n[s:b]=[2]\n");
}

TEST(IniLoad, ReadsAPipeWithoutWriterAsEmpty) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[1]);
    EXPECT_EQ(entries(Owned(iniparser_load(("/proc/self/fd/" + std::to_string(ends[0])).c_str()))), "");
    close(ends[0]);
    EXPECT_EQ(entries(Owned(iniparser_load("/dev/null"))), "");
}

TEST(IniLoad, LeavesNoDescriptorOpen) {
    place::write_file(FILE_PATH, "a=1\n");
    const int before = open("/dev/null", O_RDONLY);
    close(before);
    iniparser_freedict(iniparser_load(FILE_PATH));
    const int after = open("/dev/null", O_RDONLY);
    close(after);
    EXPECT_EQ(before, after);
}

// ---- Comments ----

TEST(IniComments, OfTheHeadAreAnchoredThere) {
    EXPECT_EQ(comments("; one\n# two\n\n  ; three\n"), (Comments{{COMMENT_LINE, 65535, "; one\n"},
                                                                 {COMMENT_LINE, 65535, "# two\n"},
                                                                 {COMMENT_BLANK, 65535, std::nullopt},
                                                                 {COMMENT_INDENTED, 65535, "; three\n"}}));
}

TEST(IniComments, OfALineThatBeginsWithAZeroByteAreBlankLines) {
    EXPECT_EQ(comments("\0a = 1\n"s), (Comments{{COMMENT_BLANK, COMMENT_ANCHOR_HEAD, std::nullopt}}));
}

TEST(IniComments, AreAnchoredToWhatWasReadLast) {
    EXPECT_EQ(comments("[S] ; s\n; in s\nK = 1 ; k\n# behind k\n[T]\n\n"),
              (Comments{{COMMENT_TRAILING, anchor("s"), "; s"},
                        {COMMENT_LINE, anchor("s"), "; in s\n"},
                        {COMMENT_TRAILING, anchor("s:k"), "; k"},
                        {COMMENT_LINE, anchor("s:k"), "# behind k\n"},
                        {COMMENT_BLANK, anchor("t"), std::nullopt}}));
}

TEST(IniComments, BehindASettingWithoutASectionAreAnchoredToTheBareKey) {
    EXPECT_EQ(comments("k = 1 ; c\n"), (Comments{{COMMENT_TRAILING, anchor("k"), "; c"}}));
}

TEST(IniComments, BehindQuotesAreWhateverStandsThere) {
    EXPECT_EQ(comments("a = \"x\"y z \nb = 'x' # c\n"),
              (Comments{{COMMENT_TRAILING, anchor("a"), "y z "}, {COMMENT_TRAILING, anchor("b"), "# c"}}));
}

TEST(IniComments, OfADroppedSettingAreKept) {
    EXPECT_EQ(comments("a = 1\na = 2 ; c\n"), (Comments{{COMMENT_TRAILING, anchor("a"), "; c"}}));
}

TEST(IniComments, AreAnchoredToALineWithoutEquals) {
    const uint32_t at = anchor("s:No Equals \n");
    EXPECT_EQ(
        comments("[s]\nk=1\nNo Equals \n; c\n= x\n"),
        (Comments{{COMMENT_BLANK, at, std::nullopt}, {COMMENT_LINE, at, "; c\n"}, {COMMENT_BLANK, at, std::nullopt}}));
}

TEST(IniComments, AreAnchoredToASettingWithoutAValueAsItWasWritten) {
    EXPECT_EQ(comments("[s]\nKey =\n; c\n"),
              (Comments{{COMMENT_BLANK, anchor("s:Key "), std::nullopt}, {COMMENT_LINE, anchor("s:Key "), "; c\n"}}));
}

TEST(IniComments, AreAnchoredToAnOpenSectionWithItsNewline) {
    EXPECT_EQ(comments("[open\n; c\n"), (Comments{{COMMENT_LINE, anchor("open\n"), "; c\n"}}));
}

TEST(IniComments, AreCutAt512Characters) {
    const std::string text(600, 'c');
    EXPECT_EQ(comments(";" + text + "\n"), (Comments{{COMMENT_LINE, 65535, ";" + text.substr(0, 511)}}));
    EXPECT_EQ(comments("  #" + text + "\n"), (Comments{{COMMENT_INDENTED, 65535, "#" + text.substr(0, 511)}}));
    EXPECT_EQ(comments("a=\"1\"" + text + "\n"), (Comments{{COMMENT_TRAILING, anchor("a"), text.substr(0, 512)}}));
}

TEST(IniComments, OfNamesAbove1023CharactersAreAnchoredToTheirBegin) {
    const std::string section(512, 's');
    const std::string key(512, 'k');
    EXPECT_EQ(comments("[" + section + "]\n" + key + " = 1\n; c\n"),
              (Comments{{COMMENT_LINE, anchor((section + ":" + key).substr(0, 1023).c_str()), "; c\n"}}));
}

TEST(IniAddComment, RefusesWhatItCannotAnchor) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(iniparser_add_comment(nullptr, "s", "k", "c", COMMENT_LINE), -1);
    EXPECT_EQ(iniparser_add_comment(d.get(), nullptr, "k", "c", COMMENT_LINE), -1);
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", nullptr, "c", COMMENT_LINE), -1);
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", "k", "c", 0), -1);
    EXPECT_EQ(d->comment_count, 0);
}

TEST(IniAddComment, FormsTheAnchorOfItsNames) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", "k", "1", COMMENT_LINE), 0);
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", "", "2", COMMENT_TRAILING), 0);
    EXPECT_EQ(iniparser_add_comment(d.get(), "", "k", "3", COMMENT_INDENTED), 0);
    EXPECT_EQ(iniparser_add_comment(d.get(), "", "", "4", 9), 0);
    EXPECT_EQ(comments(d),
              (Comments{{1, anchor("s:k"), "1"}, {2, anchor("s"), "2"}, {3, anchor("k"), "3"}, {9, 65535, "4"}}));
}

TEST(IniAddComment, KeepsAnEmptyTextAsNull) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", "", "", COMMENT_LINE), 0);
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", "", nullptr, COMMENT_BLANK), 0);
    EXPECT_EQ(comments(d), (Comments{{1, anchor("s"), std::nullopt}, {4, anchor("s"), std::nullopt}}));
}

TEST(IniAddComment, KeepsALongTextWhole) {
    const Owned d(dictionary_new(0));
    const std::string text(5000, 'c');
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", "", text.c_str(), COMMENT_LINE), 0);
    EXPECT_EQ(d->comment_texts[0], text);
}

TEST(IniAddComment, DoublesTheCommentArraysAlone) {
    const Owned d(dictionary_new(0));
    for (int i = 0; i < 513; ++i) {
        ASSERT_EQ(iniparser_add_comment(d.get(), "s", "", std::to_string(i).c_str(), COMMENT_LINE), 0);
    }
    EXPECT_EQ(d->comment_size, 1024);
    EXPECT_EQ(d->size, 512);
    EXPECT_EQ(d->comment_count, 513);
    EXPECT_STREQ(d->comment_texts[512], "512");
    EXPECT_STREQ(d->comment_texts[0], "0");
}

TEST(IniAddComment, TakesTheLowestFreeSlotAndFreesWhatIsLeftThere) {
    const Owned d(dictionary_new(0));
    for (const char *text : {"0", "1", "2"}) {
        iniparser_add_comment(d.get(), "s", "", text, COMMENT_LINE);
    }
    d->comment_kinds[1] = 0;  // a program that frees a slot itself, its text left behind
    --d->comment_count;
    EXPECT_EQ(iniparser_add_comment(d.get(), "s", "", "new", COMMENT_LINE), 0);
    EXPECT_EQ(comments(d), (Comments{{1, anchor("s"), "0"}, {1, anchor("s"), "new"}, {1, anchor("s"), "2"}}));
}

TEST(IniAddEntry, AddsSectionsAndSettings) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(iniparser_add_entry(d.get(), "s", nullptr, nullptr), 0);
    EXPECT_EQ(iniparser_add_entry(d.get(), "s", "k", "v"), 0);
    EXPECT_EQ(iniparser_add_entry(d.get(), "s", "", "empty"), 0);
    EXPECT_EQ(iniparser_add_entry(d.get(), "S", "K", nullptr), 0) << "names are taken as they are";
    EXPECT_EQ(entries(d), "[s]=UNDEF\n[s:k]=[v]\n[s:]=[empty]\n[S:K]=UNDEF\n");
}

TEST(IniAddEntry, AnswersOneWhenTheDictionaryRefuses) {
    const Owned d(dictionary_new(0));
    iniparser_add_entry(d.get(), "s", "k", "v");
    EXPECT_EQ(iniparser_add_entry(d.get(), "s", "k", "w"), 1);
    EXPECT_EQ(iniparser_add_entry(nullptr, "s", "k", "w"), -1);
    EXPECT_EQ(iniparser_add_entry(d.get(), nullptr, "k", "w"), -1);
    EXPECT_EQ(entries(d), "[s:k]=[v]\n");
}

TEST(IniAddEntry, CutsNamesAt2048Characters) {
    const Owned d(dictionary_new(0));
    const std::string section(2047, 's');
    EXPECT_EQ(iniparser_add_entry(d.get(), section.c_str(), "key", "v"), 0);
    EXPECT_EQ(d->keys[0], section + ":");
    EXPECT_EQ(iniparser_add_entry(d.get(), (section + "tuv").c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(d->keys[1], section + "t");
}

// ---- Looking up ----

TEST(IniGet, IgnoresCase) {
    const Owned d = load("[Net]\nIP = Abc\n");
    EXPECT_STREQ(iniparser_getstring(d.get(), "NET:IP", ""), "Abc");
    EXPECT_STREQ(iniparser_getstr(d.get(), "net:ip"), "Abc");
}

TEST(IniGet, AnswersTheDefaultWhereNothingIs) {
    const Owned d = load("[s]\nk = v\n");
    const char *const otherwise = "default";
    EXPECT_EQ(iniparser_getstring(d.get(), "s:x", otherwise), otherwise);
    EXPECT_EQ(iniparser_getstring(nullptr, "s:k", otherwise), otherwise);
    EXPECT_EQ(iniparser_getstring(d.get(), nullptr, otherwise), otherwise);
    EXPECT_EQ(iniparser_getstr(d.get(), "s:x"), nullptr);
    EXPECT_EQ(iniparser_getstr(nullptr, nullptr), nullptr);
    EXPECT_EQ(iniparser_getstring(d.get(), "s", otherwise), nullptr) << "a section has no value, and no default";
}

TEST(IniGet, ReadsNumbers) {
    const Owned d = load("[s]\na = 12abc\nb = abc\nc = -0.5e1\nd = \"7\"\ne = 0x1F\nf = 99999999999\n");
    EXPECT_EQ(iniparser_getint(d.get(), "S:A", 5), 12);
    EXPECT_EQ(iniparser_getint(d.get(), "s:b", 5), 0);
    EXPECT_EQ(iniparser_getint(d.get(), "s:d", 5), 7);
    EXPECT_EQ(iniparser_getint(d.get(), "s:e", 5), 0);
    EXPECT_EQ(iniparser_getint(d.get(), "s:f", 5), 2147483647);
    EXPECT_EQ(iniparser_getint(d.get(), "s:x", 5), 5);
    EXPECT_DOUBLE_EQ(iniparser_getdouble(d.get(), "s:c", 1), -5);
    EXPECT_DOUBLE_EQ(iniparser_getdouble(d.get(), "s:x", 1.5), 1.5);
    EXPECT_EQ(iniparser_getint(nullptr, "s:a", 5), 5);
    EXPECT_DOUBLE_EQ(iniparser_getdouble(d.get(), nullptr, 1.5), 1.5);
}

TEST(IniGetboolean, LooksAtTheFirstCharacterOnly) {
    for (const char *yes : {"yes", "Y", "true", "True", "1", "100", "tomato"}) {
        EXPECT_EQ(iniparser_getboolean(load("[s]\nb = "s + yes + "\n").get(), "s:b", 7), 1) << yes;
    }
    for (const char *no : {"no", "N", "false", "F", "0", "007", "nonsense"}) {
        EXPECT_EQ(iniparser_getboolean(load("[s]\nb = "s + no + "\n").get(), "s:b", 7), 0) << no;
    }
    for (const char *other : {"on", "off", "2", "-1", "\"\"", "' '"}) {
        EXPECT_EQ(iniparser_getboolean(load("[s]\nb = "s + other + "\n").get(), "s:b", 7), 7) << other;
    }
    EXPECT_EQ(iniparser_getboolean(load("b = \"\"").get(), ":b", 7), 7) << "an empty value";
    EXPECT_EQ(iniparser_getboolean(load("").get(), "s:b", 7), 7);
    EXPECT_EQ(iniparser_getboolean(nullptr, "s:b", 7), 7);
}

TEST(IniGetters, AnswerTheDefaultForASection) {
    const Owned d = load("[s]\n");
    EXPECT_EQ(iniparser_getint(d.get(), "s", 5), 5);
    EXPECT_DOUBLE_EQ(iniparser_getdouble(d.get(), "s", 1.5), 1.5);
    EXPECT_EQ(iniparser_getboolean(d.get(), "s", 7), 7);
}

TEST(IniFindEntry, CountsEntriesWithoutValue) {
    const Owned d = load("[s]\nk = v\n");
    EXPECT_EQ(iniparser_find_entry(d.get(), "S"), 1);
    EXPECT_EQ(iniparser_find_entry(d.get(), "S:K"), 1);
    EXPECT_EQ(iniparser_find_entry(d.get(), "s:x"), 0);
    EXPECT_EQ(iniparser_find_entry(d.get(), nullptr), 0);
    EXPECT_EQ(iniparser_find_entry(nullptr, "s"), 0);
}

TEST(IniGet, LooksAtThe1024FirstCharactersOfAKey) {
    const std::string section(512, 's');
    const Owned d =
        load("[" + section + "]\n" + std::string(511, 'k') + " = fits\n" + std::string(512, 'l') + " = too long\n");
    EXPECT_STREQ(iniparser_getstr(d.get(), (section + ":" + std::string(511, 'k')).c_str()), "fits");
    EXPECT_STREQ(iniparser_getstr(d.get(), (section + ":" + std::string(600, 'k')).c_str()), "fits");
    EXPECT_EQ(iniparser_getstr(d.get(), (section + ":" + std::string(512, 'l')).c_str()), nullptr);
    EXPECT_STREQ(dictionary_get(d.get(), (section + ":" + std::string(512, 'l')).c_str(), nullptr), "too long");
}

TEST(IniGet, LowersItsKeyInTheHelpersBuffer) {
    const Owned d = load("[net]\nip = old\n");
    EXPECT_EQ(iniparser_getstr(d.get(), strlwc("NET:IP")), nullptr) << "the helper clears its own result first";
    char *const buffer = strlwc("VALUE");
    EXPECT_EQ(iniparser_setstr(d.get(), "Net:IP", buffer), 0);
    EXPECT_STREQ(iniparser_getstr(d.get(), "net:ip"), "net:ip") << "by then the buffer held the key";
}

// ---- Changing ----

TEST(IniSetstr, ChangesExistingSettingsOnly) {
    const Owned d = load("[s]\nk = v\n");
    EXPECT_EQ(iniparser_setstr(d.get(), "S:K", "w"), 0);
    EXPECT_STREQ(iniparser_getstr(d.get(), "s:k"), "w");
    EXPECT_EQ(iniparser_setstr(d.get(), "s:k", "w"), 1000);
    EXPECT_EQ(iniparser_setstr(d.get(), "s:new", "x"), 1);
    EXPECT_EQ(iniparser_find_entry(d.get(), "s:new"), 0);
    EXPECT_EQ(iniparser_setstr(d.get(), "s", "value of a section"), 0);
    EXPECT_STREQ(iniparser_getstr(d.get(), "s"), "value of a section");
}

TEST(IniSetstr, AnswersOneForNull) {
    const Owned d = load("[s]\nk = v\n");
    EXPECT_EQ(iniparser_setstr(nullptr, "s:k", "w"), 1);
    EXPECT_EQ(iniparser_setstr(d.get(), nullptr, "w"), 1);
    EXPECT_EQ(iniparser_setstr(d.get(), "s:k", nullptr), 1);
    EXPECT_STREQ(iniparser_getstr(d.get(), "s:k"), "v");
}

TEST(IniSetstr, TakesAPartOfTheOldValue) {
    const Owned d = load("[s]\nk = one two\n");
    EXPECT_EQ(iniparser_setstr(d.get(), "s:k", iniparser_getstr(d.get(), "s:k") + 4), 0);
    EXPECT_STREQ(iniparser_getstr(d.get(), "s:k"), "two");
}

TEST(IniUnset, RemovesOneEntry) {
    const Owned d = load("[s]\nk = v\n");
    iniparser_unset(d.get(), "S:K");
    EXPECT_EQ(entries(d), "[s]=UNDEF\n");
    iniparser_unset(d.get(), "s:k");
    iniparser_unset(d.get(), nullptr);
    iniparser_unset(nullptr, "s");
    iniparser_unset(d.get(), "s");
    EXPECT_EQ(entries(d), "");
}

// ---- Sections ----

TEST(IniSections, AreEntriesWithoutAColon) {
    const Owned d = load("[Two]\na=1\n[one]\nb=2\n[a:b]\n");
    EXPECT_EQ(iniparser_getnsec(d.get()), 2);
    EXPECT_STREQ(iniparser_getsecname(d.get(), 0), "two");
    EXPECT_STREQ(iniparser_getsecname(d.get(), 1), "one");
    EXPECT_EQ(iniparser_getsecname(d.get(), 2), nullptr);
    EXPECT_EQ(iniparser_getsecname(d.get(), -1), nullptr);
    EXPECT_EQ(iniparser_getsecname(nullptr, 0), nullptr);
    EXPECT_EQ(iniparser_getnsec(nullptr), -1);
}

TEST(IniSections, ComeInTheOrderOfTheirSlots) {
    const Owned d = load("[a]\n[b]\n");
    iniparser_unset(d.get(), "a");
    iniparser_add_entry(d.get(), "c", nullptr, nullptr);
    EXPECT_STREQ(iniparser_getsecname(d.get(), 0), "c");
    EXPECT_STREQ(iniparser_getsecname(d.get(), 1), "b");
}

TEST(IniSections, HavePlaceholdersThatAnswerZero) {
    const Owned d = load("[a]\n");
    EXPECT_EQ(iniparser_sec_getNLowLever(), 0);
    EXPECT_EQ(iniparser_sec_getNLowLever(d.get(), "a"), 0);
    EXPECT_EQ(iniparser_sec_getLowLever(d.get(), "a", 1), 0);
    EXPECT_EQ(iniparser_sec_getLowLever(nullptr), 0);
}

// ---- Threads ----

TEST(IniThreads, ReadOneDictionaryTogetherWhileOthersLoadTheirOwn) {
    const Owned d = load("[Net]\nIP = 1.2.3.4\nPort = 80\nDHCP = yes\n");
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int pass = 0; pass < 300; ++pass) {
                const char *const ip = iniparser_getstring(d.get(), "NET:ip", "");
                wrong += ip != "1.2.3.4"s || iniparser_getint(d.get(), "Net:PORT", 0) != 80 ||
                         iniparser_getboolean(d.get(), "net:dhcp", 0) != 1 || iniparser_getnsec(d.get()) != 1 ||
                         iniparser_find_entry(d.get(), "Net:None") != 0;
                if (i % 2 == 0) {
                    const Owned own(iniparser_load(FILE_PATH));
                    iniparser_setstr(own.get(), "NET:IP", "5");
                    iniparser_unset(own.get(), "NET:PORT");
                    wrong += own->count != 3;
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
