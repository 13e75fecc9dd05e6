// Configuration files mean the same to every program, whatever its locale is. This machine need not have one whose
// letters differ from those of the C locale, so one is made.
#include <ctype.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>
#include <velkor/configuration.h>

#include <string>

#include "support/ini_lockstep.h"
#include "support/place.h"

namespace {

// One in which byte 0xC4 is a letter, 0xE4 the small one to it, and 0xA0 white space.
void enter_a_locale_with_other_letters() {
    std::string map = "<code_set_name> TEST\n<comment_char> %\n<escape_char> /\nCHARMAP\n";
    for (int byte = 0; byte < 256; ++byte) {
        char line[64];
        snprintf(line, sizeof line, "<U%04X> /x%02x x\n", static_cast<unsigned>(byte), static_cast<unsigned>(byte));
        map += line;
    }
    place::write_file("/tmp/map", map + "END CHARMAP\n");
    place::write_file("/tmp/letters",
                      "LC_CTYPE\n"
                      "upper <U0041>..<U005A>;<U00C4>\n"
                      "lower <U0061>..<U007A>;<U00E4>\n"
                      "space <U0009>..<U000D>;<U0020>;<U00A0>\n"
                      "toupper (<U0061>,<U0041>);(<U00E4>,<U00C4>)\n"
                      "tolower (<U0041>,<U0061>);(<U00C4>,<U00E4>)\n"
                      "END LC_CTYPE\n");
    // Whatever else belongs to a locale is missing, of which it warns.
    place::output_of(
        "localedef -c --no-archive -i /tmp/letters -f /tmp/map /tmp/locale >/dev/null 2>&1 || test $? = 1");
    setenv("LOCPATH", "/tmp", 1);
    ASSERT_NE(setlocale(LC_CTYPE, "locale"), nullptr);
    ASSERT_EQ(tolower(0xC4), 0xE4);
    ASSERT_NE(isspace(0xA0), 0);
}

TEST(TextHelpers, KnowTheLettersAndTheWhiteSpaceOfTheCLocaleAlone) {
    enter_a_locale_with_other_letters();
    EXPECT_STREQ(strlwc("A\xC4"), "a\xC4");
    EXPECT_STREQ(strupc("a\xE4"), "A\xE4");
    EXPECT_STREQ(strcrop("a\xA0 "), "a\xA0");
    EXPECT_STREQ(strstrip(" \xA0 a"), "\xA0 a");
    const char *const text = " \xA0";
    EXPECT_EQ(strskp(text), text + 1);
    place::write_file("/tmp/test.ini", "[N\xC4]\nK\xC4 = v\xA0\n");
    const ini::Owned d(iniparser_load("/tmp/test.ini"));
    EXPECT_STREQ(iniparser_getstr(d.get(), "N\xC4:K\xC4"), "v\xA0");
    EXPECT_EQ(iniparser_getstr(d.get(), "n\xE4:k\xE4"), nullptr);
}

}  // namespace
