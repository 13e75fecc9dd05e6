#!/bin/sh
# The tables of widths have a line for each exported name, each import and each record of the public headers; the program in
# the field calls each function that takes or returns more than words; and a width that is another in a header is found
# out, while `unsigned` for `int` is not.
#     target_widths.sh CXX NM PROJECT HOST_LIBRARY
set -eu
cxx=$1 nm=$2 project=$3 host=$4
here=$project/tests/abi headers=$project/include/velkor
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

complain() { # TITLE FILE
    if [ -s "$2" ]; then
        echo "$1:"
        sed 's/^/    /' "$2"
        failed=1
    fi
}
words_of() { grep -ohE '\<[A-Za-z_0-9]+\>' "$@" | LC_ALL=C sort -u; }
lines_of() { sed -n "s/^$1(\([A-Za-z_0-9]*\), .*/\1/p" "$2" | LC_ALL=C sort; }
compare() { # WHAT LISTED IN_THE_TABLE
    LC_ALL=C comm -23 "$2" "$3" >"$work/missing"
    LC_ALL=C comm -13 "$2" "$3" >"$work/unknown"
    complain "no line for an $1" "$work/missing"
    complain "a line, or a second one, for what is not an $1" "$work/unknown"
}

# ---- A line for each ----

sed -e 's/#.*//' -e '/^$/d' "$project/cmake/exports.txt" | LC_ALL=C sort >"$work/exports"
lines_of EXPORTED "$here/target_widths.cpp" >"$work/exported"
compare 'exported name' "$work/exports" "$work/exported"

"$nm" -D --defined-only "$host" | sed -e 's/.* //' -e 's/@.*//' | LC_ALL=C sort -u >"$work/provided"
words_of "$headers/firmware.h" | LC_ALL=C comm -12 - "$work/provided" >"$work/imports"
lines_of IMPORTED "$here/target_imports.cpp" >"$work/imported"
compare import "$work/imports" "$work/imported"

