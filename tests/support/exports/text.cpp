#include <velkor/text.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "support/export_table.h"

namespace exports {
namespace {

// A few cleared buffers.
struct Pieces {
    char buffers[4][16] = {};
    char *pointers[4] = {buffers[0], buffers[1], buffers[2], buffers[3]};
};

template <typename Call>
std::string split(Call call) {
    Pieces pieces;
    const int result = call(pieces.pointers);
    return text_of(result, pieces.buffers[0], pieces.buffers[1], pieces.buffers[2], pieces.buffers[3]);
}

std::string tokens() {
    char text[] = "a;b;c";
    char *found[3] = {};
    const int count = strtoken_r(text, ";", found, 3);
    return text_of(count, found[0], found[1], found[2]);
}

template <typename Call>
std::string search(const char *first, const char *second, Call call) {
    char *const list[] = {const_cast<char *>(first), nullptr, const_cast<char *>(second)};
    return text_of(call(list));
}

int judge_pieces(char **pieces, int count, void *argument) {
    return count + static_cast<int>(strlen(pieces[0])) + *static_cast<int *>(argument);
}

std::string split_and_compare() {
    int argument = 100;
    return text_of(SplitStrCmp("abc,d", ",", 8, judge_pieces, &argument));
}

std::string fields() {
    char *starts[3] = {};
    int lengths[3] = {};
    const int count = vk_strnchr("ab//c", 5, '/', starts, lengths, 2);
    return text_of(count, starts[0], starts[1], lengths[0], lengths[1]);
}

std::string out_of_range() {
    const long long value = vk_atoll("99999999999999999999");
    return text_of(value, errno);
}

std::string base64() {
    int length = 0;
    const std::string text = filled([&](char *out) { to_base64(out, "\1\2\3\4", 4, &length); });
    return text_of(text, length);
}

template <typename Call>
std::string trigger_set(Call call) {
    uint64_t set[VELKOR_TRIGGER_WORDS] = {15, 64, 0, 0};
    const int result = call(set);
    return text_of(result, set[0], set[1], set[2], set[3]);
}

std::string trigger_text() {
    const uint64_t set[VELKOR_TRIGGER_WORDS] = {15, 64, 0, 0};
    return filled([&](char *out) { return db_Trigger2Str(set, out); });
}

// Of "abc", with one of the inner steps taken before its end.
template <typename Step>
std::string digest(Step step) {
    SHA1Context context = {};
    const int begun = SHA1Reset(&context);
    const int read = SHA1Input(&context, reinterpret_cast<const uint8_t *>("abc"), 3);
    step(&context);
    uint8_t bytes[VELKOR_SHA1_DIGEST_SIZE] = {};
    const int taken = SHA1Result(&context, bytes);
    return text_of(begun, read, taken, std::string(std::begin(bytes), std::end(bytes)));
}

constexpr Row ROWS[] = {
    {"strncopy", [] { return filled([](char *out) { strncopy(out, "text", 10); }); }, PLAIN},
    {"vk_strncpy", [] { return filled([](char *out) { vk_strncpy(out, 4, "text", 10); }); }, PLAIN},
    {"vk_atoll", [] { return text_of(vk_atoll("-9000000000")); }, PLAIN},
    {"vk_atoll (out of range)", out_of_range},
    {"vk_atoi", [] { return text_of(vk_atoi("4294967297")); }, PLAIN},
    {"vk_atou8", [] { return text_of(vk_atou8("200")); }, PLAIN},

    {"SplitString", [] { return split([](char **to) { return SplitString("a,bc,d", ",", to, 16, 4); }); }, PLAIN},
    {"SplitStringToArrayEx", [] { return split([](char **to) { return SplitStringToArrayEx("a-b-", "-", to, 4); }); },
     PLAIN},
    {"OnCharLeft", [] { return filled([](char *out) { return OnCharLeft("key=value", "=", out); }); }, PLAIN},
    {"OnCharRight", [] { return filled([](char *out) { return OnCharRight("key=value", "=", out); }); }, PLAIN},
    {"strtoken_r", tokens, PLAIN},
    {"spilt_strcmp", [] { return search("a", "b", [](auto list) { return spilt_strcmp(list, 3, "b"); }); }, PLAIN},
    {"split_intcmp", [] { return search("1", "22", [](auto list) { return split_intcmp(list, 3, 22); }); }, PLAIN},
    {"SplitStrCmp", split_and_compare},
    {"vk_strnchr", fields, PLAIN},

    {"FindPosByFlag", [] { return text_of(FindPosByFlag("0123456789", 10, "78", 2)); }, PLAIN},
    {"FindPosByFlag_Fast", [] { return text_of(FindPosByFlag_Fast("0123456789", 10, "78", 2, '1', '9')); }, PLAIN},

    {"vk_strst", [] { return filled([](char *out) { return vk_strst("a-b-c", "-", "::", out); }); }, PLAIN},
    {"StringReplace", [] { return changed("a-b-c", [](char *text) { StringReplace(text, '-', '+'); }); }, PLAIN},
    {"StringReplaceSub", [] { return changed("a-b", [](char *text) { StringReplaceSub(text, 16, "-", "::"); }); }},
    {"vk_rtrim", [] { return changed("text \n ", vk_rtrim); }, PLAIN},
    {"ReverseString", [] { return changed("text", ReverseString); }, PLAIN},
    {"ConverStrLowerToUper", [] { return changed("text", ConverStrLowerToUper); }, PLAIN},
    {"vk_strchr", [] { return changed("text", [](char *text) { vk_strchr(text, 'x'); }); }, PLAIN},

    {"check_string", [] { return text_of(check_string("text"), check_string("te;xt")); }, PLAIN},
    {"check_string_ascii", [] { return text_of(check_string_ascii("TEXT 1"), check_string_ascii("text")); }, PLAIN},
    {"check_visual_string", [] { return text_of(check_visual_string("text1"), check_visual_string("te xt")); }, PLAIN},

    {"itoa", [] { return filled([](char *out) { itoa(4000000000U, out); }); }, PLAIN},
    {"pow1", [] { return text_of(pow1(3, 7)); }, PLAIN},
    {"to_base64", base64, PLAIN},

    {"vk_TextGB2312ToUtf8", [] { return changed("\xd6\xd0", [](char *t) { return vk_TextGB2312ToUtf8(1, t, 16); }); }},
    {"vk_TextUtf8ToGB2312",
     [] { return changed("\xe4\xb8\xad", [](char *t) { return vk_TextUtf8ToGB2312(1, t, 16); }); }},

    {"get_NvrAutoTestState", [] { return text_of(get_NvrAutoTestState(1, 2, 3, 4)); }, PLAIN},
    {"getFishEyeEnable", [] { return text_of(getFishEyeEnable()); }, PLAIN},

    {"db_SetTriggerBit", [] { return trigger_set([](uint64_t *set) { return db_SetTriggerBit(set, 71); }); }, PLAIN},
    {"db_ClrTriggerBit", [] { return trigger_set([](uint64_t *set) { return db_ClrTriggerBit(set, 70); }); }, PLAIN},
    {"db_GetTriggerBit", [] { return trigger_set([](uint64_t *set) { return db_GetTriggerBit(set, 70); }); }, PLAIN},
    {"db_Str2Trigger", [] { return trigger_set([](uint64_t *set) { return db_Str2Trigger(set, "F0"); }); }, PLAIN},
    {"db_Trigger2Str", trigger_text, PLAIN},

    {"SHA1Reset SHA1Input SHA1Result", [] { return digest([](SHA1Context *) {}); }, PLAIN},
    {"SHA1PadMessage", [] { return digest(SHA1PadMessage); }, PLAIN},
    {"SHA1ProcessMessageBlock", [] { return digest(SHA1ProcessMessageBlock); }, PLAIN},
};

}  // namespace

const Group TEXT = {ROWS, prepare_nothing};

}  // namespace exports