sed -n -E 's/^(typedef )?struct ([A-Za-z_0-9]+) \{.*/\2/p' "$headers"/*.h | LC_ALL=C sort >"$work/records"
lines_of RECORD "$here/target_records.h" | grep -vE '^(addrinfo|pthread_mutex_t|timespec)$' >"$work/recorded"
compare 'own record' "$work/records" "$work/recorded"

# ---- What is more than words is called ----

awk -F'"' '/^EXPORTED\(/ {
    split($1, name, /[(,]/)
    if ($2 !~ /^(32|void)\(/ || $2 ~ /[( ](64|16|8|time)[,)]|double|\.\.\./) print name[2]
}' "$here/target_widths.cpp" | LC_ALL=C sort >"$work/wide"
words_of "$here"/target_widths*.c | LC_ALL=C comm -23 "$work/wide" - >"$work/uncalled"
complain 'the program in the field does not call' "$work/uncalled"
if grep -nE 'include.*velkor/' "$here"/target_widths*.c "$here/target_prototypes.h"; then
    echo 'the program in the field reads a header of this project'
    failed=1
fi

# ---- A change is seen ----

mkdir -p "$work/include/velkor"
cp "$headers"/*.h "$work/include/velkor"
change() { # WHAT HEADER CHANGE
    sed -i.before -e "$3" "$work/include/velkor/$2"
    if cmp -s "$work/include/velkor/$2.before" "$work/include/velkor/$2"; then
        echo "$1: this changes nothing in $2"
        failed=1
    fi
}
compiles() { "$cxx" -std=c++20 -D_GNU_SOURCE -fsyntax-only -I"$work/include" "$here/$1.cpp" >>"$work/report" 2>&1; }

change 'another sign' files.h 's/int HI_Close(int fd)/int HI_Close(unsigned fd)/'
change 'another kind of text' network.h 's/int IsValidIP(const char \*text)/int IsValidIP(const unsigned char *text)/'
if ! compiles target_widths || ! compiles target_imports; then
    echo 'what makes no difference does not compile:'
    cat "$work/report"
    failed=1
fi

# All at once, each of another kind; the compiler names the line of the table.
: >"$work/seen"
breaks() { # WHAT TABLE LINE HEADER CHANGE
    change "$1" "$4" "$5"
    echo "$2:$(grep -nF "$3" "$here/$2" | cut -d: -f1):$1" >>"$work/seen"
}
breaks 'an offset of 32 bits' target_widths.cpp 'EXPORTED(HI_MMap' files.h 's/int64_t offset/int32_t offset/'
breaks 'a bit number of 32 bits' target_widths.cpp 'EXPORTED(db_SetTriggerBit' text.h \
    's/db_SetTriggerBit(\(.*\), uint64_t bit/db_SetTriggerBit(\1, uint32_t bit/'
breaks 'a result of 64 bits' target_widths.cpp 'EXPORTED(ipstring2u32' network.h \
    's/uint32_t ipstring2u32/uint64_t ipstring2u32/'
breaks 'a year that is a double' target_widths.cpp 'EXPORTED(deltat' calendar.h \
    's/double deltat(int year)/double deltat(double year)/'
breaks 'an output of 64 bits' target_widths.cpp 'EXPORTED(to_base64' text.h 's/int \*out_length/int64_t *out_length/'
breaks 'a character that is a word' target_widths.cpp 'EXPORTED(vk_strnchr' text.h 's/char separator/int separator/'
breaks 'a byte with a sign' target_widths.cpp 'EXPORTED(dictionary_getchar' configuration.h \
    's/unsigned char def/signed char def/'
breaks 'one more parameter' target_widths.cpp 'EXPORTED(swapmem_Start' process.h \
    's/int swapmem_Start(int _iDiskNo/&, int size/'
breaks 'a line without arguments' target_widths.cpp 'EXPORTED(rt_printf' diagnostics.h \
    's/rt_printf(\(.*\), \.\.\.) VELKOR_FORMAT(2, 3)/rt_printf(\1)/'
breaks 'a callback with another parameter' target_widths.cpp 'EXPORTED(SplitStrCmp' text.h \
    's/int (\*compare)(char \*\*pieces, int count/&, int size/'
breaks 'a record passed by value' target_widths.cpp 'EXPORTED(jd_to_persian,' calendar.h \
    's/jd_to_persian(velkor_date \*out/jd_to_persian(velkor_date out/'
breaks 'a wider field' target_records.h 'FIELD(velkor_daylight_rule, 16, reserved' calendar.h \
    's/int32_t reserved\[3\]/int64_t reserved[3]/'
breaks 'fields in another order' target_records.h 'FIELD(SHA1Context, 24, Length_High' text.h \
    '/uint32_t Length_Low;/d; s/uint32_t Length_High;/& uint32_t Length_Low;/'
breaks 'a shorter table' target_widths.cpp 'EXPORTED(g_logman_filter' diagnostics.h \
    's/VELKOR_LOGMAN_SLOTS 8/VELKOR_LOGMAN_SLOTS 4/'
breaks 'an import with a wider size' target_imports.cpp 'IMPORTED(vkt_tzset_to_tzstr' firmware.h \
    's/vkt_tzset_to_tzstr(\(.*\), int size/vkt_tzset_to_tzstr(\1, int64_t size/'
compiles target_widths || :
compiles target_imports || :
while IFS=: read -r table line what; do
    if ! grep -q "/$table:$line:" "$work/report"; then
        echo "$what is not seen by $table:$line"
        failed=1
    fi
done <"$work/seen"

echo "$(wc -l <"$work/exported") exported names, $(wc -l <"$work/imported") imports, $(wc -l <"$work/recorded") records"
echo "$(wc -l <"$work/wide") names are more than words, and called by the program in the field"
exit $failed
